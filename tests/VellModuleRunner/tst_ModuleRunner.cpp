#include "VellModuleRunner/ModuleConfinement.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Modules/ModuleRequest.h"
#include "VellPluginSDK/Modules/ModuleResponse.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using namespace vell;

namespace {

QString buildPath(const QString& relative) {
    return qEnvironmentVariable("VELL_BUILD_DIR") + QLatin1Char('/') + relative;
}

ModuleRequest request(const QString& script, const ModuleState& state = {}) {
    ModuleRequest request;
    request.package.id = QStringLiteral("cafe.osta.test");
    request.package.name = QStringLiteral("Test");
    request.package.version = QStringLiteral("1.0.0");
    request.package.author = QStringLiteral("Tests");
    request.package.actions = {{QStringLiteral("add"), QStringLiteral("Add")}};
    request.package.script = script;
    request.state = state;
    return request;
}

struct Finished {
    QProcess::ExitStatus status = QProcess::NormalExit;
    int code = -1;
    QByteArray output;
    QByteArray errors;
};

Finished runProcess(const QString& program, const QByteArray& input, const QStringList& arguments = {}) {
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    process.setProcessEnvironment(QProcessEnvironment());
    process.start();
    if (!process.waitForStarted())
        return {};
    process.write(input);
    process.closeWriteChannel();
    // Generous: the processor limit alone takes four seconds of a busy machine's time.
    process.waitForFinished(60000);
    return {process.exitStatus(), process.exitCode(), process.readAllStandardOutput(),
            process.readAllStandardError()};
}

// A runner that ran a script has nothing to say on standard error; a refusal the engine met
// inside the confinement would show there.
ModuleResponse runRunner(const ModuleRequest& request, QByteArray* errors = nullptr) {
    const Finished finished =
        runProcess(buildPath(QStringLiteral("libexec/ostavell/VellModuleRunner")), request.encoded());
    if (errors)
        *errors = finished.errors;
    if (finished.status != QProcess::NormalExit || finished.code != 0)
        return ModuleResponse{std::nullopt, QStringLiteral("runner ended abnormally")};
    return ModuleResponse::fromJson(QJsonDocument::fromJson(finished.output).object());
}

// The probe's lines "phase name result", by phase and name.
QMap<QString, QString> probeReport(const QByteArray& output) {
    QMap<QString, QString> report;
    const QList<QByteArray> lines = output.split('\n');
    for (const QByteArray& line : lines) {
        const QList<QByteArray> parts = line.split(' ');
        if (parts.size() == 3)
            report.insert(QString::fromLatin1(parts[0] + ' ' + parts[1]), QString::fromLatin1(parts[2]));
    }
    return report;
}

} // namespace

class tst_ModuleRunner final : public QObject {
    Q_OBJECT

private slots:
    void scriptContract_data();
    void scriptContract();
    void failures_data();
    void failures();
    void requestThatIsNotJsonIsAnsweredWithAnError();
    void confinementStopsEveryEscapeThatWorkedBefore();
    void confinementNeverLeavesASecondThreadUnwalled();
    void processorLimitEndsARunawayLoop();
    void runningScriptIsAloneFilteredAndHasNoNewPrivileges();
    void runawayAllocationIsStopped_data();
    void runawayAllocationIsStopped();
    void ordinaryAllocationStillWorks();
};

