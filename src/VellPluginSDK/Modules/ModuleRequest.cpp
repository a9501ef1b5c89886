#include "VellPluginSDK/Modules/ModuleRequest.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"

#include <QJsonDocument>

namespace vell {

ModuleRequest ModuleRequest::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    ModuleRequest request;
    request.package = reader.record<ModulePackage>(u"package");
    request.state = reader.stringMap(u"state");
    request.configuration = reader.stringMap(u"configuration");
    request.action = reader.optionalString(u"action");
    request.event = reader.optionalRecord<ModuleFeedEvent>(u"event");
    return request;
}

QByteArray ModuleRequest::encoded() const {
    return JsonWriter()
        .addRecord(u"package", package)
        .add(u"state", state)
        .add(u"configuration", configuration)
        .addIfPresent(u"action", action)
        .addRecordIfPresent(u"event", event)
        .bytes();
}

QJsonObject ModuleRequest::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

} // namespace vell
