#include "OstaVell/Support/Accessibility.h"

#include "OstaVell/Support/UserDefaults.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QJSEngine>

namespace vell {

namespace {
const QString kPortalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPortalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kPortalSettings = QStringLiteral("org.freedesktop.portal.Settings");
const QString kInterfaceGroup = QStringLiteral("org.gnome.desktop.interface");
const QString kAnimationsKey = QStringLiteral("enable-animations");
const QString kReduceMotionKey = QStringLiteral("accessibility.reduceMotion");
const QString kReduceTransparencyKey = QStringLiteral("accessibility.reduceTransparency");

// The portal wraps values in one or two variants depending on its version.
QVariant unwrap(QVariant value) {
    while (value.canConvert<QDBusVariant>() && value.userType() == qMetaTypeId<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    return value;
}
} // namespace

Accessibility* Accessibility::instance() {
    static Accessibility* p = new Accessibility(UserDefaults::instance());
    return p;
}

Accessibility* Accessibility::create(QQmlEngine*, QJSEngine*) {
    Accessibility* shared = instance();
    QJSEngine::setObjectOwnership(shared, QJSEngine::CppOwnership);
    return shared;
}

Accessibility::Accessibility(UserDefaults* defaults, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults) {
    connect(m_defaults, &UserDefaults::changed, this, [this](const QString& key) {
        if (key.isEmpty() || key == kReduceMotionKey || key == kReduceTransparencyKey)
            emit changed();
    });
}

bool Accessibility::reduceMotion() const {
    if (m_defaults->contains(kReduceMotionKey))
        return m_defaults->boolValue(kReduceMotionKey, false);
    return m_desktopReducesMotion;
}

bool Accessibility::reduceTransparency() const {
    return m_defaults->boolValue(kReduceTransparencyKey, false);
}

void Accessibility::startWatchingDesktop() {
    if (m_watching)
        return;
    m_watching = true;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    bus.connect(kPortalService, kPortalPath, kPortalSettings, QStringLiteral("SettingChanged"), this,
                SLOT(onPortalSettingChanged(QDBusMessage)));
    QDBusMessage call =
        QDBusMessage::createMethodCall(kPortalService, kPortalPath, kPortalSettings, QStringLiteral("Read"));
    call << kInterfaceGroup << kAnimationsKey;
    // Never start a portal just to ask it: a session without one simply has no preference.
    call.setAutoStartService(false);
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, &Accessibility::onPortalReply);
}

void Accessibility::onPortalReply(QDBusPendingCallWatcher* watcher) {
    watcher->deleteLater();
    QDBusPendingReply<QDBusVariant> reply = *watcher;
    if (!reply.isError())
        setDesktopAnimations(unwrap(reply.value().variant()).toBool());
}

void Accessibility::onPortalSettingChanged(const QDBusMessage& message) {
    const QVariantList arguments = message.arguments();
    if (arguments.size() == 3 && arguments.at(0).toString() == kInterfaceGroup &&
        arguments.at(1).toString() == kAnimationsKey)
        setDesktopAnimations(unwrap(arguments.at(2)).toBool());
}

void Accessibility::setDesktopAnimations(bool enabled) {
    if (m_desktopReducesMotion == !enabled)
        return;
    m_desktopReducesMotion = !enabled;
    emit changed();
}

} // namespace vell
