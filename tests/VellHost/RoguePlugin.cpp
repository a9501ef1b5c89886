// A plugin that misbehaves in the way its own file name says, for the transport tests: the
// tests link it under several names. Everything it writes is raw bytes, not the SDK's
// channel, since most of what it writes no well-made plugin would.

#include "VellPluginSDK/Protocol/PluginMessage.h"

#include <QByteArray>
#include <QFile>
#include <QFileInfo>

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

using namespace vell;

namespace {

void writeAll(const QByteArray& data) {
    qsizetype sent = 0;
    while (sent < data.size()) {
        const ssize_t count =
            ::write(STDOUT_FILENO, data.constData() + sent, static_cast<size_t>(data.size() - sent));
        if (count <= 0)
            std::_Exit(3);
        sent += count;
    }
}

QByteArray message(const char* type, quint64 sequence, qsizetype padTo = 0) {
    PluginMessage message =
        PluginMessage::make(QString::fromLatin1(type), QStringLiteral("test.rogue"),
                            QUuid::fromString(u"6F9619FF-8B86-D011-B42D-00C04FC964FF"), sequence);
    if (padTo > 0) {
        message.action = QString();
        const qsizetype bare = message.json().size();
        message.action = QString(padTo - bare, u'x');
    }
    return message.json();
}

[[noreturn]] void idle() {
    while (true)
        pause();
}

QByteArray terminationNote;

// Leaves a file behind to show that the signal came, and goes on running.
void noteTermination(int) {
    const int fd = ::open(terminationNote.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd >= 0)
        ::close(fd);
}

} // namespace

int main(int, char** argv) {
    const QString mode = QFileInfo(QString::fromLocal8Bit(argv[0])).fileName();
    if (mode == u"exact-line") {
        // The largest line that may pass, then one byte more.
        writeAll(message("heartbeat", 1, 131072) + '\n');
        writeAll(message("heartbeat", 2, 131073) + '\n');
        idle();
    }
    if (mode == u"unterminated") {
        writeAll(message("heartbeat", 1) + '\n' + QByteArray(131073, ' '));
        idle();
    }
    if (mode == u"flood") {
        // Far more small lines than the host can take at once; it must take them all, in order.
        QByteArray burst;
        for (quint64 sequence = 1; sequence <= 20000; ++sequence) {
            burst += message("heartbeat", sequence) + '\n';
            if (burst.size() > 65536 || sequence == 20000) {
                writeAll(burst);
                burst.clear();
            }
        }
        idle();
    }
    if (mode == u"deaf")
        idle(); // never reads what the host writes
    if (mode == u"stubborn") {
        terminationNote = qgetenv("TMPDIR") + "/rogue-terminated-" + QByteArray::number(getpid());
        std::signal(SIGTERM, noteTermination);
        writeAll(message("heartbeat", 1) + '\n');
        idle();
    }
    if (mode == u"quit") {
        writeAll(message("heartbeat", 1) + '\n');
        return 0;
    }
    if (mode == u"report") {
        // An application plugin that tells the test how to reach the host, and lets the test
        // play its part on the connection.
        QFile report(QString::fromLocal8Bit(qgetenv("VELL_TEST_REPORT")));
        if (!report.open(QIODevice::WriteOnly))
            return 2;
        report.write(qgetenv("OSTAVELL_PLUGIN_PORT") + ' ' + qgetenv("OSTAVELL_PLUGIN_TOKEN") + '\n');
        report.close();
        idle();
    }
    return 1;
}
