#pragma once

#include "VellPluginSDK/Actions/PluginActionAddress.h"
#include "VellPluginSDK/Actions/PluginRegisteredAction.h"
#include "VellPluginSDK/Actions/PluginRunUpdate.h"
#include "VellPluginSDK/Actions/PluginValue.h"

#include <QString>
#include <QUuid>

#include <optional>

namespace vell {

// One invocation of one action by one caller. Held in memory only: no run outlives the
// process, and none is ever resumed.
struct ActionRun {
    // The requestID of the invoke.
    QUuid id;
    QString caller;
    QUuid callerSession;
    QUuid providerSession;
    // address.plugin is the provider.
    PluginActionAddress address;
    // The definition as it stood at invoke; this copy is what is judged, whatever the
    // provider registers later.
    PluginRegisteredAction definition;
    PluginValueMap arguments;
    // Instants are seconds since 2001-01-01 00:00:00 UTC.
    double created = 0;
    double deadline = 0;
    std::optional<double> completionDeadline;
    // The current state; its phase is the run's phase.
    PluginRunUpdate update;
    // Whether the provider was handed the run. Until then it knows nothing of it: a
    // cancellation ends the run at once and tells it nothing.
    bool executeSent = false;

    PluginRunPhase phase() const { return update.phase; }
    bool isLive() const { return !isTerminal(update.phase); }

    friend bool operator==(const ActionRun&, const ActionRun&) = default;
};

} // namespace vell
