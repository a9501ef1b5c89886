#pragma once

#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/Modules/ModuleState.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <optional>

namespace vell {

// What the module runner answers: the whole new state, or an error text. When both come, the
// error wins.
struct ModuleResponse final {
    std::optional<ModuleState> state;
    std::optional<QString> error;

    static ModuleResponse fromJson(const JsonNode& json);
    QByteArray encoded() const;
    QJsonObject toJson() const;

    bool operator==(const ModuleResponse&) const = default;
};

} // namespace vell
