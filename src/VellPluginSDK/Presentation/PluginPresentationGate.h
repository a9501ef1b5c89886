#pragma once

#include <QHash>
#include <QString>

namespace vell {

// A bound on how often a presentation per key may pass: at most one a second for each key. The
// map is pruned once it holds more than 64 keys, keeping only the keys seen in the last minute,
// so that a flood of distinct keys can't grow it without limit.
struct PluginPresentationGate {
    static constexpr double minimumInterval = 1;
    static constexpr int maximumKeys = 64;
    static constexpr double retention = 60;

    // Key to the instant, in seconds since 2001, of its last accepted presentation.
    QHash<QString, double> latest;

    // Whether a presentation for key may pass at now; when it may, now is remembered for key.
    bool accept(const QString& key, double now);
};

} // namespace vell
