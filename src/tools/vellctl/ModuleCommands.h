#pragma once

#include "tools/vellctl/CommandGroup.h"

#include <QStringList>

namespace vell {

// `vellctl module ...`: working with ".ostavellmodule" packages. Each subcommand is one row of
// the table in ModuleCommands.cpp.
class ModuleCommands final {
public:
    static CommandStatus run(const QStringList& arguments);
    static QStringList usage();
};

} // namespace vell
