#include "OstaVell/Features/Timers/DesktopNotification.h"

#include "OstaVell/Features/Timers/TimersLogging.h"
#include "VellHost/DesktopNotify.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QPointer>

namespace vell {

const QString DesktopNotification::service = desktopNotifyService;

namespace {

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
    whenAnswered(desktopNotifyCall(title, body), context, std::move(done));
}

void DesktopNotification::probe(QObject* context, std::function<void(bool)> done) {
    const QDBusMessage message = QDBusMessage::createMethodCall(service, desktopNotifyPath, service,
                                                                QStringLiteral("GetServerInformation"));
    whenAnswered(message, context, std::move(done));
}

} // namespace vell
