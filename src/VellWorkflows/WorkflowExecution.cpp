#include "VellWorkflows/WorkflowExecution.h"

#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <algorithm>
#include <cmath>

namespace vell {

namespace {

using Kind = WorkflowNode::Configuration::Kind;

QString cut(const QString& text) {
    return TextMetrics::leftCharacters(text, WorkflowTimeline::maximumDetailCharacters);
}

bool isActivePhase(QStringView phase) {
    return phase == WorkflowTimeline::running || phase == WorkflowTimeline::waitingReview ||
           phase == WorkflowTimeline::cancelling;
}

// The phase a run ends in for the error that ended it.
QString finalPhase(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const WorkflowActionFailure& failure) {
        if (failure.phase() == PluginRunPhase::cancelled)
            return WorkflowTimeline::cancelled.toString();
        if (failure.phase() == PluginRunPhase::interrupted)
            return WorkflowTimeline::interrupted.toString();
    } catch (const WorkflowCancellation&) {
        return WorkflowTimeline::cancelled.toString();
    } catch (...) {
    }
    return WorkflowTimeline::failed.toString();
}

} // namespace

WorkflowActionFailure::WorkflowActionFailure(PluginRunPhase phase, QString message)
    : m_phase(phase)
    , m_message(std::move(message))
    , m_utf8(m_message.toUtf8()) {}

WorkflowExecution::WorkflowExecution(const QUuid& id, const WorkflowDocument& document,
                                     std::function<double()> clock)
    : m_clock(std::move(clock)) {
    m_timeline.id = id;
    m_timeline.workflowID = document.id;
    m_timeline.title = document.title;
    m_timeline.phase = WorkflowTimeline::running.toString();
    m_timeline.date = m_clock();
}

std::shared_ptr<WorkflowExecution>
WorkflowExecution::create(const QUuid& id, const WorkflowDocument& document, std::function<double()> clock) {
    return std::shared_ptr<WorkflowExecution>(new WorkflowExecution(id, document, std::move(clock)));
}

QString WorkflowExecution::describe(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const ModuleProblem& problem) {
        return problem.message();
    } catch (const WorkflowActionFailure& failure) {
        return failure.message();
    } catch (const std::exception& other) {
        return QString::fromUtf8(other.what());
    } catch (...) {
    }
    return QStringLiteral("Workflow failed.");
}

void WorkflowExecution::run(Request request, Finished finished) {
    if (m_started)
        return;
    m_started = true;
    m_request = std::move(request);
    m_finished = std::move(finished);
    try {
        begin();
    } catch (...) {
        fail(std::current_exception());
        return;
    }
    proceed();
}

void WorkflowExecution::begin() {
    const WorkflowDocument& document = m_request.document;
    document.validate(m_request.catalog);
    const auto start = std::find_if(document.nodes.cbegin(), document.nodes.cend(),
                                    [](const WorkflowNode& node) { return node.data.isStart(); });
    if (start == document.nodes.cend())
        throw ModuleProblem(QStringLiteral("Start is missing."));
    if (start->data.channel)
        start->data.channel->schema.validate(m_request.event);
    m_values = {{start->id, m_request.event}};
    m_current = start->id;
}

void WorkflowExecution::checkCancelled() const {
    if (m_cancelled)
        throw WorkflowCancellation();
}

void WorkflowExecution::proceed() {
    try {
        for (;;) {
            const WorkflowNode* found = node(m_current);
            if (!found)
                return finish();
            const WorkflowNode& node = *found;
            checkCancelled();
            WorkflowTimeline::Step step;
            step.node = node.id;
            step.title = node.data.title;
            step.phase = WorkflowTimeline::running.toString();
            step.startedAt = m_clock();
            m_timeline.steps.append(step);
            notify();
            checkCancelled();

            QStringView branch = u"next";
            switch (node.data.kind) {
            case Kind::manual:
            case Kind::event:
                break;
            case Kind::condition:
                branch = condition(node);
                break;
            case Kind::review:
                if (!m_request.simulate)
                    return awaitReview(node);
                break;
            case Kind::action: {
                const PluginValueMap values = inputs(node);
                if (!m_request.simulate)
                    return executeAction(node, values);
                m_values.insert(node.id, sampleOutputs(node));
                break;
            }
            }
            if (!advance(node, branch))
                return;
        }
    } catch (...) {
        fail(std::current_exception());
    }
}

QStringView WorkflowExecution::condition(const WorkflowNode& node) const {
    const WorkflowNode::Configuration& data = node.data;
    const PluginValue value = data.test->resolve(m_values);
    return WorkflowDocument::matches(value, *data.comparison, *data.expected) ? u"yes" : u"no";
}

PluginValueMap WorkflowExecution::inputs(const WorkflowNode& node) const {
    PluginValueMap values;
    for (auto argument = node.data.arguments.cbegin(); argument != node.data.arguments.cend(); ++argument)
        values.insert(argument.key(), argument->resolve(m_values));
    node.data.action->input.validate(values);
    return values;
}

PluginValueMap WorkflowExecution::sampleOutputs(const WorkflowNode& node) const {
    const PluginValueMap outputs = m_request.fixtures.value(node.id);
    const PluginValueSchema& schema = node.data.action->output;
    if (!schema.fields.isEmpty()) {
        try {
            schema.validate(outputs);
        } catch (const ModuleProblem&) {
            throw ModuleProblem(QStringLiteral("Simulation needs sample outputs for ") + node.data.title +
                                QStringLiteral("; no action was run."));
        }
    }
    return outputs;
}

