#include "VellWorkflows/WorkflowEdge.h"

#include "VellPluginSDK/Actions/PluginBusMessage.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"

#include <QJsonDocument>
#include <QUuid>

namespace vell {

WorkflowEdge WorkflowEdge::connecting(const QString& source, const QString& target, const QString& branch) {
    return {uuidText(QUuid::createUuid()), source, target, branch};
}

WorkflowEdge WorkflowEdge::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    WorkflowEdge edge;
    edge.id = reader.string(u"id");
    edge.source = reader.string(u"source");
    edge.target = reader.string(u"target");
    edge.sourceHandle = reader.optionalString(u"sourceHandle");
    return edge;
}

QByteArray WorkflowEdge::encoded() const {
    return JsonWriter()
        .add(u"id", id)
        .add(u"source", source)
        .add(u"target", target)
        .addIfPresent(u"sourceHandle", sourceHandle)
        .bytes();
}

QJsonObject WorkflowEdge::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

} // namespace vell
