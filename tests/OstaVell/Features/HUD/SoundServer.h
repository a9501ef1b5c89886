#pragma once

// A real pulseaudio for the test alone: a null sink "speakers" ("Speakers"), its socket in the
// session's private runtime folder, started by the test and stopped by its pid. pactl plays
// every other program that changes the volume.

#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include <optional>

namespace vell::test {

// A tool's output, or nothing when it failed.
inline std::optional<QByteArray> run(const QString& program, const QStringList& arguments) {
    QProcess tool;
    tool.start(program, arguments);
    if (!tool.waitForFinished(20000) || tool.exitStatus() != QProcess::NormalExit || tool.exitCode() != 0)
        return std::nullopt;
    return tool.readAllStandardOutput();
}

class SoundServer final {
public:
    ~SoundServer() { stop(); }

    bool start() {
        m_server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_server.start(QStringLiteral("pulseaudio"),
                       {"-n", "--daemonize=no", "--exit-idle-time=-1", "--log-target=stderr",
                        "--log-level=error", "-L",
                        "module-null-sink sink_name=speakers sink_properties=device.description=Speakers",
                        "-L", "module-native-protocol-unix"});
        // Up once it answers; a server that died answers never.
        return m_server.waitForStarted(20000) &&
               QTest::qWaitFor([this] { return m_server.state() != QProcess::Running || pactl({"info"}); },
                               30000) &&
               m_server.state() == QProcess::Running;
    }

    void stop() {
        m_server.terminate();
        if (!m_server.waitForFinished(20000))
            m_server.kill();
        m_server.waitForFinished(20000);
    }

    static std::optional<QByteArray> pactl(const QStringList& arguments) { return run("pactl", arguments); }

    // The default sink's level as the server holds it, 0 to 1, from its raw value.
    static std::optional<double> volume() {
        const QRegularExpressionMatch raw =
            QRegularExpression(QStringLiteral(": (\\d+) /"))
                .match(pactl({"get-sink-volume", "@DEFAULT_SINK@"}).value_or(""));
        return raw.hasMatch() ? std::optional(raw.captured(1).toDouble() / 65536) : std::nullopt;
    }

    static std::optional<bool> muted() {
        const std::optional<QByteArray> out = pactl({"get-sink-mute", "@DEFAULT_SINK@"});
        return out ? std::optional(out->contains("yes")) : std::nullopt;
    }

    static bool setVolume(double level) {
        return pactl({"set-sink-volume", "@DEFAULT_SINK@", QString::number(qRound(level * 65536))})
            .has_value();
    }

private:
    QProcess m_server;
};

} // namespace vell::test
