#pragma once

#include "tools/vellctl/CommandGroup.h"

#include <QStringList>

namespace vell::PluginHostCommand {

// `vellctl plugin host BUNDLE [--send FILE]`: runs a plugin in a real host session without the
// app, and prints every message in both directions and the session's end as JSON lines.
CommandStatus run(const QStringList& arguments);

} // namespace vell::PluginHostCommand
