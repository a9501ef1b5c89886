#pragma once

#include "VellPluginSDK/Actions/PluginBusMessage.h"
#include "VellPluginSDK/Actions/PluginCatalogEntry.h"

#include <QList>
#include <QUuid>

#include <optional>

namespace vell {

// Rebuilds a catalogue from the pieces the router sends, one entry a message. A reader of
// entries always sees a whole catalogue: it changes only when a generation completes.
struct PluginCatalogAccumulator {
    static constexpr qsizetype maximumEntries = 1280;

    // The last complete catalogue.
    QList<PluginCatalogEntry> entries;
    // The pieces of the generation being received.
    QList<PluginCatalogEntry> pending;
    std::optional<QUuid> generation;

    // True when entries has just been replaced. A failure keeps entries, and keeps pending as
    // far as it got, including the good entries of the failing message.
    bool receive(const PluginBusMessage& message);
    void reset();
};

} // namespace vell
