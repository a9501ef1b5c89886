#include "VellHost/ModuleExecution.h"
#include "VellHost/ModuleRunnerSpares.h"

#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using namespace vell;

namespace {

ModuleRequest fakeRequest(const QString& behaviour) {
    ModuleRequest request;
    request.package.id = QStringLiteral("cafe.osta.fake");
    request.package.name = QStringLiteral("Fake");
    request.package.version = QStringLiteral("1.0.0");
    request.package.author = QStringLiteral("Tests");
    request.package.script = QStringLiteral("fake:") + behaviour;
    return request;
}

// Pads the request after the package, so that the fake reads its behaviour first, until the
// whole request encodes to exactly size bytes.
ModuleRequest requestOfSize(const QString& behaviour, qsizetype size) {
    ModuleRequest request = fakeRequest(behaviour);
    request.configuration.insert(QStringLiteral("pad"), QString());
    request.configuration.insert(QStringLiteral("pad"),
                                 QString(size - request.encoded().size(), QLatin1Char('s')));
    return request;
}

// The state letter of a process from /proc; 0 once it has been reaped.
char processState(pid_t pid) {
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray stat = file.readAll();
    const qsizetype nameEnd = stat.lastIndexOf(')');
    return nameEnd > 0 && nameEnd + 2 < stat.size() ? stat.at(nameEnd + 2) : 0;
}

ModuleRunResult runOnSpare(const QString& runner, const QString& behaviour) {
    return std::make_shared<ModuleExecution>(runner, ModuleExecution::defaultTimeout,
                                             ModuleExecution::Launch::Spare)
        ->runBlocking(fakeRequest(behaviour));
}

class Receiver final : public QObject {
    Q_OBJECT
public:
    ModuleRunResult result;
signals:
    void finished();
};

} // namespace

class tst_ModuleExecution final : public QObject {
    Q_OBJECT

private slots:
    void init();
    void decisions_data();
    void decisions();
    void requestAtTheLimitIsSentWhole();
    void requestOverTheLimitStartsNoProcess();
    void cancelBeforeLaunchStartsNoProcess();
    void cancelDuringRunKillsTheRunner();
    void missingOrUnusableRunnerCannotStart();
    void runnerGetsOnlyPathAndTheStandardDescriptors();
    void answerComesOnTheMainThreadAndNeverToADestroyedOwner();
    void realRunnerRunsAScript();
    void endlessScriptAlwaysEndsAtTheDeadline();
    void spareServesOneRunWithTheWholeDeadlineFromItsHandOver();
    void deadSpareIsReplacedByAFreshStart();
    void discardedSpareIsKilledAndReaped();

private:
    QString startedMarker() const { return m_dir->filePath(QStringLiteral("started")); }

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_runner;
};

void tst_ModuleExecution::init() {
    // A private copy per test, so the "started" marker beside it belongs to this test alone.
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_runner = m_dir->filePath(QStringLiteral("FakeModuleRunner"));
    QVERIFY(QFile::copy(qEnvironmentVariable("VELL_BUILD_DIR") + QStringLiteral("/tests/FakeModuleRunner"),
                        m_runner));
}

