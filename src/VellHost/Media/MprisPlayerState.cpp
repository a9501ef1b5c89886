#include "VellHost/Media/MprisPlayerState.h"

#include <QChar>

#include <algorithm>
#include <cmath>

namespace vell {

namespace {

const QString busPrefix = QStringLiteral("org.mpris.MediaPlayer2.");

// Two players showing the same track in the same state are one thing to a person.
bool sameShowing(const MprisPlayerState& a, const MprisPlayerState& b) {
    return !a.title.isEmpty() && a.status == b.status && a.trackIdentity() == b.trackIdentity();
}

bool ranksAbove(const MprisPlayerState& a, const MprisPlayerState& b) {
    if (a.status != b.status)
        return a.status > b.status;
    return a.changeSerial > b.changeSerial;
}

} // namespace

QString MprisPlayerState::bundleIdentifier() const {
    if (!desktopEntry.isEmpty())
        return desktopEntry;
    return busName.startsWith(busPrefix) ? busName.mid(busPrefix.size()) : busName;
}

QString MprisPlayerState::trackIdentity() const {
    const QChar separator(0x1F);
    return title + separator + artists.join(QStringLiteral(", ")) + separator + album;
}

qint64 MprisPlayerState::positionNow(qint64 nowMicros) const {
    if (status != Status::playing || nowMicros <= positionAtMicros)
        return positionMicros;
    const double moved = double(nowMicros - positionAtMicros) * (std::isfinite(rate) ? rate : 1.0);
    qint64 position = positionMicros + qint64(moved);
    if (lengthMicros > 0)
        position = std::min(position, lengthMicros);
    return std::max<qint64>(position, 0);
}

std::optional<qsizetype> MprisChoice::choose(const QList<MprisPlayerState>& players,
                                             const QString& pinnedBusName) {
    std::optional<qsizetype> best;
    for (qsizetype i = 0; i < players.size(); ++i) {
        if (!pinnedBusName.isEmpty() && players[i].busName == pinnedBusName)
            return i;
        if (!best || ranksAbove(players[i], players[*best]))
            best = i;
    }
    return best;
}

QList<qsizetype> MprisChoice::distinct(const QList<MprisPlayerState>& players) {
    QList<qsizetype> kept;
    for (qsizetype i = 0; i < players.size(); ++i) {
        const auto same = std::find_if(kept.begin(), kept.end(),
                                       [&](qsizetype k) { return sameShowing(players[k], players[i]); });
        if (same == kept.end())
            kept.append(i);
        else if (players[i].changeSerial > players[*same].changeSerial)
            *same = i;
    }
    std::sort(kept.begin(), kept.end(),
              [&](qsizetype a, qsizetype b) { return players[a].busName < players[b].busName; });
    return kept;
}

} // namespace vell
