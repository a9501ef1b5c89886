// Start-up, memory, idle CPU and idle wakeups of a closed OstaVell with a module, a plugin and
// a workflow installed, each beside a bare Qt Quick window measured in the same run on the
// same display.
#include "OstaVell/Modules/Lightweight/ModuleStore.h"
#include "OstaVell/Modules/Plugins/NativePluginStore.h"
#include "VellWorkflows/WorkflowFiles.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QThread>
#include <QUrl>
#include <QUuid>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>
#include <unistd.h>

#include "ProcessFigures.h"

namespace {

using vell::bench::contextSwitches;
using vell::bench::cpuTicks;
using vell::bench::residentKiB;

struct Program {
    QString path;
    QStringList arguments;
};

QProcessEnvironment environment() {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("OstaVell Shelf.debug=true"));
    return env;
}

using Clock = std::chrono::steady_clock;

double msBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double, std::milli>(to - from).count();
}

// A program's first frame, in milliseconds from its launch, read on two clocks: when the line
// arrived here, and the monotonic time stamp the program wrote on it. Both are CLOCK_MONOTONIC,
// read in two processes; the second is what the first would be if reading cost nothing.
struct FirstFrame {
    double arrivedMs = -1;
    double stampedMs = -1;
};

// The time stamp of the first-frame line once it has arrived whole.
std::optional<Clock::time_point> firstFrameStamp(const QByteArray& text) {
    static const QRegularExpression line(QStringLiteral("first frame at (\\d+) us on the monotonic clock\n"));
    const QRegularExpressionMatch match = line.match(QString::fromUtf8(text));
    if (!match.hasMatch())
        return std::nullopt;
    return Clock::time_point(std::chrono::microseconds(match.captured(1).toLongLong()));
}

