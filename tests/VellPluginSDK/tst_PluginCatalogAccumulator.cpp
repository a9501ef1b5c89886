#include "VellPluginSDK/Actions/PluginCatalogAccumulator.h"

#include <QTest>

#include "TestSupport.h"

using namespace vell;
using vell::test::problemOf;

namespace {

const QUuid first("{11111111-1111-1111-1111-111111111111}");
const QUuid second("{22222222-2222-2222-2222-222222222222}");

PluginRegisteredAction action(const QString& id) {
    PluginRegisteredAction action;
    action.id = id;
    action.title = "Action " + id;
    action.timeoutSeconds = 10;
    return action;
}

PluginCatalogEntry actionEntry(const QString& plugin, const QString& id) {
    return {{plugin, id}, action(id), std::nullopt};
}

PluginCatalogEntry channelEntry(const QString& plugin, const QString& id) {
    return {{plugin, id}, std::nullopt, PluginChannel{id, "Channel", PluginChannel::Kind::event, {}}};
}

PluginBusMessage piece(const QUuid& generation, std::optional<QList<PluginCatalogEntry>> entries,
                       std::optional<bool> complete = std::nullopt) {
    PluginBusMessage message;
    message.operation = PluginBusMessage::Operation::catalog;
    message.requestID = generation;
    message.catalog = std::move(entries);
    message.complete = complete;
    return message;
}

} // namespace

class TestPluginCatalogAccumulator final : public QObject {
    Q_OBJECT

private slots:
    void rebuildsFromPieces() {
        PluginCatalogAccumulator accumulator;
        QVERIFY(!accumulator.receive(piece(first, QList<PluginCatalogEntry>{})));
        QVERIFY(!accumulator.receive(piece(first, {{actionEntry("cafe.osta", "toggle")}})));
        QVERIFY(!accumulator.receive(piece(first, {{channelEntry("cafe.osta", "toggle")}}, false)));
        QVERIFY(accumulator.entries.isEmpty());
        QVERIFY(accumulator.receive(piece(first, std::nullopt, true)));
        QCOMPARE(accumulator.entries.size(), 2);
        QVERIFY(accumulator.pending.isEmpty());
        QVERIFY(!accumulator.generation);
    }

    void otherOperationsChangeNothing() {
        PluginCatalogAccumulator accumulator;
        accumulator.receive(piece(first, {{actionEntry("cafe.osta", "a")}}));
        PluginBusMessage event = piece(second, std::nullopt, true);
        event.operation = PluginBusMessage::Operation::event;
        QVERIFY(!accumulator.receive(event));
        QCOMPARE(accumulator.generation, first);
        QCOMPARE(accumulator.pending.size(), 1);
    }

    void newGenerationDropsOlderPieces() {
        PluginCatalogAccumulator accumulator;
        accumulator.receive(piece(first, {{actionEntry("cafe.osta", "a")}}));
        accumulator.receive(piece(second, QList<PluginCatalogEntry>{}));
        QVERIFY(accumulator.pending.isEmpty());
        QCOMPARE(accumulator.generation, second);
        // The closing piece of the old generation starts it afresh rather than completing it.
        QVERIFY(accumulator.receive(piece(first, std::nullopt, true)));
        QVERIFY(accumulator.entries.isEmpty());
    }

    void emptyCatalogIsPublished() {
        PluginCatalogAccumulator accumulator;
        accumulator.receive(piece(first, {{actionEntry("cafe.osta", "a")}}, true));
        QCOMPARE(accumulator.entries.size(), 1);
        QVERIFY(!accumulator.receive(piece(second, QList<PluginCatalogEntry>{})));
        QVERIFY(accumulator.receive(piece(second, std::nullopt, true)));
        QVERIFY(accumulator.entries.isEmpty());
    }

    void entryFailures_data() {
        QTest::addColumn<int>("fault");
        QTest::addColumn<QString>("message");
        QTest::addRow("bad address") << 0 << "Invalid action address.";
        QTest::addRow("both action and channel") << 1 << "Invalid catalog entry.";
        QTest::addRow("neither action nor channel") << 2 << "Invalid catalog entry.";
        QTest::addRow("bad action") << 3 << "Invalid registered action.";
        QTest::addRow("bad channel") << 4 << "Invalid channel.";
        QTest::addRow("name differs from id") << 5 << "Catalog identity mismatch.";
        QTest::addRow("duplicate action") << 6 << "Duplicate catalog entry.";
    }

    void entryFailures() {
        QFETCH(int, fault);
        QFETCH(QString, message);
        PluginCatalogEntry entry = actionEntry("cafe.osta", "a");
        switch (fault) {
        case 0:
            entry.address.plugin = "cafe";
            entry.action->title.clear();
            break;
        case 1:
            entry.channel = channelEntry("cafe.osta", "a").channel;
            break;
        case 2:
            entry.action.reset();
            break;
        case 3:
            entry.action->timeoutSeconds = 0;
            break;
        case 4:
            entry = channelEntry("cafe.osta", "a");
            entry.channel->title.clear();
            break;
        case 5:
            entry.address.name = "b";
            break;
        }
        PluginCatalogAccumulator accumulator;
        accumulator.receive(piece(first, {{actionEntry("cafe.osta", "z")}}, true));
        const PluginCatalogEntry good = actionEntry("cafe.osta", "ok");
        QList<PluginCatalogEntry> entries{good, entry};
        if (fault == 6)
            entries = {good, good};
        QCOMPARE(problemOf([&] { accumulator.receive(piece(second, entries, true)); }), message);
        // The good entry before the bad one stays pending; the last catalogue is kept.
        QCOMPARE(accumulator.pending, QList<PluginCatalogEntry>{good});
        QCOMPARE(accumulator.generation, second);
        QCOMPARE(accumulator.entries, QList<PluginCatalogEntry>{actionEntry("cafe.osta", "z")});
    }

