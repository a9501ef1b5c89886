#include "tools/vellctl/ModuleCommands.h"

#include "VellHost/ModuleExecution.h"
#include "VellPluginSDK/Json/JsonFile.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Modules/ModulePackage.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QTextStream>

#include <algorithm>
#include <array>

namespace vell {

namespace {

// `module validate FILE`: "OK" or the first failure, word for word as the app shows it, on
// standard output; a file that can't be read is reported on standard error.
CommandStatus validate(const QStringList& arguments) {
    if (arguments.size() != 1)
        return CommandStatus::usage;
    // Past the limit, the first bytes are enough for decode to refuse the file.
    const FileContents file = JsonFile::readBytes(arguments.first(), ModulePackage::maximumBytes);
    if (file.missing() || file.status == FileContents::Status::Unusable) {
        QTextStream(stderr) << "vellctl: " << arguments.first() << ": " << file.error << '\n';
        return CommandStatus::failed;
    }
    try {
        ModulePackage::decode(file.bytes);
    } catch (const ModuleProblem& problem) {
        QTextStream(stdout) << problem.message() << '\n';
        return CommandStatus::failed;
    }
    QTextStream(stdout) << "OK\n";
    return CommandStatus::ok;
}

// The JSON text of an option, as the value its request key holds.
QJsonValue jsonOption(const QString& option, const QString& text) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        throw ModuleProblem(QStringLiteral("%1 needs a JSON object of text values.").arg(option));
    return document.object();
}

// `module run FILE [--state JSON] [--configuration JSON] [--action ID] [--event-feed ID
// --event-json TEXT]`: one run through the same execution and runner as the app. The new
// state as compact JSON on standard output, or the app's message for the failure.
CommandStatus run(const QStringList& arguments) {
    if (arguments.isEmpty() || arguments.size() % 2 == 0)
        return CommandStatus::usage;
    QMap<QString, QString> options;
    for (qsizetype i = 1; i + 1 < arguments.size(); i += 2) {
        static const QStringList known{QStringLiteral("--state"), QStringLiteral("--configuration"),
                                       QStringLiteral("--action"), QStringLiteral("--event-feed"),
                                       QStringLiteral("--event-json")};
        if (!known.contains(arguments.at(i)) || options.contains(arguments.at(i)))
            return CommandStatus::usage;
        options.insert(arguments.at(i), arguments.at(i + 1));
    }
    if (options.contains(QStringLiteral("--event-feed")) != options.contains(QStringLiteral("--event-json")))
        return CommandStatus::usage;

    ModuleRequest request;
    try {
        const ModulePackage package = ModulePackage::read(arguments.first());
        QJsonObject encoded{{QStringLiteral("package"), package.toJson()}};
        encoded.insert(QStringLiteral("state"),
                       options.contains(QStringLiteral("--state"))
                           ? jsonOption(QStringLiteral("--state"), options.value(QStringLiteral("--state")))
                           : ModuleRequest{package, package.initialState, {}, {}, {}}.toJson().value(
                                 QStringLiteral("state")));
        encoded.insert(QStringLiteral("configuration"),
                       options.contains(QStringLiteral("--configuration"))
                           ? jsonOption(QStringLiteral("--configuration"),
                                        options.value(QStringLiteral("--configuration")))
                           : ModuleRequest{package, {}, package.defaultSettings(), {}, {}}.toJson().value(
                                 QStringLiteral("configuration")));
        if (options.contains(QStringLiteral("--action")))
            encoded.insert(QStringLiteral("action"), options.value(QStringLiteral("--action")));
        if (options.contains(QStringLiteral("--event-feed")))
            encoded.insert(QStringLiteral("event"),
                           ModuleFeedEvent{options.value(QStringLiteral("--event-feed")),
                                           options.value(QStringLiteral("--event-json"))}
                               .toJson());
        // The request's own decoder checks the option values; the app would never send a
        // state or configuration that fails the state test either.
        request = ModuleRequest::fromJson(encoded);
        ModulePackage::validateState(request.state);
        ModulePackage::validateState(request.configuration);
        if (request.action &&
            std::none_of(package.actions.cbegin(), package.actions.cend(),
                         [&](const ModuleAction& declared) { return declared.id == *request.action; }))
            throw ModuleProblem(QStringLiteral("This action is not available."));
    } catch (const ModuleProblem& problem) {
        QTextStream(stdout) << problem.message() << '\n';
        return CommandStatus::failed;
    }

    const auto execution = std::make_shared<ModuleExecution>(ModuleExecution::defaultRunnerPath());
    const ModuleRunResult result = execution->runBlocking(request);
    switch (result.outcome) {
    case ModuleRunResult::Outcome::Succeeded: {
        QJsonObject state;
        for (auto it = result.state.cbegin(); it != result.state.cend(); ++it)
            state.insert(it.key(), it.value());
        QTextStream(stdout) << QJsonDocument(state).toJson(QJsonDocument::Compact) << '\n';
        return CommandStatus::ok;
    }
    case ModuleRunResult::Outcome::Failed:
        QTextStream(stdout) << result.message << '\n';
        return CommandStatus::failed;
    case ModuleRunResult::Outcome::Cancelled:
        QTextStream(stdout) << "Module stopped.\n";
        return CommandStatus::failed;
    }
    return CommandStatus::failed;
}

const std::array subcommands{
    Subcommand{"validate", "FILE", &validate},
    Subcommand{"run",
               "FILE [--state JSON] [--configuration JSON] [--action ID] [--event-feed ID --event-json TEXT]",
               &run},
};

} // namespace

CommandStatus ModuleCommands::run(const QStringList& arguments) {
    return runSubcommand(subcommands, arguments);
}

QStringList ModuleCommands::usage() {
    return subcommandUsage("module", subcommands);
}

} // namespace vell
