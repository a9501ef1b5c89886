// The engine with callbacks that answer when the test says so, so that every moment of a run
// can be looked at: what the timeline said before each effect, where a cancellation lands,
// and what a simulation never touches.

#include "VellWorkflows/WorkflowExecution.h"

#include <QTest>

#include <cmath>

#include "WorkflowFixtures.h"

using namespace vell;
using namespace vell::test;

namespace {

const QUuid runID("{11111111-2222-4333-8444-555555555555}");
const QString stopped = "Workflow stopped. Completed actions were not undone.";

// start -> if (equals "go") -yes-> send -> review; the event-less form takes a literal test.
WorkflowDocument conditionActionReview(const QString& test = "go") {
    return document({manual(),
                     condition("if", literal(PluginValue::string(test)), "equals", PluginValue::string("go")),
                     actionStep("send"), step("check", Kind::review, "Look at it")},
                    {edge("start", "if"), edge("if", "send", "yes"), edge("send", "check")});
}

// One run with its callbacks held open: each execute and review waits until the test answers.
struct Harness {
    std::shared_ptr<WorkflowExecution> execution;
    QList<WorkflowTimeline> seen;
    QList<QPair<QString, PluginValueMap>> executed;
    WorkflowExecution::ActionReply action;
    WorkflowExecution::ReviewReply review;
    QStringList reviewed;
    std::optional<std::exception_ptr> finished;
    // Called on each change, after it is recorded; may cancel.
    std::function<void(const WorkflowTimeline&)> onChange;

    explicit Harness(const WorkflowDocument& document) {
        double now = 100;
        execution = WorkflowExecution::create(runID, document, [now]() mutable { return now += 1; });
        execution->changed = [this](const WorkflowTimeline& timeline) {
            seen.append(timeline);
            if (onChange)
                onChange(timeline);
        };
    }

    void start(const WorkflowDocument& document, bool simulate = false, PluginValueMap event = {},
               WorkflowExecution::Results fixtures = {}) {
        WorkflowExecution::Request request{
            document, std::nullopt, std::move(event), simulate, std::move(fixtures), {}, {}};
        request.execute = [this](const WorkflowNode& node, const PluginValueMap& values,
                                 WorkflowExecution::ActionReply reply) {
            executed.append({node.id, values});
            action = std::move(reply);
        };
        request.review = [this](const WorkflowNode& node, WorkflowExecution::ReviewReply reply) {
            reviewed.append(node.id);
            review = std::move(reply);
        };
        execution->run(std::move(request), [this](std::exception_ptr error) { finished = error; });
    }

    const WorkflowTimeline& timeline() const { return execution->timeline(); }
    QStringList phases() const {
        QStringList result;
        for (const WorkflowTimeline::Step& step : timeline().steps)
            result.append(step.node + u':' + step.phase);
        return result;
    }
    QString error() const {
        return finished && *finished ? WorkflowExecution::describe(*finished) : QString();
    }
};

PluginValueMap sent(const QString& reply) {
    return {{"sent", PluginValue::boolean(true)}, {"reply", PluginValue::string(reply)}};
}

} // namespace

class WorkflowExecutionTest final : public QObject {
    Q_OBJECT

private slots:
    // A lone start, and a condition whose branch has no step, end the run completed.
    void endsWhereNoStepFollows() {
        Harness run(document({manual()}));
        run.start(document({manual()}));
        QVERIFY(run.finished && !*run.finished);
        QCOMPARE(run.phases(), QStringList{"start:completed"});
        QCOMPARE(run.timeline().phase, "completed");
        QCOMPARE(run.timeline().workflowID, document({manual()}).id);
        QVERIFY(run.timeline().endedAt);
        const WorkflowDocument flow = conditionActionReview("stay");
        Harness stay(flow);
        stay.start(flow);
        QCOMPARE(stay.phases(), (QStringList{"start:completed", "if:completed"}));
        QCOMPARE(stay.timeline().phase, "completed");
        QVERIFY(stay.executed.isEmpty());
    }

