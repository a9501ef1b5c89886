#include "OstaVell/AppBusService.h"

#include "OstaVell/ShelfController.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QTimer>

namespace vell {

AppBusService::AppBusService(ShelfController* shelf, QObject* parent)
    : QObject(parent)
    , m_shelf(shelf) {}

bool AppBusService::claim() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return true; // no session bus: nothing to share, so nothing to collide with
    bus.registerObject(QString::fromLatin1(objectPath), this, QDBusConnection::ExportScriptableSlots);
    const auto reply = bus.interface()->registerService(QString::fromLatin1(serviceName),
                                                        QDBusConnectionInterface::DontQueueService,
                                                        QDBusConnectionInterface::DontAllowReplacement);
    if (reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered)
        return true;
    bus.unregisterObject(QString::fromLatin1(objectPath));
    return false;
}

bool AppBusService::forward(const QString& method, QString* error) {
    QDBusMessage call =
        QDBusMessage::createMethodCall(QString::fromLatin1(serviceName), QString::fromLatin1(objectPath),
                                       QString::fromLatin1(serviceName), method);
    call.setAutoStartService(false);
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 5000);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        if (error)
            *error = reply.errorMessage();
        return false;
    }
    return true;
}

void AppBusService::Open() {
    m_shelf->openAtPointer({}, true);
}

void AppBusService::OpenAll() {
    m_shelf->openAll();
}

void AppBusService::Collapse() {
    m_shelf->collapse();
}

void AppBusService::Toggle() {
    m_shelf->toggle();
}

void AppBusService::Quit() {
    // Answer the caller first; the shutdown runs on the next turn of the loop.
    QTimer::singleShot(0, qApp, &QCoreApplication::quit);
}

} // namespace vell
