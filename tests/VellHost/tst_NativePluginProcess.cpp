#include "VellHost/Plugins/NativePluginProcess.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <memory>

using namespace vell;
using LaunchMode = NativePluginProcess::LaunchMode;

namespace {

constexpr int patience = 15000;

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

// The longest the main thread went without running its event loop while it was being watched.
class StallMeter final {
public:
    StallMeter() {
        m_timer.setInterval(2);
        QObject::connect(&m_timer, &QTimer::timeout,
                         [this] { m_longest = std::max(m_longest, m_since.restart()); });
        m_since.start();
        m_timer.start();
    }
    qint64 longest() const { return m_longest; }

private:
    QTimer m_timer;
    QElapsedTimer m_since;
    qint64 m_longest = 0;
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

    QTemporaryDir m_rogues;

    // The rogue plugin under the name of its misbehaviour.
    QString rogue(const QString& mode) {
        const QString path = m_rogues.filePath(mode);
        if (!QFileInfo::exists(path))
            QFile::link(buildPath(QStringLiteral("tests/RoguePlugin")), path);
        return path;
    }

    // An application plugin that reports how to reach the host, so that the test can be the
    // one that connects; answers the port and the token.
    std::pair<quint16, QString> startReporting(NativePluginProcess& process) {
        const QString report =
            m_rogues.filePath(QStringLiteral("report-") + QUuid::createUuid().toString(QUuid::Id128));
        qputenv("VELL_TEST_REPORT", report.toLocal8Bit());
        // Stale values in our own environment must not reach the plugin in place of the real ones.
        qputenv("OSTAVELL_PLUGIN_PORT", "1");
        qputenv("OSTAVELL_PLUGIN_TOKEN", QByteArray(72, '0'));
        process.start(rogue(QStringLiteral("report")), QStringLiteral("test.rogue"), m_rogues.path(),
                      LaunchMode::application);
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
    void childModeEndToEnd_data() {
        QTest::addColumn<QString>("binary");
        QTest::addColumn<QString>("action");
        QTest::addColumn<QString>("changed");
        QTest::newRow("C++ clock") << example("Clock", "clock") << "seconds"
                                   << R"(^\d\d:\d\d:\d\d$)";
        QTest::newRow("Python dice") << example("Dice", "dice") << "roll"
                                     << "^You rolled [1-6]$";
    }

    // The handshake, a press, the answer, and a stop that the plugin hears as the end.
    void childModeEndToEnd() {
        QFETCH(QString, binary);
        QFETCH(QString, action);
        QFETCH(QString, changed);
        NativePluginProcess process;
        Heard heard;
        heard.listen(process);
        process.start(binary, QStringLiteral("test.plugin"), QFileInfo(binary).absolutePath(),
                      LaunchMode::child);
        QTRY_VERIFY_WITH_TIMEOUT(heard.last("snapshot").has_value(), patience);
        const PluginMessage ready = heard.messages.first();
        QCOMPARE(ready.type, "ready");
        QCOMPARE(ready.session, process.session());
        QCOMPARE(ready.sequence, 0u);

        process.send(::action(process, action));
        QTRY_VERIFY_WITH_TIMEOUT(
            QRegularExpression(changed).match(heard.last("snapshot")->snapshot->status).hasMatch(), patience);
        QVERIFY(heard.failures.isEmpty());

        const qint64 pid = process.processID();
        process.stop();
        QTRY_VERIFY_WITH_TIMEOUT(processGone(pid), patience);
        QCOMPARE(heard.exits, 0); // nothing of a stopped process reaches its owner
        QVERIFY_THROWS_EXCEPTION(ModuleProblem, process.send(::action(process, action)));
    }

    void applicationModeEndToEnd() {
        NativePluginProcess process;
        Heard heard;
        heard.listen(process);
        const QString binary = example("Counter", "counter");
        process.start(binary, QStringLiteral("test.plugin"), QFileInfo(binary).absolutePath(),
                      LaunchMode::application);
        QTRY_VERIFY_WITH_TIMEOUT(heard.last("snapshot").has_value(), patience);
        QCOMPARE(heard.messages.first().type, "ready");
        QCOMPARE(heard.last("snapshot")->snapshot->status, "0 presses");
        process.send(::action(process, "add"));
        QTRY_COMPARE_WITH_TIMEOUT(heard.last("snapshot")->snapshot->status, "1 press", patience);
        process.stop();
        QVERIFY(heard.failures.isEmpty());
        QCOMPARE(heard.exits, 0);
    }

    void childExitIsHeardAfterItsLastWords() {
        NativePluginProcess process;
        Heard heard;
        heard.listen(process);
        process.start(rogue("quit"), QStringLiteral("test.rogue"), m_rogues.path(), LaunchMode::child);
        QTRY_COMPARE_WITH_TIMEOUT(heard.exits, 1, patience);
        QCOMPARE(heard.messages.size(), 1);
        QVERIFY(heard.failures.isEmpty());
    }

    void startFailureIsThrown() {
        NativePluginProcess process;
        QVERIFY_THROWS_EXCEPTION(ModuleProblem, process.start(m_rogues.filePath("missing"), "test.rogue",
                                                              m_rogues.path(), LaunchMode::child));
    }

    void outputLimits_data() {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<int>("framed");
        QTest::addColumn<QString>("failure");
        // A line of exactly the limit passes; the next, one byte longer, ends the stream.
        QTest::newRow("line limit") << "exact-line" << 1 << "Invalid plugin message size.";
        QTest::newRow("unterminated rest")
            << "unterminated" << 1 << "Unterminated plugin message exceeded its limit.";
    }

    void outputLimits() {
        QFETCH(QString, mode);
        QFETCH(int, framed);
        QFETCH(QString, failure);
        NativePluginProcess process;
        Heard heard;
        heard.listen(process);
        process.start(rogue(mode), QStringLiteral("test.rogue"), m_rogues.path(), LaunchMode::child);
        QTRY_COMPARE_WITH_TIMEOUT(heard.failures, QStringList{failure}, patience);
        QCOMPARE(heard.messages.size(), framed);
        process.stop();
    }

    // Twenty thousand lines as fast as the pipe takes them: every one arrives, in order, and
    // the main thread keeps turning while they are framed.
    void floodReachesTheOwnerWhole() {
        NativePluginProcess process;
        QList<quint64> sequences;
        QStringList failures;
        process.onMessage = [&](const PluginMessage& message) { sequences.append(message.sequence); };
        process.onFailure = [&](const QString& reason) { failures.append(reason); };
        process.start(rogue("flood"), QStringLiteral("test.rogue"), m_rogues.path(), LaunchMode::child);
        StallMeter meter;
        QTRY_COMPARE_WITH_TIMEOUT(sequences.size(), 20000, 60000);
        qInfo("longest main-thread stall while 20000 lines were framed: %lld ms", meter.longest());
        for (qsizetype i = 0; i < sequences.size(); ++i)
            QCOMPARE(sequences.at(i), quint64(i + 1));
        QVERIFY(failures.isEmpty());
        process.stop();
    }

    // A plugin that never reads: the host's queue fills to its limit, send refuses from then
    // on, and the host goes on as if nothing happened.
    void inputQueueHoldsToItsLimit() {
        NativePluginProcess process;
        process.start(rogue("deaf"), QStringLiteral("test.rogue"), m_rogues.path(), LaunchMode::child);
        qsizetype accepted = 0;
        qint64 longestSend = 0;
        const PluginMessage fill = ::action(process, "fill", 60000);
        const qsizetype size = fill.encoded().size();
        try {
            for (int i = 0; i < 1000; ++i) {
                QElapsedTimer sending;
                sending.start();
                process.send(fill);
                longestSend = std::max(longestSend, sending.nsecsElapsed());
                accepted += size;
            }
            QFAIL("the queue never filled");
        } catch (const ModuleProblem& problem) {
            QCOMPARE(problem.message(), "Plugin input queue is unavailable or full.");
        }
        qInfo("longest send while the queue filled: %.2f ms", double(longestSend) / 1e6);
        // What the pipe took is no longer queued; the queue holds the rest up to its limit.
        QVERIFY(accepted <= 8388608 + 1048576);
        QVERIFY(accepted > 8388608 - size);
        QVERIFY_THROWS_EXCEPTION(ModuleProblem, process.send(::action(process, "fill", 60000)));
        const qint64 pid = process.processID();
        process.stop();
        QTRY_VERIFY_WITH_TIMEOUT(processGone(pid), patience);
    }

    void ignoredTerminationEndsInAKill() {
        NativePluginProcess process;
        Heard heard;
        heard.listen(process);
        process.start(rogue("stubborn"), QStringLiteral("test.rogue"), m_rogues.path(), LaunchMode::child);
        QTRY_COMPARE_WITH_TIMEOUT(heard.messages.size(), 1, patience); // its handler is in place
        const qint64 pid = process.processID();
        process.stop();
        const QString note = QDir::tempPath() + QStringLiteral("/rogue-terminated-%1").arg(pid);
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(note), patience);
        QTRY_VERIFY_WITH_TIMEOUT(processGone(pid), patience);
        QFile::remove(note);
    }

