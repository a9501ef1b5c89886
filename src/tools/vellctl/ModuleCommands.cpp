#include "tools/vellctl/ModuleCommands.h"

#include "VellPluginSDK/ModulePackage.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QFile>
#include <QTextStream>

#include <array>

namespace vell {

namespace {

// `module validate FILE`: "OK" or the first failure, word for word as the app shows it, on
// standard output; a file that can't be read is reported on standard error.
CommandStatus validate(const QStringList& arguments) {
    if (arguments.size() != 1)
        return CommandStatus::usage;
    QFile file(arguments.first());
    QByteArray data;
    // One byte past the limit is enough for decode to refuse the file without reading it all.
    if (file.open(QIODevice::ReadOnly))
        data = file.read(ModulePackage::maximumBytes + 1);
    if (file.error() != QFileDevice::NoError) {
        QTextStream(stderr) << "vellctl: " << file.fileName() << ": " << file.errorString() << '\n';
        return CommandStatus::failed;
    }
    try {
        ModulePackage::decode(data);
    } catch (const ModuleProblem& problem) {
        QTextStream(stdout) << problem.message() << '\n';
        return CommandStatus::failed;
    }
    QTextStream(stdout) << "OK\n";
    return CommandStatus::ok;
}

struct Subcommand {
    const char* name;
    const char* arguments; // as shown in the usage line
    CommandStatus (*run)(const QStringList& arguments);
};

const std::array subcommands{
    Subcommand{"validate", "FILE", &validate},
};

} // namespace

CommandStatus ModuleCommands::run(const QStringList& arguments) {
    for (const Subcommand& subcommand : subcommands) {
        if (!arguments.isEmpty() && arguments.first() == QLatin1String(subcommand.name))
            return subcommand.run(arguments.mid(1));
    }
    return CommandStatus::usage;
}

QStringList ModuleCommands::usage() {
    QStringList lines;
    for (const Subcommand& subcommand : subcommands)
        lines.append(QStringLiteral("module %1 %2")
                         .arg(QLatin1String(subcommand.name), QLatin1String(subcommand.arguments)));
    return lines;
}

} // namespace vell
