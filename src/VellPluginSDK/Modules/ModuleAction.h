#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace vell {

// An action the module's buttons may invoke; its id reaches the script as the request's action.
struct ModuleAction final {
    QString id;
    QString label;

    static ModuleAction fromJson(const JsonNode& json);
    QByteArray encoded() const;
    QJsonObject toJson() const;
    // Throws "Invalid module action." for a bad id or an empty or long label.
    void validate() const;

    bool operator==(const ModuleAction&) const = default;
};

} // namespace vell
