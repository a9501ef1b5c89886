#pragma once

#include "OstaVell/Support/DisplayAppearance.h"
#include "OstaVell/Support/LaunchAtLogin.h"
#include "OstaVell/Support/VellAppearance.h"

#include <QByteArray>
#include <QLatin1StringView>
#include <QObject>
#include <QString>
#include <QVariantList>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

class QQmlEngine;
class QJSEngine;

// The shell's keys, one row a key: type, property, setter, key and default. Each row becomes a
// property with its own change signal and a constant <property>Key with the key's name.
// clang-format off
#define VELL_SETTINGS_KEYS(X) \
    X(QString, modulePickerSide, setModulePickerSide, "modules.pickerSide", QStringLiteral("left")) \
    X(bool, openOnHover, setOpenOnHover, "openOnHover", true) \
    X(double, hoverDelay, setHoverDelay, "hoverDelay", 0.1) \
    X(bool, showOnAllDisplays, setShowOnAllDisplays, "showOnAllDisplays", true) \
    X(bool, fakeNotchOnExternalDisplays, setFakeNotchOnExternalDisplays, "fakeNotchOnExternalDisplays", true) \
    X(bool, hapticFeedback, setHapticFeedback, "hapticFeedback", true) \
    X(double, notchExtraWidth, setNotchExtraWidth, "notchExtraWidth", 0.0) \
    X(double, openCornerRadius, setOpenCornerRadius, "openCornerRadius", 24.0) \
    X(bool, showBorderGlow, setShowBorderGlow, "showBorderGlow", false) \
    X(QString, backgroundStyle, setBackgroundStyle, "appearance.backgroundStyle", QStringLiteral("black")) \
    X(QString, gradientStartHex, setGradientStartHex, "appearance.gradientStartHex", QStringLiteral("#101018")) \
    X(QString, gradientEndHex, setGradientEndHex, "appearance.gradientEndHex", QStringLiteral("#000000")) \
    X(QString, accentHex, setAccentHex, "appearance.accentHex", QStringLiteral("#C7EB87")) \
    X(double, openWidth, setOpenWidth, "appearance.openWidth", 760.0) \
    X(double, openHeight, setOpenHeight, "appearance.openHeight", 400.0) \
    X(double, backgroundOpacity, setBackgroundOpacity, "appearance.opacity", 1.0) \
    X(bool, backgroundFades, setBackgroundFades, "appearance.fades", false) \
    X(double, startOpacity, setStartOpacity, "appearance.startOpacity", 1.0) \
    X(double, endOpacity, setEndOpacity, "appearance.endOpacity", 0.0) \
    X(QString, gradientDirection, setGradientDirection, "appearance.direction", QStringLiteral("vertical")) \
    X(QByteArray, displayAppearanceData, setDisplayAppearanceData, "appearance.displays.v1", QByteArray()) \
    X(QString, visibleTabsCSV, setVisibleTabsCSV, "layout.visibleTabs", QStringLiteral("Vell,Tray,Automations,Modules")) \
    X(QString, defaultTabRaw, setDefaultTabRaw, "layout.defaultTab", QStringLiteral("Vell")) \
    X(QString, homeLayout, setHomeLayout, "layout.homeLayout", QStringLiteral("mediaCalendar")) \
    X(bool, mediaLiveActivity, setMediaLiveActivity, "mediaLiveActivity", true) \
    X(bool, timerLiveActivity, setTimerLiveActivity, "timerLiveActivity", true) \
    X(bool, batteryLiveActivity, setBatteryLiveActivity, "batteryLiveActivity", true) \
    X(bool, calendarLiveActivity, setCalendarLiveActivity, "calendarLiveActivity", true) \
    X(bool, todosLiveActivity, setTodosLiveActivity, "todosLiveActivity", true) \
    X(bool, replaceSystemHUD, setReplaceSystemHUD, "replaceSystemHUD", false)
// clang-format on

#define VELL_SETTING_PROPERTY(Type, name, setter, key, fallback)                                             \
    Q_PROPERTY(Type name READ name WRITE setter NOTIFY name##Changed)
#define VELL_SETTING_KEY(Type, name, setter, key, fallback) static constexpr QLatin1StringView name##Key{key};
#define VELL_SETTING_ACCESSORS(Type, name, setter, key, fallback)                                            \
    Type name() const;                                                                                       \
    void setter(const Type& value);
#define VELL_SETTING_SIGNAL(Type, name, setter, key, fallback) void name##Changed();

namespace vell {

class UserDefaults;

// The typed view of the user defaults that the shell and the closed wings share. It keeps
// no copy: every read goes to the defaults, so a change made elsewhere is seen at once. Each
// property's signal fires after its key was written, here or by another process.
class SettingsStore final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_DISABLE_COPY_MOVE(SettingsStore)

    VELL_SETTINGS_KEYS(VELL_SETTING_PROPERTY)
    Q_PROPERTY(bool launchAtLogin READ launchAtLogin WRITE setLaunchAtLogin NOTIFY changed)

public:
    VELL_SETTINGS_KEYS(VELL_SETTING_KEY)

    static constexpr QLatin1StringView sharedTarget{"shared"};

    static SettingsStore* instance();
    // The QML singleton's factory: the shared instance, owned by C++.
    static SettingsStore* create(QQmlEngine*, QJSEngine*);

    explicit SettingsStore(UserDefaults* defaults, QObject* parent = nullptr);

    VELL_SETTINGS_KEYS(VELL_SETTING_ACCESSORS)

    // Over the XDG autostart entry rather than a key: the desktop starts what that file names.
    bool launchAtLogin() const;
    void setLaunchAtLogin(bool enabled);

    VellAppearance sharedAppearance() const;
    void setSharedAppearance(const VellAppearance& appearance);
    // The display's own appearance when it has one, else the shared one; both normalized.
    VellAppearance appearance(const QString& displayID) const;
    void setAppearance(const QString& displayID, const QString& name, const VellAppearance& appearance);
    void useSharedAppearance(const QString& displayID);
    // The stored per-display map; empty when it can't be read.
    DisplayAppearance::Map displayAppearances() const;

    // For the appearance pane. A target is "shared" or a display appearance id.
    Q_INVOKABLE QVariantMap appearanceMap(const QString& target) const;
    Q_INVOKABLE bool hasOwnAppearance(const QString& displayID) const;
    Q_INVOKABLE void setAppearanceValue(const QString& target, const QString& displayName,
                                        const QString& field, const QVariant& value);
    Q_INVOKABLE void setUsesSharedAppearance(const QString& displayID, const QString& displayName,
                                             bool useShared);
    // [{id, name}] for each stored display, in the map's order.
    Q_INVOKABLE QVariantList savedDisplays() const;

signals:
    // After any of the keys above or launch at login changed, besides its own signal.
    void changed();
    VELL_SETTINGS_KEYS(VELL_SETTING_SIGNAL)

private:
    void writeDisplayAppearances(const DisplayAppearance::Map& map);

    UserDefaults* m_defaults;
    LaunchAtLogin m_launchAtLogin;
};

} // namespace vell
