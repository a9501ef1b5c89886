#include "VellHost/NativePluginBundle.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

using vell::NativePluginBundle;

namespace {

struct Ran {
    int exitCode = -1;
    QByteArray output;
    QByteArray errors;
};

// The built vellctl, run to its end as an author would run it.
Ran vellctl(const QStringList& arguments, const QByteArray& input = {}) {
    QProcess process;
    process.start(qEnvironmentVariable("VELL_BUILD_DIR") + "/bin/vellctl", arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit)
        return {};
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

void row(const char* name, const QStringList& arguments, int exitCode, const QString& output,
         const QString& errors = {}, const QByteArray& input = {}) {
    QTest::newRow(name) << arguments << input << exitCode << output << errors;
}

// The fixed words of a command line, then the rest.
QStringList words(const char* fixed, const QStringList& rest = {}) {
    return QString::fromLatin1(fixed).split(u' ') + rest;
}

QString examplePlugins() {
    return qEnvironmentVariable("VELL_BUILD_DIR") + "/examples/plugins";
}

const QString moduleUsage =
    "usage: vellctl module validate FILE\n"
    "usage: vellctl module run FILE [--state JSON] [--configuration JSON] [--action ID] "
    "[--event-feed ID --event-json TEXT]\n";
const QString pluginUsage = "usage: vellctl plugin manifest FILE\n"
                            "usage: vellctl plugin lines [--chunk N] [FILE]\n"
                            "usage: vellctl plugin snapshot FILE\n"
                            "usage: vellctl plugin fingerprint BUNDLE\n"
                            "usage: vellctl plugin inspect BUNDLE\n"
                            "usage: vellctl plugin sign BUNDLE KEY\n"
                            "usage: vellctl plugin host BUNDLE [--send FILE]\n";
const QString workflowUsage = "usage: vellctl workflow validate FILE [--catalog CATALOG]\n"
                              "usage: vellctl workflow simulate FILE [--catalog CATALOG]\n"
                              "usage: vellctl workflow export FILE\n";
const QString invalidWorkflow = "Invalid workflow version, title or size.\n";

} // namespace

// Runs the built vellctl as an author would and checks what it prints and how it exits.
class TestVellctl final : public QObject {
    Q_OBJECT

private slots:
    void commands_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("errors");
        moduleRows();
        pluginRows();
        bundleRows();
        workflowRows();
    }

