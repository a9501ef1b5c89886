#pragma once

#include "OstaVell/Features/Media/MediaAdapterTransport.h"
#include "OstaVell/Features/Media/MediaPlaybackState.h"
#include "OstaVell/Features/Media/MediaScriptPlayerController.h"

#include <QColor>
#include <QDateTime>
#include <QObject>
#include <QTimer>
#include <QUrl>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <memory>

class QJSEngine;
class QQmlEngine;

namespace vell {

class ShellContributions;
class UserDefaults;

// The one answer to "what is playing", and the one way to steer it. The adapter's stream is
// the source; when it can't be had (it ends four times running, or says nothing for 5
// seconds) the in-process reader takes over until the stream speaks again.
class MusicManager final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_DISABLE_COPY_MOVE(MusicManager)

    Q_PROPERTY(bool hasPlayback READ hasPlayback NOTIFY playbackChanged)
    Q_PROPERTY(QVariantMap playback READ playbackMap NOTIFY playbackChanged)
    Q_PROPERTY(QUrl artworkSource READ artworkSource NOTIFY playbackChanged)
    Q_PROPERTY(QColor artworkTint READ artworkTint NOTIFY artworkTintChanged)
    Q_PROPERTY(QUrl sourceAppIcon READ sourceAppIcon NOTIFY sourceAppIconChanged)
    Q_PROPERTY(bool usingScriptFallback READ usingScriptFallback NOTIFY usingScriptFallbackChanged)
    Q_PROPERTY(bool automationPermissionDenied READ automationPermissionDenied NOTIFY
                   automationPermissionDeniedChanged)
    Q_PROPERTY(bool showQuickPeek READ showQuickPeek NOTIFY quickPeekChanged)
    Q_PROPERTY(QVariantMap quickPeekPlayback READ quickPeekMap NOTIFY quickPeekChanged)
    Q_PROPERTY(double systemVolume READ systemVolume WRITE setSystemVolume NOTIFY systemVolumeChanged)
    // [{player, name, title, playing}]: the players a person may pin.
    Q_PROPERTY(QVariantList players READ players NOTIFY playersChanged)
    Q_PROPERTY(QString pinnedPlayer READ pinnedPlayer WRITE setPinnedPlayer NOTIFY pinnedPlayerChanged)
    Q_PROPERTY(bool mediaEnabled READ mediaEnabled WRITE setMediaEnabled NOTIFY settingsChanged)
    Q_PROPERTY(QString restrictTo READ restrictTo WRITE setRestrictTo NOTIFY settingsChanged)
    Q_PROPERTY(bool showVisualizer READ showVisualizer WRITE setShowVisualizer NOTIFY settingsChanged)

public:
    static constexpr int volumeWriteMilliseconds = 80;
    static constexpr int maximumRestarts = 3;

    // The waits of the design, in milliseconds; tests shorten them.
    struct Timing {
        int restartUnit = 1000;   // the restarts wait 1, 2 and 3 of these
        int fallbackProbe = 5000; // a stream that says nothing this long is no use
        int quietLaunch = 5000;   // no quick peek this soon after start
        int quickPeek = 2800;
    };

    // The parts it works with, so tests build private ones; the transport and the reader are
    // owned from then on.
    MusicManager(UserDefaults& defaults, std::unique_ptr<MediaAdapterTransport> transport,
                 std::unique_ptr<MediaScriptPlayerController> scriptController, QObject* parent = nullptr);
    ~MusicManager() override;

    static MusicManager* instance();
    static MusicManager* create(QQmlEngine*, QJSEngine*);
    static void offerViews(ShellContributions& shell);

    // Writes the system volume; installed by whoever owns the output. Without it the slider
    // moves and nothing is written.
    std::function<void(double)> volumeWriter;
    Timing timing;

    void start();
    void stop();
    bool isStarted() const { return m_started; }

