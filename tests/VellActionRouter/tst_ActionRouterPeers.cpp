#include <QTest>

#include "RouterHarness.h"

using namespace vell;
using namespace vell::test;
using Operation = PluginBusMessage::Operation;

namespace {

const PluginActionAddress pulse{provider, "pulse"};
const QList<PluginChannel> channels{channel("level"), channel("pulse", PluginChannel::Kind::event)};
const QString channelRefused = "Channel unavailable or access not granted.";

// A provider with one action and a state and an event channel, and a caller granted both.
void setUp(RouterHarness& h) {
    h.connect(caller);
    h.connect(provider);
    h.registerPeer(provider, {action("toggle")}, channels);
    h.grant(caller, level, true);
    h.grant(caller, pulse, true);
    h.take();
}

} // namespace

class TestActionRouterPeers final : public QObject {
    Q_OBJECT

private slots:
    void strangerIsNeverAnsweredAndReservedOperationsAreRefused() {
        RouterHarness h;
        for (int i = 0; i <= int(Operation::failure); ++i)
            h.router.receive(message(Operation(i)), "cafe.nobody", 0);
        QVERIFY(h.sent.isEmpty());
        QCOMPARE(h.changes, 0);
        h.connect(caller);
        QList<PluginBusMessage> expected;
        for (Operation operation :
             {Operation::catalog, Operation::execute, Operation::event, Operation::failure}) {
            const PluginBusMessage sent = message(operation);
            h.router.receive(sent, caller, 0);
            expected.append(message(Operation::failure, sent.requestID));
            expected.last().error = "This message is reserved for the core.";
        }
        QCOMPARE(h.to(caller, Operation::failure), expected);
        QCOMPARE(h.sent.size(), expected.size());
    }

    void participantsAndExportedAreSorted() {
        RouterHarness h;
        h.connect("zz.peer");
        h.connect("aa.peer");
        h.registerPeer("zz.peer", {action("b"), action("a")}, {channel("c")});
        h.registerPeer("aa.peer", {}, {channel("x")});
        QCOMPARE(h.router.participants(), QStringList({"aa.peer", "zz.peer"}));
        QStringList keys;
        for (const PluginCatalogEntry& entry : h.router.exported())
            keys.append(entry.address.key() + (entry.channel ? "#channel" : ""));
        QCOMPARE(keys, QStringList({"aa.peer/x#channel", "zz.peer/b", "zz.peer/a", "zz.peer/c#channel"}));
    }

    void rateWindow_data() {
        QTest::addColumn<QList<double>>("instants");
        QTest::addColumn<int>("refused");

        const QList<double> full(64, 0.0);
        QTest::addRow("64 in one window pass") << full << 0;
        QTest::addRow("65th is refused") << full + QList<double>{0.999} << 1;
        QTest::addRow("1 second after the first opens a new window") << full + QList<double>{1.0} << 0;
        // Refused messages neither count nor stretch the window: at 1.0 it restarts anyway.
        QTest::addRow("refusals do not prolong the window") << full + QList<double>{0.5, 0.9, 1.0} << 2;
        QTest::addRow("fixed, not sliding")
            << QList<double>{0.0} + QList<double>(63, 0.9) + QList<double>{1.0, 1.5} << 0;
    }

    void rateWindow() {
        QFETCH(QList<double>, instants);
        QFETCH(int, refused);
        RouterHarness h;
        h.connect(caller);
        for (double now : instants)
            h.router.receive(message(Operation::discover), caller, now);
        QCOMPARE(h.failures(caller), QStringList(refused, "Action message rate exceeded."));
    }

    void catalogueArrivesPieceByPiece() {
        RouterHarness h(setUp);
        h.connect("cafe.other");
        h.registerPeer("cafe.other", {action("secret")});
        h.take();
        const QUuid request = QUuid::createUuid();
        h.router.receive(message(Operation::discover, request), caller, 0);
        // Opening, the two granted channels, closing: not the ungranted action nor the secret. The
        // pieces' form is byte-compared by the replay test.
        const QList<PluginBusMessage> pieces = h.to(caller, Operation::catalog);
        QCOMPARE(pieces.size(), 4);
        for (const PluginBusMessage& piece : pieces)
            QCOMPARE(piece.requestID, request);
    }

