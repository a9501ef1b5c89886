#pragma once

#include <QStringList>

namespace vell {

// How a command ends, as the shell sees it: 0 done, 1 the input was refused or unreadable,
// 2 the command line itself was wrong.
enum class CommandStatus { ok = 0, failed = 1, usage = 2 };

// The first word of `vellctl WORD ...`. run gets the words after it; when it answers
// CommandStatus::usage, main prints the group's usage lines on standard error.
struct CommandGroup {
    const char* name;
    CommandStatus (*run)(const QStringList& arguments);
    QStringList (*usage)();
};

} // namespace vell