// Starts the program and returns once its first-frame line has arrived on standard error, or
// arrivedMs -1. The wait blocks on the pipe itself, with no poll interval, so the line is seen
// when it is written rather than at the next tick of a timer.
FirstFrame startToFirstFrame(QProcess& process, const Program& program) {
    process.setProcessEnvironment(environment());
    process.setReadChannel(QProcess::StandardError);
    const QDeadlineTimer deadline(30000);
    const Clock::time_point launched = Clock::now();
    process.start(program.path, program.arguments);
    QByteArray seen;
    while (process.waitForReadyRead(int(deadline.remainingTime()))) {
        const Clock::time_point arrived = Clock::now();
        seen += process.readAllStandardError();
        if (const std::optional<Clock::time_point> stamp = firstFrameStamp(seen))
            return {msBetween(launched, arrived), msBetween(launched, *stamp)};
    }
    return {};
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

// What a person has after a first afternoon: the example module, the Dice plugin and one
// workflow, in the session's own data folder that the app then reads.
bool installWorkspace(const QString& build) {
    vell::ModuleStore::instance()->install(vell::ModuleStore::example(QStringLiteral("HelloVell")));
    vell::NativePluginStore* plugins = vell::NativePluginStore::instance();
    plugins->start();
    const QString problem =
        plugins->review(QUrl::fromLocalFile(build + QStringLiteral("/examples/plugins/Dice.app")));
    const QString installed = problem.isEmpty() ? plugins->installReviewed() : problem;
    plugins->stop();
    if (!installed.isEmpty()) {
        std::fprintf(stderr, "startup: the plugin did not install: %s\n", qPrintable(installed));
        return false;
    }
    vell::WorkflowNode start;
    start.id = QStringLiteral("start");
    start.data.kind = vell::WorkflowNode::Configuration::Kind::manual;
    start.data.title = QStringLiteral("When I run it");
    vell::WorkflowNode check = start;
    check.id = QStringLiteral("check");
    check.data.kind = vell::WorkflowNode::Configuration::Kind::review;
    check.data.title = QStringLiteral("Check the blinds");
    const vell::WorkflowDocument flow{
        1,
        QUuid::createUuid(),
        QStringLiteral("Morning routine"),
        {start, check},
        {vell::WorkflowEdge::connecting(start.id, check.id, QStringLiteral("next"))}};
    vell::WorkflowFiles(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                        QStringLiteral("/OstaVell/Automations"))
        .save({flow});
    return true;
}

// The start-up figures of one program over all runs.
struct Starts {
    QList<double> arrived;
    QList<double> stamped;
    QList<double> readLate;

    void add(const FirstFrame& frame) {
        arrived << frame.arrivedMs;
        stamped << frame.stampedMs;
        readLate << frame.arrivedMs - frame.stampedMs;
    }
};

void printStarts(const Starts& app, const Starts& bare, int runs) {
    std::printf("start: ostavell %.1f ms, bare window %.1f ms (median of %d)\n", median(app.arrived),
                median(bare.arrived), runs);
    std::printf(
        "start by the programs' own time stamps: ostavell %.1f ms, bare window %.1f ms (median of %d)\n",
        median(app.stamped), median(bare.stamped), runs);
    std::printf("line read after its stamp: ostavell %.2f ms (largest %.2f ms), bare window %.2f ms (largest "
                "%.2f ms)\n",
                median(app.readLate), *std::max_element(app.readLate.cbegin(), app.readLate.cend()),
                median(bare.readLate), *std::max_element(bare.readLate.cbegin(), bare.readLate.cend()));
}

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    const QString build =
        qEnvironmentVariable("VELL_BUILD_DIR", QDir(app.applicationDirPath()).filePath(".."));
    const Program ostavell{build + QStringLiteral("/bin/ostavell"), {}};
    const Program bare{build + QStringLiteral("/benchmarks/helpers/bare-quick-window"), {}};
    constexpr int runs = 7;
    try {
        if (!installWorkspace(build))
            return 1;
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "startup: could not install the workspace: %s\n", problem.what());
        return 1;
    }

    Starts appStarts, bareStarts;
    for (int i = 0; i < runs; ++i) {
        for (auto [program, starts] : {std::pair{&ostavell, &appStarts}, std::pair{&bare, &bareStarts}}) {
            QProcess process;
            const FirstFrame frame = startToFirstFrame(process, *program);
            stop(process);
            if (frame.arrivedMs < 0) {
                std::fprintf(stderr, "startup: %s never showed a frame\n", qPrintable(program->path));
                return 1;
            }
            starts->add(frame);
        }
    }
    printStarts(appStarts, bareStarts, runs);
    const double appStart = median(appStarts.arrived);
    const double bareStart = median(bareStarts.arrived);

    // Both run side by side for the idle figures.
    QProcess appProcess, bareProcess;
    if (startToFirstFrame(appProcess, ostavell).arrivedMs < 0 ||
        startToFirstFrame(bareProcess, bare).arrivedMs < 0)
        return 1;
    QThread::sleep(5);
    const qint64 appRss = residentKiB(appProcess.processId());
    const qint64 bareRss = residentKiB(bareProcess.processId());
    std::printf("memory after 5 s idle: ostavell %lld KiB, bare window %lld KiB\n", appRss, bareRss);

    const qint64 appTicks = cpuTicks(appProcess.processId());
    const qint64 bareTicks = cpuTicks(bareProcess.processId());
    const qint64 appSwitches = contextSwitches(appProcess.processId());
    constexpr int idleSeconds = 20;
    QThread::sleep(idleSeconds);
    const double ticksPerSecond = double(sysconf(_SC_CLK_TCK));
    const double appCpu =
        100.0 * (cpuTicks(appProcess.processId()) - appTicks) / ticksPerSecond / idleSeconds;
    const double bareCpu =
        100.0 * (cpuTicks(bareProcess.processId()) - bareTicks) / ticksPerSecond / idleSeconds;
    const double wakeups = double(contextSwitches(appProcess.processId()) - appSwitches) / idleSeconds;
    std::printf("idle cpu of the bare window: %.2f%%\n", bareCpu);
    stop(appProcess);
    stop(bareProcess);

    std::printf("start ratio: %.2f\n", appStart / bareStart);
    std::printf("memory ratio: %.2f\n", double(appRss) / double(bareRss));
    std::printf("idle cpu: %.2f%%\n", appCpu);
    std::printf("idle wakeups: %.1f/s\n", wakeups);
    return 0;
}
