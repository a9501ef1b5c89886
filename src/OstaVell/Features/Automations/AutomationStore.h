#pragma once

#include "VellActionRouter/ActionRouter.h"
#include "VellHost/ChildProcess.h"
#include "VellPluginSDK/Actions/PluginBusMessage.h"
#include "VellPluginSDK/ReferenceTime.h"
#include "VellWorkflows/WorkflowExecution.h"
#include "VellWorkflows/WorkflowFiles.h"

#include <QHash>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QTimer>
#include <QUrl>
#include <QUuid>
#include <QVariantList>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>

class QJSEngine;
class QQmlEngine;
class QSocketNotifier;

namespace vell {

class ShellContributions;

class NativePluginSessions;

// The workflow library, the run history and the one run in progress, and the two built-in
// peers through which workflows meet the action router: "Automations", which calls every
// workflow action, offers shared workflows and watches event channels, and "Vell utilities",
// which offers the notice and the shortcut.
//
// The rules here are the safety rules of workflows: one run at a time, no run without its
// history saved first, no run twice, nothing queued, nothing a person did not allow. A run that
// cannot be recorded stops. Main thread only.
class AutomationStore final : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(AutomationStore)
    QML_SINGLETON

    // The library in its order: id, title, start ("manual" or "event"), armed, steps (count).
    Q_PROPERTY(QVariantList documents READ documentsForViews NOTIFY documentsChanged)
    // Runs newest first: id, workflowID, title, phase, statusText, date, endedAt (milliseconds
    // since 1970), detail, completedSteps, steps ([{node, title, phase, detail, progress}]).
    Q_PROPERTY(QVariantList history READ historyForViews NOTIFY historyChanged)
    // The run under way, as one entry of history; empty when none.
    Q_PROPERTY(QVariantMap activeRun READ activeRunForViews NOTIFY historyChanged)
    Q_PROPERTY(bool busy READ busy NOTIFY busyChanged)
    Q_PROPERTY(QString message READ message NOTIFY messageChanged)
    // The title of the review step that waits; empty when none.
    Q_PROPERTY(QString checkpoint READ checkpointTitle NOTIFY checkpointChanged)
    Q_PROPERTY(QString notice READ noticeText NOTIFY noticeChanged)
    // The run's action while it waits for a person: id and title; the plugin store's reviews
    // hold the rest. Empty when none.
    Q_PROPERTY(QVariantMap actionReview READ actionReviewForViews NOTIFY actionReviewChanged)
    // Where the file dialogs of the tab start.
    Q_PROPERTY(QUrl homeFolder READ homeFolder CONSTANT)

public:
    static constexpr QStringView automationsPeer = u"local.ostavell.automations";
    static constexpr QStringView utilitiesPeer = u"local.ostavell.utilities";
    static constexpr qsizetype maximumManualWorkflows = 32;
    static constexpr qsizetype maximumArmed = 32;
    static constexpr qsizetype maximumEvents = 4096;
    static constexpr QStringView recoveryMessage =
        u"Workflow storage needs recovery. The original files were kept.";

    // How long things may take; tests shorten them.
    struct Timing {
        int checkpointMilliseconds = 120000;
        int heartbeatMilliseconds = 5000;
        int shortcutMilliseconds = 125000;
        int killGraceMilliseconds = 2000;
    };

    // Without a directory, "OstaVell/Automations" in the user's data folder.
    explicit AutomationStore(NativePluginSessions& sessions, std::optional<QString> directory = std::nullopt,
                             QObject* parent = nullptr);
    ~AutomationStore() override;
    Q_DISABLE_COPY_MOVE(AutomationStore)

    // Made by the app at start-up, after the plugin store.
    static AutomationStore* instance();
    static void setInstance(AutomationStore* store);
    static AutomationStore* create(QQmlEngine*, QJSEngine*);
    static QString defaultDirectory();
    static QUrl tabView();
    // The tab, the stage views of the built-in choice and of pinned workflows, and the wings
    // of a run under way.
    static void offerViews(ShellContributions& shell);

    Timing timing;
    std::function<double()> clock = &ReferenceTime::now;
    // The runner of shortcuts by name; "ostavell-shortcuts" beside the app by default.
    QString shortcutsProgram;
    // Asks the shell to show a run that someone else started.
    std::function<void()> presentRun;

    // Joins the router as the two peers; once only.
    void start();

    const QList<WorkflowDocument>& documents() const { return m_documents; }
    const QList<WorkflowTimeline>& history() const { return m_history; }
    bool busy() const { return m_busy; }
    const std::optional<QUuid>& resultRun() const { return m_resultRun; }
    const WorkflowExecution::Results& results() const { return m_results; }
    QString message() const { return m_message; }
    const std::optional<QString>& checkpoint() const { return m_checkpoint; }
    const std::optional<QString>& notice() const { return m_notice; }
    const QSet<QUuid>& armed() const { return m_armed; }
    const std::optional<QString>& storageError() const { return m_storageError; }

    // The router's catalogue without our own workflows, so that no workflow calls another.
    QList<PluginCatalogEntry> catalog() const;
    std::optional<WorkflowTimeline> activeRun() const;
    // The run's action while it waits in review.
    std::optional<ActionRun> actionReview() const;

