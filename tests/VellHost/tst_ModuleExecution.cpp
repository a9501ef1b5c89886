#include "VellHost/ModuleExecution.h"
#include "VellHost/ModuleRunnerSpares.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <csignal>

using namespace vell;
using namespace Qt::StringLiterals;

namespace {

const QString tooSlow = u"Module took too long and was stopped. Previous state was kept."_s;

ModuleRequest requestWith(const QString& script) {
    ModuleRequest request;
    request.package.script = script;
    return request;
}

ModuleRequest fakeRequest(const QString& behaviour) {
    return requestWith(u"fake:"_s + behaviour);
}

// Pads the request after the package, so that the fake reads its behaviour first, until the
// whole request encodes to exactly size bytes.
ModuleRequest requestOfSize(const QString& behaviour, qsizetype size) {
    ModuleRequest request = fakeRequest(behaviour);
    request.configuration.insert(u"pad"_s, QString());
    request.configuration.insert(u"pad"_s, QString(size - request.encoded().size(), u's'));
    return request;
}

ModuleRunResult runOnce(const QString& runner, const ModuleRequest& request,
                        ModuleExecution::Launch launch = ModuleExecution::Launch::Fresh) {
    return std::make_shared<ModuleExecution>(runner, ModuleExecution::defaultTimeout, launch)
        ->runBlocking(request);
}

// The state letter of a process from /proc; 0 once it has been reaped.
char processState(pid_t pid) {
    QFile file(u"/proc/%1/stat"_s.arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray stat = file.readAll();
    const qsizetype nameEnd = stat.lastIndexOf(')');
    return nameEnd > 0 && nameEnd + 2 < stat.size() ? stat.at(nameEnd + 2) : 0;
}

// Readies a spare and waits until it waits; 0 when none came.
pid_t readySpare(const QString& runner) {
    ModuleRunnerSpares::prepare(runner);
    pid_t spare = 0;
    return QTest::qWaitFor([&] { return (spare = ModuleRunnerSpares::waitingPid(runner)) != 0; }, 30000)
               ? spare
               : 0;
}

// The process a run that may take the spare ran in; empty when the run failed.
QString ranIn(const QString& runner, const QString& behaviour = u"report-pid"_s) {
    const ModuleRunResult result = runOnce(runner, fakeRequest(behaviour), ModuleExecution::Launch::Spare);
    return result.outcome == ModuleRunResult::Outcome::Succeeded ? result.state.value(u"pid"_s) : QString();
}

} // namespace

class tst_ModuleExecution final : public QObject {
    Q_OBJECT

private slots:
    void init() {
        // A private copy per test, so the "started" marker beside it belongs to this test alone.
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_runner = m_dir->filePath(u"FakeModuleRunner"_s);
        QVERIFY(QFile::copy(qEnvironmentVariable("VELL_BUILD_DIR") + u"/tests/FakeModuleRunner"_s, m_runner));
    }