    void actionAndChannelOfOneNameAreDistinct() {
        PluginCatalogAccumulator accumulator;
        QVERIFY(accumulator.receive(
            piece(first, {{actionEntry("cafe.osta", "a"), channelEntry("cafe.osta", "a")}}, true)));
        QCOMPARE(accumulator.entries.size(), 2);
    }

    void limitIsCheckedAtTheEndOfAMessage_data() {
        QTest::addColumn<int>("count");
        QTest::addColumn<bool>("accepted");
        QTest::addRow("1280 entries") << 1280 << true;
        QTest::addRow("1281 entries") << 1281 << false;
    }

    void limitIsCheckedAtTheEndOfAMessage() {
        QFETCH(int, count);
        QFETCH(bool, accepted);
        PluginCatalogAccumulator accumulator;
        accumulator.receive(piece(first, {{actionEntry("cafe.osta", "before")}}, true));
        accumulator.receive(piece(second, QList<PluginCatalogEntry>{}));
        for (int i = 0; i < count - 1; ++i)
            accumulator.receive(piece(second, {{actionEntry(QStringLiteral("peer.p%1").arg(i / 64),
                                                            QStringLiteral("a%1").arg(i % 64))}}));
        const QString problem =
            problemOf([&] { accumulator.receive(piece(second, {{actionEntry("peer.last", "a")}}, true)); });
        QCOMPARE(problem, accepted ? QString() : "Catalog exceeds its limit.");
        QCOMPARE(accumulator.entries.size(), accepted ? count : 1);
    }

    void canonicalEncodingIsFixed() {
        PluginCatalogEntry entry = actionEntry("cafe.osta", "toggle");
        entry.action->title = "Tür \"auf\"\n";
        entry.action->effect = PluginRegisteredAction::Effect::localChange;
        entry.action->completionTimeoutSeconds = 60.5;
        entry.action->input.fields = {{"level", PluginParameter::Kind::number, true, 0.0, 1.0}};
        // These bytes are what stored grants hold: if this test has to change, every grant
        // that users have given lapses.
        const QByteArray expected =
            "{\"action\":{\"cancellable\":false,\"completionTimeoutSeconds\":60.5,\"effect\":\"localChange\","
            "\"id\":\"toggle\",\"input\":{\"fields\":[{\"kind\":\"number\",\"maximum\":1,\"minimum\":0,"
            "\"name\":\"level\",\"required\":true}]},\"output\":{\"fields\":[]},\"timeoutSeconds\":10,"
            "\"title\":\"T\xc3\xbcr "
            "\\\"auf\\\"\\n\"},\"address\":{\"name\":\"toggle\",\"plugin\":\"cafe.osta\"}}";
        QCOMPARE(*entry.definitionData(), expected);
        const QByteArray channelExpected =
            "{\"address\":{\"name\":\"c\",\"plugin\":\"cafe.osta\"},\"channel\":{\"id\":\"c\","
            "\"kind\":\"event\",\"schema\":{\"fields\":[]},\"title\":\"Channel\"}}";
        QCOMPARE(*channelEntry("cafe.osta", "c").definitionData(), channelExpected);
    }

    void canonicalEncodingSeesEveryField() {
        const PluginCatalogEntry base = actionEntry("cafe.osta", "toggle");
        QList<PluginCatalogEntry> variants(7, base);
        variants[0].action->title = "Other";
        variants[1].action->timeoutSeconds = 11;
        variants[2].action->completionTimeoutSeconds = 10;
        variants[3].action->cancellable = true;
        variants[4].action->effect = PluginRegisteredAction::Effect::externalChange;
        variants[5].action->output.fields = {{"r", PluginParameter::Kind::string, false, {}, {}}};
        variants[6].address.plugin = "cafe.other";
        for (const PluginCatalogEntry& variant : variants)
            QVERIFY(variant.definitionData() != base.definitionData());
        QCOMPARE(actionEntry("cafe.osta", "toggle").definitionData(), base.definitionData());
    }

    void nonFiniteNumbersHaveNoEncoding() {
        PluginCatalogEntry entry = actionEntry("cafe.osta", "toggle");
        QVERIFY(entry.definitionData());
        entry.action->timeoutSeconds = qInf();
        QVERIFY(!entry.definitionData());
        PluginCatalogEntry bounded = actionEntry("cafe.osta", "toggle");
        bounded.action->output.fields = {{"level", PluginParameter::Kind::number, false, 0.0, qQNaN()}};
        QVERIFY(!bounded.definitionData());
    }
};

QTEST_GUILESS_MAIN(TestPluginCatalogAccumulator)
#include "tst_PluginCatalogAccumulator.moc"
