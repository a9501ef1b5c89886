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

class QQmlEngine;
class QJSEngine;

namespace vell {

class UserDefaults;

// The typed view of the user defaults that the shell and the closed wings share. It keeps
// no copy: every read goes to the defaults, so a change made elsewhere is seen at once.
// `changed` fires after each of its writes and whenever the file changes beneath it.
class SettingsStore final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SettingsStore)

    Q_PROPERTY(QString modulePickerSide READ modulePickerSide WRITE setModulePickerSide NOTIFY changed)
    Q_PROPERTY(bool openOnHover READ openOnHover WRITE setOpenOnHover NOTIFY changed)
    Q_PROPERTY(double hoverDelay READ hoverDelay WRITE setHoverDelay NOTIFY changed)
    Q_PROPERTY(bool showOnAllDisplays READ showOnAllDisplays WRITE setShowOnAllDisplays NOTIFY changed)
    Q_PROPERTY(bool fakeNotchOnExternalDisplays READ fakeNotchOnExternalDisplays WRITE
                   setFakeNotchOnExternalDisplays NOTIFY changed)
    Q_PROPERTY(bool hapticFeedback READ hapticFeedback WRITE setHapticFeedback NOTIFY changed)
    Q_PROPERTY(double notchExtraWidth READ notchExtraWidth WRITE setNotchExtraWidth NOTIFY changed)
    Q_PROPERTY(double openCornerRadius READ openCornerRadius WRITE setOpenCornerRadius NOTIFY changed)
    Q_PROPERTY(bool showBorderGlow READ showBorderGlow WRITE setShowBorderGlow NOTIFY changed)
    Q_PROPERTY(QString backgroundStyle READ backgroundStyle WRITE setBackgroundStyle NOTIFY changed)
    Q_PROPERTY(QString gradientStartHex READ gradientStartHex WRITE setGradientStartHex NOTIFY changed)
    Q_PROPERTY(QString gradientEndHex READ gradientEndHex WRITE setGradientEndHex NOTIFY changed)
    Q_PROPERTY(QString accentHex READ accentHex WRITE setAccentHex NOTIFY changed)
    Q_PROPERTY(double openWidth READ openWidth WRITE setOpenWidth NOTIFY changed)
    Q_PROPERTY(double openHeight READ openHeight WRITE setOpenHeight NOTIFY changed)
    Q_PROPERTY(double backgroundOpacity READ backgroundOpacity WRITE setBackgroundOpacity NOTIFY changed)
    Q_PROPERTY(bool backgroundFades READ backgroundFades WRITE setBackgroundFades NOTIFY changed)
    Q_PROPERTY(double startOpacity READ startOpacity WRITE setStartOpacity NOTIFY changed)
    Q_PROPERTY(double endOpacity READ endOpacity WRITE setEndOpacity NOTIFY changed)
    Q_PROPERTY(QString gradientDirection READ gradientDirection WRITE setGradientDirection NOTIFY changed)
    Q_PROPERTY(QByteArray displayAppearanceData READ displayAppearanceData WRITE setDisplayAppearanceData
                   NOTIFY changed)
    Q_PROPERTY(QString visibleTabsCSV READ visibleTabsCSV WRITE setVisibleTabsCSV NOTIFY changed)
    Q_PROPERTY(QString defaultTabRaw READ defaultTabRaw WRITE setDefaultTabRaw NOTIFY changed)
    Q_PROPERTY(QString homeLayout READ homeLayout WRITE setHomeLayout NOTIFY changed)
    Q_PROPERTY(bool mediaLiveActivity READ mediaLiveActivity WRITE setMediaLiveActivity NOTIFY changed)
    Q_PROPERTY(bool timerLiveActivity READ timerLiveActivity WRITE setTimerLiveActivity NOTIFY changed)
    Q_PROPERTY(bool batteryLiveActivity READ batteryLiveActivity WRITE setBatteryLiveActivity NOTIFY changed)
    Q_PROPERTY(
        bool calendarLiveActivity READ calendarLiveActivity WRITE setCalendarLiveActivity NOTIFY changed)
    Q_PROPERTY(bool todosLiveActivity READ todosLiveActivity WRITE setTodosLiveActivity NOTIFY changed)
    Q_PROPERTY(bool replaceSystemHUD READ replaceSystemHUD WRITE setReplaceSystemHUD NOTIFY changed)
    Q_PROPERTY(bool launchAtLogin READ launchAtLogin WRITE setLaunchAtLogin NOTIFY changed)

