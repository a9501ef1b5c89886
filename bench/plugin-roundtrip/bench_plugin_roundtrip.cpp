// One action call from one native plugin to another through the host, as the app runs it: two
// child-mode plugins on their pipes, the transport thread, the sessions' gate and the router
// with its history on disk. The caller times each round trip itself, from its write of the
// invoke to its reading of the final update. The baseline is a synchronous D-Bus method call
// between two processes through a private bus daemon, measured in the same run; the router's
// two atomic history writes of every run are a floor the host cannot go below, so they are
// measured alone and taken off before the two are compared. The three are measured in short
// interleaved blocks (see RoundTrip.h).

#include "VellActionRouter/ActionRouterFiles.h"
#include "VellHost/NativePluginBundle.h"
#include "VellHost/Plugins/NativePluginSessions.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimer>

#include <chrono>
#include <cstdio>
#include <functional>
#include <optional>

#include "DBusBaseline.h"
#include "DBusEcho.h"
#include "RoundTrip.h"

using namespace vell;

namespace {

constexpr int startSeconds = 30;
constexpr int blockSeconds = 120;
// The router allows each peer 64 messages a second on the sessions' clock. Here that clock
// moves on by this step at every reading, two per round trip, so that back-to-back round trips
// stay inside the window, as the router bench's clock does.
constexpr double clockStep = 1.0 / 64;

struct Bundle {
    NativePluginRecord record;
    QString root;
};

std::optional<Bundle> inspect(const QString& path) {
    try {
        const NativePluginInspection inspection = NativePluginBundle::inspect(path);
        Bundle bundle;
        bundle.record.manifest = inspection.manifest;
        bundle.record.fingerprint = inspection.fingerprint;
        bundle.root = inspection.root;
        return bundle;
    } catch (const ModuleProblem& problem) {
        std::fprintf(stderr, "plugin-roundtrip bench: %s: %s\n", qPrintable(path),
                     qPrintable(problem.message()));
        return std::nullopt;
    }
}

// Runs the event loop until done holds or the deadline passes. Only the signals named here
// wake it, so that nothing of the bench runs between two round trips.
bool waitUntil(NativePluginSessions& sessions, const std::function<bool()>& done, int seconds,
               bool watchRouter) {
    if (done())
        return true;
    QEventLoop loop;
    const auto check = [&] {
        if (done())
            loop.quit();
    };
    QObject::connect(&sessions, &NativePluginSessions::statusChanged, &loop, check);
    QObject::connect(&sessions, &NativePluginSessions::snapshotsChanged, &loop, check);
    if (watchRouter)
        QObject::connect(&sessions, &NativePluginSessions::routerChanged, &loop, check);
    QTimer::singleShot(std::chrono::seconds(seconds), &loop, &QEventLoop::quit);
    loop.exec();
    return done();
}

QString callerField(const NativePluginSessions& sessions, const QString& label) {
    for (const PluginField& field : sessions.snapshots().value(RoundTrip::callerID).fields) {
        if (field.label == label)
            return field.value;
    }
    return {};
}

std::optional<PluginCatalogEntry> echoEntry(const ActionRouter& router) {
    for (const PluginCatalogEntry& entry : router.exported()) {
        if (entry.action && entry.address.plugin == RoundTrip::providerID &&
            entry.address.name == RoundTrip::echoAction)
            return entry;
    }
    return std::nullopt;
}

// What went wrong, with the status line of each plugin.
void reportStop(const NativePluginSessions& sessions, const char* what) {
    std::fprintf(stderr, "plugin-roundtrip bench: %s\n", what);
    for (auto it = sessions.status().cbegin(); it != sessions.status().cend(); ++it)
        std::fprintf(stderr, "  %s: %s\n", qPrintable(it.key()), qPrintable(it.value()));
}

// Launches both plugins and grants the caller the echo action once both have said who they are.
bool startPlugins(NativePluginSessions& sessions, const Bundle& provider, const Bundle& caller) {
    sessions.launch(provider.record, provider.root);
    sessions.launch(caller.record, caller.root);
    ActionRouter& router = sessions.router();
    const bool started = waitUntil(
        sessions,
        [&] {
            return echoEntry(router) && router.participants().contains(RoundTrip::callerID) &&
                   sessions.snapshots().contains(RoundTrip::callerID);
        },
        startSeconds, true);
    if (!started) {
        reportStop(sessions, "the plugins did not start");
        return false;
    }
    try {
        router.setAllowed(RoundTrip::callerID, *echoEntry(router), true);
    } catch (const ModuleProblem& problem) {
        std::fprintf(stderr, "plugin-roundtrip bench: %s\n", qPrintable(problem.message()));
        return false;
    }
    return true;
}

// Presses the caller's button and waits for its block of round trips to end.
bool roundTrips(NativePluginSessions& sessions, int block) {
    const auto running = [&] {
        return sessions.hasWorker(RoundTrip::callerID) && sessions.hasWorker(RoundTrip::providerID);
    };
    sessions.action(RoundTrip::callerID, RoundTrip::goAction);
    const bool done = waitUntil(
        sessions,
        [&] {
            return callerField(sessions, RoundTrip::blocksField) == QString::number(block + 1) ||
                   !callerField(sessions, RoundTrip::errorField).isEmpty() || !running();
        },
        blockSeconds, false);
    if (const QString error = callerField(sessions, RoundTrip::errorField); !error.isEmpty()) {
        std::fprintf(stderr, "plugin-roundtrip bench: the caller failed: %s\n", qPrintable(error));
        return false;
    }
    if (!done || !running()) {
        reportStop(sessions, "a block of round trips did not end");
        return false;
    }
    return true;
}

// The router's two history writes of one run, done alone with the same list, count times.
bool floorWrites(const ActionRouterFiles& files, const QList<ActionRunSummary>& history, int count,
                 std::vector<qint64>* samples) {
    for (int i = 0; i < count; ++i) {
        const auto start = std::chrono::steady_clock::now();
        const bool written = files.saveHistory(history).ok() && files.saveHistory(history).ok();
        const auto end = std::chrono::steady_clock::now();
        if (!written) {
            std::fprintf(stderr, "plugin-roundtrip bench: the floor's history could not be written\n");
            return false;
        }
        if (samples)
            samples->push_back(std::chrono::duration_cast<std::chrono::nanoseconds>(end - start).count());
    }
    return true;
}

QString microseconds(qint64 nanoseconds) {
    return QString::number(double(nanoseconds) / 1000, 'f', 1);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() == 3 && arguments.at(1) == DBusEcho::serverArgument)
        return DBusEcho::serve(arguments.at(2));

