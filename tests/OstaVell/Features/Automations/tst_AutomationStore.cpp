// The automation store on a real router, with a provider that joins it as a peer and answers
// when the test says so: the gate of a run, the library's rules, event watching, shared runs,
// checkpoints, the utilities, and a run that can no longer be recorded.

#include "OstaVell/Features/Automations/AutomationStore.h"
#include "VellHost/Plugins/NativePluginSessions.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <csignal>

#include "WorkflowFixtures.h"

using namespace vell;
using namespace vell::test;

namespace {

using Operation = PluginBusMessage::Operation;
const QString automations = "local.ostavell.automations";

PluginBusMessage bus(Operation operation, const QUuid& id = QUuid::createUuid()) {
    PluginBusMessage message;
    message.operation = operation;
    message.requestID = id;
    return message;
}

// "cafe.osta": offers "send" and publishes on "ring"; answers each execute at once with
// outputs, or holds it while held is set.
struct Provider {
    NativePluginSessions& sessions;
    QList<PluginBusMessage> heard;
    bool held = false;
    PluginValueMap outputs{{"sent", PluginValue::boolean(true)}};

    void join(QList<PluginChannel> channels = {ringChannel()}) {
        PluginBusMessage registration = bus(Operation::register_);
        registration.registration = PluginRegistration{{sendAction()}, channels};
        if (sessions.router().participants().contains(plugin))
            return sessions.router().receive(registration, plugin, sessions.clock());
        sessions.joinLocal(
            plugin, "Cafe", "cafe-v1",
            [this](const PluginBusMessage& message) {
                heard.append(message);
                if (message.operation == Operation::execute && !held)
                    answer(message.requestID);
            },
            registration);
    }
    QList<PluginBusMessage> executes() const {
        QList<PluginBusMessage> result;
        for (const PluginBusMessage& message : heard)
            if (message.operation == Operation::execute)
                result.append(message);
        return result;
    }
    void answer(const QUuid& id) {
        PluginBusMessage update = bus(Operation::update, id);
        update.update =
            PluginRunUpdate{PluginRunPhase::succeeded, std::nullopt, "Sent.", outputs, std::nullopt};
        sessions.router().receive(update, plugin, sessions.clock());
    }
    void publish(const QUuid& id, const PluginValueMap& values) {
        PluginBusMessage event = bus(Operation::publish, id);
        event.address = PluginActionAddress{plugin, "ring"};
        event.values = values;
        sessions.router().receive(event, plugin, sessions.clock());
    }
};

PluginCatalogEntry sendEntry() {
    return {{plugin, "send"}, sendAction(), std::nullopt};
}

PluginCatalogEntry ringEntry() {
    return {{plugin, "ring"}, std::nullopt, ringChannel()};
}

WorkflowDocument titled(WorkflowDocument flow, const QString& title) {
    flow.id = QUuid::createUuid();
    flow.title = title;
    return flow;
}

// start -> send
WorkflowDocument sending(const QString& title = "Send once") {
    return titled(document({manual(), actionStep("send")}, {edge("start", "send")}), title);
}

// ring -> send
WorkflowDocument ringing(const QString& title = "On ring") {
    return titled(document({eventStart(), actionStep("send")}, {edge("start", "send")}), title);
}

// start -> check -> send
WorkflowDocument checked() {
    return titled(document({manual(), step("check", Kind::review, "Look first"), actionStep("send")},
                           {edge("start", "check"), edge("check", "send")}),
                  "Checked");
}

QByteArray contents(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Alive and not merely waiting to be reaped.
bool running(pid_t pid) {
    if (::kill(pid, 0) != 0)
        return false;
    const QByteArray stat = contents(QStringLiteral("/proc/%1/stat").arg(pid));
    const qsizetype name = stat.lastIndexOf(')');
    return name < 0 || stat.mid(name + 2, 1) != "Z";
}

} // namespace

class AutomationStoreTest final : public QObject {
    Q_OBJECT

    QTemporaryDir m_root;
    std::unique_ptr<NativePluginSessions> m_sessions;
    std::unique_ptr<Provider> m_provider;
    std::unique_ptr<AutomationStore> m_store;

