#include "OstaVell/Modules/Lightweight/ModuleStore.h"
#include "VellHost/ModuleRunnerSpares.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/stat.h>

#include "TestSupport.h"

using namespace vell;
using namespace vell::test;
using namespace Qt::StringLiterals;

namespace {

const QString realRunner = qEnvironmentVariable("VELL_BUILD_DIR") + u"/libexec/ostavell/VellModuleRunner"_s;
const QString fakeRunner = qEnvironmentVariable("VELL_BUILD_DIR") + u"/tests/FakeModuleRunner"_s;
const QString alreadyInstalled = u"This module is already installed. Remove it before installing a different "
                                 u"version; updates arrive in the creator beta."_s;

// Each character an "e" with five combining marks: 200 of them are within the character
// limit of a setting, and over the bytes a stored value may hold.
QString heavy(int characters) {
    return u"e\u0301\u0302\u0303\u0304\u0305"_s.repeated(characters);
}

ModulePackage package(const QString& id, const QString& script = u"function run() {}"_s) {
    ModulePackage package;
    package.id = id;
    package.name = u"Test module"_s;
    package.version = u"1.0.0"_s;
    package.author = u"Tests"_s;
    package.initialState = {{u"count"_s, u"0"_s}};
    package.settings = {{u"unit"_s, u"Unit"_s, u"C"_s}};
    package.actions = {{u"add"_s, u"Add"_s}};
    package.script = script;
    return package;
}

ModulePackage feedPackage(const QString& id, const QString& script = u"function run() {}"_s) {
    ModulePackage feed = package(id, script);
    feed.permissions = {u"local.mqtt.read"_s};
    feed.feeds = QList<ModuleFeed>{{u"sensor"_s, u"Sensor"_s}};
    return feed;
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

} // namespace

class tst_ModuleStore final : public QObject {
    Q_OBJECT

private slots:
    void init() {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
    }

    // The example that ships, from the review screen to a saved state that the next start reads
    // back; a run that leaves the state as it was writes nothing.
    void helloVellEndToEnd() {
        const QVariantMap offered = ModuleStore::examples().value(0).toMap();
        QCOMPARE(offered.value(u"label"_s).toString(), u"Hello Vell"_s);
        const QString exampleName = offered.value(u"name"_s).toString();
        const QString id = ModuleStore::example(exampleName).id;
        QCOMPARE(problemOf([] { ModuleStore::example(u"Missing"_s); }),
                 u"Example package is missing. Install the packaged OstaVell app."_s);
        {
            ModuleStore store(filePath(), realRunner);
            QSignalSpy reviewedChanges(&store, &ModuleStore::reviewedChanged);
            const QString feedFile = m_dir->filePath(u"feed.ostavellmodule"_s);
            write(feedFile, feedPackage(u"cafe.osta.feed"_s).encoded());
            QCOMPARE(store.review(QUrl::fromLocalFile(feedFile)), QString());
            QCOMPARE(reviewedChanges.count(), 1);
            QCOMPARE(store.reviewed().value(u"publisher"_s).toString(),
                     u"Publisher identity is not verified in this preview."_s);
            QCOMPARE(store.reviewed().value(u"access"_s).toString(),
                     u"Access: local state and an optional read-only device feed. You choose and connect the "
                     u"device separately. No printer commands, files, or accounts."_s);
            QVERIFY(store.reviewed().value(u"legacy"_s).toBool());
            store.cancelReview();
            QVERIFY(store.reviewed().isEmpty());

            QVERIFY(store.reviewExample(exampleName).isEmpty());
            QCOMPARE(
                store.reviewed().value(u"access"_s).toString(),
                u"Access: its own local state and settings only. No network, printer, files, accounts or "
                u"system commands."_s);
            QCOMPARE(store.installReviewed(), QString());
            QVERIFY(store.reviewed().isEmpty());
            QTRY_VERIFY_WITH_TIMEOUT(store.running().isEmpty(), 30000);
            // A failed install leaves the package on the review screen with the reason.
            QVERIFY(store.reviewExample(exampleName).isEmpty());
            QCOMPARE(store.installReviewed(), alreadyInstalled);
            QVERIFY(!store.reviewed().isEmpty());

            // Same records, different bytes: any save would replace them with the compact form.
            const QByteArray marked = contents(filePath()) + "\n";
            write(filePath(), marked);
            store.retry(id);
            QTRY_VERIFY_WITH_TIMEOUT(store.running().isEmpty(), 30000);
            QCOMPARE(contents(filePath()), marked);

            store.press(id, u"greet"_s);
            QVERIFY(store.running().contains(id));
            QTRY_VERIFY_WITH_TIMEOUT(store.running().isEmpty(), 30000);
            QCOMPARE(store.errors(), (QMap<QString, QString>()));
            QCOMPARE(store.text(id, u"{message}"_s), u"Hello, friend!"_s);
            QCOMPARE(store.activityText(id), u"Hello, friend: 1"_s);
            QCOMPARE(store.progress(id, u"progress"_s), 10.0);
            store.setVisible(id, u"HDMI-1"_s, false);
            store.setCompact(id, true);
        }
        const QJsonArray saved = QJsonDocument::fromJson(contents(filePath())).array();
        QCOMPARE(saved.size(), 1);
        QCOMPARE(saved.at(0)[u"state"_s][u"count"_s].toString(), u"1"_s);

        ModuleStore reopened(filePath(), realRunner);
        QCOMPARE(reopened.module(id)->state.value(u"count"_s), u"1"_s);
        QVERIFY(reopened.running().isEmpty());
        QVERIFY(reopened.module(id)->compactActivity);
        QVERIFY(reopened.visible(u"HDMI-1"_s).isEmpty());
        QCOMPARE(reopened.visibleModules(u"DP-1"_s).size(), 1);
    }

