#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <optional>

namespace vell {

// One connection of the graph, from an output of its source to its target.
struct WorkflowEdge {
    static constexpr QStringView nextBranch = u"next";
    static constexpr QStringView yesBranch = u"yes";
    static constexpr QStringView noBranch = u"no";

    QString id;
    // Node ids.
    QString source;
    QString target;
    // The output it leaves from; absent is "next", the one output of every step but a condition.
    std::optional<QString> sourceHandle;

    // A new connection under a fresh UUID text.
    static WorkflowEdge connecting(const QString& source, const QString& target, const QString& branch);

    QString branch() const { return sourceHandle.value_or(nextBranch.toString()); }

    static WorkflowEdge fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    friend bool operator==(const WorkflowEdge&, const WorkflowEdge&) = default;
};

} // namespace vell
