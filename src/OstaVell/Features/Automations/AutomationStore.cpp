#include "OstaVell/Features/Automations/AutomationStore.h"

#include "OstaVell/Support/ShellContributions.h"
#include "VellHost/Plugins/NativePluginSessions.h"
#include "VellHost/ShortcutsCommand.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QCryptographicHash>
#include <QDir>
#include <QJSEngine>
#include <QJsonDocument>
#include <QPointer>
#include <QStandardPaths>

#include <algorithm>

namespace vell {

namespace {

AutomationStore* sharedStore = nullptr;

using Kind = WorkflowNode::Configuration::Kind;

bool hasKind(const WorkflowDocument& document, Kind kind) {
    return std::any_of(document.nodes.cbegin(), document.nodes.cend(),
                       [kind](const WorkflowNode& node) { return node.data.kind == kind; });
}

} // namespace

AutomationStore::AutomationStore(NativePluginSessions& sessions, std::optional<QString> directory,
                                 QObject* parent)
    : QObject(parent)
    , m_sessions(sessions)
    , m_router(sessions.router())
    , m_files(directory.value_or(defaultDirectory())) {
    shortcutsProgram = ShortcutsCommand::defaultProgram();
    m_checkpointTimer.setSingleShot(true);
    connect(&m_checkpointTimer, &QTimer::timeout, this, [this] {
        if (m_execution && m_checkpoint)
            cancel();
    });
    connect(&m_heartbeat, &QTimer::timeout, this, [this] {
        if (m_execution && m_action && m_action->shared)
            sendUpdate(m_execution->timeline().id, sharedUpdate(m_execution->timeline()));
    });
    // A run's action is watched on the router's changes, after the change is complete.
    connect(&sessions, &NativePluginSessions::routerChanged, this, &AutomationStore::watchAction,
            Qt::QueuedConnection);
    load();
}

AutomationStore::~AutomationStore() {
    if (sharedStore == this)
        sharedStore = nullptr;
    // A checkpoint still waiting ends as cancelled; its run is gone with us.
    if (WorkflowExecution::ReviewReply reply = std::exchange(m_checkpointReply, nullptr))
        reply(std::make_exception_ptr(WorkflowCancellation()));
}

AutomationStore* AutomationStore::instance() {
    return sharedStore;
}

void AutomationStore::setInstance(AutomationStore* store) {
    sharedStore = store;
}

AutomationStore* AutomationStore::create(QQmlEngine*, QJSEngine*) {
    AutomationStore* store = instance();
    QJSEngine::setObjectOwnership(store, QJSEngine::CppOwnership);
    return store;
}

QString AutomationStore::defaultDirectory() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/OstaVell/Automations");
}

QUrl AutomationStore::tabView() {
    return QUrl(QStringLiteral("qrc:/qt/qml/OstaVell/Automations/qml/AutomationsView.qml"));
}

void AutomationStore::offerViews(ShellContributions& shell) {
    const auto view = [](const char* file) {
        return QUrl(QStringLiteral("qrc:/qt/qml/OstaVell/Automations/qml/") + QLatin1String(file));
    };
    shell.offerTab(NotchTab::tools, QStringLiteral("Workflows"), tabView());
    shell.offerStageView(QStringLiteral("builtin:automations"), tabView());
    shell.offerStageView(QStringLiteral("workflow"), tabView());
    shell.offerWing(QStringLiteral("automation.left"), view("AutomationWingLeft.qml"));
    shell.offerWing(QStringLiteral("automation.right"), view("AutomationWingRight.qml"));
}

void AutomationStore::load() {
    // The library first; a failure anywhere leaves what loaded before it, and nothing more.
    try {
        m_documents = m_files.load();
        m_history = m_files.history(now());
        // The repair of cut-short runs is on disk before anything else happens.
        m_files.saveHistory(m_history);
    } catch (const ModuleProblem&) {
        m_history.clear();
        m_storageError = recoveryMessage.toString();
        m_message = *m_storageError;
    }
}

void AutomationStore::setMessage(const QString& message) {
    if (m_message == message)
        return;
    m_message = message;
    emit messageChanged();
}

