#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <optional>

namespace vell {

// One field of a value schema.
struct PluginParameter {
    enum class Kind { string, number, boolean };

    QString name;
    Kind kind = Kind::string;
    bool required = false;
    // Inclusive bounds, meaningful for numbers only.
    std::optional<double> minimum;
    std::optional<double> maximum;

    static PluginParameter fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    // The constraint tests of one field, in order; the schema checks what spans fields.
    void validate() const;

    friend bool operator==(const PluginParameter&, const PluginParameter&) = default;
};

} // namespace vell
