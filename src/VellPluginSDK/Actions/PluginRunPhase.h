#pragma once

#include <QString>

#include <optional>

namespace vell {

// Where a run stands. succeeded, failed, cancelled and interrupted are terminal: no run
// leaves them.
enum class PluginRunPhase { waitingReview, running, cancelling, succeeded, failed, cancelled, interrupted };

bool isTerminal(PluginRunPhase phase);
QString pluginRunPhaseName(PluginRunPhase phase);
std::optional<PluginRunPhase> pluginRunPhaseFromName(QStringView name);

} // namespace vell
