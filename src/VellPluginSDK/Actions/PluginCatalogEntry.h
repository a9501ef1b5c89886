#pragma once

#include "VellPluginSDK/Actions/PluginActionAddress.h"
#include "VellPluginSDK/Actions/PluginChannel.h"
#include "VellPluginSDK/Actions/PluginRegisteredAction.h"
#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>

#include <optional>

namespace vell {

// One line of a catalogue: an action or a channel of one peer. A valid entry holds exactly
// one of the two; an action and a channel of the same name are different entries.
struct PluginCatalogEntry {
    PluginActionAddress address;
    std::optional<PluginRegisteredAction> action;
    std::optional<PluginChannel> channel;

    static PluginCatalogEntry fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    // The JSON form with the keys of every object sorted and no white space. A grant holds
    // these bytes and is compared with them byte for byte, so the form must never change
    // between versions: any change of it makes every grant lapse. Empty when the entry holds
    // a number JSON cannot carry.
    std::optional<QByteArray> definitionData() const;

    friend bool operator==(const PluginCatalogEntry&, const PluginCatalogEntry&) = default;
};

} // namespace vell
