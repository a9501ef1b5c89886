#include "OstaVell/Support/SettingsStore.h"

#include "OstaVell/Support/UserDefaults.h"

#include <QJSEngine>
#include <QSet>

namespace vell {

namespace {

const QSet<QString>& storeKeys() {
    static const QSet<QString> keys{SettingsStore::modulePickerSideKey,
                                    SettingsStore::openOnHoverKey,
                                    SettingsStore::hoverDelayKey,
                                    SettingsStore::showOnAllDisplaysKey,
                                    SettingsStore::fakeNotchOnExternalDisplaysKey,
                                    SettingsStore::hapticFeedbackKey,
                                    SettingsStore::notchExtraWidthKey,
                                    SettingsStore::openCornerRadiusKey,
                                    SettingsStore::showBorderGlowKey,
                                    SettingsStore::backgroundStyleKey,
                                    SettingsStore::gradientStartHexKey,
                                    SettingsStore::gradientEndHexKey,
                                    SettingsStore::accentHexKey,
                                    SettingsStore::openWidthKey,
                                    SettingsStore::openHeightKey,
                                    SettingsStore::backgroundOpacityKey,
                                    SettingsStore::backgroundFadesKey,
                                    SettingsStore::startOpacityKey,
                                    SettingsStore::endOpacityKey,
                                    SettingsStore::gradientDirectionKey,
                                    SettingsStore::displayAppearanceDataKey,
                                    SettingsStore::visibleTabsCSVKey,
                                    SettingsStore::defaultTabRawKey,
                                    SettingsStore::homeLayoutKey,
                                    SettingsStore::mediaLiveActivityKey,
                                    SettingsStore::timerLiveActivityKey,
                                    SettingsStore::batteryLiveActivityKey,
                                    SettingsStore::calendarLiveActivityKey,
                                    SettingsStore::todosLiveActivityKey,
                                    SettingsStore::replaceSystemHUDKey};
    return keys;
}

} // namespace

SettingsStore* SettingsStore::instance() {
    static SettingsStore* p = new SettingsStore(UserDefaults::instance());
    return p;
}

SettingsStore* SettingsStore::create(QQmlEngine*, QJSEngine*) {
    SettingsStore* store = instance();
    QJSEngine::setObjectOwnership(store, QJSEngine::CppOwnership);
    return store;
}

SettingsStore::SettingsStore(UserDefaults* defaults, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_launchAtLogin(LaunchAtLogin::defaultEntryPath(), LaunchAtLogin::currentExecutable()) {
    // Keys that belong to single tools don't concern the shell; an empty key is a change
    // from another process, which may have touched anything.
    connect(m_defaults, &UserDefaults::changed, this, [this](const QString& key) {
        if (key.isEmpty() || storeKeys().contains(key))
            emit changed();
    });
}

QString SettingsStore::modulePickerSide() const {
    return m_defaults->stringValue(modulePickerSideKey, QStringLiteral("left"));
}

void SettingsStore::setModulePickerSide(const QString& value) {
    m_defaults->setValue(modulePickerSideKey, value);
}

bool SettingsStore::openOnHover() const {
    return m_defaults->boolValue(openOnHoverKey, true);
}

void SettingsStore::setOpenOnHover(bool value) {
    m_defaults->setValue(openOnHoverKey, value);
}

double SettingsStore::hoverDelay() const {
    return m_defaults->doubleValue(hoverDelayKey, 0.1);
}

void SettingsStore::setHoverDelay(double value) {
    m_defaults->setValue(hoverDelayKey, value);
}

bool SettingsStore::showOnAllDisplays() const {
    return m_defaults->boolValue(showOnAllDisplaysKey, true);
}

void SettingsStore::setShowOnAllDisplays(bool value) {
    m_defaults->setValue(showOnAllDisplaysKey, value);
}

bool SettingsStore::fakeNotchOnExternalDisplays() const {
    return m_defaults->boolValue(fakeNotchOnExternalDisplaysKey, true);
}

void SettingsStore::setFakeNotchOnExternalDisplays(bool value) {
    m_defaults->setValue(fakeNotchOnExternalDisplaysKey, value);
}

bool SettingsStore::hapticFeedback() const {
    return m_defaults->boolValue(hapticFeedbackKey, true);
}

void SettingsStore::setHapticFeedback(bool value) {
    m_defaults->setValue(hapticFeedbackKey, value);
}

double SettingsStore::notchExtraWidth() const {
    return m_defaults->doubleValue(notchExtraWidthKey, 0);
}

void SettingsStore::setNotchExtraWidth(double value) {
    m_defaults->setValue(notchExtraWidthKey, value);
}

double SettingsStore::openCornerRadius() const {
    return m_defaults->doubleValue(openCornerRadiusKey, 24);
}

void SettingsStore::setOpenCornerRadius(double value) {
    m_defaults->setValue(openCornerRadiusKey, value);
}

bool SettingsStore::showBorderGlow() const {
    return m_defaults->boolValue(showBorderGlowKey, false);
}

void SettingsStore::setShowBorderGlow(bool value) {
    m_defaults->setValue(showBorderGlowKey, value);
}

QString SettingsStore::backgroundStyle() const {
    return m_defaults->stringValue(backgroundStyleKey, QStringLiteral("black"));
}

void SettingsStore::setBackgroundStyle(const QString& value) {
    m_defaults->setValue(backgroundStyleKey, value);
}

QString SettingsStore::gradientStartHex() const {
    return m_defaults->stringValue(gradientStartHexKey, QStringLiteral("#101018"));
}

void SettingsStore::setGradientStartHex(const QString& value) {
    m_defaults->setValue(gradientStartHexKey, value);
}

QString SettingsStore::gradientEndHex() const {
    return m_defaults->stringValue(gradientEndHexKey, QStringLiteral("#000000"));
}

void SettingsStore::setGradientEndHex(const QString& value) {
    m_defaults->setValue(gradientEndHexKey, value);
}

QString SettingsStore::accentHex() const {
    return m_defaults->stringValue(accentHexKey, QStringLiteral("#C7EB87"));
}

void SettingsStore::setAccentHex(const QString& value) {
    m_defaults->setValue(accentHexKey, value);
}

double SettingsStore::openWidth() const {
    return m_defaults->doubleValue(openWidthKey, 760);
}

void SettingsStore::setOpenWidth(double value) {
    m_defaults->setValue(openWidthKey, value);
}

double SettingsStore::openHeight() const {
    return m_defaults->doubleValue(openHeightKey, 400);
}

void SettingsStore::setOpenHeight(double value) {
    m_defaults->setValue(openHeightKey, value);
}

double SettingsStore::backgroundOpacity() const {
    return m_defaults->doubleValue(backgroundOpacityKey, 1);
}

void SettingsStore::setBackgroundOpacity(double value) {
    m_defaults->setValue(backgroundOpacityKey, value);
}

bool SettingsStore::backgroundFades() const {
    return m_defaults->boolValue(backgroundFadesKey, false);
}

void SettingsStore::setBackgroundFades(bool value) {
    m_defaults->setValue(backgroundFadesKey, value);
}

double SettingsStore::startOpacity() const {
    return m_defaults->doubleValue(startOpacityKey, 1);
}

void SettingsStore::setStartOpacity(double value) {
    m_defaults->setValue(startOpacityKey, value);
}

double SettingsStore::endOpacity() const {
    return m_defaults->doubleValue(endOpacityKey, 0);
}

void SettingsStore::setEndOpacity(double value) {
    m_defaults->setValue(endOpacityKey, value);
}

QString SettingsStore::gradientDirection() const {
    return m_defaults->stringValue(gradientDirectionKey, QStringLiteral("vertical"));
}

void SettingsStore::setGradientDirection(const QString& value) {
    m_defaults->setValue(gradientDirectionKey, value);
}

QByteArray SettingsStore::displayAppearanceData() const {
    return m_defaults->dataValue(displayAppearanceDataKey);
}

void SettingsStore::setDisplayAppearanceData(const QByteArray& value) {
    m_defaults->setValue(displayAppearanceDataKey, value);
}

QString SettingsStore::visibleTabsCSV() const {
    return m_defaults->stringValue(visibleTabsCSVKey, QStringLiteral("Vell,Tray,Automations,Modules"));
}

void SettingsStore::setVisibleTabsCSV(const QString& value) {
    m_defaults->setValue(visibleTabsCSVKey, value);
}

QString SettingsStore::defaultTabRaw() const {
    return m_defaults->stringValue(defaultTabRawKey, QStringLiteral("Vell"));
}

void SettingsStore::setDefaultTabRaw(const QString& value) {
    m_defaults->setValue(defaultTabRawKey, value);
}

QString SettingsStore::homeLayout() const {
    return m_defaults->stringValue(homeLayoutKey, QStringLiteral("mediaCalendar"));
}

void SettingsStore::setHomeLayout(const QString& value) {
    m_defaults->setValue(homeLayoutKey, value);
}

bool SettingsStore::mediaLiveActivity() const {
    return m_defaults->boolValue(mediaLiveActivityKey, true);
}

void SettingsStore::setMediaLiveActivity(bool value) {
    m_defaults->setValue(mediaLiveActivityKey, value);
}

bool SettingsStore::timerLiveActivity() const {
    return m_defaults->boolValue(timerLiveActivityKey, true);
}

void SettingsStore::setTimerLiveActivity(bool value) {
    m_defaults->setValue(timerLiveActivityKey, value);
}

bool SettingsStore::batteryLiveActivity() const {
    return m_defaults->boolValue(batteryLiveActivityKey, true);
}

void SettingsStore::setBatteryLiveActivity(bool value) {
    m_defaults->setValue(batteryLiveActivityKey, value);
}

bool SettingsStore::calendarLiveActivity() const {
    return m_defaults->boolValue(calendarLiveActivityKey, true);
}

void SettingsStore::setCalendarLiveActivity(bool value) {
    m_defaults->setValue(calendarLiveActivityKey, value);
}

bool SettingsStore::todosLiveActivity() const {
    return m_defaults->boolValue(todosLiveActivityKey, true);
}

void SettingsStore::setTodosLiveActivity(bool value) {
    m_defaults->setValue(todosLiveActivityKey, value);
}

bool SettingsStore::replaceSystemHUD() const {
    return m_defaults->boolValue(replaceSystemHUDKey, false);
}

void SettingsStore::setReplaceSystemHUD(bool value) {
    m_defaults->setValue(replaceSystemHUDKey, value);
}

bool SettingsStore::launchAtLogin() const {
    return m_launchAtLogin.isEnabled();
}

void SettingsStore::setLaunchAtLogin(bool enabled) {
    if (const std::optional<QString> error = m_launchAtLogin.setEnabled(enabled))
        qCWarning(lcSettings, "launch-at-login toggle failed: %s", qUtf8Printable(*error));
    emit changed();
}

VellAppearance SettingsStore::sharedAppearance() const {
    VellAppearance appearance;
    appearance.backgroundStyle = backgroundStyle();
    appearance.startHex = gradientStartHex();
    appearance.endHex = gradientEndHex();
    appearance.accentHex = accentHex();
    appearance.opacity = backgroundOpacity();
    appearance.fades = backgroundFades();
    appearance.startOpacity = startOpacity();
    appearance.endOpacity = endOpacity();
    appearance.direction = gradientDirection();
    appearance.borderGlow = showBorderGlow();
    appearance.width = openWidth();
    appearance.height = openHeight();
    appearance.cornerRadius = openCornerRadius();
    return appearance.normalized();
}

void SettingsStore::setSharedAppearance(const VellAppearance& appearance) {
    const VellAppearance value = appearance.normalized();
    setBackgroundStyle(value.backgroundStyle);
    setGradientStartHex(value.startHex);
    setGradientEndHex(value.endHex);
    setAccentHex(value.accentHex);
    setBackgroundOpacity(value.opacity);
    setBackgroundFades(value.fades);
    setStartOpacity(value.startOpacity);
    setEndOpacity(value.endOpacity);
    setGradientDirection(value.direction);
    setShowBorderGlow(value.borderGlow);
    setOpenWidth(value.width);
    setOpenHeight(value.height);
    setOpenCornerRadius(value.cornerRadius);
}

VellAppearance SettingsStore::appearance(const QString& displayID) const {
    const DisplayAppearance::Map map = displayAppearances();
    const auto found = map.constFind(displayID);
    if (found == map.cend())
        return sharedAppearance();
    return found->appearance.normalized();
}

void SettingsStore::setAppearance(const QString& displayID, const QString& name,
                                  const VellAppearance& appearance) {
    DisplayAppearance::Map map = displayAppearances();
    map.insert(displayID, DisplayAppearance{name, appearance.normalized()});
    writeDisplayAppearances(map);
}

void SettingsStore::useSharedAppearance(const QString& displayID) {
    DisplayAppearance::Map map = displayAppearances();
    map.remove(displayID);
    writeDisplayAppearances(map);
}

DisplayAppearance::Map SettingsStore::displayAppearances() const {
    return DisplayAppearance::decodeMap(displayAppearanceData()).value_or(DisplayAppearance::Map());
}

void SettingsStore::writeDisplayAppearances(const DisplayAppearance::Map& map) {
    const std::optional<QByteArray> json = DisplayAppearance::encodeMap(map);
    if (!json)
        return;
    setDisplayAppearanceData(*json);
}

QVariantMap SettingsStore::appearanceMap(const QString& target) const {
    return (target == sharedTarget ? sharedAppearance() : appearance(target)).toVariantMap();
}

bool SettingsStore::hasOwnAppearance(const QString& displayID) const {
    return displayAppearances().contains(displayID);
}

void SettingsStore::setAppearanceValue(const QString& target, const QString& displayName,
                                       const QString& field, const QVariant& value) {
    const bool shared = target == sharedTarget;
    QVariantMap fields = (shared ? sharedAppearance() : appearance(target)).toVariantMap();
    if (!fields.contains(field)) {
        qCWarning(lcSettings, "no appearance field named %s", qUtf8Printable(field));
        return;
    }
    fields.insert(field, value);
    const VellAppearance changedAppearance = VellAppearance::fromVariantMap(fields);
    if (shared)
        setSharedAppearance(changedAppearance);
    else
        setAppearance(target, displayName, changedAppearance);
}

void SettingsStore::setUsesSharedAppearance(const QString& displayID, const QString& displayName,
                                            bool useShared) {
    if (useShared)
        useSharedAppearance(displayID);
    else
        setAppearance(displayID, displayName, sharedAppearance());
}

QVariantList SettingsStore::savedDisplays() const {
    QVariantList displays;
    const DisplayAppearance::Map map = displayAppearances();
    for (auto entry = map.cbegin(); entry != map.cend(); ++entry)
        displays.append(
            QVariantMap{{QStringLiteral("id"), entry.key()}, {QStringLiteral("name"), entry->name}});
    return displays;
}

} // namespace vell
