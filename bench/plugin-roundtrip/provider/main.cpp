// The provider of the round-trip bench: a child-mode plugin that offers one read-only action,
// "echo", and answers each execution at once with the text it was given.

#include "VellPluginSDK/Protocol/PluginChildChannel.h"

#include <QCoreApplication>
#include <QTimer>

#include "RoundTrip.h"

using namespace vell;

namespace {

PluginRegisteredAction echoAction() {
    PluginRegisteredAction echo;
    echo.id = RoundTrip::echoAction;
    echo.title = QStringLiteral("Echo");
    echo.input.fields = {{QStringLiteral("text"), PluginParameter::Kind::string, true, {}, {}}};
    echo.output.fields = {{QStringLiteral("echo"), PluginParameter::Kind::string, true, {}, {}}};
    echo.effect = PluginRegisteredAction::Effect::readOnly;
    echo.timeoutSeconds = 10;
    return echo;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    PluginChildChannel host;
    PluginMessage hello;
    quint64 sequence = 0;
    QTimer heartbeat;

    const auto bus = [&](PluginBusMessage message) {
        PluginMessage out =
            PluginMessage::make(QStringLiteral("bus"), hello.pluginID, hello.session, ++sequence);
        out.bus = std::move(message);
        host.send(out);
    };
    const auto answer = [&](const PluginBusMessage& execute) {
        PluginBusMessage update;
        update.operation = PluginBusMessage::Operation::update;
        update.requestID = execute.requestID;
        update.address = execute.address;
        update.update.emplace();
        update.update->phase = PluginRunPhase::succeeded;
        update.update->values.insert(QStringLiteral("echo"),
                                     execute.values.value_or(PluginValueMap()).value(QStringLiteral("text")));
        bus(update);
    };
    // The host stops a plugin it has not heard from for 15 seconds.
    QObject::connect(&heartbeat, &QTimer::timeout, [&] {
        host.send(
            PluginMessage::make(QStringLiteral("heartbeat"), hello.pluginID, hello.session, ++sequence));
    });

    host.start([&](const std::optional<PluginMessage>& message) {
        if (!message)
            return app.quit();
        if (message->type == u"hello") {
            hello = *message;
            PluginMessage ready = PluginMessage::make(QStringLiteral("ready"), hello.pluginID, hello.session);
            ready.features = QStringList{QStringLiteral("actions-v1")};
            host.send(ready);
            PluginBusMessage registration;
            registration.operation = PluginBusMessage::Operation::register_;
            registration.requestID = QUuid::createUuid();
            registration.registration = PluginRegistration{{echoAction()}, {}};
            bus(registration);
            heartbeat.start(10000);
        } else if (message->type == u"bus" && message->bus &&
                   message->bus->operation == PluginBusMessage::Operation::execute) {
            answer(*message->bus);
        }
    });
    return app.exec();
}