void AutomationStore::setBusy(bool busy) {
    if (m_busy == busy)
        return;
    m_busy = busy;
    emit busyChanged();
}

void AutomationStore::send(QStringView from, const PluginBusMessage& message) {
    m_router.receive(message, from.toString(), now());
}

QString AutomationStore::actionID(const WorkflowDocument& document) {
    // Sorted keys, so the same document always hashes the same.
    const QByteArray sorted = QJsonDocument(document.toJson()).toJson(QJsonDocument::Compact);
    const QByteArray digest = QCryptographicHash::hash(sorted, QCryptographicHash::Sha256).left(8).toHex();
    return QStringLiteral("flow_") + document.id.toString(QUuid::Id128) + u'_' + QString::fromLatin1(digest);
}

PluginBusMessage AutomationStore::workflowRegistration() const {
    PluginRegistration registration;
    for (const WorkflowDocument& document : m_documents) {
        if (registration.actions.size() == maximumManualWorkflows)
            break;
        if (!hasKind(document, Kind::manual))
            continue;
        PluginRegisteredAction action;
        action.id = actionID(document);
        action.title = TextMetrics::leftCharacters(QStringLiteral("Run ") + document.title,
                                                   PluginRegisteredAction::maximumTitleCharacters);
        action.effect = PluginRegisteredAction::Effect::localChange;
        action.cancellable = true;
        action.timeoutSeconds = 300;
        action.completionTimeoutSeconds = 86400;
        registration.actions.append(action);
    }
    PluginBusMessage message;
    message.operation = PluginBusMessage::Operation::register_;
    message.requestID = QUuid::createUuid();
    message.registration = registration;
    return message;
}

void AutomationStore::registerWorkflows() {
    if (m_started)
        send(automationsPeer, workflowRegistration());
}

void AutomationStore::start() {
    if (m_started)
        return;
    m_started = true;
    const QPointer<AutomationStore> self(this);
    m_sessions.joinLocal(
        automationsPeer.toString(), QStringLiteral("Automations"), QStringLiteral("workflow-engine-v1"),
        [self](const PluginBusMessage& message) {
            if (self)
                self->receive(message);
        },
        workflowRegistration());

    const auto text = [](const QString& name) {
        return PluginValueSchema{{{name, PluginParameter::Kind::string, true, std::nullopt, std::nullopt}}};
    };
    PluginRegisteredAction notice{QStringLiteral("notice"),
                                  QStringLiteral("Show a notice in the Vell"),
                                  text(QStringLiteral("message")),
                                  {},
                                  PluginRegisteredAction::Effect::localChange,
                                  false,
                                  30,
                                  std::nullopt};
    PluginRegisteredAction shortcut{QStringLiteral("shortcut"),
                                    QStringLiteral("Run a Shortcut"),
                                    text(QStringLiteral("name")),
                                    {},
                                    PluginRegisteredAction::Effect::externalChange,
                                    true,
                                    120,
                                    std::nullopt};
    PluginBusMessage utilities;
    utilities.operation = PluginBusMessage::Operation::register_;
    utilities.requestID = QUuid::createUuid();
    utilities.registration = PluginRegistration{{notice, shortcut}, {}};
    m_sessions.joinLocal(
        utilitiesPeer.toString(), QStringLiteral("Vell utilities"), QStringLiteral("workflow-utilities-v1"),
        [self](const PluginBusMessage& message) {
            if (self)
                self->utility(message);
        },
        utilities);
}

QList<PluginCatalogEntry> AutomationStore::catalog() const {
    QList<PluginCatalogEntry> entries = m_router.exported();
    entries.removeIf([](const PluginCatalogEntry& entry) { return entry.address.plugin == automationsPeer; });
    return entries;
}

std::optional<WorkflowTimeline> AutomationStore::activeRun() const {
    for (auto timeline = m_history.crbegin(); timeline != m_history.crend(); ++timeline)
        if (timeline->isActive())
            return *timeline;
    return std::nullopt;
}