    void installRefusals_data() {
        QTest::addColumn<int>("installedBefore");
        QTest::addColumn<ModulePackage>("candidate");
        QTest::addColumn<QString>("expected");

        ModulePackage badVersion = package(u"cafe.osta.bad"_s);
        badVersion.version = u"1.0"_s;
        QTest::addRow("package fails validation")
            << 0 << badVersion << u"Use a three-part module version, such as 1.0.0."_s;
        QTest::addRow("already installed") << 1 << package(u"cafe.osta.m0"_s) << alreadyInstalled;
        // Saved, a default over the stored value's bytes would make the next start refuse the file.
        ModulePackage heavyDefault = package(u"cafe.osta.heavy"_s);
        heavyDefault.settings[0].defaultValue = heavy(200);
        QTest::addRow("a default over the stored value's bytes")
            << 0 << heavyDefault << u"Invalid module setting."_s;
        // The limit is looked at before the id.
        for (const QString& id : {u"cafe.osta.new"_s, u"cafe.osta.m3"_s})
            QTest::addRow("twenty installed, then %s", qPrintable(id))
                << ModuleStore::maximumModules << package(id) << u"This preview supports up to 20 modules."_s;
    }

    void installRefusals() {
        QFETCH(int, installedBefore);
        QFETCH(ModulePackage, candidate);
        QFETCH(QString, expected);
        ModuleStore store(filePath(), m_dir->filePath(u"no-such-runner"_s));
        for (int i = 0; i < installedBefore; ++i)
            store.install(package(u"cafe.osta.m%1"_s.arg(i)));
        if (installedBefore > 0)
            QCOMPARE(store.errors().value(u"cafe.osta.m0"_s),
                     u"Install the packaged OstaVell app to run modules."_s);
        const QByteArray before = contents(filePath());
        QCOMPARE(problemOf([&] { store.install(candidate); }), expected);
        QCOMPARE(store.modules().size(), installedBefore);
        QCOMPARE(contents(filePath()), before);
        // What was saved, up to the limit itself, the next start reads back.
        QCOMPARE(ModuleStore(filePath(), QString()).modules().size(), installedBefore);
    }

    void unusableFileIsKeptAndNothingIsSaved_data() {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<QString>("reason");

        const QByteArray good = InstalledModule(package(u"cafe.osta.good"_s)).encoded();
        ModulePackage invalid = package(u"cafe.osta.bad"_s);
        invalid.version = u"1.0"_s;
        InstalledModule badState(package(u"cafe.osta.state"_s));
        badState.state.insert(u"9lives"_s, u"x"_s);
        InstalledModule badConfiguration(package(u"cafe.osta.conf"_s));
        badConfiguration.configuration.insert(u"unit"_s, QString(2049, u'u'));
        QByteArrayList twentyOne;
        for (int i = 0; i < 21; ++i)
            twentyOne.append(InstalledModule(package(u"cafe.osta.m%1"_s.arg(i))).encoded());

        const QString index = u"Invalid saved module index."_s;
        const QString invalidState = u"Module returned invalid or oversized state."_s;
        QTest::addRow("not JSON") << QByteArray("{ nope") << u"unterminated object"_s;
        QTest::addRow("not an array") << QByteArray("{}") << index;
        QTest::addRow("21 entries") << "[" + twentyOne.join(',') + "]" << index;
        QTest::addRow("duplicate ids") << "[" + good + "," + good + "]" << index;
        QTest::addRow("one invalid package among good ones")
            << "[" + good + "," + InstalledModule(invalid).encoded() + "]"
            << u"Use a three-part module version, such as 1.0.0."_s;
        QTest::addRow("invalid state") << "[" + badState.encoded() + "]" << invalidState;
        QTest::addRow("oversized configuration") << "[" + badConfiguration.encoded() + "]" << invalidState;
        QTest::addRow("over the storage limit")
            << "[" + good + "]" + QByteArray(ModuleStore::maximumFileBytes, ' ')
            << u"Saved modules exceed the storage limit."_s;
    }

