#include "VellPluginSDK/Protocol/PluginManifest.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonFile.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Protocol/PluginMessage.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>
#include <QRegularExpression>

#include <algorithm>

namespace vell {

PluginManifest PluginManifest::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginManifest manifest;
    manifest.id = reader.string(u"id");
    manifest.name = reader.string(u"name");
    manifest.version = reader.string(u"version");
    manifest.apiVersion = reader.integer(u"apiVersion");
    manifest.summary = reader.string(u"summary");
    manifest.capabilities = reader.strings(u"capabilities");
    manifest.launchMode = reader.optionalString(u"launchMode");
    manifest.icon = reader.optionalRecord<PluginIcon>(u"icon");
    return manifest;
}

PluginManifest PluginManifest::decode(const QByteArray& json) {
    return fromJson(JsonReader::parse(json));
}

PluginManifest PluginManifest::read(const QString& path) {
    const FileContents file = JsonFile::readBytes(path, maximumFileBytes);
    if (file.missing() || file.status == FileContents::Status::Unusable)
        throw ModuleProblem(file.error);
    if (file.status == FileContents::Status::TooLarge)
        throw ModuleProblem(QStringLiteral("Plugin manifest exceeds its limit."));
    PluginManifest manifest = decode(file.bytes);
    manifest.validate();
    return manifest;
}

QByteArray PluginManifest::encoded() const {
    return JsonWriter()
        .add(u"id", id)
        .add(u"name", name)
        .add(u"version", version)
        .add(u"apiVersion", apiVersion)
        .add(u"summary", summary)
        .add(u"capabilities", capabilities)
        .addIfPresent(u"launchMode", launchMode)
        .addRecordIfPresent(u"icon", icon)
        .bytes();
}

QJsonObject PluginManifest::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginManifest::validate() const {
    if (icon)
        icon->validate();
    if (launchMode && *launchMode != applicationLaunchMode)
        throw ModuleProblem(QStringLiteral("Unsupported plugin launch mode."));
    if (apiVersion != PluginMessage::interfaceVersion)
        throw ModuleProblem(QStringLiteral("This plugin requires a different plugin interface version."));

    static const QRegularExpression versionPattern(
        QRegularExpression::anchoredPattern(QStringLiteral(R"([0-9]{1,4}\.[0-9]{1,4}\.[0-9]{1,4})")));
    const int nameLength = TextMetrics::characterCount(name);
    const bool capabilitiesValid =
        capabilities.size() <= maximumCapabilities &&
        std::all_of(capabilities.begin(), capabilities.end(), [](const QString& capability) {
            const int length = TextMetrics::characterCount(capability);
            return length > 0 && length <= maximumCapabilityCharacters;
        });
    if (!Identifiers::isID(id) || TextMetrics::characterCount(id) > maximumIDCharacters || nameLength == 0 ||
        nameLength > maximumNameCharacters || !versionPattern.match(version).hasMatch() ||
        TextMetrics::characterCount(summary) > maximumSummaryCharacters || !capabilitiesValid)
        throw ModuleProblem(QStringLiteral("Invalid plugin manifest."));
}

} // namespace vell
