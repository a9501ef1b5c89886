#include "tools/vellctl/CommandGroup.h"
#include "tools/vellctl/ModuleCommands.h"
#include "tools/vellctl/PluginCommands.h"
#include "tools/vellctl/RouterCommands.h"
#include "tools/vellctl/WorkflowCommands.h"

#include <QCoreApplication>
#include <QTextStream>

#include <array>

using namespace vell;

namespace {

// One row per command group; a new group is one more row.
const std::array groups{
    CommandGroup{"module", &ModuleCommands::run, &ModuleCommands::usage},
    CommandGroup{"plugin", &PluginCommands::run, &PluginCommands::usage},
    CommandGroup{"router", &RouterCommands::run, &RouterCommands::usage},
    CommandGroup{"workflow", &WorkflowCommands::run, &WorkflowCommands::usage},
};

void printUsage(QTextStream& stream, const QStringList& lines) {
    for (const QString& line : lines)
        stream << "usage: vellctl " << line << '\n';
}

QStringList allUsage() {
    QStringList lines;
    for (const CommandGroup& group : groups)
        lines += group.usage();
    return lines;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    QTextStream out(stdout);
    QTextStream err(stderr);

    if (arguments == QStringList{QStringLiteral("--help")} ||
        arguments == QStringList{QStringLiteral("help")}) {
        printUsage(out, allUsage());
        return int(CommandStatus::ok);
    }
    for (const CommandGroup& group : groups) {
        if (arguments.isEmpty() || arguments.first() != QLatin1String(group.name))
            continue;
        const CommandStatus status = group.run(arguments.mid(1));
        if (status == CommandStatus::usage)
            printUsage(err, group.usage());
        return int(status);
    }
    printUsage(err, allUsage());
    return int(CommandStatus::usage);
}