std::optional<ActionRun> AutomationStore::actionReview() const {
    if (!m_action)
        return std::nullopt;
    for (const ActionRun& run : m_router.runs())
        if (run.id == m_action->id && run.phase() == PluginRunPhase::waitingReview)
            return run;
    return std::nullopt;
}

std::optional<WorkflowDocument> AutomationStore::document(const QString& id) const {
    const QUuid uuid(id);
    for (const WorkflowDocument& document : m_documents)
        if (document.id == uuid)
            return document;
    return std::nullopt;
}

void AutomationStore::publishDocuments(QList<WorkflowDocument> documents) {
    m_documents = std::move(documents);
    emit documentsChanged();
}

void AutomationStore::save(const WorkflowDocument& document) {
    if (m_storageError)
        throw ModuleProblem(*m_storageError);
    const int titleLength = TextMetrics::characterCount(document.title);
    if (document.schemaVersion != WorkflowDocument::currentSchemaVersion || titleLength == 0 ||
        titleLength > WorkflowDocument::maximumTitleCharacters ||
        document.nodes.size() > WorkflowDocument::maximumNodes ||
        document.edges.size() > WorkflowDocument::maximumEdges)
        throw ModuleProblem(QStringLiteral("Invalid workflow size or title."));
    // Saving moves a document to the end of the library.
    QList<WorkflowDocument> library;
    for (const WorkflowDocument& other : std::as_const(m_documents))
        if (other.id != document.id)
            library.append(other);
    library.append(document);
    if (std::count_if(library.cbegin(), library.cend(), [](const WorkflowDocument& each) {
            return hasKind(each, Kind::manual);
        }) > maximumManualWorkflows)
        throw ModuleProblem(QStringLiteral("This preview supports up to 32 shared manual workflows."));
    m_files.save(library);
    publishDocuments(library);
    // What was armed was judged as it stood; a changed document is armed again by hand.
    m_armed.remove(document.id);
    refreshSubscriptions();
    registerWorkflows();
    setMessage(QStringLiteral("Saved ") + document.title);
}

void AutomationStore::remove(const QUuid& id) {
    if (m_storageError)
        throw ModuleProblem(*m_storageError);
    QList<WorkflowDocument> library = m_documents;
    library.removeIf([&](const WorkflowDocument& document) { return document.id == id; });
    if (library.size() == m_documents.size())
        return;
    m_files.save(library);
    publishDocuments(library);
    m_armed.remove(id);
    refreshSubscriptions();
    registerWorkflows();
}

const WorkflowNode* AutomationStore::eventStart(const WorkflowDocument& document) const {
    for (const WorkflowNode& node : document.nodes)
        if (node.data.kind == Kind::event && node.data.address)
            return &node;
    return nullptr;
}

void AutomationStore::setArmed(const WorkflowDocument& document, bool armed) {
    if (!armed) {
        if (m_armed.remove(document.id)) {
            refreshSubscriptions();
            emit documentsChanged();
        }
        return;
    }
    if (!m_armed.contains(document.id) && m_armed.size() >= maximumArmed)
        throw ModuleProblem(QStringLiteral("Up to 32 event workflows can be armed."));
    document.validate(catalog());
    const WorkflowNode* start = eventStart(document);
    if (!start ||
        !m_router.allowed(automationsPeer.toString(),
                          PluginCatalogEntry{*start->data.address, std::nullopt, start->data.channel}))
        throw ModuleProblem(QStringLiteral(
            "Choose an event start and allow Automations to receive that event in Module settings."));
    for (const WorkflowDocument& other : std::as_const(m_documents)) {
        if (other.id == document.id || !m_armed.contains(other.id))
            continue;
        if (const WorkflowNode* otherStart = eventStart(other);
            otherStart && *otherStart->data.address == *start->data.address)
            throw ModuleProblem(QStringLiteral(
                "This preview watches one workflow per event channel. Disarm the other workflow first."));
    }
    if (m_events.size() >= maximumEvents)
        throw ModuleProblem(QStringLiteral("The event limit was reached. Restart before arming again."));
    m_armed.insert(document.id);
    refreshSubscriptions();
    emit documentsChanged();
}

