#pragma once

#include "VellPluginSDK/Actions/PluginActionAddress.h"
#include "VellPluginSDK/Actions/PluginRunPhase.h"
#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QUuid>

namespace vell {

// What the history keeps of a run: its identity and outcome. Arguments, returned values,
// messages and progress are never stored.
struct ActionRunSummary {
    QUuid id;
    QString caller;
    PluginActionAddress address;
    // The title of the run's definition.
    QString title;
    // The last phase seen.
    PluginRunPhase phase = PluginRunPhase::running;
    // The run's creation, in seconds since 2001-01-01 00:00:00 UTC.
    double date = 0;

    static ActionRunSummary fromJson(const JsonNode& json);
    // Declared field order.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    friend bool operator==(const ActionRunSummary&, const ActionRunSummary&) = default;
};

} // namespace vell
