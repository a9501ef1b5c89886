// Real plugin processes, from real signed bundles, that break the protocol one way each, while a
// well-behaved plugin runs beside them in the same sessions. Every row checks the exact status
// line a fault leaves, what got through before it, that nothing of an ended session is left
// and that its process is gone, and that the neighbour still answers a press.
//
// The clock is the test's own and only moves when a row moves it, so the silence watch, the
// frame interval and the presentation gate are tested at their edges without waiting.

#include "VellHost/NativePluginBundle.h"
#include "VellHost/Plugins/NativePluginSessions.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Protocol/PluginCapabilities.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <functional>

#include "HostileScript.h"

using namespace vell;
using namespace vell::hostile;

namespace {

constexpr int patience = 20000;

const QString running = QStringLiteral("Running");
const QString mismatch = QStringLiteral("Plugin identity or session mismatch.");
const QString handshake = QStringLiteral("Plugin handshake failed.");
const QString repeated = QStringLiteral("Invalid or repeated plugin message.");
const QString invalidData = QStringLiteral("Plugin sent invalid data.");
const QString stopped = QStringLiteral("Plugin stopped. Restart it when ready.");
const QString silent = QStringLiteral("Plugin stopped responding. Restart it when ready.");
const QByteArray otherSession = "6F9619FF-8B86-D011-B42D-00C04FC964FF";

QString buildPath(const QString& relative) {
    return qEnvironmentVariable("VELL_BUILD_DIR") + u'/' + relative;
}

bool processGone(qint64 pid) {
    return !QFileInfo::exists(QStringLiteral("/proc/%1").arg(pid));
}

// The file the hostile plugin leaves behind for a note of this name.
QString notePath(const char* name, qint64 pid) {
    return QDir::tempPath() + QStringLiteral("/ostavell-hostile-%1-%2").arg(QLatin1String(name)).arg(pid);
}

} // namespace

// What the test saw of the hostile plugin of the current row, the router's refusals sent to it
// by their words.
struct Seen {
    QString watched;
    qint64 pid = 0;
    QStringList shown;
    std::optional<PluginSnapshot> lastShown;
    int heard = 0;
    QMap<QString, int> busFailures;
    int presented = 0;
    QList<PluginTransientCaption> captions;
    int captionsHidden = 0;
};

// What a row may do and look at while its plugin runs.
struct Harness : Seen {
    NativePluginSessions* sessions = nullptr;
    // The only clock the sessions have.
    double now = 0;
    // The well-behaved neighbour.
    QString dice;
    int diceAnswers = 0;
    std::optional<PluginSnapshot> diceSnapshot;

    void watch(const QString& id) {
        static_cast<Seen&>(*this) = {};
        watched = id;
    }
    QString status() const { return sessions->status().value(watched); }
    QSize frameSize() const { return sessions->frames().value(watched).size; }

    // Each snapshot the watched plugin got accepted, by its status line.
    void noteShown() {
        const auto found = sessions->snapshots().constFind(watched);
        if (found == sessions->snapshots().cend() || (lastShown && *lastShown == *found))
            return;
        lastShown = *found;
        shown.append(found->status);
    }

    void noteTold(const PluginMessage& message) {
        if (message.bus && message.bus->operation == PluginBusMessage::Operation::failure)
            ++busFailures[message.bus->error.value_or(QString())];
    }

    bool waitShown(const QString& status) {
        return QTest::qWaitFor([&] { return shown.contains(status) || !sessions->hasWorker(watched); },
                               patience) &&
               shown.contains(status);
    }

    // Fills the host's queue to the watched plugin with large messages until one more finds no
    // room; what is left is less than one of them.
    void fillQueue() {
        PluginMessage bulk = PluginMessage::make(QStringLiteral("action"), watched, {});
        bulk.action = QString(PluginMessage::maximumEncodedBytes - 1024, u'x');
        while (sessions->sendHostMessage(watched, bulk)) {
        }
    }

