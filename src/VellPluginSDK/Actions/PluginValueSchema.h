#pragma once

#include "VellPluginSDK/Actions/PluginParameter.h"
#include "VellPluginSDK/Actions/PluginValue.h"
#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QList>

namespace vell {

// What a value dictionary must look like: an ordered list of typed fields. The order is
// significant, since the first failing field decides the message.
struct PluginValueSchema {
    static constexpr int maximumFields = 16;
    static constexpr int maximumEntries = 16;
    static constexpr int maximumTextBytes = 2048;

    QList<PluginParameter> fields;

    static PluginValueSchema fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    // The schema itself.
    void validate() const;
    // The schema, then values against it; never coerces a value from one kind to another.
    void validate(const PluginValueMap& values) const;

    friend bool operator==(const PluginValueSchema&, const PluginValueSchema&) = default;
};

} // namespace vell
