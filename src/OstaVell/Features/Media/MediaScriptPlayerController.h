#pragma once

#include "OstaVell/Features/Media/MediaPlaybackState.h"
#include "VellHost/Media/MediaArtworkFetcher.h"
#include "VellHost/Media/MprisPlayers.h"

#include <QDBusConnection>
#include <QImage>
#include <QObject>
#include <QTimer>

#include <functional>

namespace vell {

// The second source of what is playing, for when the adapter's stream gives nothing: the
// MPRIS players read in this process. It asks only players already on the bus, by their
// unique names, so it never starts one. While active it follows the players' signals and
// checks on the one it reports every 3 seconds.
class MediaScriptPlayerController final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MediaScriptPlayerController)

public:
    static constexpr int pollMilliseconds = 3000;

    explicit MediaScriptPlayerController(const QDBusConnection& bus, QObject* parent = nullptr);

    std::function<void(const std::optional<MediaPlaybackState>&)> onStateChanged;
    // Players on this platform never refuse to be read; kept for the manager's one path.
    std::function<void()> onPermissionDenied;

    // "any", "spotify" or "appleMusic"; anything else means "any".
    void setRestriction(const QString& restrictTo);
    void setPin(const QString& busName);
    bool isActive() const { return m_active; }
    QString activePlayer() const { return m_activePlayer; }
    // Answers, later and without blocking, whether one of the players it may read is on the
    // bus; not at all when this goes first.
    void askCandidateRunning(std::function<void(bool)> answer);

    void start();
    void stop();
    void refresh();
    // "playpause", "next track", "previous track".
    void tell(const QString& command);
    void seek(double seconds);
    void setShuffle(bool on);
    void setRepeat(MediaPlaybackState::RepeatMode mode);

    // Whether a player's bus name may be read under a restriction.
    static bool allowed(const QString& busName, const QString& restrictTo);

private:
    void deliver();
    QString commandTarget() const;

    QDBusConnection m_bus;
    MprisPlayers m_players;
    MediaArtworkFetcher m_artwork;
    QTimer m_poll;
    QTimer m_coalesce;
    QString m_restriction = QStringLiteral("any");
    QString m_pin;
    QString m_activePlayer;
    bool m_active = false;
    // The artwork last decoded, so that each reading of an unchanged track decodes nothing.
    QString m_artworkUrl;
    QImage m_artworkImage;
};

} // namespace vell
