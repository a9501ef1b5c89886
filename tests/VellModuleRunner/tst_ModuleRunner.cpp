#include "VellPluginSDK/Modules/ModuleRequest.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using namespace vell;
using namespace Qt::StringLiterals;

namespace {

const QString runnerPath = qEnvironmentVariable("VELL_BUILD_DIR") + u"/libexec/ostavell/VellModuleRunner"_s;

QByteArray request(const QString& script, const ModuleState& state = {}) {
    ModuleRequest request;
    request.package.id = u"cafe.osta.test"_s;
    request.package.script = script;
    request.state = state;
    return request.encoded();
}

struct Finished {
    QProcess::ExitStatus status = QProcess::NormalExit;
    int code = -1;
    QByteArray output;
    QByteArray errors;
};

Finished runProcess(const QString& program, const QByteArray& input, const QStringList& arguments = {}) {
    QProcess process;
    process.setProcessEnvironment(QProcessEnvironment());
    process.start(program, arguments);
    if (!process.waitForStarted())
        return {};
    process.write(input);
    process.closeWriteChannel();
    // Generous: the processor limit alone takes four seconds of a busy machine's time.
    process.waitForFinished(60000);
    return {process.exitStatus(), process.exitCode(), process.readAllStandardOutput(),
            process.readAllStandardError()};
}

Finished runProbe(const QString& mode, const QTemporaryDir& scratch) {
    return runProcess(qEnvironmentVariable("VELL_BUILD_DIR") + u"/tests/ModuleConfinementProbe"_s, {},
                      {mode, scratch.path()});
}

// The same JSON in one spelling: compact, keys in order.
QByteArray compact(const QByteArray& json) {
    return QJsonDocument::fromJson(json).toJson(QJsonDocument::Compact);
}

// The answer of a run that failed with the message.
QByteArray error(const QString& message) {
    return QJsonDocument(QJsonObject{{u"error"_s, message}}).toJson(QJsonDocument::Compact);
}

} // namespace

