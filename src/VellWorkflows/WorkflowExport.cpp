#include "VellPluginSDK/ModuleProblem.h"
#include "VellWorkflows/WorkflowDocument.h"

#include <QStringList>

// The export of a workflow as a shell script: only what a script can do without the app, a
// manual start and Shortcut steps with their names written out, in the order they run.

namespace vell {

namespace {
const QString kUtilities = QStringLiteral("local.ostavell.utilities");
const QString kShortcut = QStringLiteral("shortcut");
const QString kName = QStringLiteral("name");

bool isLiteralShortcut(const WorkflowNode::Configuration& data) {
    const auto name = data.arguments.constFind(kName);
    return data.address && data.address->plugin == kUtilities && data.address->name == kShortcut &&
           name != data.arguments.cend() && name->isLiteral();
}

// Single quotes keep every character as it is in the shell; a quote itself is closed, escaped
// and opened again.
QString quoted(const QString& text) {
    QString escaped = text;
    escaped.replace(u'\'', QStringLiteral("'\\''"));
    return u'\'' + escaped + u'\'';
}
} // namespace

QString WorkflowDocument::shellScript() const {
    validate();
    for (const WorkflowNode& node : nodes) {
        const auto kind = node.data.kind;
        if (kind == WorkflowNode::Configuration::Kind::manual)
            continue;
        if (kind == WorkflowNode::Configuration::Kind::action && isLiteralShortcut(node.data))
            continue;
        throw ModuleProblem(QStringLiteral(
            "Shell script export currently supports only manual starts and literal Shortcut actions. "
            "Conditions, events, AI, reviews and module actions cannot be omitted."));
    }
    QStringList lines{QStringLiteral("#!/bin/sh"),
                      QStringLiteral("# Exported by OstaVell. Review before running.")};
    const auto start = std::find_if(nodes.cbegin(), nodes.cend(), [](const WorkflowNode& node) {
        return node.data.kind == WorkflowNode::Configuration::Kind::manual;
    });
    std::optional<QString> current = start == nodes.cend() ? std::nullopt : std::optional(start->id);
    while (current) {
        const WorkflowNode* step = node(*current);
        const auto name = step->data.arguments.constFind(kName);
        if (name != step->data.arguments.cend() && name->isLiteral() &&
            name->value->kind() == PluginValue::Kind::string)
            lines.append(QStringLiteral("ostavell-shortcuts run ") + quoted(name->value->text()));
        current = next(*current, u"next");
    }
    return lines.join(u'\n') + u'\n';
}

} // namespace vell