    bool noted(const char* name) const { return QFileInfo::exists(notePath(name, pid)); }

    // The settings entry is always sent to a running plugin: the nudge a script waits for.
    void nudge() { sessions->action(watched, QStringLiteral("configure")); }
    void present(bool visible) { sessions->setPresented(watched, QStringLiteral("screen-1"), visible); }

    bool pressDice() {
        const int before = diceAnswers;
        sessions->action(dice, QStringLiteral("roll"));
        return QTest::qWaitFor(
            [&] { return diceAnswers > before && sessions->snapshots().value(dice) == diceSnapshot; },
            patience);
    }

    // A health check right after the neighbour spoke, so that only the watched plugin can be
    // silent.
    bool checkHealth() {
        if (!pressDice())
            return false;
        sessions->checkHealth();
        return true;
    }
};

using Script = QByteArrayList;
using Drive = std::function<void(Harness&)>;
Q_DECLARE_METATYPE(Drive)

namespace {

void row(const char* name, const Script& script, const QString& status, const QStringList& shown = {},
         const Drive& drive = {}) {
    QTest::newRow(name) << script << status << shown << drive;
}

} // namespace

class TestHostilePlugins final : public QObject {
    Q_OBJECT

    QTemporaryDir m_folder;
    QString m_key;
    std::unique_ptr<NativePluginSessions> m_sessions;
    Harness m_harness;
    int m_rows = 0;

    // A signed bundle of the hostile plugin with its script inside.
    QString makeBundle(const QString& id, const Script& script) {
        const QString root = m_folder.filePath(id + QStringLiteral(".app"));
        placeHostile(root, script);
        writeFile(root + QStringLiteral("/Contents/Info.plist"),
                  "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>\n"
                  "<key>CFBundleIdentifier</key><string>" +
                      id.toUtf8() +
                      "</string>\n<key>CFBundleExecutable</key><string>hostile</string>\n</dict></plist>\n");
        writeFile(
            root + QStringLiteral("/Contents/Resources/VellPlugin.json"),
            R"({"id":")" + id.toUtf8() +
                R"(","name":"Hostile","version":"1.0.0","apiVersion":1,"summary":"Misbehaves on purpose.",)"
                R"("capabilities":["Misbehaves"]})");
        NativePluginBundle::sign(root, m_key);
        return root;
    }

    void launch(const QString& bundle) {
        const NativePluginInspection inspection = NativePluginBundle::inspect(bundle);
        NativePluginRecord record;
        record.manifest = inspection.manifest;
        record.folder = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
        record.fingerprint = inspection.fingerprint;
        m_sessions->launch(record, inspection.root);
    }

    // Nothing of an ended session is left behind.
    void verifyWiped(const QString& id) {
        QVERIFY(!m_sessions->hasWorker(id));
        QVERIFY(!m_sessions->ready().contains(id));
        QVERIFY(!m_sessions->snapshots().contains(id));
        QVERIFY(!m_sessions->frames().contains(id));
        QVERIFY(m_sessions->features(id).isEmpty());
        QVERIFY(!m_sessions->agendas().contains(id));
        QVERIFY(!m_sessions->router().participants().contains(id));
        QCOMPARE(m_sessions->processID(id), 0);
    }

    // The rows, by what they break. Some need the clock or the shown day as the run has them.
    void gateRows();
    void streamRows();
    void snapshotRows();
    void capabilityRows();
    void frameRows();
    void rateRows();
    void lifeRows();

