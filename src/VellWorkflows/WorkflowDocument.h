#pragma once

#include "VellPluginSDK/Actions/PluginCatalogEntry.h"
#include "VellPluginSDK/Actions/PluginParameter.h"
#include "VellPluginSDK/Actions/PluginValue.h"
#include "VellPluginSDK/Json/JsonNode.h"
#include "VellWorkflows/WorkflowEdge.h"
#include "VellWorkflows/WorkflowNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

namespace vell {

// A saved workflow: one start, then steps one after the other, splitting in two at most at a
// condition. No merges, no loops and no parallel branches, so that a run is a single path and
// every input has exactly one chain of earlier steps it can draw on.
struct WorkflowDocument {
    static constexpr qint64 currentSchemaVersion = 1;
    static constexpr int maximumTitleCharacters = 80;
    static constexpr int maximumNodes = 64;
    static constexpr int maximumEdges = 96;

    qint64 schemaVersion = currentSchemaVersion;
    QUuid id;
    QString title;
    QList<WorkflowNode> nodes;
    QList<WorkflowEdge> edges;

    // A new workflow with only its manual start.
    static WorkflowDocument blank();

    static WorkflowDocument fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    // The whole document: structure, graph, then every step by its kind. With a catalogue, each
    // action and event must still be offered exactly as the step copied it; without one, only
    // those presence tests are skipped.
    void validate(const std::optional<QList<PluginCatalogEntry>>& catalog = std::nullopt) const;

    // The target of the first edge, in array order, that leaves nodeID by branch.
    std::optional<QString> next(const QString& nodeID, QStringView branch) const;

    // The document as a POSIX shell script that runs its Shortcut steps in order with
    // ostavell-shortcuts, for documents of a manual start and literal Shortcut actions only.
    // Throws the validation's failure or the export's own sentence.
    QString shellScript() const;

    // A condition's verdict for the left value, the comparison's name and the right value.
    static bool matches(const PluginValue& value, const QString& comparison, const PluginValue& expected);

    friend bool operator==(const WorkflowDocument&, const WorkflowDocument&) = default;

private:
    void validateStructure() const;
    void validateGraph() const;
    void validateReachability() const;
    void validateCondition(const WorkflowNode& node) const;
    void validateAction(const WorkflowNode& node,
                        const std::optional<QList<PluginCatalogEntry>>& catalog) const;
    void validateEvent(const WorkflowNode& node,
                       const std::optional<QList<PluginCatalogEntry>>& catalog) const;
    // The kind a binding yields when used by node, or the failure that makes it unusable.
    PluginParameter::Kind bindingKind(const WorkflowBinding& binding, const WorkflowNode& node) const;
    const WorkflowNode* node(const QString& id) const;
    // The nodes on the chain from node's parent up to the start.
    QStringList ancestors(const QString& id) const;
};

} // namespace vell