    void commands() {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, input);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        QFETCH(QString, errors);
        const Ran ran = vellctl(arguments, input);
        QCOMPARE(QString::fromUtf8(ran.output), output);
        QCOMPARE(QString::fromUtf8(ran.errors), errors);
        QCOMPARE(ran.exitCode, exitCode);
    }

    // An author signs with any SSH key, and the host's checks then pass.
    void signThenInspect() {
        const QString bundle = unsignedDice();
        const Ran ran = vellctl({"plugin", "sign", bundle, examplePlugins() + "/signing-key"});
        QCOMPARE(ran.output, QByteArray("OK\n"));
        QCOMPARE(ran.exitCode, 0);
        QCOMPARE(NativePluginBundle::inspect(bundle).fingerprint, NativePluginBundle::fingerprint(bundle));
    }

    // An author runs a plugin in a real session: the handshake, the snapshot, a press sent from
    // a file and its answer, then the end the app would show.
    void hostRunsASession() {
        const QString send =
            file("send.jsonl", "{\"apiVersion\":1,\"type\":\"action\",\"pluginID\":\"x\",\"session\":"
                               "\"00000000-0000-0000-0000-000000000000\",\"sequence\":0,"
                               "\"action\":\"roll\"}\n");
        QProcess vellctl;
        vellctl.start(qEnvironmentVariable("VELL_BUILD_DIR") + "/bin/vellctl",
                      {"plugin", "host", examplePlugins() + "/Dice.app", "--send", send});
        QByteArray output;
        QTRY_VERIFY_WITH_TIMEOUT((output += vellctl.readAllStandardOutput()).contains("You rolled"), 30000);
        vellctl.terminate();
        QVERIFY(vellctl.waitForFinished(30000));
        output += vellctl.readAllStandardOutput();
        const QList<QByteArray> lines = output.trimmed().split('\n');
        QVERIFY(lines.first().startsWith(R"({"from":"host","message":{"apiVersion":1,"type":"hello")"));
        QVERIFY(lines.at(1).startsWith(R"({"from":"plugin","message":{"apiVersion":1,"type":"ready")"));
        QVERIFY(output.contains(R"("type":"action","pluginID":"app.ostavell.example.dice")"));
        QCOMPARE(lines.last(), QByteArray(R"({"end":"Stopped"})"));
        QCOMPARE(vellctl.exitCode(), 0);
    }

    // A simulation walks the workflow as a run would, evaluating conditions, passing reviews and
    // standing sample outputs in for actions, and prints the timeline it ends with: the phase and
    // detail of the run, and each step as "node phase detail".
    void workflowSimulate_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("phase");
        QTest::addColumn<QString>("detail");
        QTest::addColumn<QStringList>("steps");
        const QByteArray condition = R"({"id":"if","position":{"x":0,"y":0},"data":{"kind":"condition",)"
                                     R"("title":"If","arguments":{},"test":{"value":"go"},)"
                                     R"("comparison":"equals","expected":"stop"}})";
        const QByteArray review = R"({"id":"check","position":{"x":0,"y":0},)"
                                  R"("data":{"kind":"review","title":"Check","arguments":{}}})";
        // The condition is false, so the run takes its "no" output to the review and never
        // reaches the action on "yes".
        const QString branching =
            flow("branching.json", "Flow", {step("send"), condition, review, step("other")},
                 R"([{"id":"e1","source":"start","target":"send"},{"id":"e2","source":"send","target":"if"},)"
                 R"({"id":"e3","source":"if","target":"check","sourceHandle":"no"},)"
                 R"({"id":"e4","source":"if","target":"other","sourceHandle":"yes"}])");
        const QString asking =
            flow("asking.json", "Flow", {step("ask", R"({"name":"reply","kind":"string","required":true})")},
                 R"([{"id":"e","source":"start","target":"ask"}])");
        const QString needsSample = "Simulation needs sample outputs for Step ask; no action was run.";
        QTest::newRow("branching") << QStringList{"simulate", branching} << 0 << "simulated" << QString()
                                   << QStringList{"start simulated", "send simulated", "if simulated",
                                                  "check simulated Review simulated"};
        QTest::newRow("invalid") << QStringList{"simulate", untitled()} << 1 << "failed"
                                 << invalidWorkflow.trimmed() << QStringList();
        // With a catalogue, its presence tests apply as they do before a real run.
        QTest::newRow("with a catalogue")
            << QStringList{"simulate", branching, "--catalog", emptyCatalog()} << 1 << "failed"
            << "Step send: its module is missing or the action changed. Choose it again." << QStringList();
        QTest::newRow("no sample output") << QStringList{"simulate", asking} << 1 << "failed" << needsSample
                                          << QStringList{"start simulated", "ask failed " + needsSample};
    }

    // Ids and dates are fresh in every run, so only their presence counts.
    void workflowSimulate() {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, phase);
        QFETCH(QString, detail);
        QFETCH(QStringList, steps);
        const Ran ran = vellctl(QStringList{"workflow"} + arguments);
        QCOMPARE(ran.exitCode, exitCode);
        QVERIFY2(ran.output.endsWith('\n') && ran.output.count('\n') == 1, ran.output.constData());
        const QJsonObject timeline = QJsonDocument::fromJson(ran.output).object();
        QVERIFY(!QUuid::fromString(timeline.value("id").toString()).isNull());
        QCOMPARE(timeline.value("workflowID").toString(), "7D3C2F4E-0A1B-4C5D-8E9F-0123456789AB");
        QCOMPARE(timeline.value("phase").toString(), phase);
        QCOMPARE(timeline.value("detail").toString(), detail);
        QVERIFY(timeline.value("date").toDouble() > 0);
        QVERIFY(timeline.value("endedAt").toDouble() >= timeline.value("date").toDouble());
        QStringList seen;
        for (const QJsonValue& value : timeline.value("steps").toArray()) {
            const QJsonObject step = value.toObject();
            QVERIFY(step.contains("startedAt") && step.contains("endedAt"));
            QStringList words{step.value("node").toString(), step.value("phase").toString()};
            if (step.contains("detail"))
                words.append(step.value("detail").toString());
            seen.append(words.join(u' '));
        }
        QCOMPARE(seen, steps);
    }

    // The README shows the smallest example plugin whole; it must be the one that builds.
    void readmeShowsTheClockExample() {
        const QString source = qEnvironmentVariable("VELL_SOURCE_DIR");
        QFile readme(source + "/README.md");
        QFile example(source + "/examples/plugins/clock/main.cpp");
        QVERIFY(readme.open(QIODevice::ReadOnly) && example.open(QIODevice::ReadOnly));
        QVERIFY(readme.readAll().contains("```cpp\n" + example.readAll() + "```\n"));
    }

