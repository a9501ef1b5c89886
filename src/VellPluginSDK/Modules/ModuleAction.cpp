#include "VellPluginSDK/Modules/ModuleAction.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Modules/ModulePackage.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>

namespace vell {

ModuleAction ModuleAction::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.string(u"id"), reader.string(u"label")};
}

QByteArray ModuleAction::encoded() const {
    return JsonWriter().add(u"id", id).add(u"label", label).bytes();
}

QJsonObject ModuleAction::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void ModuleAction::validate() const {
    const int labelLength = TextMetrics::characterCount(label);
    if (!ModulePackage::validKey(id) || labelLength == 0 || labelLength > 80)
        throw ModuleProblem(QStringLiteral("Invalid module action."));
}

} // namespace vell
