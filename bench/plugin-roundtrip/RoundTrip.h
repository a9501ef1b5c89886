#pragma once

#include <QString>
#include <QtGlobal>

#include <algorithm>
#include <vector>

// What the round-trip bench and its two plugins agree on.
namespace vell::RoundTrip {

inline const QString providerID = QStringLiteral("app.ostavell.bench.echo");
inline const QString callerID = QStringLiteral("app.ostavell.bench.caller");
inline const QString echoAction = QStringLiteral("echo");
// The caller's button: each press runs one block of round trips.
inline const QString goAction = QStringLiteral("go");

// The bench interleaves short blocks of plugin round trips, D-Bus calls and history writes, so
// that all three see the same load of a shared machine and the same state of its disk, whose
// flushes vary by several times within a minute. The first blocks of each are a warm-up. Every
// invoke spends a request identity of the caller's session, of which the router takes 4096.
constexpr int roundsPerBlock = 20;
constexpr int warmupBlocks = 10;
constexpr int measuredBlocks = 100;
constexpr int blocks = warmupBlocks + measuredBlocks;

// The caller's snapshot fields: blocks done, then the figures in nanoseconds, or what failed.
inline const QString blocksField = QStringLiteral("Blocks");
inline const QString medianField = QStringLiteral("Median ns");
inline const QString p99Field = QStringLiteral("p99 ns");
inline const QString errorField = QStringLiteral("Error");

// The text of one round, the same length for every round on both transports.
inline QString text(int round) {
    return QStringLiteral("ping %1").arg(round, 6, 10, QLatin1Char('0'));
}

// The sample at this fraction of the sorted samples.
inline qint64 percentile(std::vector<qint64> samples, double fraction) {
    if (samples.empty())
        return 0;
    std::sort(samples.begin(), samples.end());
    return samples[std::min(samples.size() - 1, std::size_t(fraction * double(samples.size())))];
}

} // namespace vell::RoundTrip