private slots:
    void initTestCase() {
        QVERIFY(m_folder.isValid());
        m_key = m_folder.filePath(QStringLiteral("signing-key"));
        QCOMPARE(QProcess::execute(QStringLiteral("/usr/bin/ssh-keygen"),
                                   {"-t", "ed25519", "-N", "", "-q", "-C", "hostile", "-f", m_key}),
                 0);
        m_sessions = std::make_unique<NativePluginSessions>(std::nullopt);
        Harness& h = m_harness;
        h.sessions = m_sessions.get();
        // Whole seconds, so that every step a row takes lands exactly where it says.
        h.now = std::floor(NativePluginSessions::currentTime());
        m_sessions->clock = [&h] { return h.now; };
        m_sessions->trace = [&h](const QString& id, bool fromPlugin, const PluginMessage& message) {
            if (id == h.dice && fromPlugin && message.type == u"snapshot") {
                ++h.diceAnswers;
                h.diceSnapshot = message.snapshot;
            }
            if (id == h.watched)
                fromPlugin ? void(++h.heard) : h.noteTold(message);
        };
        m_sessions->presentPlugin = [&h](const QString& id) { h.presented += id == h.watched; };
        m_sessions->presentCaption = [&h](const QString& id, const PluginTransientCaption& caption) {
            if (id == h.watched)
                h.captions.append(caption);
        };
        m_sessions->hideCaption = [&h](const QString& id) { h.captionsHidden += id == h.watched; };
        connect(m_sessions.get(), &NativePluginSessions::snapshotsChanged, this, [&h] { h.noteShown(); });

        const QString dice = m_folder.filePath(QStringLiteral("Dice.app"));
        QCOMPARE(
            QProcess::execute("cp", {"-a", buildPath(QStringLiteral("examples/plugins/Dice.app")), dice}), 0);
        h.dice = QStringLiteral("app.ostavell.example.dice");
        launch(dice);
        QTRY_VERIFY_WITH_TIMEOUT(h.diceSnapshot.has_value(), patience);
        QCOMPARE(m_sessions->status().value(h.dice), running);
    }

    void cleanup() {
        // A failed row leaves nothing running into the next one, and no row leaves a note.
        m_harness.present(false);
        for (const char* name : {"heard", "term"})
            QFile::remove(notePath(name, m_harness.pid));
        if (m_sessions->hasWorker(m_harness.watched))
            m_sessions->stopWorker(m_harness.watched);
    }

    void cleanupTestCase() { m_sessions.reset(); }

    void faults_data() {
        QTest::addColumn<Script>("script");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QStringList>("shown");
        QTest::addColumn<Drive>("drive");
        gateRows();
        streamRows();
        snapshotRows();
        capabilityRows();
        frameRows();
        rateRows();
        lifeRows();
    }

    // One plugin, one fault: the status line it ends with ("Running" when the session must go
    // on), the snapshots that got through on the way, and the neighbour unharmed after it.
    void faults() {
        QFETCH(Script, script);
        QFETCH(QString, status);
        QFETCH(QStringList, shown);
        QFETCH(Drive, drive);
        Harness& h = m_harness;
        const QString id = QStringLiteral("test.hostile.r%1").arg(++m_rows);
        h.watch(id);
        launch(makeBundle(id, script));
        h.pid = m_sessions->processID(id);
        QVERIFY2(h.pid > 0, qPrintable(h.status()));

        // A plugin that waits to be seen is looked at.
        if (script.contains(waitVisible()))
            h.present(true);
        if (drive) {
            drive(h);
            if (QTest::currentTestFailed())
                return;
        }
        if (status == running)
            QVERIFY(QTest::qWaitFor(
                [&] { return h.shown.size() >= shown.size() || !m_sessions->hasWorker(id); }, patience));
        QTRY_COMPARE_WITH_TIMEOUT(h.status(), status, patience);
        QCOMPARE(h.shown, shown);
        if (status == running)
            m_sessions->stopWorker(id);
        verifyWiped(id);
        if (QTest::currentTestFailed())
            return;
        QTRY_VERIFY_WITH_TIMEOUT(processGone(h.pid), patience);

        QCOMPARE(m_sessions->status().value(h.dice), running);
        QVERIFY(h.pressDice());
    }
};

