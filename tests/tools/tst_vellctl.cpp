#include "VellHost/NativePluginBundle.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

using namespace Qt::StringLiterals;
using vell::NativePluginBundle;

// Runs the built vellctl as an author would and checks what it prints and how it exits.
class TestVellctl final : public QObject {
    Q_OBJECT

private slots:
    void run_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("errors");
        const QString data = qEnvironmentVariable("VELL_TEST_DATA");
        // A usage error in a group lists that group's commands; without a group, every group's.
        const QString usage =
            u"usage: vellctl module validate FILE\n"
            u"usage: vellctl module run FILE [--state JSON] [--configuration JSON] [--action ID] "
            u"[--event-feed ID --event-json TEXT]\n"_s;
        const QString everyUsage = usage + pluginUsage +
                                   u"usage: vellctl router replay SCRIPT [--directory DIR]\n"_s +
                                   workflowUsage;
        const auto validate = [](const QString& file) {
            return QStringList{u"module"_s, u"validate"_s, file};
        };

        // Every example that ships must stay valid.
        const QDir examples(qEnvironmentVariable("VELL_SOURCE_DIR") + u"/examples/modules"_s);
        const QStringList packages = examples.entryList({u"*.ostavellmodule"_s}, QDir::Files);
        QVERIFY(packages.size() >= 3);
        for (const QString& package : packages)
            QTest::addRow("example %s", qPrintable(package))
                << validate(examples.filePath(package)) << 0 << u"OK\n"_s << QString();
        QTest::addRow("validation failure") << validate(data + u"/undeclared-action.ostavellmodule"_s) << 1
                                            << u"A button refers to an undeclared action.\n"_s << QString();
        QTest::addRow("decoding failure")
            << validate(data + u"/missing-script.ostavellmodule"_s) << 1
            << u"This is not a valid OstaVell module package: \"script\" is missing\n"_s << QString();
        QTest::addRow("unreadable file")
            << validate(data + u"/absent.ostavellmodule"_s) << 1 << QString()
            << u"vellctl: %1/absent.ostavellmodule: No such file or directory\n"_s.arg(data);
        QTest::addRow("no arguments") << QStringList() << 2 << QString() << everyUsage;
        QTest::addRow("unknown group") << QStringList{u"frobnicate"_s} << 2 << QString() << everyUsage;
        QTest::addRow("unknown subcommand")
            << QStringList{u"module"_s, u"check"_s} << 2 << QString() << usage;
        QTest::addRow("missing file argument")
            << QStringList{u"module"_s, u"validate"_s} << 2 << QString() << usage;
        QTest::addRow("workflow export: no file")
            << QStringList{u"workflow"_s, u"export"_s} << 2 << QString() << workflowUsage;
        QTest::addRow("extra argument")
            << validate(data + u"/valid.ostavellmodule"_s) + QStringList{u"x"_s} << 2 << QString() << usage;

