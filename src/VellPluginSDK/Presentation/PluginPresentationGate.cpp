#include "VellPluginSDK/Presentation/PluginPresentationGate.h"

#include <iterator>
#include <limits>

namespace vell {

bool PluginPresentationGate::accept(const QString& key, double now) {
    // A key never seen passes at any instant.
    const double last = latest.value(key, -std::numeric_limits<double>::infinity());
    if (now - last < minimumInterval)
        return false;
    latest.insert(key, now);
    if (latest.size() > maximumKeys) {
        for (auto it = latest.begin(); it != latest.end();)
            it = now - it.value() < retention ? std::next(it) : latest.erase(it);
    }
    return true;
}

} // namespace vell
