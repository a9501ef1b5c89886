#include "VellPluginSDK/Actions/PluginChannel.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

namespace vell {

namespace {

constexpr std::array<QStringView, 2> kindNames{u"event", u"state"};

} // namespace

PluginChannel PluginChannel::fromJson(const QJsonValue& json) {
    const JsonReader reader(json);
    PluginChannel channel;
    channel.id = reader.string(u"id");
    channel.title = reader.string(u"title");
    channel.kind = reader.enumeration<Kind>(u"kind", kindNames);
    channel.schema = reader.record<PluginValueSchema>(u"schema");
    return channel;
}

QJsonObject PluginChannel::toJson() const {
    return {{"id", id},
            {"title", title},
            {"kind", kindNames[static_cast<int>(kind)].toString()},
            {"schema", schema.toJson()}};
}

void PluginChannel::validate() const {
    const int titleLength = TextMetrics::characterCount(title);
    if (!Identifiers::isKey(id) || titleLength == 0 || titleLength > maximumTitleCharacters)
        throw ModuleProblem(QStringLiteral("Invalid channel."));
    schema.validate();
}

} // namespace vell
