#pragma once

#include <QStringList>

#include <span>

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

// The second word: `vellctl GROUP WORD ...`, and what its usage line shows after it.
struct Subcommand {
    const char* name;
    const char* arguments;
    CommandStatus (*run)(const QStringList& arguments);
};

// Runs the subcommand named by the first argument, or answers usage when there is none.
inline CommandStatus runSubcommand(std::span<const Subcommand> subcommands, const QStringList& arguments) {
    for (const Subcommand& subcommand : subcommands) {
        if (!arguments.isEmpty() && arguments.first() == QLatin1String(subcommand.name))
            return subcommand.run(arguments.mid(1));
    }
    return CommandStatus::usage;
}

// "GROUP NAME ARGUMENTS", one line per subcommand.
inline QStringList subcommandUsage(const char* group, std::span<const Subcommand> subcommands) {
    QStringList lines;
    for (const Subcommand& subcommand : subcommands)
        lines.append(QStringLiteral("%1 %2 %3")
                         .arg(QLatin1String(group), QLatin1String(subcommand.name),
                              QLatin1String(subcommand.arguments)));
    return lines;
}

} // namespace vell
