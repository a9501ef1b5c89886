#include "VellWorkflows/WorkflowDocument.h"

#include "VellPluginSDK/Actions/PluginBusMessage.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QJsonDocument>
#include <QLocale>

namespace vell {

WorkflowDocument WorkflowDocument::blank() {
    WorkflowNode start;
    start.id = QStringLiteral("start");
    start.position = {80, 180};
    start.data.kind = WorkflowNode::Configuration::Kind::manual;
    start.data.title = QStringLiteral("When I run it");
    return {currentSchemaVersion, QUuid::createUuid(), QStringLiteral("New workflow"), {start}, {}};
}

WorkflowDocument WorkflowDocument::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    WorkflowDocument document;
    document.schemaVersion = reader.integer(u"schemaVersion");
    document.id = reader.uuid(u"id");
    document.title = reader.string(u"title");
    document.nodes = reader.records<WorkflowNode>(u"nodes");
    document.edges = reader.records<WorkflowEdge>(u"edges");
    return document;
}

QByteArray WorkflowDocument::encoded() const {
    return JsonWriter()
        .add(u"schemaVersion", schemaVersion)
        .add(u"id", uuidText(id))
        .add(u"title", title)
        .addRecords(u"nodes", nodes)
        .addRecords(u"edges", edges)
        .bytes();
}

QJsonObject WorkflowDocument::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

std::optional<QString> WorkflowDocument::next(const QString& nodeID, QStringView branch) const {
    for (const WorkflowEdge& edge : edges) {
        if (edge.source == nodeID && edge.branch() == branch)
            return edge.target;
    }
    return std::nullopt;
}

bool WorkflowDocument::matches(const PluginValue& value, const QString& comparison,
                               const PluginValue& expected) {
    using Kind = PluginValue::Kind;
    // The variant's equality: same kind, exact text, numeric equality of numbers.
    if (comparison == u"equals")
        return value == expected;
    if (comparison == u"notEquals")
        return !(value == expected);
    if (comparison == u"greater" && value.kind() == Kind::number && expected.kind() == Kind::number)
        return value.numberValue() > expected.numberValue();
    if (comparison == u"contains" && value.kind() == Kind::string && expected.kind() == Kind::string) {
        // Folded under the user's locale, so that a Turkish dotted I matches as its speakers expect.
        const QLocale locale = QLocale::system();
        return locale.toLower(value.text()).contains(locale.toLower(expected.text()));
    }
    throw ModuleProblem(QStringLiteral("Condition values are incompatible."));
}

} // namespace vell