    void decisions_data() {
        QTest::addColumn<QString>("behaviour");
        QTest::addColumn<ModuleRunResult>("expected");

        const ModuleRunResult valid = ModuleRunResult::succeeded({{u"count"_s, u"1"_s}});
        const ModuleRunResult slow = ModuleRunResult::failed(tooSlow);
        const ModuleRunResult stopped =
            ModuleRunResult::failed(u"Module stopped unexpectedly. Previous state was kept."_s);
        const ModuleRunResult unreadable =
            ModuleRunResult::failed(u"Module returned an unreadable response. Previous state was kept."_s);
        const ModuleRunResult overLimit = ModuleRunResult::failed(u"Module output exceeded its limit."_s);

        QTest::addRow("valid answer") << "valid" << valid;
        QTest::addRow("valid answer, then hangs with output open") << "hang-after-answer" << slow;
        QTest::addRow("valid answer, then closes output and hangs") << "close-output-after-answer" << slow;
        QTest::addRow("exit 1 after a valid answer") << "exit-1-after-answer" << stopped;
        QTest::addRow("killed by a signal after a valid answer") << "killed-after-answer" << stopped;
        QTest::addRow("exit 0 with no output") << "silent" << unreadable;
        QTest::addRow("output of exactly 65536 bytes") << "exactly-limit" << valid;
        QTest::addRow("output of 65537 bytes") << "one-over-limit" << overLimit;
        QTest::addRow("state and error: the error wins")
            << "state-and-error" << ModuleRunResult::failed(u"The script gave up."_s);
        QTest::addRow("neither state nor error")
            << "no-state" << ModuleRunResult::failed(u"Module did not return state."_s);
        QTest::addRow("state that fails validation")
            << "invalid-state" << ModuleRunResult::failed(u"Module returned invalid or oversized state."_s);
        QTest::addRow("state that is not text") << "not-text-state" << unreadable;
        QTest::addRow("standard error never matters") << "noise-on-error-output" << valid;
        QTest::addRow("the runner's environment is PATH alone")
            << "report-environment"
            << ModuleRunResult::succeeded({{u"variables"_s, u"PATH=/usr/bin:/bin"_s}});
    }

    void decisions() {
        QFETCH(QString, behaviour);
        QFETCH(ModuleRunResult, expected);
        const ModuleRunResult result = runOnce(m_runner, fakeRequest(behaviour));
        QCOMPARE(result.message, expected.message);
        QCOMPARE(result.outcome, expected.outcome);
        QCOMPARE(result.state, expected.state);
    }

    void requestSize_data() {
        QTest::addColumn<QString>("behaviour");
        QTest::addColumn<qsizetype>("size");
        QTest::addColumn<QString>("message");

        const qsizetype limit = ModuleExecution::maximumRequestBytes;
        QTest::addRow("at the limit, sent whole") << "report-input-size" << limit << QString();
        // A runner that stops reading early does not fail the run by that alone.
        QTest::addRow("at the limit, the runner stops reading early")
            << "close-input-early" << limit << QString();
        QTest::addRow("one byte over starts no process")
            << "valid" << limit + 1 << u"Module request is too large."_s;
    }

    void requestSize() {
        QFETCH(QString, behaviour);
        QFETCH(qsizetype, size);
        QFETCH(QString, message);
        const ModuleRequest request = requestOfSize(behaviour, size);
        QCOMPARE(request.encoded().size(), size);
        const ModuleRunResult result = runOnce(m_runner, request);
        QCOMPARE(result.message, message);
        QCOMPARE(result.outcome,
                 message.isEmpty() ? ModuleRunResult::Outcome::Succeeded : ModuleRunResult::Outcome::Failed);
        QCOMPARE(QFile::exists(startedMarker()), message.isEmpty());
        if (behaviour == u"report-input-size")
            QCOMPARE(result.state.value(u"bytes"_s), QString::number(size));
    }

    void cancelBeforeLaunchStartsNoProcess() {
        auto execution = std::make_shared<ModuleExecution>(m_runner);
        execution->cancel();
        QCOMPARE(execution->runBlocking(fakeRequest(u"valid"_s)).outcome,
                 ModuleRunResult::Outcome::Cancelled);
        QVERIFY(!QFile::exists(startedMarker()));
    }

    void cancelDuringRunKillsTheRunner() {
        auto execution = std::make_shared<ModuleExecution>(m_runner, 60.0);
        QObject owner;
        std::optional<ModuleRunResult> result;
        execution->run(fakeRequest(u"hang-silently"_s), &owner,
                       [&](const ModuleRunResult& ended) { result = ended; });
        QTRY_VERIFY(QFile::exists(startedMarker()));
        execution->cancel();
        // Far inside the sixty-second deadline: only the kill can have ended it.
        QTRY_VERIFY_WITH_TIMEOUT(result, 30000);
        QCOMPARE(result->outcome, ModuleRunResult::Outcome::Cancelled);
    }

