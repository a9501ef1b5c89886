#pragma once

// A real pulseaudio for the test alone: a null sink "speakers" ("Speakers"), its socket in the
// session's private runtime folder, started by the test and stopped by its pid. pactl plays
// every other program that changes the volume.

#include <QDeadlineTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QStringList>
#include <QTest>

#include <optional>

namespace vell::test {

class SoundServer final {
public:
    ~SoundServer() { stop(); }

    bool start() {
        m_server.setProgram(QStringLiteral("pulseaudio"));
        m_server.setArguments(
            {"-n", "--daemonize=no", "--exit-idle-time=-1", "--log-target=stderr", "--log-level=error", "-L",
             "module-null-sink sink_name=speakers sink_properties=device.description=Speakers", "-L",
             "module-native-protocol-unix"});
        m_server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_server.start();
        if (!m_server.waitForStarted(20000))
            return false;
        // Up once it answers; a server that died answers never.
        const QDeadlineTimer deadline(30000);
        while (!deadline.hasExpired() && m_server.state() == QProcess::Running) {
            if (pactl({"info"}))
                return true;
            QTest::qWait(50);
        }
        return false;
    }

    void stop() {
        if (m_server.state() == QProcess::NotRunning)
            return;
        m_server.terminate();
        if (!m_server.waitForFinished(20000)) {
            m_server.kill();
            m_server.waitForFinished(20000);
        }
    }

    // pactl's output, or nothing when it failed.
    static std::optional<QByteArray> pactl(const QStringList& arguments) {
        QProcess tool;
        tool.start(QStringLiteral("pactl"), arguments);
        if (!tool.waitForFinished(20000) || tool.exitStatus() != QProcess::NormalExit || tool.exitCode() != 0)
            return std::nullopt;
        return tool.readAllStandardOutput();
    }

    // The default sink's level as the server holds it, 0 to 1, from its raw value.
    static std::optional<double> volume() {
        const std::optional<QByteArray> out = pactl({"get-sink-volume", "@DEFAULT_SINK@"});
        const QRegularExpressionMatch raw = QRegularExpression(QStringLiteral(": (\\d+) /"))
                                                .match(QString::fromUtf8(out.value_or(QByteArray())));
        return raw.hasMatch() ? std::optional(raw.captured(1).toDouble() / 65536) : std::nullopt;
    }

    static std::optional<bool> muted() {
        const std::optional<QByteArray> out = pactl({"get-sink-mute", "@DEFAULT_SINK@"});
        if (!out)
            return std::nullopt;
        return out->contains("yes");
    }

    static bool setVolume(double level) {
        return pactl({"set-sink-volume", "@DEFAULT_SINK@", QString::number(qRound(level * 65536))})
            .has_value();
    }

private:
    QProcess m_server;
};

} // namespace vell::test
