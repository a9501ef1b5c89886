#include "DBusEcho.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>

#include <cstdio>

namespace vell {

int DBusEcho::serve(const QString& address) {
    DBusEcho echo;
    QDBusConnection bus = QDBusConnection::connectToBus(address, QStringLiteral("echo-server"));
    if (!bus.isConnected() ||
        !bus.registerObject(objectPath.toString(), &echo, QDBusConnection::ExportAllSlots) ||
        !bus.registerService(service.toString())) {
        std::fprintf(stderr, "D-Bus echo server: %s\n", qPrintable(bus.lastError().message()));
        return 1;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    return QCoreApplication::exec();
}

} // namespace vell