public:
    static constexpr QLatin1StringView modulePickerSideKey{"modules.pickerSide"};
    static constexpr QLatin1StringView openOnHoverKey{"openOnHover"};
    static constexpr QLatin1StringView hoverDelayKey{"hoverDelay"};
    static constexpr QLatin1StringView showOnAllDisplaysKey{"showOnAllDisplays"};
    static constexpr QLatin1StringView fakeNotchOnExternalDisplaysKey{"fakeNotchOnExternalDisplays"};
    static constexpr QLatin1StringView hapticFeedbackKey{"hapticFeedback"};
    static constexpr QLatin1StringView notchExtraWidthKey{"notchExtraWidth"};
    static constexpr QLatin1StringView openCornerRadiusKey{"openCornerRadius"};
    static constexpr QLatin1StringView showBorderGlowKey{"showBorderGlow"};
    static constexpr QLatin1StringView backgroundStyleKey{"appearance.backgroundStyle"};
    static constexpr QLatin1StringView gradientStartHexKey{"appearance.gradientStartHex"};
    static constexpr QLatin1StringView gradientEndHexKey{"appearance.gradientEndHex"};
    static constexpr QLatin1StringView accentHexKey{"appearance.accentHex"};
    static constexpr QLatin1StringView openWidthKey{"appearance.openWidth"};
    static constexpr QLatin1StringView openHeightKey{"appearance.openHeight"};
    static constexpr QLatin1StringView backgroundOpacityKey{"appearance.opacity"};
    static constexpr QLatin1StringView backgroundFadesKey{"appearance.fades"};
    static constexpr QLatin1StringView startOpacityKey{"appearance.startOpacity"};
    static constexpr QLatin1StringView endOpacityKey{"appearance.endOpacity"};
    static constexpr QLatin1StringView gradientDirectionKey{"appearance.direction"};
    static constexpr QLatin1StringView displayAppearanceDataKey{"appearance.displays.v1"};
    static constexpr QLatin1StringView visibleTabsCSVKey{"layout.visibleTabs"};
    static constexpr QLatin1StringView defaultTabRawKey{"layout.defaultTab"};
    static constexpr QLatin1StringView homeLayoutKey{"layout.homeLayout"};
    static constexpr QLatin1StringView mediaLiveActivityKey{"mediaLiveActivity"};
    static constexpr QLatin1StringView timerLiveActivityKey{"timerLiveActivity"};
    static constexpr QLatin1StringView batteryLiveActivityKey{"batteryLiveActivity"};
    static constexpr QLatin1StringView calendarLiveActivityKey{"calendarLiveActivity"};
    static constexpr QLatin1StringView todosLiveActivityKey{"todosLiveActivity"};
    static constexpr QLatin1StringView replaceSystemHUDKey{"replaceSystemHUD"};

    static constexpr QLatin1StringView sharedTarget{"shared"};

    static SettingsStore* instance();
    // The QML singleton's factory: the shared instance, owned by C++.
    static SettingsStore* create(QQmlEngine*, QJSEngine*);

    explicit SettingsStore(UserDefaults* defaults, QObject* parent = nullptr);

    QString modulePickerSide() const;
    void setModulePickerSide(const QString& value);
    bool openOnHover() const;
    void setOpenOnHover(bool value);
    double hoverDelay() const;
    void setHoverDelay(double value);
    bool showOnAllDisplays() const;
    void setShowOnAllDisplays(bool value);
    bool fakeNotchOnExternalDisplays() const;
    void setFakeNotchOnExternalDisplays(bool value);
    bool hapticFeedback() const;
    void setHapticFeedback(bool value);
    double notchExtraWidth() const;
    void setNotchExtraWidth(double value);
    double openCornerRadius() const;
    void setOpenCornerRadius(double value);
    bool showBorderGlow() const;
    void setShowBorderGlow(bool value);
    QString backgroundStyle() const;
    void setBackgroundStyle(const QString& value);
    QString gradientStartHex() const;
    void setGradientStartHex(const QString& value);
    QString gradientEndHex() const;
    void setGradientEndHex(const QString& value);
    QString accentHex() const;
    void setAccentHex(const QString& value);
    double openWidth() const;
    void setOpenWidth(double value);
    double openHeight() const;
    void setOpenHeight(double value);
    double backgroundOpacity() const;
    void setBackgroundOpacity(double value);
    bool backgroundFades() const;
    void setBackgroundFades(bool value);
    double startOpacity() const;
    void setStartOpacity(double value);
    double endOpacity() const;
    void setEndOpacity(double value);
    QString gradientDirection() const;
    void setGradientDirection(const QString& value);
    QByteArray displayAppearanceData() const;
    void setDisplayAppearanceData(const QByteArray& value);
    QString visibleTabsCSV() const;
    void setVisibleTabsCSV(const QString& value);
    QString defaultTabRaw() const;
    void setDefaultTabRaw(const QString& value);
    QString homeLayout() const;
    void setHomeLayout(const QString& value);
    bool mediaLiveActivity() const;
    void setMediaLiveActivity(bool value);
    bool timerLiveActivity() const;
    void setTimerLiveActivity(bool value);
    bool batteryLiveActivity() const;
    void setBatteryLiveActivity(bool value);
    bool calendarLiveActivity() const;
    void setCalendarLiveActivity(bool value);
    bool todosLiveActivity() const;
    void setTodosLiveActivity(bool value);
    bool replaceSystemHUD() const;
    void setReplaceSystemHUD(bool value);

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
    void changed();

private:
    void writeDisplayAppearances(const DisplayAppearance::Map& map);

    UserDefaults* m_defaults;
    LaunchAtLogin m_launchAtLogin;
};

} // namespace vell
