#pragma once

#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <optional>

namespace vell {

// What one MPRIS player on the session bus says about itself, as last read or told.
struct MprisPlayerState {
    enum class Status { stopped, paused, playing };

    QString busName; // org.mpris.MediaPlayer2.<suffix>
    QString owner;   // its unique name; every call goes there, so nothing is ever activated
    QString identity;
    QString desktopEntry;
    Status status = Status::stopped;
    QString title;
    QStringList artists;
    QString album;
    QString artUrl;
    QString trackId;
    qint64 lengthMicros = 0;
    // The position at positionAtMicros (wall clock, microseconds since 1970).
    qint64 positionMicros = 0;
    qint64 positionAtMicros = 0;
    double rate = 1;
    std::optional<bool> shuffle;
    QString loopStatus; // "None", "Track", "Playlist" or empty when the player has none
    // Raised on every change of what a person would notice (status or track), so the most
    // recent change can win a tie.
    quint64 changeSerial = 0;

    // The desktop entry when the player names one, otherwise the bus name's suffix.
    QString bundleIdentifier() const;
    // Title, artist and album: the track as a person tells two tracks apart.
    QString trackIdentity() const;
    // The position now, running on at the player's rate while it plays.
    qint64 positionNow(qint64 nowMicros) const;
};

// Which player to report: a pinned one while it is on the bus; otherwise one that plays over
// one that is paused over one that is stopped, and among equals the most recently changed.
// Browsers often show the same tab twice (their own player and an integration's); players
// with the same track in the same state count as one, the most recently changed of them.
class MprisChoice final {
public:
    static std::optional<qsizetype> choose(const QList<MprisPlayerState>& players,
                                           const QString& pinnedBusName);
    // The players as a person should see them listed: duplicates collapsed, in bus-name order.
    static QList<qsizetype> distinct(const QList<MprisPlayerState>& players);
};

} // namespace vell
