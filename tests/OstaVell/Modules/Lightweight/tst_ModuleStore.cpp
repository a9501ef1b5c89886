#include "OstaVell/Modules/Lightweight/ModuleStore.h"
#include "VellHost/ModuleRunnerSpares.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QFile>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/stat.h>

using namespace vell;

namespace {

const QString busyMessage = QStringLiteral("Other modules are busy. Try again shortly.");

// Holds the runner for about the given time without any host facility: the script has
// nothing to wait on but the clock.
QString slowly(int milliseconds, const QString& body) {
    return QStringLiteral("function run(r) { var until = Date.now() + %1; while (Date.now() < until) {} %2 }")
        .arg(milliseconds)
        .arg(body);
}

ModulePackage package(const QString& id, const QString& script) {
    ModulePackage package;
    package.id = id;
    package.name = QStringLiteral("Test module");
    package.version = QStringLiteral("1.0.0");
    package.author = QStringLiteral("Tests");
    package.initialState = {{QStringLiteral("count"), QStringLiteral("0")}};
    package.settings = {{QStringLiteral("unit"), QStringLiteral("Unit"), QStringLiteral("C")}};
    package.actions = {{QStringLiteral("add"), QStringLiteral("Add")},
                       {QStringLiteral("same"), QStringLiteral("Same")}};
    package.script = script;
    return package;
}

ModulePackage feedPackage(const QString& id, const QString& script) {
    ModulePackage feed = package(id, script);
    feed.permissions = {QStringLiteral("local.mqtt.read")};
    feed.feeds = QList<ModuleFeed>{{QStringLiteral("sensor"), QStringLiteral("Sensor")}};
    return feed;
}

bool waitIdle(ModuleStore& store) {
    QSignalSpy changes(&store, &ModuleStore::runningChanged);
    while (!store.running().isEmpty()) {
        if (!changes.wait(30000))
            return false;
    }
    return true;
}

QByteArray contents(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void write(const QString& path, const QByteArray& data) {
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(data), data.size());
}

// The message an install is refused with; empty when it was not refused.
QString refusal(ModuleStore& store, const ModulePackage& candidate) {
    try {
        store.install(candidate);
    } catch (const ModuleProblem& problem) {
        return problem.message();
    }
    return QString();
}

QString realRunner() {
    return qEnvironmentVariable("VELL_BUILD_DIR") + QStringLiteral("/libexec/ostavell/VellModuleRunner");
}

QString fakeRunner() {
    return qEnvironmentVariable("VELL_BUILD_DIR") + QStringLiteral("/tests/FakeModuleRunner");
}

} // namespace

class tst_ModuleStore final : public QObject {
    Q_OBJECT

private slots:
    void init();
    void helloVellEndToEnd();
    void installRefusals_data();
    void installRefusals();
    void twentyModulesRefuseTheNextBeforeLookingAtItsId();
    void missingRunnerIsReportedInTheCard();
    void unusableFileIsKeptAndNothingIsSaved_data();
    void unusableFileIsKeptAndNothingIsSaved();
    void unchangedStateWritesNothing();
    void settingsChangeDuringARunDiscardsTheOldAnswer();
    void removeDuringARunLeavesNothingBehind();
    void disableDuringARunKeepsTheOldState();
    void fifthModuleIsBusyUntilOneFinishes();
    void busyModuleGetsOnlyTheNewestEvent();
    void undeclaredActionAndSecondPressAreRefused();
    void failedRunKeepsStateAndShowsTheMessage();
    void eachPressRunsInTheSpareReadiedAfterTheLastRun();
    void visibilityAndCompactActivityAreSaved();
    void reviewScreen();
    void onlyRegularFilesAreRead_data();
    void onlyRegularFilesAreRead();
    void settingThatCouldNotBeReadBackIsRefused();
    void longErrorIsShownWithinTheTextLimit();

private:
    QString filePath() const { return m_dir->filePath(QStringLiteral("OstaVell/modules-v1.json")); }

