#pragma once

#include "VellPluginSDK/Actions/PluginActionAddress.h"
#include "VellPluginSDK/Actions/PluginChannel.h"
#include "VellPluginSDK/Actions/PluginRegisteredAction.h"
#include "VellPluginSDK/Actions/PluginValue.h"
#include "VellPluginSDK/Json/JsonNode.h"
#include "VellWorkflows/WorkflowBinding.h"

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QString>

#include <optional>

namespace vell {

// One step of a workflow as the editor draws it.
struct WorkflowNode {
    // Editor canvas units.
    struct Position {
        double x = 0;
        double y = 0;

        static Position fromJson(const JsonNode& json);
        QByteArray encoded() const;
        QJsonObject toJson() const;

        friend bool operator==(const Position&, const Position&) = default;
    };

    // What the step does. Each kind uses only some of the fields; validation refuses the others,
    // so that no step carries an action or inputs it does not show.
    struct Configuration {
        // manual and event are the starts.
        enum class Kind { manual, event, condition, action, review };

        static constexpr int maximumTitleCharacters = 80;

        Kind kind = Kind::manual;
        QString title;
        // action, event: the peer and the action or channel name.
        std::optional<PluginActionAddress> address;
        // action: the whole definition it was built against, so that any later change of the
        // provider shows as inequality.
        std::optional<PluginRegisteredAction> action;
        // event: the same for the channel.
        std::optional<PluginChannel> channel;
        // action: input name to binding; empty for every other kind.
        QMap<QString, WorkflowBinding> arguments;
        // condition: the left side, the comparison's name and the literal right side.
        std::optional<WorkflowBinding> test;
        std::optional<QString> comparison;
        std::optional<PluginValue> expected;

        bool isStart() const { return kind == Kind::manual || kind == Kind::event; }

        static Configuration fromJson(const JsonNode& json);
        // Declared field order, absent optionals left out; arguments always written.
        QByteArray encoded() const;
        QJsonObject toJson() const;

        friend bool operator==(const Configuration&, const Configuration&) = default;
    };

    static constexpr double maximumCoordinate = 100000;

    QString id;
    Position position;
    Configuration data;

    static WorkflowNode fromJson(const JsonNode& json);
    // Declared field order.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    friend bool operator==(const WorkflowNode&, const WorkflowNode&) = default;
};

} // namespace vell
