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
using Effect = PluginRegisteredAction::Effect;

namespace {

const PluginActionAddress level{provider, "level"};
const QString recovery = "Action permissions need recovery. Access remains denied.";
const QString historyFailed = "Run history could not be saved. New cross-plugin access is denied.";
const QString unavailable = "Action unavailable or access not granted.";
const QString gone = "The action is no longer available.";

QList<PluginRegisteredAction> actions(double readTimeout = 10) {
    return {action("read", Effect::readOnly, readTimeout), action("change", Effect::externalChange)};
}

void setUp(RouterHarness& h, const QString& providerFingerprint = {}) {
    h.connect(caller);
    h.connect(provider, providerFingerprint);
    h.registerPeer(provider, actions(), {channel("level")});
    h.take();
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString& path, const QByteArray& bytes) {
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

ActionRunSummary summary(PluginRunPhase phase, double date) {
    return {QUuid::createUuid(), caller, reader, "Action read", phase, date};
}

QJsonArray summaries(int count, PluginRunPhase phase = PluginRunPhase::succeeded) {
    QJsonArray array;
    for (int i = 0; i < count; ++i)
        array.append(summary(phase, i).toJson());
    return array;
}

} // namespace

class TestActionRouterGrants final : public QObject {
    Q_OBJECT

private slots:
    void withoutGrantsOnlyOwnThings() {
        QTemporaryDir dir;
        RouterHarness h(dir.path());
        setUp(h);
        QVERIFY(!h.router.persistenceError());
        QVERIFY(!h.router.allowed(caller, h.entry(reader)));
        QVERIFY(h.router.allowed(provider, h.entry(reader)));
        QVERIFY(!h.router.allowed(caller, {{"cafe.gone", "read"}, action("read"), std::nullopt}));
        h.invoke(caller, reader, 0);
        QCOMPARE(h.failures(caller), QStringList(unavailable));
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList());
    }

    void grantsLapseAndReturn_data() {
        QTest::addColumn<QString>("changed");
        QTest::addRow("caller fingerprint") << "caller";
        QTest::addRow("provider fingerprint") << "provider";
        QTest::addRow("one timeout of the definition") << "definition";
    }

    void grantsLapseAndReturn() {
        QFETCH(QString, changed);
        QTemporaryDir dir;
        RouterHarness h(dir.path());
        setUp(h);
        h.grant(caller, reader);
        QVERIFY(h.router.allowed(caller, h.entry(reader)));
        const QUuid run = h.invoke(caller, reader, 0);

        if (changed == "caller")
            h.connect(caller, "cafe.caller-v2");
        if (changed == "provider") {
            h.connect(provider, "cafe.provider-v2");
            h.registerPeer(provider, actions(), {channel("level")});
        }
        if (changed == "definition") {
            h.registerPeer(provider, actions(11), {channel("level")});
            QCOMPARE(h.run(run)->update.message, "Provider actions changed; request was not replayed.");
        }
        QVERIFY(!h.router.allowed(caller, h.entry(reader)));
        h.take();
        h.router.receive(message(Operation::discover), caller, 1);
        QCOMPARE(h.to(caller, Operation::catalog).size(), 2);
        QCOMPARE(h.router.grants().size(), 1);

        // Back to what was granted: access returns without a new consent.
        if (changed == "caller")
            h.connect(caller);
        if (changed == "provider") {
            h.connect(provider);
            h.registerPeer(provider, actions(), {channel("level")});
        }
        if (changed == "definition")
            h.registerPeer(provider, actions(), {channel("level")});
        QVERIFY(h.router.allowed(caller, h.entry(reader)));
    }

    void grantsSurviveARestart() {
        QTemporaryDir dir;
        {
            RouterHarness h(dir.path());
            setUp(h);
            h.grant(caller, reader);
            h.grant(caller, level, true);
        }
        RouterHarness h(dir.path());
        QCOMPARE(h.router.grants().size(), 2);
        QCOMPARE(h.router.grants()[0].id(), "cafe.caller:cafe.provider/read:action");
        QCOMPARE(h.router.grants()[1].id(), "cafe.caller:cafe.provider/level:channel");
        setUp(h);
        QVERIFY(h.router.allowed(caller, h.entry(reader)));
        QVERIFY(!h.router.allowed(caller, h.entry(change)));
    }

    void setAllowedRefusesWhatIsNotThere_data() {
        QTest::addColumn<QString>("situation");
        QTest::addRow("title changed a moment ago") << "stale";
        QTest::addRow("caller gone") << "caller";
        QTest::addRow("provider gone") << "provider";
        QTest::addRow("never exported") << "unknown";
    }

    void setAllowedRefusesWhatIsNotThere() {
        QFETCH(QString, situation);
        QTemporaryDir dir;
        RouterHarness h(dir.path());
        setUp(h);
        PluginCatalogEntry entry = h.entry(reader);
        if (situation == "stale") {
            QList<PluginRegisteredAction> renamed = actions();
            renamed[0].title = "Renamed";
            h.registerPeer(provider, renamed);
        }
        if (situation == "caller")
            h.router.disconnect(caller);
        if (situation == "provider")
            h.router.disconnect(provider);
        if (situation == "unknown")
            entry.address.name = "other";
        QCOMPARE(problemOf([&] { h.router.setAllowed(caller, entry, true); }), gone);
        QVERIFY(h.router.grants().isEmpty());
        QVERIFY(!QFile::exists(dir.filePath("action-grants-v1.json")));
    }

