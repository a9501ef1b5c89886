#include "VellPluginSDK/PluginRegistration.h"

#include "VellPluginSDK/ActionJsonReader.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QJsonArray>
#include <QSet>

namespace vell {

namespace {

template <typename T> bool hasDuplicateIds(const QList<T>& items) {
    QSet<QString> ids;
    for (const T& item : items) {
        if (ids.contains(item.id))
            return true;
        ids.insert(item.id);
    }
    return false;
}

} // namespace

PluginRegistration PluginRegistration::fromJson(const QJsonValue& json) {
    const ActionJsonReader reader(json);
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
    if (actions.size() > maximumActions || channels.size() > maximumChannels || hasDuplicateIds(actions) ||
        hasDuplicateIds(channels))
        throw ModuleProblem(QStringLiteral("Duplicate or excessive registration."));
    for (const PluginRegisteredAction& action : actions)
        action.validate();
    for (const PluginChannel& channel : channels)
        channel.validate();
}

} // namespace vell
