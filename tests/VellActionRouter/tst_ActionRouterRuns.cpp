#include <QTest>

#include "RouterHarness.h"

using namespace vell;
using namespace vell::test;
using Operation = PluginBusMessage::Operation;
using Phase = PluginRunPhase;
using Effect = PluginRegisteredAction::Effect;

namespace {

const PluginActionAddress slow{provider, "slow"};
const PluginActionAddress stoppable{provider, "stoppable"};
const PluginValueMap one{{"count", PluginValue::number(1)}};
const QString timedOut = "Timed out. Outcome may be unknown; nothing was retried.";
const QString declined = "Request declined before execution.";

// reader: read-only, 10 s, with one number "count"; slow: read-only, 10 s of silence within 60 s;
// change: a local change that waits for review; stoppable: cancellable, 10 s within 200 s. All
// granted to the caller, unlike the action "secret" and the channel "feed".
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

} // namespace

class TestActionRouterRuns final : public QObject {
    Q_OBJECT

private slots:
    void invokeFailuresInOrder() {
        RouterHarness h(setUp);
        // A peer under an identifier that is no valid address may still offer to itself.
        h.connect("Local.Peer");
        h.registerPeer("Local.Peer", {action("own")});
        PluginBusMessage noAddress = message(Operation::invoke);
        noAddress.values = one;
        h.router.receive(noAddress, caller, 0);
        // An unknown action, a channel's name, no grant (checked before the arguments), the arguments.
        const QList<QUuid> refused{
            noAddress.requestID,
            h.invoke(caller, {provider, "nothing"}, 0, one),
            h.invoke(caller, {provider, "feed"}, 0, one),
            h.invoke(caller, {provider, "secret"}, 0, one),
            h.invoke(caller, {provider, "secret"}, 0, {{"x", PluginValue::boolean(true)}}),
            h.invoke(caller, reader, 0),
            h.invoke("Local.Peer", {"Local.Peer", "own"}, 0)};
        QCOMPARE(h.failures(caller), QStringList(5, unavailable) << "Missing argument: count");
        QCOMPARE(h.failures("Local.Peer"), QStringList("Invalid action address."));
        QVERIFY(h.router.runs().isEmpty());
        // Failures before the identity is spent leave it usable.
        for (const QUuid& id : refused)
            QVERIFY(h.run(h.invoke(caller, reader, 1, one, id)));
    }

    void identitiesAreNeverReused() {
        RouterHarness h(setUp);
        const QUuid id = h.invoke(caller, reader, 0, one);
        h.update(provider, id, runUpdate(Phase::failed, "No."), 1);
        h.invoke(caller, reader, 2, one, id);
        // A fresh connection has fresh identities, but the run still stands; a refusal spends nothing.
        h.connect(caller);
        h.invoke(caller, reader, 3, one, id);
        h.invoke(caller, reader, 4, one, id);
        QCOMPARE(h.failures(caller),
                 QStringList({"This request was already handled; it will not run again.",
                              "Run identity is already in use.", "Run identity is already in use."}));
    }