        // `module run` goes through the installed runner, as the app does.
        const QString hello =
            qEnvironmentVariable("VELL_SOURCE_DIR") + u"/examples/modules/hello-vell.ostavellmodule"_s;
        const QString echo = writeEcho();
        const auto run = [](const QString& file, const QStringList& options) {
            return QStringList{u"module"_s, u"run"_s, file} + options;
        };
        QTest::addRow("run: initial state and default settings")
            << run(hello, {u"--action"_s, u"greet"_s}) << 0
            << uR"({"count":"1","message":"Hello, friend!","progress":"10"})"_s + u'\n' << QString();
        QTest::addRow("run: given state and configuration")
            << run(hello, {u"--state"_s, uR"({"count":"4"})"_s, u"--configuration"_s,
                           uR"({"greeting":"Hi","name":"Ada"})"_s, u"--action"_s, u"greet"_s})
            << 0 << uR"({"count":"5","message":"Hi, Ada!","progress":"50"})"_s + u'\n' << QString();
        QTest::addRow("run: event") << run(echo, {u"--event-feed"_s, u"sensor"_s, u"--event-json"_s, u"{}"_s})
                                    << 0 << uR"({"count":"0","event":"sensor={}"})"_s + u'\n' << QString();
        QTest::addRow("run: undeclared action") << run(hello, {u"--action"_s, u"launch"_s}) << 1
                                                << u"This action is not available.\n"_s << QString();
        QTest::addRow("run: state that is not JSON")
            << run(hello, {u"--state"_s, u"count=4"_s}) << 1
            << u"--state needs a JSON object of text values.\n"_s << QString();
        QTest::addRow("run: script error") << run(echo, {}) << 1 << u"boom\n"_s << QString();
    }

    void run() {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        QFETCH(QString, errors);

        QProcess vellctl;
        vellctl.start(qEnvironmentVariable("VELL_BUILD_DIR") + u"/bin/vellctl"_s, arguments);
        QVERIFY(vellctl.waitForFinished(60000));
        QCOMPARE(vellctl.exitStatus(), QProcess::NormalExit);
        QCOMPARE(QString::fromUtf8(vellctl.readAllStandardOutput()), output);
        QCOMPARE(QString::fromUtf8(vellctl.readAllStandardError()), errors);
        QCOMPARE(vellctl.exitCode(), exitCode);
    }

    // What a plugin author checks before the host ever sees it: manifests, streams and snapshots.
    void plugin_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output");
        const QString data = qEnvironmentVariable("VELL_TEST_DATA");
        const QString examples = qEnvironmentVariable("VELL_SOURCE_DIR") + u"/examples/plugins/"_s;
        for (const char* example : {"clock", "counter", "dice"})
            QTest::addRow("example %s", example)
                << QStringList{u"plugin"_s, u"manifest"_s,
                               examples + QLatin1String(example) + u"/VellPlugin.json"_s}
                << QByteArray() << 0 << u"OK\n"_s;
        QTest::addRow("manifest: launch mode")
            << QStringList{u"plugin"_s, u"manifest"_s, data + u"/plugin-manifest-daemon.json"_s}
            << QByteArray() << 1 << u"Unsupported plugin launch mode.\n"_s;

        // Keys in any order, a lower-case UUID, a null and spaces come back in the one form.
        const QByteArray messy =
            R"({ "sequence": 3, "type": "heartbeat", "apiVersion": 1, "action": null,)"
            R"( "session": "6f9619ff-8b86-d011-b42d-00c04fc964ff", "pluginID": "com.example.a" })";
        const QString canonical =
            uR"({"apiVersion":1,"type":"heartbeat","pluginID":"com.example.a","session":"6F9619FF-8B86-D011-B42D-00C04FC964FF","sequence":3})"_s;
        QTest::addRow("lines: one chunk")
            << QStringList{u"plugin"_s, u"lines"_s} << messy + '\n' + messy + '\n'
            << 0 << canonical + u'\n' + canonical + u'\n';
        QTest::addRow("lines: byte by byte, rest kept unframed")
            << QStringList{u"plugin"_s, u"lines"_s, u"--chunk"_s, u"1"_s} << messy + '\n' + messy << 0
            << canonical + u'\n';
        QTest::addRow("lines: an empty line") << QStringList{u"plugin"_s, u"lines"_s} << messy + "\n\n"
                                              << 1 << u"error: Invalid plugin message size.\n"_s;
        // A failure loses what the same chunk framed before it.
        QTest::addRow("lines: from a file, one chunk")
            << QStringList{u"plugin"_s, u"lines"_s, data + u"/plugin-lines-version2.jsonl"_s} << QByteArray()
            << 1 << u"error: Incompatible plugin interface.\n"_s;
        QTest::addRow("lines: from a file, in chunks")
            << QStringList{u"plugin"_s, u"lines"_s, u"--chunk"_s, u"100"_s,
                           data + u"/plugin-lines-version2.jsonl"_s}
            << QByteArray() << 1 << canonical + u"\nerror: Incompatible plugin interface.\n"_s;

        QTest::addRow("snapshot: valid")
            << QStringList{u"plugin"_s, u"snapshot"_s, data + u"/plugin-snapshot.json"_s} << QByteArray() << 0
            << u"OK\n"_s;
        QTest::addRow("snapshot: empty panels")
            << QStringList{u"plugin"_s, u"snapshot"_s, data + u"/plugin-snapshot-empty-panels.json"_s}
            << QByteArray() << 1 << u"Invalid dashboard panels.\n"_s;
        QTest::addRow("snapshot: not decodable")
            << QStringList{u"plugin"_s, u"snapshot"_s, data + u"/plugin-manifest-daemon.json"_s}
            << QByteArray() << 1 << u"\"title\" is missing\n"_s;
    }

    // Bundles: what the host's checks answer, and signing.
    void bundle_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output");
        const auto command = [](const char* name, const QStringList& rest) {
            return QStringList{u"plugin"_s, QLatin1String(name)} + rest;
        };
        const QString dice = examplePlugins() + u"/Dice.app"_s;
        const QString counter = examplePlugins() + u"/Counter.app"_s;
        const QString absent = examplePlugins() + u"/Absent.app"_s;
        QTest::addRow("fingerprint") << command("fingerprint", {dice}) << 0
                                     << NativePluginBundle::fingerprint(dice) + u'\n';
        QTest::addRow("fingerprint: not a bundle") << command("fingerprint", {examplePlugins()}) << 1
                                                   << u"Choose a plugin app bundle, not a symlink.\n"_s;
        QTest::addRow("fingerprint: nothing there")
            << command("fingerprint", {absent}) << 1 << u"Cannot read plugin bundle.\n"_s;
        QTest::addRow("inspect: child") << command("inspect", {dice}) << 0
                                        << u"id: app.ostavell.example.dice\nname: Dice\nversion: 1.0.0\n"
                                           u"capabilities: [\"Rolls a die\"]\nlaunch mode: child\n"
                                           u"signature: valid\nfingerprint: "_s +
                                               NativePluginBundle::fingerprint(dice) + u'\n';
        QTest::addRow("inspect: application")
            << command("inspect", {counter}) << 0
            << u"id: app.ostavell.example.counter\nname: Counter\nversion: 1.0.0\n"
               u"capabilities: [\"Counts button presses\"]\nlaunch mode: application\n"
               u"signature: valid\nfingerprint: "_s +
                   NativePluginBundle::fingerprint(counter) + u'\n';
        QTest::addRow("inspect: unsigned")
            << command("inspect", {unsignedDice()}) << 1 << u"The plugin's code signature is invalid.\n"_s;
        QTest::addRow("inspect: nothing there")
            << command("inspect", {absent}) << 1 << u"No such file or directory\n"_s;
        QTest::addRow("sign: no key") << command("sign", {dice}) << 2 << QString();
        QTest::addRow("sign: key absent")
            << command("sign", {unsignedDice(), absent}) << 1
            << u"Could not sign the plugin: Couldn't load public key %1: No such file or directory\n"_s.arg(
                   absent);
    }

    void bundle() {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        QProcess vellctl;
        vellctl.start(qEnvironmentVariable("VELL_BUILD_DIR") + u"/bin/vellctl"_s, arguments);
        QVERIFY(vellctl.waitForFinished(60000));
        QCOMPARE(QString::fromUtf8(vellctl.readAllStandardOutput()), output);
        QCOMPARE(vellctl.exitCode(), exitCode);
    }

    // An author signs with any SSH key, and the host's checks then pass.
    void signThenInspect() {
        const QString bundle = unsignedDice();
        const QString key = examplePlugins() + u"/signing-key"_s;
        QProcess vellctl;
        vellctl.start(qEnvironmentVariable("VELL_BUILD_DIR") + u"/bin/vellctl"_s,
                      {u"plugin"_s, u"sign"_s, bundle, key});
        QVERIFY(vellctl.waitForFinished(60000));
        QCOMPARE(vellctl.readAllStandardOutput(), QByteArray("OK\n"));
        QCOMPARE(vellctl.exitCode(), 0);
        QCOMPARE(NativePluginBundle::inspect(bundle).fingerprint, NativePluginBundle::fingerprint(bundle));
    }

    void plugin() {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, input);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        QProcess vellctl;
        vellctl.start(qEnvironmentVariable("VELL_BUILD_DIR") + u"/bin/vellctl"_s, arguments);
        vellctl.write(input);
        vellctl.closeWriteChannel();
        QVERIFY(vellctl.waitForFinished(60000));
        QCOMPARE(QString::fromUtf8(vellctl.readAllStandardOutput()), output);
        QCOMPARE(vellctl.exitCode(), exitCode);
    }

    // An author runs a plugin in a real session: the handshake, the snapshot, a press sent from
    // a file and its answer, then the end the app would show.
    void hostRunsASession() {
        QFile send(m_dir.filePath(u"send.jsonl"_s));
        QVERIFY(send.open(QIODevice::WriteOnly));
        send.write(
            R"({"apiVersion":1,"type":"action","pluginID":"x","session":"00000000-0000-0000-0000-000000000000","sequence":0,"action":"roll"})"
            "\n");
        send.close();
        QProcess vellctl;
        vellctl.start(
            qEnvironmentVariable("VELL_BUILD_DIR") + u"/bin/vellctl"_s,
            {u"plugin"_s, u"host"_s, examplePlugins() + u"/Dice.app"_s, u"--send"_s, send.fileName()});
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

    // A workflow as a run would judge it: valid, refused with the first sentence, and the
    // catalogue's presence tests only when a catalogue is given.
    void workflowValidate() {
        const QByteArray send = R"({"id":"send","position":{"x":280,"y":180},"data":{"kind":"action",)"
                                R"("title":"Send","address":{"plugin":"cafe.osta","name":"send"},)"
                                R"("action":{"id":"send","title":"Send","input":{"fields":[]},)"
                                R"("output":{"fields":[]},"effect":"readOnly","cancellable":false,)"
                                R"("timeoutSeconds":10},"arguments":{}}})";
        const QString alone =
            file(u"alone.json"_s, header + R"("title":"Flow","nodes":[)" + start + "],\"edges\":[]}");
        const QString untitled =
            file(u"untitled.json"_s, header + R"("title":"","nodes":[)" + start + "],\"edges\":[]}");
        const QString sending =
            file(u"send.json"_s, header + R"("title":"Flow","nodes":[)" + start + ',' + send +
                                     R"(],"edges":[{"id":"e","source":"start","target":"send"}]})");
        const QString empty = file(u"empty-catalog.json"_s, "[]");
        const auto check = [](const QStringList& arguments, const QByteArray& output, int exitCode) {
            checkWorkflow(QStringList{u"validate"_s} + arguments, output, exitCode);
        };
        check({alone}, "OK\n", 0);
        check({untitled}, "Invalid workflow version, title or size.\n", 1);
        check({sending}, "OK\n", 0);
        check({sending, u"--catalog"_s, empty},
              "Send: its module is missing or the action changed. Choose it again.\n", 1);
        // A valid workflow a script can't reproduce refuses the export with the same sentence as the app.
        checkWorkflow({u"export"_s, sending},
                      "Shell script export currently supports only manual starts and literal Shortcut "
                      "actions. Conditions, events, AI, reviews and module actions cannot be omitted.\n",
                      1);
    }

    // The exported script runs the Shortcut steps in the order of the edges, not of the array, and
    // quotes each name so that the shell takes it as it is.
    void workflowExport() {
        const QJsonObject action =
            QJsonDocument::fromJson(R"({"kind":"action","title":"Run a shortcut",)"
                                    R"("address":{"plugin":"local.ostavell.utilities","name":"shortcut"},)"
                                    R"("action":{"id":"shortcut","title":"Run Shortcut","input":{"fields":)"
                                    R"([{"name":"name","kind":"string","required":true}]},)"
                                    R"("output":{"fields":[]},"effect":"readOnly","cancellable":false,)"
                                    R"("timeoutSeconds":10}})")
                .object();
        const auto shortcut = [&action](const QString& id, const QString& name) {
            QJsonObject data = action;
            data.insert(u"arguments"_s, QJsonObject{{u"name"_s, QJsonObject{{u"value"_s, name}}}});
            const QJsonObject node{
                {u"id"_s, id}, {u"position"_s, QJsonObject{{u"x"_s, 280}, {u"y"_s, 180}}}, {u"data"_s, data}};
            return QJsonDocument(node).toJson(QJsonDocument::Compact);
        };
        const QString shortcuts =
            file(u"shortcuts.json"_s, header + R"("title":"Flow","nodes":[)" + start + ',' +
                                          shortcut(u"b"_s, u"Back up"_s) + ',' +
                                          shortcut(u"a"_s, u"It's $HOME \\ \"now\""_s) +
                                          R"(],"edges":[{"id":"e1","source":"start","target":"a"},)"
                                          R"({"id":"e2","source":"a","target":"b"}]})");
        checkWorkflow({u"export"_s, shortcuts},
                      "#!/bin/sh\n"
                      "# Exported by OstaVell. Review before running.\n"
                      "ostavell-shortcuts run 'It'\\''s $HOME \\ \"now\"'\n"
                      "ostavell-shortcuts run 'Back up'\n",
                      0);
        const QString untitled =
            file(u"export-untitled.json"_s, header + R"("title":"","nodes":[)" + start + "],\"edges\":[]}");
        checkWorkflow({u"export"_s, untitled}, "Invalid workflow version, title or size.\n", 1);
    }

    // A simulation walks the workflow as a run would, evaluating conditions, passing reviews and
    // standing sample outputs in for actions, and prints the timeline it ends with.
    void workflowSimulate() {
        // An action step "Step ID" whose action declares these output fields.
        const auto action = [](const QByteArray& id, const QByteArray& output) {
            return QByteArray(R"({"id":"ID","position":{"x":280,"y":180},"data":{"kind":"action",)"
                              R"("title":"Step ID","address":{"plugin":"cafe.osta","name":"send"},)"
                              R"("action":{"id":"send","title":"Send","input":{"fields":[]},)"
                              R"("output":{"fields":[OUTPUT]},"effect":"readOnly","cancellable":false,)"
                              R"("timeoutSeconds":10},"arguments":{}}})")
                .replace("ID", id)
                .replace("OUTPUT", output);
        };
        const QByteArray condition = R"({"id":"if","position":{"x":0,"y":0},"data":{"kind":"condition",)"
                                     R"("title":"If","arguments":{},"test":{"value":"go"},)"
                                     R"("comparison":"equals","expected":"stop"}})";
        const QByteArray review = R"({"id":"check","position":{"x":0,"y":0},)"
                                  R"("data":{"kind":"review","title":"Check","arguments":{}}})";
        // The condition is false, so the run takes its "no" output to the review and never
        // reaches the action on "yes".
        const QString branching = file(
            u"branching.json"_s, header + R"("title":"Flow","nodes":[)" + start + ',' + action("send", {}) +
                                     ',' + condition + ',' + review + ',' + action("other", {}) +
                                     R"(],"edges":[{"id":"e1","source":"start","target":"send"},)"
                                     R"({"id":"e2","source":"send","target":"if"},)"
                                     R"({"id":"e3","source":"if","target":"check","sourceHandle":"no"},)"
                                     R"({"id":"e4","source":"if","target":"other","sourceHandle":"yes"}]})");
        const QString untitled =
            file(u"simulate-untitled.json"_s, header + R"("title":"","nodes":[)" + start + "],\"edges\":[]}");
        const QString asking =
            file(u"asking.json"_s, header + R"("title":"Flow","nodes":[)" + start + ',' +
                                       action("ask", R"({"name":"reply","kind":"string","required":true})") +
                                       R"(],"edges":[{"id":"e","source":"start","target":"ask"}]})");
        const QString empty = file(u"simulate-empty-catalog.json"_s, "[]");
        const QString noEdges =
            file(u"no-edges.json"_s, header + R"("title":"Flow","nodes":[)" + start + "]}");

        simulate({branching}, 0, u"simulated"_s, {},
                 {u"start simulated"_s, u"send simulated"_s, u"if simulated"_s,
                  u"check simulated Review simulated"_s});
        simulate({untitled}, 1, u"failed"_s, u"Invalid workflow version, title or size."_s, {});
        // With a catalogue, its presence tests apply as they do before a real run.
        simulate({branching, u"--catalog"_s, empty}, 1, u"failed"_s,
                 u"Step send: its module is missing or the action changed. Choose it again."_s, {});
        const QString needsSample = u"Simulation needs sample outputs for Step ask; no action was run."_s;
        simulate({asking}, 1, u"failed"_s, needsSample,
                 {u"start simulated"_s, u"ask failed "_s + needsSample});
        checkWorkflow({u"simulate"_s, noEdges}, "\"edges\" is missing\n", 1);
    }

    // The README shows the smallest example plugin whole; it must be the one that builds.
    void readmeShowsTheClockExample() {
        const QString source = qEnvironmentVariable("VELL_SOURCE_DIR");
        QFile readme(source + u"/README.md"_s);
        QFile example(source + u"/examples/plugins/clock/main.cpp"_s);
        QVERIFY(readme.open(QIODevice::ReadOnly) && example.open(QIODevice::ReadOnly));
        QVERIFY(readme.readAll().contains("```cpp\n" + example.readAll() + "```\n"));
    }

private:
    const QString workflowUsage = u"usage: vellctl workflow validate FILE [--catalog CATALOG]\n"
                                  u"usage: vellctl workflow simulate FILE [--catalog CATALOG]\n"
                                  u"usage: vellctl workflow export FILE\n"_s;
    const QByteArray start = R"({"id":"start","position":{"x":80,"y":180},)"
                             R"("data":{"kind":"manual","title":"When I run it","arguments":{}}})";
    const QByteArray header = R"({"schemaVersion":1,"id":"7D3C2F4E-0A1B-4C5D-8E9F-0123456789AB",)";

    QString file(const QString& name, const QByteArray& text) {
        QFile out(m_dir.filePath(name));
        if (!out.open(QIODevice::WriteOnly) || out.write(text) != text.size())
            qFatal("cannot write %s", qPrintable(name));
        return out.fileName();
    }

    // Runs a simulation and checks its timeline: the phase and detail of the run, and each step
    // as "node phase detail". Ids and dates are fresh in every run, so only their presence counts.
    static void simulate(const QStringList& arguments, int exitCode, const QString& phase,
                         const QString& detail, const QStringList& steps) {
        QProcess vellctl;
        vellctl.start(qEnvironmentVariable("VELL_BUILD_DIR") + u"/bin/vellctl"_s,
                      QStringList{u"workflow"_s, u"simulate"_s} + arguments);
        QVERIFY(vellctl.waitForFinished(60000));
        QCOMPARE(vellctl.exitCode(), exitCode);
        const QByteArray output = vellctl.readAllStandardOutput();
        QVERIFY2(output.endsWith('\n') && output.count('\n') == 1, output.constData());
        const QJsonObject timeline = QJsonDocument::fromJson(output).object();
        QVERIFY(!QUuid::fromString(timeline.value(u"id"_s).toString()).isNull());
        QCOMPARE(timeline.value(u"workflowID"_s).toString(), u"7D3C2F4E-0A1B-4C5D-8E9F-0123456789AB"_s);
        QCOMPARE(timeline.value(u"phase"_s).toString(), phase);
        QCOMPARE(timeline.value(u"detail"_s).toString(), detail);
        QVERIFY(timeline.value(u"date"_s).toDouble() > 0);
        QVERIFY(timeline.value(u"endedAt"_s).toDouble() >= timeline.value(u"date"_s).toDouble());
        QStringList seen;
        for (const QJsonValue& value : timeline.value(u"steps"_s).toArray()) {
            const QJsonObject step = value.toObject();
            QVERIFY(step.contains(u"startedAt"_s) && step.contains(u"endedAt"_s));
            QStringList words{step.value(u"node"_s).toString(), step.value(u"phase"_s).toString()};
            if (step.contains(u"detail"_s))
                words.append(step.value(u"detail"_s).toString());
            seen.append(words.join(u' '));
        }
        QCOMPARE(seen, steps);
    }

    static void checkWorkflow(const QStringList& arguments, const QByteArray& output, int exitCode) {
        QProcess vellctl;
        vellctl.start(qEnvironmentVariable("VELL_BUILD_DIR") + u"/bin/vellctl"_s,
                      QStringList{u"workflow"_s} + arguments);
        QVERIFY(vellctl.waitForFinished(60000));
        QCOMPARE(vellctl.readAllStandardOutput(), output);
        QCOMPARE(vellctl.exitCode(), exitCode);
    }

    const QString pluginUsage = u"usage: vellctl plugin manifest FILE\n"
                                u"usage: vellctl plugin lines [--chunk N] [FILE]\n"
                                u"usage: vellctl plugin snapshot FILE\n"
                                u"usage: vellctl plugin fingerprint BUNDLE\n"
                                u"usage: vellctl plugin inspect BUNDLE\n"
                                u"usage: vellctl plugin sign BUNDLE KEY\n"
                                u"usage: vellctl plugin host BUNDLE [--send FILE]\n"_s;

    // A copy of the built Dice bundle without its signature.
    QString unsignedDice() {
        const QString folder = m_dir.filePath(u"unsigned-%1"_s.arg(++m_copies));
        QDir().mkpath(folder);
        QProcess::execute(u"cp"_s, {u"-a"_s, examplePlugins() + u"/Dice.app"_s, folder});
        QFile::remove(folder + u"/Dice.app/"_s + NativePluginBundle::signatureFile.toString());
        return folder + u"/Dice.app"_s;
    }

    static QString examplePlugins() {
        return qEnvironmentVariable("VELL_BUILD_DIR") + u"/examples/plugins"_s;
    }

    int m_copies = 0;

    // A legacy module with a feed: it echoes the event it gets, and fails without one.
    QString writeEcho() {
        QFile file(m_dir.filePath(u"echo.ostavellmodule"_s));
        if (file.open(QIODevice::WriteOnly))
            file.write(
                R"({"schemaVersion":1,"hostAPIVersion":1,"id":"cafe.osta.echo","name":"Echo",)"
                R"("version":"1.0.0","author":"Tests","summary":"","permissions":["local.mqtt.read"],)"
                R"("feeds":[{"id":"sensor","label":"Sensor"}],"initialState":{"count":"0"},"settings":[],)"
                R"("actions":[],"card":[],"page":[],"script":"function run(r) { if (!r.event) throw 'boom'; )"
                R"(return { count: r.state.count, event: r.event.feedID + '=' + r.event.json }; }"})");
        return file.fileName();
    }

    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestVellctl)
#include "tst_vellctl.moc"