    void reRegistration() {
        RouterHarness h(setUp);
        h.grant(caller, {provider, "toggle"});
        h.publish(provider, level, 0, {{"level", PluginValue::number(1)}});
        const QUuid run = h.invoke(caller, {provider, "toggle"}, 0);
        h.take();
        const QList<PluginCatalogEntry> exported = h.router.exported();
        const int changesBefore = h.changes;

        // A failed registration leaves the previous one in force, and tells no one else.
        h.router.receive(message(Operation::register_), provider, 0);
        h.registerPeer(provider, {action("a"), action("a")});
        QCOMPARE(h.failures(provider),
                 QStringList({"Missing registration.", "Duplicate or excessive registration."}));
        QCOMPARE(h.router.exported(), exported);
        QVERIFY(h.to(caller, Operation::catalog).isEmpty());

        // Identical content: nothing is interrupted or forgotten, yet catalogues go out.
        h.registerPeer(provider, {action("toggle")}, channels);
        QCOMPARE(h.run(run)->phase(), PluginRunPhase::running);
        QVERIFY(!h.to(caller, Operation::catalog).isEmpty());
        QVERIFY(h.changes > changesBefore);
        h.channelRequest(Operation::subscribe, caller, level, 1);
        QCOMPARE(h.to(caller, Operation::event).size(), 1);
        h.take();

        // A changed title: running calls end, retained values go, and the provider is told.
        PluginRegisteredAction renamed = action("toggle");
        renamed.title = "Renamed";
        h.registerPeer(provider, {renamed}, channels);
        QCOMPARE(h.run(run)->update, runUpdate(PluginRunPhase::interrupted,
                                               "Provider actions changed; request was not replayed."));
        QCOMPARE(h.to(provider, Operation::cancel).size(), 1);
        h.channelRequest(Operation::subscribe, caller, level, 2);
        QVERIFY(h.to(caller, Operation::event).isEmpty());

        // A subscription to a channel that went away does not come back with the channel.
        h.registerPeer(provider, {renamed}, {channels[1]});
        h.registerPeer(provider, {renamed}, channels);
        h.take();
        h.publish(provider, level, 3, {});
        QVERIFY(h.to(caller, Operation::event).isEmpty());
    }

    void subscribeFailures() {
        RouterHarness h(setUp);
        h.registerPeer(provider, {action("toggle")}, {channel("level"), channel("secret")});
        h.take();
        // No address, an unknown channel, an action of that name, no grant: one answer for all.
        for (const QString& name : {QString(), QString("nothing"), QString("toggle"), QString("secret")}) {
            PluginBusMessage request = message(Operation::subscribe);
            if (!name.isEmpty())
                request.address = PluginActionAddress{provider, name};
            h.router.receive(request, caller, 0);
        }
        h.channelRequest(Operation::unsubscribe, caller, {provider, "secret"}, 0);
        QCOMPARE(h.failures(caller), QStringList(5, channelRefused));
    }

    void subscriptionLimit() {
        RouterHarness h;
        h.connect(provider);
        QList<PluginChannel> channels;
        for (int i = 0; i < 32; ++i)
            channels.append(channel(QStringLiteral("c%1").arg(i)));
        h.registerPeer(provider, {}, channels);
        h.connect("cafe.second");
        h.registerPeer("cafe.second", {}, {channel("extra")});
        for (int i = 0; i < 32; ++i)
            h.channelRequest(Operation::subscribe, provider, {provider, channels[i].id}, i / 40.0);
        h.channelRequest(Operation::subscribe, provider, {provider, "c0"}, 0.9);
        QVERIFY(h.failures(provider).isEmpty());
        h.router.setAllowed(provider, h.router.exported().last(), true);
        h.channelRequest(Operation::subscribe, provider, {"cafe.second", "extra"}, 0.9);
        QCOMPARE(h.failures(provider), QStringList("Too many subscriptions."));
        h.channelRequest(Operation::unsubscribe, provider, {provider, "c0"}, 0.9);
        h.channelRequest(Operation::subscribe, provider, {"cafe.second", "extra"}, 0.9);
        QCOMPARE(h.failures(provider).size(), 1);
    }

