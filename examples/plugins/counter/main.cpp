// Counter: counts presses of its button. An application plugin: OstaVell starts it as an
// application of its own, and it connects back over a local connection with the token it was
// given. The same program could show windows of its own beside this.
//
// It also calls on another plugin: "Roll Dice" and "Clear Dice" ask the Dice example for its
// actions through OstaVell's action router. Nothing reaches Dice until a person allows Counter
// to use them, and "Clear Dice", which changes something, waits for a person every time.

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
    QString dice = QStringLiteral("Dice not asked yet");
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
        message.snapshot->fields = {PluginField{QStringLiteral("Dice"), dice, std::nullopt}};
        message.snapshot->actions = {button(QStringLiteral("add"), QStringLiteral("Add one"), true),
                                     button(QStringLiteral("reset"), QStringLiteral("Reset"), count > 0),
                                     button(QStringLiteral("rollDice"), QStringLiteral("Roll Dice"), true),
                                     button(QStringLiteral("clearDice"), QStringLiteral("Clear Dice"), true)};
        host->send(message);
    };
    const auto invoke = [&](const QString& action) {
        PluginMessage message =
            PluginMessage::make(QStringLiteral("bus"), hello.pluginID, hello.session, ++sequence);
        message.bus.emplace();
        message.bus->operation = PluginBusMessage::Operation::invoke;
        message.bus->requestID = QUuid::createUuid();
        message.bus->address = PluginActionAddress{QStringLiteral("app.ostavell.example.dice"), action};
        host->send(message);
    };
    // What the router says of a call: its progress and outcome, or why it was refused.
    const auto heard = [&](const PluginBusMessage& bus) {
        if (bus.operation == PluginBusMessage::Operation::failure)
            dice = bus.error.value_or(QString());
        else if (bus.operation == PluginBusMessage::Operation::update && bus.update)
            dice = bus.update->phase == PluginRunPhase::waitingReview ? QStringLiteral("Waiting for review")
                   : bus.update->message.isEmpty()                    ? pluginRunPhaseName(bus.update->phase)
                                                                      : bus.update->message;
        else
            return;
        show();
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
            ready.features = QStringList{QStringLiteral("dashboard-v1"), QStringLiteral("actions-v1")};
            host->send(ready);
            show();
            heartbeat.start(10000);
        } else if (message->type == u"action") {
            if (message->action == u"rollDice" || message->action == u"clearDice")
                return invoke(message->action == u"rollDice" ? QStringLiteral("roll")
                                                             : QStringLiteral("clear"));
            count = message->action == u"add" ? count + 1 : 0;
            show();
        } else if (message->type == u"bus" && message->bus) {
            heard(*message->bus);
        }
    });
    return app.exec();
}
