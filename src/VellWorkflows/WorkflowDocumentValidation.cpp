#include "VellPluginSDK/Actions/PluginValueSchema.h"
#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"
#include "VellWorkflows/WorkflowDocument.h"

#include <QSet>

#include <algorithm>
#include <cmath>

namespace vell {

namespace {

using Kind = WorkflowNode::Configuration::Kind;

[[noreturn]] void fail(const char* message) {
    throw ModuleProblem(QString::fromLatin1(message));
}

// A message that starts with the step's title, so that the user knows which step to fix.
[[noreturn]] void failStep(const WorkflowNode& node, const char* message) {
    throw ModuleProblem(node.data.title + QString::fromLatin1(message));
}

bool validTitle(const QString& title, int maximum) {
    const int length = TextMetrics::characterCount(title);
    return length > 0 && length <= maximum;
}

bool validCoordinate(double value) {
    return std::isfinite(value) && std::abs(value) <= WorkflowNode::maximumCoordinate;
}

PluginParameter::Kind parameterKind(PluginValue::Kind kind) {
    switch (kind) {
    case PluginValue::Kind::string:
        return PluginParameter::Kind::string;
    case PluginValue::Kind::number:
        return PluginParameter::Kind::number;
    case PluginValue::Kind::boolean:
        break;
    }
    return PluginParameter::Kind::boolean;
}

bool isComparison(const QString& name) {
    return name == u"equals" || name == u"notEquals" || name == u"greater" || name == u"contains";
}

bool catalogHolds(const std::optional<QList<PluginCatalogEntry>>& catalog, const PluginCatalogEntry& entry) {
    return !catalog || catalog->contains(entry);
}

} // namespace

void WorkflowDocument::validate(const std::optional<QList<PluginCatalogEntry>>& catalog) const {
    validateStructure();
    validateGraph();
    validateReachability();
    for (const WorkflowNode& step : nodes) {
        const WorkflowNode::Configuration& data = step.data;
        switch (data.kind) {
        case Kind::condition:
            validateCondition(step);
            break;
        case Kind::action:
            validateAction(step, catalog);
            break;
        case Kind::event:
            validateEvent(step, catalog);
            break;
        case Kind::manual:
        case Kind::review:
            if (!data.arguments.isEmpty() || data.action || data.channel || data.address)
                fail("This step cannot carry hidden actions or inputs.");
            break;
        }
    }
}

void WorkflowDocument::validateStructure() const {
    if (schemaVersion != currentSchemaVersion || !validTitle(title, maximumTitleCharacters) ||
        nodes.isEmpty() || nodes.size() > maximumNodes || edges.size() > maximumEdges ||
        !Identifiers::distinct(nodes, &WorkflowNode::id) || !Identifiers::distinct(edges, &WorkflowEdge::id))
        fail("Invalid workflow version, title or size.");
    const auto starts = std::count_if(nodes.begin(), nodes.end(),
                                      [](const WorkflowNode& step) { return step.data.isStart(); });
    if (starts != 1)
        fail("Use exactly one manual or event start.");
    for (const WorkflowEdge& edge : edges) {
        if (!node(edge.source) || !node(edge.target) || edge.source == edge.target)
            fail("A connection has an invalid target.");
    }
}

void WorkflowDocument::validateGraph() const {
    for (const WorkflowNode& step : nodes) {
        if (!Identifiers::isKey(step.id) ||
            !validTitle(step.data.title, WorkflowNode::Configuration::maximumTitleCharacters) ||
            !validCoordinate(step.position.x) || !validCoordinate(step.position.y))
            fail("A node has an invalid identity or position.");
        const auto incoming = std::count_if(edges.begin(), edges.end(),
                                            [&](const WorkflowEdge& edge) { return edge.target == step.id; });
        if (incoming != (step.data.isStart() ? 0 : 1))
            fail("Connect every step once. Merge points are not supported in this version.");
        QSet<QString> branches;
        for (const WorkflowEdge& edge : edges) {
            if (edge.source != step.id)
                continue;
            const QString branch = edge.branch();
            const bool allowed = step.data.kind == Kind::condition
                                     ? branch == WorkflowEdge::yesBranch || branch == WorkflowEdge::noBranch
                                     : branch == WorkflowEdge::nextBranch;
            if (!allowed || branches.contains(branch))
                fail("Use one connection per output. Conditions have yes and no outputs.");
            branches.insert(branch);
        }
    }
}

void WorkflowDocument::validateReachability() const {
    const auto start = std::find_if(nodes.begin(), nodes.end(),
                                    [](const WorkflowNode& step) { return step.data.isStart(); });
    QSet<QString> visited{start->id};
    QStringList pending{start->id};
    while (!pending.isEmpty()) {
        const QString current = pending.takeLast();
        for (const WorkflowEdge& edge : edges) {
            if (edge.source != current)
                continue;
            if (visited.contains(edge.target))
                fail("Loops are not supported.");
            visited.insert(edge.target);
            pending.append(edge.target);
        }
    }
    if (visited.size() != nodes.size())
        fail("Every step must be reachable from the start; loops are not supported.");
}

void WorkflowDocument::validateCondition(const WorkflowNode& step) const {
    const WorkflowNode::Configuration& data = step.data;
    if (!data.test || !data.comparison || !data.expected || !isComparison(*data.comparison))
        fail("Complete the condition.");
    const PluginParameter::Kind left = bindingKind(*data.test, step);
    const PluginParameter::Kind right = bindingKind(WorkflowBinding{data.expected, {}, {}}, step);
    if (left != right || (*data.comparison == u"greater" && left != PluginParameter::Kind::number) ||
        (*data.comparison == u"contains" && left != PluginParameter::Kind::string))
        fail("The condition compares incompatible values.");
}

void WorkflowDocument::validateAction(const WorkflowNode& step,
                                      const std::optional<QList<PluginCatalogEntry>>& catalog) const {
    const WorkflowNode::Configuration& data = step.data;
    if (!data.address || !data.action || data.address->name != data.action->id || data.channel)
        fail("Choose an available module action.");
    data.address->validate();
    data.action->validate();
    if (!catalogHolds(catalog, PluginCatalogEntry{*data.address, data.action, std::nullopt}))
        failStep(step, ": its module is missing or the action changed. Choose it again.");
    const QList<PluginParameter>& inputs = data.action->input.fields;
    const auto isInput = [&](const QString& name) {
        return std::any_of(inputs.begin(), inputs.end(),
                           [&](const PluginParameter& input) { return input.name == name; });
    };
    const bool requiredBound = std::all_of(inputs.begin(), inputs.end(), [&](const PluginParameter& input) {
        return !input.required || data.arguments.contains(input.name);
    });
    const QList<QString> names = data.arguments.keys();
    if (!requiredBound || !std::all_of(names.begin(), names.end(), isInput))
        failStep(step, ": complete its required inputs.");
    for (const PluginParameter& input : inputs) {
        const auto binding = data.arguments.constFind(input.name);
        if (binding == data.arguments.constEnd())
            continue;
        if (bindingKind(*binding, step) != input.kind)
            failStep(step, ": an input has the wrong type.");
        // The input's own bounds and text limits, as the provider would apply them.
        if (binding->isLiteral())
            PluginValueSchema{{input}}.validate({{input.name, *binding->value}});
    }
}

void WorkflowDocument::validateEvent(const WorkflowNode& step,
                                     const std::optional<QList<PluginCatalogEntry>>& catalog) const {
    const WorkflowNode::Configuration& data = step.data;
    if (!data.address || !data.channel || data.address->name != data.channel->id ||
        data.channel->kind != PluginChannel::Kind::event || !data.arguments.isEmpty())
        fail("Choose a live event channel.");
    data.address->validate();
    data.channel->validate();
    if (!catalogHolds(catalog, PluginCatalogEntry{*data.address, std::nullopt, data.channel}))
        fail("The event module is missing or its definition changed.");
}

PluginParameter::Kind WorkflowDocument::bindingKind(const WorkflowBinding& binding,
                                                    const WorkflowNode& step) const {
    const char* unavailable = "An input references an unavailable earlier output.";
    if (binding.value) {
        if (binding.source || binding.field)
            fail(unavailable);
        const PluginValue& value = *binding.value;
        if (value.kind() == PluginValue::Kind::string &&
            TextMetrics::utf8Size(value.text()) > PluginValueSchema::maximumTextBytes)
            fail("Text input is too long.");
        if (value.kind() == PluginValue::Kind::number && !std::isfinite(value.numberValue()))
            fail("A number is invalid.");
        return parameterKind(value.kind());
    }
    if (!binding.source || !binding.field || !ancestors(step.id).contains(*binding.source))
        fail(unavailable);
    const WorkflowNode* source = node(*binding.source);
    // A manual start, a condition or a review produces nothing to refer to.
    const PluginValueSchema* outputs = source->data.action    ? &source->data.action->output
                                       : source->data.channel ? &source->data.channel->schema
                                                              : nullptr;
    if (!outputs)
        fail(unavailable);
    for (const PluginParameter& field : outputs->fields) {
        if (field.name == *binding.field)
            return field.kind;
    }
    fail(unavailable);
}

const WorkflowNode* WorkflowDocument::node(const QString& id) const {
    const auto found =
        std::find_if(nodes.begin(), nodes.end(), [&](const WorkflowNode& step) { return step.id == id; });
    return found == nodes.end() ? nullptr : &*found;
}

QStringList WorkflowDocument::ancestors(const QString& id) const {
    QStringList chain;
    QString current = id;
    // Bounded by the node count, so that a document that skipped the graph tests cannot spin.
    while (chain.size() < nodes.size()) {
        const auto incoming = std::find_if(edges.begin(), edges.end(),
                                           [&](const WorkflowEdge& edge) { return edge.target == current; });
        if (incoming == edges.end())
            break;
        current = incoming->source;
        chain.append(current);
    }
    return chain;
}

} // namespace vell