    const std::optional<MediaPlaybackState>& playback() const { return m_playback; }
    bool hasPlayback() const { return m_playback.has_value(); }
    QVariantMap playbackMap() const;
    QUrl artworkSource() const;
    QColor artworkTint() const { return m_artworkTint; }
    QUrl sourceAppIcon() const { return m_sourceAppIcon; }
    bool usingScriptFallback() const { return m_usingScriptFallback; }
    bool automationPermissionDenied() const { return m_automationPermissionDenied; }
    bool showQuickPeek() const { return m_showQuickPeek; }
    QVariantMap quickPeekMap() const;
    double systemVolume() const { return m_systemVolume; }
    QVariantList players() const;
    QString pinnedPlayer() const;
    bool mediaEnabled() const;
    QString restrictTo() const;
    bool showVisualizer() const;
    int restartAttempts() const { return m_restartAttempts; }
    // How often the probe found none of the players the fallback may read.
    int emptyProbes() const { return m_emptyProbes; }
    MediaAdapterTransport& transport() { return *m_transport; }
    MediaScriptPlayerController& scriptController() { return *m_scriptController; }

    void setMediaEnabled(bool enabled);
    void setRestrictTo(const QString& restrictTo);
    void setShowVisualizer(bool show);
    // Pins the player whose bus name this is, or follows the usual choice again when empty.
    void setPinnedPlayer(const QString& busName);

    Q_INVOKABLE void togglePlayPause();
    Q_INVOKABLE void seek(double seconds);
    Q_INVOKABLE void toggleShuffle();
    Q_INVOKABLE void cycleRepeatMode();
    Q_INVOKABLE void nextTrack();
    Q_INVOKABLE void previousTrack();
    // The elapsed seconds at this moment: computed from the last report, never polled.
    Q_INVOKABLE double elapsedNow() const;
    void setSystemVolume(double value);
    // What the owner of the output reports, without writing it back.
    void systemVolumeChangedOutside(double value);

signals:
    void playbackChanged();
    void artworkTintChanged();
    void sourceAppIconChanged();
    void usingScriptFallbackChanged();
    void automationPermissionDeniedChanged();
    void quickPeekChanged();
    void systemVolumeChanged();
    void playersChanged();
    void pinnedPlayerChanged();
    void settingsChanged();

private:
    void beginListening();
    void stopListening();
    QString targetPlayer() const;
    void adapterTerminated();
    void scheduleFallbackProbe(int milliseconds);
    void beginScriptFallbackIfPossible();
    void trackInfo(const MediaAdapterRecord& record);
    void ingest(std::optional<MediaPlaybackState> state, bool fromFallback);
    void publish(std::optional<MediaPlaybackState> state);
    void updateDerived(const std::optional<MediaPlaybackState>& previous);
    void maybeTriggerQuickPeek(const std::optional<MediaPlaybackState>& previous);
    bool passes(const MediaPlaybackState& state) const;
    void settingChanged(const QString& key);
    void setUsingScriptFallback(bool on);
    // The published state moved ahead of the next report, so the controls answer at once.
    void predict(const std::function<void(MediaPlaybackState&)>& change);

    UserDefaults& m_defaults;
    std::unique_ptr<MediaAdapterTransport> m_transport;
    std::unique_ptr<MediaScriptPlayerController> m_scriptController;
    bool m_started = false;
    QDateTime m_startDate;
    bool m_adapterEverDelivered = false;
    int m_restartAttempts = 0;
    int m_emptyProbes = 0;
    QTimer m_restartTask;
    QTimer m_fallbackProbe;
    QTimer m_quickPeekHide;
    QTimer m_pendingVolumeWrite;
    std::optional<MediaPlaybackState> m_playback;
    std::optional<MediaPlaybackState> m_quickPeekPlayback;
    QList<MediaPlayerEntry> m_players;
    QColor m_artworkTint;
    QUrl m_sourceAppIcon;
    QString m_iconCacheBundleID;
    QString m_appName;
    quint64 m_artworkSerial = 0;
    bool m_usingScriptFallback = false;
    bool m_automationPermissionDenied = false;
    bool m_showQuickPeek = false;
    double m_systemVolume = 0;
    // The settings as last read, so that only a real change acts.
    bool m_enabled = true;
    QString m_restriction;
};

} // namespace vell
