#pragma once

#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/Modules/ModuleFeedEvent.h"
#include "VellPluginSDK/Modules/ModulePackage.h"
#include "VellPluginSDK/Modules/ModuleState.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <optional>

namespace vell {

// What one run of the module runner is given. Without action and event it is the refresh run
// that follows install, enable and a settings change.
struct ModuleRequest final {
    ModulePackage package;
    ModuleState state;
    ModuleState configuration;
    std::optional<QString> action;
    std::optional<ModuleFeedEvent> event;

    static ModuleRequest fromJson(const JsonNode& json);
    QByteArray encoded() const;
    QJsonObject toJson() const;

    bool operator==(const ModuleRequest&) const = default;
};

} // namespace vell
