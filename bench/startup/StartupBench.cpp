// Start-up, memory and idle CPU of a closed OstaVell, each beside a bare Qt Quick window
// measured in the same run on the same display.
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace {

struct Program {
    QString path;
    QStringList arguments;
};

QProcessEnvironment environment() {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("OstaVell Shelf.debug=true"));
    return env;
}

// Starts the program and returns once it reports its first frame, or -1.
double startToFirstFrame(QProcess& process, const Program& program) {
    process.setProcessEnvironment(environment());
    QElapsedTimer timer;
    timer.start();
    process.start(program.path, program.arguments);
    QByteArray seen;
    while (timer.elapsed() < 30000) {
        if (!process.waitForReadyRead(100) && process.state() == QProcess::NotRunning)
            return -1;
        seen += process.readAllStandardError();
        if (seen.contains("first frame"))
            return timer.nsecsElapsed() / 1e6;
    }
    return -1;
}

void stop(QProcess& process) {
    process.terminate();
    if (!process.waitForFinished(5000)) {
        process.kill();
        process.waitForFinished();
    }
}

double median(QList<double> values) {
    std::sort(values.begin(), values.end());
    return values.isEmpty() ? 0 : values.at(values.size() / 2);
}

qint64 residentKiB(qint64 pid) {
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    }
    return 0;
}

// User plus system time of a process, in clock ticks.
qint64 cpuTicks(qint64 pid) {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray text = stat.readAll();
    // Fields after the command name, which may itself hold spaces, start past the last ')'.
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    return fields.value(11).toLongLong() + fields.value(12).toLongLong();
}

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    const QString build =
        qEnvironmentVariable("VELL_BUILD_DIR", QDir(app.applicationDirPath()).filePath(".."));
    const Program ostavell{build + QStringLiteral("/bin/ostavell"), {}};
    const Program bare{build + QStringLiteral("/benchmarks/helpers/bare-quick-window"), {}};
    constexpr int runs = 7;

    QList<double> appStarts, bareStarts;
    for (int i = 0; i < runs; ++i) {
        for (auto [program, starts] : {std::pair{&ostavell, &appStarts}, std::pair{&bare, &bareStarts}}) {
            QProcess process;
            const double ms = startToFirstFrame(process, *program);
            stop(process);
            if (ms < 0) {
                std::fprintf(stderr, "startup: %s never showed a frame\n", qPrintable(program->path));
                return 1;
            }
            *starts << ms;
        }
    }
    const double appStart = median(appStarts);
    const double bareStart = median(bareStarts);
    std::printf("start: ostavell %.1f ms, bare window %.1f ms (median of %d)\n", appStart, bareStart, runs);

    // Both run side by side for the idle figures.
    QProcess appProcess, bareProcess;
    if (startToFirstFrame(appProcess, ostavell) < 0 || startToFirstFrame(bareProcess, bare) < 0)
        return 1;
    QThread::sleep(5);
    const qint64 appRss = residentKiB(appProcess.processId());
    const qint64 bareRss = residentKiB(bareProcess.processId());
    std::printf("memory after 5 s idle: ostavell %lld KiB, bare window %lld KiB\n", appRss, bareRss);

    const qint64 appTicks = cpuTicks(appProcess.processId());
    const qint64 bareTicks = cpuTicks(bareProcess.processId());
    constexpr int idleSeconds = 20;
    QThread::sleep(idleSeconds);
    const double ticksPerSecond = double(sysconf(_SC_CLK_TCK));
    const double appCpu =
        100.0 * (cpuTicks(appProcess.processId()) - appTicks) / ticksPerSecond / idleSeconds;
    const double bareCpu =
        100.0 * (cpuTicks(bareProcess.processId()) - bareTicks) / ticksPerSecond / idleSeconds;
    std::printf("idle cpu of the bare window: %.2f%%\n", bareCpu);
    stop(appProcess);
    stop(bareProcess);

    std::printf("start ratio: %.2f\n", appStart / bareStart);
    std::printf("memory ratio: %.2f\n", double(appRss) / double(bareRss));
    std::printf("idle cpu: %.2f%%\n", appCpu);
    return 0;
}
