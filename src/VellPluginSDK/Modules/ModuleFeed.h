#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace vell {

// An inbound device feed; only allowed together with the local.mqtt.read permission.
struct ModuleFeed final {
    QString id;
    QString label;

    static ModuleFeed fromJson(const JsonNode& json);
    QByteArray encoded() const;
    QJsonObject toJson() const;
    // Every fault in a package's feeds gives this one sentence.
    static QString declarationProblem();

    // Throws declarationProblem() for a bad id or an empty or long label.
    void validate() const;

    bool operator==(const ModuleFeed&) const = default;
};

} // namespace vell