    // Throw ModuleProblem with the sentence to show.
    void save(const WorkflowDocument& document);
    void remove(const QUuid& id);
    void setArmed(const WorkflowDocument& document, bool armed);
    // Starts a run and returns at once; refusals and outcomes land in message.
    void run(const WorkflowDocument& document, bool simulate, const PluginValueMap& event,
             bool eventTriggered, const WorkflowExecution::Results& fixtures, const QUuid& id);
    Q_INVOKABLE void cancel();
    Q_INVOKABLE void continueCheckpoint();

    // The id the automations peer offers a workflow under; a new one for every change of it.
    static QString actionID(const WorkflowDocument& document);

    // The tab. Each answers the failure's sentence, or an empty text.
    Q_INVOKABLE void runWorkflow(const QString& id, bool simulate);
    Q_INVOKABLE QString arm(const QString& id, bool armed);
    Q_INVOKABLE QString removeWorkflow(const QString& id);
    Q_INVOKABLE QString importWorkflow(const QUrl& file);
    Q_INVOKABLE QString exportWorkflow(const QString& id, const QUrl& file);
    Q_INVOKABLE QString exportScript(const QString& id, const QUrl& file);
    Q_INVOKABLE void dismissNotice();

signals:
    void documentsChanged();
    void historyChanged();
    void busyChanged();
    void messageChanged();
    void checkpointChanged();
    void noticeChanged();
    void actionReviewChanged();

private:
    // The action of the run in flight, watched on every change of the router.
    struct PendingAction {
        QUuid id;
        WorkflowExecution::ActionReply reply;
        bool shared = false;
    };
    struct ShortcutRun {
        std::unique_ptr<ChildProcess> child;
        QSocketNotifier* exit = nullptr;
        QTimer* watchdog = nullptr;
        bool terminated = false;
    };

    void load();
    void setMessage(const QString& message);
    void setBusy(bool busy);
    void publishDocuments(QList<WorkflowDocument> documents);
    double now() const { return clock(); }
    void send(QStringView from, const PluginBusMessage& message);
    PluginBusMessage workflowRegistration() const;
    void registerWorkflows();
    void refreshSubscriptions();
    const WorkflowNode* eventStart(const WorkflowDocument& document) const;
    std::optional<QString> refusal(const WorkflowDocument& document, bool simulate, bool eventTriggered,
                                   const QUuid& id) const;
    void begin(const WorkflowDocument& document, bool simulate, const PluginValueMap& event,
               const WorkflowExecution::Results& fixtures, const QUuid& id);
    void ended(const QUuid& id, std::exception_ptr error);
    void timelineChanged(const WorkflowTimeline& timeline);

    // The two callbacks of a run.
    void execute(const WorkflowNode& node, const PluginValueMap& values,
                 WorkflowExecution::ActionReply reply);
    void watchAction();
    void review(const WorkflowNode& node, WorkflowExecution::ReviewReply reply);

    // Shared runs, started through the bus.
    PluginRunUpdate sharedUpdate(const WorkflowTimeline& timeline) const;
    void sendUpdate(const QUuid& id, const PluginRunUpdate& update);
    void completeShared(const QUuid& id, PluginRunPhase phase);

    // The peers' traffic.
    void receive(const PluginBusMessage& message);
    void receiveCatalog();
    void receiveEvent(const PluginBusMessage& message);
    void utility(const PluginBusMessage& message);
    void startShortcut(const QUuid& id, const QString& name);
    void shortcutEnded(const QUuid& id);
    void sendUtilityResult(const QUuid& id, const QString& name, PluginRunPhase phase, const QString& words);

    std::optional<WorkflowDocument> document(const QString& id) const;

    QVariantList documentsForViews() const;
    QVariantList historyForViews() const;
    QVariantMap activeRunForViews() const;
    QString checkpointTitle() const { return m_checkpoint.value_or(QString()); }
    QString noticeText() const { return m_notice.value_or(QString()); }
    QVariantMap actionReviewForViews() const;
    static QUrl homeFolder();

    NativePluginSessions& m_sessions;
    ActionRouter& m_router;
    QList<WorkflowDocument> m_documents;
    QList<WorkflowTimeline> m_history;
    bool m_busy = false;
    std::optional<QUuid> m_resultRun;
    WorkflowExecution::Results m_results;
    QString m_message = QStringLiteral("Build a workflow, simulate it, then run it.");
    std::optional<QString> m_checkpoint;
    std::optional<QString> m_notice;
    QSet<QUuid> m_armed;

    WorkflowFiles m_files;
    std::shared_ptr<WorkflowExecution> m_execution;
    std::optional<PendingAction> m_action;
    WorkflowExecution::ReviewReply m_checkpointReply;
    QTimer m_checkpointTimer;
    QTimer m_heartbeat;
    QSet<PluginActionAddress> m_subscriptions;
    QSet<QUuid> m_events;
    QHash<QUuid, QUuid> m_sharedRuns;
    QHash<QUuid, int> m_sharedStepCounts;
    std::map<QUuid, ShortcutRun> m_shortcuts;
    bool m_started = false;
    std::optional<QString> m_storageError;
    bool m_actionWaitsForReview = false;
};

} // namespace vell
