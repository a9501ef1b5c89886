#pragma once

#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/Protocol/PluginManifest.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace vell {

// An earlier version of an installed plugin, kept so that the user can go back to it. Its copy
// stays in its own folder under the plugins root.
struct NativePluginVersion {
    PluginManifest manifest;
    // The UUID text naming its folder.
    QString folder;
    // 64 lower-case hexadecimal digits.
    QString fingerprint;
    // When it was superseded, in seconds since 2001.
    double savedAt = 0;

    static NativePluginVersion fromJson(const JsonNode& json);
    QByteArray encoded() const;
    QJsonObject toJson() const;

    friend bool operator==(const NativePluginVersion&, const NativePluginVersion&) = default;
};

} // namespace vell
