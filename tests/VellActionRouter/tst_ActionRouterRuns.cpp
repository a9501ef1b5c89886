#include <QTest>

#include "RouterHarness.h"

using namespace vell;
using namespace vell::test;
using Operation = PluginBusMessage::Operation;
using Effect = PluginRegisteredAction::Effect;

namespace {

const PluginActionAddress slow{provider, "slow"};
const PluginActionAddress stoppable{provider, "stoppable"};

// reader: read-only, 10 s; slow: read-only, 10 s of silence within 60 s; change: a local change
// that waits for review; stoppable: cancellable, 10 s within 200 s. All granted to the caller,
// unlike the action "secret" and the channel "feed".
void setUp(RouterHarness& h) {
    h.connect(caller);
    h.connect(provider);
    PluginRegisteredAction readAction = action("read");
    readAction.input.fields = {{"count", PluginParameter::Kind::number, true, 0.0, 10.0}};
    h.registerPeer(provider,
                   {readAction, action("secret"), action("slow", Effect::readOnly, 10, 60),
                    action("change", Effect::localChange, 30),
                    action("stoppable", Effect::readOnly, 10, 200, true)},
                   {channel("feed")});
    for (const PluginActionAddress& address : {reader, slow, change, stoppable})
        h.grant(caller, address);
    h.take();
}

const PluginValueMap one{{"count", PluginValue::number(1)}};

} // namespace

class TestActionRouterRuns final : public QObject {
    Q_OBJECT

private slots:
    void readOnlyRunsAtOnce() {
        RouterHarness h;
        setUp(h);
        const QUuid id = h.invoke(caller, reader, 5, one);
        const ActionRun* run = h.run(id);
        QVERIFY(run);
        QCOMPARE(run->phase(), PluginRunPhase::running);
        QCOMPARE(run->deadline, 15.0);
        PluginBusMessage execute = message(Operation::execute, id);
        execute.address = reader;
        execute.values = one;
        QCOMPARE(h.to(provider, Operation::execute), QList<PluginBusMessage>{execute});
        const QList<PluginBusMessage> updates = h.to(caller, Operation::update);
        QCOMPARE(updates.size(), 1);
        QCOMPARE(updates[0].address, reader);
        QCOMPARE(updates[0].update, runUpdate(PluginRunPhase::running));
        QCOMPARE(h.run(h.invoke(caller, slow, 5))->completionDeadline, 65.0);
    }

    void invokeFailuresInOrder_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("plugin");
        QTest::addColumn<PluginValueMap>("values");
        QTest::addColumn<QString>("message");

