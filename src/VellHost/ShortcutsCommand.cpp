#include "VellHost/ShortcutsCommand.h"

#include <QCoreApplication>
#include <QDir>
#include <QProcessEnvironment>

namespace vell {

QString ShortcutsCommand::defaultProgram() {
    return QDir::cleanPath(QCoreApplication::applicationDirPath() +
                           QStringLiteral("/../bin/ostavell-shortcuts"));
}

ChildProcessOptions ShortcutsCommand::listOptions(const QString& program) {
    ChildProcessOptions options;
    options.program = program;
    options.arguments = {QStringLiteral("list")};
    // The command finds the shortcuts through the user's XDG folders, as the user's shell would.
    options.environment = QProcessEnvironment::systemEnvironment().toStringList();
    options.keepStandardError = true;
    return options;
}

ChildProcessOptions ShortcutsCommand::runOptions(const QString& program, const QString& name) {
    ChildProcessOptions options;
    options.program = program;
    options.arguments = {QStringLiteral("run"), name};
    options.environment = QProcessEnvironment::systemEnvironment().toStringList();
    options.pipes = false;
    options.ownProcessGroup = true;
    return options;
}

} // namespace vell