void TestHostilePlugins::gateRows() {
    row("wrong pluginID", {send(wire("ready", {}, "0", "test.someone.else"))}, mismatch);
    row("wrong session in ready", {send(wire("ready", {}, "0", "$PLUGIN", otherSession))}, mismatch);
    row("wrong session after ready",
        {ready(), snapshot("one"), send(wire("heartbeat", {}, "$SEQ", "$PLUGIN", otherSession))}, mismatch,
        {"one"});
    // The framer refuses another interface before the gate sees the message.
    row("apiVersion 2", {send(wire("ready", {}, "0").replace(R"("apiVersion":1)", R"("apiVersion":2)"))},
        invalidData);
    row("heartbeat before ready", {send(wire("heartbeat", {}, "1"))}, handshake);
    row("snapshot before ready", {snapshot("early", {}, "0")}, handshake);
    row("ready with sequence 1", {send(wire("ready", {}, "1"))}, handshake);
    row("second ready", {ready(), snapshot("one"), ready()}, repeated, {"one"});
    row("gaps pass, a repeated sequence ends",
        {ready(), snapshot("one", {}, "1"), snapshot("five", {}, "5"), snapshot("six", {}, "6"),
         send(wire("heartbeat", {}, "6"))},
        repeated, {"one", "five", "six"});
    row("sequence going back", {ready(), snapshot("three", {}, "3"), send(wire("heartbeat", {}, "2"))},
        repeated, {"three"});
    row("host-only type hello", {ready(), send(wire("hello", R"("features":[])"))}, repeated);
    row("host-only type action", {ready(), send(wire("action", R"("action":"configure")"))}, repeated);
    row("host-only type visibility", {ready(), send(wire("visibility", R"("visible":true)"))}, repeated);
    row("host-only type agendaRequest", {ready(), send(wire("agendaRequest", R"("agendaDate":0)"))},
        repeated);
    row("unknown type", {ready(), send(wire("shout"))}, repeated);
}

void TestHostilePlugins::streamRows() {
    row("line of exactly the limit",
        {ready(), sendPadded(wire("heartbeat", R"("action":"$PAD")"), 131072), snapshot("done")}, running,
        {"done"});
    row("line one byte over the limit",
        {ready(), sendPadded(wire("heartbeat", R"("action":"$PAD")"), 131073)}, invalidData);
    row("malformed JSON", {ready(), send(R"({"apiVersion":1,"type":)")}, invalidData);
    row("empty line", {ready(), send("")}, invalidData);
    row("unterminated rest over the limit", {ready(), sendPadded("$PAD", 131073, false)}, invalidData);
    row("line without newline at exit",
        {ready(), snapshot("one"),
         sendPadded(wire("snapshot", R"("snapshot":)" + displayData("lost")), 0, false), exitWith(0)},
        stopped, {"one"});
    // Far more than the transport holds undelivered: it pauses reading, and nothing is lost.
    row("flood past the undelivered bound", {ready(), send(wire("heartbeat"), 6000), snapshot("done")},
        running, {"done"}, [](Harness& h) {
            QVERIFY(h.waitShown("done"));
            QCOMPARE(h.heard, 1 + 6000 + 1);
        });
    // What it wrote before it ended is read first, and it is at fault.
    row("garbage, then exit", {ready(), send("garbage"), exitWith(0)}, invalidData);
    row("garbage after a flood",
        {ready(), send(wire("heartbeat"), 6000), snapshot("flooded"), waitFor("action"), send("garbage")},
        invalidData, {"flooded"}, [](Harness& h) {
            QVERIFY(h.waitShown("flooded"));
            h.nudge();
        });
}

void TestHostilePlugins::snapshotRows() {
    // Which snapshots fail is the records' own test; here, that a failure ends the session and
    // the last good snapshot was the one shown.
    row("snapshot without display data", {ready(), send(wire("snapshot"))},
        "Plugin display data is missing.");
    row("snapshot progress past 100",
        {ready(), snapshot("full", R"(,"progress":100)"), snapshot("over", R"(,"progress":100.5)")},
        "Invalid plugin display data.", {"full"});
}

