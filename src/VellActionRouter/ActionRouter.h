#pragma once

#include "VellActionRouter/ActionGrant.h"
#include "VellActionRouter/ActionRouterFiles.h"
#include "VellActionRouter/ActionRun.h"
#include "VellActionRouter/ActionRunSummary.h"
#include "VellPluginSDK/Actions/PluginBusMessage.h"
#include "VellPluginSDK/Actions/PluginCatalogEntry.h"

#include <QList>
#include <QMap>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <functional>
#include <optional>

namespace vell {

// The one broker between everything that offers or uses an action: plugins and the built-in
// peers. It holds who is connected, what each offers, subscriptions, retained state and all
// runs, and enforces grants, fingerprints, review, rates and deadlines. It has no clock and no
// input or output of its own beyond its two files: every instant comes in as now (seconds
// since 2001-01-01 00:00:00 UTC) and every message leaves through deliver, so it runs
// deterministically without a timer.
//
// Main thread only, no locks. deliver and changed run synchronously inside the operation that
// caused them and may re-enter the router (a built-in peer answers from inside deliver), so
// every walk over runs or peers works on a collected copy and looks each item up again.
class ActionRouter final {
public:
    using Deliver = std::function<void(const QString& peer, const PluginBusMessage& message)>;
    using Changed = std::function<void()>;

    static constexpr int maximumMessagesPerWindow = 64;
    static constexpr double rateWindowSeconds = 1;
    static constexpr qsizetype maximumSubscriptions = 32;
    static constexpr double minimumLifetimeSeconds = 1;
    static constexpr double maximumLifetimeSeconds = 300;
    static constexpr double defaultLifetimeSeconds = 30;
    static constexpr int maximumFailureCharacters = 300;
    static constexpr qsizetype maximumLiveRuns = 32;
    static constexpr qsizetype maximumRequestIDs = 4096;
    static constexpr double reviewWindowSeconds = 120;
    static constexpr double cancellationWindowSeconds = 120;
    static constexpr qsizetype runsBeforeTrimming = 128;
    static constexpr qsizetype endedRunsKept = 96;
    static constexpr qsizetype maximumHistory = 100;

    // Loads grants and history from directory; without one nothing is persisted and no file
    // is ever touched.
    explicit ActionRouter(std::optional<QString> directory = std::nullopt);
    ActionRouter(const ActionRouter&) = delete;
    ActionRouter& operator=(const ActionRouter&) = delete;

    const QList<ActionGrant>& grants() const { return m_grants; }
    const QList<ActionRun>& runs() const { return m_runs; }
    const QList<ActionRunSummary>& history() const { return m_history; }
    // Set once grants could not be loaded or history could not be saved, and never cleared:
    // while set, nothing new crosses between peers.
    const std::optional<QString>& persistenceError() const { return m_persistenceError; }

    // How every message leaves the router.
    void setDeliver(Deliver deliver) { m_deliver = std::move(deliver); }
    // Fired after each change worth showing.
    void setChanged(Changed changed) { m_changed = std::move(changed); }

    // A peer that reconnects goes through the full departure first.
    void connect(const QString& peer, const QString& fingerprint, const QUuid& session);
    void disconnect(const QString& peer);

    // The one entry point for everything a peer sends. Never throws: every failure goes back
    // to the sender as a failure message, and a stranger hears nothing at all.
    void receive(const PluginBusMessage& message, const QString& from, double now);

    // Connected peer identifiers, ascending.
    QStringList participants() const;
    // The full catalogue of all connected peers, unfiltered, in a fixed order: peers ascending,
    // each with its actions and then its channels as registered.
    QList<PluginCatalogEntry> exported() const;

    bool allowed(const QString& caller, const PluginCatalogEntry& entry) const;
    // Throws ModuleProblem, also with the file system's error; on failure nothing changes.
    void setAllowed(const QString& caller, const PluginCatalogEntry& entry, bool allowed);

    // A person confirms a run in review. No bus message reaches this. Throws ModuleProblem.
    void approve(const QUuid& id, double now);
    // A person stops or declines a run. Throws ModuleProblem.
    void cancel(const QUuid& id, double now);
    // The sweep for deadlines and retained state, called repeatedly by the owner.
    void tick(double now);

private:
    struct Peer {
        QString fingerprint;
        QUuid session;
        PluginRegistration registration;
    };
    struct RetainedState {
        PluginBusMessage message;
        double expires = 0;
    };
    struct Traffic {
        double start = 0;
        int count = 0;
    };
    using Handler = void (ActionRouter::*)(const PluginBusMessage& message, const QString& from, double now);

    // Every refusal of the router is one fixed sentence.
    [[noreturn]] static void fail(const char* message);

    // Peers, catalogue and channels.
    void checkRate(const QString& from, double now);
    void handleRegister(const PluginBusMessage& message, const QString& from, double now);
    void handleDiscover(const PluginBusMessage& message, const QString& from, double now);
    void handleSubscribe(const PluginBusMessage& message, const QString& from, double now);
    void handleUnsubscribe(const PluginBusMessage& message, const QString& from, double now);
    void handlePublish(const PluginBusMessage& message, const QString& from, double now);
    void refuseReserved(const PluginBusMessage& message, const QString& from, double now);
    // The exported action or channel at the message's address, when from may use it.
    PluginCatalogEntry grantedEntry(const PluginBusMessage& message, const QString& from, bool channel) const;
    std::optional<PluginCatalogEntry> exportedEntry(const PluginActionAddress& address, bool channel) const;
    void sendCatalog(const QString& peer, const QUuid& request);
    void broadcastCatalogs();
    void forgetRetained(const QString& peer);
    void send(const QString& peer, const PluginBusMessage& message);
    void sendFailure(const QString& peer, const QUuid& request, const QString& error);
    void fireChanged();
    bool isConnected(const QString& peer, const QUuid& session) const;

    // Runs.
    void handleInvoke(const PluginBusMessage& message, const QString& from, double now);
    void handleCancel(const PluginBusMessage& message, const QString& from, double now);
    void handleUpdate(const PluginBusMessage& message, const QString& from, double now);
    qsizetype indexOfRun(const QUuid& id) const;
    QList<QUuid> collectLiveRuns(const std::function<bool(const ActionRun&)>& matches) const;
    // Ends each collected run that is still live, telling its provider first when it may
    // already be acting.
    void interrupt(const QList<QUuid>& ids, const QString& message,
                   const std::function<bool(const ActionRun&)>& tellProvider);
    void finish(const QUuid& id, const PluginRunUpdate& update);
    void notify(const QUuid& id);
    void execute(const QUuid& id);
    void sendCancel(const ActionRun& run);
    void expire(const QUuid& id);
    void trim();

    // Grants and history.
    void load();
    void record(const QUuid& id);

    std::optional<ActionRouterFiles> m_files;
    QList<ActionGrant> m_grants;
    QList<ActionRun> m_runs;
    QList<ActionRunSummary> m_history;
    std::optional<QString> m_persistenceError;
    Deliver m_deliver;
    Changed m_changed;
    QMap<QString, Peer> m_peers;
    QMap<QString, QSet<PluginActionAddress>> m_subscriptions;
    QMap<PluginActionAddress, RetainedState> m_retained;
    QMap<QString, QSet<QUuid>> m_requestIDs;
    QMap<QString, Traffic> m_traffic;
};

} // namespace vell