void AutomationStore::refreshSubscriptions() {
    QSet<PluginActionAddress> wanted;
    for (const WorkflowDocument& document : std::as_const(m_documents))
        if (m_armed.contains(document.id))
            if (const WorkflowNode* start = eventStart(document))
                wanted.insert(*start->data.address);
    const auto request = [this](PluginBusMessage::Operation operation, const PluginActionAddress& address) {
        PluginBusMessage message;
        message.operation = operation;
        message.requestID = QUuid::createUuid();
        message.address = address;
        send(automationsPeer, message);
    };
    const QSet<PluginActionAddress> current = m_subscriptions;
    for (const PluginActionAddress& address : current)
        if (!wanted.contains(address))
            request(PluginBusMessage::Operation::unsubscribe, address);
    for (const PluginActionAddress& address : std::as_const(wanted))
        if (!current.contains(address))
            request(PluginBusMessage::Operation::subscribe, address);
    m_subscriptions = wanted;
}

std::optional<QString> AutomationStore::refusal(const WorkflowDocument& document, bool simulate,
                                                bool eventTriggered, const QUuid& id) const {
    const bool callerBusy =
        std::any_of(m_router.runs().cbegin(), m_router.runs().cend(),
                    [](const ActionRun& run) { return run.caller == automationsPeer && run.isLive(); });
    if (m_busy || callerBusy || m_storageError)
        return m_storageError.value_or(QStringLiteral("A workflow is already running."));
    if (std::any_of(m_history.cbegin(), m_history.cend(),
                    [&](const WorkflowTimeline& run) { return run.id == id; }))
        return QStringLiteral("This run was already handled. Nothing was repeated.");
    try {
        document.validate(catalog());
    } catch (const ModuleProblem& problem) {
        return problem.message();
    }
    if (simulate)
        return std::nullopt;
    if (!eventTriggered && hasKind(document, Kind::event))
        return QStringLiteral("Arm this event workflow, or simulate it with recorded inputs.");
    for (const WorkflowNode& node : document.nodes) {
        if (node.data.kind != Kind::action)
            continue;
        if (!m_router.allowed(automationsPeer.toString(),
                              PluginCatalogEntry{*node.data.address, node.data.action, std::nullopt}))
            return QStringLiteral("Allow Automations to use %1 in Settings \u2192 Modules \u2192 Actions and "
                                  "connections.")
                .arg(node.data.title);
    }
    return std::nullopt;
}

void AutomationStore::run(const WorkflowDocument& document, bool simulate, const PluginValueMap& event,
                          bool eventTriggered, const WorkflowExecution::Results& fixtures, const QUuid& id) {
    if (const std::optional<QString> refused = refusal(document, simulate, eventTriggered, id)) {
        setMessage(*refused);
        completeShared(id, PluginRunPhase::failed);
        return;
    }
    setBusy(true);
    m_execution = WorkflowExecution::create(id, document, clock);
    m_resultRun = id;
    m_results.clear();
    // No run without its record: the first timeline is on disk before anything starts.
    try {
        QList<WorkflowTimeline> history = m_history;
        history.append(m_execution->timeline());
        m_files.saveHistory(history);
    } catch (const ModuleProblem&) {
        m_execution.reset();
        setBusy(false);
        setMessage(QStringLiteral("Run history could not be saved. Nothing was started."));
        completeShared(id, PluginRunPhase::failed);
        return;
    }
    m_history.append(m_execution->timeline());
    emit historyChanged();
    if (!simulate && (m_sharedRuns.contains(id) || eventTriggered) && presentRun)
        presentRun();
    m_execution->changed = [this](const WorkflowTimeline& timeline) { timelineChanged(timeline); };
    setMessage(simulate ? QStringLiteral("Simulating \u00B7 no actions will run")
                        : QStringLiteral("Running ") + document.title);
    begin(document, simulate, event, fixtures, id);
}

