// One read-only action invoked by one local peer and answered by another inside deliver, with
// the history persisted. Each run must write the history file atomically twice (running, then
// succeeded); the floor is exactly those two writes of the same list, measured in the same loop,
// so the ratio shows what the router costs on top of the file system.

#include "VellActionRouter/ActionRouter.h"
#include "VellActionRouter/ActionRouterFiles.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <cstdio>

using namespace vell;

namespace {

const QString caller = QStringLiteral("local.bench.caller");
const QString provider = QStringLiteral("local.bench.provider");
constexpr int warmup = 100;
constexpr int measured = 1000;
// Stays inside the rate window of both peers: one message each per run.
constexpr double secondsPerRun = 1.0 / 32;

double percentile(std::vector<qint64> samples, double fraction) {
    std::sort(samples.begin(), samples.end());
    const auto index = std::min(samples.size() - 1, std::size_t(fraction * double(samples.size())));
    return double(samples[index]) / 1000.0;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir routerDirectory;
    QTemporaryDir floorDirectory;
    if (!routerDirectory.isValid() || !floorDirectory.isValid()) {
        std::fprintf(stderr, "router bench: no temporary folder\n");
        return 1;
    }

    ActionRouter router(routerDirectory.path());
    double now = 0;
    int succeeded = 0;
    router.setDeliver([&](const QString& to, const PluginBusMessage& message) {
        if (to == provider && message.operation == PluginBusMessage::Operation::execute) {
            PluginBusMessage answer;
            answer.operation = PluginBusMessage::Operation::update;
            answer.requestID = message.requestID;
            PluginRunUpdate update;
            update.phase = PluginRunPhase::succeeded;
            update.values.insert(QStringLiteral("echo"), message.values->value(QStringLiteral("text")));
            answer.update = update;
            router.receive(answer, provider, now);
        }
        if (to == caller && message.operation == PluginBusMessage::Operation::update &&
            message.update->phase == PluginRunPhase::succeeded)
            ++succeeded;
    });

    PluginRegisteredAction echo;
    echo.id = QStringLiteral("echo");
    echo.title = QStringLiteral("Echo");
    echo.timeoutSeconds = 10;
    echo.input.fields = {{QStringLiteral("text"), PluginParameter::Kind::string, true, {}, {}}};
    echo.output.fields = {{QStringLiteral("echo"), PluginParameter::Kind::string, true, {}, {}}};
    router.connect(caller, QStringLiteral("bench-caller-v1"), QUuid::createUuid());
    router.connect(provider, QStringLiteral("bench-provider-v1"), QUuid::createUuid());
    PluginBusMessage registration;
    registration.operation = PluginBusMessage::Operation::register_;
    registration.requestID = QUuid::createUuid();
    registration.registration = PluginRegistration{{echo}, {}};
    router.receive(registration, provider, now);
    router.setAllowed(caller, router.exported().first(), true);

    const ActionRouterFiles floorFiles(floorDirectory.path());
    std::vector<qint64> runs;
    std::vector<qint64> floors;
    qint64 runNanoseconds = 0;
    for (int i = 0; i < warmup + measured; ++i) {
        PluginBusMessage invoke;
        invoke.operation = PluginBusMessage::Operation::invoke;
        invoke.requestID = QUuid::createUuid();
        invoke.address = PluginActionAddress{provider, QStringLiteral("echo")};
        invoke.values =
            PluginValueMap{{QStringLiteral("text"), PluginValue::string(QStringLiteral("hello"))}};
        now += secondsPerRun;

        QElapsedTimer timer;
        timer.start();
        router.receive(invoke, caller, now);
        const qint64 run = timer.nsecsElapsed();

        const QList<ActionRunSummary> history = router.history();
        timer.restart();
        const bool written = floorFiles.saveHistory(history).ok() && floorFiles.saveHistory(history).ok();
        const qint64 floor = timer.nsecsElapsed();
        if (!written || router.persistenceError()) {
            std::fprintf(stderr, "router bench: history could not be written\n");
            return 1;
        }
        if (i >= warmup) {
            runs.push_back(run);
            floors.push_back(floor);
            runNanoseconds += run;
        }
    }
    if (succeeded != warmup + measured) {
        std::fprintf(stderr, "router bench: %d of %d runs succeeded\n", succeeded, warmup + measured);
        return 1;
    }

    const double runMedian = percentile(runs, 0.5);
    const double floorMedian = percentile(floors, 0.5);
    QTextStream out(stdout);
    out << "runs: " << measured << " (history of " << router.history().size() << " entries persisted)\n";
    out << "runs per second: " << qRound(measured / (double(runNanoseconds) / 1e9)) << '\n';
    out << "run latency median: " << runMedian << " us\n";
    out << "run latency p99: " << percentile(runs, 0.99) << " us\n";
    out << "floor, two atomic history writes, median: " << floorMedian << " us\n";
    out << "floor p99: " << percentile(floors, 0.99) << " us\n";
    out << "ratio: " << QString::number(runMedian / floorMedian, 'f', 2) << '\n';
    return 0;
}