    AutomationStore& store() { return *m_store; }
    Provider& provider() { return *m_provider; }
    ActionRouter& router() { return m_sessions->router(); }
    QString directory() const { return m_root.filePath("Automations"); }
    void allow(const PluginCatalogEntry& entry, const QString& caller = automations) {
        router().setAllowed(caller, entry, true);
    }
    // A run from the tab; refusals and outcomes land in the message.
    void start(const WorkflowDocument& flow, const QUuid& id = QUuid::createUuid(), bool simulate = false) {
        store().run(flow, simulate, {}, false, {}, id);
    }
    QUuid invoke(const QString& caller, const PluginActionAddress& address, const PluginValueMap& values) {
        PluginBusMessage message = bus(Operation::invoke);
        message.address = address;
        message.values = values;
        router().receive(message, caller, m_sessions->clock());
        return message.requestID;
    }
    // start -> one of the app's own utilities, as its catalogue entry offers it, allowed.
    WorkflowDocument utility(const QString& name, const QString& input, const QString& value) {
        WorkflowNode use = step("use", Kind::action, "Use it");
        use.data.address = PluginActionAddress{"local.ostavell.utilities", name};
        for (const PluginCatalogEntry& entry : router().exported())
            if (entry.address == *use.data.address)
                use.data.action = entry.action;
        use.data.arguments = {{input, literal(PluginValue::string(value))}};
        allow({*use.data.address, use.data.action, std::nullopt});
        return titled(document({manual(), use}, {edge("start", "use")}), name);
    }
    // A change of the app's state or outside it: it waits for a person like any other.
    void approveReview() {
        QTRY_VERIFY(store().actionReview());
        router().approve(store().actionReview()->id, m_sessions->clock());
    }

private slots:
    void init() {
        m_sessions = std::make_unique<NativePluginSessions>(std::nullopt);
        m_provider = std::make_unique<Provider>(
            Provider{*m_sessions, {}, false, {{"sent", PluginValue::boolean(true)}}});
        m_provider->join();
        m_store = std::make_unique<AutomationStore>(*m_sessions, directory());
        m_store->start();
    }
    void cleanup() {
        m_store.reset();
        m_provider.reset();
        m_sessions.reset();
        QDir(directory()).removeRecursively();
    }

    // Each test of the gate in its order, with the run that it leaves alone.
    void theGateOfARun() {
        const WorkflowDocument flow = sending();
        store().save(flow);
        start(flow);
        QCOMPARE(
            store().message(),
            "Allow Automations to use Send it in Settings \u2192 Modules \u2192 Actions and connections.");
        QVERIFY(store().history().isEmpty());

        allow(sendEntry());
        provider().held = true;
        const QUuid first = QUuid::createUuid();
        start(flow, first);
        QCOMPARE(store().message(), "Running Send once");
        QTRY_COMPARE(provider().executes().size(), 1);
        // On disk before the action was handed over.
        QVERIFY(contents(directory() + "/history-v1.json")
                    .contains("\"node\":\"send\",\"title\":\"Send it\",\"phase\":\"running\""));
        start(flow);
        QCOMPARE(store().message(), "A workflow is already running.");
        QCOMPARE(store().history().size(), 1);
        provider().answer(provider().executes().first().requestID);
        QTRY_VERIFY(!store().busy());
        QCOMPARE(store().message(), "Workflow completed");
        QCOMPARE(store().history().last().phase, "completed");
        QCOMPARE(store().results().value("send"), provider().outputs);

        start(flow, first);
        QCOMPARE(store().message(), "This run was already handled. Nothing was repeated.");
        start(document({manual(), manual("b")}));
        QCOMPARE(store().message(), "Use exactly one manual or event start.");
        start(ringing());
        QCOMPARE(store().message(), "Arm this event workflow, or simulate it with recorded inputs.");

        // The caller's own run in the router counts even while the store is idle.
        invoke(automations, {plugin, "send"}, {{"text", PluginValue::string("x")}});
        start(flow);
        QCOMPARE(store().message(), "A workflow is already running.");
        QCOMPARE(store().history().size(), 1);
        QCOMPARE(provider().executes().size(), 2);
    }

