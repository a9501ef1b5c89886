#include "OstaVell/Features/Media/MediaPlaybackState.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <cmath>

namespace vell {

namespace {

double finiteOr(const QJsonValue& value, double fallback) {
    const double number = value.toDouble(fallback);
    return std::isfinite(number) ? number : fallback;
}

MediaPlaybackState::ShuffleMode shuffleOf(int code) {
    switch (code) {
    case 2:
        return MediaPlaybackState::ShuffleMode::albums;
    case 3:
        return MediaPlaybackState::ShuffleMode::songs;
    default:
        return MediaPlaybackState::ShuffleMode::off;
    }
}

MediaPlaybackState::RepeatMode repeatOf(int code) {
    switch (code) {
    case 2:
        return MediaPlaybackState::RepeatMode::one;
    case 3:
        return MediaPlaybackState::RepeatMode::all;
    default:
        return MediaPlaybackState::RepeatMode::off;
    }
}

} // namespace

QString MediaPlaybackState::identity() const {
    const QChar separator(0x1F);
    return title + separator + artist + separator + album;
}

double MediaPlaybackState::elapsedAt(const QDateTime& now) const {
    double value = elapsed;
    if (isPlaying && timestamp.isValid())
        value += std::max<qint64>(timestamp.msecsTo(now), 0) / 1000.0 * (playbackRate > 0 ? playbackRate : 1);
    if (duration > 0)
        value = std::min(value, duration);
    return std::max(value, 0.0);
}

QVariantMap MediaPlaybackState::toMap() const {
    static const char* const shuffles[] = {"off", "songs", "albums"};
    static const char* const repeats[] = {"off", "one", "all"};
    return {{"title", title},
            {"artist", artist},
            {"album", album},
            {"bundleIdentifier", bundleIdentifier},
            {"appName", appName},
            {"isPlaying", isPlaying},
            {"duration", duration},
            {"elapsed", elapsed},
            {"timestamp", timestamp},
            {"playbackRate", playbackRate},
            {"shuffleMode", QString::fromLatin1(shuffles[int(shuffleMode)])},
            {"repeatMode", QString::fromLatin1(repeats[int(repeatMode)])},
            {"hasArtwork", !artworkImage.isNull()},
            {"player", player}};
}

std::optional<MediaPlaybackState> MediaPlaybackState::fromPayload(const QJsonObject& payload,
                                                                  const QByteArray& previousArtworkData,
                                                                  const QImage& previousArtwork) {
    const QString title = payload.value(u"title").toString();
    if (title.isEmpty())
        return std::nullopt;
    MediaPlaybackState state;
    state.title = title;
    state.isPlaying = payload.value(u"playing").toBool(false);
    state.bundleIdentifier = payload.value(u"bundleIdentifier").toString();
    state.artist = payload.value(u"artist").toString();
    state.album = payload.value(u"album").toString();
    state.duration = std::max(finiteOr(payload.value(u"durationMicros"), 0) / 1e6, 0.0);
    state.elapsed = std::max(finiteOr(payload.value(u"elapsedTimeMicros"), 0) / 1e6, 0.0);
    const QJsonValue stamp = payload.value(u"timestampEpochMicros");
    state.timestamp = stamp.isDouble() && std::isfinite(stamp.toDouble())
                          ? QDateTime::fromMSecsSinceEpoch(qint64(stamp.toDouble() / 1000), Qt::UTC)
                          : QDateTime::currentDateTimeUtc();
    state.playbackRate = finiteOr(payload.value(u"playbackRate"), 0);
    state.shuffleMode = shuffleOf(payload.value(u"shuffleMode").toInt(1));
    state.repeatMode = repeatOf(payload.value(u"repeatMode").toInt(1));
    state.player = payload.value(u"player").toString();
    const QByteArray artwork = payload.value(u"artworkData").toString().toLatin1();
    if (!artwork.isEmpty())
        state.artworkImage = artwork == previousArtworkData
                                 ? previousArtwork
                                 : QImage::fromData(QByteArray::fromBase64(artwork));
    return state;
}

std::optional<MediaAdapterRecord> MediaAdapterRecord::decode(const QByteArray& line,
                                                             const QByteArray& previousArtworkData,
                                                             const QImage& previousArtwork) {
    const QJsonDocument document = QJsonDocument::fromJson(line);
    const QJsonValue payload = document.object().value(u"payload");
    if (!document.isObject() || !payload.isObject())
        return std::nullopt;
    MediaAdapterRecord record;
    record.state = MediaPlaybackState::fromPayload(payload.toObject(), previousArtworkData, previousArtwork);
    record.artworkData = payload.toObject().value(u"artworkData").toString().toLatin1();
    for (const QJsonValue& entry : document.object().value(u"players").toArray()) {
        const QJsonObject player = entry.toObject();
        const QString bus = player.value(u"player").toString();
        if (!bus.isEmpty())
            record.players.append({bus, player.value(u"name").toString(), player.value(u"title").toString(),
                                   player.value(u"playing").toBool()});
    }
    return record;
}

} // namespace vell