private:
    void moduleRows() {
        const QString data = qEnvironmentVariable("VELL_TEST_DATA");
        // A usage error in a group lists that group's commands; without a group, every group's.
        const QString everyUsage = moduleUsage + pluginUsage +
                                   "usage: vellctl router replay SCRIPT [--directory DIR]\n" + workflowUsage;

        // Every example that ships must stay valid.
        const QDir examples(qEnvironmentVariable("VELL_SOURCE_DIR") + "/examples/modules");
        const QStringList packages = examples.entryList({"*.ostavellmodule"}, QDir::Files);
        QVERIFY(packages.size() >= 3);
        for (const QString& package : packages)
            row(qPrintable("example " + package), words("module validate", {examples.filePath(package)}), 0,
                "OK\n");
        row("validation failure", words("module validate", {data + "/undeclared-action.ostavellmodule"}), 1,
            "A button refers to an undeclared action.\n");
        row("decoding failure", words("module validate", {data + "/missing-script.ostavellmodule"}), 1,
            "This is not a valid OstaVell module package: \"script\" is missing\n");
        row("unreadable file", words("module validate", {data + "/absent.ostavellmodule"}), 1, {},
            "vellctl: " + data + "/absent.ostavellmodule: No such file or directory\n");
        row("no arguments", {}, 2, {}, everyUsage);
        row("unknown group", {"frobnicate"}, 2, {}, everyUsage);
        row("unknown subcommand", {"module", "check"}, 2, {}, moduleUsage);
        row("missing file argument", {"module", "validate"}, 2, {}, moduleUsage);
        row("extra argument", words("module validate", {data + "/valid.ostavellmodule", "x"}), 2, {},
            moduleUsage);

        // `module run` goes through the installed runner, as the app does.
        const QString hello =
            qEnvironmentVariable("VELL_SOURCE_DIR") + "/examples/modules/hello-vell.ostavellmodule";
        // A legacy module with a feed: it echoes the event it gets, and fails without one.
        const QString echo =
            file("echo.ostavellmodule",
                 R"({"schemaVersion":1,"hostAPIVersion":1,"id":"cafe.osta.echo","name":"Echo",)"
                 R"("version":"1.0.0","author":"Tests","summary":"","permissions":["local.mqtt.read"],)"
                 R"("feeds":[{"id":"sensor","label":"Sensor"}],"initialState":{"count":"0"},"settings":[],)"
                 "\"actions\":[],\"card\":[],\"page\":[],\"script\":\"function run(r) { if (!r.event) throw "
                 "'boom'; "
                 "return { count: r.state.count, event: r.event.feedID + '=' + r.event.json }; }\"}");
        row("run: initial state and default settings", words("module run", {hello, "--action", "greet"}), 0,
            "{\"count\":\"1\",\"message\":\"Hello, friend!\",\"progress\":\"10\"}\n");
        row("run: given state and configuration",
            words("module run", {hello, "--state", "{\"count\":\"4\"}", "--configuration",
                                 "{\"greeting\":\"Hi\",\"name\":\"Ada\"}", "--action", "greet"}),
            0, "{\"count\":\"5\",\"message\":\"Hi, Ada!\",\"progress\":\"50\"}\n");
        row("run: event", words("module run", {echo, "--event-feed", "sensor", "--event-json", "{}"}), 0,
            "{\"count\":\"0\",\"event\":\"sensor={}\"}\n");
        row("run: undeclared action", words("module run", {hello, "--action", "launch"}), 1,
            "This action is not available.\n");
        row("run: state that is not JSON", words("module run", {hello, "--state", "count=4"}), 1,
            "--state needs a JSON object of text values.\n");
        row("run: script error", words("module run", {echo}), 1, "boom\n");
    }

    // What a plugin author checks before the host ever sees it: manifests, streams and snapshots.
    void pluginRows() {
        const QString data = qEnvironmentVariable("VELL_TEST_DATA");
        const QString examples = qEnvironmentVariable("VELL_SOURCE_DIR") + "/examples/plugins/";
        for (const QString example : {"clock", "counter", "dice"})
            row(qPrintable("example " + example),
                words("plugin manifest", {examples + example + "/VellPlugin.json"}), 0, "OK\n");
        row("manifest: launch mode", words("plugin manifest", {data + "/plugin-manifest-daemon.json"}), 1,
            "Unsupported plugin launch mode.\n");

        // Keys in any order, a lower-case UUID, a null and spaces come back in the one form.
        const QByteArray messy =
            "{ \"sequence\": 3, \"type\": \"heartbeat\", \"apiVersion\": 1, \"action\": null, "
            "\"session\": \"6f9619ff-8b86-d011-b42d-00c04fc964ff\", \"pluginID\": \"com.example.a\" }";
        const QString canonical = "{\"apiVersion\":1,\"type\":\"heartbeat\",\"pluginID\":\"com.example.a\","
                                  "\"session\":\"6F9619FF-8B86-D011-B42D-00C04FC964FF\",\"sequence\":3}\n";
        row("lines: one chunk", words("plugin lines"), 0, canonical + canonical, {},
            messy + '\n' + messy + '\n');
        row("lines: byte by byte, rest kept unframed", words("plugin lines --chunk 1"), 0, canonical, {},
            messy + '\n' + messy);
        row("lines: an empty line", words("plugin lines"), 1, "error: Invalid plugin message size.\n", {},
            messy + "\n\n");
        // A failure loses what the same chunk framed before it.
        const QString version2 = data + "/plugin-lines-version2.jsonl";
        row("lines: from a file, one chunk", words("plugin lines", {version2}), 1,
            "error: Incompatible plugin interface.\n");
        row("lines: from a file, in chunks", words("plugin lines --chunk 100", {version2}), 1,
            canonical + "error: Incompatible plugin interface.\n");

        row("snapshot: valid", words("plugin snapshot", {data + "/plugin-snapshot.json"}), 0, "OK\n");
        row("snapshot: empty panels", words("plugin snapshot", {data + "/plugin-snapshot-empty-panels.json"}),
            1, "Invalid dashboard panels.\n");
        row("snapshot: not decodable", words("plugin snapshot", {data + "/plugin-manifest-daemon.json"}), 1,
            "\"title\" is missing\n");
    }

    // Bundles: what the host's checks answer, and signing.
    void bundleRows() {
        const QString dice = examplePlugins() + "/Dice.app";
        const QString counter = examplePlugins() + "/Counter.app";
        const QString absent = examplePlugins() + "/Absent.app";
        row("fingerprint", words("plugin fingerprint", {dice}), 0,
            NativePluginBundle::fingerprint(dice) + '\n');
        row("fingerprint: not a bundle", words("plugin fingerprint", {examplePlugins()}), 1,
            "Choose a plugin app bundle, not a symlink.\n");
        row("fingerprint: nothing there", words("plugin fingerprint", {absent}), 1,
            "Cannot read plugin bundle.\n");
        row("inspect: child", words("plugin inspect", {dice}), 0,
            "id: app.ostavell.example.dice\nname: Dice\nversion: 1.0.0\ncapabilities: [\"Rolls a die\"]\n"
            "launch mode: child\nsignature: valid\nfingerprint: " +
                NativePluginBundle::fingerprint(dice) + '\n');
        row("inspect: application", words("plugin inspect", {counter}), 0,
            "id: app.ostavell.example.counter\nname: Counter\nversion: 1.0.0\ncapabilities: [\"Counts button "
            "presses\"]\nlaunch mode: application\nsignature: valid\nfingerprint: " +
                NativePluginBundle::fingerprint(counter) + '\n');
        row("inspect: unsigned", words("plugin inspect", {unsignedDice()}), 1,
            "The plugin's code signature is invalid.\n");
        row("inspect: nothing there", words("plugin inspect", {absent}), 1, "No such file or directory\n");
        row("sign: no key", words("plugin sign", {dice}), 2, {}, pluginUsage);
        row("sign: key absent", words("plugin sign", {unsignedDice(), absent}), 1,
            "Could not sign the plugin: Couldn't load public key " + absent +
                ": No such file or directory\n");
    }

    // A workflow as a run would judge it: valid, refused with the first sentence, and the
    // catalogue's presence tests only when a catalogue is given. The exported script runs the
    // Shortcut steps in the order of the edges, not of the array, and quotes each name so that
    // the shell takes it as it is.
    void workflowRows() {
        const auto shortcut = [](const QByteArray& id, const QString& name) {
            const QByteArray quoted =
                QJsonDocument(QJsonArray{name}).toJson(QJsonDocument::Compact).mid(1).chopped(1);
            return QByteArray(
                       R"({"id":"ID","position":{"x":280,"y":180},"data":{"kind":"action",)"
                       R"("title":"Run a shortcut","address":{"plugin":"local.ostavell.utilities",)"
                       R"("name":"shortcut"},"action":{"id":"shortcut","title":"Run Shortcut","input":)"
                       R"({"fields":[{"name":"name","kind":"string","required":true}]},"output":{"fields":[]},)"
                       R"("effect":"readOnly","cancellable":false,"timeoutSeconds":10},)"
                       R"("arguments":{"name":{"value":NAME}}}})")
                .replace("ID", id)
                .replace("NAME", quoted);
        };
        const QString shortcuts =
            flow("shortcuts.json", "Flow", {shortcut("b", "Back up"), shortcut("a", "It's $HOME \\ \"now\"")},
                 R"([{"id":"e1","source":"start","target":"a"},{"id":"e2","source":"a","target":"b"}])");
        const QString sending =
            flow("send.json", "Flow", {step("send")}, R"([{"id":"e","source":"start","target":"send"}])");

        row("workflow validate", words("workflow validate", {flow("alone.json", "Flow", {}, "[]")}), 0,
            "OK\n");
        row("workflow validate: invalid", words("workflow validate", {untitled()}), 1, invalidWorkflow);
        row("workflow validate: an action", words("workflow validate", {sending}), 0, "OK\n");
        row("workflow validate: with a catalogue",
            words("workflow validate", {sending, "--catalog", emptyCatalog()}), 1,
            "Step send: its module is missing or the action changed. Choose it again.\n");
        row("workflow export", words("workflow export", {shortcuts}), 0,
            "#!/bin/sh\n# Exported by OstaVell. Review before running.\n"
            "ostavell-shortcuts run 'It'\\''s $HOME \\ \"now\"'\nostavell-shortcuts run 'Back up'\n");
        row("workflow export: invalid", words("workflow export", {untitled()}), 1, invalidWorkflow);
        // A valid workflow a script can't reproduce refuses the export with the same sentence as the app.
        row("workflow export: an action", words("workflow export", {sending}), 1,
            "Shell script export currently supports only manual starts and literal Shortcut actions. "
            "Conditions, events, AI, reviews and module actions cannot be omitted.\n");
        row("workflow export: no file", words("workflow export"), 2, {}, workflowUsage);
        row("workflow simulate: no edges",
            words("workflow simulate", {flow("no-edges.json", "Flow", {}, {})}), 1, "\"edges\" is missing\n");
    }

    QString file(const QString& name, const QByteArray& text) {
        QFile out(m_dir.filePath(name));
        if (!out.open(QIODevice::WriteOnly) || out.write(text) != text.size())
            qFatal("cannot write %s", qPrintable(name));
        return out.fileName();
    }

    // A workflow that starts by hand and goes on to these nodes; without edges at all when none
    // are given.
    QString flow(const QString& name, const QByteArray& title, const QByteArrayList& nodes,
                 const QByteArray& edges) {
        const QByteArray start = R"({"id":"start","position":{"x":80,"y":180},)"
                                 R"("data":{"kind":"manual","title":"When I run it","arguments":{}}})";
        const QByteArray text =
            "{\"schemaVersion\":1,\"id\":\"7D3C2F4E-0A1B-4C5D-8E9F-0123456789AB\",\"title\":\"" + title +
            "\",\"nodes\":[" + (QByteArrayList{start} + nodes).join(',') + ']';
        return file(name, text + (edges.isEmpty() ? QByteArray() : ",\"edges\":" + edges) + '}');
    }

    QString untitled() { return flow("untitled.json", "", {}, "[]"); }
    QString emptyCatalog() { return file("empty-catalog.json", "[]"); }

    // An action step "Step ID" whose action declares these output fields.
    static QByteArray step(const QByteArray& id, const QByteArray& output = {}) {
        return QByteArray(R"({"id":"ID","position":{"x":280,"y":180},"data":{"kind":"action",)"
                          R"("title":"Step ID","address":{"plugin":"cafe.osta","name":"send"},)"
                          R"("action":{"id":"send","title":"Send","input":{"fields":[]},)"
                          R"("output":{"fields":[OUTPUT]},"effect":"readOnly","cancellable":false,)"
                          R"("timeoutSeconds":10},"arguments":{}}})")
            .replace("ID", id)
            .replace("OUTPUT", output);
    }

    // A copy of the built Dice bundle without its signature.
    QString unsignedDice() {
        const QString folder = m_dir.filePath(QStringLiteral("unsigned-%1").arg(++m_copies));
        QDir().mkpath(folder);
        QProcess::execute("cp", {"-a", examplePlugins() + "/Dice.app", folder});
        QFile::remove(folder + "/Dice.app/" + NativePluginBundle::signatureFile.toString());
        return folder + "/Dice.app";
    }

    QTemporaryDir m_dir;
    int m_copies = 0;
};

QTEST_GUILESS_MAIN(TestVellctl)
#include "tst_vellctl.moc"
