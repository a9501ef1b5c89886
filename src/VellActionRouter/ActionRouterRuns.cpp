#include "VellActionRouter/ActionRouter.h"

#include <algorithm>

namespace vell {

// Runs: invoke, review, execution, updates, deadlines and cancellation. The governing rule
// is that nothing is ever repeated: a request that may have taken effect is reported as
// unknown, never retried.

namespace {

using Operation = PluginBusMessage::Operation;

PluginRunUpdate phaseUpdate(PluginRunPhase phase, const QString& message = {}) {
    PluginRunUpdate update;
    update.phase = phase;
    update.message = message;
    return update;
}

// The clock of execution: timeoutSeconds from now, and the completion limit when the action
// has one.
void startExecution(ActionRun& run, double now) {
    run.deadline = now + run.definition.timeoutSeconds;
    run.completionDeadline.reset();
    if (run.definition.completionTimeoutSeconds)
        run.completionDeadline = now + *run.definition.completionTimeoutSeconds;
}

// The deadline on entering cancelling: it can only come nearer.
double cancellingDeadline(const ActionRun& run, double now) {
    return std::min(now + ActionRouter::cancellationWindowSeconds,
                    run.completionDeadline.value_or(run.deadline));
}

const char* const executionLimit = "Execution limit reached.";
const char* const unknownExecution = "Unknown or completed execution.";
const char* const invalidTransition = "Invalid execution transition.";
const char* const reviewVoided = "The reviewed request is no longer valid.";

} // namespace

void ActionRouter::handleInvoke(const PluginBusMessage& message, const QString& from, double now) {
    const PluginCatalogEntry entry = grantedEntry(message, from, false);
    message.address->validate();
    const PluginValueMap arguments = message.values.value_or(PluginValueMap());
    entry.action->input.validate(arguments);
    QSet<QUuid>& seen = m_requestIDs[from];
    if (seen.contains(message.requestID))
        fail("This request was already handled; it will not run again.");
    if (seen.size() >= maximumRequestIDs)
        fail(executionLimit);
    if (std::count_if(m_runs.begin(), m_runs.end(), [](const ActionRun& run) { return run.isLive(); }) >=
        maximumLiveRuns)
        fail(executionLimit);
    // Catches a replay after a reconnection, when the connection's identities are fresh.
    const auto sameID = [&](const auto& item) { return item.id == message.requestID; };
    if (std::any_of(m_runs.begin(), m_runs.end(), sameID) ||
        std::any_of(m_history.begin(), m_history.end(), sameID))
        fail("Run identity is already in use.");
    // From here on the identity is spent, whatever happens to the run.
    seen.insert(message.requestID);

    const PluginRegisteredAction& definition = *entry.action;
    const bool readOnly = definition.effect == PluginRegisteredAction::Effect::readOnly;
    ActionRun run;
    run.id = message.requestID;
    run.caller = from;
    run.callerSession = m_peers.value(from).session;
    run.providerSession = m_peers.value(message.address->plugin).session;
    run.address = *message.address;
    run.definition = definition;
    run.arguments = arguments;
    run.created = now;
    // Review depends on the effect alone: no grant, caller or earlier approval spares it.
    if (readOnly)
        startExecution(run, now);
    else
        run.deadline = now + reviewWindowSeconds;
    run.update = phaseUpdate(readOnly ? PluginRunPhase::running : PluginRunPhase::waitingReview);
    m_runs.append(run);
    notify(run.id);
    if (readOnly)
        execute(run.id);
    trim();
    fireChanged();
}

void ActionRouter::handleCancel(const PluginBusMessage& message, const QString& from, double now) {
    // Ended runs count too, so that a cancel of one's own ended run says so.
    const QUuid session = m_peers.value(from).session;
    const bool owned = std::any_of(m_runs.begin(), m_runs.end(), [&](const ActionRun& run) {
        return run.id == message.requestID && run.caller == from && run.callerSession == session;
    });
    if (!owned)
        fail("Execution does not belong to this caller.");
    cancel(message.requestID, now);
}

void ActionRouter::handleUpdate(const PluginBusMessage& message, const QString& from, double now) {
    const qsizetype index = indexOfRun(message.requestID);
    if (index < 0)
        fail(unknownExecution);
    const ActionRun run = m_runs.at(index);
    // A provider can't speak for a run of another connection, nor for one it was never told of.
    if (run.address.plugin != from || run.providerSession != m_peers.value(from).session || !run.isLive() ||
        run.phase() == PluginRunPhase::waitingReview || !message.update)
        fail(unknownExecution);
    if (!(now < run.deadline)) {
        // A late report never counts as success.
        expire(run.id);
        fail("Execution deadline passed; inspect the original action.");
    }
    PluginRunUpdate update = *message.update;
    update.validate();
    if (update.phase == PluginRunPhase::waitingReview)
        fail(invalidTransition);
    if (update.phase == PluginRunPhase::succeeded)
        run.definition.output.validate(update.values);
    if (update.phase == PluginRunPhase::cancelling && !run.definition.cancellable)
        fail(invalidTransition);
    if (update.phase != PluginRunPhase::succeeded && !update.values.isEmpty())
        fail("Only completed actions may return values.");
    // A provider can't talk a cancellation back into running; its message and progress stand.
    if (run.phase() == PluginRunPhase::cancelling && !isTerminal(update.phase))
        update.phase = PluginRunPhase::cancelling;
    if (!isTerminal(update.phase)) {
        ActionRun& stored = m_runs[index];
        if (update.phase == PluginRunPhase::cancelling && run.phase() != PluginRunPhase::cancelling) {
            stored.deadline = cancellingDeadline(run, now);
        } else if (update.phase == PluginRunPhase::running && run.definition.completionTimeoutSeconds) {
            // The heartbeat: with a completion limit, timeoutSeconds is the longest silence
            // allowed and the completion deadline the end of all patience. Without one,
            // timeoutSeconds covers the whole run however often it reports.
            stored.deadline =
                std::min(now + run.definition.timeoutSeconds, run.completionDeadline.value_or(run.deadline));
        }
    }
    finish(run.id, update);
}

void ActionRouter::approve(const QUuid& id, double now) {
    const qsizetype index = indexOfRun(id);
    if (index < 0 || m_runs.at(index).phase() != PluginRunPhase::waitingReview)
        fail("Review expired.");
    const ActionRun run = m_runs.at(index);
    // What a person reviewed is what runs: any change of the definition, of either session or
    // of the grant voids the approval rather than updating it.
    const std::optional<PluginCatalogEntry> entry = exportedEntry(run.address, false);
    const bool valid = now < run.deadline && isConnected(run.caller, run.callerSession) &&
                       isConnected(run.address.plugin, run.providerSession) && entry &&
                       *entry->action == run.definition && allowed(run.caller, *entry);
    if (!valid) {
        finish(id, phaseUpdate(PluginRunPhase::interrupted, QString::fromLatin1(reviewVoided)));
        fail(reviewVoided);
    }
    // The clock of execution starts at approval; time in review is not charged to the action.
    startExecution(m_runs[index], now);
    finish(id, phaseUpdate(PluginRunPhase::running));
    execute(id);
}

void ActionRouter::cancel(const QUuid& id, double now) {
    const qsizetype index = indexOfRun(id);
    if (index < 0 || !m_runs.at(index).isLive())
        fail("Execution already ended.");
    const ActionRun run = m_runs.at(index);
    if (run.phase() == PluginRunPhase::waitingReview || !run.executeSent) {
        // The provider never heard of it, so it hears nothing now: in review, or cancelled
        // from inside a callback before the run was handed over.
        finish(id,
               phaseUpdate(PluginRunPhase::cancelled, QStringLiteral("Request declined before execution.")));
        return;
    }
    if (!run.definition.cancellable)
        fail("This action does not support cancellation.");
    if (run.phase() == PluginRunPhase::cancelling)
        return;
    m_runs[index].deadline = cancellingDeadline(run, now);
    finish(id, phaseUpdate(PluginRunPhase::cancelling,
                           QStringLiteral("Cancellation requested; awaiting the provider.")));
    sendCancel(run);
}

void ActionRouter::tick(double now) {
    const QList<QUuid> due = collectLiveRuns([&](const ActionRun& run) { return !(run.deadline > now); });
    for (const QUuid& id : due)
        expire(id);
    for (auto it = m_retained.begin(); it != m_retained.end();) {
        if (it->expires > now)
            ++it;
        else
            it = m_retained.erase(it);
    }
}

qsizetype ActionRouter::indexOfRun(const QUuid& id) const {
    const auto found =
        std::find_if(m_runs.begin(), m_runs.end(), [&](const ActionRun& run) { return run.id == id; });
    return found == m_runs.end() ? -1 : found - m_runs.begin();
}

QList<QUuid> ActionRouter::collectLiveRuns(const std::function<bool(const ActionRun&)>& matches) const {
    QList<QUuid> ids;
    for (const ActionRun& run : m_runs) {
        if (run.isLive() && matches(run))
            ids.append(run.id);
    }
    return ids;
}

void ActionRouter::interrupt(const QList<QUuid>& ids, const QString& message,
                             const std::function<bool(const ActionRun&)>& tellProvider) {
    for (const QUuid& id : ids) {
        const qsizetype index = indexOfRun(id);
        if (index < 0 || !m_runs.at(index).isLive())
            continue;
        const ActionRun run = m_runs.at(index);
        if (tellProvider(run))
            sendCancel(run);
        finish(id, phaseUpdate(PluginRunPhase::interrupted, message));
    }
}

void ActionRouter::finish(const QUuid& id, const PluginRunUpdate& update) {
    const qsizetype index = indexOfRun(id);
    // A terminal phase is final, whoever comes late.
    if (index < 0 || !m_runs.at(index).isLive())
        return;
    m_runs[index].update = update;
    notify(id);
    fireChanged();
}

void ActionRouter::notify(const QUuid& id) {
    const qsizetype index = indexOfRun(id);
    if (index < 0)
        return;
    const ActionRun& run = m_runs.at(index);
    // A caller that reconnected under a new session hears nothing of its old runs.
    if (isConnected(run.caller, run.callerSession)) {
        PluginBusMessage message;
        message.operation = Operation::update;
        message.requestID = run.id;
        message.address = run.address;
        message.update = run.update;
        const QString caller = run.caller;
        send(caller, message);
    }
    record(id);
}

void ActionRouter::execute(const QUuid& id) {
    const qsizetype index = indexOfRun(id);
    // Whatever happened inside the callbacks since, only a run still running is handed over;
    // it is sent once, with no acknowledgement and no resend.
    if (index < 0 || m_runs.at(index).phase() != PluginRunPhase::running)
        return;
    m_runs[index].executeSent = true;
    const ActionRun& run = m_runs.at(index);
    PluginBusMessage message;
    message.operation = Operation::execute;
    message.requestID = run.id;
    message.address = run.address;
    message.values = run.arguments;
    const QString provider = run.address.plugin;
    send(provider, message);
}

void ActionRouter::sendCancel(const ActionRun& run) {
    // A provider is told to stop only what it was told to start.
    if (!run.executeSent)
        return;
    PluginBusMessage message;
    message.operation = Operation::cancel;
    message.requestID = run.id;
    send(run.address.plugin, message);
}

void ActionRouter::expire(const QUuid& id) {
    const qsizetype index = indexOfRun(id);
    if (index < 0 || !m_runs.at(index).isLive())
        return;
    const ActionRun run = m_runs.at(index);
    const bool inReview = run.phase() == PluginRunPhase::waitingReview;
    finish(id,
           phaseUpdate(PluginRunPhase::interrupted,
                       inReview ? QStringLiteral("Review expired without execution.")
                                : QStringLiteral("Timed out. Outcome may be unknown; nothing was retried.")));
    // In review the provider knows nothing; in cancelling it has been told already.
    if (run.phase() == PluginRunPhase::running)
        sendCancel(run);
}

void ActionRouter::trim() {
    if (m_runs.size() <= runsBeforeTrimming)
        return;
    QList<ActionRun> ended;
    QList<ActionRun> live;
    for (const ActionRun& run : std::as_const(m_runs))
        (run.isLive() ? live : ended).append(run);
    // Live runs are never dropped; ended ones live on in the history.
    QList<ActionRun> kept = ended.mid(std::max<qsizetype>(0, ended.size() - endedRunsKept));
    kept.append(live);
    m_runs = std::move(kept);
}

} // namespace vell
