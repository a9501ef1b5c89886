#include "OstaVell/Support/SettingsStore.h"

#include "OstaVell/Support/UserDefaults.h"

#include <QHash>
#include <QJSEngine>

namespace vell {

namespace {

template <typename T> T readSetting(const UserDefaults& defaults, const QString& key, const T& fallback);

template <> bool readSetting(const UserDefaults& defaults, const QString& key, const bool& fallback) {
    return defaults.boolValue(key, fallback);
}

template <> double readSetting(const UserDefaults& defaults, const QString& key, const double& fallback) {
    return defaults.doubleValue(key, fallback);
}

template <> QString readSetting(const UserDefaults& defaults, const QString& key, const QString& fallback) {
    return defaults.stringValue(key, fallback);
}

template <>
QByteArray readSetting(const UserDefaults& defaults, const QString& key, const QByteArray& fallback) {
    const QByteArray data = defaults.dataValue(key);
    return data.isNull() ? fallback : data;
}

using ChangeSignal = void (SettingsStore::*)();

// Each key of the store to its property's signal.
const QHash<QString, ChangeSignal>& changeSignals() {
#define VELL_SETTING_SIGNAL_ENTRY(Type, name, setter, key, fallback)                                         \
    {SettingsStore::name##Key, &SettingsStore::name##Changed},
    static const QHash<QString, ChangeSignal> signalsByKey{VELL_SETTINGS_KEYS(VELL_SETTING_SIGNAL_ENTRY)};
#undef VELL_SETTING_SIGNAL_ENTRY
    return signalsByKey;
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
        if (key.isEmpty()) {
            for (const ChangeSignal signal : changeSignals())
                emit(this->*signal)();
        } else if (const auto signal = changeSignals().constFind(key); signal != changeSignals().cend()) {
            emit(this->*signal.value())();
        } else {
            return;
        }
        emit changed();
    });
}

#define VELL_SETTING_DEFINITIONS(Type, name, setter, key, fallback)                                          \
    Type SettingsStore::name() const {                                                                       \
        return readSetting<Type>(*m_defaults, name##Key, fallback);                                          \
    }                                                                                                        \
    void SettingsStore::setter(const Type& value) {                                                          \
        m_defaults->setValue(name##Key, QVariant::fromValue(value));                                         \
    }
VELL_SETTINGS_KEYS(VELL_SETTING_DEFINITIONS)
#undef VELL_SETTING_DEFINITIONS

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
