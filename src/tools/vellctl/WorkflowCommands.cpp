#include "tools/vellctl/WorkflowCommands.h"

#include "VellPluginSDK/Json/JsonFile.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/ReferenceTime.h"
#include "VellWorkflows/WorkflowDocument.h"
#include "VellWorkflows/WorkflowExecution.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTextStream>
#include <QUuid>

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

// The catalogue of `--catalog CATALOG` when the arguments name one; without it, an empty
// optional. False, with the reason printed, when the file can't be read or isn't a catalogue.
bool readCatalog(const QStringList& arguments, std::optional<QList<PluginCatalogEntry>>& catalog) {
    if (arguments.size() != 3)
        return true;
    const std::optional<QByteArray> entries = read(arguments.at(2));
    if (!entries)
        return false;
    QJsonParseError error;
    const QJsonDocument json = QJsonDocument::fromJson(*entries, &error);
    if (error.error != QJsonParseError::NoError) {
        refused(error.errorString());
        return false;
    }
    if (!json.isArray()) {
        refused(QStringLiteral("A catalogue is a JSON array of entries."));
        return false;
    }
    catalog.emplace();
    try {
        for (const QJsonValue& entry : json.array())
            catalog->append(PluginCatalogEntry::fromJson(entry));
    } catch (const ModuleProblem& failure) {
        refused(failure.message());
        return false;
    }
    return true;
}

bool validArguments(const QStringList& arguments) {
    return arguments.size() == 1 || (arguments.size() == 3 && arguments.at(1) == u"--catalog");
}

// `workflow validate FILE [--catalog CATALOG]`: the whole validation a run starts with; without
// a catalogue, the tests of what is offered are skipped.
CommandStatus validate(const QStringList& arguments) {
    if (!validArguments(arguments))
        return CommandStatus::usage;
    const std::optional<QByteArray> document = read(arguments.first());
    if (!document)
        return CommandStatus::failed;
    std::optional<QList<PluginCatalogEntry>> catalog;
    if (!readCatalog(arguments, catalog))
        return CommandStatus::failed;
    try {
        WorkflowDocument::fromJson(JsonReader::parse(*document)).validate(catalog);
    } catch (const ModuleProblem& failure) {
        return refused(failure.message());
    }
    QTextStream(stdout) << "OK\n";
    return CommandStatus::ok;
}

// `workflow simulate FILE [--catalog CATALOG]`: the run a simulation in the app makes, with no
// event and no sample outputs, printed as its final timeline in compact JSON on one line. Only a
// run that ends "simulated" succeeds; any other still prints its timeline, which says why.
CommandStatus simulate(const QStringList& arguments) {
    if (!validArguments(arguments))
        return CommandStatus::usage;
    const std::optional<QByteArray> bytes = read(arguments.first());
    if (!bytes)
        return CommandStatus::failed;
    WorkflowExecution::Request request;
    if (!readCatalog(arguments, request.catalog))
        return CommandStatus::failed;
    try {
        request.document = WorkflowDocument::fromJson(JsonReader::parse(*bytes));
    } catch (const ModuleProblem& failure) {
        return refused(failure.message());
    }
    request.simulate = true;
    // A simulation acts through neither callback; one that did would be a fault of the engine.
    request.execute = [](const WorkflowNode& node, const PluginValueMap&, WorkflowExecution::ActionReply) {
        qFatal("vellctl: the simulation ran the action %s", qPrintable(node.id));
    };
    request.review = [](const WorkflowNode& node, WorkflowExecution::ReviewReply) {
        qFatal("vellctl: the simulation waited for the review %s", qPrintable(node.id));
    };
    const std::shared_ptr<WorkflowExecution> execution =
        WorkflowExecution::create(QUuid::createUuid(), request.document, &ReferenceTime::now);
    // Nothing in a simulation waits, so the run has ended when run returns: no event loop.
    bool ended = false;
    execution->run(std::move(request), [&ended](const std::exception_ptr&) { ended = true; });
    if (!ended)
        qFatal("vellctl: the simulation did not end");
    const WorkflowTimeline& timeline = execution->timeline();
    QTextStream(stdout) << timeline.encoded() << '\n';
    return timeline.phase == WorkflowTimeline::simulated ? CommandStatus::ok : CommandStatus::failed;
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
    Subcommand{"simulate", "FILE [--catalog CATALOG]", &simulate},
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