    void wrongTokenIsRefusedAndTheRightOneStillWorks() {
        NativePluginProcess process;
        Heard heard;
        heard.listen(process);
        const auto [port, token] = startReporting(process);
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
        QTRY_COMPARE_WITH_TIMEOUT(heard.messages.size(), 1, patience);
        QTRY_VERIFY_WITH_TIMEOUT(plugin->canReadLine(), patience);
        const PluginMessage hello = PluginMessage::decode(plugin->readLine().chopped(1));
        QCOMPARE(hello.type, "hello");
        QCOMPARE(hello.session, process.session());
        QCOMPARE(hello.features->size(), 19);

        // Once there is a peer, there is no way in for another.
        QTcpSocket late;
        late.connectToHost(QHostAddress::LocalHost, port);
        QVERIFY(!late.waitForConnected(patience) || closedByHost(late));
        process.stop();
    }

    void strangersHaveATightBudget() {
        NativePluginProcess process;
        Heard heard;
        heard.listen(process);
        const auto [port, token] = startReporting(process);
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
        QVERIFY(heard.failures.isEmpty());
        process.stop();
        QVERIFY(closedByHost(*first));
    }

    void applicationQueueOverflowFails() {
        NativePluginProcess process;
        Heard heard;
        heard.listen(process);
        const auto [port, token] = startReporting(process);
        const auto plugin = connectTo(port);
        QVERIFY(plugin);
        plugin->setReadBufferSize(1); // reads almost nothing from here on
        plugin->write((token + u'\n').toUtf8());
        // Once hello arrives, the connection is the plugin's.
        QVERIFY(plugin->waitForReadyRead(patience));
        StallMeter meter;
        // The queue is judged as a message is handed over: the one that would pass the limit is
        // refused there, with nothing queued, and the sender knows at once.
        QString refused;
        for (int i = 0; i < 400 && refused.isEmpty(); ++i) {
            try {
                process.send(::action(process, "fill", 60000));
            } catch (const ModuleProblem& problem) {
                refused = problem.message();
            }
            QCoreApplication::processEvents();
        }
        QCOMPARE(refused, QStringLiteral("Plugin input queue is unavailable or full."));
        QVERIFY(heard.failures.isEmpty());
        process.stop();
        qInfo("longest main-thread stall while the application queue filled: %lld ms", meter.longest());
    }
};

QTEST_GUILESS_MAIN(TestNativePluginProcess)
#include "tst_NativePluginProcess.moc"
