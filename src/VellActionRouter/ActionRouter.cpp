#include "VellActionRouter/ActionRouter.h"

#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <array>
#include <cmath>

namespace vell {

namespace {

using Operation = PluginBusMessage::Operation;

} // namespace

ActionRouter::ActionRouter(std::optional<QString> directory) {
    if (directory)
        m_files.emplace(*directory);
    load();
}

void ActionRouter::connect(const QString& peer, const QString& fingerprint, const QUuid& session) {
    disconnect(peer);
    m_peers.insert(peer, Peer{fingerprint, session, {}});
    m_requestIDs.insert(peer, {});
    m_traffic.remove(peer);
    fireChanged();
}

void ActionRouter::disconnect(const QString& peer) {
    if (!m_peers.contains(peer))
        return;
    const QList<QUuid> affected = collectLiveRuns(
        [&](const ActionRun& run) { return run.caller == peer || run.address.plugin == peer; });
    interrupt(affected, QStringLiteral("Connection ended. Outcome may be unknown; nothing was retried."),
              [&](const ActionRun& run) {
                  return run.address.plugin != peer && run.phase() != PluginRunPhase::waitingReview;
              });
    m_peers.remove(peer);
    m_subscriptions.remove(peer);
    m_requestIDs.remove(peer);
    m_traffic.remove(peer);
    forgetRetained(peer);
    for (QSet<PluginActionAddress>& addresses : m_subscriptions)
        addresses.removeIf([&](const PluginActionAddress& address) { return address.plugin == peer; });
    broadcastCatalogs();
    fireChanged();
}

void ActionRouter::fail(const char* message) {
    throw ModuleProblem(QString::fromLatin1(message));
}

void ActionRouter::receive(const PluginBusMessage& message, const QString& from, double now) {
    // Indexed by Operation, in its declared order.
    static constexpr std::array<Handler, 12> handlers{
        &ActionRouter::handleRegister, &ActionRouter::handleDiscover,  &ActionRouter::refuseReserved,
        &ActionRouter::handleInvoke,   &ActionRouter::refuseReserved,  &ActionRouter::handleCancel,
        &ActionRouter::handleUpdate,   &ActionRouter::handleSubscribe, &ActionRouter::handleUnsubscribe,
        &ActionRouter::handlePublish,  &ActionRouter::refuseReserved,  &ActionRouter::refuseReserved,
    };
    if (!m_peers.contains(from))
        return;
    // The one catch boundary of the router: whatever fails, of whatever kind, goes back to the
    // sender as a failure and nowhere else.
    QString error;
    try {
        checkRate(from, now);
        const auto index = static_cast<std::size_t>(message.operation);
        const Handler handler = index < handlers.size() ? handlers[index] : &ActionRouter::refuseReserved;
        (this->*handler)(message, from, now);
        return;
    } catch (const ModuleProblem& problem) {
        error = problem.message();
    } catch (const std::exception& failure) {
        error = QString::fromUtf8(failure.what());
    } catch (...) {
        error = QStringLiteral("The message could not be handled.");
    }
    try {
        sendFailure(from, message.requestID, error);
    } catch (...) {
        // A peer whose transport fails on delivery simply does not learn of the failure.
    }
}

QStringList ActionRouter::participants() const {
    return m_peers.keys();
}

QList<PluginCatalogEntry> ActionRouter::exported() const {
    QList<PluginCatalogEntry> entries;
    for (auto it = m_peers.cbegin(); it != m_peers.cend(); ++it) {
        for (const PluginRegisteredAction& action : it->registration.actions)
            entries.append({{it.key(), action.id}, action, std::nullopt});
        for (const PluginChannel& channel : it->registration.channels)
            entries.append({{it.key(), channel.id}, std::nullopt, channel});
    }
    return entries;
}

void ActionRouter::checkRate(const QString& from, double now) {
    auto found = m_traffic.find(from);
    // A fixed window, opened by the first message after the last one closed; it never slides.
    if (found == m_traffic.end() || now - found->start >= rateWindowSeconds)
        found = m_traffic.insert(from, Traffic{now, 0});
    if (found->count >= maximumMessagesPerWindow)
        fail("Action message rate exceeded.");
    ++found->count;
}

void ActionRouter::handleRegister(const PluginBusMessage& message, const QString& from, double) {
    if (!message.registration)
        fail("Missing registration.");
    const PluginRegistration& registration = *message.registration;
    registration.validate();
    if (registration != m_peers.value(from).registration) {
        const QList<QUuid> affected =
            collectLiveRuns([&](const ActionRun& run) { return run.address.plugin == from; });
        interrupt(affected, QStringLiteral("Provider actions changed; request was not replayed."),
                  [](const ActionRun& run) { return run.phase() != PluginRunPhase::waitingReview; });
        const auto peer = m_peers.find(from);
        if (peer == m_peers.end())
            return;
        peer->registration = registration;
        // A changed registration loses all retained values of the peer, also those of
        // channels that stayed the same.
        forgetRetained(from);
        const QList<PluginCatalogEntry> entries = exported();
        for (auto it = m_subscriptions.begin(); it != m_subscriptions.end(); ++it) {
            const QString& subscriber = it.key();
            it->removeIf([&](const PluginActionAddress& address) {
                return std::none_of(entries.begin(), entries.end(), [&](const PluginCatalogEntry& entry) {
                    return entry.channel && entry.address == address && allowed(subscriber, entry);
                });
            });
        }
    }
    broadcastCatalogs();
    fireChanged();
}

void ActionRouter::handleDiscover(const PluginBusMessage& message, const QString& from, double) {
    sendCatalog(from, message.requestID);
}

PluginCatalogEntry ActionRouter::grantedEntry(const PluginBusMessage& message, const QString& from,
                                              bool channel) const {
    // One text for a missing entry and a missing grant, so that a peer can't probe for
    // actions or channels it may not use.
    const char* const refusal =
        channel ? "Channel unavailable or access not granted." : "Action unavailable or access not granted.";
    if (!message.address)
        fail(refusal);
    const std::optional<PluginCatalogEntry> entry = exportedEntry(*message.address, channel);
    if (!entry || !allowed(from, *entry))
        fail(refusal);
    return *entry;
}

void ActionRouter::handleSubscribe(const PluginBusMessage& message, const QString& from, double now) {
    const PluginCatalogEntry entry = grantedEntry(message, from, true);
    QSet<PluginActionAddress>& addresses = m_subscriptions[from];
    if (addresses.size() >= maximumSubscriptions && !addresses.contains(entry.address))
        fail("Too many subscriptions.");
    addresses.insert(entry.address);
    const auto retained = m_retained.constFind(entry.address);
    if (retained != m_retained.cend() && retained->expires > now) {
        PluginBusMessage event = retained->message;
        event.lifetime = retained->expires - now;
        send(from, event);
    }
}

void ActionRouter::handleUnsubscribe(const PluginBusMessage& message, const QString& from, double) {
    const PluginCatalogEntry entry = grantedEntry(message, from, true);
    const auto addresses = m_subscriptions.find(from);
    if (addresses != m_subscriptions.end())
        addresses->remove(entry.address);
}

void ActionRouter::handlePublish(const PluginBusMessage& message, const QString& from, double now) {
    const char* const notOwned = "Channel does not belong to this publisher.";
    if (!message.address || message.address->plugin != from)
        fail(notOwned);
    const QList<PluginChannel>& channels = m_peers.value(from).registration.channels;
    const auto channel = std::find_if(channels.begin(), channels.end(), [&](const PluginChannel& channel) {
        return channel.id == message.address->name;
    });
    if (channel == channels.end())
        fail(notOwned);
    const PluginValueMap values = message.values.value_or(PluginValueMap());
    channel->schema.validate(values);
    // Checked for event channels too, though they keep nothing: one rule for every publish.
    const double lifetime = message.lifetime.value_or(defaultLifetimeSeconds);
    if (!std::isfinite(lifetime) || lifetime < minimumLifetimeSeconds || lifetime > maximumLifetimeSeconds)
        fail("Invalid state lifetime.");

    const bool state = channel->kind == PluginChannel::Kind::state;
    const PluginCatalogEntry entry{*message.address, std::nullopt, *channel};
    PluginBusMessage event;
    event.operation = Operation::event;
    event.requestID = message.requestID;
    event.address = message.address;
    event.values = values;
    if (state) {
        event.lifetime = lifetime;
        m_retained.insert(*message.address, RetainedState{event, now + lifetime});
    }
    const auto subscriptions = m_subscriptions;
    for (auto it = subscriptions.cbegin(); it != subscriptions.cend(); ++it) {
        // A grant that lapsed after subscribing stops delivery at once; the subscription stays.
        if (it->contains(*message.address) && allowed(it.key(), entry))
            send(it.key(), event);
    }
}

void ActionRouter::refuseReserved(const PluginBusMessage&, const QString&, double) {
    fail("This message is reserved for the core.");
}

std::optional<PluginCatalogEntry> ActionRouter::exportedEntry(const PluginActionAddress& address,
                                                              bool channel) const {
    for (const PluginCatalogEntry& entry : exported()) {
        if (entry.address == address && entry.channel.has_value() == channel)
            return entry;
    }
    return std::nullopt;
}

void ActionRouter::sendCatalog(const QString& peer, const QUuid& request) {
    if (!m_deliver)
        return;
    // Opening piece, one piece per entry whatever the catalogue's size, closing piece: a
    // receiver never sees part of a catalogue as a whole one.
    PluginBusMessage piece;
    piece.operation = Operation::catalog;
    piece.requestID = request;
    piece.catalog = QList<PluginCatalogEntry>();
    send(peer, piece);
    for (const PluginCatalogEntry& entry : exported()) {
        if (allowed(peer, entry)) {
            piece.catalog = QList<PluginCatalogEntry>{entry};
            send(peer, piece);
        }
    }
    piece.catalog.reset();
    piece.complete = true;
    send(peer, piece);
}

void ActionRouter::broadcastCatalogs() {
    for (const QString& peer : m_peers.keys()) {
        if (m_peers.contains(peer))
            sendCatalog(peer, QUuid::createUuid());
    }
}

void ActionRouter::forgetRetained(const QString& peer) {
    for (auto it = m_retained.begin(); it != m_retained.end();) {
        if (it.key().plugin == peer)
            it = m_retained.erase(it);
        else
            ++it;
    }
}

void ActionRouter::send(const QString& peer, const PluginBusMessage& message) {
    if (m_deliver)
        m_deliver(peer, message);
}

void ActionRouter::sendFailure(const QString& peer, const QUuid& request, const QString& error) {
    PluginBusMessage failure;
    failure.operation = Operation::failure;
    failure.requestID = request;
    failure.error = TextMetrics::leftCharacters(error, maximumFailureCharacters);
    send(peer, failure);
}

void ActionRouter::fireChanged() {
    if (m_changed)
        m_changed();
}

bool ActionRouter::isConnected(const QString& peer, const QUuid& session) const {
    const auto found = m_peers.constFind(peer);
    return found != m_peers.cend() && found->session == session;
}

} // namespace vell
