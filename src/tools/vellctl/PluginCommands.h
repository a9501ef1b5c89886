#pragma once

#include "tools/vellctl/CommandGroup.h"

#include <QStringList>

namespace vell {

// `vellctl plugin ...`: checking what a native plugin is and sends before the host ever sees it,
// and signing its bundle. Each subcommand is one row of the table in PluginCommands.cpp.
class PluginCommands final {
public:
    static CommandStatus run(const QStringList& arguments);
    static QStringList usage();
};

} // namespace vell
