#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace vell {

// One declared configuration entry; the user edits its value in the module's settings.
struct ModuleSetting final {
    QString id;
    QString label;
    QString defaultValue;

    static ModuleSetting fromJson(const JsonNode& json);
    QByteArray encoded() const;
    QJsonObject toJson() const;
    // Throws "Invalid module setting." for a bad id, an empty or long label or a long default.
    void validate() const;

    bool operator==(const ModuleSetting&) const = default;
};

} // namespace vell
