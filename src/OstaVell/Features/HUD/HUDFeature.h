#pragma once

namespace vell {

class NativePluginSessions;
class PluginVolumeRegistry;
class ShellContributions;

// The volume and brightness HUD as the shell sees it: its services started in their order,
// the plugins' volume controls joined to them, and the views it offers.
class HUDFeature final {
public:
    HUDFeature() = delete;

    // The output's volume, the routes to plugin controls, the brightness and, last, the keys
    // that use them all.
    static void start(NativePluginSessions& sessions);
    // The two HUD wings ("hud.left", "hud.right") and the settings pane.
    static void offerViews(ShellContributions& shell);

    // What plugins offer and answer reaches the registry; its commands go to their sessions,
    // and a session's end ends its controls and waits.
    static void connectPlugins(PluginVolumeRegistry& registry, NativePluginSessions& sessions);
};

} // namespace vell
