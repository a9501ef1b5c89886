// The store as two peers of the router: the executor and the shared runs of the automations
// peer, the event watch, and the utilities' notice and shortcut.

#include "OstaVell/Features/Automations/AutomationStore.h"
#include "VellHost/Plugins/NativePluginSessions.h"
#include "VellHost/ShortcutsCommand.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/wait.h>

namespace vell {

namespace {

using Operation = PluginBusMessage::Operation;

QString cut(const QString& text, int characters) {
    return TextMetrics::leftCharacters(text, characters);
}

std::optional<QString> nonEmpty(const QString& text) {
    return text.isEmpty() ? std::nullopt : std::optional<QString>(text);
}

} // namespace

void AutomationStore::execute(const WorkflowNode& node, const PluginValueMap& values,
                              WorkflowExecution::ActionReply reply) {
    const WorkflowNode::Configuration& data = node.data;
    if (!data.address || !data.action ||
        !catalog().contains(PluginCatalogEntry{*data.address, data.action, std::nullopt}))
        return reply(std::make_exception_ptr(
            ModuleProblem(QStringLiteral("This module action changed or disconnected."))));
    PluginBusMessage invoke;
    invoke.operation = Operation::invoke;
    invoke.requestID = QUuid::createUuid();
    invoke.address = data.address;
    invoke.values = values;
    const QUuid runID = m_execution->timeline().id;
    m_action = PendingAction{invoke.requestID, std::move(reply), m_sharedRuns.contains(runID)};
    send(automationsPeer, invoke);
    const bool routed = std::any_of(m_router.runs().cbegin(), m_router.runs().cend(),
                                    [&](const ActionRun& run) { return run.id == invoke.requestID; });
    if (!routed) {
        const WorkflowExecution::ActionReply refused = std::exchange(m_action, std::nullopt)->reply;
        return refused(std::make_exception_ptr(
            ModuleProblem(QStringLiteral("Action access is missing or has changed. Nothing was run."))));
    }
    if (m_action->shared) {
        // None sent yet counts as long ago.
        sendUpdate(runID, sharedUpdate(m_execution->timeline()));
        m_heartbeat.start(timing.heartbeatMilliseconds);
    }
    watchAction();
}

void AutomationStore::watchAction() {
    const bool reviewing = actionReview().has_value();
    if (std::exchange(m_actionWaitsForReview, reviewing) != reviewing)
        emit actionReviewChanged();
    if (!m_action)
        return;
    const auto found = std::find_if(m_router.runs().cbegin(), m_router.runs().cend(),
                                    [&](const ActionRun& run) { return run.id == m_action->id; });
    if (found == m_router.runs().cend()) {
        m_heartbeat.stop();
        const WorkflowExecution::ActionReply reply = std::exchange(m_action, std::nullopt)->reply;
        return reply(
            std::make_exception_ptr(ModuleProblem(QStringLiteral("The action result is unavailable."))));
    }
    const PluginRunUpdate update = found->update;
    if (!isTerminal(update.phase)) {
        if (m_execution)
            m_execution->report(pluginRunPhaseName(update.phase), nonEmpty(update.message), update.progress);
        return;
    }
    m_heartbeat.stop();
    const WorkflowExecution::ActionReply reply = std::exchange(m_action, std::nullopt)->reply;
    if (update.phase == PluginRunPhase::succeeded) {
        if (m_execution)
            m_execution->report(WorkflowTimeline::running,
                                update.message.isEmpty() ? QStringLiteral("Action finished") : update.message,
                                update.progress);
        return reply(update.values);
    }
    reply(std::make_exception_ptr(WorkflowActionFailure(
        update.phase,
        update.message.isEmpty() ? QStringLiteral("Action did not complete.") : update.message)));
}

PluginRunUpdate AutomationStore::sharedUpdate(const WorkflowTimeline& timeline) const {
    PluginRunUpdate update;
    update.phase = PluginRunPhase::running;
    const WorkflowTimeline::Step* last = timeline.steps.isEmpty() ? nullptr : &timeline.steps.constLast();
    QString words = timeline.statusText();
    if (last && !last->detail.value_or(QString()).isEmpty())
        words += QStringLiteral(" \u00B7 ") + *last->detail;
    update.message = cut(words, PluginRunUpdate::maximumMessageCharacters);
    PluginRunDisplay display;
    display.title = cut(timeline.title, PluginRunDisplay::maximumTitleCharacters);
    display.step = last ? cut(last->title, PluginRunDisplay::maximumTitleCharacters) : QString();
    display.detail =
        last ? cut(last->detail.value_or(QString()), PluginRunDisplay::maximumDetailCharacters) : QString();
    display.completedSteps = timeline.completedSteps();
    display.totalSteps = m_sharedStepCounts.value(timeline.id, int(timeline.steps.size()));
    display.needsReview = last && last->phase == WorkflowTimeline::waitingReview;
    update.display = display;
    return update;
}

void AutomationStore::sendUpdate(const QUuid& id, const PluginRunUpdate& update) {
    PluginBusMessage message;
    message.operation = Operation::update;
    message.requestID = id;
    message.update = update;
    send(automationsPeer, message);
}

void AutomationStore::completeShared(const QUuid& id, PluginRunPhase phase) {
    if (!m_sharedRuns.remove(id))
        return;
    m_sharedStepCounts.remove(id);
    PluginRunUpdate update;
    update.phase = phase;
    update.message = cut(m_message, PluginRunUpdate::maximumMessageCharacters);
    for (auto timeline = m_history.crbegin(); timeline != m_history.crend(); ++timeline) {
        if (timeline->id == id) {
            update.display = sharedUpdate(*timeline).display;
            break;
        }
    }
    sendUpdate(id, update);
}

void AutomationStore::receive(const PluginBusMessage& message) {
    switch (message.operation) {
    case Operation::execute: {
        const QString name = message.address ? message.address->name : QString();
        for (const WorkflowDocument& document : std::as_const(m_documents)) {
            if (actionID(document) != name)
                continue;
            m_sharedRuns.insert(message.requestID, document.id);
            m_sharedStepCounts.insert(message.requestID, int(document.nodes.size()));
            // A repeated request id meets the "already handled" test, so no shared run happens twice.
            return run(document, false, {}, false, {}, message.requestID);
        }
        // Unknown to us: the caller hears at once.
        m_sharedRuns.insert(message.requestID, QUuid());
        return completeShared(message.requestID, PluginRunPhase::failed);
    }
    case Operation::catalog:
        if (message.complete.value_or(false))
            receiveCatalog();
        return;
    case Operation::cancel:
        if (m_execution && m_execution->timeline().id == message.requestID)
            cancel();
        return;
    case Operation::event:
        return receiveEvent(message);
    default:
        return;
    }
}

void AutomationStore::receiveCatalog() {
    const QList<PluginCatalogEntry> entries = catalog();
    QSet<QUuid> kept;
    for (const WorkflowDocument& document : std::as_const(m_documents)) {
        if (!m_armed.contains(document.id))
            continue;
        const WorkflowNode* start = eventStart(document);
        const PluginCatalogEntry entry{*start->data.address, std::nullopt, start->data.channel};
        if (entries.contains(entry) && m_router.allowed(automationsPeer.toString(), entry))
            kept.insert(document.id);
    }
    if (kept == m_armed)
        return;
    m_armed = kept;
    emit documentsChanged();
    refreshSubscriptions();
    setMessage(QStringLiteral("Event watching stopped because a module or permission changed."));
}

void AutomationStore::receiveEvent(const PluginBusMessage& message) {
    if (!message.address || !m_subscriptions.contains(*message.address) || m_events.size() >= maximumEvents)
        return;
    // A replayed event never runs again.
    if (m_events.contains(message.requestID))
        return;
    m_events.insert(message.requestID);
    if (m_busy)
        return setMessage(QStringLiteral("An event arrived during a run; it was not queued or replayed."));
    for (const WorkflowDocument& document : std::as_const(m_documents)) {
        const WorkflowNode* start = eventStart(document);
        if (m_armed.contains(document.id) && start && *start->data.address == *message.address)
            return run(document, false, message.values.value_or(PluginValueMap()), true, {},
                       QUuid::createUuid());
    }
}

void AutomationStore::utility(const PluginBusMessage& message) {
    const QString name = message.address ? message.address->name : QString();
    const PluginValueMap values = message.values.value_or(PluginValueMap());
    if (message.operation == Operation::execute && name == u"notice") {
        const auto text = values.constFind(QStringLiteral("message"));
        // Without the text nothing is answered, and the router's deadline ends the run.
        if (text == values.cend() || text->kind() != PluginValue::Kind::string)
            return;
        m_notice = text->text();
        emit noticeChanged();
        return sendUtilityResult(message.requestID, name, PluginRunPhase::succeeded, QString());
    }
    if (message.operation == Operation::execute && name == u"shortcut") {
        const auto shortcut = values.constFind(QStringLiteral("name"));
        if (shortcut != values.cend() && shortcut->kind() == PluginValue::Kind::string &&
            !shortcut->text().isEmpty())
            startShortcut(message.requestID, shortcut->text());
        return;
    }
    if (message.operation == Operation::cancel) {
        const auto found = m_shortcuts.find(message.requestID);
        if (found == m_shortcuts.end() || found->second.terminated)
            return;
        found->second.terminated = true;
        found->second.child->signal(SIGTERM);
        found->second.watchdog->start(timing.killGraceMilliseconds);
    }
}

void AutomationStore::sendUtilityResult(const QUuid& id, const QString& name, PluginRunPhase phase,
                                        const QString& words) {
    PluginBusMessage answer;
    answer.operation = Operation::update;
    answer.requestID = id;
    answer.address = PluginActionAddress{utilitiesPeer.toString(), name};
    PluginRunUpdate update;
    update.phase = phase;
    update.message = words;
    answer.update = update;
    send(utilitiesPeer, answer);
}

void AutomationStore::startShortcut(const QUuid& id, const QString& name) {
    std::unique_ptr<ChildProcess> child =
        ChildProcess::start(ShortcutsCommand::runOptions(shortcutsProgram, name));
    if (!child || child->exitDescriptor() < 0)
        return sendUtilityResult(id, QStringLiteral("shortcut"), PluginRunPhase::failed,
                                 QStringLiteral("The Shortcut could not start."));
    ShortcutRun& run = m_shortcuts[id];
    run.child = std::move(child);
    run.exit = new QSocketNotifier(run.child->exitDescriptor(), QSocketNotifier::Read, this);
    connect(run.exit, &QSocketNotifier::activated, this, [this, id] { shortcutEnded(id); });
    // First a request to stop, then, if it is ignored, the end.
    run.watchdog = new QTimer(this);
    run.watchdog->setSingleShot(true);
    connect(run.watchdog, &QTimer::timeout, this, [this, id] {
        const auto found = m_shortcuts.find(id);
        if (found == m_shortcuts.end())
            return;
        if (!found->second.terminated) {
            found->second.terminated = true;
            found->second.child->signal(SIGTERM);
            found->second.watchdog->start(timing.killGraceMilliseconds);
        } else {
            found->second.child->signal(SIGKILL);
        }
    });
    run.watchdog->start(timing.shortcutMilliseconds);
}

void AutomationStore::shortcutEnded(const QUuid& id) {
    const auto found = m_shortcuts.find(id);
    if (found == m_shortcuts.end())
        return;
    ShortcutRun run = std::move(found->second);
    m_shortcuts.erase(found);
    // The watch ends here, not at its deletion: the child's descriptor closes with the child
    // below, and its number may be reused before the deletion comes.
    run.exit->setEnabled(false);
    run.exit->deleteLater();
    run.watchdog->deleteLater();
    const int status = run.child->wait();
    const bool succeeded = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    sendUtilityResult(id, QStringLiteral("shortcut"),
                      succeeded ? PluginRunPhase::succeeded : PluginRunPhase::failed,
                      succeeded ? QStringLiteral("Shortcut finished")
                                : QStringLiteral("Shortcut stopped or failed; previous effects may remain."));
}

} // namespace vell
