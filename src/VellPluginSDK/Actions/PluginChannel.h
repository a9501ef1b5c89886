#pragma once

#include "VellPluginSDK/Actions/PluginValueSchema.h"
#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QString>

namespace vell {

// One channel that a peer publishes on.
struct PluginChannel {
    // A state channel retains its last value for late subscribers; an event channel keeps nothing.
    enum class Kind { event, state };

    static constexpr int maximumTitleCharacters = 80;

    QString id;
    QString title;
    Kind kind = Kind::event;
    PluginValueSchema schema;

    static PluginChannel fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;
    void validate() const;

    friend bool operator==(const PluginChannel&, const PluginChannel&) = default;
};

} // namespace vell
