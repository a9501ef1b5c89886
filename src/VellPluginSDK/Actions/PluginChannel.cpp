#include "VellPluginSDK/Actions/PluginChannel.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>

namespace vell {

namespace {

constexpr std::array<QStringView, 2> kindNames{u"event", u"state"};

} // namespace

PluginChannel PluginChannel::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginChannel channel;
    channel.id = reader.string(u"id");
    channel.title = reader.string(u"title");
    channel.kind = reader.enumeration<Kind>(u"kind", kindNames);
    channel.schema = reader.record<PluginValueSchema>(u"schema");
    return channel;
}

QByteArray PluginChannel::encoded() const {
    return JsonWriter()
        .add(u"id", id)
        .add(u"title", title)
        .add(u"kind", kindNames[static_cast<int>(kind)].toString())
        .addRecord(u"schema", schema)
        .bytes();
}

QJsonObject PluginChannel::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginChannel::validate() const {
    const int titleLength = TextMetrics::characterCount(title);
    if (!Identifiers::isKey(id) || titleLength == 0 || titleLength > maximumTitleCharacters)
        throw ModuleProblem(QStringLiteral("Invalid channel."));
    schema.validate();
}

} // namespace vell
