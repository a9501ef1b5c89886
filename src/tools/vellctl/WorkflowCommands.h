#pragma once

#include "tools/vellctl/CommandGroup.h"

#include <QStringList>

namespace vell {

// `vellctl workflow ...`: checking a workflow document as the engine would before a run. Each
// subcommand is one row of the table in WorkflowCommands.cpp.
class WorkflowCommands final {
public:
    static CommandStatus run(const QStringList& arguments);
    static QStringList usage();
};

} // namespace vell