void tst_ModuleExecution::decisions_data() {
    QTest::addColumn<QString>("behaviour");
    QTest::addColumn<ModuleRunResult>("expected");

    const ModuleRunResult valid =
        ModuleRunResult::succeeded({{QStringLiteral("count"), QStringLiteral("1")}});
    const auto failed = [](const char* message) {
        return ModuleRunResult::failed(QString::fromUtf8(message));
    };

    QTest::addRow("valid answer") << "valid" << valid;
    QTest::addRow("valid answer, then hangs with output open")
        << "hang-after-answer" << failed("Module took too long and was stopped. Previous state was kept.");
    QTest::addRow("closes output, then hangs")
        << "close-output-then-hang"
        << failed("Module took too long and was stopped. Previous state was kept.");
    QTest::addRow("exit 1 after a valid answer")
        << "exit-1-after-answer" << failed("Module stopped unexpectedly. Previous state was kept.");
    QTest::addRow("killed by a signal after a valid answer")
        << "killed-after-answer" << failed("Module stopped unexpectedly. Previous state was kept.");
    QTest::addRow("exit 0 with no output")
        << "silent" << failed("Module returned an unreadable response. Previous state was kept.");
    QTest::addRow("floods its output") << "flood" << failed("Module output exceeded its limit.");
    QTest::addRow("output of exactly 65536 bytes") << "exactly-limit" << valid;
    QTest::addRow("output of 65537 bytes") << "one-over-limit" << failed("Module output exceeded its limit.");
    QTest::addRow("state and error: the error wins") << "state-and-error" << failed("The script gave up.");
    QTest::addRow("neither state nor error") << "no-state" << failed("Module did not return state.");
    QTest::addRow("state that fails validation")
        << "invalid-state" << failed("Module returned invalid or oversized state.");
    QTest::addRow("state that is not text")
        << "not-text-state" << failed("Module returned an unreadable response. Previous state was kept.");
    QTest::addRow("standard error never matters") << "noise-on-error-output" << valid;
}

void tst_ModuleExecution::decisions() {
    QFETCH(QString, behaviour);
    QFETCH(ModuleRunResult, expected);
    auto execution = std::make_shared<ModuleExecution>(m_runner);
    const ModuleRunResult result = execution->runBlocking(fakeRequest(behaviour));
    QCOMPARE(result.message, expected.message);
    QCOMPARE(result.outcome, expected.outcome);
    QCOMPARE(result.state, expected.state);
}

void tst_ModuleExecution::requestAtTheLimitIsSentWhole() {
    const ModuleRequest request =
        requestOfSize(QStringLiteral("report-input-size"), ModuleExecution::maximumRequestBytes);
    QCOMPARE(request.encoded().size(), ModuleExecution::maximumRequestBytes);
    const ModuleRunResult result = std::make_shared<ModuleExecution>(m_runner)->runBlocking(request);
    QCOMPARE(result.message, QString());
    QCOMPARE(result.state.value(QStringLiteral("bytes")),
             QString::number(ModuleExecution::maximumRequestBytes));

    // A runner that stops reading early does not fail the run by that alone.
    const ModuleRequest unread =
        requestOfSize(QStringLiteral("close-input-early"), ModuleExecution::maximumRequestBytes);
    const ModuleRunResult early = std::make_shared<ModuleExecution>(m_runner)->runBlocking(unread);
    QCOMPARE(early.message, QString());
    QCOMPARE(early.outcome, ModuleRunResult::Outcome::Succeeded);
}

void tst_ModuleExecution::requestOverTheLimitStartsNoProcess() {
    const ModuleRequest request =
        requestOfSize(QStringLiteral("valid"), ModuleExecution::maximumRequestBytes + 1);
    QCOMPARE(request.encoded().size(), ModuleExecution::maximumRequestBytes + 1);
    const ModuleRunResult result = std::make_shared<ModuleExecution>(m_runner)->runBlocking(request);
    QCOMPARE(result.message, QStringLiteral("Module request is too large."));
    QVERIFY(!QFile::exists(startedMarker()));
}

void tst_ModuleExecution::cancelBeforeLaunchStartsNoProcess() {
    auto execution = std::make_shared<ModuleExecution>(m_runner);
    execution->cancel();
    const ModuleRunResult result = execution->runBlocking(fakeRequest(QStringLiteral("valid")));
    QCOMPARE(result.outcome, ModuleRunResult::Outcome::Cancelled);
    QVERIFY(!QFile::exists(startedMarker()));
}

void tst_ModuleExecution::cancelDuringRunKillsTheRunner() {
    auto execution = std::make_shared<ModuleExecution>(m_runner, 60.0);
    Receiver receiver;
    QSignalSpy finished(&receiver, &Receiver::finished);
    execution->run(fakeRequest(QStringLiteral("hang-silently")), &receiver,
                   [&](const ModuleRunResult& result) {
                       receiver.result = result;
                       emit receiver.finished();
                   });
    QTRY_VERIFY(QFile::exists(startedMarker()));
    execution->cancel();
    // Far inside the sixty-second deadline: only the kill can have ended it.
    QVERIFY(finished.wait(30000));
    QCOMPARE(receiver.result.outcome, ModuleRunResult::Outcome::Cancelled);
}