void TestHostilePlugins::capabilityRows() {
    const QStringList sixteen = PluginCapabilities::offered().mid(0, 16);
    QStringList seventeenth = sixteen;
    seventeenth.append(QStringLiteral("transient-caption-v1"));
    const double day = m_sessions->agendaDate();
    row("bus without actions-v1", {ready(), send(wire("bus", discover))},
        "Action capability was not negotiated.");
    row("bus without its payload", {ready({"actions-v1"}), send(wire("bus"))},
        "Action capability was not negotiated.");
    row("present without presentation-v1", {ready(), send(wire("present"))},
        "Presentation capability was not negotiated.");
    row("caption without transient-caption-v1", {ready(), send(wire("caption", caption))},
        "Transient captions were not negotiated.");
    row("caption as the 17th feature", {ready(seventeenth), send(wire("caption", caption))},
        "Transient captions were not negotiated.");
    row("repeated features count toward the 16",
        {ready(QStringList(16, QStringLiteral("dashboard-v1")) << QStringLiteral("transient-caption-v1")),
         send(wire("caption", caption))},
        "Transient captions were not negotiated.");
    row("invalid caption",
        {ready({"transient-caption-v1"}), send(wire("caption", caption)), snapshot("shown"),
         send(wire("caption", QByteArray(caption).replace(R"("title":"Hi")", R"("title":"")")))},
        "Invalid transient caption.", {"shown"}, [](Harness& h) {
            QTRY_COMPARE_WITH_TIMEOUT(h.status(), "Invalid transient caption.", patience);
            QCOMPARE(h.captions.size(), 1);
            // The caption it put up goes with it.
            QVERIFY(h.captionsHidden > 0);
        });
    row("agenda without agenda-v1", {ready(), send(wire("agenda", agenda(day, m_harness.now)))},
        "Agenda capability was not negotiated.");
    row("volumeResult without volume-v1",
        {ready(), send(wire("volumeResult", R"("volumeResult":{"requestID":")" + otherSession +
                                                R"(","endpointID":"spk","error":"No."})"))},
        "Volume capability was not negotiated.");
    row("invalid volumeResult",
        {ready({"volume-v1"}), send(wire("volumeResult", R"("volumeResult":{"requestID":")" + otherSession +
                                                             R"(","endpointID":"spk","error":")" +
                                                             QByteArray(501, 'x') + R"("})"))},
        "Invalid volume result.");
    row("viewResourceResult without view-resources-v1",
        {ready(), send(wire("viewResourceResult",
                            R"("viewResourceResult":{"id":")" + otherSession + R"(","error":"Gone."})"))},
        "View resources were not negotiated.");
    row("forms without forms-v1", {ready({"actions-v1"}), snapshot("forms", panel(forms))},
        "Form capability was not negotiated.");
    row("forms without actions-v1", {ready({"forms-v1"}), snapshot("forms", panel(forms))},
        "Form capability was not negotiated.");
    row("forms with both", {ready({"forms-v1", "actions-v1"}), snapshot("forms", panel(forms))}, running,
        {"forms"});
    row("collection without collections-v1", {ready(), snapshot("list", panel(collection))},
        "Collection capability was not negotiated.");
    row("custom view without custom-views-v1", {ready(), snapshot("view", panel(customView()))},
        "Custom view capability was not negotiated.");
    const QByteArray local = R"(,"frames":[{"url":"vell-view://surface/inner.html"}])";
    const QByteArray remote = R"(,"frames":[{"url":"https://example.com/a"}])";
    row("custom view frames without isolated-frames-v1",
        {ready({"custom-views-v1"}), snapshot("plain", panel(customView())),
         snapshot("framed", panel(customView(local)))},
        "Embedded documents were not negotiated.", {"plain"});
    row("https frame without https-frames-v1",
        {ready({"custom-views-v1", "isolated-frames-v1"}), snapshot("local", panel(customView(local))),
         snapshot("remote", panel(customView(remote)))},
        "HTTPS documents were not negotiated.", {"local"});
    row("resource namespaces without view-resources-v1",
        {ready({"custom-views-v1"}),
         snapshot("assets", panel(customView(R"(,"resourceNamespaces":["assets"])")))},
        "View resources were not negotiated.");
    row("volume endpoints without volume-v1", {ready(), snapshot("volume", volumeEndpoints)},
        "Volume capability was not negotiated.");
    row("volume endpoints with volume-v1", {ready({"volume-v1"}), snapshot("volume", volumeEndpoints)},
        running, {"volume"});
    row("frame without inline-media-v1", {ready(), send(frame(jpeg(8, 8)))}, "Invalid media frame.");
    row("frame without its payload", {ready({"inline-media-v1"}), send(wire("frame"))},
        "Invalid media frame.");
    row("long-running action without its capability",
        {ready({"actions-v1"}), send(wire("bus", registration(true)))},
        "Long-running action capability was not negotiated.");
    row("long-running action with its capability",
        {ready({"actions-v1", "actions-long-running-v1"}), send(wire("bus", registration(true))),
         snapshot("done")},
        running, {"done"}, [](Harness& h) {
            QVERIFY(h.waitShown("done"));
            const QList<PluginCatalogEntry> catalog = h.sessions->router().exported();
            QVERIFY(std::any_of(catalog.cbegin(), catalog.cend(), [&](const PluginCatalogEntry& entry) {
                return entry.address.plugin == h.watched && entry.action &&
                       entry.action->completionTimeoutSeconds;
            }));
        });
}

