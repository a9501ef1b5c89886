// Clock: the time in the notch, with a button that shows or hides the seconds. A child-mode
// plugin: OstaVell starts it and talks to it over standard input and output.

#include "VellPluginSDK/Protocol/PluginChildChannel.h"

#include <QCoreApplication>
#include <QTime>
#include <QTimer>

using namespace vell;

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    PluginChildChannel host;
    PluginMessage hello;
    quint64 sequence = 0;
    bool seconds = false;
    QTimer tick;
    tick.setSingleShot(true);

    // Sends what the clock shows now, and comes back when that changes: every second with
    // seconds shown, else at the next minute; never later than 10 seconds, so that the host
    // always hears from it well within its 15.
    const auto show = [&] {
        const QTime now = QTime::currentTime();
        PluginAction toggle;
        toggle.id = QStringLiteral("seconds");
        toggle.label = seconds ? QStringLiteral("Hide seconds") : QStringLiteral("Show seconds");
        toggle.enabled = true;
        PluginMessage message =
            PluginMessage::make(QStringLiteral("snapshot"), hello.pluginID, hello.session, ++sequence);
        message.snapshot.emplace();
        message.snapshot->title = QStringLiteral("Clock");
        message.snapshot->status =
            now.toString(seconds ? QStringLiteral("HH:mm:ss") : QStringLiteral("HH:mm"));
        message.snapshot->activity = message.snapshot->status;
        message.snapshot->actions = {toggle};
        host.send(message);
        tick.start(seconds ? 1000 - now.msec() : std::min(10000, 60000 - now.second() * 1000 - now.msec()));
    };
    QObject::connect(&tick, &QTimer::timeout, show);

    host.start([&](const std::optional<PluginMessage>& message) {
        if (!message) // the host has gone
            return app.quit();
        if (message->type == u"hello") {
            hello = *message;
            PluginMessage ready = PluginMessage::make(QStringLiteral("ready"), hello.pluginID, hello.session);
            ready.features = QStringList{QStringLiteral("dashboard-v1")};
            host.send(ready);
            show();
        } else if (message->type == u"action" && message->action == u"seconds") {
            seconds = !seconds;
            show();
        }
    });
    return app.exec();
}
