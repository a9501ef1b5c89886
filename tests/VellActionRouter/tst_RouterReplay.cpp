#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace {

QString dataPath(const QString& name) {
    return qEnvironmentVariable("VELL_SOURCE_DIR") + "/tests/tools/data/" + name;
}

struct Result {
    int exitCode = -1;
    QStringList lines;
    QString errors;
};

Result vellctl(const QStringList& arguments, const QString& workingDirectory = {}) {
    QProcess process;
    if (!workingDirectory.isEmpty())
        process.setWorkingDirectory(workingDirectory);
    process.start(qEnvironmentVariable("VELL_BUILD_DIR") + "/bin/vellctl", arguments);
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit)
        return {};
    Result result{process.exitCode(), {}, QString::fromUtf8(process.readAllStandardError())};
    result.lines = QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    return result;
}

// Catalogue generations are fresh random identities; they are named by order of appearance.
QStringList normalized(const QStringList& lines) {
    QMap<QString, QString> generations;
    QStringList result;
    for (QString line : lines) {
        const QJsonObject bus = QJsonDocument::fromJson(line.toUtf8()).object().value("bus").toObject();
        if (bus.value("operation") == "catalog") {
            const QString id = bus.value("requestID").toString();
            if (!generations.contains(id))
                generations.insert(id, QStringLiteral("GENERATION-%1").arg(generations.size() + 1));
            line.replace(id, generations.value(id));
        }
        result.append(line);
    }
    return result;
}

QStringList expectedLines() {
    QFile file(dataPath("router-replay.expected.jsonl"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
}

} // namespace

// Runs the built vellctl over replay scripts, as an author checking a peer would.
class TestRouterReplay final : public QObject {
    Q_OBJECT

private slots:
    void replayWithDirectory() {
        QTemporaryDir dir;
        const QString actions = dir.filePath("Actions");
        const Result result =
            vellctl({"router", "replay", dataPath("router-replay.jsonl"), "--directory", actions});
        QCOMPARE(result.errors, QString());
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(normalized(result.lines), expectedLines());
        QCOMPARE(QDir(actions).entryList(QDir::Files),
                 QStringList({"action-grants-v1.json", "action-history-v1.json"}));
    }

    void replayWithoutDirectoryKeepsNothing() {
        QTemporaryDir dir;
        const Result result = vellctl({"router", "replay", dataPath("router-replay.jsonl")}, dir.path());
        QCOMPARE(result.exitCode, 0);
        // Identical up to the restart; after it, the grants are gone with the old router.
        const QStringList expected = expectedLines();
        const qsizetype restart = expected.indexOf(
            R"({"to":"cafe.provider","bus":{"operation":"cancel","requestID":"AAAAAAAA-0000-0000-0000-000000000002"}})");
        QVERIFY(restart > 0);
        QCOMPARE(normalized(result.lines).mid(0, restart + 1), expected.mid(0, restart + 1));
        QVERIFY(result.lines.last().contains(R"("error":"Action unavailable or access not granted.")"));
        QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    }

    void invalidStepStopsTheReplay_data() {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QString>("reason");

        QTest::addRow("not JSON") << QByteArray("{\"at\":") << "unterminated object";
        QTest::addRow("not an object") << QByteArray("[1]") << "must be a JSON object";
        QTest::addRow("unknown step") << QByteArray(R"({"at":1,"jump":true})") << "unknown step";
        QTest::addRow("two steps") << QByteArray(R"({"at":1,"tick":true,"restart":true})")
                                   << "a step does exactly one thing";
        QTest::addRow("no instant") << QByteArray(R"({"tick":true})") << "\"at\" is missing";
        QTest::addRow("tick false") << QByteArray(R"({"at":1,"tick":false})") << "\"tick\" must be true";
        QTest::addRow("session not a UUID")
            << QByteArray(R"({"at":1,"connect":"a.b","fingerprint":"f","session":"x"})")
            << "\"session\" must be a UUID";
        QTest::addRow("unknown operation")
            << QByteArray(
                   R"({"at":1,"from":"cafe.caller","bus":{"operation":"ping","requestID":"AAAAAAAA-0000-0000-0000-000000000001"}})")
            << "\"bus.operation\" has an unknown case";
        QTest::addRow("allow without a decision")
            << QByteArray(
                   R"({"at":1,"allow":{"caller":"a.b","entry":{"address":{"plugin":"a.b","name":"x"}}}})")
            << "\"allow.allowed\" is missing";
    }

    void invalidStepStopsTheReplay() {
        QFETCH(QByteArray, line);
        QFETCH(QString, reason);
        QTemporaryDir dir;
        const QString script = dir.filePath("script.jsonl");
        QFile file(script);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(
            R"({"at":0,"connect":"cafe.caller","fingerprint":"f","session":"00000000-0000-0000-0000-000000000001"})"
            "\n\n"
            R"({"at":0,"from":"cafe.caller","bus":{"operation":"discover","requestID":"00000000-0000-0000-0000-000000000002"}})"
            "\n" +
            line + "\n" + R"({"at":0,"tick":true})" + "\n" +
            R"({"at":0,"from":"cafe.caller","bus":{"operation":"discover","requestID":"00000000-0000-0000-0000-000000000003"}})" +
            "\n");
        file.close();
        const Result result = vellctl({"router", "replay", script});
        QCOMPARE(result.exitCode, 2);
        QVERIFY2(result.errors.startsWith("vellctl: " + script + ":4: not a valid step: " + reason + "\n"),
                 qPrintable(result.errors));
        QCOMPARE(result.lines.size(), 2);
    }

    void missingScript() {
        const Result result = vellctl({"router", "replay", "/nonexistent/script.jsonl"});
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(result.errors, "vellctl: /nonexistent/script.jsonl: No such file or directory\n");
        QCOMPARE(vellctl({"router", "replay"}).exitCode, 2);
        QCOMPARE(vellctl({"router", "replay", "a", "--dir", "b"}).exitCode, 2);
    }
};

QTEST_GUILESS_MAIN(TestRouterReplay)
#include "tst_RouterReplay.moc"
