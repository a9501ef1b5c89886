#pragma once

#include "VellHost/ChildProcess.h"

#include <QString>

namespace vell {

// The command that lists and runs the user's shortcuts, as everything in the app reaches it: the
// widget that lists them and the workflow step that runs one. It is installed beside the app,
// and a test beside bin/ finds it the same way.
class ShortcutsCommand final {
public:
    ShortcutsCommand() = delete;

    static QString defaultProgram();

    // `list`: its answer comes on standard output, its complaints on standard error.
    static ChildProcessOptions listOptions(const QString& program);
    // `run NAME`: only the exit status tells; the shortcut's own output goes nowhere. The
    // shortcut leads a process group of its own, so that stopping it stops what it started.
    static ChildProcessOptions runOptions(const QString& program, const QString& name);
};

} // namespace vell
