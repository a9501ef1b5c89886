#include "VellPluginSDK/Actions/PluginCatalogAccumulator.h"

#include <QTest>

#include "TestSupport.h"

using namespace vell;
using namespace vell::test;

namespace {

const QUuid first("{11111111-1111-1111-1111-111111111111}");
const QUuid second("{22222222-2222-2222-2222-222222222222}");
using Entries = QList<PluginCatalogEntry>;

PluginCatalogEntry actionEntry(const QString& plugin, const QString& id, const QString& title = "Action",
                               double timeout = 10) {
    return {{plugin, id}, action(id, title, timeout), std::nullopt};
}

PluginCatalogEntry channelEntry(const QString& plugin, const QString& id, const QString& title = "Channel") {
    return {{plugin, id}, std::nullopt, PluginChannel{id, title, PluginChannel::Kind::event, {}}};
}

PluginBusMessage piece(const QUuid& generation, std::optional<Entries> entries,
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
    // Other operations, whatever they carry, change nothing; an action and a channel of one name
    // are two entries.
    void rebuildsFromPieces() {
        PluginCatalogAccumulator accumulator;
        QVERIFY(!accumulator.receive(piece(first, Entries{})));
        QVERIFY(!accumulator.receive(piece(first, Entries{actionEntry("cafe.osta", "toggle")})));
        PluginBusMessage event = piece(second, std::nullopt, true);
        event.operation = PluginBusMessage::Operation::event;
        QVERIFY(!accumulator.receive(event));
        QVERIFY(!accumulator.receive(piece(first, Entries{channelEntry("cafe.osta", "toggle")}, false)));
        QVERIFY(accumulator.entries.isEmpty());
        QVERIFY(accumulator.receive(piece(first, std::nullopt, true)));
        QCOMPARE(accumulator.entries.size(), 2);
        QVERIFY(accumulator.pending.isEmpty());
        QVERIFY(!accumulator.generation);
    }

    // A new generation drops the pieces of an older one, and when it completes empty, the
    // empty catalogue replaces the last one.
    void newGenerationDropsOlderPieces() {
        PluginCatalogAccumulator accumulator;
        accumulator.receive(piece(second, Entries{actionEntry("cafe.osta", "a")}, true));
        accumulator.receive(piece(first, Entries{actionEntry("cafe.osta", "b")}));
        accumulator.receive(piece(second, Entries{}));
        QVERIFY(accumulator.pending.isEmpty());
        QCOMPARE(accumulator.generation, second);
        // The closing piece of the old generation starts it afresh rather than completing it.
        QVERIFY(accumulator.receive(piece(first, std::nullopt, true)));
        QVERIFY(accumulator.entries.isEmpty());
    }

    void entryFailures_data() {
        QTest::addColumn<PluginCatalogEntry>("entry");
        QTest::addColumn<QString>("message");
        const PluginCatalogEntry both{
            {"cafe.osta", "a"}, action("a"), channelEntry("cafe.osta", "a").channel};
        row("bad address before its action", actionEntry("cafe", "a", ""), "Invalid action address.");
        row("both action and channel", both, "Invalid catalog entry.");
        row("neither action nor channel", PluginCatalogEntry{{"cafe.osta", "a"}, {}, {}},
            "Invalid catalog entry.");
        row("bad action", actionEntry("cafe.osta", "a", "Action", 0), "Invalid registered action.");
        row("bad channel", channelEntry("cafe.osta", "a", ""), "Invalid channel.");
        row("name differs from id", PluginCatalogEntry{{"cafe.osta", "b"}, action("a"), {}},
            "Catalog identity mismatch.");
        row("duplicate action", actionEntry("cafe.osta", "ok"), "Duplicate catalog entry.");
    }

    void entryFailures() {
        QFETCH(PluginCatalogEntry, entry);
        PluginCatalogAccumulator accumulator;
        const Entries last{actionEntry("cafe.osta", "z")};
        accumulator.receive(piece(first, last, true));
        const PluginCatalogEntry good = actionEntry("cafe.osta", "ok");
        QTEST(problemOf([&] { accumulator.receive(piece(second, Entries{good, entry}, true)); }), "message");
        // The good entry before the bad one stays pending; the last catalogue is kept.
        QCOMPARE(accumulator.pending, Entries{good});
        QCOMPARE(accumulator.generation, second);
        QCOMPARE(accumulator.entries, last);
    }

    void limitIsCheckedAtTheEndOfAMessage_data() {
        QTest::addColumn<int>("count");
        QTest::addColumn<bool>("accepted");
        row("1280 entries", 1280, true);
        row("1281 entries", 1281, false);
    }

    void limitIsCheckedAtTheEndOfAMessage() {
        QFETCH(int, count);
        QFETCH(bool, accepted);
        PluginCatalogAccumulator accumulator;
        accumulator.receive(piece(first, Entries{actionEntry("cafe.osta", "before")}, true));
        accumulator.receive(piece(second, Entries{}));
        for (int i = 0; i < count - 1; ++i)
            accumulator.receive(piece(second, Entries{actionEntry(QStringLiteral("peer.p%1").arg(i / 64),
                                                                  QStringLiteral("a%1").arg(i % 64))}));
        const QString problem = problemOf(
            [&] { accumulator.receive(piece(second, Entries{actionEntry("peer.last", "a")}, true)); });
        QCOMPARE(problem, accepted ? QString() : "Catalog exceeds its limit.");
        QCOMPARE(accumulator.entries.size(), accepted ? count : 1);
    }

    void canonicalEncodingIsFixed() {
        PluginCatalogEntry entry = actionEntry("cafe.osta", "toggle", "Tür \"auf\"\n");
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
