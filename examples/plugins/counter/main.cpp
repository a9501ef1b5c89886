// Counter: counts presses of its button. An application plugin: OstaVell starts it as an
// application of its own, and it connects back over a local connection with the token it was
// given. The same program could show windows of its own beside this.

#include "VellPluginSDK/Protocol/PluginApplicationChannel.h"

#include <QCoreApplication>
#include <QTimer>

#include <cstdio>

using namespace vell;

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const std::unique_ptr<PluginApplicationChannel> host = PluginApplicationChannel::create();
    if (!host) {
        std::fputs("Counter is a plugin: OstaVell starts it.\n", stderr);
        return 1;
    }
    PluginMessage hello;
    quint64 sequence = 0;
    int count = 0;
    QTimer heartbeat;

    const auto button = [](const QString& id, const QString& label, bool enabled) {
        PluginAction action;
        action.id = id;
        action.label = label;
        action.enabled = enabled;
        return action;
    };
    const auto show = [&] {
        PluginMessage message =
            PluginMessage::make(QStringLiteral("snapshot"), hello.pluginID, hello.session, ++sequence);
        message.snapshot.emplace();
        message.snapshot->title = QStringLiteral("Counter");
        message.snapshot->status =
            count == 1 ? QStringLiteral("1 press") : QStringLiteral("%1 presses").arg(count);
        message.snapshot->activity = QString::number(count);
        message.snapshot->actions = {button(QStringLiteral("add"), QStringLiteral("Add one"), true),
                                     button(QStringLiteral("reset"), QStringLiteral("Reset"), count > 0)};
        host->send(message);
    };
    // Nothing changes while nobody presses, but the host wants to hear from a plugin.
    QObject::connect(&heartbeat, &QTimer::timeout, [&] {
        host->send(
            PluginMessage::make(QStringLiteral("heartbeat"), hello.pluginID, hello.session, ++sequence));
    });

    host->start([&](const std::optional<PluginMessage>& message) {
        if (!message)
            return app.quit();
        if (message->type == u"hello") {
            hello = *message;
            PluginMessage ready = PluginMessage::make(QStringLiteral("ready"), hello.pluginID, hello.session);
            ready.features = QStringList{QStringLiteral("dashboard-v1")};
            host->send(ready);
            show();
            heartbeat.start(10000);
        } else if (message->type == u"action") {
            count = message->action == u"add" ? count + 1 : 0;
            show();
        }
    });
    return app.exec();
}
