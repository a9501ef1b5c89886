// The promise under faults: the app killed with SIGKILL at random moments of 200 runs of a
// workflow whose two actions the real Dice plugin performs. After every kill the history loads,
// a cut-short run is marked interrupted before anything else happens and never changes again,
// no action ran twice, and no action of an earlier run ever ran after the restart. Dice counts
// what it ran in a log of its own, written before it acts.

#include "OstaVell/Features/Automations/AutomationStore.h"
#include "OstaVell/Modules/Plugins/NativePluginStore.h"
#include "VellPluginSDK/Json/JsonReader.h"

#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <cstdio>

#include "DiceLog.h"

using namespace vell;
using namespace vell::test;

namespace {

using Kind = WorkflowNode::Configuration::Kind;
const QString& dice = diceID;
const QString automations = "local.ostavell.automations";

QString folder(const QString& root, const char* name) {
    return root + u'/' + QLatin1String(name);
}

// Dice's read-only "roll", once Dice offers it.
std::optional<PluginCatalogEntry> roll(NativePluginStore& plugins) {
    for (const PluginCatalogEntry& entry : plugins.router().exported())
        if (entry.address == PluginActionAddress{dice, "roll"})
            return entry;
    return std::nullopt;
}

// start -> first -> second, both a roll.
WorkflowDocument twoRolls(NativePluginStore& plugins) {
    WorkflowDocument flow{1, QUuid("{0f0e0d0c-0b0a-4908-8706-050403020100}"), "Two rolls", {}, {}};
    for (const QString id : {"start", "first", "second"}) {
        WorkflowNode node;
        node.id = node.data.title = id;
        node.data.kind = id == u"start" ? Kind::manual : Kind::action;
        if (id != u"start") {
            node.data.address = roll(plugins)->address;
            node.data.action = roll(plugins)->action;
            flow.edges.append(WorkflowEdge::connecting(flow.nodes.last().id, id, "next"));
        }
        flow.nodes.append(node);
    }
    return flow;
}

// The history as it is on disk, without the repair a read makes.
QList<WorkflowTimeline> stored(const WorkflowFiles& files) {
    QFile file(files.directory() + "/history-v1.json");
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return JsonReader::recordArray<WorkflowTimeline>(JsonReader::parse(file.readAll()), QString());
}

// Which steps a run holds, in which phase, since when.
QStringList shape(const WorkflowTimeline& run) {
    QStringList steps;
    for (const WorkflowTimeline::Step& step : run.steps)
        steps.append(step.node + u' ' + step.phase + u' ' +
                     QString::number(step.startedAt.value_or(-1), 'g', 17));
    return steps;
}

} // namespace

