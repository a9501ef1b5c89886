#include "VellPluginSDK/Actions/PluginRunPhase.h"

#include <array>

namespace vell {

namespace {

constexpr std::array<QStringView, 7> phaseNames{u"waitingReview", u"running",   u"cancelling", u"succeeded",
                                                u"failed",        u"cancelled", u"interrupted"};

} // namespace

bool isTerminal(PluginRunPhase phase) {
    switch (phase) {
    case PluginRunPhase::waitingReview:
    case PluginRunPhase::running:
    case PluginRunPhase::cancelling:
        return false;
    case PluginRunPhase::succeeded:
    case PluginRunPhase::failed:
    case PluginRunPhase::cancelled:
    case PluginRunPhase::interrupted:
        break;
    }
    return true;
}

QString pluginRunPhaseName(PluginRunPhase phase) {
    return phaseNames[static_cast<std::size_t>(phase)].toString();
}

std::optional<PluginRunPhase> pluginRunPhaseFromName(QStringView name) {
    for (std::size_t i = 0; i < phaseNames.size(); ++i) {
        if (phaseNames[i] == name)
            return static_cast<PluginRunPhase>(i);
    }
    return std::nullopt;
}

} // namespace vell