    // The run of a condition, a reviewed action and a checkpoint, seen at every moment.
    void conditionActionAndCheckpoint() {
        const WorkflowDocument flow = conditionActionReview();
        Harness run(flow);
        run.start(flow);
        QCOMPARE(run.executed.size(), 1);
        // The step was recorded as running before the action was handed over.
        QCOMPARE(run.seen.last().steps.last().node, "send");
        QCOMPARE(run.seen.last().steps.last().phase, "running");
        QCOMPARE(run.executed.first().second, (PluginValueMap{{"text", PluginValue::string("hi")}}));

        run.execution->report(u"waitingReview", QString("Waiting"), 0.5);
        QCOMPARE(run.timeline().statusText(), "Needs review \u00B7 Send it");
        run.execution->report(u"succeeded", QString("ignored"), std::nullopt);
        QCOMPARE(run.timeline().steps.last().phase, "waitingReview");
        run.execution->report(u"running", std::nullopt, 2.5);
        QCOMPARE(run.timeline().statusText(), "Running \u00B7 Send it");
        QCOMPARE(run.timeline().steps.last().progress, 1.0);
        QCOMPARE(run.timeline().steps.last().detail, "Waiting");
        run.execution->report(u"running", std::nullopt, qInf());
        QVERIFY(!run.timeline().steps.last().progress);
        const qsizetype before = run.seen.size();
        run.execution->report(u"running", std::nullopt, std::nan(""));
        QCOMPARE(run.seen.size(), before); // unchanged, so not announced

        run.action(sent("ok"));
        QCOMPARE(run.execution->results().value("send"), sent("ok"));
        QCOMPARE(run.reviewed, QStringList{"check"});
        QCOMPARE(run.timeline().statusText(), "Needs review \u00B7 Look at it");
        QCOMPARE(run.timeline().steps.last().detail, "Continue when you are ready.");
        run.action(sent("late")); // a second answer does nothing
        QCOMPARE(run.execution->results().value("send"), sent("ok"));

        run.review(nullptr);
        QVERIFY(run.finished && !*run.finished);
        QCOMPARE(run.phases(),
                 (QStringList{"start:completed", "if:completed", "send:completed", "check:completed"}));
        QCOMPARE(run.timeline().steps.last().detail, "Review accepted");
        QCOMPARE(run.timeline().statusText(), "Completed \u00B7 Flow");
        QCOMPARE(run.timeline().completedSteps(), 4);
        run.execution->report(u"running", QString("after the end"), 0.1);
        QCOMPARE(run.timeline().steps.last().detail, "Review accepted");
    }

    // A later step draws on an earlier step's output; an optional field it lacks is an error.
    void bindingsResolveFromEarlierOutputs() {
        WorkflowNode second = actionStep("again", {{"text", reference("send", "reply")}});
        const WorkflowDocument flow = afterSend(second);
        Harness run(flow);
        run.start(flow);
        run.action(sent("echo"));
        QCOMPARE(run.executed.last().second, (PluginValueMap{{"text", PluginValue::string("echo")}}));
        run.action({});
        QCOMPARE(run.timeline().phase, "completed");

        Harness missing(flow);
        missing.start(flow);
        missing.action(PluginValueMap{{"sent", PluginValue::boolean(true)}});
        QCOMPARE(missing.error(), "A required input is unavailable.");
        QCOMPARE(missing.phases(), (QStringList{"start:completed", "send:completed", "again:failed"}));
        QCOMPARE(missing.executed.size(), 1);
    }

    void failures_data() {
        using Answer = std::function<void(Harness&)>;
        QTest::addColumn<Answer>("answer");
        QTest::addColumn<QString>("phase");
        QTest::addColumn<QString>("detail");
        const auto fail = [](const char* name, PluginRunPhase phase, const QString& words, const char* shown,
                             const QString& detail) {
            QTest::newRow(name) << Answer([=](Harness& run) {
                run.action(std::make_exception_ptr(WorkflowActionFailure(phase, words)));
            }) << QString(shown) << detail;
        };
        fail("action failed", PluginRunPhase::failed, "Boom", "failed", "Boom");
        fail("action cancelled", PluginRunPhase::cancelled, "Declined", "cancelled", "Declined");
        fail("action interrupted", PluginRunPhase::interrupted, "Gone", "interrupted", "Gone");
        fail("long words cut", PluginRunPhase::failed, QString(400, 'x'), "failed", QString(300, 'x'));
        QTest::newRow("outputs break the schema") << Answer([](Harness& run) {
            run.action(PluginValueMap{{"sent", PluginValue::string("yes")}});
        }) << QString("failed") << QString("Argument type does not match its schema.");
    }
    void failures() {
        using Answer = std::function<void(Harness&)>;
        QFETCH(Answer, answer);
        QFETCH(QString, phase);
        QFETCH(QString, detail);
        const WorkflowDocument flow = conditionActionReview();
        Harness run(flow);
        run.start(flow);
        answer(run);
        QCOMPARE(run.timeline().phase, phase);
        QCOMPARE(run.timeline().detail, detail);
        QCOMPARE(run.timeline().steps.last().node, "send");
        QCOMPARE(run.timeline().steps.last().phase, phase);
        QCOMPARE(run.timeline().steps.last().detail, detail);
        QCOMPARE(run.timeline().steps.last().endedAt, run.timeline().endedAt);
        QVERIFY(run.reviewed.isEmpty());
    }

    void refusedBeforeAnyStep_data() {
        QTest::addColumn<WorkflowDocument>("flow");
        QTest::addColumn<PluginValueMap>("event");
        QTest::addColumn<QString>("detail");
        QTest::addRow("invalid document") << document({manual(), manual("other")}) << PluginValueMap()
                                          << "Use exactly one manual or event start.";
        QTest::addRow("event breaks its schema")
            << document({eventStart()}) << PluginValueMap{{"caller", PluginValue::number(3)}}
            << "Argument type does not match its schema.";
    }
    void refusedBeforeAnyStep() {
        QFETCH(WorkflowDocument, flow);
        QFETCH(PluginValueMap, event);
        QFETCH(QString, detail);
        Harness run(flow);
        run.start(flow, false, event);
        QCOMPARE(run.timeline().phase, "failed");
        QCOMPARE(run.timeline().detail, detail);
        QVERIFY(run.timeline().steps.isEmpty());
        QCOMPARE(run.seen.size(), 1);
    }

