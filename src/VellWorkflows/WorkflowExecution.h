#pragma once

#include "VellPluginSDK/Actions/PluginCatalogEntry.h"
#include "VellPluginSDK/Actions/PluginRunPhase.h"
#include "VellPluginSDK/Actions/PluginValue.h"
#include "VellWorkflows/WorkflowDocument.h"
#include "VellWorkflows/WorkflowTimeline.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <QUuid>

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <variant>

namespace vell {

// An action that ended without success, in the words and phase its run ended with.
class WorkflowActionFailure final : public std::exception {
public:
    WorkflowActionFailure(PluginRunPhase phase, QString message);

    PluginRunPhase phase() const noexcept { return m_phase; }
    const QString& message() const noexcept { return m_message; }
    const char* what() const noexcept override { return m_utf8.constData(); }

private:
    PluginRunPhase m_phase;
    QString m_message;
    QByteArray m_utf8;
};

// The run was stopped before its end.
class WorkflowCancellation final : public std::exception {
public:
    const char* what() const noexcept override { return "Workflow stopped."; }
};

// Walks one workflow from its start to the end of its branch, one step after the other, and
// records each change in its timeline before anything else happens: the owner saves every
// change it hears, so what is on disk is always ahead of any effect. It acts only through the
// two callbacks it is handed, and not at all in a simulation. Nothing is retried and nothing
// undone: a failure ends the run at the step where it happened.
//
// Main thread only. A callback answers through the reply it was given, at once or later; an
// answer after the run has ended, a second answer, or one for an execution that is gone does
// nothing.
class WorkflowExecution final : public std::enable_shared_from_this<WorkflowExecution> {
public:
    using Results = QMap<QString, PluginValueMap>;
    // The outputs of an action, or why it has none.
    using ActionReply = std::function<void(std::variant<PluginValueMap, std::exception_ptr> outcome)>;
    using Execute =
        std::function<void(const WorkflowNode& node, const PluginValueMap& values, ActionReply reply)>;
    // Nothing when the person continues.
    using ReviewReply = std::function<void(std::exception_ptr error)>;
    using Review = std::function<void(const WorkflowNode& node, ReviewReply reply)>;
    // Nothing when the run reached its end; else what ended it.
    using Finished = std::function<void(std::exception_ptr error)>;

    struct Request {
        WorkflowDocument document;
        // Without one, validation skips its presence tests.
        std::optional<QList<PluginCatalogEntry>> catalog;
        // The values that started the run; empty for a manual start.
        PluginValueMap event;
        bool simulate = false;
        // Sample outputs by node id, standing in for actions in a simulation.
        Results fixtures;
        Execute execute;
        Review review;
    };

    static constexpr QStringView reviewPrompt = u"Continue when you are ready.";
    static constexpr QStringView stoppingDetail = u"Stopping; completed actions are not undone.";
    static constexpr QStringView stoppedDetail = u"Workflow stopped. Completed actions were not undone.";

    static std::shared_ptr<WorkflowExecution> create(const QUuid& id, const WorkflowDocument& document,
                                                     std::function<double()> clock);
    WorkflowExecution(const WorkflowExecution&) = delete;
    WorkflowExecution& operator=(const WorkflowExecution&) = delete;

    const WorkflowTimeline& timeline() const { return m_timeline; }
    // Hears every change of the timeline. It cannot stop the run by throwing; cancel() does.
    std::function<void(const WorkflowTimeline&)> changed;
    bool cancelled() const { return m_cancelled; }
    // Outputs of the actions that ran, by node id; a simulation leaves it empty.
    const Results& results() const { return m_results; }

    // Once per execution.
    void run(Request request, Finished finished);
    // The run stops at its next test; an action already running decides when it returns.
    void cancel();
    // The live state of the step under way, as the executor sees it. Only active phases are
    // written: the end of a step is the run's decision.
    void report(QStringView phase, const std::optional<QString>& detail, std::optional<double> progress);

    // The words an error ends a run with.
    static QString describe(const std::exception_ptr& error);

private:
    WorkflowExecution(const QUuid& id, const WorkflowDocument& document, std::function<double()> clock);

    void begin();
    const WorkflowNode* node(const QString& id) const;
    // Runs steps until one waits for a callback or the run ends.
    void proceed();
    void checkCancelled() const;
    // Closes the current step and moves on; false once the run has reached its normal end.
    bool advance(const WorkflowNode& node, QStringView branch);
    QStringView condition(const WorkflowNode& node) const;
    PluginValueMap inputs(const WorkflowNode& node) const;
    PluginValueMap sampleOutputs(const WorkflowNode& node) const;
    void executeAction(const WorkflowNode& node, const PluginValueMap& values);
    void awaitReview(const WorkflowNode& node);
    // Goes on after a callback's answer: the run fails with its error, or the current step takes
    // what came back, closes, and the run moves on.
    void resume(const std::exception_ptr& error, const std::function<void(const WorkflowNode&)>& take);
    void finish();
    void fail(const std::exception_ptr& error);
    void notify();
    // Whether a reply of this wait still counts; consumes it.
    bool takeWait(quint64 wait);

    std::function<double()> m_clock;
    WorkflowTimeline m_timeline;
    bool m_cancelled = false;
    Results m_results;
    Request m_request;
    Finished m_finished;
    // Every value a step may draw on: the start's event and each action's outputs.
    Results m_values;
    QString m_current;
    bool m_started = false;
    bool m_ended = false;
    // The wait a callback's reply answers; 0 while nothing waits.
    quint64 m_wait = 0;
    quint64 m_waits = 0;
};

} // namespace vell