    // A simulation needs no grant, calls nothing, and is recorded like a run.
    void simulationTouchesNothing() {
        start(sending(), QUuid::createUuid(), true);
        QTRY_VERIFY(!store().busy());
        QCOMPARE(store().message(), "Simulation completed. No actions ran.");
        QVERIFY(provider().executes().isEmpty());
        QCOMPARE(store().history().last().phase, "simulated");
        // An event start with an empty event passes only if the channel's schema accepts it.
        start(ringing(), QUuid::createUuid(), true);
        QTRY_VERIFY(!store().busy());
        QCOMPARE(store().history().last().phase, "simulated");
    }

    void libraryRules() {
        QList<WorkflowDocument> flows;
        for (int i = 0; i < 32; ++i) {
            flows.append(sending(QStringLiteral("Flow %1").arg(i)));
            store().save(flows.last());
        }
        const QString limit = "This preview supports up to 32 shared manual workflows.";
        QCOMPARE(problemOf([&] { store().save(sending("One too many")); }), limit);
        store().save(flows.first());
        QCOMPARE(store().documents().last().id, flows.first().id);
        QCOMPARE(store().message(), "Saved Flow 0");
        QCOMPARE(problemOf([&] { store().save(titled(sending(), "")); }), "Invalid workflow size or title.");
        // The peer offers each one under an id that changes with the document.
        QStringList offered;
        for (const PluginCatalogEntry& entry : router().exported())
            if (entry.address.plugin == automations)
                offered.append(entry.address.name);
        QCOMPARE(offered.size(), 32);
        QVERIFY(offered.contains(AutomationStore::actionID(flows.first())));
        WorkflowDocument changed = flows.first();
        changed.title = "Changed";
        QVERIFY(AutomationStore::actionID(changed) != AutomationStore::actionID(flows.first()));
        QVERIFY(store().catalog().size() == router().exported().size() - 32);
    }

    void eventWorkflows() {
        const WorkflowDocument flow = ringing();
        store().save(flow);
        const QString choose =
            "Choose an event start and allow Automations to receive that event in Module settings.";
        QCOMPARE(problemOf([&] { store().setArmed(flow, true); }), choose);
        allow(ringEntry());
        allow(sendEntry());
        store().setArmed(flow, true);
        const WorkflowDocument twin = ringing("Twin");
        store().save(twin);
        QCOMPARE(problemOf([&] { store().setArmed(twin, true); }),
                 "This preview watches one workflow per event channel. Disarm the other workflow first.");

        const QUuid event = QUuid::createUuid();
        provider().publish(event, {{"caller", PluginValue::string("Ada")}});
        QTRY_COMPARE(store().history().size(), 1);
        QTRY_VERIFY(!store().busy());
        QCOMPARE(store().history().last().phase, "completed");
        provider().publish(event, {{"caller", PluginValue::string("Ada")}});
        QCoreApplication::processEvents();
        QCOMPARE(store().history().size(), 1); // a replayed event never runs again

        provider().held = true;
        provider().publish(QUuid::createUuid(), {});
        QTRY_COMPARE(provider().executes().size(), 2);
        provider().publish(QUuid::createUuid(), {});
        QCOMPARE(store().message(), "An event arrived during a run; it was not queued or replayed.");
        provider().answer(provider().executes().last().requestID);
        QTRY_VERIFY(!store().busy());
        QCOMPARE(store().history().size(), 2);

        // Saving disarms; a channel that goes away disarms with a sentence.
        store().save(flow);
        QVERIFY(store().armed().isEmpty());
        store().setArmed(flow, true);
        provider().join({});
        QTRY_COMPARE(store().message(), "Event watching stopped because a module or permission changed.");
        QVERIFY(store().armed().isEmpty());
    }