void tst_ModuleExecution::missingOrUnusableRunnerCannotStart() {
    const QString notExecutable = m_dir->filePath(QStringLiteral("plain-file"));
    QFile file(notExecutable);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("#!/bin/sh\n");
    file.close();
    for (const QString& path : {m_dir->filePath(QStringLiteral("absent")), notExecutable}) {
        const ModuleRunResult result =
            std::make_shared<ModuleExecution>(path)->runBlocking(fakeRequest(QStringLiteral("valid")));
        QCOMPARE(result.message,
                 QStringLiteral("Module runner could not start. Reinstall the packaged OstaVell app."));
    }
}

void tst_ModuleExecution::runnerGetsOnlyPathAndTheStandardDescriptors() {
    // A descriptor the application holds without close-on-exec still must not reach it.
    QFile leaky(m_dir->filePath(QStringLiteral("leaky")));
    QVERIFY(leaky.open(QIODevice::WriteOnly));
    const int inherited = dup(leaky.handle());
    QVERIFY(inherited > 2);

    auto execution = std::make_shared<ModuleExecution>(m_runner);
    const ModuleRunResult environment =
        execution->runBlocking(fakeRequest(QStringLiteral("report-environment")));
    QCOMPARE(environment.state.value(QStringLiteral("variables")), QStringLiteral("PATH=/usr/bin:/bin"));
    const ModuleRunResult descriptors = std::make_shared<ModuleExecution>(m_runner)->runBlocking(
        fakeRequest(QStringLiteral("report-descriptors")));
    QCOMPARE(descriptors.state.value(QStringLiteral("open")), QStringLiteral("0,1,2"));
    close(inherited);
}

void tst_ModuleExecution::answerComesOnTheMainThreadAndNeverToADestroyedOwner() {
    auto execution = std::make_shared<ModuleExecution>(m_runner);
    auto owner = std::make_unique<QObject>();
    bool called = false;
    execution->run(fakeRequest(QStringLiteral("valid")), owner.get(),
                   [&](const ModuleRunResult&) { called = true; });
    owner.reset();

    // A second run, answered later than the first.
    Receiver later;
    QSignalSpy finished(&later, &Receiver::finished);
    QThread* answeredOn = nullptr;
    auto second = std::make_shared<ModuleExecution>(m_runner);
    execution.reset();
    second->run(fakeRequest(QStringLiteral("slow-valid")), &later, [&](const ModuleRunResult& result) {
        answeredOn = QThread::currentThread();
        later.result = result;
        emit later.finished();
    });
    QVERIFY(finished.wait(30000));
    QVERIFY(!called);
    QCOMPARE(answeredOn, QThread::currentThread());
    QCOMPARE(later.result.state.value(QStringLiteral("count")), QStringLiteral("1"));
}

// The installed runner, found where the application looks for it, runs a real script.
void tst_ModuleExecution::realRunnerRunsAScript() {
    ModuleRequest request = fakeRequest(QString());
    request.package.script =
        QStringLiteral("function run(r) { return { count: Number(r.state.count) + 1 }; }");
    request.state = {{QStringLiteral("count"), QStringLiteral("41")}};
    const ModuleRunResult result =
        std::make_shared<ModuleExecution>(ModuleExecution::defaultRunnerPath())->runBlocking(request);
    QCOMPARE(result.message, QString());
    QCOMPARE(result.state, (ModuleState{{QStringLiteral("count"), QStringLiteral("42")}}));
}

