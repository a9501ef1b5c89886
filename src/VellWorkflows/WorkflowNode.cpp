#include "VellWorkflows/WorkflowNode.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"

#include <QJsonDocument>

#include <array>

namespace vell {

namespace {

constexpr std::array<QStringView, 5> kindNames{u"manual", u"event", u"condition", u"action", u"review"};

} // namespace

WorkflowNode::Position WorkflowNode::Position::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.number(u"x"), reader.number(u"y")};
}

QByteArray WorkflowNode::Position::encoded() const {
    return JsonWriter().add(u"x", x).add(u"y", y).bytes();
}

QJsonObject WorkflowNode::Position::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

WorkflowNode::Configuration WorkflowNode::Configuration::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    Configuration data;
    data.kind = reader.enumeration<Kind>(u"kind", kindNames);
    data.title = reader.string(u"title");
    data.address = reader.optionalRecord<PluginActionAddress>(u"address");
    data.action = reader.optionalRecord<PluginRegisteredAction>(u"action");
    data.channel = reader.optionalRecord<PluginChannel>(u"channel");
    data.arguments = reader.recordMap<WorkflowBinding>(u"arguments");
    data.test = reader.optionalRecord<WorkflowBinding>(u"test");
    data.comparison = reader.optionalString(u"comparison");
    data.expected = reader.optionalRecord<PluginValue>(u"expected");
    return data;
}

QByteArray WorkflowNode::Configuration::encoded() const {
    JsonWriter writer;
    writer.add(u"kind", kindNames[static_cast<int>(kind)].toString())
        .add(u"title", title)
        .addRecordIfPresent(u"address", address)
        .addRecordIfPresent(u"action", action)
        .addRecordIfPresent(u"channel", channel)
        .addRecordMap(u"arguments", arguments)
        .addRecordIfPresent(u"test", test)
        .addIfPresent(u"comparison", comparison);
    if (expected)
        writer.add(u"expected", expected->toJson());
    return writer.bytes();
}

QJsonObject WorkflowNode::Configuration::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

WorkflowNode WorkflowNode::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    WorkflowNode node;
    node.id = reader.string(u"id");
    node.position = reader.record<Position>(u"position");
    node.data = reader.record<Configuration>(u"data");
    return node;
}

QByteArray WorkflowNode::encoded() const {
    return JsonWriter().add(u"id", id).addRecord(u"position", position).addRecord(u"data", data).bytes();
}

QJsonObject WorkflowNode::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

} // namespace vell