    void missingOrUnusableRunnerCannotStart() {
        for (const QString& path : {m_dir->filePath(u"absent"_s), u"/etc/passwd"_s})
            QCOMPARE(runOnce(path, fakeRequest(u"valid"_s)).message,
                     u"Module runner could not start. Reinstall the packaged OstaVell app."_s);
    }

    void answerComesOnTheMainThreadAndNeverToADestroyedOwner() {
        auto gone = std::make_unique<QObject>();
        bool called = false;
        std::make_shared<ModuleExecution>(m_runner)->run(fakeRequest(u"valid"_s), gone.get(),
                                                         [&](const ModuleRunResult&) { called = true; });
        gone.reset();

        // A second run, answered later than the first.
        QObject owner;
        std::optional<ModuleRunResult> later;
        QThread* answeredOn = nullptr;
        std::make_shared<ModuleExecution>(m_runner)->run(fakeRequest(u"slow-valid"_s), &owner,
                                                         [&](const ModuleRunResult& result) {
                                                             answeredOn = QThread::currentThread();
                                                             later = result;
                                                         });
        QTRY_VERIFY_WITH_TIMEOUT(later, 30000);
        QVERIFY(!called);
        QCOMPARE(answeredOn, QThread::currentThread());
        QCOMPARE(later->state.value(u"count"_s), u"1"_s);
    }

    // The runner's own processor limit stands behind the deadline and must never overtake it:
    // the user is told that the module was too slow, not that it broke. Each spinning runner gets
    // a processor of its own where the machine has them, which is when the two would race.
    void endlessScriptAlwaysEndsAtTheDeadline() {
        const ModuleRequest request = requestWith(u"function run() { for (;;) {} }"_s);
        constexpr int runs = 20;
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
        for (int i = 0; i < qBound(1, QThread::idealThreadCount(), 4); ++i)
            startOne();
        QTRY_COMPARE_WITH_TIMEOUT(messages.size(), runs, 240000);
        QCOMPARE(messages, QStringList(runs, tooSlow));
    }

    void spareServesOneRunWithTheWholeDeadlineFromItsHandOver() {
        const pid_t spare = readySpare(m_runner);
        QVERIFY(spare != 0);
        // By the hand-over the spare has waited longer than a whole deadline, and its run takes a
        // third of one.
        QElapsedTimer waited;
        waited.start();
        QTRY_VERIFY_WITH_TIMEOUT(waited.hasExpired(qint64(ModuleExecution::defaultTimeout * 1000) + 500),
                                 30000);
        QCOMPARE(ranIn(m_runner, u"slow-report-pid"_s), QString::number(spare));

        // Taken is gone: nothing readied another, so the next run starts its own process.
        QCOMPARE(ModuleRunnerSpares::waitingPid(m_runner), 0);
        const QString second = ranIn(m_runner);
        QVERIFY(!second.isEmpty() && second != QString::number(spare));
    }

    void deadOrDiscardedSpareIsReaped() {
        // A spare that died while it waited is replaced by a fresh start, and reaped.
        pid_t spare = readySpare(m_runner);
        QVERIFY(spare != 0);
        QCOMPARE(kill(spare, SIGKILL), 0);
        QTRY_COMPARE_WITH_TIMEOUT(processState(spare), 'Z', 30000);
        const QString fresh = ranIn(m_runner);
        QVERIFY(!fresh.isEmpty() && fresh != QString::number(spare));
        QTRY_COMPARE_WITH_TIMEOUT(processState(spare), '\0', 30000);

        // A discarded one is killed and reaped.
        spare = readySpare(m_runner);
        QVERIFY(spare != 0);
        ModuleRunnerSpares::discard(m_runner);
        QCOMPARE(ModuleRunnerSpares::waitingPid(m_runner), 0);
        QTRY_COMPARE_WITH_TIMEOUT(processState(spare), '\0', 30000);
    }

private:
    QString startedMarker() const { return m_dir->filePath(u"started"_s); }

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_runner;
};

QTEST_GUILESS_MAIN(tst_ModuleExecution)
#include "tst_ModuleExecution.moc"