void TestHostilePlugins::frameRows() {
    const QStringList media{QStringLiteral("inline-media-v1")};
    // The size is refused before anything else, even with nobody looking.
    row("frame of 65537 bytes", {ready(media), send(frame(jpeg(64, 64, 65537)))}, "Invalid media frame.");
    row("frame of 65536 bytes",
        {ready(media), waitVisible(), send(frame(jpeg(64, 64, 65536))), snapshot("done")}, running, {"done"},
        [](Harness& h) {
            QVERIFY(h.waitShown("done"));
            QCOMPARE(h.sessions->frames().value(h.watched).jpeg.size(), 65536);
            QCOMPARE(h.frameSize(), QSize(64, 64));
        });
    row("PNG as a frame", {ready(media), waitVisible(), send(frame(png))}, "Invalid media image.");
    row("largest picture, then one pixel wider",
        {ready(media), waitVisible(), send(frame(jpeg(1280, 720))), snapshot("first"), waitFor("action"),
         send(frame(jpeg(1281, 720)))},
        "Invalid media image.", {"first"}, [](Harness& h) {
            QVERIFY(h.waitShown("first"));
            QCOMPARE(h.frameSize(), QSize(1280, 720));
            h.now += 1;
            h.nudge();
        });
    row("one pixel taller", {ready(media), waitVisible(), send(frame(jpeg(1280, 721)))},
        "Invalid media image.");
    row("no pixels wide", {ready(media), waitVisible(), send(frame(jpeg(0, 10)))}, "Invalid media image.");
    // Not decoded at all while nobody looks: a PNG is no error then.
    row("frame while nobody looks", {ready(media), send(frame(png)), snapshot("done")}, running, {"done"},
        [](Harness& h) {
            QVERIFY(h.waitShown("done"));
            QVERIFY(!h.sessions->frames().contains(h.watched));
        });
    row("frames faster than 0.12 s",
        {ready(media), waitVisible(), send(frame(jpeg(2, 2))), snapshot("a"), waitFor("action"),
         send(frame(jpeg(3, 3))), snapshot("b"), waitFor("action"), send(frame(jpeg(4, 4))), snapshot("c")},
        running, {"a", "b", "c"}, [](Harness& h) {
            QVERIFY(h.waitShown("a"));
            QCOMPARE(h.frameSize(), QSize(2, 2));
            h.now += 0.0625;
            h.nudge();
            QVERIFY(h.waitShown("b"));
            QCOMPARE(h.frameSize(), QSize(2, 2));
            h.now += 0.0625;
            h.nudge();
            QVERIFY(h.waitShown("c"));
            QCOMPARE(h.frameSize(), QSize(4, 4));
        });
    row("stalled stream", {ready(media), waitVisible(), send(frame(jpeg(8, 8))), snapshot("done")}, running,
        {"done"}, [](Harness& h) {
            QVERIFY(h.waitShown("done"));
            h.now += NativePluginSessions::staleFrameSeconds;
            QVERIFY(h.checkHealth());
            QVERIFY(h.sessions->frames().contains(h.watched));
            h.now += 0.125;
            QVERIFY(h.checkHealth());
            QVERIFY(!h.sessions->frames().contains(h.watched));
        });
    // Dropped by time before any decoding: the PNGs would each end the session otherwise.
    row("flood of frames",
        {ready(media), waitVisible(), send(frame(jpeg(8, 8))), send(frame(png), 300), snapshot("done")},
        running, {"done"}, [](Harness& h) {
            QVERIFY(h.waitShown("done"));
            QCOMPARE(h.frameSize(), QSize(8, 8));
        });
}

