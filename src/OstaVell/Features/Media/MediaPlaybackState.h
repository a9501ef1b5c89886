#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QImage>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QVariantMap>

#include <optional>

namespace vell {

// What is playing, as one source told it: a plain value, replaced whole on every report.
struct MediaPlaybackState {
    enum class ShuffleMode { off, songs, albums };
    enum class RepeatMode { off, one, all };

    QString title;
    QString artist;
    QString album;
    QImage artworkImage;
    QString bundleIdentifier;
    QString appName;
    bool isPlaying = false;
    double duration = 0;
    double elapsed = 0;
    QDateTime timestamp; // when elapsed was true
    double playbackRate = 0;
    ShuffleMode shuffleMode = ShuffleMode::off;
    RepeatMode repeatMode = RepeatMode::off;
    QString artworkRemoteURL;
    // The player on the bus this came from, for commands and for pinning.
    QString player;

    // Title, artist and album joined by the unit separator: what tells two tracks apart.
    QString identity() const;
    // The elapsed time at that moment, running on at the playback rate while playing.
    double elapsedAt(const QDateTime& now) const;
    // For the views; the artwork is drawn through the image provider instead.
    QVariantMap toMap() const;

    // One adapter record's payload: nothing when its title is missing or empty. The artwork
    // is decoded here, unless artworkData is the data of the previous record, whose image is
    // handed in to be reused.
    static std::optional<MediaPlaybackState> fromPayload(const QJsonObject& payload,
                                                         const QByteArray& previousArtworkData,
                                                         const QImage& previousArtwork);
};

// A player a person may pin, as the adapter lists them.
struct MediaPlayerEntry {
    QString player;
    QString name;
    QString title;
    bool playing = false;

    friend bool operator==(const MediaPlayerEntry&, const MediaPlayerEntry&) = default;
};

// One line of the adapter's stream, decoded.
struct MediaAdapterRecord {
    std::optional<MediaPlaybackState> state;
    QList<MediaPlayerEntry> players;
    QByteArray artworkData; // as it came, to spare the next identical record a decode

    // Nothing for a line that isn't a JSON object with an object under "payload".
    static std::optional<MediaAdapterRecord>
    decode(const QByteArray& line, const QByteArray& previousArtworkData, const QImage& previousArtwork);
};

} // namespace vell