void AutomationStore::begin(const WorkflowDocument& document, bool simulate, const PluginValueMap& event,
                            const WorkflowExecution::Results& fixtures, const QUuid& id) {
    WorkflowExecution::Request request{document, catalog(), event, simulate, fixtures, {}, {}};
    const QPointer<AutomationStore> self(this);
    request.execute = [self](const WorkflowNode& node, const PluginValueMap& values,
                             WorkflowExecution::ActionReply reply) {
        if (self)
            self->execute(node, values, std::move(reply));
        else
            reply(std::make_exception_ptr(WorkflowCancellation()));
    };
    request.review = [self](const WorkflowNode& node, WorkflowExecution::ReviewReply reply) {
        if (self)
            self->review(node, std::move(reply));
        else
            reply(std::make_exception_ptr(WorkflowCancellation()));
    };
    // The run begins on its own turn of the event loop, so that whoever asked for it, the bus
    // included, has finished what it was doing.
    QTimer::singleShot(0, this, [this, execution = m_execution, request = std::move(request), id]() mutable {
        execution->run(std::move(request),
                       [self = QPointer<AutomationStore>(this), id](std::exception_ptr error) {
                           if (self)
                               self->ended(id, error);
                       });
    });
}

void AutomationStore::ended(const QUuid& id, std::exception_ptr error) {
    const bool simulated = m_execution && m_execution->timeline().phase == WorkflowTimeline::simulated;
    PluginRunPhase phase = PluginRunPhase::succeeded;
    if (!error) {
        setMessage(simulated ? QStringLiteral("Simulation completed. No actions ran.")
                             : QStringLiteral("Workflow completed"));
    } else {
        const WorkflowTimeline& timeline = m_execution->timeline();
        setMessage(timeline.detail.value_or(WorkflowExecution::describe(error)));
        phase = pluginRunPhaseFromName(timeline.phase).value_or(PluginRunPhase::failed);
    }
    completeShared(id, phase);
    m_action.reset();
    m_heartbeat.stop();
    m_execution.reset();
    m_checkpointTimer.stop();
    m_checkpointReply = nullptr;
    if (std::exchange(m_checkpoint, std::nullopt))
        emit checkpointChanged();
    setBusy(false);
    emit actionReviewChanged();
}

void AutomationStore::timelineChanged(const WorkflowTimeline& timeline) {
    m_history.removeIf([&](const WorkflowTimeline& run) { return run.id == timeline.id; });
    m_history.append(timeline);
    if (m_history.size() > WorkflowFiles::maximumTimelines)
        m_history.remove(0, m_history.size() - WorkflowFiles::maximumTimelines);
    emit historyChanged();
    if (m_execution)
        m_results = m_execution->results();
    if (m_sharedRuns.contains(timeline.id) && timeline.isActive())
        sendUpdate(timeline.id, sharedUpdate(timeline));
    try {
        m_files.saveHistory(m_history);
    } catch (const ModuleProblem&) {
        // A run is never allowed to go on unrecorded.
        if (m_execution && !m_execution->cancelled())
            cancel();
        setMessage(QStringLiteral("History could not be saved; execution is stopping."));
    }
}

void AutomationStore::cancel() {
    if (m_execution)
        m_execution->cancel();
    if (m_action) {
        try {
            m_router.cancel(m_action->id, now());
        } catch (const ModuleProblem&) {
        }
    }
    if (WorkflowExecution::ReviewReply reply = std::exchange(m_checkpointReply, nullptr))
        reply(std::make_exception_ptr(WorkflowCancellation()));
    m_checkpointTimer.stop();
    if (std::exchange(m_checkpoint, std::nullopt))
        emit checkpointChanged();
}

void AutomationStore::continueCheckpoint() {
    m_checkpointTimer.stop();
    if (std::exchange(m_checkpoint, std::nullopt))
        emit checkpointChanged();
    if (WorkflowExecution::ReviewReply reply = std::exchange(m_checkpointReply, nullptr))
        reply(nullptr);
}

void AutomationStore::review(const WorkflowNode& node, WorkflowExecution::ReviewReply reply) {
    m_checkpoint = node.data.title;
    m_checkpointReply = std::move(reply);
    // An unanswered checkpoint stops the run; it never goes on by itself.
    m_checkpointTimer.start(timing.checkpointMilliseconds);
    emit checkpointChanged();
}

} // namespace vell
