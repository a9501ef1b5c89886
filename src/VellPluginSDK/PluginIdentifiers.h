#pragma once

#include <QStringView>

namespace vell::PluginIdentifiers {

// Parameter names, action and channel identifiers: "^[A-Za-z][A-Za-z0-9_]{0,63}$".
bool isName(QStringView text);

// Peer identifiers, the reverse-domain form "^[a-z][a-z0-9]*(\.[a-z][a-z0-9-]*)+$"; the
// length limit is the caller's, since it differs between records.
bool isPeer(QStringView text);

} // namespace vell::PluginIdentifiers