class AutomationsCrash final : public QObject {
    Q_OBJECT

private slots:
    void killedAtRandomNothingRunsTwice() {
        QTemporaryDir root;
        {
            // Dice installed, and Automations (a connected peer) allowed its "roll", before the
            // first start.
            NativePluginStore plugins(folder(root.path(), "Plugins"), folder(root.path(), "Actions"));
            QCOMPARE(plugins.review(QUrl::fromLocalFile(qEnvironmentVariable("VELL_BUILD_DIR") +
                                                        "/examples/plugins/Dice.app")),
                     QString());
            QCOMPARE(plugins.installReviewed(), QString());
            plugins.start();
            QTRY_VERIFY_WITH_TIMEOUT(roll(plugins), 30000);
            AutomationStore store(plugins.sessions(), folder(root.path(), "Automations"));
            store.start();
            QCOMPARE(plugins.setAllowed(automations, dice, "roll", false, true), QString());
            plugins.stop();
        }
        const WorkflowFiles files(folder(root.path(), "Automations"));
        // Every action step ever recorded as started, and every one recorded as done.
        QSet<QString> started;
        QSet<QString> completed;
        // Runs seen cut short, with the steps they were left with.
        QHash<QUuid, WorkflowTimeline> interrupted;
        QSet<QUuid> runs;
        int kills = 0;
        while (runs.size() < 200) {
            QProcess app;
            app.setProcessChannelMode(QProcess::ForwardedErrorChannel);
            app.start(QCoreApplication::applicationFilePath(), {"--run-loop", root.path()});
            QVERIFY(app.waitForStarted());
            // The kill comes after a random number of recorded changes, wherever the run is.
            const int changes = QRandomGenerator::global()->bounded(1, 48);
            QByteArray output;
            while (output.count("changed") < changes && app.state() == QProcess::Running) {
                if (app.waitForReadyRead(30000))
                    output += app.readAllStandardOutput();
                // Before its first run, the restarted app has already written back the repair;
                // it waits for the word to begin.
                if (output.contains("ready") && !output.contains("checked")) {
                    output += "checked";
                    for (const WorkflowTimeline& run : stored(files))
                        QVERIFY2(!run.isActive(), "a run was left looking alive");
                    app.write("go\n");
                }
            }
            if (const qint64 pid = app.processId(); pid > 0) {
                ::kill(pid_t(pid), SIGKILL);
                ++kills;
            }
            if (app.state() != QProcess::NotRunning)
                QVERIFY(app.waitForFinished());

            const QList<WorkflowTimeline> history = files.history(0);
            for (const WorkflowTimeline& run : history) {
                runs.insert(run.id);
                if (run.phase == WorkflowTimeline::interrupted) {
                    // Marked once, then never touched again: nothing of it was resumed. (Read
                    // straight after the kill, the repair is this read's own, with its own time.)
                    if (interrupted.contains(run.id))
                        QCOMPARE(shape(run), shape(interrupted.value(run.id)));
                    interrupted.insert(run.id, run);
                }
                for (const WorkflowTimeline::Step& step : run.steps) {
                    if (step.node == u"start")
                        continue;
                    started.insert(uuidText(run.id) + u'/' + step.node);
                    if (step.phase == WorkflowTimeline::completed)
                        completed.insert(uuidText(run.id) + u'/' + step.node);
                }
            }
            // Each action Dice ran was asked for once, by a step recorded before it.
            const QStringList log = diceLog();
            QSet<QString> requests;
            for (const QString& line : log)
                requests.insert(line.section(u' ', 0, 0));
            QCOMPARE(requests.size(), log.size());
            QVERIFY2(
                log.size() <= started.size(),
                qPrintable(QString("%1 rolls for %2 started steps").arg(log.size()).arg(started.size())));
            QVERIFY(log.size() >= completed.size());
        }
        qInfo("%lld runs, killed %d times, %lld cut short, %lld rolls for %lld started steps",
              qlonglong(runs.size()), kills, qlonglong(interrupted.size()), qlonglong(diceLog().size()),
              qlonglong(started.size()));
        QVERIFY(!interrupted.isEmpty());
    }
};

// The app of the kill test: the plugin store and the automation store on their files, running
// the workflow again and again, and saying so at every recorded change.
static int runLoop(const QString& root) {
    NativePluginStore plugins(folder(root, "Plugins"), folder(root, "Actions"));
    AutomationStore store(plugins.sessions(), folder(root, "Automations"));
    plugins.start();
    store.start();
    QObject::connect(&store, &AutomationStore::historyChanged, [] {
        std::printf("changed\n");
        std::fflush(stdout);
    });
    if (!QTest::qWaitFor([&] { return roll(plugins).has_value(); }, 30000))
        return 1;
    std::printf("ready\n");
    std::fflush(stdout);
    char go[8];
    if (!std::fgets(go, sizeof go, stdin))
        return 1;
    const WorkflowDocument flow = twoRolls(plugins);
    for (;;) {
        store.run(flow, false, {}, false, {}, QUuid::createUuid());
        if (!store.busy()) {
            std::fprintf(stderr, "refused: %s\n", qPrintable(store.message()));
            return 1;
        }
        if (!QTest::qWaitFor([&] { return !store.busy(); }, 30000))
            return 1;
    }
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() == 3 && arguments.at(1) == u"--run-loop")
        return runLoop(arguments.at(2));
    AutomationsCrash test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "tst_AutomationsCrash.moc"
