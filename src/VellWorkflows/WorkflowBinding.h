#pragma once

#include "VellPluginSDK/Actions/PluginValue.h"
#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QString>

#include <optional>

namespace vell {

// Where one input of a step takes its value from: a literal, or an output field of an earlier
// step. Decoding accepts any mix of the three fields; a mix that is neither form fails where the
// binding is used.
struct WorkflowBinding {
    // The outputs of the steps that have run: node id to field name to value.
    using Results = QMap<QString, PluginValueMap>;

    std::optional<PluginValue> value;
    // Id of an earlier node.
    std::optional<QString> source;
    // Name of an output field of that node.
    std::optional<QString> field;

    // A literal carries the value and nothing else.
    bool isLiteral() const { return value && !source && !field; }
    bool isReference() const { return !value && source && field; }

    static WorkflowBinding fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    // The value at run time: the literal, or the field the source step produced.
    PluginValue resolve(const Results& results) const;

    friend bool operator==(const WorkflowBinding&, const WorkflowBinding&) = default;
};

} // namespace vell