    std::unique_ptr<QTemporaryDir> m_dir;
};

void tst_ModuleStore::init() {
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void tst_ModuleStore::helloVellEndToEnd() {
    const QVariantMap offered = ModuleStore::examples().value(0).toMap();
    QCOMPARE(offered.value(QStringLiteral("label")).toString(), QStringLiteral("Hello Vell"));
    const QString exampleName = offered.value(QStringLiteral("name")).toString();
    const ModulePackage hello = ModuleStore::example(exampleName);
    QCOMPARE(hello.name, QStringLiteral("Hello Vell"));
    try {
        ModuleStore::example(QStringLiteral("Missing"));
        QFAIL("a missing example was found");
    } catch (const ModuleProblem& problem) {
        QCOMPARE(problem.message(),
                 QStringLiteral("Example package is missing. Install the packaged OstaVell app."));
    }
    {
        ModuleStore store(filePath(), realRunner());
        QVERIFY(store.reviewExample(exampleName).isEmpty());
        QCOMPARE(store.reviewed().value(QStringLiteral("access")).toString(),
                 QStringLiteral(
                     "Access: its own local state and settings only. No network, printer, files, accounts "
                     "or system commands."));
        QCOMPARE(store.installReviewed(), QString());
        QVERIFY(store.reviewed().isEmpty());
        QVERIFY(waitIdle(store));
        QCOMPARE(store.errors(), (QMap<QString, QString>()));

        store.press(hello.id, QStringLiteral("greet"));
        QVERIFY(store.running().contains(hello.id));
        QVERIFY(waitIdle(store));
        QCOMPARE(store.errors(), (QMap<QString, QString>()));
        QCOMPARE(store.module(hello.id)->state.value(QStringLiteral("count")), QStringLiteral("1"));
        QCOMPARE(store.text(hello.id, QStringLiteral("{message}")), QStringLiteral("Hello, friend!"));
        QCOMPARE(store.activityText(hello.id), QStringLiteral("Hello, friend: 1"));
        QCOMPARE(store.progress(hello.id, QStringLiteral("progress")), 10.0);
    }
    const QJsonDocument saved = QJsonDocument::fromJson(contents(filePath()));
    QCOMPARE(saved.array().size(), 1);
    QCOMPARE(saved.array().at(0)[QStringLiteral("state")][QStringLiteral("count")].toString(),
             QStringLiteral("1"));

    ModuleStore reopened(filePath(), realRunner());
    QCOMPARE(reopened.modules().size(), 1);
    QCOMPARE(reopened.module(hello.id)->state.value(QStringLiteral("count")), QStringLiteral("1"));
    QVERIFY(reopened.running().isEmpty());
}

void tst_ModuleStore::installRefusals_data() {
    QTest::addColumn<int>("installedBefore");
    QTest::addColumn<ModulePackage>("candidate");
    QTest::addColumn<QString>("expected");

    ModulePackage badVersion = package(QStringLiteral("cafe.osta.bad"), QStringLiteral("function run() {}"));
    badVersion.version = QStringLiteral("1.0");
    QTest::addRow("package fails validation")
        << 0 << badVersion << QStringLiteral("Use a three-part module version, such as 1.0.0.");
    QTest::addRow("already installed")
        << 1 << package(QStringLiteral("cafe.osta.m0"), QStringLiteral("function run() {}"))
        << QStringLiteral(
               "This module is already installed. Remove it before installing a different version; updates "
               "arrive in the creator beta.");
    // 200 characters, but each an "e" with five combining marks: within the character limit,
    // over what a stored value may hold. Saved, it would make the next start refuse the file.
    ModulePackage heavyDefault =
        package(QStringLiteral("cafe.osta.heavy"), QStringLiteral("function run() {}"));
    heavyDefault.settings[0].defaultValue = QString(200, u'e');
    for (qsizetype i = 199; i >= 0; --i)
        heavyDefault.settings[0].defaultValue.insert(i + 1, QStringLiteral("\u0301\u0302\u0303\u0304\u0305"));
    QTest::addRow("a default over the stored value's bytes")
        << 0 << heavyDefault << QStringLiteral("Invalid module setting.");
}

void tst_ModuleStore::installRefusals() {
    QFETCH(int, installedBefore);
    QFETCH(ModulePackage, candidate);
    QFETCH(QString, expected);
    ModuleStore store(filePath(), QString());
    for (int i = 0; i < installedBefore; ++i)
        store.install(package(QStringLiteral("cafe.osta.m%1").arg(i), QStringLiteral("function run() {}")));
    const QByteArray before = contents(filePath());
    QCOMPARE(refusal(store, candidate), expected);
    QCOMPARE(store.modules().size(), installedBefore);
    QCOMPARE(contents(filePath()), before);
}

void tst_ModuleStore::twentyModulesRefuseTheNextBeforeLookingAtItsId() {
    ModuleStore store(filePath(), QString());
    for (int i = 0; i < ModuleStore::maximumModules; ++i)
        store.install(package(QStringLiteral("cafe.osta.m%1").arg(i), QStringLiteral("function run() {}")));
    for (const QString& id : {QStringLiteral("cafe.osta.new"), QStringLiteral("cafe.osta.m3")})
        QCOMPARE(refusal(store, package(id, QStringLiteral("function run() {}"))),
                 QStringLiteral("This preview supports up to 20 modules."));
    store.remove(QStringLiteral("cafe.osta.m3"));
    store.install(package(QStringLiteral("cafe.osta.new"), QStringLiteral("function run() {}")));
    QCOMPARE(ModuleStore(filePath(), QString()).modules().size(), ModuleStore::maximumModules);
}

void tst_ModuleStore::missingRunnerIsReportedInTheCard() {
    for (const QString& runner : {QString(), m_dir->filePath(QStringLiteral("no-such-runner"))}) {
        ModuleStore store(filePath(), runner);
        const ModulePackage module =
            package(QStringLiteral("cafe.osta.norunner"), QStringLiteral("function run() {}"));
        store.remove(module.id);
        store.install(module);
        QCOMPARE(store.errors().value(module.id),
                 QStringLiteral("Install the packaged OstaVell app to run modules."));
        QVERIFY(store.running().isEmpty());
        QCOMPARE(store.module(module.id)->state, module.initialState);
    }
}

void tst_ModuleStore::unusableFileIsKeptAndNothingIsSaved_data() {
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QString>("reason"); // empty: the JSON parser words it

    const QByteArray good =
        InstalledModule(package(QStringLiteral("cafe.osta.good"), QStringLiteral("x"))).encoded();
    ModulePackage invalid = package(QStringLiteral("cafe.osta.bad"), QStringLiteral("x"));
    invalid.version = QStringLiteral("1.0");
    InstalledModule badState(package(QStringLiteral("cafe.osta.state"), QStringLiteral("x")));
    badState.state.insert(QStringLiteral("9lives"), QStringLiteral("x"));
    InstalledModule badConfiguration(package(QStringLiteral("cafe.osta.conf"), QStringLiteral("x")));
    badConfiguration.configuration.insert(QStringLiteral("unit"), QString(2049, QLatin1Char('u')));

    QByteArray twentyOne("[");
    for (int i = 0; i < 21; ++i)
        twentyOne +=
            (i ? "," : "") + InstalledModule(package(QStringLiteral("cafe.osta.m%1").arg(i), "x")).encoded();
    twentyOne += "]";

    QTest::addRow("not JSON") << QByteArray("{ nope") << QString();
    QTest::addRow("not an array") << QByteArray("{}") << QStringLiteral("Invalid saved module index.");
    QTest::addRow("21 entries") << twentyOne << QStringLiteral("Invalid saved module index.");
    QTest::addRow("duplicate ids") << "[" + good + "," + good + "]"
                                   << QStringLiteral("Invalid saved module index.");
    QTest::addRow("one invalid package among good ones")
        << "[" + good + "," + InstalledModule(invalid).encoded() + "]"
        << QStringLiteral("Use a three-part module version, such as 1.0.0.");
    QTest::addRow("invalid state") << "[" + badState.encoded() + "]"
                                   << QStringLiteral("Module returned invalid or oversized state.");
    QTest::addRow("oversized configuration") << "[" + badConfiguration.encoded() + "]"
                                             << QStringLiteral("Module returned invalid or oversized state.");
    QTest::addRow("over the storage limit")
        << "[" + good + "]" + QByteArray(ModuleStore::maximumFileBytes, ' ')
        << QStringLiteral("Saved modules exceed the storage limit.");
}

void tst_ModuleStore::unusableFileIsKeptAndNothingIsSaved() {
    QFETCH(QByteArray, data);
    QFETCH(QString, reason);
    QVERIFY(QDir().mkpath(QFileInfo(filePath()).absolutePath()));
    write(filePath(), data);

    ModuleStore store(filePath(), realRunner());
    QVERIFY(store.storageUnavailable());
    QVERIFY(store.modules().isEmpty());
    const QString prefix = QStringLiteral("Could not read saved modules. The original file has been kept: ");
    QVERIFY2(store.notice().startsWith(prefix), qPrintable(store.notice()));
    if (!reason.isEmpty())
        QCOMPARE(store.notice(), prefix + reason);

    QCOMPARE(refusal(store, package(QStringLiteral("cafe.osta.new"), QStringLiteral("function run() {}"))),
             QStringLiteral("Saved module data needs recovery before installing another module."));
    store.remove(QStringLiteral("cafe.osta.good"));
    QCOMPARE(contents(filePath()), data);
}

void tst_ModuleStore::unchangedStateWritesNothing() {
    ModuleStore store(filePath(), realRunner());
    const ModulePackage module = package(
        QStringLiteral("cafe.osta.same"),
        QStringLiteral(
            "function run(r) { return { count: r.action === 'add' ? String(Number(r.state.count) + 1) : "
            "r.state.count }; }"));
    store.install(module);
    QVERIFY(waitIdle(store));

    // Same records, different bytes: any save would replace them with the compact form.
    const QByteArray marked = contents(filePath()) + "\n";
    write(filePath(), marked);
    store.press(module.id, QStringLiteral("same"));
    QVERIFY(waitIdle(store));
    QCOMPARE(store.errors(), (QMap<QString, QString>()));
    QCOMPARE(contents(filePath()), marked);

    store.press(module.id, QStringLiteral("add"));
    QVERIFY(waitIdle(store));
    QCOMPARE(store.module(module.id)->state.value(QStringLiteral("count")), QStringLiteral("1"));
    QVERIFY(contents(filePath()) != marked);
}

void tst_ModuleStore::settingsChangeDuringARunDiscardsTheOldAnswer() {
    ModuleStore store(filePath(), realRunner());
    QStringList seenUnits;
    connect(&store, &ModuleStore::modulesChanged, &store, [&] {
        for (const InstalledModule& module : store.modules())
            seenUnits.append(module.state.value(QStringLiteral("unit")));
    });
    const ModulePackage module =
        package(QStringLiteral("cafe.osta.units"),
                slowly(800, QStringLiteral("return { unit: r.configuration.unit };")));
    store.install(module);
    QVERIFY(store.running().contains(module.id));
    store.configure(module.id, QStringLiteral("unit"), QStringLiteral("F"));
    QVERIFY(store.running().contains(module.id));
    QVERIFY(waitIdle(store));

    QCOMPARE(store.module(module.id)->configuration.value(QStringLiteral("unit")), QStringLiteral("F"));
    QCOMPARE(store.module(module.id)->state.value(QStringLiteral("unit")), QStringLiteral("F"));
    QVERIFY2(!seenUnits.contains(QStringLiteral("C")), qPrintable(seenUnits.join(QLatin1Char(','))));
    QCOMPARE(store.errors(), (QMap<QString, QString>()));

    // Undeclared keys change nothing; a long value is kept to its first 200 characters.
    store.configure(module.id, QStringLiteral("colour"), QStringLiteral("red"));
    QVERIFY(!store.module(module.id)->configuration.contains(QStringLiteral("colour")));
    QVERIFY(store.running().isEmpty());
    store.configure(module.id, QStringLiteral("unit"), QString(300, QLatin1Char('k')));
    QCOMPARE(store.module(module.id)->configuration.value(QStringLiteral("unit")),
             QString(200, QLatin1Char('k')));
    QVERIFY(waitIdle(store));
}

void tst_ModuleStore::removeDuringARunLeavesNothingBehind() {
    ModuleStore store(filePath(), fakeRunner());
    QStringList removed;
    store.setOnRemove([&](const QString& id) { removed.append(id); });
    const ModulePackage slow = package(QStringLiteral("cafe.osta.slow"), QStringLiteral("fake:slow-valid"));
    const ModulePackage other = package(QStringLiteral("cafe.osta.other"), QStringLiteral("fake:valid"));
    store.install(slow);
    QVERIFY(store.running().contains(slow.id));
    store.remove(slow.id);
    QVERIFY(store.running().isEmpty());
    QCOMPARE(removed, QStringList{slow.id});

    // The killed run's answer comes back long before this one's.
    store.install(other);
    QVERIFY(waitIdle(store));
    QVERIFY(!store.module(slow.id));
    QVERIFY(!store.errors().contains(slow.id));
    QVERIFY(!contents(filePath()).contains(slow.id.toUtf8()));
    QCOMPARE(store.module(other.id)->state.value(QStringLiteral("count")), QStringLiteral("1"));
}

void tst_ModuleStore::disableDuringARunKeepsTheOldState() {
    ModuleStore store(filePath(), fakeRunner());
    const ModulePackage slow = package(QStringLiteral("cafe.osta.slow"), QStringLiteral("fake:slow-valid"));
    const ModulePackage other = package(QStringLiteral("cafe.osta.other"), QStringLiteral("fake:valid"));
    store.install(slow);
    store.setEnabled(slow.id, false);
    QVERIFY(store.running().isEmpty());
    store.install(other);
    QVERIFY(waitIdle(store));
    QCOMPARE(store.module(slow.id)->state.value(QStringLiteral("count")), QStringLiteral("0"));
    QCOMPARE(store.visible(QStringLiteral("DP-1")).size(), 1);

    // A disabled module doesn't run; enabling it runs it again.
    store.retry(slow.id);
    QVERIFY(store.running().isEmpty());
    store.setEnabled(slow.id, true);
    QVERIFY(store.running().contains(slow.id));
    store.killAll();
}

void tst_ModuleStore::fifthModuleIsBusyUntilOneFinishes() {
    ModuleStore store(filePath(), fakeRunner());
    for (int i = 0; i < ModuleStore::maximumRunning; ++i)
        store.install(
            package(QStringLiteral("cafe.osta.hang%1").arg(i), QStringLiteral("fake:hang-silently")));
    QCOMPARE(store.running().size(), ModuleStore::maximumRunning);

    const ModulePackage fifth = package(QStringLiteral("cafe.osta.fifth"), QStringLiteral("fake:valid"));
    store.install(fifth);
    QCOMPARE(store.errors().value(fifth.id), busyMessage);
    store.retry(fifth.id);
    QCOMPARE(store.errors().value(fifth.id), busyMessage);
    QVERIFY(!store.running().contains(fifth.id));

    store.cancel(QStringLiteral("cafe.osta.hang0"));
    store.retry(fifth.id);
    QVERIFY(store.running().contains(fifth.id));
    QVERIFY(!store.errors().contains(fifth.id));

    // At quit every run ends, and their cancelled answers show no "Module stopped." later.
    store.killAll();
    QVERIFY(store.running().isEmpty());
    store.install(package(QStringLiteral("cafe.osta.after"), QStringLiteral("fake:valid")));
    QVERIFY(waitIdle(store));
    QCOMPARE(store.errors(), (QMap<QString, QString>()));
}

void tst_ModuleStore::busyModuleGetsOnlyTheNewestEvent() {
    ModuleStore store(filePath(), realRunner());
    QStringList seen;
    connect(&store, &ModuleStore::modulesChanged, &store, [&] {
        const auto module = store.module(QStringLiteral("cafe.osta.feed"));
        if (module && module->state.contains(QStringLiteral("last")))
            seen.append(module->state.value(QStringLiteral("last")));
    });
    const ModulePackage feed =
        feedPackage(QStringLiteral("cafe.osta.feed"),
                    slowly(500, QStringLiteral("return { last: r.event ? r.event.json : 'none' };")));
    store.install(feed);
    QVERIFY(store.running().contains(feed.id));
    store.receive(feed.id, {QStringLiteral("sensor"), QStringLiteral("first")});
    store.receive(feed.id, {QStringLiteral("sensor"), QStringLiteral("second")});
    // Events of an undeclared feed or over the body limit are ignored outright.
    store.receive(feed.id, {QStringLiteral("other"), QStringLiteral("wrong feed")});
    store.receive(feed.id,
                  {QStringLiteral("sensor"), QString(ModuleStore::maximumEventBytes + 1, QLatin1Char('x'))});
    QVERIFY(waitIdle(store));
    QCOMPARE(seen, (QStringList{QStringLiteral("none"), QStringLiteral("second")}));
    QCOMPARE(store.activityText(feed.id), QStringLiteral("Legacy module offline"));

    // Without the permission and feed, an event never reaches the script.
    const ModulePackage plain =
        package(QStringLiteral("cafe.osta.plain"), slowly(0, QStringLiteral("return {};")));
    store.install(plain);
    QVERIFY(waitIdle(store));
    store.receive(plain.id, {QStringLiteral("sensor"), QStringLiteral("ignored")});
    QVERIFY(store.running().isEmpty());
}

void tst_ModuleStore::undeclaredActionAndSecondPressAreRefused() {
    ModuleStore store(filePath(), fakeRunner());
    const ModulePackage slow = package(QStringLiteral("cafe.osta.slow"), QStringLiteral("fake:slow-valid"));
    store.install(slow);
    QSignalSpy runningChanges(&store, &ModuleStore::runningChanged);
    store.press(slow.id, QStringLiteral("add"));
    QCOMPARE(runningChanges.count(), 0);
    QVERIFY(waitIdle(store));

    store.press(slow.id, QStringLiteral("launch"));
    QCOMPARE(store.errors().value(slow.id), QStringLiteral("This action is not available."));
    QVERIFY(store.running().isEmpty());
}

void tst_ModuleStore::failedRunKeepsStateAndShowsTheMessage() {
    ModuleStore store(filePath(), realRunner());
    const ModulePackage failing = package(
        QStringLiteral("cafe.osta.fail"),
        QStringLiteral(
            "function run(r) { if (r.action) throw new Error('Sensor offline'); return { count: '5' }; }"));
    store.install(failing);
    QVERIFY(waitIdle(store));
    store.press(failing.id, QStringLiteral("add"));
    QVERIFY(waitIdle(store));
    QCOMPARE(store.errors().value(failing.id), QStringLiteral("Sensor offline"));
    QCOMPARE(store.module(failing.id)->state.value(QStringLiteral("count")), QStringLiteral("5"));

    // "Try again" clears the error as the run starts.
    store.retry(failing.id);
    QVERIFY(!store.errors().contains(failing.id));
    QVERIFY(waitIdle(store));
    QVERIFY(!store.errors().contains(failing.id));
}

void tst_ModuleStore::eachPressRunsInTheSpareReadiedAfterTheLastRun() {
    const QString runner = fakeRunner();
    const ModulePackage module = package(QStringLiteral("cafe.osta.pid"), QStringLiteral("fake:report-pid"));
    const auto ranIn = [&](const ModuleStore& store) {
        return store.module(module.id)->state.value(QStringLiteral("pid")).toInt();
    };
    pid_t next = 0;
    {
        ModuleStore store(filePath(), runner);
        store.install(module);
        QVERIFY(waitIdle(store));
        const pid_t first = ranIn(store);
        pid_t spare = 0;
        QTRY_VERIFY_WITH_TIMEOUT((spare = ModuleRunnerSpares::waitingPid(runner)) != 0, 30000);
        QVERIFY(spare != first);

        store.press(module.id, QStringLiteral("add"));
        QVERIFY(waitIdle(store));
        QCOMPARE(store.errors(), (QMap<QString, QString>()));
        QCOMPARE(ranIn(store), spare);
        QTRY_VERIFY_WITH_TIMEOUT((next = ModuleRunnerSpares::waitingPid(runner)) != 0, 30000);
        QVERIFY(next != spare);

        // At quit the spare goes too, and nothing waits for it.
        store.killAll();
        QCOMPARE(ModuleRunnerSpares::waitingPid(runner), 0);
        QTRY_VERIFY_WITH_TIMEOUT(kill(next, 0) != 0, 30000);
    }

    // A store that opens with an enabled module readies one at once; its end kills it.
    {
        ModuleStore reopened(filePath(), runner);
        QTRY_VERIFY_WITH_TIMEOUT((next = ModuleRunnerSpares::waitingPid(runner)) != 0, 30000);
        QVERIFY(reopened.running().isEmpty());
    }
    QCOMPARE(ModuleRunnerSpares::waitingPid(runner), 0);
    QTRY_VERIFY_WITH_TIMEOUT(kill(next, 0) != 0, 30000);
}

void tst_ModuleStore::visibilityAndCompactActivityAreSaved() {
    const ModulePackage module =
        package(QStringLiteral("cafe.osta.view"), QStringLiteral("function run() {}"));
    {
        ModuleStore store(filePath(), QString());
        store.install(module);
        store.setVisible(module.id, QStringLiteral("HDMI-1"), false);
        store.setCompact(module.id, true);
    }
    ModuleStore reopened(filePath(), QString());
    QVERIFY(reopened.module(module.id)->compactActivity);
    QVERIFY(reopened.visible(QStringLiteral("HDMI-1")).isEmpty());
    QCOMPARE(reopened.visibleModules(QStringLiteral("DP-1")).size(), 1);
}

void tst_ModuleStore::reviewScreen() {
    ModuleStore store(filePath(), QString());
    QSignalSpy reviewedChanges(&store, &ModuleStore::reviewedChanged);

    const QString oversized = m_dir->filePath(QStringLiteral("big.ostavellmodule"));
    write(oversized, QByteArray(ModulePackage::maximumBytes + 1, ' '));
    QCOMPARE(store.review(QUrl::fromLocalFile(oversized)),
             QStringLiteral("Module exceeds the 256 KB package limit."));
    QVERIFY(!store.review(QUrl::fromLocalFile(m_dir->filePath(QStringLiteral("absent")))).isEmpty());
    QVERIFY(store.reviewed().isEmpty());
    QCOMPARE(store.installReviewed(), QString());
    QVERIFY(store.modules().isEmpty());

    const ModulePackage feed =
        feedPackage(QStringLiteral("cafe.osta.feed"), QStringLiteral("function run() {}"));
    const QString feedFile = m_dir->filePath(QStringLiteral("feed.ostavellmodule"));
    write(feedFile, feed.encoded());
    QCOMPARE(store.review(QUrl::fromLocalFile(feedFile)), QString());
    QCOMPARE(reviewedChanges.count(), 1);
    QCOMPARE(store.reviewed().value(QStringLiteral("publisher")).toString(),
             QStringLiteral("Publisher identity is not verified in this preview."));
    QCOMPARE(store.reviewed().value(QStringLiteral("access")).toString(),
             QStringLiteral(
                 "Access: local state and an optional read-only device feed. You choose and connect the "
                 "device separately. No printer commands, files, or accounts."));
    QVERIFY(store.reviewed().value(QStringLiteral("legacy")).toBool());
    QCOMPARE(store.installReviewed(), QString());
    QCOMPARE(store.modules().size(), 1);

    // A failed install leaves the package on the review screen with the reason.
    QCOMPARE(store.review(QUrl::fromLocalFile(feedFile)), QString());
    QCOMPARE(store.installReviewed(),
             QStringLiteral(
                 "This module is already installed. Remove it before installing a different version; updates "
                 "arrive in the creator beta."));
    QVERIFY(!store.reviewed().isEmpty());
    store.cancelReview();
    QVERIFY(store.reviewed().isEmpty());
}

void tst_ModuleStore::onlyRegularFilesAreRead_data() {
    QTest::addColumn<QString>("kind");
    QTest::addRow("named pipe with no writer") << "fifo";
    QTest::addRow("device") << "device";
}

void tst_ModuleStore::onlyRegularFilesAreRead() {
    QFETCH(QString, kind);
    QString path = QStringLiteral("/dev/null");
    if (kind == u"fifo") {
        // Opening it to read would wait for a writer for ever.
        path = m_dir->filePath(QStringLiteral("pipe.ostavellmodule"));
        QCOMPARE(mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    }
    ModuleStore store(filePath(), QString());
    QCOMPARE(store.review(QUrl::fromLocalFile(path)), QStringLiteral("Not a regular file."));
    QVERIFY(store.reviewed().isEmpty());
}

void tst_ModuleStore::settingThatCouldNotBeReadBackIsRefused() {
    ModuleStore store(filePath(), QString());
    const ModulePackage module =
        package(QStringLiteral("cafe.osta.cfg"), QStringLiteral("function run() {}"));
    store.install(module);
    store.configure(module.id, QStringLiteral("unit"), QStringLiteral("F"));
    const QByteArray saved = contents(filePath());

    // Within 200 characters, over 2,048 bytes.
    QString heavy;
    for (int i = 0; i < 200; ++i)
        heavy += QStringLiteral("e\u0301\u0302\u0303\u0304\u0305");
    store.configure(module.id, QStringLiteral("unit"), heavy);
    QCOMPARE(store.errors().value(module.id), QStringLiteral("This setting is too long to save."));
    QCOMPARE(store.module(module.id)->configuration.value(QStringLiteral("unit")), QStringLiteral("F"));
    QCOMPARE(contents(filePath()), saved);
    QVERIFY(store.notice().isEmpty());

    // Exactly at the byte limit it is kept, and the next start reads it back.
    const QString atLimit = heavy.left(186 * 6) + QChar(0x00e9);
    QCOMPARE(atLimit.toUtf8().size(), ModulePackage::maximumValueBytes);
    store.configure(module.id, QStringLiteral("unit"), atLimit);
    QCOMPARE(store.module(module.id)->configuration.value(QStringLiteral("unit")), atLimit);
    ModuleStore reopened(filePath(), QString());
    QVERIFY(!reopened.storageUnavailable());
    QCOMPARE(reopened.module(module.id)->configuration.value(QStringLiteral("unit")), atLimit);
}

void tst_ModuleStore::longErrorIsShownWithinTheTextLimit() {
    ModuleStore store(filePath(), realRunner());
    const ModulePackage failing =
        package(QStringLiteral("cafe.osta.loud"),
                QStringLiteral("function run(r) { throw new Error('x'.repeat(60000)); }"));
    store.install(failing);
    QVERIFY(waitIdle(store));
    QCOMPARE(store.errors().value(failing.id).size(), 60000);
    const QVariantMap shown = store.property("errors").toMap();
    QCOMPARE(shown.value(failing.id).toString(), QString(ModulePackage::maximumTextCharacters, u'x'));
}

QTEST_GUILESS_MAIN(tst_ModuleStore)
#include "tst_ModuleStore.moc"
