#pragma once

#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/Modules/ModulePackage.h"
#include "VellPluginSDK/Modules/ModuleState.h"

#include <QByteArray>
#include <QJsonObject>
#include <QSet>
#include <QString>

namespace vell {

// A module as the store keeps it: its package with the state and settings of this user.
struct InstalledModule final {
    ModulePackage package;
    ModuleState state;
    ModuleState configuration;
    bool enabled = true;
    QSet<QString> hiddenDisplayIDs; // written sorted, so saving is repeatable
    bool compactActivity = false;

    InstalledModule() = default;
    // A fresh install: initial state, default settings, enabled and shown everywhere.
    explicit InstalledModule(ModulePackage package);

    // All six keys are required.
    static InstalledModule fromJson(const JsonNode& json);
    QByteArray encoded() const;
    QJsonObject toJson() const;

    bool isVisible(const QString& displayID) const;

    bool operator==(const InstalledModule&) const = default;
};

} // namespace vell
