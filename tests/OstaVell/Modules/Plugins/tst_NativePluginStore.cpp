// The plugin store with real bundles made from the examples, real ssh-keygen signatures and
// real plugin processes: installation, updates, restores, removal, launches that re-verify,
// and two plugins calling each other through the router under grants and review.

#include "OstaVell/Modules/Plugins/NativePluginStore.h"
#include "VellHost/NativePluginBundle.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

#include "TestSupport.h"

using namespace vell;
using namespace vell::test;

namespace {

const QString diceID = QStringLiteral("app.ostavell.example.dice");
const QString counterID = QStringLiteral("app.ostavell.example.counter");
constexpr int launchTimeout = 30000;

QString example(const QString& name) {
    return qEnvironmentVariable("VELL_BUILD_DIR") + QStringLiteral("/examples/plugins/%1.app").arg(name);
}

void run(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.start(program, arguments);
    QVERIFY2(process.waitForFinished(60000) && process.exitCode() == 0, qPrintable(program));
}

} // namespace

class NativePluginStoreTest final : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_work;
    QString m_key;
    int m_copies = 0;

    // A private copy of an example bundle, signed by the build.
    QString copy(const QString& name) {
        const QString target = m_work.filePath(QStringLiteral("bundles/%1/%2.app").arg(++m_copies).arg(name));
        QDir().mkpath(QFileInfo(target).path());
        run(QStringLiteral("cp"), {QStringLiteral("-a"), example(name), target});
        return target;
    }
    // Edits a bundle's manifest (and its identity when the id changes), then signs it again.
    void remake(const QString& bundle, const QString& version, const QString& id = QString()) {
        QFile manifestFile(bundle + QStringLiteral("/Contents/Resources/VellPlugin.json"));
        QVERIFY(manifestFile.open(QIODevice::ReadOnly));
        QJsonObject manifest = QJsonDocument::fromJson(manifestFile.readAll()).object();
        manifestFile.close();
        manifest.insert(QStringLiteral("version"), version);
        if (!id.isEmpty()) {
            const QString old = manifest.value(QStringLiteral("id")).toString();
            manifest.insert(QStringLiteral("id"), id);
            QFile plist(bundle + QStringLiteral("/Contents/Info.plist"));
            QVERIFY(plist.open(QIODevice::ReadOnly));
            const QByteArray text = plist.readAll().replace(old.toUtf8(), id.toUtf8());
            plist.close();
            QVERIFY(plist.open(QIODevice::WriteOnly | QIODevice::Truncate));
            plist.write(text);
        }
        QVERIFY(manifestFile.open(QIODevice::WriteOnly | QIODevice::Truncate));
        manifestFile.write(QJsonDocument(manifest).toJson());
        manifestFile.close();
        NativePluginBundle::sign(bundle, m_key);
    }
    QString install(NativePluginStore& store, const QString& bundle) {
        return problemOf([&] { store.install(bundle, NativePluginBundle::inspect(bundle).fingerprint); });
    }
    static QString field(NativePluginStore& store, const QString& id) {
        const auto snapshot = store.sessions().snapshots().value(id);
        return snapshot.fields.isEmpty() ? QString() : snapshot.fields.first().value;
    }

