#pragma once

#include "VellPluginSDK/Actions/PluginValue.h"
#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QUuid>

#include <optional>

namespace vell {

namespace PluginViewResources {

inline constexpr qsizetype maximumPathBytes = 240;

// A relative path inside a view root: at most 240 UTF-8 bytes of segments joined by "/", each
// segment of letters, digits, "_", "." and "-", never starting with a dot and never empty. So
// "..", hidden files, absolute paths, escapes and queries can't be written at all.
bool validPath(QStringView path);

} // namespace PluginViewResources

// A named event a custom view's page emits, on its way to the plugin.
struct PluginViewEvent {
    QString panelID;
    // The revision of the view that emitted it, so that a stale page is noticed.
    QString revision;
    QString name;
    PluginValueMap values;

    static PluginViewEvent fromJson(const JsonNode& json);
    // Declared field order.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    friend bool operator==(const PluginViewEvent&, const PluginViewEvent&) = default;
};

// A page's request for a resource the plugin serves itself.
struct PluginViewResourceRequest {
    QUuid id;
    QString panelID;
    QString revision;
    // Below the reserved prefix; its first segment is one of the view's resource namespaces.
    QString path;

    static PluginViewResourceRequest fromJson(const JsonNode& json);
    // Declared field order.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    friend bool operator==(const PluginViewResourceRequest&, const PluginViewResourceRequest&) = default;
};

// The plugin's answer to a resource request: the bytes and their type, or why not.
struct PluginViewResourceResult {
    static constexpr int maximumMimeCharacters = 100;
    static constexpr qsizetype maximumDataBytes = 8 * 1024 * 1024;
    static constexpr int maximumErrorCharacters = 300;

    QUuid id;
    // With data only: a bare "type/subtype", which becomes the response's Content-Type.
    std::optional<QString> mime;
    std::optional<QByteArray> data;
    // Exactly one of data and error.
    std::optional<QString> error;

    static PluginViewResourceResult fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out, the data as base64.
    QByteArray encoded() const;
    QJsonObject toJson() const;
    void validate() const;

    friend bool operator==(const PluginViewResourceResult&, const PluginViewResourceResult&) = default;
};

} // namespace vell