    void revocation() {
        QTemporaryDir dir;
        RouterHarness h(dir.path());
        setUp(h);
        h.grant(caller, change);
        h.grant(caller, level, true);
        h.channelRequest(Operation::subscribe, caller, level, 0);
        const QUuid inReview = h.invoke(caller, change, 0);
        h.router.approve(h.invoke(caller, change, 0), 1);
        const QUuid approved = h.router.runs().last().id;
        h.take();

        // Revoking an action never granted still writes the file and ends running calls.
        h.router.setAllowed(caller, h.entry(reader), false);
        QCOMPARE(h.router.grants().size(), 2);
        h.router.setAllowed(caller, h.entry(change), false);
        const PluginRunUpdate revoked = runUpdate(
            PluginRunPhase::interrupted, "Access revoked. An already-started action may have taken effect.");
        QCOMPARE(h.run(inReview)->update, revoked);
        QCOMPARE(h.run(approved)->update, revoked);
        QCOMPARE(h.to(provider, Operation::cancel).size(), 1);
        QCOMPARE(h.to(provider, Operation::cancel)[0].requestID, approved);

        h.router.setAllowed(caller, h.entry(level, true), false);
        h.router.setAllowed(caller, h.entry(level, true), true);
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

    void revokingAChannelEndsTheCallersRunsAtItsAddress() {
        RouterHarness h;
        h.connect(caller);
        h.connect(provider);
        // An action and a channel may share a name; each is granted on its own.
        h.registerPeer(provider, {action("read"), action("level"), action("change", Effect::externalChange)},
                       {channel("level"), channel("change")});
        for (const PluginActionAddress& address : {reader, level, change})
            h.grant(caller, address);
        h.grant(caller, level, true);
        h.grant(caller, change, true);
        const QUuid running = h.invoke(caller, level, 0);
        const QUuid inReview = h.invoke(caller, change, 0);
        const QUuid elsewhere = h.invoke(caller, reader, 0);
        h.take();

        h.router.setAllowed(caller, h.entry(level, true), false);
        h.router.setAllowed(caller, h.entry(change, true), false);
        const PluginRunUpdate revoked = runUpdate(
            PluginRunPhase::interrupted, "Access revoked. An already-started action may have taken effect.");
        QCOMPARE(h.run(running)->update, revoked);
        QCOMPARE(h.run(inReview)->update, revoked);
        QCOMPARE(h.run(elsewhere)->phase(), PluginRunPhase::running);
        const QList<PluginBusMessage> cancels = h.to(provider, Operation::cancel);
        QCOMPARE(cancels.size(), 1);
        QCOMPARE(cancels[0].requestID, running);
        // The action's own grant stands.
        QVERIFY(h.router.allowed(caller, h.entry(level)));
        QVERIFY(!h.router.allowed(caller, h.entry(level, true)));
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
        RouterHarness h(dir.path());
        QVERIFY(!h.router.persistenceError());
        setUp(h);
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
        QTest::addRow("empty file") << QByteArray() << false;
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
        setUp(h);
        QCOMPARE(problemOf([&] { h.grant(caller, reader); }), gone);
        h.router.receive(message(Operation::discover), provider, 0);
        QCOMPARE(h.to(provider, Operation::catalog).size(), 2);
        h.invoke(provider, reader, 0);
        QCOMPARE(h.failures(provider), QStringList(unavailable));
        QCOMPARE(readFile(path), content);
    }

    void unreadableGrantsFileLatches() {
        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkdir("action-grants-v1.json"));
        RouterHarness h(dir.path());
        QCOMPARE(h.router.persistenceError(), recovery);
    }

