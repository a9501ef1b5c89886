#pragma once

#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/Protocol/NativePluginVersion.h"
#include "VellPluginSDK/Protocol/PluginManifest.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace vell {

// An installed native plugin as the index remembers it: the reviewed manifest and fingerprint of
// the copy in its folder, the user's settings for it, and the versions it replaced.
struct NativePluginRecord {
    PluginManifest manifest;
    // The UUID text naming the folder that holds its copy as "Plugin.app".
    QString folder;
    // 64 lower-case hexadecimal digits; the copy must still have it at every launch.
    QString fingerprint;
    bool enabled = true;
    // A set: sorted and without repeats, so that saving the same record writes the same bytes.
    QStringList hiddenDisplayIDs;
    bool compactActivity = false;
    // Newest first; absent when there is none.
    std::optional<QList<NativePluginVersion>> previousVersions;

    // hiddenDisplayIDs come back sorted and distinct, whatever the file held.
    static NativePluginRecord fromJson(const JsonNode& json);
    QByteArray encoded() const;
    QJsonObject toJson() const;

    friend bool operator==(const NativePluginRecord&, const NativePluginRecord&) = default;
};

} // namespace vell
