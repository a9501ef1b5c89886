#pragma once

#include "VellPluginSDK/Actions/PluginRunDisplay.h"
#include "VellPluginSDK/Actions/PluginRunPhase.h"
#include "VellPluginSDK/Actions/PluginValue.h"
#include "VellPluginSDK/Json/JsonNode.h"

#include <optional>

namespace vell {

// One report on a run, from its provider to the router and on to its caller.
struct PluginRunUpdate {
    static constexpr int maximumMessageCharacters = 300;
    static constexpr int maximumValues = 16;

    PluginRunPhase phase = PluginRunPhase::running;
    // Fraction done, 0 to 1.
    std::optional<double> progress;
    QString message;
    // Results; only a succeeded update may carry any.
    PluginValueMap values;
    std::optional<PluginRunDisplay> display;

    static PluginRunUpdate fromJson(const JsonNode& json);
    // Always writes "values", also when empty.
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;
    // The record alone; the values are judged against the action's output by the router.
    void validate() const;

    friend bool operator==(const PluginRunUpdate&, const PluginRunUpdate&) = default;
};

} // namespace vell
