#include "OstaVell/OstaVellApp.h"

#include "OstaVell/AppBusService.h"
#include "OstaVell/AppDelegate.h"
#include "OstaVell/ShelfController.h"
#include "OstaVell/Support/Logging.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace vell {

OstaVellApp::OstaVellApp()
    : m_delegate(new AppDelegate(this)) {}

OstaVellApp::~OstaVellApp() = default;

int OstaVellApp::launch(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("A desktop companion around a drawn notch."));
    parser.addHelpOption();
    const QCommandLineOption open(QStringLiteral("open"), QStringLiteral("Open the vell under the pointer."));
    const QCommandLineOption toggle(
        QStringLiteral("toggle"),
        QStringLiteral("Open the vell under the pointer, or close every open vell."));
    const QCommandLineOption quit(QStringLiteral("quit"), QStringLiteral("Quit the running OstaVell."));
    parser.addOptions({open, toggle, quit});
    parser.process(arguments);

    QString method;
    if (parser.isSet(quit))
        method = QStringLiteral("Quit");
    else if (parser.isSet(toggle))
        method = QStringLiteral("Toggle");
    else if (parser.isSet(open))
        method = QStringLiteral("Open");

    m_bus = new AppBusService(m_delegate->shelf(), this);
    if (!m_bus->claim()) {
        // Another instance runs: a plain second launch asks it to open.
        QString error;
        if (!AppBusService::forward(method.isEmpty() ? QStringLiteral("Open") : method, &error)) {
            qCWarning(lcApp) << "could not reach the running instance:" << error;
            return 1;
        }
        return 0;
    }
    if (method == QLatin1String("Quit"))
        return 0; // nothing runs, so nothing to quit

    watchTerminationSignals();
    connect(qApp, &QCoreApplication::aboutToQuit, m_delegate, &AppDelegate::applicationWillTerminate);
    m_delegate->applicationDidFinishLaunching();
    if (method == QLatin1String("Toggle"))
        m_delegate->shelf()->toggle();
    else if (method == QLatin1String("Open"))
        m_delegate->shelf()->openAtPointer({}, true);
    return -1;
}

void OstaVellApp::watchTerminationSignals() {
    // A self-pipe: the handler may run on any thread and does nothing but write one byte;
    // the event loop reads it and quits through the ordinary shutdown.
    static int fds[2] = {-1, -1};
    if (fds[0] >= 0 || ::pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    struct sigaction action = {};
    action.sa_handler = [](int) {
        const char byte = 1;
        [[maybe_unused]] const auto written = ::write(fds[1], &byte, 1);
    };
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    auto* notifier = new QSocketNotifier(fds[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [] {
        char buffer[16];
        while (::read(fds[0], buffer, sizeof buffer) > 0) {
        }
        QCoreApplication::quit();
    });
}

} // namespace vell
