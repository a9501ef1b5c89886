#include "tools/vellctl/PluginCommands.h"

#include "VellHost/NativePluginBundle.h"
#include "VellPluginSDK/Json/JsonFile.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Presentation/PluginSnapshot.h"
#include "VellPluginSDK/Protocol/PluginLines.h"
#include "VellPluginSDK/Protocol/PluginManifest.h"
#include "tools/vellctl/PluginHostCommand.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTextStream>

#include <array>

namespace vell {

namespace {

// A snapshot file can be no larger than the line that would carry it.
constexpr qint64 maximumSnapshotFileBytes = PluginMessage::maximumEncodedBytes;

CommandStatus refused(const QString& message) {
    QTextStream(stdout) << message << '\n';
    return CommandStatus::failed;
}

// `plugin manifest FILE`: a bundle's VellPlugin.json as installation reads it.
CommandStatus manifest(const QStringList& arguments) {
    if (arguments.size() != 1)
        return CommandStatus::usage;
    try {
        PluginManifest::read(arguments.first());
    } catch (const ModuleProblem& problem) {
        return refused(problem.message());
    }
    QTextStream(stdout) << "OK\n";
    return CommandStatus::ok;
}

// `plugin snapshot FILE`: one snapshot as the host judges it before showing anything.
CommandStatus snapshot(const QStringList& arguments) {
    if (arguments.size() != 1)
        return CommandStatus::usage;
    const FileContents file = JsonFile::readBytes(arguments.first(), maximumSnapshotFileBytes);
    if (file.missing() || file.status == FileContents::Status::Unusable)
        return refused(file.error);
    if (file.status == FileContents::Status::TooLarge)
        return refused(QStringLiteral("Plugin message exceeds its limit."));
    try {
        PluginSnapshot::fromJson(JsonReader::parse(file.bytes)).validate();
    } catch (const ModuleProblem& problem) {
        return refused(problem.message());
    }
    QTextStream(stdout) << "OK\n";
    return CommandStatus::ok;
}

// `plugin lines [--chunk N] [FILE]`: a plugin's output framed exactly as the host frames it,
// each message written back in its canonical form.
CommandStatus lines(const QStringList& arguments) {
    QStringList rest = arguments;
    qsizetype chunkSize = 0;
    if (rest.size() >= 2 && rest.first() == u"--chunk") {
        bool valid = false;
        chunkSize = rest.at(1).toLongLong(&valid);
        if (!valid || chunkSize <= 0)
            return CommandStatus::usage;
        rest = rest.mid(2);
    }
    if (rest.size() > 1 || (rest.size() == 1 && rest.first().startsWith(u"--")))
        return CommandStatus::usage;

    QFile input;
    const bool opened = rest.isEmpty() ? input.open(stdin, QIODevice::ReadOnly)
                                       : (input.setFileName(rest.first()), input.open(QIODevice::ReadOnly));
    if (!opened) {
        QTextStream(stderr) << "vellctl: " << rest.value(0, QStringLiteral("standard input")) << ": "
                            << input.errorString() << '\n';
        return CommandStatus::failed;
    }
    const QByteArray bytes = input.readAll();
    if (chunkSize == 0)
        chunkSize = qMax<qsizetype>(bytes.size(), 1);

    QTextStream out(stdout);
    PluginLines framer;
    try {
        for (qsizetype offset = 0; offset < bytes.size(); offset += chunkSize) {
            for (const PluginMessage& message :
                 framer.append(QByteArrayView(bytes).sliced(offset, qMin(chunkSize, bytes.size() - offset))))
                out << message.json() << '\n';
        }
    } catch (const ModuleProblem& problem) {
        out << "error: " << problem.message() << '\n';
        return CommandStatus::failed;
    }
    return CommandStatus::ok;
}

// `plugin fingerprint BUNDLE`: the digest of every file of a bundle, as the host computes it.
CommandStatus fingerprint(const QStringList& arguments) {
    if (arguments.size() != 1)
        return CommandStatus::usage;
    QString digest;
    try {
        digest = NativePluginBundle::fingerprint(arguments.first());
    } catch (const ModuleProblem& problem) {
        return refused(problem.message());
    }
    QTextStream(stdout) << digest << '\n';
    return CommandStatus::ok;
}

// A name on one line: a line break in it could pass for another line of the report.
QString oneLine(QString text) {
    for (QChar& character : text) {
        if (character.category() == QChar::Other_Control || character == QChar::LineSeparator ||
            character == QChar::ParagraphSeparator)
            character = u' ';
    }
    return text;
}

// `plugin inspect BUNDLE`: every check the host makes before it installs or launches a bundle,
// and what the reviewer is shown when they pass.
CommandStatus inspect(const QStringList& arguments) {
    if (arguments.size() != 1)
        return CommandStatus::usage;
    NativePluginInspection inspection;
    try {
        inspection = NativePluginBundle::inspect(arguments.first());
    } catch (const ModuleProblem& problem) {
        return refused(problem.message());
    }
    const PluginManifest& manifest = inspection.manifest;
    // Capabilities are free text, commas included: a JSON array keeps them apart.
    const QByteArray capabilities =
        QJsonDocument(QJsonArray::fromStringList(manifest.capabilities)).toJson(QJsonDocument::Compact);
    QTextStream out(stdout);
    out << "id: " << manifest.id << '\n'
        << "name: " << oneLine(manifest.name) << '\n'
        << "version: " << manifest.version << '\n'
        << "capabilities: " << QString::fromUtf8(capabilities) << '\n'
        << "launch mode: " << (manifest.launchesAsApplication() ? "application" : "child") << '\n'
        << "signature: valid\n"
        << "fingerprint: " << inspection.fingerprint << '\n';
    return CommandStatus::ok;
}

// `plugin sign BUNDLE KEY`: signs a finished bundle with an SSH private key; any change to the
// bundle afterwards needs a new signature.
CommandStatus sign(const QStringList& arguments) {
    if (arguments.size() != 2)
        return CommandStatus::usage;
    try {
        NativePluginBundle::sign(arguments.at(0), arguments.at(1));
    } catch (const ModuleProblem& problem) {
        return refused(problem.message());
    }
    QTextStream(stdout) << "OK\n";
    return CommandStatus::ok;
}

const std::array subcommands{
    Subcommand{"manifest", "FILE", &manifest},
    Subcommand{"lines", "[--chunk N] [FILE]", &lines},
    Subcommand{"snapshot", "FILE", &snapshot},
    Subcommand{"fingerprint", "BUNDLE", &fingerprint},
    Subcommand{"inspect", "BUNDLE", &inspect},
    Subcommand{"sign", "BUNDLE KEY", &sign},
    Subcommand{"host", "BUNDLE [--send FILE]", &PluginHostCommand::run},
};

} // namespace

CommandStatus PluginCommands::run(const QStringList& arguments) {
    return runSubcommand(subcommands, arguments);
}

QStringList PluginCommands::usage() {
    return subcommandUsage("plugin", subcommands);
}

} // namespace vell