        const QString unavailable = "Action unavailable or access not granted.";
        QTest::addRow("no address") << QString() << provider << one << unavailable;
        QTest::addRow("unknown action") << "nothing" << provider << one << unavailable;
        QTest::addRow("channel of that name") << "feed" << provider << one << unavailable;
        QTest::addRow("not granted") << "secret" << provider << one << unavailable;
        QTest::addRow("unknown argument before grant")
            << "secret" << provider << PluginValueMap{{"x", PluginValue::boolean(true)}} << unavailable;
        QTest::addRow("invalid address of a peer")
            << "own"
            << "Local.Peer" << PluginValueMap() << "Invalid action address.";
        QTest::addRow("arguments") << "read" << provider << PluginValueMap() << "Missing argument: count";
    }

    void invokeFailuresInOrder() {
        QFETCH(QString, name);
        QFETCH(QString, plugin);
        QFETCH(PluginValueMap, values);
        QFETCH(QString, message);
        RouterHarness h;
        setUp(h);
        // A peer under an identifier that is no valid address may still offer to itself.
        h.connect("Local.Peer");
        h.registerPeer("Local.Peer", {action("own")});
        h.take();
        const QString from = plugin == provider ? caller : plugin;
        PluginBusMessage invoke = vell::test::message(Operation::invoke);
        if (!name.isEmpty())
            invoke.address = PluginActionAddress{plugin, name};
        invoke.values = values;
        h.router.receive(invoke, from, 0);
        QCOMPARE(h.failures(from), QStringList(message));
        QVERIFY(h.router.runs().isEmpty());
        // Failures before the identity is spent leave it usable.
        invoke.address = reader;
        invoke.values = one;
        h.router.receive(invoke, caller, 0);
        QVERIFY(h.run(invoke.requestID));
    }

    void identitiesAreNeverReused() {
        RouterHarness h;
        setUp(h);
        const QUuid id = h.invoke(caller, reader, 0, one);
        h.update(provider, id, runUpdate(PluginRunPhase::failed, "No."), 1);
        h.invoke(caller, reader, 2, one, id);
        QCOMPARE(h.failures(caller), QStringList("This request was already handled; it will not run again."));
        // A fresh connection has fresh identities, but the run still stands in runs.
        h.connect(caller);
        h.take();
        h.invoke(caller, reader, 3, one, id);
        QCOMPARE(h.failures(caller), QStringList("Run identity is already in use."));
        h.invoke(caller, reader, 4, one, id);
        QCOMPARE(h.failures(caller).last(), "Run identity is already in use.");
    }

    void liveRunLimitCountsReview() {
        RouterHarness h;
        setUp(h);
        for (int i = 0; i < 32; ++i)
            h.invoke(caller, change, i / 64.0);
        QVERIFY(h.failures(caller).isEmpty());
        h.invoke(caller, reader, 1, one);
        QCOMPARE(h.failures(caller), QStringList("Execution limit reached."));
        h.router.cancel(h.router.runs().first().id, 1);
        h.invoke(caller, reader, 1, one);
        QCOMPARE(h.failures(caller).size(), 1);
    }

    void identityLimitPerConnection() {
        RouterHarness h;
        setUp(h);
        // A provider that answers inside deliver, as a built-in peer does.
        double clock = 0;
        h.onDeliver = [&](const QString& to, const PluginBusMessage& message) {
            if (to == provider && message.operation == Operation::execute)
                h.update(provider, message.requestID, runUpdate(PluginRunPhase::succeeded), clock);
        };
        for (int i = 0; i < 4096; ++i, ++clock)
            h.invoke(caller, reader, clock, one);
        QVERIFY(h.failures(caller).isEmpty());
        QVERIFY(h.failures(provider).isEmpty());
        h.invoke(caller, reader, 5000, one);
        QCOMPARE(h.failures(caller), QStringList("Execution limit reached."));
        h.connect(caller);
        h.invoke(caller, reader, 5001, one);
        QCOMPARE(h.failures(caller).size(), 1);
    }

    void trimmingKeepsLiveRuns() {
        RouterHarness h;
        setUp(h);
        QList<QUuid> live;
        for (int i = 0; i < 129; ++i) {
            const QUuid id = i % 40 == 0 ? h.invoke(caller, change, i) : h.invoke(caller, reader, i, one);
            if (i % 40 == 0)
                live.append(id);
            else
                h.update(provider, id, runUpdate(PluginRunPhase::succeeded), i);
        }
        // The 129th run was still live when its invoke trimmed, and ended after.
        const QList<ActionRun>& runs = h.router.runs();
        QCOMPARE(runs.size(), 96 + live.size() + 1);
        for (int i = 0; i < 96; ++i)
            QVERIFY(!runs[i].isLive());
        QCOMPARE(runs[95].created, 127.0);
        for (int i = 0; i < live.size(); ++i)
            QCOMPARE(runs[96 + i].id, live[i]);
        QCOMPARE(runs.last().created, 128.0);
        QCOMPARE(h.router.history().size(), 100);
    }

    void reviewWindow() {
        RouterHarness h;
        setUp(h);
        const QUuid approved = h.invoke(caller, change, 0);
        const QUuid late = h.invoke(caller, change, 0);
        const QUuid expired = h.invoke(caller, change, 0);
        QCOMPARE(h.run(approved)->phase(), PluginRunPhase::waitingReview);
        QCOMPARE(h.run(approved)->deadline, 120.0);
        QVERIFY(h.to(provider, Operation::execute).isEmpty());
        // No bus message approves, not even one from the caller.
        h.router.approve(approved, 119);
        QCOMPARE(h.run(approved)->phase(), PluginRunPhase::running);
        QCOMPARE(h.run(approved)->deadline, 149.0);
        QCOMPARE(h.to(provider, Operation::execute).size(), 1);
        QCOMPARE(problemOf([&] { h.router.approve(approved, 119); }), "Review expired.");
        QCOMPARE(problemOf([&] { h.router.approve(late, 120); }), "The reviewed request is no longer valid.");
        QCOMPARE(h.run(late)->phase(), PluginRunPhase::interrupted);
        QCOMPARE(h.run(late)->update.message, "The reviewed request is no longer valid.");
        h.router.tick(120);
        QCOMPARE(h.run(expired)->update,
                 runUpdate(PluginRunPhase::interrupted, "Review expired without execution."));
        QCOMPARE(h.to(provider, Operation::cancel).size(), 0);
        QCOMPARE(problemOf([&] { h.router.approve(QUuid::createUuid(), 0); }), "Review expired.");
    }

    void approvalIsVoidedByChanges() {
        RouterHarness h;
        setUp(h);
        const QUuid byProvider = h.invoke(caller, change, 0);
        h.connect(provider);
        QCOMPARE(h.run(byProvider)->update.message,
                 "Connection ended. Outcome may be unknown; nothing was retried.");
        QCOMPARE(problemOf([&] { h.router.approve(byProvider, 1); }), "Review expired.");
        setUp(h);
        const QUuid byDefinition = h.invoke(caller, change, 2);
        h.registerPeer(provider, {action("change", Effect::localChange, 31)});
        QCOMPARE(h.run(byDefinition)->update.message, "Provider actions changed; request was not replayed.");
        QCOMPARE(problemOf([&] { h.router.approve(byDefinition, 3); }), "Review expired.");
        QVERIFY(h.to(provider, Operation::cancel).isEmpty());
    }

    void heartbeat_data() {
        QTest::addColumn<bool>("withCompletion");
        QTest::addColumn<QList<double>>("deadlines");
        QTest::addRow("no completion limit: 10 s for the whole run") << false << QList<double>(4, 10.0);
        QTest::addRow("completion limit: pushed") << true << QList<double>{12, 14, 16, 18};
    }

    void heartbeat() {
        QFETCH(bool, withCompletion);
        QFETCH(QList<double>, deadlines);
        RouterHarness h;
        setUp(h);
        const QUuid run = withCompletion ? h.invoke(caller, slow, 0) : h.invoke(caller, reader, 0, one);
        for (int i = 0; i < deadlines.size(); ++i) {
            h.update(provider, run, runUpdate(PluginRunPhase::running, "tick"), 2.0 * (i + 1));
            QCOMPARE(h.run(run)->deadline, deadlines[i]);
        }
        h.router.tick(deadlines.last() - 0.001);
        QCOMPARE(h.run(run)->phase(), PluginRunPhase::running);
        h.router.tick(deadlines.last());
        QCOMPARE(h.run(run)->update, runUpdate(PluginRunPhase::interrupted,
                                               "Timed out. Outcome may be unknown; nothing was retried."));
        QCOMPARE(h.to(provider, Operation::cancel).size(), 1);
    }

    void completionLimitEndsAllPatience() {
        RouterHarness h;
        setUp(h);
        const QUuid id = h.invoke(caller, slow, 0);
        for (double now = 5; now < 60; now += 5)
            h.update(provider, id, runUpdate(PluginRunPhase::running), now);
        QCOMPARE(h.run(id)->deadline, 60.0);
        h.update(provider, id, runUpdate(PluginRunPhase::succeeded), 60);
        QCOMPARE(h.lastFailure(provider), "Execution deadline passed; inspect the original action.");
        QCOMPARE(h.run(id)->phase(), PluginRunPhase::interrupted);
        QCOMPARE(h.to(provider, Operation::cancel).size(), 1);
    }

    void updateFailures_data() {
        QTest::addColumn<int>("phase");
        QTest::addColumn<PluginValueMap>("values");
        QTest::addColumn<double>("progress");
        QTest::addColumn<QString>("message");

        const PluginValueMap result{{"result", PluginValue::string("ok")}};
        QTest::addRow("back to review") << int(PluginRunPhase::waitingReview) << PluginValueMap() << 0.5
                                        << "Invalid execution transition.";
        QTest::addRow("cancelling a non-cancellable")
            << int(PluginRunPhase::cancelling) << result << 0.5 << "Invalid execution transition.";
        QTest::addRow("failed with values")
            << int(PluginRunPhase::failed) << result << 0.5 << "Only completed actions may return values.";
        QTest::addRow("running with values")
            << int(PluginRunPhase::running) << result << 0.5 << "Only completed actions may return values.";
        QTest::addRow("succeeded with foreign values")
            << int(PluginRunPhase::succeeded) << PluginValueMap{{"other", PluginValue::string("x")}} << 0.5
            << "Unexpected action arguments.";
        QTest::addRow("record before transition")
            << int(PluginRunPhase::waitingReview) << PluginValueMap() << 1.5 << "Invalid execution update.";
    }

    void updateFailures() {
        QFETCH(int, phase);
        QFETCH(PluginValueMap, values);
        QFETCH(double, progress);
        QFETCH(QString, message);
        RouterHarness h;
        setUp(h);
        const QUuid id = h.invoke(caller, reader, 0, one);
        PluginRunUpdate update = runUpdate(PluginRunPhase(phase), "x", values);
        update.progress = progress;
        h.update(provider, id, update, 1);
        QCOMPARE(h.failures(provider), QStringList(message));
        QCOMPARE(h.run(id)->update, runUpdate(PluginRunPhase::running));
        QCOMPARE(h.run(id)->deadline, 10.0);
    }

    void updatesFromTheWrongPlaceAreUnknown() {
        RouterHarness h;
        setUp(h);
        const QUuid inReview = h.invoke(caller, change, 0);
        const QUuid running = h.invoke(caller, reader, 0, one);
        const QUuid done = h.invoke(caller, reader, 0, one);
        h.update(provider, done, runUpdate(PluginRunPhase::succeeded), 1);
        h.take();
        h.update(provider, QUuid::createUuid(), runUpdate(PluginRunPhase::running), 1);
        h.update(caller, running, runUpdate(PluginRunPhase::running), 1);
        h.update(provider, inReview, runUpdate(PluginRunPhase::running), 1);
        h.update(provider, done, runUpdate(PluginRunPhase::failed), 1);
        h.router.receive(message(Operation::update, running), provider, 1);
        QCOMPARE(h.failures(provider), QStringList(4, "Unknown or completed execution."));
        QCOMPARE(h.failures(caller), QStringList("Unknown or completed execution."));
        QCOMPARE(h.run(done)->phase(), PluginRunPhase::succeeded);
    }

    void succeededReachesTheCaller() {
        RouterHarness h;
        setUp(h);
        const QUuid id = h.invoke(caller, reader, 0, one);
        PluginRunUpdate done =
            runUpdate(PluginRunPhase::succeeded, "Done", {{"result", PluginValue::string("ok")}});
        done.progress = 1;
        done.display = PluginRunDisplay{"Run", "Last", "", 2, 2, false};
        h.update(provider, id, done, 9.999);
        QCOMPARE(h.run(id)->update, done);
        const QList<PluginBusMessage> updates = h.to(caller, Operation::update);
        QCOMPARE(updates.last().update, done);
        QCOMPARE(updates.last().address, reader);
        h.update(provider, id, runUpdate(PluginRunPhase::failed), 10.5);
        QCOMPARE(h.failures(provider), QStringList("Unknown or completed execution."));
    }

    void cancellation() {
        RouterHarness h;
        setUp(h);
        const QUuid inReview = h.invoke(caller, change, 0);
        const QUuid fixed = h.invoke(caller, reader, 0, one);
        const QUuid id = h.invoke(caller, stoppable, 0);
        h.take();

        h.router.cancel(inReview, 1);
        QCOMPARE(h.run(inReview)->update,
                 runUpdate(PluginRunPhase::cancelled, "Request declined before execution."));
        QCOMPARE(problemOf([&] { h.router.cancel(fixed, 1); }), "This action does not support cancellation.");
        QCOMPARE(h.run(fixed)->update, runUpdate(PluginRunPhase::running));
        QVERIFY(h.to(provider, Operation::cancel).isEmpty());

        PluginBusMessage request = message(Operation::cancel, id);
        h.router.receive(request, provider, 5);
        QCOMPARE(h.failures(provider), QStringList("Execution does not belong to this caller."));
        h.router.receive(request, caller, 5);
        QCOMPARE(h.run(id)->update,
                 runUpdate(PluginRunPhase::cancelling, "Cancellation requested; awaiting the provider."));
        QCOMPARE(h.run(id)->deadline, 125.0);
        QCOMPARE(h.to(provider, Operation::cancel).size(), 1);
        h.router.receive(request, caller, 6);
        QCOMPARE(h.to(provider, Operation::cancel).size(), 1);
        QVERIFY(h.failures(caller).isEmpty());

        // The provider may report on, but can't talk the cancellation back into running.
        h.update(provider, id, runUpdate(PluginRunPhase::running, "Still busy"), 7);
        QCOMPARE(h.run(id)->update, runUpdate(PluginRunPhase::cancelling, "Still busy"));
        h.update(provider, id, runUpdate(PluginRunPhase::cancelled, "Stopped"), 8);
        QCOMPARE(h.run(id)->phase(), PluginRunPhase::cancelled);
        h.router.receive(request, caller, 9);
        QCOMPARE(h.failures(caller), QStringList("Execution already ended."));
        QCOMPARE(problemOf([&] { h.router.cancel(QUuid::createUuid(), 9); }), "Execution already ended.");
    }

    void cancellingWindow_data() {
        QTest::addColumn<double>("heartbeatAt");
        QTest::addColumn<double>("cancelAt");
        QTest::addColumn<double>("deadline");
        QTest::addRow("120 s from the request") << 5.0 << 6.0 << 126.0;
        QTest::addRow("never past the completion limit") << 150.0 << 150.0 << 200.0;
    }

    void cancellingWindow() {
        QFETCH(double, heartbeatAt);
        QFETCH(double, cancelAt);
        QFETCH(double, deadline);
        RouterHarness h;
        setUp(h);
        const QUuid id = h.invoke(caller, stoppable, 0);
        for (double now = 5; now <= heartbeatAt; now += 5)
            h.update(provider, id, runUpdate(PluginRunPhase::running), now);
        h.update(provider, id, runUpdate(PluginRunPhase::cancelling, "Stopping"), cancelAt);
        QCOMPARE(h.run(id)->deadline, deadline);
        QVERIFY(h.to(provider, Operation::cancel).isEmpty());
        h.router.tick(deadline);
        QCOMPARE(h.run(id)->update.message, "Timed out. Outcome may be unknown; nothing was retried.");
        QVERIFY(h.to(provider, Operation::cancel).isEmpty());
    }

    void disconnection_data() {
        QTest::addColumn<bool>("callerLeaves");
        QTest::addColumn<bool>("inReview");
        QTest::addColumn<int>("cancels");
        QTest::addRow("caller leaves a running call") << true << false << 1;
        QTest::addRow("caller leaves a call in review") << true << true << 0;
        QTest::addRow("provider leaves") << false << false << 0;
    }

    void disconnection() {
        QFETCH(bool, callerLeaves);
        QFETCH(bool, inReview);
        QFETCH(int, cancels);
        RouterHarness h;
        setUp(h);
        const QUuid id = h.invoke(caller, inReview ? change : reader, 0, inReview ? PluginValueMap() : one);
        h.take();
        h.router.disconnect(callerLeaves ? caller : provider);
        const PluginRunUpdate interrupted = runUpdate(
            PluginRunPhase::interrupted, "Connection ended. Outcome may be unknown; nothing was retried.");
        QCOMPARE(h.run(id)->update, interrupted);
        QCOMPARE(h.to(provider, Operation::cancel).size(), cancels);
        if (!callerLeaves)
            QCOMPARE(h.to(caller, Operation::update).last().update, interrupted);
    }

    void reentrantPeersAreSafe() {
        RouterHarness h;
        setUp(h);
        // The caller cancels each run from inside its first update, and the provider answers
        // inside execute: nothing may be executed after its cancellation.
        h.onDeliver = [&](const QString& to, const PluginBusMessage& message) {
            if (to == caller && message.operation == Operation::update &&
                message.update->phase == PluginRunPhase::running && message.address == stoppable)
                h.router.receive(vell::test::message(Operation::cancel, message.requestID), caller, 1);
            if (to == provider && message.operation == Operation::execute)
                h.update(provider, message.requestID, runUpdate(PluginRunPhase::succeeded), 1);
        };
        const QUuid cancelled = h.invoke(caller, stoppable, 1);
        const QUuid answered = h.invoke(caller, reader, 1, one);
        // Cancelled before it was handed over, it ends at once: the provider hears neither
        // execute nor cancel, and no deadline is left to pass with an unknown outcome.
        QCOMPARE(h.run(cancelled)->update, runUpdate(PluginRunPhase::cancelled, "Request declined before execution."));
        QCOMPARE(h.to(provider, Operation::execute).size(), 1);
        QCOMPARE(h.to(provider, Operation::execute).first().requestID, answered);
        QVERIFY(h.to(provider, Operation::cancel).isEmpty());
        h.router.tick(500);
        QCOMPARE(h.run(cancelled)->phase(), PluginRunPhase::cancelled);
        QCOMPARE(h.run(answered)->phase(), PluginRunPhase::succeeded);
        QCOMPARE(h.router.history().last().id, answered);
        QCOMPARE(h.router.history().last().phase, PluginRunPhase::succeeded);
        QCOMPARE(h.router.history().first().phase, PluginRunPhase::cancelled);
    }
};

QTEST_GUILESS_MAIN(TestActionRouterRuns)
#include "tst_ActionRouterRuns.moc"
