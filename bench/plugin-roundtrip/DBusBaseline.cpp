#include "DBusBaseline.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDeadlineTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "DBusEcho.h"
#include "RoundTrip.h"

namespace vell {

namespace {

constexpr int startSeconds = 10;
constexpr int callMilliseconds = 10000;

// The first line a process writes on standard output, waiting for it up to the deadline.
QByteArray firstLine(QProcess& process, const QDeadlineTimer& deadline) {
    while (!process.canReadLine()) {
        if (deadline.hasExpired() ||
            !process.waitForReadyRead(int(std::max<qint64>(1, deadline.remainingTime()))))
            return {};
    }
    return process.readLine().trimmed();
}

void stop(std::unique_ptr<QProcess>& process) {
    if (!process)
        return;
    process->terminate();
    if (!process->waitForFinished(startSeconds * 1000))
        process->kill();
    process->waitForFinished();
    process.reset();
}

} // namespace

DBusBaseline::~DBusBaseline() {
    if (!m_connection.isEmpty())
        QDBusConnection::disconnectFromBus(m_connection);
    stop(m_server);
    stop(m_daemon);
}

bool DBusBaseline::start(const QString& program) {
    const QDeadlineTimer deadline{std::chrono::seconds(startSeconds)};
    m_daemon = std::make_unique<QProcess>();
    // It complains on standard error that it may not raise its descriptor limit, which is harmless.
    m_daemon->setStandardErrorFile(QProcess::nullDevice());
    m_daemon->start(QStringLiteral("dbus-daemon"),
                    {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--nopidfile"),
                     QStringLiteral("--print-address"),
                     QStringLiteral("--address=unix:path=") + m_folder.filePath(QStringLiteral("bus"))});
    const QString address = QString::fromUtf8(firstLine(*m_daemon, deadline));
    if (!m_folder.isValid() || address.isEmpty()) {
        std::fprintf(stderr, "D-Bus baseline: the bus daemon did not start\n");
        return false;
    }

    m_server = std::make_unique<QProcess>();
    m_server->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_server->start(program, {DBusEcho::serverArgument.toString(), address});
    if (firstLine(*m_server, deadline) != "ready") {
        std::fprintf(stderr, "D-Bus baseline: the echo server did not start\n");
        return false;
    }

    m_connection = QStringLiteral("echo-client");
    const QDBusConnection bus = QDBusConnection::connectToBus(address, m_connection);
    if (!bus.isConnected()) {
        std::fprintf(stderr, "D-Bus baseline: %s\n", qPrintable(bus.lastError().message()));
        return false;
    }
    return true;
}

std::optional<std::vector<qint64>> DBusBaseline::calls(int first, int count) {
    QDBusConnection bus(m_connection);
    const QString service = DBusEcho::service.toString();
    std::vector<qint64> samples;
    samples.reserve(std::size_t(count));
    for (int round = first; round < first + count; ++round) {
        const QString text = RoundTrip::text(round);
        QDBusMessage call = QDBusMessage::createMethodCall(service, DBusEcho::objectPath.toString(), service,
                                                           QStringLiteral("Echo"));
        call << text;
        const auto start = std::chrono::steady_clock::now();
        const QDBusMessage reply = bus.call(call, QDBus::Block, callMilliseconds);
        const auto end = std::chrono::steady_clock::now();
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().value(0).toString() != text) {
            std::fprintf(stderr, "D-Bus baseline: %s\n", qPrintable(reply.errorMessage()));
            return std::nullopt;
        }
        samples.push_back(std::chrono::duration_cast<std::chrono::nanoseconds>(end - start).count());
    }
    return samples;
}

} // namespace vell
