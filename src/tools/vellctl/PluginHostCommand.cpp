#include "tools/vellctl/PluginHostCommand.h"

#include "VellHost/NativePluginBundle.h"
#include "VellHost/Plugins/NativePluginSessions.h"
#include "VellPluginSDK/Json/JsonFile.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSocketNotifier>
#include <QTextStream>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace vell::PluginHostCommand {

namespace {

// Host messages to inject can be no more than a few of the largest lines.
constexpr qint64 maximumSendFileBytes = 16 * PluginMessage::maximumEncodedBytes;

int stopPipe[2] = {-1, -1};

void onStopSignal(int) {
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = ::write(stopPipe[1], &byte, 1);
}

void printLine(const QByteArray& line) {
    QTextStream(stdout) << line << Qt::endl;
}

// Each line of the file a host message; its identity is filled in when it is sent.
std::optional<QList<PluginMessage>> readMessages(const QString& path) {
    const FileContents file = JsonFile::readBytes(path, maximumSendFileBytes);
    if (!file.read()) {
        QTextStream(stdout) << (file.status == FileContents::Status::TooLarge
                                    ? QStringLiteral("Too many host messages.")
                                : file.missing() ? QStringLiteral("No such file.")
                                                 : file.error)
                            << '\n';
        return std::nullopt;
    }
    QList<PluginMessage> messages;
    for (const QByteArray& line : file.bytes.split('\n')) {
        if (line.trimmed().isEmpty())
            continue;
        try {
            messages.append(PluginMessage::decode(line));
        } catch (const ModuleProblem& problem) {
            QTextStream(stdout) << problem.message() << '\n';
            return std::nullopt;
        }
    }
    return messages;
}

} // namespace

CommandStatus run(const QStringList& arguments) {
    if (arguments.size() != 1 && !(arguments.size() == 3 && arguments.at(1) == u"--send"))
        return CommandStatus::usage;
    QList<PluginMessage> injected;
    if (arguments.size() == 3) {
        const auto messages = readMessages(arguments.at(2));
        if (!messages)
            return CommandStatus::failed;
        injected = *messages;
    }
    NativePluginInspection inspection;
    try {
        inspection = NativePluginBundle::inspect(arguments.first());
    } catch (const ModuleProblem& problem) {
        QTextStream(stdout) << problem.message() << '\n';
        return CommandStatus::failed;
    }
    const QString id = inspection.manifest.id;
    NativePluginRecord record;
    record.manifest = inspection.manifest;
    record.fingerprint = inspection.fingerprint;

    // The host as the app runs it, with a router that keeps nothing on disk.
    NativePluginSessions sessions(std::nullopt);
    // Each message as it travels, in its own key order.
    sessions.trace = [](const QString&, bool fromPlugin, const PluginMessage& message) {
        printLine((fromPlugin ? QByteArrayLiteral("{\"from\":\"plugin\",\"message\":")
                              : QByteArrayLiteral("{\"from\":\"host\",\"message\":")) +
                  message.json() + '}');
    };
    // Bus traffic and the like go once the handshake is done; a press needs a button to press,
    // so presses wait for the first snapshot.
    bool sentMessages = false;
    bool sentPresses = false;
    const auto inject = [&](bool presses) {
        for (const PluginMessage& message : std::as_const(injected)) {
            if ((message.type == u"action") != presses)
                continue;
            if (presses)
                sessions.action(id, message.action.value_or(QString()));
            else
                sessions.sendHostMessage(id, message);
        }
    };
    bool ended = false;
    QObject::connect(&sessions, &NativePluginSessions::statusChanged, [&] {
        if (!sessions.hasWorker(id) && !ended) {
            // The status line is written just after the session is wiped.
            ended = true;
            QMetaObject::invokeMethod(
                &sessions,
                [&] {
                    const QString status = sessions.status().value(id);
                    printLine(QJsonDocument(QJsonObject{{QStringLiteral("end"), status}})
                                  .toJson(QJsonDocument::Compact));
                    // Ended from here, or by the plugin itself: fine. Any fault of the plugin: 1.
                    const bool clean = status == NativePluginSessions::stoppedStatus ||
                                       status == u"Plugin stopped. Restart it when ready.";
                    QCoreApplication::exit(clean ? 0 : 1);
                },
                Qt::QueuedConnection);
            return;
        }
        if (!sentMessages && sessions.ready().contains(id)) {
            sentMessages = true;
            inject(false);
        }
    });
    QObject::connect(&sessions, &NativePluginSessions::snapshotsChanged, [&] {
        if (!sentPresses && sessions.snapshots().contains(id)) {
            sentPresses = true;
            inject(true);
        }
    });

    // SIGINT and SIGTERM end the session the way the app's quit does.
    if (::pipe2(stopPipe, O_CLOEXEC) != 0)
        return CommandStatus::failed;
    QSocketNotifier stopNotifier(stopPipe[0], QSocketNotifier::Read);
    QObject::connect(&stopNotifier, &QSocketNotifier::activated, [&] {
        stopNotifier.setEnabled(false);
        sessions.stopAll(NativePluginSessions::stoppedStatus);
    });
    std::signal(SIGINT, onStopSignal);
    std::signal(SIGTERM, onStopSignal);

    sessions.startHealthChecks();
    QMetaObject::invokeMethod(
        &sessions, [&] { sessions.launch(record, inspection.root); }, Qt::QueuedConnection);
    return QCoreApplication::exec() == 0 ? CommandStatus::ok : CommandStatus::failed;
}

} // namespace vell::PluginHostCommand
