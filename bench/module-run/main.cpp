// Press to saved state for Hello Vell through the real store and runner, beside a bare spawn
// of /bin/true measured in the same run. A press should feel instant; the ratio of the two
// medians says how far from a bare process start it is. Last, what the runner's spare costs
// while it waits.

#include "OstaVell/Modules/Lightweight/ModuleStore.h"
#include "VellHost/ModuleRunnerSpares.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>
#include <QThread>

#include <algorithm>
#include <chrono>
#include <spawn.h>
#include <sys/wait.h>

using namespace vell;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int runs = 60;

double milliseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

struct Figures {
    double median;
    double p95;
};

Figures figures(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    const auto at = [&](double fraction) {
        return samples.at(
            std::min(samples.size() - 1, static_cast<size_t>(fraction * (samples.size() - 1) + 0.5)));
    };
    return {at(0.5), at(0.95)};
}

bool waitIdle(ModuleStore& store) {
    QEventLoop loop;
    QObject::connect(&store, &ModuleStore::runningChanged, &loop, [&] {
        if (store.running().isEmpty())
            loop.quit();
    });
    if (!store.running().isEmpty())
        loop.exec();
    return store.errors().isEmpty();
}

double spawnTrue() {
    char* const arguments[] = {const_cast<char*>("/bin/true"), nullptr};
    char* const environment[] = {const_cast<char*>("PATH=/usr/bin:/bin"), nullptr};
    const Clock::time_point start = Clock::now();
    pid_t child = 0;
    if (posix_spawn(&child, "/bin/true", nullptr, nullptr, arguments, environment) != 0)
        return -1;
    int status = 0;
    waitpid(child, &status, 0);
    return milliseconds(Clock::now() - start);
}

QByteArray procFile(pid_t pid, const char* name) {
    QFile file(QStringLiteral("/proc/%1/%2").arg(pid).arg(QLatin1String(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// A line's value from /proc/<pid>/status, such as "15516 kB" for "VmRSS".
QString statusField(pid_t pid, const char* field) {
    const QList<QByteArray> lines = procFile(pid, "status").split('\n');
    for (const QByteArray& line : lines) {
        if (line.startsWith(QByteArray(field) + ':'))
            return QString::fromLatin1(line.mid(qstrlen(field) + 1).simplified());
    }
    return QStringLiteral("?");
}

// User and system time in clock ticks, fields 14 and 15 of /proc/<pid>/stat.
long long processorTicks(pid_t pid) {
    const QByteArray stat = procFile(pid, "stat");
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    return fields.size() > 12 ? fields.at(11).toLongLong() + fields.at(12).toLongLong() : -1;
}

// The spare once it has loaded and blocks reading its request; 0 if none comes.
pid_t waitingSpare(const QString& runner) {
    for (int i = 0; i < 1000; ++i) {
        const pid_t pid = ModuleRunnerSpares::waitingPid(runner);
        if (pid != 0 && statusField(pid, "State").startsWith(QLatin1Char('S')))
            return pid;
        QThread::msleep(10);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    QTextStream out(stdout);
    QTemporaryDir dir;
    const QString runner = ModuleExecution::defaultRunnerPath();
    ModuleStore store(dir.filePath(QStringLiteral("OstaVell/modules-v1.json")), runner);
    const ModulePackage hello = ModuleStore::example(QStringLiteral("HelloVell"));
    store.install(hello);
    if (!waitIdle(store)) {
        out << "install failed: " << store.errors().value(hello.id) << '\n';
        return 1;
    }

    std::vector<double> presses;
    std::vector<double> spawns;
    std::vector<double> bareRuns;
    const InstalledModule installed = *store.module(hello.id);
    const ModuleRequest request{
        installed.package, installed.state, installed.configuration, QStringLiteral("greet"), {}};
    for (int i = 0; i < runs; ++i) {
        // Interleaved, so that all see the same load of a shared machine.
        spawns.push_back(spawnTrue());
        const Clock::time_point bareStart = Clock::now();
        std::make_shared<ModuleExecution>(runner)->runBlocking(request);
        bareRuns.push_back(milliseconds(Clock::now() - bareStart));
        const Clock::time_point start = Clock::now();
        store.press(hello.id, QStringLiteral("greet"));
        if (!waitIdle(store)) {
            out << "press failed: " << store.errors().value(hello.id) << '\n';
            return 1;
        }
        presses.push_back(milliseconds(Clock::now() - start));
    }
    if (store.module(hello.id)->state.value(QStringLiteral("count")) != QString::number(runs)) {
        out << "the presses did not all reach the saved state\n";
        return 1;
    }

    const Figures press = figures(presses);
    const Figures spawn = figures(spawns);
    const Figures bare = figures(bareRuns);
    out << QStringLiteral("press to saved state (Hello Vell): median %1 ms, p95 %2 ms over %3 runs\n")
               .arg(press.median, 0, 'f', 2)
               .arg(press.p95, 0, 'f', 2)
               .arg(runs);
    out << QStringLiteral("one run on the calling thread, nothing saved: median %1 ms, p95 %2 ms\n")
               .arg(bare.median, 0, 'f', 2)
               .arg(bare.p95, 0, 'f', 2);
    out << QStringLiteral("spawn /bin/true: median %1 ms, p95 %2 ms over %3 runs\n")
               .arg(spawn.median, 0, 'f', 2)
               .arg(spawn.p95, 0, 'f', 2)
               .arg(runs);
    out << QStringLiteral("ratio: %1\n").arg(press.median / spawn.median, 0, 'f', 1);

    const pid_t spare = waitingSpare(runner);
    if (spare == 0) {
        out << "no spare runner was waiting\n";
        return 1;
    }
    const long long ticksBefore = processorTicks(spare);
    QThread::sleep(1);
    out << QStringLiteral(
               "spare runner while waiting: VmRSS %1 (RssAnon %2), processor time over 1 s: %3 ticks\n")
               .arg(statusField(spare, "VmRSS"), statusField(spare, "RssAnon"))
               .arg(processorTicks(spare) - ticksBefore);
    return 0;
}