void tst_ModuleRunner::scriptContract_data() {
    QTest::addColumn<ModuleRequest>("input");
    QTest::addColumn<ModuleState>("expected");

    const ModuleState counter{{QStringLiteral("count"), QStringLiteral("4")},
                              {QStringLiteral("other"), QStringLiteral("x")}};
    QTest::addRow("answer replaces the whole state")
        << request(QStringLiteral("function run(r) { return { count: String(Number(r.state.count) + 1) }; }"),
                   counter)
        << ModuleState{{QStringLiteral("count"), QStringLiteral("5")}};

    QTest::addRow("numbers and booleans become text")
        << request(QStringLiteral("function run() { return { n: 2.5, i: 7, b: false, s: 't' }; }"))
        << ModuleState{{QStringLiteral("n"), QStringLiteral("2.5")},
                       {QStringLiteral("i"), QStringLiteral("7")},
                       {QStringLiteral("b"), QStringLiteral("false")},
                       {QStringLiteral("s"), QStringLiteral("t")}};

    QTest::addRow("refresh run has neither action nor event")
        << request(QStringLiteral("function run(r) { return { a: typeof r.action, e: typeof r.event }; }"))
        << ModuleState{{QStringLiteral("a"), QStringLiteral("undefined")},
                       {QStringLiteral("e"), QStringLiteral("undefined")}};

    QTest::addRow("classic script: top-level declarations are global")
        << request(QStringLiteral("var base = 10; let step = 2; function helper() { return base + step; }\n"
                                  "function run() { return { v: helper() }; }"))
        << ModuleState{{QStringLiteral("v"), QStringLiteral("12")}};

    QTest::addRow("no host object exists")
        << request(QStringLiteral("function run() { return { t: [typeof print, typeof console, typeof "
                                  "require, typeof XMLHttpRequest,"
                                  " typeof Qt, typeof URL, typeof URLSearchParams, typeof setTimeout, typeof "
                                  "gc, typeof process].join() }; }"))
        << ModuleState{
               {QStringLiteral("t"), QStringLiteral("undefined,undefined,undefined,undefined,undefined,"
                                                    "undefined,undefined,undefined,undefined,undefined")}};

    // Long inputs and repeated use are where the engine would compile a pattern to machine
    // code; behind the filter only the interpreter can give these answers.
    QTest::addRow("regular expressions on long inputs, with backtracking")
        << request(QStringLiteral(
               "function run() {\n"
               "  var long = 'a'.repeat(100000) + 'b';\n"
               "  var pairs = 'ab'.repeat(50000);\n"
               "  var often = 0;\n"
               "  for (var i = 0; i < 20; ++i) often += /^(a+)b$/.exec('aaab')[1].length;\n"
               "  return { alternatives: /^(a|aa)+b$/.test(long), backtracked: /^(a|ab)*$/.test(pairs),\n"
               "           refused: /^(a|ab)*c$/.test(pairs), replaced: long.replace(/a{3}/g, 'x').length,\n"
               "           words: 'word '.repeat(20000).match(/\\w+/g).length, often: often };\n"
               "}"))
        << ModuleState{{QStringLiteral("alternatives"), QStringLiteral("true")},
                       {QStringLiteral("backtracked"), QStringLiteral("true")},
                       {QStringLiteral("refused"), QStringLiteral("false")},
                       {QStringLiteral("replaced"), QStringLiteral("33335")},
                       {QStringLiteral("words"), QStringLiteral("20000")},
                       {QStringLiteral("often"), QStringLiteral("60")}};

    QTest::addRow("dates work without the time zone file")
        << request(QStringLiteral("function run() { return { y: new Date(0).getUTCFullYear(), "
                                  "local: typeof new Date().toString() }; }"))
        << ModuleState{{QStringLiteral("y"), QStringLiteral("1970")},
                       {QStringLiteral("local"), QStringLiteral("string")}};
}

void tst_ModuleRunner::scriptContract() {
    QFETCH(ModuleRequest, input);
    QFETCH(ModuleState, expected);
    QByteArray errors;
    const ModuleResponse response = runRunner(input, &errors);
    QCOMPARE(response.error.value_or(QString()), QString());
    QCOMPARE(response.state.value_or(ModuleState()), expected);
    QCOMPARE(errors, QByteArray());
}

void tst_ModuleRunner::failures_data() {
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("expected"); // empty: any message will do, the engine words it

    QTest::addRow("thrown Error gives its message")
        << QStringLiteral("function run() { throw new Error('boom'); }") << QStringLiteral("boom");
    QTest::addRow("thrown text is the message")
        << QStringLiteral("function run() { throw 'plain words'; }") << QStringLiteral("plain words");
    QTest::addRow("throw while loading")
        << QStringLiteral("throw new Error('at load'); function run() { return {}; }")
        << QStringLiteral("at load");
    QTest::addRow("replaced built-ins do not hide the message")
        << QStringLiteral("Error = null; String = null; Object = null;\n"
                          "function run() { throw new TypeError('still read'); }")
        << QStringLiteral("still read");
    QTest::addRow("engine's own error")
        << QStringLiteral("function run(r) { return r.missing.field; }") << QString();
    QTest::addRow("syntax error") << QStringLiteral("function run( {") << QString();
    QTest::addRow("nested object value")
        << QStringLiteral("function run() { return { a: 'ok', b: { c: 1 } }; }")
        << QStringLiteral("State value \"b\" must be text, a number or a boolean.");
    QTest::addRow("null value") << QStringLiteral("function run() { return { a: null }; }")
                                << QStringLiteral("State value \"a\" must be text, a number or a boolean.");
    QTest::addRow("array instead of object")
        << QStringLiteral("function run() { return ['x']; }")
        << QStringLiteral("run must return the whole new state as an object.");
    QTest::addRow("nothing returned") << QStringLiteral("function run() {}")
                                      << QStringLiteral("run must return the whole new state as an object.");
    QTest::addRow("a promise is not a state")
        << QStringLiteral("function run() { return Promise.resolve({ a: 1 }); }")
        << QStringLiteral("run must return the whole new state as an object.");
    QTest::addRow("no run function") << QStringLiteral("var run = 3;")
                                     << QStringLiteral("The module script defines no run function.");
}