    void liveRunLimitCountsReview() {
        RouterHarness h(setUp);
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
        RouterHarness h(setUp);
        // A provider that answers inside deliver, as a built-in peer does.
        double clock = 0;
        h.onDeliver = [&](const QString& to, const PluginBusMessage& message) {
            if (to == provider && message.operation == Operation::execute)
                h.update(provider, message.requestID, runUpdate(Phase::succeeded), clock);
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
        RouterHarness h(setUp);
        QList<QUuid> live;
        for (int i = 0; i < 129; ++i) {
            const QUuid id = i % 40 == 0 ? h.invoke(caller, change, i) : h.invoke(caller, reader, i, one);
            if (i % 40 == 0)
                live.append(id);
            else
                h.update(provider, id, runUpdate(Phase::succeeded), i);
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
        RouterHarness h(setUp);
        const QUuid approved = h.invoke(caller, change, 0);
        const QUuid late = h.invoke(caller, change, 0);
        const QUuid expired = h.invoke(caller, change, 0);
        // Time in review is not charged to the action.
        h.router.approve(approved, 119);
        QCOMPARE(h.run(approved)->deadline, 149.0);
        QCOMPARE(h.to(provider, Operation::execute).size(), 1);
        QCOMPARE(problemOf([&] { h.router.approve(approved, 119); }), "Review expired.");
        QCOMPARE(problemOf([&] { h.router.approve(late, 120); }), "The reviewed request is no longer valid.");
        QCOMPARE(h.run(late)->update,
                 runUpdate(Phase::interrupted, "The reviewed request is no longer valid."));
        h.router.tick(120);
        QCOMPARE(h.run(expired)->update, runUpdate(Phase::interrupted, "Review expired without execution."));
        QCOMPARE(problemOf([&] { h.router.approve(QUuid::createUuid(), 0); }), "Review expired.");

        // A changed definition ends the review: what a person would approve is no longer there.
        const QUuid changed = h.invoke(caller, change, 121);
        h.registerPeer(provider, {action("change", Effect::localChange, 31)});
        QCOMPARE(h.run(changed)->update.message, "Provider actions changed; request was not replayed.");
        QCOMPARE(problemOf([&] { h.router.approve(changed, 122); }), "Review expired.");
        // Only the approved run was ever handed over, so only it is called off.
        QCOMPARE(h.to(provider, Operation::cancel),
                 QList<PluginBusMessage>{message(Operation::cancel, approved)});
    }

    void deadlines_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<double>("every");
        QTest::addColumn<double>("until");
        QTest::addColumn<double>("cancellingAt");
        QTest::addColumn<double>("deadline");
        QTest::addColumn<bool>("lateReport");
        QTest::addColumn<int>("cancels");

        // Invoked at 1, the run reports running every few seconds until the given instant.
        QTest::addRow("no completion limit: 10 s for the whole run")
            << "read" << 2.0 << 9.0 << 0.0 << 11.0 << false << 1;
        QTest::addRow("completion limit: each report pushes")
            << "slow" << 2.0 << 9.0 << 0.0 << 19.0 << false << 1;
        QTest::addRow("never past the completion limit; a report at the deadline is late")
            << "slow" << 5.0 << 56.0 << 0.0 << 61.0 << true << 1;
        QTest::addRow("cancelling: 120 s from the report")
            << "stoppable" << 5.0 << 6.0 << 7.0 << 127.0 << false << 0;
        QTest::addRow("cancelling: never past the completion limit")
            << "stoppable" << 5.0 << 151.0 << 151.0 << 201.0 << false << 0;
    }

    void deadlines() {
        QFETCH(QString, name);
        QFETCH(double, every);
        QFETCH(double, until);
        QFETCH(double, cancellingAt);
        QFETCH(double, deadline);
        QFETCH(bool, lateReport);
        QFETCH(int, cancels);
        RouterHarness h(setUp);
        const QUuid id = h.invoke(caller, {provider, name}, 1, name == "read" ? one : PluginValueMap());
        for (double now = 1 + every; now <= until; now += every)
            h.update(provider, id, runUpdate(Phase::running, "tick"), now);
        if (cancellingAt > 0)
            h.update(provider, id, runUpdate(Phase::cancelling, "Stopping"), cancellingAt);
        QCOMPARE(h.run(id)->deadline, deadline);
        h.router.tick(deadline - 0.001);
        QVERIFY(h.run(id)->isLive());
        if (lateReport) {
            h.update(provider, id, runUpdate(Phase::succeeded), deadline);
            QCOMPARE(h.failures(provider),
                     QStringList("Execution deadline passed; inspect the original action."));
        }
        h.router.tick(deadline);
        QCOMPARE(h.run(id)->update, runUpdate(Phase::interrupted, timedOut));
        // A provider that is cancelling already hears no more.
        QCOMPARE(h.to(provider, Operation::cancel).size(), cancels);
    }

    void refusedUpdatesChangeNothing() {
        RouterHarness h(setUp);
        const QUuid inReview = h.invoke(caller, change, 0);
        const QUuid done = h.invoke(caller, reader, 0, one);
        h.update(provider, done, runUpdate(Phase::succeeded), 1);
        const QUuid id = h.invoke(caller, reader, 0, one);
        h.take();
        // Not a live run of the provider's, or no update at all.
        h.update(provider, QUuid::createUuid(), runUpdate(Phase::running), 1);
        h.update(caller, id, runUpdate(Phase::running), 1);
        h.update(provider, inReview, runUpdate(Phase::running), 1);
        h.update(provider, done, runUpdate(Phase::failed), 1);
        h.router.receive(message(Operation::update, id), provider, 1);
        // Then the record, the transition, the values, each in that order.
        const PluginValueMap result{{"result", PluginValue::string("ok")}};
        PluginRunUpdate unreadable = runUpdate(Phase::waitingReview);
        unreadable.progress = 1.5;
        for (const PluginRunUpdate& update :
             {unreadable, runUpdate(Phase::waitingReview), runUpdate(Phase::cancelling, "", result),
              runUpdate(Phase::failed, "", result), runUpdate(Phase::running, "", result),
              runUpdate(Phase::succeeded, "", {{"other", PluginValue::string("x")}})})
            h.update(provider, id, update, 1);
        const QString unknown = "Unknown or completed execution.";
        const QString transition = "Invalid execution transition.";
        const QString valuesAtEnd = "Only completed actions may return values.";
        QCOMPARE(h.failures(provider),
                 QStringList({unknown, unknown, unknown, unknown, "Invalid execution update.", transition,
                              transition, valuesAtEnd, valuesAtEnd, "Unexpected action arguments."}));
        QCOMPARE(h.failures(caller), QStringList(unknown));
        QCOMPARE(h.run(id)->update, runUpdate(Phase::running));
        QCOMPARE(h.run(id)->deadline, 10.0);
        QCOMPARE(h.run(done)->phase(), Phase::succeeded);
        QVERIFY(h.to(caller, Operation::update).isEmpty());
    }

    void cancellation() {
        RouterHarness h(setUp);
        const QUuid inReview = h.invoke(caller, change, 0);
        const QUuid fixed = h.invoke(caller, reader, 0, one);
        const QUuid id = h.invoke(caller, stoppable, 0);
        h.take();

        h.router.cancel(inReview, 1);
        QCOMPARE(h.run(inReview)->update, runUpdate(Phase::cancelled, declined));
        QCOMPARE(problemOf([&] { h.router.cancel(fixed, 1); }), "This action does not support cancellation.");
        QCOMPARE(h.run(fixed)->update, runUpdate(Phase::running));

        PluginBusMessage request = message(Operation::cancel, id);
        h.router.receive(request, provider, 5);
        QCOMPARE(h.failures(provider), QStringList("Execution does not belong to this caller."));
        h.router.receive(request, caller, 5);
        QCOMPARE(h.run(id)->update,
                 runUpdate(Phase::cancelling, "Cancellation requested; awaiting the provider."));
        QCOMPARE(h.run(id)->deadline, 125.0);
        h.router.receive(request, caller, 6);
        // Only the one handed over and cancellable is called off, and only once.
        QCOMPARE(h.to(provider, Operation::cancel).size(), 1);
        QVERIFY(h.failures(caller).isEmpty());

        // The provider may report on, but can't talk the cancellation back into running.
        h.update(provider, id, runUpdate(Phase::running, "Still busy"), 7);
        QCOMPARE(h.run(id)->update, runUpdate(Phase::cancelling, "Still busy"));
        h.update(provider, id, runUpdate(Phase::cancelled, "Stopped"), 8);
        h.router.receive(request, caller, 9);
        QCOMPARE(h.failures(caller), QStringList("Execution already ended."));
    }

    void disconnection_data() {
        QTest::addColumn<bool>("callerLeaves");
        QTest::addColumn<bool>("inReview");
        QTest::addColumn<int>("cancels");
        QTest::addRow("caller leaves a running call") << true << false << 1;
        QTest::addRow("caller leaves a call in review") << true << true << 0;
        QTest::addRow("provider leaves a running call") << false << false << 0;
        QTest::addRow("provider leaves a call in review") << false << true << 0;
    }

    void disconnection() {
        QFETCH(bool, callerLeaves);
        QFETCH(bool, inReview);
        QFETCH(int, cancels);
        RouterHarness h(setUp);
        const QUuid id = h.invoke(caller, inReview ? change : reader, 0, inReview ? PluginValueMap() : one);
        h.take();
        h.router.disconnect(callerLeaves ? caller : provider);
        const PluginRunUpdate interrupted =
            runUpdate(Phase::interrupted, "Connection ended. Outcome may be unknown; nothing was retried.");
        QCOMPARE(h.run(id)->update, interrupted);
        QCOMPARE(h.to(provider, Operation::cancel).size(), cancels);
        if (!callerLeaves)
            QCOMPARE(h.to(caller, Operation::update).last().update, interrupted);
    }

    void reentrantPeersAreSafe() {
        RouterHarness h(setUp);
        // The caller cancels each run from inside its first update, and the provider answers
        // inside execute: nothing may be executed after its cancellation.
        h.onDeliver = [&](const QString& to, const PluginBusMessage& message) {
            if (to == caller && message.operation == Operation::update &&
                message.update->phase == Phase::running && message.address == stoppable)
                h.router.receive(vell::test::message(Operation::cancel, message.requestID), caller, 1);
            if (to == provider && message.operation == Operation::execute)
                h.update(provider, message.requestID, runUpdate(Phase::succeeded), 1);
        };
        const QUuid cancelled = h.invoke(caller, stoppable, 1);
        const QUuid answered = h.invoke(caller, reader, 1, one);
        // Cancelled before it was handed over, it ends at once: the provider hears neither
        // execute nor cancel, and no deadline is left to pass with an unknown outcome.
        QCOMPARE(h.run(cancelled)->update, runUpdate(Phase::cancelled, declined));
        QCOMPARE(h.to(provider, Operation::execute).size(), 1);
        QCOMPARE(h.to(provider, Operation::execute).first().requestID, answered);
        QVERIFY(h.to(provider, Operation::cancel).isEmpty());
        h.router.tick(500);
        QCOMPARE(h.run(cancelled)->phase(), Phase::cancelled);
        QCOMPARE(h.run(answered)->phase(), Phase::succeeded);
        QCOMPARE(h.router.history().last().id, answered);
        QCOMPARE(h.router.history().last().phase, Phase::succeeded);
        QCOMPARE(h.router.history().first().phase, Phase::cancelled);
    }
};

QTEST_GUILESS_MAIN(TestActionRouterRuns)
#include "tst_ActionRouterRuns.moc"
