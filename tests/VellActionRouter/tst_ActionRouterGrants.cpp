#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

#include "RouterHarness.h"

using namespace vell;
using namespace vell::test;
using Operation = PluginBusMessage::Operation;
using Phase = PluginRunPhase;
using Effect = PluginRegisteredAction::Effect;

namespace {

const QString recovery = "Action permissions need recovery. Access remains denied.";
const QString gone = "The action is no longer available.";
const PluginRunUpdate revoked =
    runUpdate(Phase::interrupted, "Access revoked. An already-started action may have taken effect.");

QList<PluginRegisteredAction> actions(double readTimeout = 10) {
    return {action("read", Effect::readOnly, readTimeout), action("change", Effect::externalChange)};
}

void setUp(RouterHarness& h) {
    h.connect(caller);
    h.connect(provider);
    h.registerPeer(provider, actions(), {channel("level")});
    h.take();
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// A null array stands for a folder in the file's place, which no read gets through.
void writeFile(const QString& path, const QByteArray& bytes) {
    if (bytes.isNull()) {
        QVERIFY(QDir().mkdir(path));
        return;
    }
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), bytes.size());
}

QByteArray encode(const QJsonArray& array) {
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

ActionGrant fakeGrant(int i) {
    return {QStringLiteral("cafe.caller%1").arg(i), "fp", {provider, "read"}, "fp", false, "{}"};
}

ActionRunSummary summary(Phase phase, double date) {
    return {QUuid::createUuid(), caller, reader, "Action read", phase, date};
}

QJsonArray summaries(int count) {
    QJsonArray array;
    for (int i = 0; i < count; ++i)
        array.append(summary(Phase::succeeded, i).toJson());
    return array;
}

} // namespace