void TestHostilePlugins::rateRows() {
    const QStringList presentation{QStringLiteral("presentation-v1")};
    const auto present = [](const QByteArray& status) {
        return send(wire("present", R"("snapshot":)" + displayData(status)));
    };
    row("present twice in a second",
        {ready(presentation), present("first"), present("second"), snapshot("done1"), waitFor("action"),
         present("third"), snapshot("done2")},
        running, {"done1", "done2"}, [](Harness& h) {
            QVERIFY(h.waitShown("done1"));
            QCOMPARE(h.presented, 1);
            h.now += 1;
            h.nudge();
            QVERIFY(h.waitShown("done2"));
            QCOMPARE(h.presented, 2);
        });
    row("present with nothing new",
        {ready(presentation), snapshot("same"), present("same"), snapshot("done")}, running, {"same", "done"},
        [](Harness& h) {
            QVERIFY(h.waitShown("done"));
            QCOMPARE(h.presented, 0);
        });
    // The router refuses what passes its rate, one failure each; the session is not at fault.
    row("bus flood", {ready({"actions-v1"}), send(wire("bus", discover), 100), snapshot("done")}, running,
        {"done"}, [](Harness& h) {
            QVERIFY(h.waitShown("done"));
            QCOMPARE(h.busFailures.value("Action message rate exceeded."),
                     100 - ActionRouter::maximumMessagesPerWindow);
        });
    const double shownDay = m_sessions->agendaDate();
    const double otherDay = shownDay + 3 * 86400;
    const double now = m_harness.now;
    row("agenda for a day nobody shows",
        {ready({"agenda-v1"}), waitFor("agendaRequest"), send(wire("agenda", agenda(otherDay, now), "5")),
         snapshot("after", {}, "5"), send(wire("agenda", agenda(shownDay, now), "6")),
         snapshot("done", {}, "7")},
        running, {"after", "done"}, [shownDay](Harness& h) {
            QVERIFY(h.waitShown("done"));
            QCOMPARE(h.sessions->agendas().value(h.watched).keys(), QList<double>{shownDay});
        });
    // Kept while it is good, dropped by the health check from the instant it expires; the plugin
    // speaks after each step of the clock, so that only the agenda can be stale.
    const double expiry = now + 300;
    row("agenda past its expiry",
        {ready({"agenda-v1"}), waitFor("agendaRequest"), send(wire("agenda", agenda(shownDay, now, 300))),
         snapshot("done"), waitFor("action"), snapshot("before"), waitFor("action"), snapshot("at")},
        running, {"done", "before", "at"}, [expiry](Harness& h) {
            QVERIFY(h.waitShown("done"));
            QVERIFY(h.now <= expiry - 0.125);
            h.now = expiry - 0.125;
            h.nudge();
            QVERIFY(h.waitShown("before"));
            QVERIFY(h.checkHealth());
            QCOMPARE(h.sessions->agendas().value(h.watched).size(), 1);
            h.now = expiry;
            h.nudge();
            QVERIFY(h.waitShown("at"));
            QVERIFY(h.checkHealth());
            QVERIFY(h.sessions->agendas().value(h.watched).isEmpty());
        });
    // Good for ten minutes at most; the clock stands where the row puts it when the answers come.
    const double later = now + 1000;
    row("agenda good for too long",
        {ready({"agenda-v1"}), waitFor("action"), send(wire("agenda", agenda(shownDay, later, 600))),
         snapshot("kept"), send(wire("agenda", agenda(shownDay, later, 600.125)))},
        "Invalid agenda contribution.", {"kept"}, [later](Harness& h) {
            QTRY_COMPARE_WITH_TIMEOUT(h.status(), running, patience);
            QVERIFY(h.now <= later);
            h.now = later;
            h.nudge();
        });
}

