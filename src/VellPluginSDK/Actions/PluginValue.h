#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QHashFunctions>
#include <QJsonObject>
#include <QJsonValue>
#include <QMap>
#include <QString>

#include <optional>
#include <variant>

namespace vell {

class PluginValue;

// A value dictionary, the only payload of the action plane: flat, no nesting, no null.
// Sorted by key, so that a dictionary always encodes to the same text.
using PluginValueMap = QMap<QString, PluginValue>;

// One scalar of the action bus, written as the bare JSON scalar with no tag.
class PluginValue final {
public:
    enum class Kind { string, number, boolean };

    // The empty text, so that containers can default-construct a value.
    PluginValue() = default;

    static PluginValue string(QString text) { return PluginValue(std::move(text)); }
    static PluginValue number(double number) { return PluginValue(number); }
    static PluginValue boolean(bool truth) { return PluginValue(truth); }

    Kind kind() const { return static_cast<Kind>(m_value.index()); }
    // The payload of the matching kind; a default for the others.
    QString text() const;
    double numberValue() const;
    bool booleanValue() const;

    // As shown to a person: text unchanged, the shortest round-trip decimal of a number with
    // one decimal place kept on whole numbers ("3.0"), "Yes" or "No".
    QString display() const;

    // A boolean first, then a finite number, then a string; anything else fails as a string.
    static PluginValue fromJson(const JsonNode& json);
    QJsonValue toJson() const;

    static PluginValueMap mapFromJson(const JsonNode& json);
    static QJsonObject mapToJson(const PluginValueMap& values);

    friend bool operator==(const PluginValue&, const PluginValue&) = default;

private:
    explicit PluginValue(QString text)
        : m_value(std::move(text)) {}
    explicit PluginValue(double number)
        : m_value(number) {}
    explicit PluginValue(bool truth)
        : m_value(truth) {}

    // A boolean, a finite number or a string; nothing for anything else.
    static std::optional<PluginValue> scalar(const JsonNode& json);
    static PluginValueMap mapFromMembers(const JsonNode& json);

    // Index order is the order of Kind.
    std::variant<QString, double, bool> m_value;
};

size_t qHash(const PluginValue& value, size_t seed = 0) noexcept;

} // namespace vell
