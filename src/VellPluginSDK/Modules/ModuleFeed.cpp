#include "VellPluginSDK/Modules/ModuleFeed.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Modules/ModulePackage.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>

namespace vell {

ModuleFeed ModuleFeed::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.string(u"id"), reader.string(u"label")};
}

QByteArray ModuleFeed::encoded() const {
    return JsonWriter().add(u"id", id).add(u"label", label).bytes();
}

QJsonObject ModuleFeed::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

QString ModuleFeed::declarationProblem() {
    return QStringLiteral(
        "Declare one feed with the local.mqtt.read permission, or no feeds and no network permission.");
}

void ModuleFeed::validate() const {
    const int labelLength = TextMetrics::characterCount(label);
    if (!ModulePackage::validKey(id) || labelLength == 0 || labelLength > 80)
        throw ModuleProblem(declarationProblem());
}

} // namespace vell