    const QDir plugins(QDir(app.applicationDirPath()).filePath(QStringLiteral("plugins")));
    const std::optional<Bundle> provider = inspect(plugins.filePath(QStringLiteral("EchoProvider.app")));
    const std::optional<Bundle> caller = inspect(plugins.filePath(QStringLiteral("EchoCaller.app")));
    QTemporaryDir routerDirectory;
    QTemporaryDir floorDirectory;
    if (!provider || !caller || !routerDirectory.isValid() || !floorDirectory.isValid())
        return 1;
    NativePluginSessions sessions(routerDirectory.path());
    double now = NativePluginSessions::currentTime();
    sessions.clock = [&now] { return now += clockStep; };
    DBusBaseline dbus;
    if (!startPlugins(sessions, *provider, *caller) || !dbus.start(app.applicationFilePath()))
        return 1;

    // Interleaved block by block, each block of the three with the same number of samples.
    const ActionRouterFiles floorFiles(floorDirectory.path());
    std::vector<qint64> calls;
    std::vector<qint64> floors;
    for (int block = 0; block < RoundTrip::blocks; ++block) {
        const bool measured = block >= RoundTrip::warmupBlocks;
        if (!roundTrips(sessions, block))
            return 1;
        const auto blockCalls = dbus.calls(block * RoundTrip::roundsPerBlock, RoundTrip::roundsPerBlock);
        if (!blockCalls)
            return 1;
        if (measured)
            calls.insert(calls.end(), blockCalls->begin(), blockCalls->end());
        if (!floorWrites(floorFiles, sessions.router().history(), RoundTrip::roundsPerBlock,
                         measured ? &floors : nullptr))
            return 1;
    }
    if (const auto& error = sessions.router().persistenceError()) {
        std::fprintf(stderr, "plugin-roundtrip bench: %s\n", qPrintable(*error));
        return 1;
    }
    const auto persisted = ActionRouterFiles(routerDirectory.path()).loadHistory();
    if (!persisted || persisted->size() != ActionRouter::maximumHistory) {
        std::fprintf(stderr, "plugin-roundtrip bench: the run history was not persisted\n");
        return 1;
    }

    const qint64 roundTrip = callerField(sessions, RoundTrip::medianField).toLongLong();
    const qint64 call = RoundTrip::percentile(calls, 0.5);
    const qint64 floor = RoundTrip::percentile(floors, 0.5);
    QTextStream out(stdout);
    out << "round trips: " << RoundTrip::measuredBlocks * RoundTrip::roundsPerBlock << " in blocks of "
        << RoundTrip::roundsPerBlock << " (caller to provider and back through the host, history of "
        << persisted->size() << " entries persisted)\n";
    out << "plugin round trip median: " << microseconds(roundTrip) << " us\n";
    out << "plugin round trip p99: " << microseconds(callerField(sessions, RoundTrip::p99Field).toLongLong())
        << " us\n";
    out << "D-Bus method call through a private bus median: " << microseconds(call) << " us\n";
    out << "D-Bus method call p99: " << microseconds(RoundTrip::percentile(calls, 0.99)) << " us\n";
    out << "floor, two atomic history writes, median: " << microseconds(floor) << " us\n";
    out << "overhead ratio: " << QString::number(double(roundTrip - floor) / double(call), 'f', 2) << '\n';
    return 0;
}