    // A cancellation at each moment of a run ends it there, says what stays done, and never
    // reaches a later step.
    void cancellation_data() {
        QTest::addColumn<int>("change");
        QTest::addColumn<QStringList>("phases");
        // Changes of conditionActionReview: 1 start opens, 2 closes, 3 if opens, 4 closes,
        // 5 send opens, (action waits), 6 send closes, 7 check opens, 8 waits for review.
        QTest::addRow("as the start opens") << 1 << QStringList{"start:cancelled"};
        QTest::addRow("as the start closes") << 2 << QStringList{"start:completed"};
        QTest::addRow("as the condition opens") << 3 << QStringList{"start:completed", "if:cancelled"};
        QTest::addRow("as the action opens")
            << 5 << QStringList{"start:completed", "if:completed", "send:cancelled"};
        QTest::addRow("while the action runs")
            << 0 << QStringList{"start:completed", "if:completed", "send:completed"};
        QTest::addRow("at the checkpoint")
            << 8 << QStringList{"start:completed", "if:completed", "send:completed", "check:cancelled"};
    }
    void cancellation() {
        QFETCH(int, change);
        QFETCH(QStringList, phases);
        const WorkflowDocument flow = conditionActionReview();
        Harness run(flow);
        run.onChange = [&](const WorkflowTimeline&) {
            if (run.seen.size() == change)
                run.execution->cancel();
        };
        run.start(flow);
        if (change > 5)
            run.action(sent("ok"));
        if (change == 0) {
            run.execution->cancel();
            QCOMPARE(run.timeline().steps.last().phase, "cancelling");
            QCOMPARE(run.timeline().steps.last().detail, "Stopping; completed actions are not undone.");
            QCOMPARE(run.timeline().statusText(), "Stopping \u00B7 Send it");
            run.execution->report(u"running", std::nullopt, 0.5);
            QCOMPARE(run.timeline().steps.last().phase, "cancelling");
            run.action(sent("done anyway")); // the executor decides when it returns
        }
        if (run.review)
            run.review(std::make_exception_ptr(WorkflowCancellation()));
        QVERIFY(run.finished && *run.finished);
        QCOMPARE(run.timeline().phase, "cancelled");
        QCOMPARE(run.timeline().detail, stopped);
        QCOMPARE(run.phases(), phases);
        if (run.timeline().steps.last().phase == u"cancelled")
            QCOMPARE(run.timeline().steps.last().detail, stopped);
        QCOMPARE(run.executed.size(), change == 0 || change >= 6 ? 1 : 0);
    }

    // A simulation calls nothing, takes sample outputs, really evaluates conditions on them,
    // and leaves the results alone.
    void simulation() {
        WorkflowNode test = condition("if", reference("send", "reply"), "equals", PluginValue::string("yes"));
        WorkflowDocument flow = document(
            {manual(), actionStep("send"), test, step("check", Kind::review, "Look"), actionStep("other")},
            {edge("start", "send"), edge("send", "if"), edge("if", "check", "yes"), edge("check", "other")});
        flow.nodes[1].data.action->output.fields[0].required = true; // "sent"
        flow.nodes[4].data.action->output.fields.clear();
        Harness run(flow);
        run.start(flow, true, {}, {{"send", sent("yes")}});
        QVERIFY(run.executed.isEmpty() && run.reviewed.isEmpty());
        QCOMPARE(run.phases(), (QStringList{"start:simulated", "send:simulated", "if:simulated",
                                            "check:simulated", "other:simulated"}));
        QCOMPARE(run.timeline().steps[3].detail, "Review simulated");
        QCOMPARE(run.timeline().phase, "simulated");
        QVERIFY(run.execution->results().isEmpty());

        Harness other(flow);
        other.start(flow, true, {}, {{"send", sent("no")}});
        QCOMPARE(other.phases(), (QStringList{"start:simulated", "send:simulated", "if:simulated"}));

        const QString needs = "Simulation needs sample outputs for Send it; no action was run.";
        Harness missing(flow);
        missing.start(flow, true);
        QCOMPARE(missing.error(), needs);
        QCOMPARE(missing.timeline().phase, "failed");
        Harness wrong(flow);
        wrong.start(flow, true, {}, {{"send", {{"sent", PluginValue::number(1)}}}});
        QCOMPARE(wrong.error(), needs);

        // A fixture without the optional field the condition reads.
        Harness lacking(flow);
        lacking.start(flow, true, {}, {{"send", {{"sent", PluginValue::boolean(true)}}}});
        QCOMPARE(lacking.error(), "A required input is unavailable.");
    }
};

QTEST_GUILESS_MAIN(WorkflowExecutionTest)
#include "tst_WorkflowExecution.moc"
