#pragma once

#include "OstaVell/Features/HUD/PluginVolumeRegistry.h"
#include "OstaVell/Features/HUD/SneakPeekCoordinator.h"
#include "OstaVell/Features/HUD/VolumeRoutes.h"

#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

#include <optional>

class QJSEngine;
class QQmlEngine;

namespace vell {

class HUDSettings;
class HUDVolumeManager;
class UserDefaults;

// The one façade of the volume: the current output, the plugin control routed in for it (if
// any), and where a change goes. Without a route a change goes to the system's output at once;
// with one it goes to the plugin, and the HUD shows the intended level until the plugin
// confirms, refuses or stays silent. Main thread only.
class VolumeTargetManager final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_DISABLE_COPY_MOVE(VolumeTargetManager)

    Q_PROPERTY(double volume READ volume NOTIFY changed)
    Q_PROPERTY(bool isMuted READ isMuted NOTIFY changed)
    Q_PROPERTY(bool available READ available NOTIFY changed)
    Q_PROPERTY(bool canMute READ canMute NOTIFY changed)
    Q_PROPERTY(bool busy READ busy NOTIFY changed)
    Q_PROPERTY(QString status READ status NOTIFY changed)
    Q_PROPERTY(QString targetName READ targetName NOTIFY changed)
    // "mac" for the system's output, else the route's "plugin/endpoint".
    Q_PROPERTY(QString selectionID READ selectionID NOTIFY changed)
    Q_PROPERTY(QString outputName READ outputName NOTIFY changed)
    Q_PROPERTY(bool routed READ routed NOTIFY changed)
    // Whether the HUD draws the muted symbol: the intended state while a plugin confirms.
    Q_PROPERTY(bool showsMutedState READ showsMutedState NOTIFY changed)
    Q_PROPERTY(QString hudLabel READ hudLabel NOTIFY changed)
    // The picker: [{id, name}], the system's output first.
    Q_PROPERTY(QVariantList choices READ choices NOTIFY changed)

public:
    static constexpr QStringView systemSelection = u"mac";
    static constexpr QStringView systemOutputName = u"System audio output";
    static constexpr QStringView savedControlName = u"Saved volume control";
    static constexpr QStringView waitingStatus = u"Waiting for confirmation\u2026";
    static constexpr QStringView unavailableStatus =
        u"Selected control is unavailable. No change will be sent.";
    static constexpr int syncMilliseconds = 1000;

    // Takes the registry; the rest stay their owners'.
    VolumeTargetManager(HUDVolumeManager* hardware, PluginVolumeRegistry* registry, UserDefaults* defaults,
                        HUDSettings* settings, SneakPeekCoordinator* peek, QObject* parent = nullptr);

    static VolumeTargetManager* instance();
    static VolumeTargetManager* create(QQmlEngine*, QJSEngine*);

    HUDVolumeManager& hardware() const { return *m_hardware; }
    PluginVolumeRegistry& registry() const { return *m_registry; }

    // Follows the output, the plugins' controls and the saved routes; once.
    void start();

    float volume() const { return m_volume; }
    bool isMuted() const { return m_isMuted; }
    bool available() const { return m_available; }
    bool canMute() const { return m_canMute; }
    bool busy() const { return m_busy; }
    QString status() const { return m_status; }
    QString targetName() const { return m_targetName; }
    QString selectionID() const { return m_selectionID; }
    QString outputName() const { return m_outputName; }
    bool routed() const { return route().has_value(); }
    bool showsMutedState() const { return m_showsMuted; }
    QString hudLabel() const;
    QVariantList choices() const { return m_choices; }
    // The 1-second refresh that lets a routed control's reading expire on screen; it runs only
    // while a live control is routed in.
    bool refreshing() const { return m_timer.isActive(); }

    // The route saved for the current output.
    std::optional<PluginVolumeTarget> route() const;

    // "mac", or a control of the picker; saves the routes and takes effect at once.
    Q_INVOKABLE void select(const QString& id);
    // A change by one of our controls. True when a plugin handles it (or declined it as busy):
    // nothing else is to happen then, not even the feedback sound.
    bool perform(const PluginVolumeOperation& operation);
    // The wing's slider.
    Q_INVOKABLE void setVolume(double level) { perform(PluginVolumeOperation::setVolume(level)); }

signals:
    void changed();

private:
    struct Shown {
        float volume = 0;
        bool muted = false;
    };

    void sync();
    void syncRoute(const PluginVolumeTarget& target);
    void peekForRoute(const std::optional<PluginVolumeTarget>& target);
    bool performRouted(const PluginVolumeTarget& target, const PluginVolumeOperation& operation);
    void performOnHardware(const PluginVolumeOperation& operation);
    void finishRouted(const PluginVolumeTarget& target, const QString& output, SneakPeekType type,
                      const PluginVolumeRegistry::Outcome& outcome);
    Shown intended(const PluginVolumeOperation& operation) const;
    QVariantList listChoices(const std::optional<PluginVolumeTarget>& saved) const;
    void setStatus(const QString& status);

    HUDVolumeManager* m_hardware;
    PluginVolumeRegistry* m_registry;
    UserDefaults* m_defaults;
    HUDSettings* m_settings;
    SneakPeekCoordinator* m_peek;
    VolumeRoutes m_routes;
    QTimer m_timer;
    bool m_started = false;

    float m_volume = 0;
    bool m_isMuted = false;
    bool m_available = false;
    bool m_canMute = false;
    bool m_busy = false;
    bool m_showsMuted = false;
    QString m_status;
    QString m_targetName;
    QString m_selectionID;
    QString m_outputName;
    QVariantList m_choices;

    QString m_previousOutput;
    std::optional<PluginVolumeTarget> m_previousTarget;
    // What the routed control last read, to tell its own changes from ours.
    std::optional<Shown> m_previousEndpoint;
};

} // namespace vell
