#pragma once

#include "OstaVell/Features/HUD/HUDAudioOutput.h"
#include "OstaVell/Features/HUD/SneakPeekCoordinator.h"

#include <QDateTime>
#include <QObject>

#include <chrono>
#include <functional>
#include <optional>

namespace vell {

class HUDSettings;

// The system's own output volume as the HUD knows it: the default output's level and mute,
// followed as they change, and changed on request. A change that comes from elsewhere shows
// the peek (unless a plugin's control is routed in for this output: then what this level says
// is not what is heard); our own writes are not reported back as someone else's.
//
// An output without a mute of its own is muted in software: its level goes to 0 and comes
// back to where it was. Main thread only.
class HUDVolumeManager final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(HUDVolumeManager)

    Q_PROPERTY(double volume READ volume NOTIFY changed)
    Q_PROPERTY(bool isMuted READ isMuted NOTIFY changed)
    Q_PROPERTY(bool hasOutputDevice READ hasOutputDevice NOTIFY changed)
    Q_PROPERTY(QString outputUID READ outputUID NOTIFY changed)
    Q_PROPERTY(QString outputName READ outputName NOTIFY changed)
    Q_PROPERTY(bool canSetVolume READ canSetVolume NOTIFY changed)
    Q_PROPERTY(bool canMute READ canMute NOTIFY changed)

public:
    using Clock = std::chrono::steady_clock;

    // How long after a write of ours a change the server reports counts as ours.
    static constexpr std::chrono::milliseconds ownWriteEcho{350};

    // Takes the output; the peek and the settings stay their owners'.
    HUDVolumeManager(HUDAudioOutput* output, HUDSettings* settings, SneakPeekCoordinator* peek,
                     QObject* parent = nullptr);

    // On the system's default output through the sound server.
    static HUDVolumeManager* instance();

    // Follows the default output; once.
    void start();

    float volume() const { return m_volume; }
    bool isMuted() const { return m_isMuted; }
    QDateTime lastChangedAt() const { return m_lastChangedAt; }
    HUDEventSource lastChangeSource() const { return m_lastChangeSource; }
    bool hasOutputDevice() const { return m_hasOutputDevice; }
    QString outputUID() const { return m_outputUID; }
    QString outputName() const { return m_outputName; }
    bool canSetVolume() const { return m_canSetVolume; }
    bool canMute() const { return m_canMute; }
    // Whether a change the server reports now counts as the echo of a write of ours.
    bool expectsOwnEcho() const { return Clock::now() < m_suppressExternalUntil; }

    void setVolume(float value, HUDEventSource source);
    void stepVolume(float by, HUDEventSource source);
    void setMuted(bool muted, HUDEventSource source);

    // Whether this output's volume keys go to a plugin instead; the HUD then shows nothing for
    // the system's own level. Installed by whoever knows the routes.
    std::function<bool(const QString& outputUID)> isRouted;

signals:
    void changed();

private:
    void outputChanged();
    void rebind(const HUDOutputReading& reading);
    void refreshFromHardware(HUDEventSource source, bool showHUD);
    void writeVolume(float value, HUDEventSource source);
    void noteOwnWrite(HUDEventSource source);
    void published(HUDEventSource source);

    HUDAudioOutput* m_output;
    HUDSettings* m_settings;
    SneakPeekCoordinator* m_peek;
    bool m_started = false;

    float m_volume = 0;
    bool m_isMuted = false;
    QDateTime m_lastChangedAt;
    HUDEventSource m_lastChangeSource = HUDEventSource::external;
    bool m_hasOutputDevice = false;
    QString m_outputUID;
    QString m_outputName;
    bool m_canSetVolume = false;
    bool m_canMute = false;
    // Where a software mute returns to.
    std::optional<float> m_softwareMuteRestoreVolume;
    Clock::time_point m_suppressExternalUntil;
};

} // namespace vell
