#pragma once

#include "VellPluginSDK/Actions/PluginValue.h"
#include "VellPluginSDK/Actions/PluginValueSchema.h"
#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/Presentation/PluginViewResources.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace vell {

// An event a custom view's page may emit, and the values it must carry.
struct PluginViewEventDefinition {
    QString id;
    PluginValueSchema input;

    static PluginViewEventDefinition fromJson(const JsonNode& json);
    // Declared field order.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    friend bool operator==(const PluginViewEventDefinition&, const PluginViewEventDefinition&) = default;
};

// A document embedded in a frame of a custom view: a page of the plugin's own on the surface's
// address, or a public HTTPS page.
struct PluginViewFrame {
    static constexpr int maximumURLCharacters = 512;
    static constexpr int maximumHostCharacters = 253;
    static constexpr QStringView surfaceAddress = u"vell-view://surface/";

    QString url;

    static PluginViewFrame fromJson(const JsonNode& json);
    // Declared field order.
    QByteArray encoded() const;
    QJsonObject toJson() const;
    void validate() const;

    friend bool operator==(const PluginViewFrame&, const PluginViewFrame&) = default;
};

// A web page from the plugin's bundle, shown in a closed web view with no network and no files:
// it gets state from the host, emits declared events, and fetches its own assets.
struct PluginCustomView {
    static constexpr int maximumStateKeys = 64;
    static constexpr qsizetype maximumStateBytes = 32768;
    static constexpr int maximumEvents = 16;
    static constexpr int maximumResourceNamespaces = 4;
    static constexpr int maximumFrames = 2;

    // The page's path inside the plugin's view root.
    QString entry;
    QString revision;
    PluginValueMap state;
    QList<PluginViewEventDefinition> events;
    // The first segments of the paths the plugin serves itself.
    std::optional<QStringList> resourceNamespaces;
    std::optional<QList<PluginViewFrame>> frames;

    static PluginCustomView fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    void validate() const;
    // The view, then the path of a resource request: valid, and below a declared namespace.
    void validate(const PluginViewResourceRequest& request) const;
    // An event names one of the definitions and its values satisfy that definition's input.
    void validate(const PluginViewEvent& event) const;

    friend bool operator==(const PluginCustomView&, const PluginCustomView&) = default;
};

} // namespace vell