void TestHostilePlugins::lifeRows() {
    row("never says ready", {idle}, silent, {}, [](Harness& h) {
        QCOMPARE(h.status(), NativePluginSessions::startingStatus.toString());
        h.now += NativePluginSessions::silenceSeconds;
        QVERIFY(h.checkHealth());
        QVERIFY(h.sessions->hasWorker(h.watched));
        h.now += 0.125;
        QVERIFY(h.checkHealth());
    });
    row("silent after ready", {ready(), snapshot("one")}, silent, {"one"}, [](Harness& h) {
        QVERIFY(h.waitShown("one"));
        h.now += NativePluginSessions::silenceSeconds;
        QVERIFY(h.checkHealth());
        QCOMPARE(h.status(), running);
        h.now += 0.125;
        QVERIFY(h.checkHealth());
    });
    // A closed output is no end by itself; the silence watch finds the plugin.
    row("closes its output and lives on",
        {ready(), snapshot("one"), closeOutput, waitFor("action"), note("heard")}, silent, {"one"},
        [](Harness& h) {
            QVERIFY(h.waitShown("one"));
            h.nudge();
            QTRY_VERIFY_WITH_TIMEOUT(h.noted("heard"), patience);
            QCOMPARE(h.status(), running);
            h.now += NativePluginSessions::silenceSeconds + 0.125;
            QVERIFY(h.checkHealth());
        });
    // A plugin that never reads: once the host's queue to it is all but full, the next send
    // that finds no room ends the session.
    row("deaf to presses", {ready(), snapshot("deaf")},
        "Plugin connection ended. The action was not retried.", {"deaf"}, [](Harness& h) {
            QVERIFY(h.waitShown("deaf"));
            h.fillQueue();
            for (int press = 0; press < 100000 && h.sessions->hasWorker(h.watched); ++press)
                h.nudge();
        });
    row("deaf to its own bus failures",
        {ready({"actions-v1"}), waitFor("action"), send(wire("bus", discover), 1000)},
        "Action connection ended; nothing was retried.", {}, [](Harness& h) {
            QTRY_COMPARE_WITH_TIMEOUT(h.status(), running, patience);
            h.nudge();
            h.fillQueue();
        });
    row("exits after ready", {ready(), snapshot("one"), exitWith(0)}, stopped, {"one"});
    row("exits before ready", {exitWith(3)}, stopped);
    // Ended by a fault, it shrugs off SIGTERM and is killed.
    row("ignores SIGTERM", {ignoreTerm, ready(), snapshot("one"), send(wire("hello"))}, repeated, {"one"},
        [](Harness& h) {
            QTRY_COMPARE_WITH_TIMEOUT(h.status(), repeated, patience);
            QTRY_VERIFY_WITH_TIMEOUT(h.noted("term"), patience);
        });
}

QTEST_GUILESS_MAIN(TestHostilePlugins)
#include "tst_HostilePlugins.moc"
