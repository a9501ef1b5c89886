// The caller of the round-trip bench: a child-mode plugin that, at each press of its "go"
// button, invokes the provider's "echo" one block of times, one after another, and times each
// round trip itself from the write of the invoke to the reading of the final update. Its
// snapshot says how many blocks are done and, after the last, the median and the 99th
// percentile of the measured round trips; or what went wrong.

#include "VellPluginSDK/Protocol/PluginChildChannel.h"

#include <QCoreApplication>
#include <QTimer>

#include <chrono>

#include "RoundTrip.h"

using namespace vell;
using Clock = std::chrono::steady_clock;

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    PluginChildChannel host;
    PluginMessage hello;
    quint64 sequence = 0;
    QTimer heartbeat;

    int blocksDone = 0;
    int round = 0; // within the running block; 0 when idle
    int rounds = 0;
    QUuid pending;
    Clock::time_point sent;
    std::vector<qint64> samples;
    QString error;

    const auto show = [&] {
        PluginMessage message =
            PluginMessage::make(QStringLiteral("snapshot"), hello.pluginID, hello.session, ++sequence);
        message.snapshot.emplace();
        message.snapshot->title = QStringLiteral("Echo Caller");
        message.snapshot->fields = {{RoundTrip::blocksField, QString::number(blocksDone), std::nullopt}};
        if (blocksDone == RoundTrip::blocks) {
            message.snapshot->fields.append(
                {RoundTrip::medianField, QString::number(RoundTrip::percentile(samples, 0.5)), std::nullopt});
            message.snapshot->fields.append(
                {RoundTrip::p99Field, QString::number(RoundTrip::percentile(samples, 0.99)), std::nullopt});
        }
        if (!error.isEmpty())
            message.snapshot->fields.append({RoundTrip::errorField, error, std::nullopt});
        PluginAction go;
        go.id = RoundTrip::goAction;
        go.label = QStringLiteral("Go");
        go.enabled = true;
        message.snapshot->actions = {go};
        host.send(message);
    };
    const auto invoke = [&] {
        PluginMessage message =
            PluginMessage::make(QStringLiteral("bus"), hello.pluginID, hello.session, ++sequence);
        message.bus.emplace();
        message.bus->operation = PluginBusMessage::Operation::invoke;
        message.bus->requestID = pending = QUuid::createUuid();
        message.bus->address = PluginActionAddress{RoundTrip::providerID, RoundTrip::echoAction};
        message.bus->values =
            PluginValueMap{{QStringLiteral("text"), PluginValue::string(RoundTrip::text(rounds))}};
        sent = Clock::now();
        host.send(message);
    };
    const auto fail = [&](const QString& reason) {
        error = reason.isEmpty() ? QStringLiteral("failed without a reason") : reason;
        round = 0;
        show();
    };
    // Only the final update of the run under way ends a round.
    const auto heard = [&](const PluginBusMessage& bus, Clock::time_point read) {
        if (round == 0 || bus.requestID != pending)
            return;
        if (bus.operation == PluginBusMessage::Operation::failure)
            return fail(bus.error.value_or(QString()));
        if (bus.operation != PluginBusMessage::Operation::update || !bus.update ||
            !isTerminal(bus.update->phase))
            return;
        if (bus.update->phase != PluginRunPhase::succeeded)
            return fail(pluginRunPhaseName(bus.update->phase) + QStringLiteral(": ") + bus.update->message);
        if (bus.update->values.value(QStringLiteral("echo")).text() != RoundTrip::text(rounds))
            return fail(QStringLiteral("the echo came back changed"));
        if (blocksDone >= RoundTrip::warmupBlocks)
            samples.push_back(std::chrono::duration_cast<std::chrono::nanoseconds>(read - sent).count());
        ++rounds;
        if (round++ < RoundTrip::roundsPerBlock)
            return invoke();
        round = 0;
        ++blocksDone;
        show();
    };
    QObject::connect(&heartbeat, &QTimer::timeout, [&] {
        host.send(
            PluginMessage::make(QStringLiteral("heartbeat"), hello.pluginID, hello.session, ++sequence));
    });

    host.start([&](const std::optional<PluginMessage>& message) {
        const Clock::time_point read = Clock::now();
        if (!message)
            return app.quit();
        if (message->type == u"hello") {
            hello = *message;
            PluginMessage ready = PluginMessage::make(QStringLiteral("ready"), hello.pluginID, hello.session);
            ready.features = QStringList{QStringLiteral("dashboard-v1"), QStringLiteral("actions-v1")};
            host.send(ready);
            show();
            heartbeat.start(10000);
        } else if (message->type == u"action" && message->action == RoundTrip::goAction) {
            if (round != 0 || blocksDone == RoundTrip::blocks || !error.isEmpty())
                return;
            round = 1;
            invoke();
        } else if (message->type == u"bus" && message->bus) {
            heard(*message->bus, read);
        }
    });
    return app.exec();
}