    void unusableFileIsKeptAndNothingIsSaved() {
        QFETCH(QByteArray, data);
        QFETCH(QString, reason);
        QVERIFY(QDir().mkpath(QFileInfo(filePath()).absolutePath()));
        write(filePath(), data);

        ModuleStore store(filePath(), realRunner);
        QVERIFY(store.storageUnavailable());
        QVERIFY(store.modules().isEmpty());
        QCOMPARE(store.notice(),
                 u"Could not read saved modules. The original file has been kept: "_s + reason);

        QCOMPARE(problemOf([&] { store.install(package(u"cafe.osta.new"_s)); }),
                 u"Saved module data needs recovery before installing another module."_s);
        store.remove(u"cafe.osta.good"_s);
        QCOMPARE(contents(filePath()), data);
    }

    // A settings change during a run cancels it and discards its answer; events that come while
    // a run is under way wait, and only the newest of them is delivered.
    void settingsAndEventsDuringARun() {
        ModuleStore store(filePath(), realRunner);
        // Each run holds the runner for half a second with nothing to wait on but the clock.
        const ModulePackage feed =
            feedPackage(u"cafe.osta.feed"_s,
                        u"function run(r) { var until = Date.now() + 500; while (Date.now() < until) {}\n"
                        u"if (r.action) throw new Error('x'.repeat(60000));\n"
                        u"return { unit: r.configuration.unit, last: r.event ? r.event.json : 'none' }; }"_s);
        QStringList seen;
        connect(&store, &ModuleStore::modulesChanged, &store, [&] {
            const auto module = store.module(feed.id);
            if (module && module->state.contains(u"last"_s))
                seen.append(module->state.value(u"unit"_s) + u' ' + module->state.value(u"last"_s));
        });
        store.install(feed);
        store.configure(feed.id, u"unit"_s, u"F"_s);
        QVERIFY(store.running().contains(feed.id));
        store.receive(feed.id, {u"sensor"_s, u"first"_s});
        store.receive(feed.id, {u"sensor"_s, u"second"_s});
        // Events of an undeclared feed or over the body limit are ignored outright.
        store.receive(feed.id, {u"other"_s, u"wrong feed"_s});
        store.receive(feed.id, {u"sensor"_s, QString(ModuleStore::maximumEventBytes + 1, u'x')});
        QTRY_VERIFY_WITH_TIMEOUT(store.running().isEmpty(), 30000);
        QCOMPARE(seen, (QStringList{u"F none"_s, u"F second"_s}));
        QCOMPARE(store.module(feed.id)->configuration.value(u"unit"_s), u"F"_s);
        QCOMPARE(store.errors(), (QMap<QString, QString>()));
        QCOMPARE(store.activityText(feed.id), u"Legacy module offline"_s);

        // A failed run keeps the state; the card shows its message within the usual text limit, and
        // "Try again" clears it as the run starts.
        store.press(feed.id, u"add"_s);
        QTRY_VERIFY_WITH_TIMEOUT(store.running().isEmpty(), 30000);
        QCOMPARE(store.errors().value(feed.id), QString(60000, u'x'));
        QCOMPARE(store.property("errors").toMap().value(feed.id).toString(),
                 QString(ModulePackage::maximumTextCharacters, u'x'));
        QCOMPARE(store.module(feed.id)->state.value(u"last"_s), u"second"_s);
        store.retry(feed.id);
        QVERIFY(!store.errors().contains(feed.id));
        QTRY_VERIFY_WITH_TIMEOUT(store.running().isEmpty(), 30000);
        QVERIFY(!store.errors().contains(feed.id));

        // Undeclared keys change nothing; a long value is kept to its first 200 characters.
        store.configure(feed.id, u"colour"_s, u"red"_s);
        QVERIFY(!store.module(feed.id)->configuration.contains(u"colour"_s));
        QVERIFY(store.running().isEmpty());
        store.configure(feed.id, u"unit"_s, QString(300, u'k'));
        QCOMPARE(store.module(feed.id)->configuration.value(u"unit"_s), QString(200, u'k'));
        QTRY_VERIFY_WITH_TIMEOUT(store.running().isEmpty(), 30000);

        // A value the next start could not read back is refused before anything changes.
        const QByteArray saved = contents(filePath());
        store.configure(feed.id, u"unit"_s, heavy(200));
        QCOMPARE(store.errors().value(feed.id), u"This setting is too long to save."_s);
        QCOMPARE(store.module(feed.id)->configuration.value(u"unit"_s), QString(200, u'k'));
        QCOMPARE(contents(filePath()), saved);
        QVERIFY(store.notice().isEmpty());
        QVERIFY(store.running().isEmpty());
        // Exactly at the byte limit it is kept, and the next start reads it back.
        const QString atLimit = heavy(186) + QChar(0x00e9);
        QCOMPARE(atLimit.toUtf8().size(), ModulePackage::maximumValueBytes);
        store.configure(feed.id, u"unit"_s, atLimit);
        QTRY_VERIFY_WITH_TIMEOUT(store.running().isEmpty(), 30000);
        ModuleStore reopened(filePath(), QString());
        QCOMPARE(reopened.module(feed.id)->configuration.value(u"unit"_s), atLimit);
        QCOMPARE(reopened.module(feed.id)->state.value(u"unit"_s), atLimit);
    }

