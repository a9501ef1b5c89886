#include "VellPluginSDK/Actions/PluginRegistration.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace vell {

PluginRegistration PluginRegistration::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.records<PluginRegisteredAction>(u"actions"), reader.records<PluginChannel>(u"channels")};
}

QByteArray PluginRegistration::encoded() const {
    return JsonWriter().addRecords(u"actions", actions).addRecords(u"channels", channels).bytes();
}

QJsonObject PluginRegistration::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginRegistration::validate() const {
    // Counts and duplicates before any single definition, so that an oversized registration
    // costs nothing to refuse.
    if (actions.size() > maximumActions || channels.size() > maximumChannels ||
        !Identifiers::distinct(actions, &PluginRegisteredAction::id) ||
        !Identifiers::distinct(channels, &PluginChannel::id))
        throw ModuleProblem(QStringLiteral("Duplicate or excessive registration."));
    for (const PluginRegisteredAction& action : actions)
        action.validate();
    for (const PluginChannel& channel : channels)
        channel.validate();
}

} // namespace vell
