#pragma once

#include "VellPluginSDK/Modules/ModuleState.h"

#include <QString>

namespace vell {

// How one run of a module ended. A cancellation is its own kind: the store words it itself,
// and it is never a fault of the module.
struct ModuleRunResult final {
    enum class Outcome { Succeeded, Failed, Cancelled };

    Outcome outcome = Outcome::Cancelled;
    ModuleState state; // the new state, when Succeeded
    QString message;   // the sentence for the user, when Failed

    static ModuleRunResult succeeded(ModuleState state) { return {Outcome::Succeeded, std::move(state), {}}; }
    static ModuleRunResult failed(QString message) { return {Outcome::Failed, {}, std::move(message)}; }
    static ModuleRunResult cancelled() { return {Outcome::Cancelled, {}, {}}; }

    bool operator==(const ModuleRunResult&) const = default;
};

} // namespace vell
