#include "VellHost/Plugins/NativePluginProcess.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#include "HostileScript.h"

using namespace vell;
using namespace vell::hostile;
using LaunchMode = NativePluginProcess::LaunchMode;
Q_DECLARE_METATYPE(LaunchMode)

namespace {

constexpr int patience = 15000;
const QString queueFull = QStringLiteral("Plugin input queue is unavailable or full.");

QString buildPath(const QString& relative) {
    return qEnvironmentVariable("VELL_BUILD_DIR") + u'/' + relative;
}

QString example(const QString& bundle, const QString& executable) {
    return buildPath(QStringLiteral("examples/plugins/%1.app/Contents/MacOS/%2").arg(bundle, executable));
}

bool processGone(qint64 pid) {
    return !QFileInfo::exists(QStringLiteral("/proc/%1").arg(pid));
}

// Everything a process tells its owner, in order.
struct Heard {
    QList<PluginMessage> messages;
    QStringList failures;
    int exits = 0;

    void listen(NativePluginProcess& process) {
        process.onMessage = [this](const PluginMessage& message) { messages.append(message); };
        process.onFailure = [this](const QString& reason) { failures.append(reason); };
        process.onExit = [this] { ++exits; };
    }
    std::optional<PluginMessage> last(const QString& type) const {
        for (auto it = messages.rbegin(); it != messages.rend(); ++it) {
            if (it->type == type)
                return *it;
        }
        return std::nullopt;
    }
};

PluginMessage action(const NativePluginProcess& process, const QString& id, qsizetype padding = 0) {
    PluginMessage message =
        PluginMessage::make(QStringLiteral("action"), QStringLiteral("test.plugin"), process.session());
    message.action = id + QString(padding, u'x');
    return message;
}

} // namespace

class TestNativePluginProcess final : public QObject {
    Q_OBJECT

    QTemporaryDir m_plugins;
    int m_count = 0;
    std::unique_ptr<NativePluginProcess> m_process;
    Heard m_heard;

    // A copy of the hostile plugin that plays this script.
    QString hostile(const QByteArrayList& script) {
        return placeHostile(m_plugins.filePath(QString::number(++m_count)), script);
    }

    // An application plugin that reports how to reach the host, so that the test can be the
    // one that connects; answers the port and the token.
    std::pair<quint16, QString> startReporting() {
        const QString report = m_plugins.filePath(QStringLiteral("report-%1").arg(++m_count));
        const QString plugin = m_plugins.filePath(QStringLiteral("reporter-%1").arg(m_count));
        if (!writeFile(plugin,
                       "#!/bin/sh\nprintf '%s %s\\n' \"$OSTAVELL_PLUGIN_PORT\" \"$OSTAVELL_PLUGIN_TOKEN\" "
                       ">\"$VELL_TEST_REPORT\"\nexec sleep 600\n") ||
            !QFile::setPermissions(plugin, QFile::ReadOwner | QFile::ExeOwner))
            return {};
        qputenv("VELL_TEST_REPORT", report.toLocal8Bit());
        // Stale values in our own environment must not reach the plugin in place of the real ones.
        qputenv("OSTAVELL_PLUGIN_PORT", "1");
        qputenv("OSTAVELL_PLUGIN_TOKEN", QByteArray(72, '0'));
        m_process->start(plugin, QStringLiteral("test.rogue"), m_plugins.path(), LaunchMode::application);
        QByteArray contents;
        const auto complete = [&] {
            QFile file(report);
            contents = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
            return contents.endsWith('\n');
        };
        if (!QTest::qWaitFor(complete, patience))
            return {};
        const QList<QByteArray> parts = contents.trimmed().split(' ');
        return {static_cast<quint16>(parts.value(0).toUInt()), QString::fromLatin1(parts.value(1))};
    }

    static std::unique_ptr<QTcpSocket> connectTo(quint16 port) {
        auto socket = std::make_unique<QTcpSocket>();
        socket->connectToHost(QHostAddress::LocalHost, port);
        return socket->waitForConnected(patience) ? std::move(socket) : nullptr;
    }

    static bool closedByHost(QTcpSocket& socket) {
        return QTest::qWaitFor([&] { return socket.state() == QAbstractSocket::UnconnectedState; }, patience);
    }

private slots:
    void init() {
        m_process = std::make_unique<NativePluginProcess>();
        m_heard = {};
        m_heard.listen(*m_process);
    }

    void cleanup() { m_process.reset(); }