class tst_ModuleRunner final : public QObject {
    Q_OBJECT

private slots:
    void answers_data() {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QByteArray>("answer");

        QTest::addRow("answer replaces the whole state; values become text; a refresh has no action or event")
            << request(u"function run(r) { return { count: String(Number(r.state.count) + 1), n: 2.5, i: 7, "
                       u"b: false, a: typeof r.action, e: typeof r.event }; }"_s,
                       {{u"count"_s, u"4"_s}, {u"other"_s, u"x"_s}})
            << QByteArray(R"({"state":{"count":"5","n":"2.5","i":"7","b":"false",)"
                          R"("a":"undefined","e":"undefined"}})");
        QTest::addRow("classic script: top-level declarations are global")
            << request(u"var base = 10; let step = 2; function helper() { return base + step; }\n"
                       u"function run() { return { v: helper() }; }"_s)
            << QByteArray(R"({"state":{"v":"12"}})");
        QTest::addRow("no host object exists")
            << request(u"function run() { return { t: [typeof print, typeof console, typeof require, typeof "
                       u"XMLHttpRequest, typeof Qt, typeof URL, typeof URLSearchParams, typeof setTimeout, "
                       u"typeof gc, typeof process].join() }; }"_s)
            << QByteArray(R"({"state":{"t":"undefined,undefined,undefined,undefined,undefined,)"
                          R"(undefined,undefined,undefined,undefined,undefined"}})");
        // Long inputs and repeated use are where the engine would compile a pattern to machine
        // code; behind the filter only the interpreter can give these answers.
        QTest::addRow("regular expressions on long inputs, with backtracking")
            << request(
                   u"function run() {\n"
                   u"  var long = 'a'.repeat(100000) + 'b', pairs = 'ab'.repeat(50000), often = 0;\n"
                   u"  for (var i = 0; i < 20; ++i) often += /^(a+)b$/.exec('aaab')[1].length;\n"
                   u"  return { alternatives: /^(a|aa)+b$/.test(long),\n"
                   u"           backtracked: /^(a|ab)*$/.test(pairs), refused: /^(a|ab)*c$/.test(pairs),\n"
                   u"           replaced: long.replace(/a{3}/g, 'x').length,\n"
                   u"           words: 'word '.repeat(20000).match(/\\w+/g).length, often: often };\n"
                   u"}"_s)
            << QByteArray(R"({"state":{"alternatives":"true","backtracked":"true","refused":"false",)"
                          R"("replaced":"33335","words":"20000","often":"60"}})");
        QTest::addRow("dates work without the time zone file")
            << request(u"function run() { return { y: new Date(0).getUTCFullYear(), "
                       u"local: typeof new Date().toString() }; }"_s)
            << QByteArray(R"({"state":{"y":"1970","local":"string"}})");
        QTest::addRow("ordinary allocation still works")
            << request(u"function run() { var a = new Array(4000000).fill(1.5); return { n: a.length }; }"_s)
            << QByteArray(R"({"state":{"n":"4000000"}})");

        const QByteArray notAnObject = error(u"run must return the whole new state as an object."_s);
        QTest::addRow("thrown text is the message")
            << request(u"function run() { throw 'plain words'; }"_s) << error(u"plain words"_s);
        QTest::addRow("throw while loading")
            << request(u"throw new Error('at load'); function run() { return {}; }"_s) << error(u"at load"_s);
        QTest::addRow("replaced built-ins do not hide the message")
            << request(u"Error = null; String = null; Object = null;\n"
                       u"function run() { throw new TypeError('still read'); }"_s)
            << error(u"still read"_s);
        QTest::addRow("nested object value")
            << request(u"function run() { return { a: 'ok', b: { c: 1 } }; }"_s)
            << error(u"State value \"b\" must be text, a number or a boolean."_s);
        QTest::addRow("null value") << request(u"function run() { return { a: null }; }"_s)
                                    << error(u"State value \"a\" must be text, a number or a boolean."_s);
        QTest::addRow("nothing returned") << request(u"function run() {}"_s) << notAnObject;
        QTest::addRow("a promise is not a state")
            << request(u"function run() { return Promise.resolve({ a: 1 }); }"_s) << notAnObject;
        QTest::addRow("no run function")
            << request(u"var run = 3;"_s) << error(u"The module script defines no run function."_s);
        QTest::addRow("request that is not JSON")
            << QByteArray("not json") << error(u"The module request is not valid JSON: illegal value"_s);
    }

    // Nothing on standard error either: a refusal the engine met inside the confinement would show
    // there.
    void answers() {
        QFETCH(QByteArray, input);
        QFETCH(QByteArray, answer);
        const Finished finished = runProcess(runnerPath, input);
        QCOMPARE(finished.status, QProcess::NormalExit);
        QCOMPARE(finished.code, 0);
        QCOMPARE(compact(finished.output), compact(answer));
        QCOMPARE(finished.errors, QByteArray());
    }

    // The probe reports each attempt as a line "phase name result".
    void confinementStopsEveryEscapeThatWorkedBefore() {
        QTemporaryDir scratch;
        QVERIFY(scratch.isValid());
        const Finished finished = runProbe(u"attempts"_s, scratch);
        QCOMPARE(finished.status, QProcess::NormalExit);
        QCOMPARE(finished.code, 0);
        const QByteArrayList lines = finished.output.split('\n');
        const QByteArray attempts(
            "open-read open-create read-held-file socket-inet socket-unix fork signal-parent "
            "mmap-exec reserve-600MiB exec");
        for (const QByteArray& attempt : attempts.split(' ')) {
            // The address-space limit refuses with ENOMEM; the filter with EPERM.
            const QByteArray refusal = attempt == "reserve-600MiB" ? "failed" : "denied";
            for (const QByteArray& line :
                 {"before " + attempt + " allowed", "after " + attempt + ' ' + refusal})
                QVERIFY2(lines.contains(line), line.constData());
        }
        QVERIFY(!QFile::exists(scratch.filePath(u"after-created"_s)));
        QVERIFY(QFile::exists(scratch.filePath(u"before-created"_s)));
    }

    // Landlock binds only the thread that raises it: beside a second thread the walls must not
    // go up at all, while the early filter binds every thread there is.
    void confinementNeverLeavesASecondThreadUnwalled() {
        QTemporaryDir scratch;
        const Finished finished = runProbe(u"threaded"_s, scratch);
        QCOMPARE(finished.status, QProcess::NormalExit);
        QCOMPARE(finished.code, 0);
        const QByteArrayList lines = finished.output.split('\n');
        for (const char* line : {"threaded early-filter allowed", "threaded mmap-exec-other-thread denied",
                                 "threaded confinement denied"})
            QVERIFY2(lines.contains(line), line);
        QCOMPARE(finished.errors, QByteArray("threads: 2 running\n"));
    }

    void runningScriptIsAloneFilteredAndHasNoNewPrivileges() {
        QProcess process;
        process.start(runnerPath);
        QVERIFY(process.waitForStarted());
        process.write(request(u"function run() { for (;;) {} }"_s));
        process.closeWriteChannel();

        const auto status = [&] {
            QFile file(u"/proc/%1/status"_s.arg(process.processId()));
            return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll()) : QString();
        };
        // The script spins only after both filters are in place, so they show while it runs.
        QTRY_VERIFY_WITH_TIMEOUT(status().contains(u"Seccomp_filters:\t2"_s), 20000);
        QVERIFY(status().contains(u"Seccomp:\t2"_s));
        QVERIFY(status().contains(u"NoNewPrivs:\t1"_s));
        // Landlock and the filter bind per thread: the script's must be the only one.
        const QStringList tasks =
            QDir(u"/proc/%1/task"_s.arg(process.processId())).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        QCOMPARE(tasks, QStringList{QString::number(process.processId())});
        QVERIFY(status().contains(u"Threads:\t1\n"_s));
        // The processor limit ends it, with nothing written; it takes four seconds of a busy
        // machine's time.
        QVERIFY(process.waitForFinished(60000));
        QCOMPARE(process.exitStatus(), QProcess::CrashExit);
        QCOMPARE(process.exitCode(), int(SIGXCPU));
        QVERIFY(process.readAllStandardOutput().isEmpty());
    }

    void runawayAllocationIsStopped_data() {
        QTest::addColumn<QString>("script");
        QTest::addRow("engine heap")
            << u"function run() { var keep = []; for (;;) keep.push(new ArrayBuffer(64 << 20)); }"_s;
        QTest::addRow("string data")
            << u"function run() { var keep = []; for (;;) keep.push('x'.repeat(1 << 24)); }"_s;
    }

    void runawayAllocationIsStopped() {
        QFETCH(QString, script);
        const Finished runner = runProcess(runnerPath, request(script));
        // Either the engine reports the failed allocation or the process dies of it; never does
        // a state come back, and it is not the processor limit that stopped it.
        if (runner.status == QProcess::NormalExit) {
            const QJsonObject answer = QJsonDocument::fromJson(runner.output).object();
            QVERIFY(!answer.contains(u"state"_s));
            QVERIFY(answer.contains(u"error"_s));
        } else {
            QVERIFY(runner.code != SIGXCPU);
        }
    }
};

QTEST_GUILESS_MAIN(tst_ModuleRunner)
#include "tst_ModuleRunner.moc"
