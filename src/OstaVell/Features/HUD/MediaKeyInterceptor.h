#pragma once

#include "OstaVell/Features/HUD/VolumeFeedbackSound.h"
#include "OstaVell/Support/X11KeyGrab.h"

#include <QList>
#include <QObject>
#include <QTimer>
#include <QtQml/qqmlregistration.h>

class QJSEngine;
class QQmlEngine;

namespace vell {

class HUDBrightnessManager;
class HUDSettings;
class SettingsStore;
class SneakPeekCoordinator;
class VolumeTargetManager;

// The hardware volume and brightness keys, taken from the desktop while "replaceSystemHUD" is
// on: grabbed on the X11 root window, so that the notch shows their effect instead of the
// desktop's own display. Only keys the HUD can act on are taken (a volume key needs an output
// whose level can be set, or a route; a brightness key a backlight); the others stay with the
// desktop. When another program holds one of the keys, none is taken, the settings pane says
// so, and the next write of the setting tries again. Under Wayland nothing can be grabbed: the
// HUD then shows changes as they are reported. Main thread only.
class MediaKeyInterceptor final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_DISABLE_COPY_MOVE(MediaKeyInterceptor)

    // Keys are grabbed now.
    Q_PROPERTY(bool isActive READ isActive NOTIFY changed)
    // False while the X server refuses a grab; asked again every few seconds.
    Q_PROPERTY(bool grabAvailable READ grabAvailable NOTIFY changed)
    // No keys can be taken in this session at all (Wayland, or no X server).
    Q_PROPERTY(bool keysUnavailable READ keysUnavailable CONSTANT)

public:
    enum class Key { volumeUp, volumeDown, mute, brightnessUp, brightnessDown };

    // A key press moves a sixteenth; with Shift and Alt held, a quarter of that.
    static constexpr float step = 1.0f / 16;
    static constexpr float fineStep = 1.0f / 64;
    static constexpr int retryMilliseconds = 3000;

    MediaKeyInterceptor(VolumeTargetManager* volume, HUDBrightnessManager* brightness,
                        SettingsStore* settings, HUDSettings* hudSettings, SneakPeekCoordinator* peek,
                        QObject* parent = nullptr);

    static MediaKeyInterceptor* instance();
    static MediaKeyInterceptor* create(QQmlEngine*, QJSEngine*);

    // Follows the setting and what the HUD can act on; once.
    void start();

    bool isActive() const { return m_grab.held(); }
    bool grabAvailable() const { return !m_refused; }
    bool keysUnavailable() const { return m_keysUnavailable; }
    // The keys the HUD could act on now.
    QList<Key> actionableKeys() const;
    VolumeFeedbackSound& feedback() { return m_feedback; }

    // What a press of the key does.
    void perform(Key key, bool fine);

signals:
    void changed();

private:
    // The setting was written: a refused grab is tried again at once.
    void syncWithSettings();
    // Grabs the keys that should be held now, or lets go of them.
    void syncKeys();
    void pressed(const X11KeyGrab::Press& press);
    bool canAct(Key key) const;

    VolumeTargetManager* m_volume;
    HUDBrightnessManager* m_brightness;
    SettingsStore* m_settings;
    HUDSettings* m_hudSettings;
    SneakPeekCoordinator* m_peek;
    X11KeyGrab m_grab;
    VolumeFeedbackSound m_feedback;
    QList<Key> m_grabbedKeys;
    bool m_started = false;
    bool m_refused = false;
    bool m_retryDue = false;
    QTimer m_retry;
    bool m_keysUnavailable = false;
};

} // namespace vell
