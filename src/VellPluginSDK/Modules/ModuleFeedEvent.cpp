#include "VellPluginSDK/Modules/ModuleFeedEvent.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"

#include <QJsonDocument>

namespace vell {

ModuleFeedEvent ModuleFeedEvent::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.string(u"feedID"), reader.string(u"json")};
}

QByteArray ModuleFeedEvent::encoded() const {
    return JsonWriter().add(u"feedID", feedID).add(u"json", json).bytes();
}

QJsonObject ModuleFeedEvent::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

} // namespace vell
