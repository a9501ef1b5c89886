#include "VellPluginSDK/Actions/PluginRegistration.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QJsonArray>

namespace vell {

PluginRegistration PluginRegistration::fromJson(const QJsonValue& json) {
    const JsonReader reader(json);
    return {reader.records<PluginRegisteredAction>(u"actions"), reader.records<PluginChannel>(u"channels")};
}

QJsonObject PluginRegistration::toJson() const {
    QJsonArray actionArray;
    for (const PluginRegisteredAction& action : actions)
        actionArray.append(action.toJson());
    QJsonArray channelArray;
    for (const PluginChannel& channel : channels)
        channelArray.append(channel.toJson());
    return {{"actions", actionArray}, {"channels", channelArray}};
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
