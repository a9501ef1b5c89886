#include "VellPluginSDK/Actions/PluginCatalogAccumulator.h"

#include <QTest>

#include "RouterHarness.h"

using namespace vell;
using namespace vell::test;
using Operation = PluginBusMessage::Operation;

namespace {

const PluginActionAddress level{provider, "level"};
const PluginActionAddress pulse{provider, "pulse"};

// A provider with one action and a state and an event channel, and a caller granted both.
void setUp(RouterHarness& h) {
    h.connect(caller);
    h.connect(provider);
    h.registerPeer(provider, {action("toggle")},
                   {channel("level"), channel("pulse", PluginChannel::Kind::event)});
    h.grant(caller, level, true);
    h.grant(caller, pulse, true);
    h.take();
}

QList<PluginCatalogEntry> catalogOf(const RouterHarness& h, const QString& peer) {
    PluginCatalogAccumulator accumulator;
    for (const PluginBusMessage& piece : h.to(peer, Operation::catalog))
        accumulator.receive(piece);
    return accumulator.entries;
}

} // namespace

class TestActionRouterPeers final : public QObject {
    Q_OBJECT

private slots:
    void strangerIsNeverAnswered() {
        RouterHarness h;
        for (int i = 0; i <= int(Operation::failure); ++i)
            h.router.receive(message(Operation(i)), "cafe.nobody", 0);
        QVERIFY(h.sent.isEmpty());
        QCOMPARE(h.changes, 0);
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

    void reservedOperationsAreRefused_data() {
        QTest::addColumn<int>("operation");
        for (Operation operation :
             {Operation::catalog, Operation::execute, Operation::event, Operation::failure})
            QTest::addRow("%s", qPrintable(PluginBusMessage::operationName(operation))) << int(operation);
    }

    void reservedOperationsAreRefused() {
        QFETCH(int, operation);
        RouterHarness h;
        h.connect(caller);
        const PluginBusMessage sent = message(Operation(operation));
        h.router.receive(sent, caller, 0);
        PluginBusMessage expected = message(Operation::failure, sent.requestID);
        expected.error = "This message is reserved for the core.";
        QCOMPARE(h.sent.size(), 1);
        QCOMPARE(h.sent[0].message, expected);
    }

    void registrationFailuresKeepThePrevious() {
        RouterHarness h;
        h.connect(provider);
        h.registerPeer(provider, {action("toggle")});
        h.take();
        h.router.receive(message(Operation::register_), provider, 0);
        h.registerPeer(provider, {action("a"), action("a")});
        QCOMPARE(h.failures(provider),
                 QStringList({"Missing registration.", "Duplicate or excessive registration."}));
        QCOMPARE(h.router.exported().size(), 1);
        QCOMPARE(h.router.exported()[0].address.name, "toggle");
        QVERIFY(h.to(provider, Operation::catalog).isEmpty());
    }

    void catalogueArrivesPieceByPiece() {
        RouterHarness h;
        setUp(h);
        h.connect("cafe.other");
        h.registerPeer("cafe.other", {action("secret")});
        h.take();
        const QUuid request = QUuid::createUuid();
        h.router.receive(message(Operation::discover, request), caller, 0);
        const QList<PluginBusMessage> pieces = h.to(caller, Operation::catalog);
        // Opening, the two granted channels, closing: not the ungranted action nor the secret.
        QCOMPARE(pieces.size(), 4);
        for (const PluginBusMessage& piece : pieces)
            QCOMPARE(piece.requestID, request);
        QCOMPARE(pieces.first().catalog, QList<PluginCatalogEntry>());
        QVERIFY(!pieces.first().complete);
        QCOMPARE(pieces[1].catalog->size(), 1);
        QVERIFY(!pieces.last().catalog);
        QCOMPARE(pieces.last().complete, true);
        QCOMPARE(catalogOf(h, caller).size(), 2);
    }

    void ownEntriesNeedNoGrant() {
        RouterHarness h;
        h.connect(provider);
        h.registerPeer(provider, {action("toggle")}, {channel("level")});
        h.take();
        h.router.receive(message(Operation::discover), provider, 0);
        QCOMPARE(catalogOf(h, provider), h.router.exported());
        h.channelRequest(Operation::subscribe, provider, level, 0);
        h.publish(provider, level, 0, {{"level", PluginValue::number(0.5)}});
        QCOMPARE(h.to(provider, Operation::event).size(), 1);
        QVERIFY(h.failures(provider).isEmpty());
    }

    void reRegistration() {
        RouterHarness h;
        setUp(h);
        h.grant(caller, {provider, "toggle"});
        h.publish(provider, level, 0, {{"level", PluginValue::number(1)}});
        const QUuid run = h.invoke(caller, {provider, "toggle"}, 0);
        h.take();
        const int changesBefore = h.changes;

        // Identical content: nothing is interrupted or forgotten, yet catalogues go out.
        h.registerPeer(provider, {action("toggle")},
                       {channel("level"), channel("pulse", PluginChannel::Kind::event)});
        QCOMPARE(h.run(run)->phase(), PluginRunPhase::running);
        QVERIFY(!h.to(caller, Operation::catalog).isEmpty());
        QVERIFY(h.changes > changesBefore);
        h.channelRequest(Operation::subscribe, "cafe.caller", level, 1);
        QCOMPARE(h.to(caller, Operation::event).size(), 1);
        h.take();

        // A changed title: running calls end, retained values go, and the provider is told.
        PluginRegisteredAction renamed = action("toggle");
        renamed.title = "Renamed";
        h.registerPeer(provider, {renamed}, {channel("level"), channel("pulse", PluginChannel::Kind::event)});
        QCOMPARE(h.run(run)->phase(), PluginRunPhase::interrupted);
        QCOMPARE(h.run(run)->update.message, "Provider actions changed; request was not replayed.");
        QCOMPARE(h.to(provider, Operation::cancel).size(), 1);
        h.channelRequest(Operation::subscribe, caller, level, 2);
        QVERIFY(h.to(caller, Operation::event).isEmpty());
    }

    void reRegistrationDropsSubscriptionsToRemovedChannels() {
        RouterHarness h;
        setUp(h);
        h.channelRequest(Operation::subscribe, caller, level, 0);
        h.registerPeer(provider, {action("toggle")}, {channel("pulse", PluginChannel::Kind::event)});
        h.registerPeer(provider, {action("toggle")},
                       {channel("level"), channel("pulse", PluginChannel::Kind::event)});
        h.take();
        h.publish(provider, level, 1, {});
        QVERIFY(h.to(caller, Operation::event).isEmpty());
    }

    void subscribeFailures_data() {
        QTest::addColumn<int>("operation");
        QTest::addColumn<QString>("address");
        QTest::addRow("subscribe without address") << int(Operation::subscribe) << QString();
        QTest::addRow("subscribe to an unknown channel") << int(Operation::subscribe) << "nothing";
        QTest::addRow("subscribe to an action of that name") << int(Operation::subscribe) << "toggle";
        QTest::addRow("subscribe without a grant") << int(Operation::subscribe) << "secret";
        QTest::addRow("unsubscribe without a grant") << int(Operation::unsubscribe) << "secret";
    }

    void subscribeFailures() {
        QFETCH(int, operation);
        QFETCH(QString, address);
        RouterHarness h;
        setUp(h);
        h.registerPeer(provider, {action("toggle")}, {channel("level"), channel("secret")});
        h.take();
        PluginBusMessage request = message(Operation(operation));
        if (!address.isEmpty())
            request.address = PluginActionAddress{provider, address};
        h.router.receive(request, caller, 0);
        QCOMPARE(h.failures(caller), QStringList("Channel unavailable or access not granted."));
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
            h.channelRequest(Operation::subscribe, provider, {provider, QStringLiteral("c%1").arg(i)},
                             i / 40.0);
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
        RouterHarness h;
        setUp(h);
        h.publish(provider, level, 100, {{"level", PluginValue::number(0.25)}});
        h.publish(provider, pulse, 100, {{"level", PluginValue::number(0.5)}});
        h.channelRequest(Operation::subscribe, caller, pulse, 110);
        QVERIFY(h.to(caller, Operation::event).isEmpty());
        h.channelRequest(Operation::subscribe, caller, level, 110);
        const QList<PluginBusMessage> events = h.to(caller, Operation::event);
        QCOMPARE(events.size(), 1);
        QCOMPARE(events[0].lifetime, 20.0);
        QCOMPARE(events[0].values, (PluginValueMap{{"level", PluginValue::number(0.25)}}));
        QCOMPARE(events[0].address, level);
        h.take();
        h.channelRequest(Operation::subscribe, caller, level, 130);
        QVERIFY(h.to(caller, Operation::event).isEmpty());
        h.publish(provider, level, 130, {}, 300);
        h.router.tick(429.9);
        h.take();
        h.channelRequest(Operation::subscribe, caller, level, 429.9);
        QCOMPARE(h.to(caller, Operation::event).size(), 1);
        h.router.tick(430);
        h.take();
        h.channelRequest(Operation::subscribe, caller, level, 400);
        QVERIFY(h.to(caller, Operation::event).isEmpty());
    }

    void publishFailures_data() {
        QTest::addColumn<QString>("plugin");
        QTest::addColumn<QString>("name");
        QTest::addColumn<double>("lifetime");
        QTest::addColumn<double>("value");
        QTest::addColumn<QString>("message");

        const QString notOwned = "Channel does not belong to this publisher.";
        const QString lifetime = "Invalid state lifetime.";
        QTest::addRow("no address") << QString() << QString() << 30.0 << 0.5 << notOwned;
        QTest::addRow("foreign address") << caller << "level" << 30.0 << 0.5 << notOwned;
        QTest::addRow("unknown channel") << provider << "toggle" << 30.0 << 0.5 << notOwned;
        QTest::addRow("lifetime 0 on an event channel") << provider << "pulse" << 0.0 << 0.5 << lifetime;
        QTest::addRow("lifetime 301") << provider << "level" << 301.0 << 0.5 << lifetime;
        QTest::addRow("lifetime not a number") << provider << "level" << qQNaN() << 0.5 << lifetime;
        QTest::addRow("lifetime 1") << provider << "level" << 1.0 << 0.5 << QString();
        QTest::addRow("lifetime 300") << provider << "pulse" << 300.0 << 0.5 << QString();
        QTest::addRow("schema before lifetime")
            << provider << "level" << 0.0 << 2.0 << "Number is outside its limits.";
    }

    void publishFailures() {
        QFETCH(QString, plugin);
        QFETCH(QString, name);
        QFETCH(double, lifetime);
        QFETCH(double, value);
        QFETCH(QString, message);
        RouterHarness h;
        setUp(h);
        h.channelRequest(Operation::subscribe, caller, level, 0);
        PluginBusMessage publish = vell::test::message(Operation::publish);
        if (!plugin.isEmpty())
            publish.address = PluginActionAddress{plugin, name};
        publish.values = PluginValueMap{{"level", PluginValue::number(value)}};
        publish.lifetime = lifetime;
        h.router.receive(publish, provider, 0);
        QCOMPARE(h.lastFailure(provider), message);
        QCOMPARE(h.to(caller, Operation::event).isEmpty(), !message.isEmpty() || name != "level");
    }

    void publishReachesGrantedSubscribers() {
        RouterHarness h;
        setUp(h);
        h.connect("cafe.third");
        h.channelRequest(Operation::subscribe, caller, pulse, 0);
        h.channelRequest(Operation::subscribe, caller, level, 0);
        const QUuid id = QUuid::createUuid();
        PluginBusMessage publish = message(Operation::publish, id);
        publish.address = pulse;
        publish.lifetime = 5;
        h.router.receive(publish, provider, 0);
        PluginBusMessage expected = message(Operation::event, id);
        expected.address = pulse;
        expected.values = PluginValueMap();
        QCOMPARE(h.to(caller, Operation::event), QList<PluginBusMessage>{expected});
        QVERIFY(h.to("cafe.third", Operation::event).isEmpty());

        // Back under a new fingerprint, the provider reaches no one: the grant lapsed, and the
        // subscription ended with the old connection.
        h.connect(provider, "cafe.provider-v2");
        h.registerPeer(provider, {action("toggle")},
                       {channel("level"), channel("pulse", PluginChannel::Kind::event)});
        h.take();
        h.publish(provider, level, 1, {});
        QVERIFY(h.to(caller, Operation::event).isEmpty());
    }

    void disconnectEndsEverythingOfThePeer() {
        RouterHarness h;
        setUp(h);
        h.channelRequest(Operation::subscribe, caller, level, 0);
        h.publish(provider, level, 0, {}, 300);
        h.router.disconnect(provider);
        QCOMPARE(h.router.participants(), QStringList(caller));
        QVERIFY(h.router.exported().isEmpty());
        // Back with the same fingerprint: the grant holds, but nothing was kept or queued.
        h.connect(provider);
        h.registerPeer(provider, {action("toggle")},
                       {channel("level"), channel("pulse", PluginChannel::Kind::event)});
        h.take();
        h.publish(provider, level, 1, {});
        QVERIFY(h.to(caller, Operation::event).isEmpty());
        h.channelRequest(Operation::subscribe, caller, level, 1);
        QCOMPARE(h.to(caller, Operation::event).size(), 1);
        h.router.disconnect(provider);
        h.router.disconnect(provider);
        h.take();
        h.channelRequest(Operation::unsubscribe, caller, level, 2);
        QCOMPARE(h.failures(caller), QStringList("Channel unavailable or access not granted."));
    }
};

QTEST_GUILESS_MAIN(TestActionRouterPeers)
#include "tst_ActionRouterPeers.moc"
