// The library and history files: their bounds from both sides, the repair of runs a restart
// cut short, and files that are never touched by a read or a refused write.

#include "VellWorkflows/WorkflowFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include "WorkflowFixtures.h"

using namespace vell;
using namespace vell::test;

namespace {

// count manual workflows, "Flow 0" on, each with an id of its own.
QList<WorkflowDocument> library(int count) {
    QList<WorkflowDocument> documents;
    for (int i = 0; i < count; ++i) {
        documents.append(document({manual()}));
        documents.last().id = QUuid::createUuidV5(QUuid(), QString::number(i));
        documents.last().title = QStringLiteral("Flow %1").arg(i);
    }
    return documents;
}

WorkflowTimeline::Step stepIn(const QString& node, const QString& phase) {
    const bool active = phase == u"running" || phase == u"waitingReview";
    return {node, node, phase, 1, active ? std::nullopt : std::optional<double>(2), {}, {}};
}

WorkflowTimeline timeline(int i, const QString& phase, QList<WorkflowTimeline::Step> steps = {}) {
    const QUuid id = QUuid::createUuidV5(QUuid(), QStringLiteral("run %1").arg(i));
    return {id, QUuid(), "Flow", phase, double(i), std::move(steps), {}, {}};
}

void writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

QByteArray contents(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// A JSON array padded with spaces to exactly size bytes.
QByteArray padded(qsizetype size) {
    return QByteArray("[]") + QByteArray(size - 2, ' ');
}

} // namespace

class WorkflowFilesTest final : public QObject {
    Q_OBJECT

private slots:
    void nothingStoredCreatesNothing() {
        QTemporaryDir root;
        const WorkflowFiles files(root.filePath("Automations"));
        QVERIFY(files.load().isEmpty());
        QVERIFY(files.history(0).isEmpty());
        QVERIFY(!QFileInfo::exists(files.directory()));
        files.save(library(2));
        QCOMPARE(QFileInfo(files.directory()).permissions() & 0x7777,
                 QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
                     QFileDevice::ReadUser | QFileDevice::WriteUser | QFileDevice::ExeUser);
        QCOMPARE(files.load(), library(2));
    }

    void sizeBounds_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("refusal");
        QTest::addRow("library") << QString("workflows-v1.json") << "Workflow storage is too large.";
        QTest::addRow("history") << QString("history-v1.json") << "History is too large.";
    }
    void sizeBounds() {
        QFETCH(QString, name);
        QFETCH(QString, refusal);
        QTemporaryDir root;
        const WorkflowFiles files(root.path());
        const auto read = [&] {
            return problemOf(
                [&] { name.startsWith("history") ? void(files.history(0)) : void(files.load()); });
        };
        writeFile(root.filePath(name), padded(WorkflowFiles::maximumFileBytes));
        QCOMPARE(read(), QString());
        writeFile(root.filePath(name), padded(WorkflowFiles::maximumFileBytes + 1));
        QCOMPARE(read(), refusal);
        QCOMPARE(contents(root.filePath(name)).size(), WorkflowFiles::maximumFileBytes + 1);
    }

