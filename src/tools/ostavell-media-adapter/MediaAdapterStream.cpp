#include "MediaAdapterStream.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <unistd.h>

namespace vell {

namespace {

QJsonObject payloadOf(const MprisPlayerState& player, const QByteArray& artwork) {
    QJsonObject payload;
    if (player.title.isEmpty())
        return payload;
    const bool playing = player.status == MprisPlayerState::Status::playing;
    payload.insert(QStringLiteral("title"), player.title);
    payload.insert(QStringLiteral("artist"), player.artists.join(QStringLiteral(", ")));
    payload.insert(QStringLiteral("album"), player.album);
    payload.insert(QStringLiteral("playing"), playing);
    payload.insert(QStringLiteral("bundleIdentifier"), player.bundleIdentifier());
    payload.insert(QStringLiteral("player"), player.busName);
    if (player.lengthMicros > 0)
        payload.insert(QStringLiteral("durationMicros"), double(player.lengthMicros));
    payload.insert(QStringLiteral("elapsedTimeMicros"), double(player.positionMicros));
    payload.insert(QStringLiteral("timestampEpochMicros"), double(player.positionAtMicros));
    payload.insert(QStringLiteral("playbackRate"), playing ? player.rate : 0.0);
    if (player.shuffle)
        payload.insert(QStringLiteral("shuffleMode"), *player.shuffle ? 3 : 1);
    if (!player.loopStatus.isEmpty()) {
        const int repeat = player.loopStatus == u"Track" ? 2 : player.loopStatus == u"Playlist" ? 3 : 1;
        payload.insert(QStringLiteral("repeatMode"), repeat);
    }
    if (!artwork.isEmpty())
        payload.insert(QStringLiteral("artworkData"), QString::fromLatin1(artwork.toBase64()));
    return payload;
}

} // namespace

MediaAdapterStream::MediaAdapterStream(MprisPlayers& players, int debounceMilliseconds, QString pinnedBusName,
                                       QObject* parent)
    : QObject(parent)
    , m_players(players)
    , m_pin(std::move(pinnedBusName)) {
    m_debounce.setSingleShot(true);
    m_debounce.setInterval(std::max(debounceMilliseconds, 0));
    connect(&m_debounce, &QTimer::timeout, this, &MediaAdapterStream::write);
    connect(&m_players, &MprisPlayers::changed, this, &MediaAdapterStream::schedule);
    connect(&m_players, &MprisPlayers::ready, this, &MediaAdapterStream::schedule);
    connect(&m_artwork, &MediaArtworkFetcher::fetched, this, &MediaAdapterStream::schedule);
    // The descriptor, not stdio's FILE: a line must leave at once, not when a buffer fills.
    m_output.open(STDOUT_FILENO, QIODevice::WriteOnly | QIODevice::Unbuffered);
}

QByteArray MediaAdapterStream::record(const QList<MprisPlayerState>& players, const QString& pinnedBusName,
                                      const QByteArray& artwork) {
    const std::optional<qsizetype> chosen = MprisChoice::choose(players, pinnedBusName);
    QJsonArray list;
    for (qsizetype index : MprisChoice::distinct(players)) {
        const MprisPlayerState& player = players[index];
        list.append(QJsonObject{
            {QStringLiteral("player"), player.busName},
            {QStringLiteral("name"), player.identity.isEmpty() ? player.bundleIdentifier() : player.identity},
            {QStringLiteral("title"), player.title},
            {QStringLiteral("playing"), player.status == MprisPlayerState::Status::playing},
        });
    }
    QJsonObject line;
    line.insert(QStringLiteral("payload"), chosen ? payloadOf(players[*chosen], artwork) : QJsonObject());
    line.insert(QStringLiteral("players"), list);
    return QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n';
}

void MediaAdapterStream::schedule() {
    if (!m_players.isReady() || m_debounce.isActive())
        return;
    const qint64 since = m_sinceWrite.isValid() ? m_sinceWrite.elapsed() : m_debounce.interval();
    if (since >= m_debounce.interval())
        write();
    else
        m_debounce.start(int(m_debounce.interval() - since));
}

void MediaAdapterStream::write() {
    const QList<MprisPlayerState>& players = m_players.players();
    const std::optional<qsizetype> chosen = MprisChoice::choose(players, m_pin);
    const QString artUrl = chosen ? players[*chosen].artUrl : QString();
    const QByteArray artwork = artUrl.isEmpty() ? QByteArray() : m_artwork.artwork(artUrl);
    QByteArray line = record(players, m_pin, artwork);
    if (line == m_last)
        return;
    m_sinceWrite.start();
    // The reader is gone: nothing left to do.
    if (m_output.write(line) != line.size())
        QCoreApplication::exit(0);
    m_last = std::move(line);
}

} // namespace vell
