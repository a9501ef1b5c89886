// ostavell-notify TITLE BODY: shows one banner through the desktop's notification service
// (org.freedesktop.Notifications on the session bus) and exits 0 once the service took it, 1 when
// no service answered, 2 for a wrong command line. The systemd user manager runs it at a timer's
// end date, so it must do its work without the app.

#include "VellHost/DesktopNotify.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QStringList>

#include <cstdio>

namespace {

constexpr int usageStatus = 2;
constexpr int notDeliveredStatus = 1;
// A service started on demand may take a moment; one that hangs is given up.
constexpr int replyMilliseconds = 20000;

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 3) {
        std::fputs("usage: ostavell-notify TITLE BODY\n", stderr);
        return usageStatus;
    }
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        std::fputs("ostavell-notify: no session bus\n", stderr);
        return notDeliveredStatus;
    }
    const QDBusMessage reply =
        bus.call(vell::desktopNotifyCall(arguments.at(1), arguments.at(2)), QDBus::Block, replyMilliseconds);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        std::fprintf(stderr, "ostavell-notify: %s\n", qUtf8Printable(reply.errorMessage()));
        return notDeliveredStatus;
    }
    return 0;
}