    void retainedState() {
        RouterHarness h(setUp);
        h.publish(provider, level, 100, {{"level", PluginValue::number(0.25)}});
        h.publish(provider, pulse, 100, {{"level", PluginValue::number(0.5)}});
        h.channelRequest(Operation::subscribe, caller, pulse, 110);
        h.channelRequest(Operation::subscribe, caller, level, 110);
        // Expired at 130; published again to the subscriber and retained until 430, and gone for good
        // after the tick at 430.
        h.channelRequest(Operation::subscribe, caller, level, 130);
        h.publish(provider, level, 130, {}, 300);
        h.router.tick(429.9);
        h.channelRequest(Operation::subscribe, caller, level, 429.9);
        h.router.tick(430);
        h.channelRequest(Operation::subscribe, caller, level, 400);
        const QList<PluginBusMessage> events = h.to(caller, Operation::event);
        QCOMPARE(events.size(), 3);
        QCOMPARE(events[0].lifetime, 20.0);
        QCOMPARE(events[0].values, (PluginValueMap{{"level", PluginValue::number(0.25)}}));
        QCOMPARE(events[0].address, level);
        QVERIFY(qAbs(*events[2].lifetime - 0.1) < 1e-9);
    }

    void publishing() {
        RouterHarness h(setUp);
        h.channelRequest(Operation::subscribe, caller, level, 0);
        h.channelRequest(Operation::subscribe, caller, pulse, 0);
        const auto publish = [&](std::optional<PluginActionAddress> address, double lifetime,
                                 double value = 0.5) {
            PluginBusMessage sent = message(Operation::publish);
            sent.address = address;
            sent.values = PluginValueMap{{"level", PluginValue::number(value)}};
            sent.lifetime = lifetime;
            h.router.receive(sent, provider, 0);
            return sent;
        };
        // Only on one's own channel, the schema before the lifetime, 1 to 300 s on either kind.
        publish(std::nullopt, 30);
        publish(PluginActionAddress{caller, "level"}, 30);
        publish(PluginActionAddress{provider, "toggle"}, 30);
        publish(level, 0, 2);
        publish(pulse, 0);
        publish(level, 301);
        publish(level, qQNaN());
        const QString notOwned = "Channel does not belong to this publisher.";
        const QString lifetime = "Invalid state lifetime.";
        const QStringList failures{notOwned, notOwned, notOwned, "Number is outside its limits.",
                                   lifetime, lifetime, lifetime};
        QCOMPARE(h.failures(provider), failures);
        // An event keeps the publish's identity, and only a state channel's tells its lifetime.
        QList<PluginBusMessage> events;
        for (const PluginBusMessage& sent : {publish(level, 1), publish(pulse, 300)}) {
            events.append(message(Operation::event, sent.requestID));
            events.last().address = sent.address;
            events.last().values = sent.values;
        }
        events[0].lifetime = 1;
        QCOMPARE(h.to(caller, Operation::event), events);
        QCOMPARE(h.failures(provider), failures);
    }

    void disconnectEndsEverythingOfThePeer() {
        RouterHarness h(setUp);
        h.channelRequest(Operation::subscribe, caller, level, 0);
        h.publish(provider, level, 0, {}, 300);
        h.router.disconnect(provider);
        QCOMPARE(h.router.participants(), QStringList(caller));
        QVERIFY(h.router.exported().isEmpty());
        // Back with the same fingerprint: the grant holds, but nothing was kept or queued.
        h.connect(provider);
        h.registerPeer(provider, {action("toggle")}, channels);
        h.take();
        h.publish(provider, level, 1, {});
        QVERIFY(h.to(caller, Operation::event).isEmpty());
        h.channelRequest(Operation::subscribe, caller, level, 1);
        QCOMPARE(h.to(caller, Operation::event).size(), 1);
        h.router.disconnect(provider);
        h.router.disconnect(provider);
        h.take();
        h.channelRequest(Operation::unsubscribe, caller, level, 2);
        QCOMPARE(h.failures(caller), QStringList(channelRefused));
    }
};

QTEST_GUILESS_MAIN(TestActionRouterPeers)
#include "tst_ActionRouterPeers.moc"