    void endToEnd_data() {
        QTest::addColumn<QString>("binary");
        QTest::addColumn<LaunchMode>("mode");
        QTest::addColumn<QString>("action");
        QTest::addColumn<QString>("changed");
        QTest::newRow("C++ clock") << example("Clock", "clock") << LaunchMode::child << "seconds"
                                   << R"(^\d\d:\d\d:\d\d$)";
        QTest::newRow("Python dice") << example("Dice", "dice") << LaunchMode::child << "roll"
                                     << "^You rolled [1-6]$";
        QTest::newRow("application counter")
            << example("Counter", "counter") << LaunchMode::application << "add"
            << "^1 press$";
    }

    // The handshake, a press, the answer, and a stop that the plugin hears as the end.
    void endToEnd() {
        QFETCH(QString, binary);
        QFETCH(LaunchMode, mode);
        QFETCH(QString, action);
        QFETCH(QString, changed);
        m_process->start(binary, QStringLiteral("test.plugin"), QFileInfo(binary).absolutePath(), mode);
        QTRY_VERIFY_WITH_TIMEOUT(m_heard.last("snapshot").has_value(), patience);
        const PluginMessage ready = m_heard.messages.first();
        QCOMPARE(ready.type, "ready");
        QCOMPARE(ready.session, m_process->session());
        QCOMPARE(ready.sequence, 0u);

        m_process->send(::action(*m_process, action));
        QTRY_VERIFY_WITH_TIMEOUT(
            QRegularExpression(changed).match(m_heard.last("snapshot")->snapshot->status).hasMatch(),
            patience);
        QVERIFY(m_heard.failures.isEmpty());

        const qint64 pid = m_process->processID();
        QVERIFY(pid > 0);
        m_process->stop();
        QTRY_VERIFY_WITH_TIMEOUT(processGone(pid), patience);
        QCOMPARE(m_heard.exits, 0); // nothing of a stopped process reaches its owner
        QVERIFY_THROWS_EXCEPTION(ModuleProblem, m_process->send(::action(*m_process, action)));
    }

    void startFailureIsThrown() {
        QVERIFY_THROWS_EXCEPTION(ModuleProblem, m_process->start(m_plugins.filePath("missing"), "test.rogue",
                                                                 m_plugins.path(), LaunchMode::child));
    }

    void endings_data() {
        QTest::addColumn<QByteArrayList>("script");
        QTest::addColumn<QString>("failure");
        const QByteArray padded = wire("heartbeat", R"("action":"$PAD")");
        // Its last words are heard before its exit.
        QTest::newRow("exit") << QByteArrayList{send(wire("heartbeat")), exitWith(0)} << QString();
        // A line of exactly the limit passes; the next, one byte longer, ends the stream.
        QTest::newRow("line limit") << QByteArrayList{sendPadded(padded, 131072), sendPadded(padded, 131073)}
                                    << "Invalid plugin message size.";
        QTest::newRow("unterminated rest")
            << QByteArrayList{send(wire("heartbeat")), sendPadded("$PAD", 131073, false)}
            << "Unterminated plugin message exceeded its limit.";
    }

    void endings() {
        QFETCH(QByteArrayList, script);
        QFETCH(QString, failure);
        m_process->start(hostile(script), QStringLiteral("test.rogue"), m_plugins.path(), LaunchMode::child);
        QTRY_VERIFY_WITH_TIMEOUT(m_heard.exits + m_heard.failures.size() > 0, patience);
        QCOMPARE(m_heard.failures, failure.isEmpty() ? QStringList() : QStringList{failure});
        QCOMPARE(m_heard.exits, failure.isEmpty() ? 1 : 0);
        QCOMPARE(m_heard.messages.size(), 1);
    }

    // A plugin that never reads: the host's queue fills to its limit, send refuses from then
    // on, and the host goes on as if nothing happened.
    void inputQueueHoldsToItsLimit() {
        m_process->start(hostile({idle}), QStringLiteral("test.rogue"), m_plugins.path(), LaunchMode::child);
        qsizetype accepted = 0;
        const PluginMessage fill = ::action(*m_process, "fill", 60000);
        const qsizetype size = fill.encoded().size();
        try {
            for (int i = 0; i < 1000; ++i) {
                m_process->send(fill);
                accepted += size;
            }
            QFAIL("the queue never filled");
        } catch (const ModuleProblem& problem) {
            QCOMPARE(problem.message(), queueFull);
        }
        // What the pipe took is no longer queued; the queue holds the rest up to its limit.
        QVERIFY(accepted <= 8388608 + 1048576);
        QVERIFY(accepted > 8388608 - size);
        QVERIFY_THROWS_EXCEPTION(ModuleProblem, m_process->send(fill));
        const qint64 pid = m_process->processID();
        m_process->stop();
        QTRY_VERIFY_WITH_TIMEOUT(processGone(pid), patience);
    }

