#pragma once

#include "VellActionRouter/ActionRouter.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QList>

#include <functional>

namespace vell::test {

// The two peers every router test talks between, and the provider's common actions.
inline const QString caller = QStringLiteral("cafe.caller");
inline const QString provider = QStringLiteral("cafe.provider");
inline const PluginActionAddress reader{provider, QStringLiteral("read")};
inline const PluginActionAddress change{provider, QStringLiteral("change")};
inline const PluginActionAddress level{provider, QStringLiteral("level")};
inline const QString unavailable = QStringLiteral("Action unavailable or access not granted.");

inline PluginRegisteredAction
action(const QString& id, PluginRegisteredAction::Effect effect = PluginRegisteredAction::Effect::readOnly,
       double timeout = 10, std::optional<double> completion = std::nullopt, bool cancellable = false) {
    const PluginValueSchema output{{{"result", PluginParameter::Kind::string, false, {}, {}}}};
    return {id, "Action " + id, {}, output, effect, cancellable, timeout, completion};
}

inline PluginChannel channel(const QString& id, PluginChannel::Kind kind = PluginChannel::Kind::state) {
    return {id, "Channel " + id, kind, {{{"level", PluginParameter::Kind::number, false, 0.0, 1.0}}}};
}

inline PluginBusMessage message(PluginBusMessage::Operation operation,
                                const QUuid& id = QUuid::createUuid()) {
    PluginBusMessage message;
    message.operation = operation;
    message.requestID = id;
    return message;
}

inline PluginRunUpdate runUpdate(PluginRunPhase phase, const QString& text = {},
                                 const PluginValueMap& values = {}) {
    return {phase, std::nullopt, text, values, std::nullopt};
}

template <typename F> QString problemOf(F&& call) {
    try {
        call();
    } catch (const ModuleProblem& problem) {
        return problem.message();
    }
    return {};
}

// A router with every delivered message recorded, and short hands for what peers send.
class RouterHarness final {
public:
    using Operation = PluginBusMessage::Operation;
    struct Sent {
        QString to;
        PluginBusMessage message;
    };

    explicit RouterHarness(std::optional<QString> directory = std::nullopt)
        : router(std::move(directory)) {
        router.setDeliver([this](const QString& to, const PluginBusMessage& message) {
            sent.append({to, message});
            if (onDeliver)
                onDeliver(to, message);
        });
        router.setChanged([this] { ++changes; });
    }

    // A router already set up by a test file's own fixture.
    explicit RouterHarness(const std::function<void(RouterHarness&)>& setUp,
                           std::optional<QString> directory = std::nullopt)
        : RouterHarness(std::move(directory)) {
        setUp(*this);
    }

    void connect(const QString& peer, const QString& fingerprint = {}) {
        router.connect(peer, fingerprint.isEmpty() ? peer + "-v1" : fingerprint, QUuid::createUuid());
    }

    void registerPeer(const QString& peer, const QList<PluginRegisteredAction>& actions,
                      const QList<PluginChannel>& channels = {}, double now = 0) {
        PluginBusMessage registration = message(Operation::register_);
        registration.registration = PluginRegistration{actions, channels};
        router.receive(registration, peer, now);
    }

    QUuid invoke(const QString& caller, const PluginActionAddress& address, double now,
                 const PluginValueMap& values = {}, const QUuid& id = QUuid::createUuid()) {
        PluginBusMessage invoke = message(Operation::invoke, id);
        invoke.address = address;
        invoke.values = values;
        router.receive(invoke, caller, now);
        return id;
    }

    void update(const QString& provider, const QUuid& id, const PluginRunUpdate& update, double now) {
        PluginBusMessage report = message(Operation::update, id);
        report.update = update;
        router.receive(report, provider, now);
    }

    void channelRequest(Operation operation, const QString& peer, const PluginActionAddress& address,
                        double now) {
        PluginBusMessage request = message(operation);
        request.address = address;
        router.receive(request, peer, now);
    }

    void publish(const QString& peer, const PluginActionAddress& address, double now,
                 PluginValueMap values = {}, std::optional<double> lifetime = std::nullopt) {
        PluginBusMessage publish = message(Operation::publish);
        publish.address = address;
        publish.values = std::move(values);
        publish.lifetime = lifetime;
        router.receive(publish, peer, now);
    }

    // The entry exported at address, action or channel; an empty one when there is none.
    PluginCatalogEntry entry(const PluginActionAddress& address, bool isChannel = false) const {
        for (const PluginCatalogEntry& entry : router.exported()) {
            if (entry.address == address && entry.channel.has_value() == isChannel)
                return entry;
        }
        return {};
    }

    void grant(const QString& caller, const PluginActionAddress& address, bool isChannel = false) {
        router.setAllowed(caller, entry(address, isChannel), true);
    }

    QList<Sent> take() { return std::exchange(sent, {}); }

    QList<PluginBusMessage> to(const QString& peer, Operation operation) const {
        QList<PluginBusMessage> found;
        for (const Sent& item : sent) {
            if (item.to == peer && item.message.operation == operation)
                found.append(item.message);
        }
        return found;
    }

    QStringList failures(const QString& peer) const {
        QStringList errors;
        for (const PluginBusMessage& failure : to(peer, Operation::failure))
            errors.append(failure.error.value_or(QString()));
        return errors;
    }

    const ActionRun* run(const QUuid& id) const {
        for (const ActionRun& run : router.runs()) {
            if (run.id == id)
                return &run;
        }
        return nullptr;
    }

    ActionRouter router;
    QList<Sent> sent;
    int changes = 0;
    std::function<void(const QString&, const PluginBusMessage&)> onDeliver;
};

} // namespace vell::test