const WorkflowNode* WorkflowExecution::node(const QString& id) const {
    for (const WorkflowNode& candidate : m_request.document.nodes)
        if (candidate.id == id)
            return &candidate;
    return nullptr;
}

bool WorkflowExecution::takeWait(quint64 wait) {
    if (m_ended || wait == 0 || wait != m_wait)
        return false;
    m_wait = 0;
    return true;
}

void WorkflowExecution::executeAction(const WorkflowNode& node, const PluginValueMap& values) {
    const quint64 wait = m_wait = ++m_waits;
    m_request.execute(
        node, values,
        [weak = weak_from_this(), wait](std::variant<PluginValueMap, std::exception_ptr> outcome) {
            const std::shared_ptr<WorkflowExecution> self = weak.lock();
            if (!self || !self->takeWait(wait))
                return;
            const auto* error = std::get_if<std::exception_ptr>(&outcome);
            self->resume(error ? *error : nullptr, [&](const WorkflowNode& current) {
                const PluginValueMap& outputs = std::get<PluginValueMap>(outcome);
                current.data.action->output.validate(outputs);
                self->m_values.insert(current.id, outputs);
                self->m_results.insert(current.id, outputs);
            });
        });
}

void WorkflowExecution::awaitReview(const WorkflowNode& node) {
    report(WorkflowTimeline::waitingReview, reviewPrompt.toString(), std::nullopt);
    const quint64 wait = m_wait = ++m_waits;
    m_request.review(node, [weak = weak_from_this(), wait](std::exception_ptr error) {
        const std::shared_ptr<WorkflowExecution> self = weak.lock();
        if (self && self->takeWait(wait))
            self->resume(error, {});
    });
}

void WorkflowExecution::resume(const std::exception_ptr& error,
                               const std::function<void(const WorkflowNode&)>& take) {
    if (error)
        return fail(error);
    try {
        const WorkflowNode& current = *node(m_current);
        if (take)
            take(current);
        if (advance(current, u"next"))
            proceed();
    } catch (...) {
        fail(std::current_exception());
    }
}

bool WorkflowExecution::advance(const WorkflowNode& node, QStringView branch) {
    WorkflowTimeline::Step& step = m_timeline.steps.last();
    step.phase = (m_request.simulate ? WorkflowTimeline::simulated : WorkflowTimeline::completed).toString();
    step.endedAt = m_clock();
    if (node.data.kind == Kind::review)
        step.detail =
            m_request.simulate ? QStringLiteral("Review simulated") : QStringLiteral("Review accepted");
    notify();
    checkCancelled();
    const std::optional<QString> target = m_request.document.next(node.id, branch);
    if (!target) {
        finish();
        return false;
    }
    m_current = *target;
    return true;
}

void WorkflowExecution::finish() {
    m_ended = true;
    m_timeline.phase =
        (m_request.simulate ? WorkflowTimeline::simulated : WorkflowTimeline::completed).toString();
    m_timeline.endedAt = m_clock();
    notify();
    if (m_finished)
        m_finished(nullptr);
}

void WorkflowExecution::fail(const std::exception_ptr& error) {
    m_ended = true;
    m_wait = 0;
    m_timeline.phase = finalPhase(error);
    m_timeline.endedAt = m_clock();
    bool stopped = false;
    try {
        std::rethrow_exception(error);
    } catch (const WorkflowCancellation&) {
        stopped = true;
    } catch (...) {
    }
    m_timeline.detail = stopped ? stoppedDetail.toString() : cut(describe(error));
    if (!m_timeline.steps.isEmpty() && m_timeline.steps.constLast().isActive()) {
        WorkflowTimeline::Step& step = m_timeline.steps.last();
        step.phase = m_timeline.phase;
        step.endedAt = m_timeline.endedAt;
        step.detail = m_timeline.detail;
    }
    notify();
    if (m_finished)
        m_finished(error);
}

void WorkflowExecution::notify() {
    if (!changed)
        return;
    try {
        changed(m_timeline);
    } catch (...) {
        // The owner stops a run by cancelling it, never by throwing from here.
    }
}

void WorkflowExecution::cancel() {
    m_cancelled = true;
    report(WorkflowTimeline::cancelling, stoppingDetail.toString(), std::nullopt);
}

void WorkflowExecution::report(QStringView phase, const std::optional<QString>& detail,
                               std::optional<double> progress) {
    if (!m_timeline.isActive() || m_timeline.steps.isEmpty() || !m_timeline.steps.constLast().isActive() ||
        !isActivePhase(phase))
        return;
    WorkflowTimeline::Step step = m_timeline.steps.constLast();
    step.phase = (m_cancelled ? WorkflowTimeline::cancelling : phase).toString();
    if (detail)
        step.detail = cut(*detail);
    if (progress && std::isfinite(*progress))
        step.progress = std::clamp(*progress, 0.0, 1.0);
    else
        step.progress.reset();
    if (step == m_timeline.steps.constLast())
        return;
    m_timeline.steps.last() = step;
    notify();
}

} // namespace vell
