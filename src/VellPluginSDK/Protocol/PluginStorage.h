#pragma once

#include <QString>

// A plugin's private folder for its own data. It lies outside the plugin's installed folder, so
// that the data survives an update, a restore and a removal of the plugin; the host never opens it.
namespace vell::PluginStorage {

inline constexpr int maximumIDCharacters = 100;

// Throws "Invalid plugin storage identity." unless id is a plugin id of at most
// maximumIDCharacters: the test every private place of a plugin (its folder, its keychain slot)
// passes before anything is touched.
void checkIdentity(const QString& id);

// "$XDG_DATA_HOME/OstaVellPlugins/<id>", created with its parents when missing, the folder
// itself readable by its owner alone. id is the plugin's manifest id; anything else, "../x"
// among others, fails with "Invalid plugin storage identity." before anything is touched.
// A folder that can't be created fails with the reason.
QString directory(const QString& id);

} // namespace vell::PluginStorage