void tst_ModuleRunner::failures() {
    QFETCH(QString, script);
    QFETCH(QString, expected);
    const ModuleResponse response = runRunner(request(script));
    QVERIFY(!response.state);
    QVERIFY(response.error);
    QVERIFY(!response.error->isEmpty());
    QVERIFY(*response.error != QStringLiteral("runner ended abnormally"));
    if (!expected.isEmpty())
        QCOMPARE(*response.error, expected);
}

void tst_ModuleRunner::requestThatIsNotJsonIsAnsweredWithAnError() {
    const Finished finished = runProcess(buildPath(QStringLiteral("libexec/ostavell/VellModuleRunner")),
                                         QByteArrayLiteral("not json"));
    QCOMPARE(finished.status, QProcess::NormalExit);
    QCOMPARE(finished.code, 0);
    const ModuleResponse response =
        ModuleResponse::fromJson(QJsonDocument::fromJson(finished.output).object());
    QVERIFY(!response.state);
    QVERIFY(response.error && !response.error->isEmpty());
}

void tst_ModuleRunner::confinementStopsEveryEscapeThatWorkedBefore() {
    QTemporaryDir scratch;
    QVERIFY(scratch.isValid());
    const Finished finished = runProcess(buildPath(QStringLiteral("tests/ModuleConfinementProbe")), {},
                                         {QStringLiteral("attempts"), scratch.path()});
    QCOMPARE(finished.status, QProcess::NormalExit);
    QCOMPARE(finished.code, 0);
    const QMap<QString, QString> report = probeReport(finished.output);

    const QStringList attempts{QStringLiteral("open-read"),      QStringLiteral("open-create"),
                               QStringLiteral("read-held-file"), QStringLiteral("socket-inet"),
                               QStringLiteral("socket-unix"),    QStringLiteral("fork"),
                               QStringLiteral("signal-parent"),  QStringLiteral("mmap-exec"),
                               QStringLiteral("reserve-600MiB"), QStringLiteral("exec")};
    for (const QString& attempt : attempts) {
        QCOMPARE(qPrintable(attempt + QLatin1Char(' ') + report.value(QStringLiteral("before ") + attempt)),
                 qPrintable(attempt + QStringLiteral(" allowed")));
        // The address-space limit refuses with ENOMEM; the filter with EPERM.
        const QString refusal =
            attempt == QStringLiteral("reserve-600MiB") ? QStringLiteral("failed") : QStringLiteral("denied");
        QCOMPARE(qPrintable(attempt + QLatin1Char(' ') + report.value(QStringLiteral("after ") + attempt)),
                 qPrintable(attempt + QLatin1Char(' ') + refusal));
    }
    QVERIFY(!QFile::exists(scratch.filePath(QStringLiteral("after-created"))));
    QVERIFY(QFile::exists(scratch.filePath(QStringLiteral("before-created"))));
}

