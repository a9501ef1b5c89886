#include "OstaVell/Features/Shelf/ShelfDeviceSender.h"

#include "OstaVell/Features/Shelf/ShelfLogging.h"
#include "VellHost/ChildProcess.h"

#include <QProcessEnvironment>
#include <QStandardPaths>
#include <QThreadPool>

#include <sys/wait.h>

namespace vell {

namespace {

ChildProcessOptions command(const QString& program, const QStringList& arguments, bool pipes) {
    ChildProcessOptions options;
    options.program = program;
    options.arguments = arguments;
    // The user's own tool, with the user's session: its bus, its display.
    options.environment = QProcessEnvironment::systemEnvironment().toStringList();
    options.pipes = pipes;
    return options;
}

QString firstDevice(const QString& program) {
    QString error;
    std::unique_ptr<ChildProcess> list = ChildProcess::start(
        command(program, {QStringLiteral("--list-available"), QStringLiteral("--id-only")}, true), &error);
    if (!list) {
        qCWarning(lcShelfStore, "kdeconnect-cli did not start: %s", qUtf8Printable(error));
        return {};
    }
    const ChildProcess::Exchange answer = list->exchange(
        {}, ShelfDeviceSender::maximumListBytes,
        ChildProcess::Clock::now() + std::chrono::milliseconds(ShelfDeviceSender::listTimeoutMs));
    const QList<QByteArray> lines = answer.output.split('\n');
    for (const QByteArray& line : lines)
        if (!line.trimmed().isEmpty())
            return QString::fromUtf8(line.trimmed());
    return {};
}

} // namespace

QString ShelfDeviceSender::program() {
    return QStandardPaths::findExecutable(QStringLiteral("kdeconnect-cli"));
}

void ShelfDeviceSender::send(const QStringList& shares, const QStringList& texts) {
    const QString client = program();
    if (client.isEmpty() || (shares.isEmpty() && texts.isEmpty()))
        return;
    ChildProcess::blockingPool()->start([client, shares, texts] {
        const QString device = firstDevice(client);
        if (device.isEmpty()) {
            qCInfo(lcShelfStore, "no device is reachable through KDE Connect");
            return;
        }
        QList<QStringList> runs;
        for (const QString& share : shares)
            runs.append({QStringLiteral("--device"), device, QStringLiteral("--share"), share});
        for (const QString& text : texts)
            runs.append({QStringLiteral("--device"), device, QStringLiteral("--share-text"), text});
        for (const QStringList& arguments : std::as_const(runs)) {
            QString error;
            std::unique_ptr<ChildProcess> run =
                ChildProcess::start(command(client, arguments, false), &error);
            if (!run) {
                qCWarning(lcShelfStore, "kdeconnect-cli did not start: %s", qUtf8Printable(error));
                continue;
            }
            const int status = run->wait();
            if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
                qCWarning(lcShelfStore, "kdeconnect-cli could not send to %s", qUtf8Printable(device));
        }
    });
}

} // namespace vell
