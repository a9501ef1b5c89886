#include "VellActionRouter/ActionRouter.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <algorithm>

namespace vell {

// Grants and history: the only state that outlives the process. Both fail closed: when the
// router can't be sure of what was granted, or can't keep a record, nothing new crosses
// between peers.

bool ActionRouter::allowed(const QString& caller, const PluginCatalogEntry& entry) const {
    const auto callerPeer = m_peers.constFind(caller);
    const auto providerPeer = m_peers.constFind(entry.address.plugin);
    if (callerPeer == m_peers.cend() || providerPeer == m_peers.cend() || m_persistenceError)
        return false;
    if (caller == entry.address.plugin)
        return true;
    // Encoded afresh on every question, so that no cached answer can outlive a change.
    const std::optional<QByteArray> definition = entry.definitionData();
    if (!definition)
        return false;
    const bool channel = entry.channel.has_value();
    return std::any_of(m_grants.begin(), m_grants.end(), [&](const ActionGrant& grant) {
        return grant.caller == caller && grant.address == entry.address && grant.channel == channel &&
               grant.callerFingerprint == callerPeer->fingerprint &&
               grant.providerFingerprint == providerPeer->fingerprint && grant.definition == *definition;
    });
}

void ActionRouter::setAllowed(const QString& caller, const PluginCatalogEntry& entry, bool allowed) {
    // A grant can only be given for what exists at this moment between two connected peers,
    // since their fingerprints are read now.
    const QList<PluginCatalogEntry> entries = exported();
    const std::optional<QByteArray> definition = entry.definitionData();
    if (m_persistenceError || !m_peers.contains(caller) || !m_peers.contains(entry.address.plugin) ||
        !entries.contains(entry) || !definition)
        fail("The action is no longer available.");
    const bool channel = entry.channel.has_value();
    QList<ActionGrant> grants = m_grants;
    grants.removeIf([&](const ActionGrant& grant) {
        return grant.caller == caller && grant.address == entry.address && grant.channel == channel;
    });
    if (allowed) {
        grants.append(ActionGrant{caller, m_peers.value(caller).fingerprint, entry.address,
                                  m_peers.value(entry.address.plugin).fingerprint, channel, *definition});
    }
    if (grants.size() > ActionRouterFiles::maximumGrants)
        fail("Too many action permissions.");
    // The file first and the memory after, so that a grant in force is always on disk.
    if (m_files) {
        if (const FileResult saved = m_files->saveGrants(grants); !saved)
            throw ModuleProblem(saved.error());
    }
    m_grants = std::move(grants);
    if (!allowed) {
        if (channel) {
            const auto addresses = m_subscriptions.find(caller);
            if (addresses != m_subscriptions.end())
                addresses->remove(entry.address);
        }
        // Revocation fails closed: the caller's live runs at this address end whichever kind of
        // entry was revoked, also when an action shares its name with the revoked channel.
        const QList<QUuid> affected = collectLiveRuns(
            [&](const ActionRun& run) { return run.caller == caller && run.address == entry.address; });
        interrupt(affected,
                  QStringLiteral("Access revoked. An already-started action may have taken effect."),
                  [](const ActionRun& run) { return run.phase() != PluginRunPhase::waitingReview; });
    }
    broadcastCatalogs();
    fireChanged();
}

void ActionRouter::load() {
    if (!m_files)
        return;
    std::optional<QList<ActionGrant>> grants = m_files->loadGrants();
    if (!grants) {
        // The file stays as it is for repair; nothing here or later overwrites it, since every
        // grant change is refused while the latch is set.
        m_persistenceError = QStringLiteral("Action permissions need recovery. Access remains denied.");
        return;
    }
    m_grants = std::move(*grants);
    QList<ActionRunSummary> history = m_files->loadHistory().value_or(QList<ActionRunSummary>());
    if (history.size() > maximumHistory)
        history = history.mid(history.size() - maximumHistory);
    // A run alive when the program ended has no known outcome, and the history says so from
    // the first moment. The file itself is rewritten only by the next record.
    for (ActionRunSummary& summary : history) {
        if (!isTerminal(summary.phase))
            summary.phase = PluginRunPhase::interrupted;
    }
    m_history = std::move(history);
}

void ActionRouter::record(const QUuid& id) {
    const qsizetype index = indexOfRun(id);
    if (index < 0)
        return;
    const ActionRun& run = m_runs.at(index);
    m_history.removeIf([&](const ActionRunSummary& summary) { return summary.id == id; });
    m_history.append(
        ActionRunSummary{run.id, run.caller, run.address, run.definition.title, run.phase(), run.created});
    if (m_history.size() > maximumHistory)
        m_history.remove(0, m_history.size() - maximumHistory);
    if (!m_files)
        return;
    // The run carries on and memory keeps the entry; only new access is refused from now on.
    if (!m_files->saveHistory(m_history) && !m_persistenceError)
        m_persistenceError =
            QStringLiteral("Run history could not be saved. New cross-plugin access is denied.");
}

} // namespace vell
