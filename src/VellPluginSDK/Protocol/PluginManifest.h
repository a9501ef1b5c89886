#pragma once

#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/Presentation/PluginIcon.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

namespace vell {

// What a plugin bundle says about itself, read from its VellPlugin.json and kept with the
// installed record. The capabilities here are free text for the person reviewing the plugin,
// not the protocol's capability names.
struct PluginManifest {
    static constexpr int maximumIDCharacters = 100;
    static constexpr int maximumNameCharacters = 80;
    static constexpr int maximumSummaryCharacters = 500;
    static constexpr int maximumCapabilities = 12;
    static constexpr int maximumCapabilityCharacters = 160;
    static constexpr qsizetype maximumFileBytes = 8192;
    // The one launch mode a manifest may name; without one the plugin runs as a child process.
    static constexpr QStringView applicationLaunchMode = u"application";

    QString id;
    QString name;
    QString version;
    qint64 apiVersion = 1;
    QString summary;
    QStringList capabilities;
    std::optional<QString> launchMode;
    std::optional<PluginIcon> icon;

    static PluginManifest fromJson(const JsonNode& json);
    // A whole VellPlugin.json; a text that does not parse fails with the parser's reason.
    static PluginManifest decode(const QByteArray& json);
    // A bundle's VellPlugin.json, decoded and validated; every failure is thrown as its message.
    static PluginManifest read(const QString& path);
    QByteArray encoded() const;
    QJsonObject toJson() const;
    void validate() const;

    bool launchesAsApplication() const { return launchMode == applicationLaunchMode; }

    friend bool operator==(const PluginManifest&, const PluginManifest&) = default;
};

} // namespace vell