    void wrongTokenIsRefusedAndTheRightOneStillWorks() {
        const auto [port, token] = startReporting();
        QVERIFY(port > 1);
        QCOMPARE(token.size(), 72);
        QVERIFY(token != QString(72, u'0'));

        const auto impostor = connectTo(port);
        QVERIFY(impostor);
        QString wrong = token;
        wrong[0] = wrong[0] == u'A' ? u'B' : u'A';
        impostor->write((wrong + u'\n').toUtf8());
        QVERIFY(closedByHost(*impostor));

        // The token line and a first message in one write: the message is not lost.
        const auto plugin = connectTo(port);
        QVERIFY(plugin);
        const QByteArray ready = PluginMessage::make("ready", "test.rogue", QUuid::createUuid()).encoded();
        QVERIFY(token.size() + 1 + ready.size() <= 256);
        plugin->write((token + u'\n').toUtf8() + ready);
        QTRY_COMPARE_WITH_TIMEOUT(m_heard.messages.size(), 1, patience);
        QTRY_VERIFY_WITH_TIMEOUT(plugin->canReadLine(), patience);
        const PluginMessage hello = PluginMessage::decode(plugin->readLine().chopped(1));
        QCOMPARE(hello.type, "hello");
        QCOMPARE(hello.session, m_process->session());
        QCOMPARE(hello.features->size(), 19);

        // Once there is a peer, there is no way in for another.
        QTcpSocket late;
        late.connectToHost(QHostAddress::LocalHost, port);
        QVERIFY(!late.waitForConnected(patience) || closedByHost(late));
    }

    void strangersHaveATightBudget() {
        const auto [port, token] = startReporting();
        QVERIFY(port != 0);

        // Four may wait at once; a fifth is cancelled at once.
        std::vector<std::unique_ptr<QTcpSocket>> waiting;
        for (int i = 0; i < 4; ++i) {
            waiting.push_back(connectTo(port));
            QVERIFY(waiting.back());
        }
        const auto fifth = connectTo(port);
        QVERIFY(!fifth || closedByHost(*fifth));
        for (const auto& socket : waiting)
            QCOMPARE(socket->state(), QAbstractSocket::ConnectedState);

        // 257 bytes, even with the right token first, are too many for a stranger.
        waiting[0]->write((token + u'\n').toUtf8() + QByteArray(257 - token.size() - 1, ' '));
        QVERIFY(closedByHost(*waiting[0]));

        // One that says nothing is sent away after its time.
        QVERIFY(closedByHost(*waiting[1]));

        // Of two that wait, the first with the token wins and the other is cancelled.
        waiting[2].reset();
        const auto first = connectTo(port);
        const auto second = connectTo(port);
        QVERIFY(first && second);
        first->write((token + u'\n').toUtf8());
        QVERIFY(closedByHost(*second));
        QCOMPARE(first->state(), QAbstractSocket::ConnectedState);
        QVERIFY(m_heard.failures.isEmpty());
        m_process->stop();
        QVERIFY(closedByHost(*first));
    }

    // The queue is judged as a message is handed over: the one that would pass the limit is
    // refused there, with nothing queued, and the sender knows at once.
    void applicationQueueOverflowFails() {
        const auto [port, token] = startReporting();
        const auto plugin = connectTo(port);
        QVERIFY(plugin);
        plugin->setReadBufferSize(1); // reads almost nothing from here on
        plugin->write((token + u'\n').toUtf8());
        // Once hello arrives, the connection is the plugin's.
        QVERIFY(plugin->waitForReadyRead(patience));
        QString refused;
        for (int i = 0; i < 400 && refused.isEmpty(); ++i) {
            try {
                m_process->send(::action(*m_process, "fill", 60000));
            } catch (const ModuleProblem& problem) {
                refused = problem.message();
            }
            QCoreApplication::processEvents();
        }
        QCOMPARE(refused, queueFull);
        QVERIFY(m_heard.failures.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestNativePluginProcess)
#include "tst_NativePluginProcess.moc"