    // Four runs at most at once: a fifth is refused as busy until one ends. A run cancelled by a
    // removal, by disabling or at quit leaves no trace when its answer comes back.
    void fifthModuleIsBusyUntilOneFinishes() {
        const QString busy = u"Other modules are busy. Try again shortly."_s;
        ModuleStore store(filePath(), fakeRunner);
        QStringList removed;
        store.setOnRemove([&](const QString& id) { removed.append(id); });
        for (int i = 0; i < ModuleStore::maximumRunning; ++i)
            store.install(package(u"cafe.osta.m%1"_s.arg(i), u"fake:hang-silently"_s));
        QCOMPARE(store.running().size(), ModuleStore::maximumRunning);

        // Busy is told before the action is looked at.
        const ModulePackage fifth = package(u"cafe.osta.fifth"_s, u"fake:valid"_s);
        store.install(fifth);
        QCOMPARE(store.errors().value(fifth.id), busy);
        store.press(fifth.id, u"launch"_s);
        QCOMPARE(store.errors().value(fifth.id), busy);
        QVERIFY(!store.running().contains(fifth.id));

        store.remove(u"cafe.osta.m0"_s);
        store.setEnabled(u"cafe.osta.m1"_s, false);
        QCOMPARE(removed, QStringList{u"cafe.osta.m0"_s});
        QCOMPARE(store.running().size(), 2);
        // A second press during a run does nothing, and nothing is queued.
        QSignalSpy runningChanges(&store, &ModuleStore::runningChanged);
        store.press(u"cafe.osta.m2"_s, u"add"_s);
        QCOMPARE(runningChanges.count(), 0);
        store.press(fifth.id, u"launch"_s);
        QCOMPARE(store.errors().value(fifth.id), u"This action is not available."_s);
        store.retry(fifth.id);
        QVERIFY(store.running().contains(fifth.id));
        QVERIFY(!store.errors().contains(fifth.id));
        // A disabled module is not shown and doesn't run; enabling it runs it again.
        QCOMPARE(store.visible(u"DP-1"_s).size(), 3);
        store.retry(u"cafe.osta.m1"_s);
        QVERIFY(!store.running().contains(u"cafe.osta.m1"_s));
        store.setEnabled(u"cafe.osta.m1"_s, true);
        QVERIFY(store.running().contains(u"cafe.osta.m1"_s));

        store.killAll();
        QVERIFY(store.running().isEmpty());
        const ModulePackage after = package(u"cafe.osta.after"_s, u"fake:valid"_s);
        store.install(after);
        QTRY_VERIFY_WITH_TIMEOUT(store.running().isEmpty(), 30000);
        QCOMPARE(store.module(after.id)->state.value(u"count"_s), u"1"_s);
        // Without the permission and feed, an event never reaches the script.
        store.receive(after.id, {u"sensor"_s, u"ignored"_s});
        QVERIFY(store.running().isEmpty());
        QCOMPARE(store.errors(), (QMap<QString, QString>()));
        QCOMPARE(store.module(u"cafe.osta.m1"_s)->state.value(u"count"_s), u"0"_s);
        QVERIFY(!store.module(u"cafe.osta.m0"_s));
        QVERIFY(!contents(filePath()).contains("cafe.osta.m0"));
    }