    void storedLibraryChecks_data() {
        QTest::addColumn<QList<WorkflowDocument>>("documents");
        QTest::addColumn<QString>("onLoad");
        QTest::addColumn<QString>("onSave");
        const QString invalidLibrary = "Invalid workflow library.";
        const QString full = "The workflow library is full.";
        QList<WorkflowDocument> twins = library(2);
        twins[1].id = twins[0].id;
        QList<WorkflowDocument> version = library(1);
        version[0].schemaVersion = 2;
        QList<WorkflowDocument> longTitle = library(1);
        longTitle[0].title = QString(81, 'a');
        QList<WorkflowDocument> untitled = library(1);
        untitled[0].title.clear();
        // Unfinished work: two starts and a dangling edge are stored as they are.
        QList<WorkflowDocument> unfinished{document({manual(), manual("b")}, {edge("b", "nowhere")})};
        QTest::addRow("64 documents") << library(64) << QString() << QString();
        QTest::addRow("65 documents") << library(65) << invalidLibrary << full;
        QTest::addRow("one id twice") << twins << invalidLibrary << full;
        QTest::addRow("schema version 2") << version << "Invalid stored workflow."
                                          << "Invalid stored workflow.";
        QTest::addRow("81-character title") << longTitle << "Invalid stored workflow."
                                            << "Invalid stored workflow.";
        QTest::addRow("empty title") << untitled << QString() << QString();
        QTest::addRow("unfinished graph") << unfinished << QString() << QString();
    }
    void storedLibraryChecks() {
        QFETCH(QList<WorkflowDocument>, documents);
        QFETCH(QString, onLoad);
        QFETCH(QString, onSave);
        QTemporaryDir root;
        const WorkflowFiles files(root.path());
        QList<QByteArray> items;
        for (const WorkflowDocument& document : documents)
            items.append(document.encoded());
        const QByteArray stored = '[' + items.join(',') + ']';
        writeFile(root.filePath("workflows-v1.json"), stored);
        QCOMPARE(problemOf([&] { files.load(); }), onLoad);
        QCOMPARE(problemOf([&] { files.save(documents); }), onSave);
        if (!onSave.isEmpty())
            QCOMPARE(contents(root.filePath("workflows-v1.json")), stored);
    }

    // A file that does not decode is reported with the decoder's words and left as it was.
    void undecodableFilesStay() {
        QTemporaryDir root;
        const WorkflowFiles files(root.path());
        writeFile(root.filePath("workflows-v1.json"), "[{\"schemaVersion\":1}");
        writeFile(root.filePath("history-v1.json"), "{\"id\":1}");
        QVERIFY(!problemOf([&] { files.load(); }).isEmpty());
        QCOMPARE(problemOf([&] { files.history(0); }), "The file does not hold a JSON array.");
        QCOMPARE(contents(root.filePath("workflows-v1.json")), "[{\"schemaVersion\":1}");
        QCOMPARE(contents(root.filePath("history-v1.json")), "{\"id\":1}");
    }

    // Of 130 runs the newest 100 are read, the one a restart cut short is marked interrupted
    // with its active step and nothing else, and the file changes only when written back.
    void historyKeepsTheNewestAndRepairs() {
        QTemporaryDir root;
        const WorkflowFiles files(root.path());
        QList<WorkflowTimeline> runs;
        for (int i = 0; i < 130; ++i)
            runs.append(timeline(i, i == 10 ? "running" : "completed"));
        runs[129] =
            timeline(129, "running", {stepIn("start", "completed"), stepIn("check", "waitingReview")});
        runs[128] = timeline(128, "completed", {stepIn("start", "running")});
        QList<QByteArray> items;
        for (const WorkflowTimeline& run : runs)
            items.append(run.encoded());
        writeFile(root.filePath("history-v1.json"), '[' + items.join(',') + ']');
        const QByteArray before = contents(root.filePath("history-v1.json"));

        const QList<WorkflowTimeline> read = files.history(5000);
        QCOMPARE(read.size(), 100);
        QCOMPARE(read.first().date, 30);
        const WorkflowTimeline& cut = read.last();
        const QString detail = WorkflowFiles::interruptedDetail.toString();
        QCOMPARE(cut.phase, "interrupted");
        QCOMPARE(cut.endedAt, 5000);
        QCOMPARE(cut.detail, detail);
        QCOMPARE(cut.steps[0], stepIn("start", "completed"));
        QCOMPARE(cut.steps[1].phase, "interrupted");
        QCOMPARE(cut.steps[1].detail, detail);
        QCOMPARE(cut.steps[1].endedAt, 5000);
        QCOMPARE(read[98], runs[128]); // only running timelines are repaired
        QCOMPARE(contents(root.filePath("history-v1.json")), before);

        files.saveHistory(runs);
        QCOMPARE(files.history(6000).first().date, 30);
        QCOMPARE(files.history(6000).size(), 100);
    }
};

QTEST_GUILESS_MAIN(WorkflowFilesTest)
#include "tst_WorkflowFiles.moc"
