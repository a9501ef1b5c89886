#include "VellPluginSDK/Modules/ModuleResponse.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"

#include <QJsonDocument>

namespace vell {

ModuleResponse ModuleResponse::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.optionalStringMap(u"state"), reader.optionalString(u"error")};
}

QByteArray ModuleResponse::encoded() const {
    return JsonWriter().addIfPresent(u"state", state).addIfPresent(u"error", error).bytes();
}

QJsonObject ModuleResponse::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

} // namespace vell
