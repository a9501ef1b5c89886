#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace vell {

// One event of a feed handed to the script. The body stays text: the host never parses it.
struct ModuleFeedEvent final {
    QString feedID;
    QString json;

    static ModuleFeedEvent fromJson(const JsonNode& json);
    QByteArray encoded() const;
    QJsonObject toJson() const;

    bool operator==(const ModuleFeedEvent&) const = default;
};

} // namespace vell
