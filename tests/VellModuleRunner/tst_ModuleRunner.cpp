#include "VellModuleRunner/ModuleConfinement.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Modules/ModuleRequest.h"
#include "VellPluginSDK/Modules/ModuleResponse.h"

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
    // Generous: the processor limit alone takes three seconds of a busy machine's time.
    process.waitForFinished(60000);
    return {process.exitStatus(), process.exitCode(), process.readAllStandardOutput()};
}

ModuleResponse runRunner(const ModuleRequest& request) {
    const Finished finished =
        runProcess(buildPath(QStringLiteral("libexec/ostavell/VellModuleRunner")), request.encoded());
    if (finished.status != QProcess::NormalExit || finished.code != 0)
        return ModuleResponse{std::nullopt, QStringLiteral("runner ended abnormally")};
    return ModuleResponse::fromJson(QJsonDocument::fromJson(finished.output).object());
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
    void processorLimitEndsARunawayLoop();
    void runningScriptIsFilteredAndHasNoNewPrivileges();
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

    QTest::addRow("regular expressions work without executable memory")
        << request(QStringLiteral("function run() { return { m: /^(a+)b$/.exec('aaab')[1] }; }"))
        << ModuleState{{QStringLiteral("m"), QStringLiteral("aaa")}};

    QTest::addRow("dates work without the time zone file")
        << request(QStringLiteral("function run() { return { y: new Date(0).getUTCFullYear(), "
                                  "local: typeof new Date().toString() }; }"))
        << ModuleState{{QStringLiteral("y"), QStringLiteral("1970")},
                       {QStringLiteral("local"), QStringLiteral("string")}};
}

void tst_ModuleRunner::scriptContract() {
    QFETCH(ModuleRequest, input);
    QFETCH(ModuleState, expected);
    const ModuleResponse response = runRunner(input);
    QCOMPARE(response.error.value_or(QString()), QString());
    QCOMPARE(response.state.value_or(ModuleState()), expected);
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

    QMap<QString, QString> before;
    QMap<QString, QString> after;
    const QList<QByteArray> lines = finished.output.split('\n');
    for (const QByteArray& line : lines) {
        const QList<QByteArray> parts = line.split(' ');
        if (parts.size() != 3)
            continue;
        (parts[0] == "before" ? before : after)
            .insert(QString::fromLatin1(parts[1]), QString::fromLatin1(parts[2]));
    }

    const QStringList attempts{QStringLiteral("open-read"),      QStringLiteral("open-create"),
                               QStringLiteral("read-held-file"), QStringLiteral("socket-inet"),
                               QStringLiteral("socket-unix"),    QStringLiteral("fork"),
                               QStringLiteral("signal-parent"),  QStringLiteral("mmap-exec"),
                               QStringLiteral("reserve-600MiB"), QStringLiteral("exec")};
    for (const QString& attempt : attempts) {
        QCOMPARE(qPrintable(attempt + QLatin1Char(' ') + before.value(attempt)),
                 qPrintable(attempt + QStringLiteral(" allowed")));
        // The address-space limit refuses with ENOMEM; the filter with EPERM.
        const QString refusal =
            attempt == QStringLiteral("reserve-600MiB") ? QStringLiteral("failed") : QStringLiteral("denied");
        QCOMPARE(qPrintable(attempt + QLatin1Char(' ') + after.value(attempt)),
                 qPrintable(attempt + QLatin1Char(' ') + refusal));
    }
    QVERIFY(!QFile::exists(scratch.filePath(QStringLiteral("after-created"))));
    QVERIFY(QFile::exists(scratch.filePath(QStringLiteral("before-created"))));
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

void tst_ModuleRunner::runningScriptIsFilteredAndHasNoNewPrivileges() {
    QProcess process;
    process.setProgram(buildPath(QStringLiteral("libexec/ostavell/VellModuleRunner")));
    process.start();
    QVERIFY(process.waitForStarted());
    process.write(request(QStringLiteral("function run() { for (;;) {} }")).encoded());
    process.closeWriteChannel();

    const QString statusPath = QStringLiteral("/proc/%1/status").arg(process.processId());
    const auto status = [&] {
        QFile file(statusPath);
        return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll()) : QString();
    };
    // The script spins only after the filter is in place, so the filter shows while it runs.
    QTRY_VERIFY_WITH_TIMEOUT(status().contains(QStringLiteral("Seccomp:\t2")), 20000);
    QVERIFY(status().contains(QStringLiteral("NoNewPrivs:\t1")));
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