    void historyIsRecordedOnEveryChange() {
        QTemporaryDir dir;
        const QString nested = dir.filePath("a/b/Actions");
        RouterHarness h(nested);
        setUp(h);
        h.grant(caller, reader);
        h.grant(caller, change);
        const QUuid first = h.invoke(caller, reader, 5);
        const QUuid second = h.invoke(caller, change, 6);
        QCOMPARE(h.router.history().size(), 2);
        QCOMPARE(h.router.history()[0].phase, PluginRunPhase::running);
        QCOMPARE(h.router.history()[1].phase, PluginRunPhase::waitingReview);
        h.update(provider, first,
                 runUpdate(PluginRunPhase::succeeded, "secret", {{"result", PluginValue::string("x")}}), 7);
        const ActionRunSummary expected{first, caller, reader, "Action read", PluginRunPhase::succeeded, 5};
        QCOMPARE(h.router.history(), (QList<ActionRunSummary>{h.router.history()[0], expected}));
        QCOMPARE(h.router.history()[0].id, second);
        // Identity and outcome only: no argument, value or message reaches the file.
        const QByteArray file = readFile(QDir(nested).filePath("action-history-v1.json"));
        // The file's keys, literally and in their order.
        const QString entry = QStringLiteral(
            R"({"id":"%1","caller":"cafe.caller","address":{"plugin":"cafe.provider","name":"%2"},)"
            R"("title":"Action %2","phase":"%3","date":%4})");
        QCOMPARE(file, ('[' + entry.arg(uuidText(second), "change", "waitingReview", "6") + ',' +
                        entry.arg(uuidText(first), "read", "succeeded", "5") + ']')
                           .toUtf8());
        QVERIFY(!file.contains("secret"));

        // The identity stays spent across a restart.
        RouterHarness restarted(nested);
        setUp(restarted);
        QCOMPARE(restarted.router.history().size(), 2);
        QCOMPARE(restarted.router.history()[0].phase, PluginRunPhase::interrupted);
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
        // A whole, valid entry but for its phase.
        QJsonObject paused = summary(PluginRunPhase::succeeded, 1).toJson();
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
        QVERIFY(!h.router.persistenceError());
        QCOMPARE(h.router.history().size(), loaded);
        if (loaded)
            QCOMPARE(h.router.history().last().date, loaded == 100 ? 149.0 : 1.0);
    }

    void liveHistoryEntriesAreRepaired() {
        QTemporaryDir dir;
        QJsonArray entries;
        for (PluginRunPhase phase :
             {PluginRunPhase::waitingReview, PluginRunPhase::running, PluginRunPhase::cancelling,
              PluginRunPhase::succeeded, PluginRunPhase::failed, PluginRunPhase::cancelled})
            entries.append(summary(phase, 0).toJson());
        const QString path = dir.filePath("action-history-v1.json");
        writeFile(path, encode(entries));
        RouterHarness h(dir.path());
        QList<PluginRunPhase> phases;
        for (const ActionRunSummary& entry : h.router.history())
            phases.append(entry.phase);
        QCOMPARE(phases, (QList<PluginRunPhase>{PluginRunPhase::interrupted, PluginRunPhase::interrupted,
                                                PluginRunPhase::interrupted, PluginRunPhase::succeeded,
                                                PluginRunPhase::failed, PluginRunPhase::cancelled}));
        QCOMPARE(readFile(path), encode(entries));
    }

    void failedHistorySaveLatches() {
        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkdir("action-history-v1.json"));
        RouterHarness h(dir.path());
        QVERIFY(!h.router.persistenceError());
        setUp(h);
        h.grant(caller, reader);
        h.grant(caller, change);
        const QUuid review = h.invoke(caller, change, 0);
        QCOMPARE(h.router.persistenceError(), historyFailed);
        QCOMPARE(h.router.history().size(), 1);
        const QUuid run = h.invoke(provider, reader, 0);
        QCOMPARE(h.failures(provider), QStringList(unavailable));
        QVERIFY(!h.run(run));

        // Runs under way carry on; a run in review can no longer be approved.
        QCOMPARE(problemOf([&] { h.router.approve(review, 1); }), "The reviewed request is no longer valid.");
        QCOMPARE(problemOf([&] { h.grant(caller, change); }), gone);
        h.take();
        h.router.receive(message(Operation::discover), provider, 1);
        QCOMPARE(h.to(provider, Operation::catalog).size(), 2);
    }

    void updatesFlowWhileLatched() {
        QTemporaryDir dir;
        RouterHarness h(dir.path());
        setUp(h);
        h.grant(caller, reader);
        h.grant(caller, level, true);
        h.channelRequest(Operation::subscribe, caller, level, 0);
        const QUuid run = h.invoke(caller, reader, 0);
        QFile::remove(dir.filePath("action-history-v1.json"));
        QVERIFY(QDir(dir.path()).mkdir("action-history-v1.json"));
        h.take();
        h.update(provider, run, runUpdate(PluginRunPhase::running, "half"), 1);
        QCOMPARE(h.router.persistenceError(), historyFailed);
        h.update(provider, run, runUpdate(PluginRunPhase::succeeded), 2);
        QCOMPARE(h.to(caller, Operation::update).size(), 2);
        QCOMPARE(h.router.history().last().phase, PluginRunPhase::succeeded);
        h.invoke(caller, reader, 3);
        QCOMPARE(h.failures(caller), QStringList(unavailable));
        // The subscription stays, but nothing crosses to it any more.
        h.publish(provider, level, 3);
        QVERIFY(h.to(caller, Operation::event).isEmpty());
    }

    void noDirectoryTouchesNoFile() {
        QTemporaryDir dir;
        const QString previous = QDir::currentPath();
        QDir::setCurrent(dir.path());
        {
            RouterHarness h;
            setUp(h);
            h.grant(caller, reader);
            h.update(provider, h.invoke(caller, reader, 0), runUpdate(PluginRunPhase::succeeded), 1);
            QCOMPARE(h.router.history().size(), 1);
        }
        QDir::setCurrent(previous);
        QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
                 QStringList());
    }
};

QTEST_GUILESS_MAIN(TestActionRouterGrants)
#include "tst_ActionRouterGrants.moc"
