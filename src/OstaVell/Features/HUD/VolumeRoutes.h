#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QMap>
#include <QString>

#include <optional>

namespace vell {

class UserDefaults;

// A plugin's volume control, by the plugin and the endpoint's own id.
struct PluginVolumeTarget {
    QString pluginID;
    QString endpointID;

    static PluginVolumeTarget fromJson(const JsonNode& json);
    QByteArray encoded() const;

    // "pluginID/endpointID": a plugin id holds no slash, so the first one splits it again.
    QString selectionID() const { return pluginID + u'/' + endpointID; }
    static std::optional<PluginVolumeTarget> fromSelectionID(const QString& id);

    friend bool operator==(const PluginVolumeTarget&, const PluginVolumeTarget&) = default;
};

// For each output, by its UID, the plugin control its volume keys go to instead. Kept in the
// user default "hud.volumeRoutes.v1". A route outlives its plugin: it stays saved while the
// plugin is away and holds again when it is back.
struct VolumeRoutes {
    static constexpr QLatin1StringView key{"hud.volumeRoutes.v1"};

    QMap<QString, PluginVolumeTarget> outputs;

    std::optional<PluginVolumeTarget> target(const QString& outputUID) const;
    // Stores the route, or removes it without a target.
    void set(const QString& outputUID, const std::optional<PluginVolumeTarget>& target);

    static VolumeRoutes fromJson(const JsonNode& json);
    QByteArray encoded() const;

    // What the defaults hold; routes that can't be read are no routes. Nothing is written
    // back, so unreadable data stays as it is until a person chooses a route.
    static VolumeRoutes load(const UserDefaults& defaults);
    void save(UserDefaults& defaults) const;
};

} // namespace vell