    void eachPressRunsInTheSpareReadiedAfterTheLastRun() {
        const ModulePackage module = package(u"cafe.osta.pid"_s, u"fake:report-pid"_s);
        const auto ranIn = [&](const ModuleStore& store) {
            return store.module(module.id)->state.value(u"pid"_s).toInt();
        };
        pid_t next = 0;
        {
            ModuleStore store(filePath(), fakeRunner);
            store.install(module);
            QTRY_VERIFY_WITH_TIMEOUT(store.running().isEmpty(), 30000);
            pid_t spare = 0;
            QTRY_VERIFY_WITH_TIMEOUT((spare = ModuleRunnerSpares::waitingPid(fakeRunner)) != 0, 30000);
            QVERIFY(spare != ranIn(store));

            store.press(module.id, u"add"_s);
            QTRY_VERIFY_WITH_TIMEOUT(store.running().isEmpty(), 30000);
            QCOMPARE(store.errors(), (QMap<QString, QString>()));
            QCOMPARE(ranIn(store), spare);
            QTRY_VERIFY_WITH_TIMEOUT((next = ModuleRunnerSpares::waitingPid(fakeRunner)) != 0, 30000);
            QVERIFY(next != spare);

            // At quit the spare goes too, and nothing waits for it.
            store.killAll();
            QCOMPARE(ModuleRunnerSpares::waitingPid(fakeRunner), 0);
            QTRY_VERIFY_WITH_TIMEOUT(kill(next, 0) != 0, 30000);
        }

        // A store that opens with an enabled module readies one at once; its end kills it.
        {
            ModuleStore reopened(filePath(), fakeRunner);
            QTRY_VERIFY_WITH_TIMEOUT((next = ModuleRunnerSpares::waitingPid(fakeRunner)) != 0, 30000);
            QVERIFY(reopened.running().isEmpty());
        }
        QCOMPARE(ModuleRunnerSpares::waitingPid(fakeRunner), 0);
        QTRY_VERIFY_WITH_TIMEOUT(kill(next, 0) != 0, 30000);
    }

    void onlyRegularFilesAreRead_data() {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("expected");
        QTest::addRow("named pipe with no writer") << u"fifo"_s << u"Not a regular file."_s;
        QTest::addRow("device") << u"device"_s << u"Not a regular file."_s;
        QTest::addRow("over the package limit") << u"big"_s << u"Module exceeds the 256 KB package limit."_s;
        QTest::addRow("absent") << u"absent"_s << u"No such file or directory"_s;
    }

    // A file over the package limit is refused as well, and any refused file takes the last
    // reviewed package off the screen.
    void onlyRegularFilesAreRead() {
        QFETCH(QString, kind);
        QFETCH(QString, expected);
        const QString path = kind == u"device" ? u"/dev/null"_s : m_dir->filePath(kind);
        // Opening it to read would wait for a writer for ever.
        if (kind == u"fifo")
            QCOMPARE(mkfifo(QFile::encodeName(path).constData(), 0600), 0);
        if (kind == u"big")
            write(path, QByteArray(ModulePackage::maximumBytes + 1, ' '));
        const QString valid = m_dir->filePath(u"valid.ostavellmodule"_s);
        write(valid, package(u"cafe.osta.valid"_s).encoded());

        ModuleStore store(filePath(), QString());
        QCOMPARE(store.review(QUrl::fromLocalFile(valid)), QString());
        QCOMPARE(store.review(QUrl::fromLocalFile(path)), expected);
        QVERIFY(store.reviewed().isEmpty());
        QCOMPARE(store.installReviewed(), QString());
        QVERIFY(store.modules().isEmpty());
    }

private:
    QString filePath() const { return m_dir->filePath(u"OstaVell/modules-v1.json"_s); }

    std::unique_ptr<QTemporaryDir> m_dir;
};

QTEST_GUILESS_MAIN(tst_ModuleStore)
#include "tst_ModuleStore.moc"
