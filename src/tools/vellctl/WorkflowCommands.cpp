#include "tools/vellctl/WorkflowCommands.h"

#include "VellPluginSDK/Json/JsonFile.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellWorkflows/WorkflowDocument.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTextStream>

#include <array>

namespace vell {

namespace {

// No document can be larger than the library file that holds it.
constexpr qint64 maximumFileBytes = 2097152;

CommandStatus refused(const QString& message) {
    QTextStream(stdout) << message << '\n';
    return CommandStatus::failed;
}

// The bytes of a file. One that can't be read is reported on standard error, one past the
// library file's limit with that file's sentence on standard output.
std::optional<QByteArray> read(const QString& path) {
    const FileContents file = JsonFile::readBytes(path, maximumFileBytes);
    if (file.read())
        return file.bytes;
    if (file.status == FileContents::Status::TooLarge)
        QTextStream(stdout) << "Workflow storage is too large.\n";
    else
        QTextStream(stderr) << "vellctl: " << path << ": " << file.error << '\n';
    return std::nullopt;
}

// `workflow validate FILE [--catalog CATALOG]`: the whole validation a run starts with; without
// a catalogue, the tests of what is offered are skipped.
CommandStatus validate(const QStringList& arguments) {
    if (arguments.size() != 1 && !(arguments.size() == 3 && arguments.at(1) == u"--catalog"))
        return CommandStatus::usage;
    const std::optional<QByteArray> document = read(arguments.first());
    if (!document)
        return CommandStatus::failed;
    std::optional<QList<PluginCatalogEntry>> catalog;
    if (arguments.size() == 3) {
        const std::optional<QByteArray> entries = read(arguments.at(2));
        if (!entries)
            return CommandStatus::failed;
        QJsonParseError error;
        const QJsonDocument json = QJsonDocument::fromJson(*entries, &error);
        if (error.error != QJsonParseError::NoError)
            return refused(error.errorString());
        if (!json.isArray())
            return refused(QStringLiteral("A catalogue is a JSON array of entries."));
        catalog.emplace();
        try {
            for (const QJsonValue& entry : json.array())
                catalog->append(PluginCatalogEntry::fromJson(entry));
        } catch (const ModuleProblem& failure) {
            return refused(failure.message());
        }
    }
    try {
        WorkflowDocument::fromJson(JsonReader::parse(*document)).validate(catalog);
    } catch (const ModuleProblem& failure) {
        return refused(failure.message());
    }
    QTextStream(stdout) << "OK\n";
    return CommandStatus::ok;
}

// `workflow export FILE`: the document as a shell script of its Shortcut steps, printed as it is
// so that it can be redirected into a file.
CommandStatus exportScript(const QStringList& arguments) {
    if (arguments.size() != 1)
        return CommandStatus::usage;
    const std::optional<QByteArray> document = read(arguments.first());
    if (!document)
        return CommandStatus::failed;
    QString script;
    try {
        script = WorkflowDocument::fromJson(JsonReader::parse(*document)).shellScript();
    } catch (const ModuleProblem& failure) {
        return refused(failure.message());
    }
    QTextStream(stdout) << script;
    return CommandStatus::ok;
}

const std::array subcommands{
    Subcommand{"validate", "FILE [--catalog CATALOG]", &validate},
    Subcommand{"export", "FILE", &exportScript},
};

} // namespace

CommandStatus WorkflowCommands::run(const QStringList& arguments) {
    return runSubcommand(subcommands, arguments);
}

QStringList WorkflowCommands::usage() {
    return subcommandUsage("workflow", subcommands);
}

} // namespace vell
