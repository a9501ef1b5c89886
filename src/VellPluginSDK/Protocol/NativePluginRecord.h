#pragma once
// Placeholder until the bundle branch lands.
#include "VellPluginSDK/Protocol/PluginManifest.h"
#include <QList>
#include <optional>
namespace vell {
struct NativePluginVersion {
    PluginManifest manifest;
    QString folder;
    QString fingerprint;
    double savedAt = 0;
};
struct NativePluginRecord {
    PluginManifest manifest;
    QString folder;
    QString fingerprint;
    bool enabled = true;
    QStringList hiddenDisplayIDs;
    bool compactActivity = false;
    std::optional<QList<NativePluginVersion>> previousVersions;
};
} // namespace vell