class TestActionRouterGrants final : public QObject {
    Q_OBJECT

private slots:
    void withoutGrantsOnlyOwnThings() {
        QTemporaryDir dir;
        RouterHarness h(setUp, dir.path());
        QVERIFY(!h.router.persistenceError());
        QVERIFY(!h.router.allowed(caller, h.entry(reader)));
        QVERIFY(h.router.allowed(provider, h.entry(reader)));
        QVERIFY(!h.router.allowed(caller, {{"cafe.gone", "read"}, action("read"), std::nullopt}));

        // Nor is anything granted that is not there: from an older catalogue, never exported, or
        // with the caller or the provider gone.
        const auto refusal = [&](const PluginCatalogEntry& entry) {
            return problemOf([&] { h.router.setAllowed(caller, entry, true); });
        };
        const PluginCatalogEntry old = h.entry(reader);
        PluginCatalogEntry unknown = old;
        unknown.address.name = "other";
        QList<PluginRegisteredAction> renamed = actions();
        renamed[0].title = "Renamed";
        h.registerPeer(provider, renamed);
        QCOMPARE(refusal(old), gone);
        QCOMPARE(refusal(unknown), gone);
        const PluginCatalogEntry current = h.entry(reader);
        h.router.disconnect(caller);
        QCOMPARE(refusal(current), gone);
        h.connect(caller);
        h.router.disconnect(provider);
        QCOMPARE(refusal(current), gone);
        QVERIFY(h.router.grants().isEmpty());
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList());
    }

    void grantsLapseAndReturn() {
        RouterHarness h(setUp);
        h.grant(caller, reader);
        const auto lapsed = [&] {
            h.take();
            h.router.receive(message(Operation::discover), caller, 1);
            return !h.router.allowed(caller, h.entry(reader)) && h.to(caller, Operation::catalog).size() == 2;
        };
        QVERIFY(!lapsed());
        // Another caller, provider or definition in turn; back to what was granted, access returns
        // without a new consent.
        h.connect(caller, "cafe.caller-v2");
        QVERIFY(lapsed());
        h.connect(caller);
        QVERIFY(!lapsed());
        h.connect(provider, "cafe.provider-v2");
        h.registerPeer(provider, actions(), {channel("level")});
        QVERIFY(lapsed());
        h.connect(provider);
        h.registerPeer(provider, actions(), {channel("level")});
        QVERIFY(!lapsed());
        h.registerPeer(provider, actions(11), {channel("level")});
        QVERIFY(lapsed());
        h.registerPeer(provider, actions(), {channel("level")});
        QVERIFY(!lapsed());
    }

    void revocation() {
        QTemporaryDir dir;
        RouterHarness h(dir.path());
        h.connect(caller);
        h.connect(provider);
        // An action and a channel may share a name; each is granted on its own.
        h.registerPeer(provider, {action("read"), action("level"), action("change", Effect::externalChange)},
                       {channel("level")});
        h.grant(caller, level);
        h.grant(caller, change);
        h.grant(caller, level, true);
        h.channelRequest(Operation::subscribe, caller, level, 0);
        const QUuid running = h.invoke(caller, level, 0);
        const QUuid inReview = h.invoke(caller, change, 0);
        h.router.approve(h.invoke(caller, change, 0), 1);
        const QUuid approved = h.router.runs().last().id;
        h.take();

        // Revoking what was never granted removes nothing. A revocation ends the caller's runs at
        // its address, whichever kind of entry it was, and calls off what the provider was handed.
        h.router.setAllowed(caller, h.entry(reader), false);
        QCOMPARE(h.router.grants().size(), 3);
        h.router.setAllowed(caller, h.entry(change), false);
        QCOMPARE(h.run(inReview)->update, revoked);
        QCOMPARE(h.run(approved)->update, revoked);
        QCOMPARE(h.run(running)->phase(), Phase::running);
        h.router.setAllowed(caller, h.entry(level, true), false);
        QCOMPARE(h.run(running)->update, revoked);
        QCOMPARE(h.to(provider, Operation::cancel),
                 (QList<PluginBusMessage>{message(Operation::cancel, approved),
                                          message(Operation::cancel, running)}));
        QVERIFY(h.router.allowed(caller, h.entry(level)));

        // The subscription went with the grant and does not come back with it.
        h.router.setAllowed(caller, h.entry(level, true), true);
        h.router.setAllowed(caller, h.entry(level), false);
        h.take();
        h.publish(provider, level, 2);
        QVERIFY(h.to(caller, Operation::event).isEmpty());
        // The file's keys, literally and in their order.
        const QString grants = QStringLiteral(
            R"([{"caller":"cafe.caller","callerFingerprint":"cafe.caller-v1",)"
            R"("address":{"plugin":"cafe.provider","name":"level"},"providerFingerprint":"cafe.provider-v1",)"
            R"("channel":true,"definition":"%1"}])");
        QCOMPARE(readFile(dir.filePath("action-grants-v1.json")),
                 grants.arg(QString::fromLatin1(h.router.grants()[0].definition.toBase64())).toUtf8());
    }

    void grantLimit() {
        QTemporaryDir dir;
        QJsonArray grants;
        for (int i = 0; i < 2047; ++i)
            grants.append(fakeGrant(i).toJson());
        ActionGrant stale = fakeGrant(0);
        stale.caller = caller;
        grants.append(stale.toJson());
        writeFile(dir.filePath("action-grants-v1.json"), encode(grants));
        RouterHarness h(setUp, dir.path());
        QVERIFY(!h.router.persistenceError());
        // Replacing a grant keeps the count at 2,048; a new one would be the 2,049th.
        h.grant(caller, reader);
        QCOMPARE(h.router.grants().size(), 2048);
        const QByteArray before = readFile(dir.filePath("action-grants-v1.json"));
        QCOMPARE(problemOf([&] { h.grant(caller, change); }), "Too many action permissions.");
        QCOMPARE(h.router.grants().size(), 2048);
        QCOMPARE(readFile(dir.filePath("action-grants-v1.json")), before);
    }

    void unusableGrantsFileLatches_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("usable");

        const QByteArray empty = "[]";
        QTest::addRow("1,048,576 bytes") << empty + QByteArray(1048576 - 2, ' ') << true;
        QTest::addRow("1,048,577 bytes") << empty + QByteArray(1048577 - 2, ' ') << false;
        QTest::addRow("empty file") << QByteArray("") << false;
        QTest::addRow("a folder") << QByteArray() << false;
        QTest::addRow("an object") << QByteArray("{}") << false;
        QJsonObject badBase64 = fakeGrant(0).toJson();
        badBase64.insert("definition", "%%%");
        QTest::addRow("definition not base64") << encode({badBase64}) << false;
        ActionGrant twin = fakeGrant(0);
        twin.callerFingerprint = "other";
        QTest::addRow("one id twice, other fingerprints")
            << encode({fakeGrant(0).toJson(), twin.toJson()}) << false;
        QJsonArray tooMany;
        for (int i = 0; i < 2049; ++i)
            tooMany.append(fakeGrant(i).toJson());
        QTest::addRow("2,049 grants") << encode(tooMany) << false;
    }

    void unusableGrantsFileLatches() {
        QFETCH(QByteArray, content);
        QFETCH(bool, usable);
        QTemporaryDir dir;
        const QString path = dir.filePath("action-grants-v1.json");
        writeFile(path, content);
        writeFile(dir.filePath("action-history-v1.json"), encode(summaries(3)));
        RouterHarness h(dir.path());
        QCOMPARE(h.router.persistenceError(), usable ? std::nullopt : std::optional<QString>(recovery));
        QCOMPARE(h.router.history().size(), usable ? 3 : 0);
        if (usable)
            return;
        // No grant is given while latched, so the file stays for repair.
        setUp(h);
        QCOMPARE(problemOf([&] { h.grant(caller, reader); }), gone);
        QCOMPARE(readFile(path), content);
    }

    void historyIsRecordedAndBothFilesSurviveARestart() {
        QTemporaryDir dir;
        const QString nested = dir.filePath("a/b/Actions");
        RouterHarness h(setUp, nested);
        h.grant(caller, reader);
        h.grant(caller, change);
        h.grant(caller, level, true);
        const QUuid first = h.invoke(caller, reader, 5);
        const QUuid second = h.invoke(caller, change, 6);
        h.update(provider, first,
                 runUpdate(Phase::succeeded, "secret", {{"result", PluginValue::string("x")}}), 7);
        const ActionRunSummary expected{first, caller, reader, "Action read", Phase::succeeded, 5};
        QCOMPARE(h.router.history(), (QList<ActionRunSummary>{h.router.history()[0], expected}));
        QCOMPARE(h.router.history()[0].id, second);
        // Identity and outcome only: no argument, value or message reaches the file. The file's
        // keys, literally and in their order.
        const QByteArray file = readFile(QDir(nested).filePath("action-history-v1.json"));
        const QString entry = QStringLiteral(
            R"({"id":"%1","caller":"cafe.caller","address":{"plugin":"cafe.provider","name":"%2"},)"
            R"("title":"Action %2","phase":"%3","date":%4})");
        QCOMPARE(file, ('[' + entry.arg(uuidText(second), "change", "waitingReview", "6") + ',' +
                        entry.arg(uuidText(first), "read", "succeeded", "5") + ']')
                           .toUtf8());

        // The grants hold again, and the identity stays spent.
        RouterHarness restarted(setUp, nested);
        QCOMPARE(restarted.router.grants()[0].id(), "cafe.caller:cafe.provider/read:action");
        QCOMPARE(restarted.router.grants()[2].id(), "cafe.caller:cafe.provider/level:channel");
        QVERIFY(restarted.router.allowed(caller, restarted.entry(reader)));
        QCOMPARE(restarted.router.history().size(), 2);
        QCOMPARE(restarted.router.history()[0].phase, Phase::interrupted);
        restarted.invoke(provider, reader, 8, {}, first);
        QCOMPARE(restarted.failures(provider), QStringList("Run identity is already in use."));
    }

    void historyLoading_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<int>("loaded");

        QTest::addRow("150 entries keep the last 100") << encode(summaries(150)) << 100;
        const QByteArray two = encode(summaries(2));
        QTest::addRow("262,144 bytes") << two + QByteArray(262144 - two.size(), ' ') << 2;
        QTest::addRow("262,145 bytes") << two + QByteArray(262145 - two.size(), ' ') << 0;
        QTest::addRow("not a list") << QByteArray("{}") << 0;
        QTest::addRow("a folder") << QByteArray() << 0;
        // A whole, valid entry but for its phase.
        QJsonObject paused = summary(Phase::succeeded, 1).toJson();
        QTest::addRow("a valid entry loads") << encode({paused}) << 1;
        paused.insert("phase", "paused");
        QTest::addRow("unknown phase") << encode({paused}) << 0;
    }

    void historyLoading() {
        QFETCH(QByteArray, content);
        QFETCH(int, loaded);
        QTemporaryDir dir;
        writeFile(dir.filePath("action-history-v1.json"), content);
        RouterHarness h(dir.path());
        // A lost history is no error.
        QVERIFY(!h.router.persistenceError());
        QCOMPARE(h.router.history().size(), loaded);
        if (loaded)
            QCOMPARE(h.router.history().last().date, loaded == 100 ? 149.0 : 1.0);
    }

    void liveHistoryEntriesAreRepaired() {
        QTemporaryDir dir;
        const QList<Phase> ended{Phase::succeeded, Phase::failed, Phase::cancelled};
        QJsonArray entries;
        for (Phase phase : QList{Phase::waitingReview, Phase::running, Phase::cancelling} + ended)
            entries.append(summary(phase, 0).toJson());
        const QString path = dir.filePath("action-history-v1.json");
        writeFile(path, encode(entries));
        RouterHarness h(dir.path());
        QList<Phase> phases;
        for (const ActionRunSummary& entry : h.router.history())
            phases.append(entry.phase);
        QCOMPARE(phases, QList<Phase>(3, Phase::interrupted) + ended);
        // Only the next record rewrites the file.
        QCOMPARE(readFile(path), encode(entries));
    }

    void failedHistorySaveLatches() {
        QTemporaryDir dir;
        RouterHarness h(setUp, dir.path());
        h.grant(caller, reader);
        h.grant(caller, change);
        h.grant(caller, level, true);
        h.channelRequest(Operation::subscribe, caller, level, 0);
        const QUuid review = h.invoke(caller, change, 0);
        QFile::remove(dir.filePath("action-history-v1.json"));
        QVERIFY(QDir(dir.path()).mkdir("action-history-v1.json"));
        h.take();
        const QUuid run = h.invoke(caller, reader, 1);
        QCOMPARE(h.router.persistenceError(),
                 "Run history could not be saved. New cross-plugin access is denied.");

        // Runs under way carry on, and memory keeps their entries.
        h.update(provider, run, runUpdate(Phase::succeeded), 2);
        QCOMPARE(h.to(caller, Operation::update).size(), 2);
        QCOMPARE(h.router.history().last().phase, Phase::succeeded);
        // Nothing new crosses: no approval, grant, catalogue entry, run or event.
        QCOMPARE(problemOf([&] { h.router.approve(review, 3); }), "The reviewed request is no longer valid.");
        QCOMPARE(problemOf([&] { h.grant(caller, change); }), gone);
        h.take();
        h.router.receive(message(Operation::discover), provider, 3);
        QCOMPARE(h.to(provider, Operation::catalog).size(), 2);
        const QUuid refused = h.invoke(provider, reader, 3);
        QCOMPARE(h.failures(provider), QStringList(unavailable));
        QVERIFY(!h.run(refused));
        h.publish(provider, level, 3);
        QVERIFY(h.to(caller, Operation::event).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestActionRouterGrants)
#include "tst_ActionRouterGrants.moc"
