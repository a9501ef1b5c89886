#pragma once

// Small workflows for the tests: steps of each kind against one provider "cafe.osta" that
// offers "send" and the event channel "ring".

#include "VellWorkflows/WorkflowDocument.h"

#include "TestSupport.h"

namespace vell::test {

using Kind = WorkflowNode::Configuration::Kind;

inline const QString plugin = "cafe.osta";

inline WorkflowNode step(const QString& id, Kind kind, const QString& title = "Step") {
    WorkflowNode node;
    node.id = id;
    node.data.kind = kind;
    node.data.title = title;
    return node;
}

inline WorkflowNode manual(const QString& id = "start") {
    return step(id, Kind::manual, "When I run it");
}

inline PluginParameter parameter(const QString& name, PluginParameter::Kind kind, bool required = false) {
    return {name, kind, required, std::nullopt, std::nullopt};
}

// "send": a required text input, an optional number from 0 to 10; outputs "sent" (boolean)
// and "reply" (text).
inline PluginRegisteredAction sendAction() {
    PluginRegisteredAction send = action("send", "Send");
    send.input.fields = {parameter("text", PluginParameter::Kind::string, true),
                         {"count", PluginParameter::Kind::number, false, 0, 10}};
    send.output.fields = {parameter("sent", PluginParameter::Kind::boolean),
                          parameter("reply", PluginParameter::Kind::string)};
    return send;
}

inline WorkflowBinding literal(const PluginValue& value) {
    return {value, std::nullopt, std::nullopt};
}

inline WorkflowBinding reference(const QString& source, const QString& field) {
    return {std::nullopt, source, field};
}

inline WorkflowNode actionStep(const QString& id, QMap<QString, WorkflowBinding> arguments = {
                                                      {"text", literal(PluginValue::string("hi"))}}) {
    WorkflowNode node = step(id, Kind::action, "Send it");
    node.data.address = PluginActionAddress{plugin, "send"};
    node.data.action = sendAction();
    node.data.arguments = std::move(arguments);
    return node;
}

inline PluginChannel ringChannel() {
    return {
        "ring", "Ring", PluginChannel::Kind::event, {{parameter("caller", PluginParameter::Kind::string)}}};
}

inline WorkflowNode eventStart(const QString& id = "start") {
    WorkflowNode node = step(id, Kind::event, "When it rings");
    node.data.address = PluginActionAddress{plugin, "ring"};
    node.data.channel = ringChannel();
    return node;
}

inline WorkflowNode condition(const QString& id, const WorkflowBinding& test, const QString& comparison,
                              const PluginValue& expected) {
    WorkflowNode node = step(id, Kind::condition, "If");
    node.data.test = test;
    node.data.comparison = comparison;
    node.data.expected = expected;
    return node;
}

inline WorkflowEdge edge(const QString& source, const QString& target,
                         std::optional<QString> handle = std::nullopt) {
    return {source + u'-' + target + u'-' + handle.value_or("next"), source, target, handle};
}

inline WorkflowDocument document(const QList<WorkflowNode>& nodes, const QList<WorkflowEdge>& edges = {}) {
    return {1, QUuid("{7d3c2f4e-0a1b-4c5d-8e9f-0123456789ab}"), "Flow", nodes, edges};
}

// start -> a -> b -> ... , count nodes in all, every step after the start a review.
inline WorkflowDocument chain(int count) {
    QList<WorkflowNode> nodes{manual()};
    QList<WorkflowEdge> edges;
    for (int i = 1; i < count; ++i) {
        nodes.append(step(QStringLiteral("n%1").arg(i), Kind::review));
        edges.append(edge(nodes[i - 1].id, nodes[i].id));
    }
    return document(nodes, edges);
}

// start -> send -> node, with node's test or arguments drawing on send's outputs.
inline WorkflowDocument afterSend(const WorkflowNode& node) {
    return document({manual(), actionStep("send"), node}, {edge("start", "send"), edge("send", node.id)});
}

} // namespace vell::test
