#include "OstaVell/Features/HUD/PluginVolumeRegistry.h"

#include "VellPluginSDK/ModuleProblem.h"

#include <QDateTime>

#include <algorithm>

namespace vell {

namespace {

[[noreturn]] void fail(QStringView message) {
    throw ModuleProblem(message.toString());
}

bool isMuteOperation(const PluginVolumeOperation& operation) {
    return operation.kind() == PluginVolumeOperation::Kind::setMuted ||
           operation.kind() == PluginVolumeOperation::Kind::toggleMute;
}

} // namespace

PluginVolumeRegistry::PluginVolumeRegistry(std::chrono::milliseconds timeout, QObject* parent)
    : QObject(parent)
    , m_timeout(timeout) {}

PluginVolumeRegistry::~PluginVolumeRegistry() = default;

double PluginVolumeRegistry::clock() const {
    return now ? now() : QDateTime::currentMSecsSinceEpoch() / 1000.0;
}

bool PluginVolumeRegistry::isFresh(double observedAt) const {
    const double current = clock();
    return observedAt <= current + maximumLeadSeconds && observedAt >= current - maximumAgeSeconds;
}

bool PluginVolumeRegistry::isLive(const PluginVolumeEndpoint& state) const {
    return state.available && isFresh(state.observedAt);
}

std::optional<RegisteredVolumeEndpoint>
PluginVolumeRegistry::endpoint(const PluginVolumeTarget& target) const {
    for (const RegisteredVolumeEndpoint& endpoint : m_endpoints)
        if (endpoint.target == target)
            return endpoint;
    return std::nullopt;
}

QList<QUuid> PluginVolumeRegistry::pendingWhere(const std::function<bool(const Pending&)>& matches) const {
    QList<QUuid> ids;
    for (const auto& [id, pending] : m_pending)
        if (matches(pending))
            ids.append(id);
    return ids;
}

void PluginVolumeRegistry::update(const QString& plugin, const QUuid& session,
                                  const QList<PluginVolumeEndpoint>& endpoints) {
    QSet<QString> ids;
    for (const PluginVolumeEndpoint& endpoint : endpoints) {
        try {
            endpoint.validate();
        } catch (const ModuleProblem&) {
            fail(invalidEndpointsMessage);
        }
        ids.insert(endpoint.id);
    }
    if (endpoints.size() > maximumEndpoints || ids.size() != endpoints.size())
        fail(invalidEndpointsMessage);

    // Most plugins offer no volume control; their every snapshot need not wake the HUD.
    const bool hadNone = std::none_of(m_endpoints.cbegin(), m_endpoints.cend(), [&](const auto& existing) {
        return existing.target.pluginID == plugin;
    });
    if (endpoints.isEmpty() && hadNone)
        return;

    QList<RegisteredVolumeEndpoint> kept;
    for (const RegisteredVolumeEndpoint& existing : std::as_const(m_endpoints))
        if (existing.target.pluginID != plugin)
            kept.append(existing);
    for (const PluginVolumeEndpoint& endpoint : endpoints) {
        RegisteredVolumeEndpoint entry{{plugin, endpoint.id}, session, endpoint};
        // A reading older than the one we hold (a snapshot overtaken by a confirmation) is no news.
        if (const std::optional<RegisteredVolumeEndpoint> held = this->endpoint(entry.target);
            held && held->session == session && held->state.observedAt > endpoint.observedAt)
            entry.state = held->state;
        kept.append(entry);
    }
    m_endpoints = kept;
    for (const QUuid& id : pendingWhere([&](const Pending& pending) {
             return pending.target.pluginID == plugin && !ids.contains(pending.target.endpointID);
         }))
        finish(id, targetChangedMessage.toString());
    emit changed();
}

void PluginVolumeRegistry::disconnect(const QString& plugin, const QUuid& session) {
    const qsizetype removed = m_endpoints.removeIf([&](const RegisteredVolumeEndpoint& endpoint) {
        return endpoint.target.pluginID == plugin && endpoint.session == session;
    });
    const QList<QUuid> waits = pendingWhere([&](const Pending& pending) {
        return pending.target.pluginID == plugin && pending.session == session;
    });
    for (const QUuid& id : waits)
        finish(id, disconnectedMessage.toString());
    if (removed > 0 && waits.isEmpty())
        emit changed();
}

bool PluginVolumeRegistry::request(const PluginVolumeTarget& target, const PluginVolumeOperation& operation,
                                   Completion completion) {
    operation.validate();
    const std::optional<RegisteredVolumeEndpoint> found = endpoint(target);
    if (!found || !isLive(found->state) ||
        !(isMuteOperation(operation) ? found->state.canMute : found->state.canSetVolume))
        fail(unavailableMessage);
    if (m_busyPlugins.contains(target.pluginID))
        return false;
    if (!deliver)
        fail(transportMessage);

    PluginVolumeCommand command;
    command.requestID = QUuid::createUuid();
    command.endpointID = found->state.id;
    command.operation = operation;
    command.expiresAt = clock() + commandLifetimeSeconds;

    m_busyPlugins.insert(target.pluginID);
    auto* timeout = new QTimer(this);
    timeout->setSingleShot(true);
    const QUuid id = command.requestID;
    connect(timeout, &QTimer::timeout, this, [this, id] { finish(id, timedOutMessage.toString()); });
    timeout->start(m_timeout);
    m_pending.emplace(id, Pending{target, found->session, std::move(completion), timeout});
    emit changed();
    try {
        deliver(target.pluginID, found->session, command);
    } catch (const ModuleProblem&) {
        finish(id, transportMessage.toString());
    }
    return true;
}

void PluginVolumeRegistry::receive(const QString& plugin, const QUuid& session,
                                   const PluginVolumeResult& result) {
    result.validate();
    const auto found = m_pending.find(result.requestID);
    if (found == m_pending.end() || found->second.target.pluginID != plugin ||
        found->second.session != session || found->second.target.endpointID != result.endpointID)
        return;
    if (!result.state) {
        finish(result.requestID, result.error.value_or(unconfirmedMessage.toString()));
        return;
    }
    const PluginVolumeEndpoint& state = *result.state;
    if (!isFresh(state.observedAt)) {
        finish(result.requestID, staleMessage.toString());
        return;
    }
    for (RegisteredVolumeEndpoint& endpoint : m_endpoints) {
        if (endpoint.target == found->second.target && endpoint.session == session &&
            endpoint.state.observedAt <= state.observedAt)
            endpoint.state = state;
    }
    // Told while the plugin still counts as busy, so that the new reading is seen as the answer
    // to our change and not as a change made elsewhere.
    emit changed();
    finish(result.requestID, state);
}

void PluginVolumeRegistry::finish(const QUuid& requestID, const Outcome& outcome) {
    const auto found = m_pending.find(requestID);
    if (found == m_pending.end())
        return;
    Pending pending = std::move(found->second);
    m_pending.erase(found);
    pending.timeout->stop();
    m_busyPlugins.remove(pending.target.pluginID);
    // The timer may be the one whose signal brought us here: it goes once control returns.
    pending.timeout->deleteLater();
    emit changed();
    if (pending.completion)
        pending.completion(outcome);
}

} // namespace vell