    // Another peer runs a workflow as an action: it waits for review like any change, sees the
    // steps as they go, and hears the end once.
    void sharedRuns() {
        const QString caller = "cafe.caller";
        PluginBusMessage registration = bus(Operation::register_);
        registration.registration = PluginRegistration{};
        m_sessions->joinLocal(
            caller, "Caller", "caller-v1", [](const PluginBusMessage&) {}, registration);
        const WorkflowDocument flow = sending();
        store().save(flow);
        allow(sendEntry());
        PluginCatalogEntry shared;
        for (const PluginCatalogEntry& entry : router().exported())
            if (entry.address.plugin == automations)
                shared = entry;
        allow(shared, caller);
        const QUuid id = invoke(caller, shared.address, {});
        QVERIFY(store().history().isEmpty()); // waiting for a person
        router().approve(id, m_sessions->clock());
        QTRY_VERIFY(!store().history().isEmpty() && !store().busy());
        QCOMPARE(store().history().last().id, id);
        const ActionRun run = *std::find_if(router().runs().cbegin(), router().runs().cend(),
                                            [&](const ActionRun& each) { return each.id == id; });
        QCOMPARE(run.phase(), PluginRunPhase::succeeded);
        QCOMPARE(run.update.display->totalSteps, 2);
        QCOMPARE(run.update.display->completedSteps, 2);
    }

    void checkpoints() {
        allow(sendEntry());
        const WorkflowDocument flow = checked();
        start(flow);
        QTRY_COMPARE(store().checkpoint(), "Look first");
        QCOMPARE(store().activeRun()->statusText(), "Needs review \u00B7 Look first");
        store().continueCheckpoint();
        QTRY_VERIFY(!store().busy());
        QCOMPARE(store().history().last().phase, "completed");
        QCOMPARE(provider().executes().size(), 1);

        // Unanswered, it stops the run; it never goes on by itself.
        store().timing.checkpointMilliseconds = 50;
        start(flow);
        QTRY_VERIFY(!store().busy());
        QCOMPARE(store().history().last().phase, "cancelled");
        QCOMPARE(store().message(), "Workflow stopped. Completed actions were not undone.");
        QCOMPARE(provider().executes().size(), 1);
    }

    // A history that can no longer be written stops the run before its next effect, and the
    // action in flight is asked to stop.
    void anUnrecordableRunStops() {
        allow(sendEntry());
        const WorkflowDocument flow = titled(document({manual(), actionStep("send"), actionStep("again")},
                                                      {edge("start", "send"), edge("send", "again")}),
                                             "Twice");
        provider().held = true;
        start(flow);
        QTRY_COMPARE(provider().executes().size(), 1);
        // A folder in the file's place: every atomic replacement of it fails, whoever we are.
        QVERIFY(QFile::remove(directory() + "/history-v1.json"));
        QVERIFY(QDir().mkdir(directory() + "/history-v1.json"));
        provider().answer(provider().executes().first().requestID);
        QTRY_VERIFY(!store().busy());
        QCOMPARE(provider().executes().size(), 1);
        QCOMPARE(store().history().last().phase, "cancelled");
        QCOMPARE(store().message(), "Workflow stopped. Completed actions were not undone.");
    }

    // A history that can't be read keeps the library, refuses every save and run, and stays.
    void unreadableHistory() {
        store().save(sending());
        m_store.reset();
        QFile history(directory() + "/history-v1.json");
        QVERIFY(history.open(QIODevice::WriteOnly));
        history.write("[{\"id\":");
        history.close();
        const QByteArray library = contents(directory() + "/workflows-v1.json");
        m_store = std::make_unique<AutomationStore>(*m_sessions, directory());
        const QString recovery = "Workflow storage needs recovery. The original files were kept.";
        QCOMPARE(store().documents().size(), 1);
        QVERIFY(store().history().isEmpty());
        QCOMPARE(store().message(), recovery);
        QCOMPARE(problemOf([&] { store().save(sending()); }), recovery);
        start(store().documents().first(), QUuid::createUuid(), true);
        QCOMPARE(store().message(), recovery);
        QVERIFY(!store().busy());
        QCOMPARE(contents(directory() + "/history-v1.json"), "[{\"id\":");
        QCOMPARE(contents(directory() + "/workflows-v1.json"), library);
    }

