#pragma once

#include "VellPluginSDK/Actions/PluginChannel.h"
#include "VellPluginSDK/Actions/PluginRegisteredAction.h"
#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QList>

namespace vell {

// Everything one peer offers. A freshly connected peer holds the empty registration.
struct PluginRegistration {
    static constexpr int maximumActions = 32;
    static constexpr int maximumChannels = 32;

    QList<PluginRegisteredAction> actions;
    QList<PluginChannel> channels;

    static PluginRegistration fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;
    void validate() const;

    friend bool operator==(const PluginRegistration&, const PluginRegistration&) = default;
};

} // namespace vell
