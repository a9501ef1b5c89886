#include "OstaVell/Features/Timers/DesktopNotification.h"

#include "OstaVell/Features/Timers/TimersLogging.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QPointer>
#include <QStringList>
#include <QVariantMap>

namespace vell {

const QString DesktopNotification::service = QStringLiteral("org.freedesktop.Notifications");

namespace {

const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
// A service that is started on demand may take a moment; one that hangs gets this long.
constexpr int kReplyMilliseconds = 10000;

void whenAnswered(const QDBusMessage& message, QObject* context, std::function<void(bool)> done) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        qCInfo(lcTimers) << "no session bus for notifications";
        if (done && context)
            QMetaObject::invokeMethod(
                context, [done] { done(false); }, Qt::QueuedConnection);
        return;
    }
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(message, kReplyMilliseconds));
    QPointer<QObject> owner(context);
    const bool wanted = bool(done) && context;
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [watcher, owner, wanted, done = std::move(done)] {
                         watcher->deleteLater();
                         const bool answered = !watcher->isError();
                         if (!answered)
                             qCInfo(lcTimers).noquote()
                                 << "notification service did not answer: " + watcher->error().message();
                         if (wanted && owner)
                             done(answered);
                     });
}

} // namespace

void DesktopNotification::send(const QString& title, const QString& body, QObject* context,
                               std::function<void(bool)> done) {
    QDBusMessage message = QDBusMessage::createMethodCall(service, kPath, service, QStringLiteral("Notify"));
    message << QStringLiteral("OstaVell") << uint(0) << QStringLiteral("app.ostavell.OstaVell") << title
            << body << QStringList() << QVariantMap{{QStringLiteral("suppress-sound"), true}} << int(-1);
    whenAnswered(message, context, std::move(done));
}

void DesktopNotification::probe(QObject* context, std::function<void(bool)> done) {
    const QDBusMessage message =
        QDBusMessage::createMethodCall(service, kPath, service, QStringLiteral("GetServerInformation"));
    whenAnswered(message, context, std::move(done));
}

} // namespace vell