    void noticeUtility() {
        start(utility("notice", "message", "<img src=x> done"));
        approveReview();
        QTRY_VERIFY(!store().busy());
        QCOMPARE(store().notice(), "<img src=x> done");
        QCOMPARE(store().history().last().phase, "completed");
    }

    // The Shortcut action runs the real ostavell-shortcuts on a private shortcuts folder: a
    // change outside the app, so it waits for a person, and only an exit status of 0 completes.
    // One that ignores the request to stop is killed, with what it started, once its time is up.
    void shortcutUtility_data() {
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<bool>("timesOut");
        QTest::addColumn<QString>("phase");
        QTest::addColumn<QString>("detail");
        const QString stopped = "Shortcut stopped or failed; previous effects may remain.";
        const QString completed = "completed";
        const QString failed = "failed";
        QTest::addRow("exits 0") << QByteArray("exit 0") << false << completed << QString();
        QTest::addRow("exits 3") << QByteArray("exit 3") << false << failed << stopped;
        QTest::addRow("no such shortcut") << QByteArray() << false << failed << stopped;
        QTest::addRow("ignores SIGTERM")
            << QByteArray("trap '' TERM\nsleep 30 &\necho $! >> \"$0.pids\"\nwait") << true << failed
            << stopped;
        QTest::addRow("cannot start")
            << QByteArray("exit 0") << false << failed << QString("The Shortcut could not start.");
    }
    void shortcutUtility() {
        QFETCH(QByteArray, script);
        QFETCH(bool, timesOut);
        QFETCH(QString, phase);
        QFETCH(QString, detail);
        // The watch on the shortcut's end must go before its process descriptor does.
        QTest::failOnWarning(QRegularExpression("QSocketNotifier"));
        // The store hands its own environment to the command, which finds the folder through it.
        const QString data = m_root.filePath("data");
        qputenv("XDG_DATA_HOME", QFile::encodeName(data));
        const QString folder = data + "/OstaVell/Shortcuts";
        QVERIFY(QDir().mkpath(folder));
        const QString path = folder + "/Tidy up";
        QFile::remove(path);
        QFile::remove(path + ".pids");
        if (!script.isEmpty()) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write("#!/bin/sh\necho $$ > \"$0.pids\"\n" + script + '\n');
            file.close();
            QVERIFY(file.setPermissions(file.permissions() | QFileDevice::ExeOwner));
        }
        store().shortcutsProgram = qEnvironmentVariable("VELL_BUILD_DIR") + "/bin/ostavell-shortcuts";
        // Without the command, nothing of the shortcut runs.
        const bool commandMissing = detail == u"The Shortcut could not start.";
        if (commandMissing)
            store().shortcutsProgram = m_root.filePath("absent/ostavell-shortcuts");
        if (timesOut) {
            store().timing.shortcutMilliseconds = 200;
            store().timing.killGraceMilliseconds = 200;
        }

        start(utility("shortcut", "name", "Tidy up"));
        approveReview();
        QTRY_VERIFY_WITH_TIMEOUT(!store().busy(), 20000);
        QCOMPARE(store().history().last().phase, phase);
        QCOMPARE(store().history().last().detail.value_or(QString()), detail);

        // Whatever the shortcut started is gone with it: the shortcut itself reaped, a process
        // it left behind at most a zombie of whoever adopted it.
        const QList<QByteArray> pids = contents(path + ".pids").split('\n');
        QCOMPARE(pids.size() > 1, !script.isEmpty() && !commandMissing);
        if (pids.size() > 1) {
            QCOMPARE(::kill(pids.first().toInt(), 0), -1);
            QCOMPARE(errno, ESRCH);
        }
        for (const QByteArray& pid : pids.mid(1))
            if (!pid.isEmpty())
                QTRY_VERIFY(!running(pid.toInt()));
    }
};

QTEST_GUILESS_MAIN(AutomationStoreTest)
#include "tst_AutomationStore.moc"