// The runner's own processor limit stands behind the deadline and must never overtake it:
// the user is told that the module was too slow, not that it broke. Each spinning runner gets
// a processor of its own where the machine has them, which is when the two would race.
void tst_ModuleExecution::endlessScriptAlwaysEndsAtTheDeadline() {
    ModuleRequest request = fakeRequest(QString());
    request.package.script = QStringLiteral("function run() { for (;;) {} }");
    constexpr int runs = 20;
    const int atOnce = qBound(1, QThread::idealThreadCount(), 4);
    QStringList messages;
    int started = 0;
    QObject owner;
    std::function<void()> startOne = [&] {
        ++started;
        std::make_shared<ModuleExecution>(ModuleExecution::defaultRunnerPath())
            ->run(request, &owner, [&](const ModuleRunResult& result) {
                messages.append(result.message);
                if (started < runs)
                    startOne();
            });
    };
    for (int i = 0; i < atOnce; ++i)
        startOne();
    QTRY_COMPARE_WITH_TIMEOUT(messages.size(), runs, 240000);
    QCOMPARE(
        messages,
        QStringList(runs, QStringLiteral("Module took too long and was stopped. Previous state was kept.")));
}

void tst_ModuleExecution::spareServesOneRunWithTheWholeDeadlineFromItsHandOver() {
    ModuleRunnerSpares::prepare(m_runner);
    pid_t spare = 0;
    QTRY_VERIFY_WITH_TIMEOUT((spare = ModuleRunnerSpares::waitingPid(m_runner)) != 0, 30000);
    // By the hand-over the spare has waited longer than a whole deadline, and its run takes a
    // third of one.
    QElapsedTimer waited;
    waited.start();
    QTRY_VERIFY_WITH_TIMEOUT(waited.hasExpired(qint64(ModuleExecution::defaultTimeout * 1000) + 500), 30000);
    const ModuleRunResult first = runOnSpare(m_runner, QStringLiteral("slow-report-pid"));
    QCOMPARE(first.message, QString());
    QCOMPARE(first.state.value(QStringLiteral("pid")), QString::number(spare));

    // Taken is gone: nothing readied another, so the next run starts its own process.
    QCOMPARE(ModuleRunnerSpares::waitingPid(m_runner), 0);
    const ModuleRunResult second = runOnSpare(m_runner, QStringLiteral("report-pid"));
    QCOMPARE(second.message, QString());
    QVERIFY(!second.state.value(QStringLiteral("pid")).isEmpty());
    QVERIFY(second.state.value(QStringLiteral("pid")) != QString::number(spare));
}

void tst_ModuleExecution::deadSpareIsReplacedByAFreshStart() {
    ModuleRunnerSpares::prepare(m_runner);
    pid_t spare = 0;
    QTRY_VERIFY_WITH_TIMEOUT((spare = ModuleRunnerSpares::waitingPid(m_runner)) != 0, 30000);
    QCOMPARE(kill(spare, SIGKILL), 0);
    QTRY_COMPARE_WITH_TIMEOUT(processState(spare), 'Z', 30000);

    const ModuleRunResult result = runOnSpare(m_runner, QStringLiteral("report-pid"));
    QCOMPARE(result.message, QString());
    QVERIFY(!result.state.value(QStringLiteral("pid")).isEmpty());
    QVERIFY(result.state.value(QStringLiteral("pid")) != QString::number(spare));
    // The dead one was reaped, not left behind.
    QTRY_COMPARE_WITH_TIMEOUT(processState(spare), '\0', 30000);
}

void tst_ModuleExecution::discardedSpareIsKilledAndReaped() {
    ModuleRunnerSpares::prepare(m_runner);
    pid_t spare = 0;
    QTRY_VERIFY_WITH_TIMEOUT((spare = ModuleRunnerSpares::waitingPid(m_runner)) != 0, 30000);
    ModuleRunnerSpares::discard(m_runner);
    QCOMPARE(ModuleRunnerSpares::waitingPid(m_runner), 0);
    QTRY_COMPARE_WITH_TIMEOUT(processState(spare), '\0', 30000);
}

QTEST_GUILESS_MAIN(tst_ModuleExecution)
#include "tst_ModuleExecution.moc"
