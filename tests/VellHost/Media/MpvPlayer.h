#pragma once

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QProcess>
#include <QStandardPaths>
#include <QStringList>
#include <QTest>

// A real mpv with its MPRIS script on the test's session bus, silent (no audio output), and
// its IPC socket for what a person would do in the player itself.
class MpvPlayer {
public:
    // A tagged tone of this title, made once per folder, in a file named after the title or
    // the name given.
    static QString tone(const QString& folder, const QString& title, int hertz, const QString& name = {}) {
        const QString path =
            folder + QLatin1Char('/') + (name.isEmpty() ? title : name) + QStringLiteral(".flac");
        if (!QFile::exists(path))
            QProcess::execute(QStringLiteral("sox"),
                              {QStringLiteral("-n"), QStringLiteral("-r"), QStringLiteral("22050"),
                               QStringLiteral("-c"), QStringLiteral("1"), QStringLiteral("--comment"),
                               QStringLiteral("TITLE=") + title, path, QStringLiteral("synth"),
                               QStringLiteral("120"), QStringLiteral("sine"), QString::number(hertz),
                               QStringLiteral("vol"), QStringLiteral("0.05")});
        return path;
    }

    ~MpvPlayer() { quit(); }

    // Starts it and waits for its bus name; false when it never appeared.
    bool start(const QStringList& files, bool paused, const QString& folder) {
        m_socket = folder + QStringLiteral("/mpv-") + QString::number(++serial()) + QStringLiteral(".sock");
        const QStringList before = names();
        QStringList arguments{QStringLiteral("--no-config"),
                              QStringLiteral("--no-video"),
                              QStringLiteral("--ao=null"),
                              QStringLiteral("--loop-playlist=inf"),
                              QStringLiteral("--input-ipc-server=") + m_socket,
                              QStringLiteral("--script=/etc/mpv/scripts/mpris.so")};
        if (paused)
            arguments.append(QStringLiteral("--pause"));
        m_process.start(QStringLiteral("mpv"), arguments + files);
        // Its name on the bus is the one that was not there before.
        return QTest::qWaitFor(
            [&] {
                for (const QString& name : names()) {
                    if (!before.contains(name)) {
                        busName = name;
                        return true;
                    }
                }
                return false;
            },
            20000);
    }

    // One IPC command, e.g. {"set_property", "pause", true}; waits for mpv's answer.
    bool command(const QJsonArray& words) { return answer(words).value(u"error").toString() == u"success"; }

    // A property as mpv has it now, e.g. "pause" or "time-pos".
    QJsonValue property(const QString& name) {
        return answer({QStringLiteral("get_property"), name}).value(u"data");
    }

    void quit() {
        if (m_process.state() == QProcess::NotRunning)
            return;
        m_process.terminate();
        if (!m_process.waitForFinished(5000))
            m_process.kill();
        m_process.waitForFinished(5000);
    }

    QString busName;

private:
    QJsonObject answer(const QJsonArray& words) {
        QLocalSocket socket;
        socket.connectToServer(m_socket);
        if (!socket.waitForConnected(5000))
            return {};
        socket.write(
            QJsonDocument(QJsonObject{{QStringLiteral("command"), words}}).toJson(QJsonDocument::Compact) +
            '\n');
        // mpv may put events before the answer; the answer is the line with "error".
        while (socket.waitForReadyRead(5000)) {
            while (socket.canReadLine()) {
                const QJsonObject line = QJsonDocument::fromJson(socket.readLine()).object();
                if (line.contains(u"error"))
                    return line;
            }
        }
        return {};
    }

    static int& serial() {
        static int value = 0;
        return value;
    }
    static QStringList names() {
        QStringList players = QDBusConnection::sessionBus().interface()->registeredServiceNames().value();
        players.removeIf(
            [](const QString& name) { return !name.startsWith(QStringLiteral("org.mpris.MediaPlayer2.")); });
        return players;
    }

    QProcess m_process;
    QString m_socket;
};
