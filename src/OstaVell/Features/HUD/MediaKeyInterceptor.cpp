#include "OstaVell/Features/HUD/MediaKeyInterceptor.h"

#include "OstaVell/Features/HUD/HUDBrightnessManager.h"
#include "OstaVell/Features/HUD/HUDLogging.h"
#include "OstaVell/Features/HUD/HUDSettings.h"
#include "OstaVell/Features/HUD/HUDVolumeManager.h"
#include "OstaVell/Features/HUD/SneakPeekCoordinator.h"
#include "OstaVell/Features/HUD/VolumeTargetManager.h"
#include "OstaVell/Support/SettingsStore.h"

#include <QJSEngine>

#include <array>

namespace vell {

namespace {

struct KeyName {
    MediaKeyInterceptor::Key key;
    quint32 keysym;
};

// The XF86 keysyms of the keyboard's media keys.
constexpr std::array<KeyName, 5> keysyms{{
    {MediaKeyInterceptor::Key::volumeUp, 0x1008FF13},       // XF86AudioRaiseVolume
    {MediaKeyInterceptor::Key::volumeDown, 0x1008FF11},     // XF86AudioLowerVolume
    {MediaKeyInterceptor::Key::mute, 0x1008FF12},           // XF86AudioMute
    {MediaKeyInterceptor::Key::brightnessUp, 0x1008FF02},   // XF86MonBrightnessUp
    {MediaKeyInterceptor::Key::brightnessDown, 0x1008FF03}, // XF86MonBrightnessDown
}};

// Core X11 modifier bits.
constexpr quint16 shiftMask = 1 << 0;
constexpr quint16 altMask = 1 << 3; // Mod1
// Shift or Alt alone make no difference; both together are the fine step. Other modifiers
// leave the key to the desktop.
constexpr std::array<quint16, 4> modifierCombinations{0, shiftMask, altMask, shiftMask | altMask};

bool isWaylandSession() {
    return qEnvironmentVariable("XDG_SESSION_TYPE") == u"wayland" ||
           qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
}

} // namespace

MediaKeyInterceptor::MediaKeyInterceptor(VolumeTargetManager* volume, HUDBrightnessManager* brightness,
                                         SettingsStore* settings, HUDSettings* hudSettings,
                                         SneakPeekCoordinator* peek, QObject* parent)
    : QObject(parent)
    , m_volume(volume)
    , m_brightness(brightness)
    , m_settings(settings)
    , m_hudSettings(hudSettings)
    , m_peek(peek)
    , m_grab([this](const X11KeyGrab::Press& press) { pressed(press); }) {
    m_retry.setInterval(retryMilliseconds);
    connect(&m_retry, &QTimer::timeout, this, [this] {
        m_retryDue = true;
        syncKeys();
    });
}

MediaKeyInterceptor* MediaKeyInterceptor::instance() {
    static MediaKeyInterceptor* interceptor = new MediaKeyInterceptor(
        VolumeTargetManager::instance(), HUDBrightnessManager::instance(), SettingsStore::instance(),
        HUDSettings::instance(), SneakPeekCoordinator::instance());
    return interceptor;
}

MediaKeyInterceptor* MediaKeyInterceptor::create(QQmlEngine*, QJSEngine*) {
    MediaKeyInterceptor* interceptor = instance();
    QJSEngine::setObjectOwnership(interceptor, QJSEngine::CppOwnership);
    return interceptor;
}

void MediaKeyInterceptor::start() {
    if (m_started)
        return;
    m_started = true;
    m_keysUnavailable = isWaylandSession() || !X11KeyGrab::available();
    if (m_keysUnavailable) {
        qCInfo(lcHUD) << "media keys can't be taken in this session; the HUD shows changes as they come";
        return;
    }
    connect(m_settings, &SettingsStore::replaceSystemHUDChanged, this,
            &MediaKeyInterceptor::syncWithSettings);
    // What the HUD can act on follows the output, the routes and the backlight.
    connect(m_volume, &VolumeTargetManager::changed, this, &MediaKeyInterceptor::syncKeys);
    connect(&m_volume->hardware(), &HUDVolumeManager::changed, this, &MediaKeyInterceptor::syncKeys);
    connect(m_brightness, &HUDBrightnessManager::changed, this, &MediaKeyInterceptor::syncKeys);
    syncKeys();
}

bool MediaKeyInterceptor::canAct(Key key) const {
    const HUDVolumeManager& hardware = m_volume->hardware();
    switch (key) {
    case Key::volumeUp:
    case Key::volumeDown:
        return m_volume->routed() || (hardware.hasOutputDevice() && hardware.canSetVolume());
    case Key::mute:
        return m_volume->routed() || (hardware.hasOutputDevice() && hardware.canMute());
    case Key::brightnessUp:
    case Key::brightnessDown:
        return m_brightness->isAvailable();
    }
    return false;
}

QList<MediaKeyInterceptor::Key> MediaKeyInterceptor::actionableKeys() const {
    QList<Key> keys;
    for (const KeyName& name : keysyms)
        if (canAct(name.key))
            keys.append(name.key);
    return keys;
}

void MediaKeyInterceptor::syncWithSettings() {
    m_grabbedKeys.clear();
    m_retryDue = true;
    syncKeys();
}

void MediaKeyInterceptor::syncKeys() {
    const bool wasActive = isActive();
    const bool wasRefused = m_refused;
    const QList<Key> wanted = m_settings->replaceSystemHUD() ? actionableKeys() : QList<Key>();
    if (wanted.isEmpty()) {
        m_grab.release();
        m_grabbedKeys.clear();
        m_refused = false;
    } else if (wanted != m_grabbedKeys && (!m_refused || m_retryDue)) {
        QList<X11KeyGrab::Key> grabs;
        for (const KeyName& name : keysyms)
            if (wanted.contains(name.key))
                for (quint16 modifiers : modifierCombinations)
                    grabs.append({name.keysym, modifiers});
        m_refused = !m_grab.grab(grabs);
        m_grabbedKeys = m_refused ? QList<Key>() : wanted;
    }
    m_retryDue = false;
    // Keys another program holds are asked for again every few seconds while the setting wants
    // them, so that they are taken once it lets go, without a restart.
    if (m_refused && !m_retry.isActive())
        m_retry.start();
    else if (!m_refused)
        m_retry.stop();
    if (m_refused && !wasRefused)
        qCInfo(lcHUD) << "key grab failed \u2014 media keys not intercepted";
    if (wasActive != isActive() || wasRefused != m_refused)
        emit changed();
}

void MediaKeyInterceptor::pressed(const X11KeyGrab::Press& press) {
    for (const KeyName& name : keysyms) {
        if (name.keysym != press.keysym)
            continue;
        // Still something we can do: what could be done changes between grab and press.
        if (m_settings->replaceSystemHUD() && canAct(name.key))
            perform(name.key, (press.modifiers & (shiftMask | altMask)) == (shiftMask | altMask));
        return;
    }
}

void MediaKeyInterceptor::perform(Key key, bool fine) {
    const float amount = fine ? fineStep : step;
    switch (key) {
    case Key::volumeUp:
    case Key::volumeDown: {
        const float by = key == Key::volumeUp ? amount : -amount;
        // A routed change is the plugin's to confirm; only the system's own level sounds.
        if (!m_volume->perform(PluginVolumeOperation::adjustVolume(by)) && m_hudSettings->volumeFeedback())
            m_feedback.play();
        return;
    }
    case Key::mute:
        m_volume->perform(PluginVolumeOperation::toggleMute());
        return;
    case Key::brightnessUp:
    case Key::brightnessDown:
        if (const std::optional<float> value =
                m_brightness->stepBrightness(key == Key::brightnessUp ? amount : -amount))
            m_peek->show(SneakPeekType::brightness, *value, HUDEventSource::internalControl);
        return;
    }
}

} // namespace vell
