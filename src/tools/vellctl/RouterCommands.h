#pragma once

#include "tools/vellctl/CommandGroup.h"

#include <QStringList>

namespace vell {

// `vellctl router ...`: driving an action router by hand. Each subcommand is one row of the
// table in RouterCommands.cpp.
class RouterCommands final {
public:
    static CommandStatus run(const QStringList& arguments);
    static QStringList usage();
};

} // namespace vell
