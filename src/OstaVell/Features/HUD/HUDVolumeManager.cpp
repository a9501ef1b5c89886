#include "OstaVell/Features/HUD/HUDVolumeManager.h"

#include "OstaVell/Features/HUD/HUDPulseOutput.h"
#include "OstaVell/Features/HUD/HUDSettings.h"

#include <algorithm>
#include <cmath>

namespace vell {

namespace {

// Differences below these are the rounding of the server's integer levels, not a change.
constexpr float levelTolerance = 0.0005f;
// A software-muted output whose level comes back above this was unmuted by someone else.
constexpr float audibleLevel = 0.001f;
// Where unmuting goes when nothing was remembered.
constexpr float unmuteFallback = 0.5f;

} // namespace

HUDVolumeManager::HUDVolumeManager(HUDAudioOutput* output, HUDSettings* settings, SneakPeekCoordinator* peek,
                                   QObject* parent)
    : QObject(parent)
    , m_output(output)
    , m_settings(settings)
    , m_peek(peek) {
    m_output->setParent(this);
    connect(m_output, &HUDAudioOutput::readingChanged, this, &HUDVolumeManager::outputChanged);
}

HUDVolumeManager* HUDVolumeManager::instance() {
    static HUDVolumeManager* manager =
        new HUDVolumeManager(new HUDPulseOutput, HUDSettings::instance(), SneakPeekCoordinator::instance());
    return manager;
}

void HUDVolumeManager::start() {
    if (m_started)
        return;
    m_started = true;
    m_output->start();
    outputChanged();
}

void HUDVolumeManager::outputChanged() {
    const HUDOutputReading reading = m_output->reading();
    if (reading.present != m_hasOutputDevice || reading.uid != m_outputUID) {
        rebind(reading);
        return;
    }
    // Name and abilities may change without the output changing.
    if (reading.name != m_outputName || reading.canSetVolume != m_canSetVolume ||
        reading.canMute != m_canMute) {
        m_outputName = reading.name;
        m_canSetVolume = reading.canSetVolume;
        m_canMute = reading.canMute;
        emit changed();
    }
    if (Clock::now() < m_suppressExternalUntil)
        refreshFromHardware(HUDEventSource::internalControl, false);
    else
        refreshFromHardware(HUDEventSource::external, true);
}

void HUDVolumeManager::rebind(const HUDOutputReading& reading) {
    m_hasOutputDevice = reading.present;
    if (!reading.present) {
        emit changed();
        return;
    }
    m_outputUID = reading.uid;
    m_outputName = reading.name;
    m_canSetVolume = reading.canSetVolume;
    m_canMute = reading.canMute;
    // What a software mute remembered belonged to the output before. A software mute itself
    // stays until the new output's level says otherwise.
    m_softwareMuteRestoreVolume.reset();
    if (m_canMute)
        m_isMuted = reading.muted.value_or(false);
    emit changed();
    refreshFromHardware(HUDEventSource::external, false);
}

void HUDVolumeManager::refreshFromHardware(HUDEventSource source, bool showHUD) {
    if (!m_hasOutputDevice)
        return;
    const HUDOutputReading reading = m_output->reading();
    bool volumeChanged = false;
    bool muteChanged = false;
    if (reading.volume && std::abs(*reading.volume - m_volume) > levelTolerance) {
        m_volume = *reading.volume;
        volumeChanged = true;
    }
    if (m_canMute && reading.muted && *reading.muted != m_isMuted) {
        m_isMuted = *reading.muted;
        muteChanged = true;
    }
    if (!m_canMute && m_isMuted && source == HUDEventSource::external && m_volume > audibleLevel) {
        // Someone raised the level of an output we had muted in software: it is no longer muted.
        m_isMuted = false;
        m_softwareMuteRestoreVolume.reset();
        muteChanged = true;
    }
    if (!volumeChanged && !muteChanged)
        return;
    published(source);
    const bool routed = isRouted && isRouted(m_outputUID);
    if (showHUD && source == HUDEventSource::external && !routed && m_settings->showOnExternalChange())
        m_peek->show(muteChanged ? SneakPeekType::mute : SneakPeekType::volume, m_volume, source);
}

void HUDVolumeManager::noteOwnWrite(HUDEventSource source) {
    if (source == HUDEventSource::internalControl)
        m_suppressExternalUntil = Clock::now() + ownWriteEcho;
}

void HUDVolumeManager::published(HUDEventSource source) {
    m_lastChangedAt = QDateTime::currentDateTimeUtc();
    m_lastChangeSource = source;
    emit changed();
}

void HUDVolumeManager::writeVolume(float value, HUDEventSource source) {
    noteOwnWrite(source);
    // Known before the output hears of it, in case its answer comes at once.
    m_volume = value;
    m_output->writeVolume(value);
}

void HUDVolumeManager::setVolume(float value, HUDEventSource source) {
    if (!std::isfinite(value) || !m_hasOutputDevice || !m_canSetVolume)
        return;
    writeVolume(std::clamp(value, 0.0f, 1.0f), source);
    published(source);
}

void HUDVolumeManager::stepVolume(float by, HUDEventSource source) {
    if (!std::isfinite(by))
        return;
    if (m_isMuted && by > 0)
        setMuted(false, source);
    setVolume(m_volume + by, source);
}

void HUDVolumeManager::setMuted(bool muted, HUDEventSource source) {
    if (!m_hasOutputDevice)
        return;
    if (m_canMute) {
        noteOwnWrite(source);
        m_output->writeMuted(muted);
        m_isMuted = muted;
        published(source);
        return;
    }
    // No mute of its own: the level stands in for it.
    if (!m_canSetVolume || muted == m_isMuted)
        return;
    if (muted) {
        m_softwareMuteRestoreVolume = m_volume;
        writeVolume(0, source);
    } else {
        writeVolume(std::exchange(m_softwareMuteRestoreVolume, std::nullopt).value_or(unmuteFallback),
                    source);
    }
    m_isMuted = muted;
    published(source);
}

} // namespace vell
