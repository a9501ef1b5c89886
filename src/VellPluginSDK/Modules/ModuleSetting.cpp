#include "VellPluginSDK/Modules/ModuleSetting.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Modules/ModulePackage.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>

namespace vell {

ModuleSetting ModuleSetting::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.string(u"id"), reader.string(u"label"), reader.string(u"defaultValue")};
}

QByteArray ModuleSetting::encoded() const {
    return JsonWriter().add(u"id", id).add(u"label", label).add(u"defaultValue", defaultValue).bytes();
}

QJsonObject ModuleSetting::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void ModuleSetting::validate() const {
    const int labelLength = TextMetrics::characterCount(label);
    // The default becomes a stored value, which may hold no more bytes than any other.
    if (!ModulePackage::validKey(id) || labelLength == 0 || labelLength > 80 ||
        TextMetrics::characterCount(defaultValue) > 200 ||
        TextMetrics::utf8Size(defaultValue) > ModulePackage::maximumValueBytes)
        throw ModuleProblem(QStringLiteral("Invalid module setting."));
}

} // namespace vell
