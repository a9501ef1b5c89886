#include "VellPluginSDK/Actions/PluginCatalogAccumulator.h"

#include "VellPluginSDK/ModuleProblem.h"

namespace vell {

bool PluginCatalogAccumulator::receive(const PluginBusMessage& message) {
    if (message.operation != PluginBusMessage::Operation::catalog)
        return false;
    // A new generation may begin at any time; the pieces of an older one are dropped, never
    // merged into it.
    if (generation != message.requestID) {
        generation = message.requestID;
        pending.clear();
    }
    if (message.catalog) {
        for (const PluginCatalogEntry& entry : *message.catalog) {
            entry.address.validate();
            if (entry.action.has_value() == entry.channel.has_value())
                throw ModuleProblem(QStringLiteral("Invalid catalog entry."));
            if (entry.action)
                entry.action->validate();
            if (entry.channel)
                entry.channel->validate();
            const QString& id = entry.action ? entry.action->id : entry.channel->id;
            if (entry.address.name != id)
                throw ModuleProblem(QStringLiteral("Catalog identity mismatch."));
            const bool duplicate =
                std::any_of(pending.begin(), pending.end(), [&](const PluginCatalogEntry& seen) {
                    return seen.address == entry.address &&
                           seen.action.has_value() == entry.action.has_value();
                });
            if (duplicate)
                throw ModuleProblem(QStringLiteral("Duplicate catalog entry."));
            pending.append(entry);
        }
    }
    if (pending.size() > maximumEntries)
        throw ModuleProblem(QStringLiteral("Catalog exceeds its limit."));
    if (message.complete.value_or(false)) {
        entries = std::move(pending);
        pending.clear();
        generation.reset();
        return true;
    }
    return false;
}

void PluginCatalogAccumulator::reset() {
    entries.clear();
    pending.clear();
    generation.reset();
}

} // namespace vell