private slots:
    void initTestCase() {
        QVERIFY(m_work.isValid());
        m_key = m_work.filePath(QStringLiteral("key"));
        run(QStringLiteral("ssh-keygen"),
            {QStringLiteral("-t"), QStringLiteral("ed25519"), QStringLiteral("-N"), QString(),
             QStringLiteral("-q"), QStringLiteral("-f"), m_key});
    }

    void refusals_data() {
        QTest::addColumn<QString>("change");
        QTest::addColumn<QString>("expected");
        QTest::addRow("signed") << ""
                                << "";
        QTest::addRow("unsigned") << "unsign"
                                  << "The plugin's code signature is invalid.";
        QTest::addRow("symbolic link inside")
            << "link"
            << "This native plugin preview does not accept bundle symlinks.";
        QTest::addRow("a byte changed after signing") << "byte"
                                                      << "The plugin's code signature is invalid.";
        QTest::addRow("a byte changed and signed again after review")
            << "resigned"
            << "The plugin changed after review. Review the new package.";
        QTest::addRow("reserved namespace") << "reserved"
                                            << "This namespace is reserved for built-in services.";
    }
    void refusals() {
        QFETCH(QString, change);
        QFETCH(QString, expected);
        QTemporaryDir data;
        NativePluginStore store(data.filePath(QStringLiteral("Plugins")));
        const QString bundle = copy(QStringLiteral("Dice"));
        if (change == u"reserved")
            remake(bundle, QStringLiteral("1.0.0"), QStringLiteral("local.ostavell.test"));
        const QString reviewed = NativePluginBundle::inspect(bundle).fingerprint;
        if (change == u"unsign")
            QVERIFY(QFile::remove(bundle + u'/' + NativePluginBundle::signatureFile.toString()));
        if (change == u"link")
            QVERIFY(QFile::link(QStringLiteral("VellPlugin.json"),
                                bundle + QStringLiteral("/Contents/Resources/x")));
        if (change == u"byte" || change == u"resigned") {
            QFile script(bundle + QStringLiteral("/Contents/MacOS/dice"));
            QVERIFY(script.open(QIODevice::Append));
            script.write("#");
            script.close();
            if (change == u"resigned")
                NativePluginBundle::sign(bundle, m_key);
        }
        QCOMPARE(problemOf([&] { store.install(bundle, reviewed); }), expected);
        QCOMPARE(store.plugins().size(), expected.isEmpty() ? 1 : 0);
        // A refused install leaves no folder behind; the accepted one leaves exactly its own.
        const QStringList folders =
            QDir(data.filePath(QStringLiteral("Plugins"))).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        QCOMPARE(folders.size(), expected.isEmpty() ? 1 : 0);
        if (expected.isEmpty())
            QCOMPARE(store.notice(), QStringLiteral("Plugin installed."));
    }

    void updatesRestoresAndRemoval() {
        QTemporaryDir data;
        auto store = std::make_unique<NativePluginStore>(data.filePath(QStringLiteral("Plugins")));
        const QString first = copy(QStringLiteral("Dice"));
        const QString second = copy(QStringLiteral("Dice"));
        remake(second, QStringLiteral("1.0.1"));
        QCOMPARE(install(*store, first), QString());
        QTRY_COMPARE_WITH_TIMEOUT(store->sessions().status().value(diceID), QStringLiteral("Running"),
                                  launchTimeout);
        store->setVisible(diceID, QStringLiteral("display-HDMI-1"), false);
        store->setEnabled(diceID, false);
        QCOMPARE(store->sessions().status().value(diceID), QStringLiteral("Disabled"));

        // An update keeps placement and the switch, and saves the version it replaces.
        QCOMPARE(install(*store, second), QString());
        QCOMPARE(store->notice(),
                 QStringLiteral("Plugin updated. Its settings and monitor placement were kept."));
        NativePluginRecord record = *store->plugin(diceID);
        QCOMPARE(record.manifest.version, QStringLiteral("1.0.1"));
        QCOMPARE(record.hiddenDisplayIDs, QStringList{QStringLiteral("display-HDMI-1")});
        QVERIFY(!record.enabled);
        QCOMPARE(record.previousVersions->size(), 1);
        const NativePluginVersion saved = record.previousVersions->first();
        QCOMPARE(saved.manifest.version, QStringLiteral("1.0.0"));

        // The same package again makes no history entry of the version now installed.
        QCOMPARE(install(*store, second), QString());
        QCOMPARE(*store->plugin(diceID)->previousVersions, *record.previousVersions);

        // A restore brings the saved version back and puts the running one at the head.
        const NativePluginInspection reviewed = store->reviewRestore(diceID, saved.folder);
        QCOMPARE(problemOf([&] {
                     store->restore(diceID, saved.folder, reviewed.fingerprint,
                                    QStringLiteral("0").repeated(64));
                 }),
                 QStringLiteral("The installed plugin changed during review. Review the restore again."));
        store->restore(diceID, saved.folder, reviewed.fingerprint, store->plugin(diceID)->fingerprint);
        QCOMPARE(store->notice(),
                 QStringLiteral("Restored Dice 1.0.0. Current settings and monitor placement were kept."));
        record = *store->plugin(diceID);
        QCOMPARE(record.manifest.version, QStringLiteral("1.0.0"));
        QCOMPARE(record.previousVersions->first().manifest.version, QStringLiteral("1.0.1"));
        for (const NativePluginVersion& version : *record.previousVersions)
            QVERIFY(version.fingerprint != record.fingerprint);
        QCOMPARE(problemOf([&] { store->reviewRestore(diceID, QStringLiteral("nowhere")); }),
                 QStringLiteral("This saved version is no longer available."));

        // It survives a restart as written.
        store = std::make_unique<NativePluginStore>(data.filePath(QStringLiteral("Plugins")));
        QCOMPARE(*store->plugin(diceID), record);

        // Removal forgets the record but deletes no folder.
        const QStringList before =
            QDir(data.filePath(QStringLiteral("Plugins"))).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        store->remove(diceID);
        QVERIFY(!store->plugin(diceID));
        QCOMPARE(QDir(data.filePath(QStringLiteral("Plugins"))).entryList(QDir::Dirs | QDir::NoDotAndDotDot),
                 before);
        QCOMPARE(install(*store, first), QString());
        QVERIFY(!store->plugin(diceID)->previousVersions);
    }

    // Every launch checks the installed copy again: a change breaks its signature, and a change
    // signed anew is still not what was reviewed.
    void launchVerifiesTheCopy() {
        QTemporaryDir data;
        NativePluginStore store(data.filePath(QStringLiteral("Plugins")));
        QCOMPARE(install(store, copy(QStringLiteral("Dice"))), QString());
        QTRY_COMPARE_WITH_TIMEOUT(store.sessions().status().value(diceID), QStringLiteral("Running"),
                                  launchTimeout);
        const QString installed = store.bundlePath(store.plugin(diceID)->folder);
        QFile script(installed + QStringLiteral("/Contents/MacOS/dice"));
        QVERIFY(script.open(QIODevice::Append));
        script.write("\n");
        script.close();
        store.restart(diceID);
        QCOMPARE(store.sessions().status().value(diceID),
                 QStringLiteral("The plugin's code signature is invalid."));
        NativePluginBundle::sign(installed, m_key);
        store.restart(diceID);
        QCOMPARE(store.sessions().status().value(diceID),
                 QStringLiteral("Plugin changed on disk. Reinstall it to review the update."));
        QVERIFY(!store.sessions().hasWorker(diceID));
        QVERIFY(store.plugin(diceID)->enabled);
    }

    // Twenty installed: a new id is refused, an update of one of them passes.
    void twentyPlugins() {
        QTemporaryDir data;
        const QString root = data.filePath(QStringLiteral("Plugins"));
        const QString dice = copy(QStringLiteral("Dice"));
        const NativePluginInspection inspection = NativePluginBundle::inspect(dice);
        QList<NativePluginRecord> records;
        for (int i = 0; i < NativePluginIndex::maximumPlugins; ++i) {
            NativePluginRecord record;
            record.manifest = inspection.manifest;
            if (i > 0)
                record.manifest.id = QStringLiteral("app.ostavell.filler%1").arg(i);
            record.folder = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
            record.fingerprint = inspection.fingerprint;
            record.enabled = false;
            records.append(record);
        }
        NativePluginIndex(root).persist(records);
        NativePluginStore store(root);
        const QString clock = copy(QStringLiteral("Clock"));
        QCOMPARE(install(store, clock), QStringLiteral("Up to 20 plugins can be installed."));
        remake(dice, QStringLiteral("1.0.1"));
        QCOMPARE(install(store, dice), QString());
        QCOMPARE(store.plugins().size(), NativePluginIndex::maximumPlugins);
        QCOMPARE(store.notice(),
                 QStringLiteral("Plugin updated. Its settings and monitor placement were kept."));
    }

    // No plugin runs across a sleep; waking starts every enabled one again, also one that had
    // stopped before, and none that is switched off.
    void sleepAndWake() {
        QTemporaryDir data;
        NativePluginStore store(data.filePath(QStringLiteral("Plugins")));
        QCOMPARE(install(store, copy(QStringLiteral("Dice"))), QString());
        QCOMPARE(install(store, copy(QStringLiteral("Clock"))), QString());
        const QString clockID = QStringLiteral("app.ostavell.example.clock");
        QTRY_COMPARE_WITH_TIMEOUT(store.sessions().status().value(diceID), QStringLiteral("Running"),
                                  launchTimeout);
        store.setEnabled(clockID, false);
        ::kill(pid_t(store.sessions().processID(diceID)), SIGKILL);
        QTRY_COMPARE_WITH_TIMEOUT(store.sessions().status().value(diceID),
                                  QStringLiteral("Plugin stopped. Restart it when ready."), launchTimeout);
        QVERIFY(QMetaObject::invokeMethod(&store, "onPrepareForSleep", Q_ARG(bool, true)));
        QVERIFY(store.sessions().running().isEmpty());
        QVERIFY(QMetaObject::invokeMethod(&store, "onPrepareForSleep", Q_ARG(bool, false)));
        QTRY_COMPARE_WITH_TIMEOUT(store.sessions().status().value(diceID), QStringLiteral("Running"),
                                  launchTimeout);
        QCOMPARE(store.sessions().status().value(clockID), QStringLiteral("Disabled"));
        QVERIFY(!store.sessions().hasWorker(clockID));
    }

    void unusableIndexIsKept() {
        QTemporaryDir data;
        const QString root = data.filePath(QStringLiteral("Plugins"));
        QDir().mkpath(root);
        QFile index(root + QStringLiteral("/installed-v1.json"));
        QVERIFY(index.open(QIODevice::WriteOnly));
        index.write("{\"not\":\"a list\"}");
        index.close();
        NativePluginStore store(root);
        QVERIFY(store.storageFailed());
        QCOMPARE(store.notice(),
                 QStringLiteral("Plugin storage needs recovery. The original file was kept."));
        QCOMPARE(install(store, copy(QStringLiteral("Dice"))),
                 QStringLiteral("Recover plugin storage before installing."));
        QVERIFY(index.open(QIODevice::ReadOnly));
        QCOMPARE(index.readAll(), QByteArray("{\"not\":\"a list\"}"));
    }

    // Counter calls Dice's two actions: refused without a grant, "roll" at once with one,
    // "clear" only after a person approves; the grants survive a restart in their file and
    // lapse when Dice's bundle changes.
    void pluginsCallEachOtherUnderGrantsAndReview() {
        QTemporaryDir data;
        const QString plugins = data.filePath(QStringLiteral("Plugins"));
        const QString actions = data.filePath(QStringLiteral("Actions"));
        auto store = std::make_unique<NativePluginStore>(plugins, actions);
        int reviewsPresented = 0;
        store->presentReview = [&] { ++reviewsPresented; };
        QCOMPARE(install(*store, copy(QStringLiteral("Dice"))), QString());
        QCOMPARE(install(*store, copy(QStringLiteral("Counter"))), QString());
        const auto running = [&] {
            QTRY_COMPARE_WITH_TIMEOUT(store->sessions().status().value(diceID), QStringLiteral("Running"),
                                      launchTimeout);
            QTRY_COMPARE_WITH_TIMEOUT(store->sessions().status().value(counterID), QStringLiteral("Running"),
                                      launchTimeout);
            QTRY_VERIFY_WITH_TIMEOUT(store->sessions().snapshots().contains(counterID), launchTimeout);
            QTRY_VERIFY_WITH_TIMEOUT(store->router().exported().size() == 3,
                                     launchTimeout); // roll, clear and rolled
        };
        running();

        const QString refused = QStringLiteral("Action unavailable or access not granted.");
        store->press(counterID, QStringLiteral("rollDice"));
        QTRY_COMPARE(field(*store, counterID), refused);

        QCOMPARE(store->setAllowed(counterID, diceID, QStringLiteral("roll"), false, true), QString());
        store->press(counterID, QStringLiteral("rollDice"));
        QTRY_VERIFY(field(*store, counterID).startsWith(QStringLiteral("Rolled ")));
        QCOMPARE(reviewsPresented, 0);

        QCOMPARE(store->setAllowed(counterID, diceID, QStringLiteral("clear"), false, true), QString());
        store->press(counterID, QStringLiteral("clearDice"));
        QTRY_COMPARE(field(*store, counterID), QStringLiteral("Waiting for review"));
        QCOMPARE(reviewsPresented, 1);
        const QVariantList reviews = store->property("reviews").toList();
        QCOMPARE(reviews.size(), 1);
        const QVariantMap review = reviews.first().toMap();
        QCOMPARE(review.value(QStringLiteral("callerName")).toString(), QStringLiteral("Counter"));
        QCOMPARE(review.value(QStringLiteral("title")).toString(), QStringLiteral("Clear the die"));
        QCOMPARE(store->approve(review.value(QStringLiteral("id")).toString()), QString());
        QTRY_COMPARE(field(*store, counterID), QStringLiteral("Cleared."));
        QCOMPARE(store->approve(review.value(QStringLiteral("id")).toString()),
                 QStringLiteral("Review expired."));

        // A restart keeps the grants: the same two bundles are allowed as before.
        store.reset();
        store = std::make_unique<NativePluginStore>(plugins, actions);
        QCOMPARE(store->router().grants().size(), 2);
        store->start();
        running();
        store->press(counterID, QStringLiteral("rollDice"));
        QTRY_VERIFY(field(*store, counterID).startsWith(QStringLiteral("Rolled ")));

        // A new Dice bundle is another provider: the grant lapses silently.
        const QString changed = copy(QStringLiteral("Dice"));
        remake(changed, QStringLiteral("1.0.1"));
        QCOMPARE(install(*store, changed), QString());
        running();
        store->press(counterID, QStringLiteral("rollDice"));
        QTRY_COMPARE(field(*store, counterID), refused);
        QCOMPARE(store->router().grants().size(), 2);
        store->stop();
    }

    // The app killed at any moment of an install or update leaves an index that loads, whose
    // every record names a complete copy of what was installed, and which holds every install
    // that was acknowledged before the kill.
    void killedDuringInstallsLosesNothing() {
        QTemporaryDir data;
        const QString root = data.filePath(QStringLiteral("Plugins"));
        const QStringList sources{copy(QStringLiteral("Dice")), copy(QStringLiteral("Dice"))};
        remake(sources.at(1), QStringLiteral("1.0.1"));
        const QStringList fingerprints{NativePluginBundle::inspect(sources.at(0)).fingerprint,
                                       NativePluginBundle::inspect(sources.at(1)).fingerprint};
        {
            // Installed and switched off first, so that the loop's updates start nothing.
            NativePluginStore store(root);
            QCOMPARE(install(store, sources.at(0)), QString());
            store.setEnabled(diceID, false);
        }
        constexpr int installs = 200;
        int acknowledged = 0;
        int kills = 0;
        while (acknowledged < installs) {
            QProcess loop;
            loop.setProcessChannelMode(QProcess::ForwardedErrorChannel);
            loop.start(QCoreApplication::applicationFilePath(),
                       {QStringLiteral("--install-loop"), root, sources.at(0), sources.at(1),
                        QString::number(acknowledged), QString::number(installs)});
            QVERIFY(loop.waitForStarted());
            // The kill comes as soon as a random number of installs has been acknowledged, while
            // the next one is somewhere on its way: how far, nobody decides.
            const int before = QRandomGenerator::global()->bounded(1, 5);
            QByteArray output;
            while (output.count("ok ") < before && loop.state() == QProcess::Running)
                if (loop.waitForReadyRead(30000))
                    output += loop.readAllStandardOutput();
            if (const qint64 pid = loop.processId(); pid > 0) {
                ::kill(pid_t(pid), SIGKILL);
                ++kills;
            }
            if (loop.state() != QProcess::NotRunning)
                QVERIFY(loop.waitForFinished());
            output += loop.readAllStandardOutput();
            for (const QByteArray& line : output.split('\n'))
                if (line.startsWith("ok "))
                    acknowledged = line.mid(3).toInt() + 1;

            const QList<NativePluginRecord> records = NativePluginIndex(root).load();
            QCOMPARE(records.size(), 1);
            const NativePluginRecord& record = records.first();
            // The last acknowledged install, or the one in flight when the kill came.
            const QString last = fingerprints.at((acknowledged - 1 + 2) % 2);
            QVERIFY(record.fingerprint == last || record.fingerprint == fingerprints.at(acknowledged % 2));
            const NativePluginIndex index(root);
            QCOMPARE(NativePluginBundle::inspect(index.bundlePath(record.folder)).fingerprint,
                     record.fingerprint);
            for (const NativePluginVersion& version :
                 record.previousVersions.value_or(QList<NativePluginVersion>()))
                QCOMPARE(NativePluginBundle::inspect(index.bundlePath(version.folder)).fingerprint,
                         version.fingerprint);
        }
        qInfo("%d installs, killed %d times", installs, kills);
    }
};

// The child of the kill test: installs the two bundles in turn, and says so after each.
static int installLoop(const QStringList& arguments) {
    NativePluginStore store(arguments.at(0));
    const QStringList sources{arguments.at(1), arguments.at(2)};
    const QStringList fingerprints{NativePluginBundle::inspect(sources.at(0)).fingerprint,
                                   NativePluginBundle::inspect(sources.at(1)).fingerprint};
    for (int i = arguments.at(3).toInt(); i < arguments.at(4).toInt(); ++i) {
        store.install(sources.at(i % 2), fingerprints.at(i % 2));
        std::printf("ok %d\n", i);
        std::fflush(stdout);
    }
    return 0;
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() == 7 && arguments.at(1) == u"--install-loop")
        return installLoop(arguments.mid(2));
    NativePluginStoreTest test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_NativePluginStore.moc"