// Landlock binds only the thread that raises it: beside a second thread the walls must not
// go up at all, while the early filter binds every thread there is.
void tst_ModuleRunner::confinementNeverLeavesASecondThreadUnwalled() {
    QTemporaryDir scratch;
    const Finished finished = runProcess(buildPath(QStringLiteral("tests/ModuleConfinementProbe")), {},
                                         {QStringLiteral("threaded"), scratch.path()});
    QCOMPARE(finished.status, QProcess::NormalExit);
    QCOMPARE(finished.code, 0);
    const QMap<QString, QString> report = probeReport(finished.output);
    QCOMPARE(report.value(QStringLiteral("threaded early-filter")), QStringLiteral("allowed"));
    QCOMPARE(report.value(QStringLiteral("threaded mmap-exec-other-thread")), QStringLiteral("denied"));
    QCOMPARE(report.value(QStringLiteral("threaded confinement")), QStringLiteral("denied"));
    QCOMPARE(finished.errors, QByteArray("threads: 2 running\n"));
}

void tst_ModuleRunner::processorLimitEndsARunawayLoop() {
    QTemporaryDir scratch;
    const Finished probe = runProcess(buildPath(QStringLiteral("tests/ModuleConfinementProbe")), {},
                                      {QStringLiteral("spin"), scratch.path()});
    QCOMPARE(probe.status, QProcess::CrashExit);
    QCOMPARE(probe.code, int(SIGXCPU));

    const Finished runner = runProcess(buildPath(QStringLiteral("libexec/ostavell/VellModuleRunner")),
                                       request(QStringLiteral("function run() { for (;;) {} }")).encoded());
    QCOMPARE(runner.status, QProcess::CrashExit);
    QCOMPARE(runner.code, int(SIGXCPU));
    QVERIFY(runner.output.isEmpty());
}

void tst_ModuleRunner::runningScriptIsAloneFilteredAndHasNoNewPrivileges() {
    QProcess process;
    process.setProgram(buildPath(QStringLiteral("libexec/ostavell/VellModuleRunner")));
    process.start();
    QVERIFY(process.waitForStarted());
    process.write(request(QStringLiteral("function run() { for (;;) {} }")).encoded());
    process.closeWriteChannel();

    const QString taskPath = QStringLiteral("/proc/%1/task").arg(process.processId());
    const auto read = [](const QString& path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll()) : QString();
    };
    const auto status = [&] { return read(QStringLiteral("/proc/%1/status").arg(process.processId())); };
    // The script spins only after both filters are in place, so they show while it runs.
    QTRY_VERIFY_WITH_TIMEOUT(status().contains(QStringLiteral("Seccomp_filters:\t2")), 20000);
    QVERIFY(status().contains(QStringLiteral("Seccomp:\t2")));
    QVERIFY(status().contains(QStringLiteral("NoNewPrivs:\t1")));
    // Landlock and the filter bind per thread: the script's must be the only one.
    const QStringList tasks = QDir(taskPath).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    QCOMPARE(tasks, QStringList{QString::number(process.processId())});
    QVERIFY(status().contains(QStringLiteral("Threads:\t1\n")));
    process.kill();
    process.waitForFinished();
}

void tst_ModuleRunner::runawayAllocationIsStopped_data() {
    QTest::addColumn<QString>("script");
    QTest::addRow("engine heap") << QStringLiteral(
        "function run() { var keep = []; for (;;) keep.push(new ArrayBuffer(64 << 20)); }");
    QTest::addRow("string data") << QStringLiteral(
        "function run() { var keep = []; for (;;) keep.push('x'.repeat(1 << 24)); }");
}

void tst_ModuleRunner::runawayAllocationIsStopped() {
    QFETCH(QString, script);
    const Finished runner =
        runProcess(buildPath(QStringLiteral("libexec/ostavell/VellModuleRunner")), request(script).encoded());
    // Either the engine reports the failed allocation or the process dies of it; never does
    // a state come back, and it is not the processor limit that stopped it.
    if (runner.status == QProcess::NormalExit) {
        const ModuleResponse response =
            ModuleResponse::fromJson(QJsonDocument::fromJson(runner.output).object());
        QVERIFY(!response.state);
        QVERIFY(response.error);
    } else {
        QVERIFY(runner.code != SIGXCPU);
    }
}

void tst_ModuleRunner::ordinaryAllocationStillWorks() {
    const ModuleResponse response = runRunner(request(
        QStringLiteral("function run() { var a = new Array(4000000).fill(1.5); return { n: a.length }; }")));
    QCOMPARE(response.error.value_or(QString()), QString());
    QCOMPARE(response.state->value(QStringLiteral("n")), QStringLiteral("4000000"));
}

QTEST_GUILESS_MAIN(tst_ModuleRunner)
#include "tst_ModuleRunner.moc"
