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
using namespace Qt::StringLiterals;

namespace {

const QString diceID = u"app.ostavell.example.dice"_s;
const QString counterID = u"app.ostavell.example.counter"_s;
const QString clockID = u"app.ostavell.example.clock"_s;
const QString updated = u"Plugin updated. Its settings and monitor placement were kept."_s;
constexpr int launchTimeout = 30000;

void run(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.start(program, arguments);
    QVERIFY2(process.waitForFinished(60000) && process.exitCode() == 0, qPrintable(program));
}

void append(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    QVERIFY(file.open(QIODevice::Append));
    QCOMPARE(file.write(bytes), bytes.size());
}

QStringList folders(const QString& root) {
    return QDir(root).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
}

QString install(NativePluginStore& store, const QString& bundle) {
    return problemOf([&] { store.install(bundle, NativePluginBundle::inspect(bundle).fingerprint); });
}

QString status(NativePluginStore& store, const QString& id) {
    return store.sessions().status().value(id);
}

QString field(NativePluginStore& store, const QString& id) {
    const auto snapshot = store.sessions().snapshots().value(id);
    return snapshot.fields.isEmpty() ? QString() : snapshot.fields.first().value;
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
        const QString target = m_work.filePath(u"bundles/%1/%2.app"_s.arg(++m_copies).arg(name));
        QDir().mkpath(QFileInfo(target).path());
        run(u"cp"_s,
            {u"-a"_s, qEnvironmentVariable("VELL_BUILD_DIR") + "/examples/plugins/" + name + ".app", target});
        return target;
    }
    // Edits a bundle's manifest (and its identity when the id changes), then signs it again.
    void remake(const QString& bundle, const QString& version, const QString& id = QString()) {
        QFile manifestFile(bundle + u"/Contents/Resources/VellPlugin.json"_s);
        QVERIFY(manifestFile.open(QIODevice::ReadWrite));
        QJsonObject manifest = QJsonDocument::fromJson(manifestFile.readAll()).object();
        manifest.insert(u"version"_s, version);
        if (!id.isEmpty()) {
            const QString old = manifest.value(u"id"_s).toString();
            manifest.insert(u"id"_s, id);
            QFile plist(bundle + u"/Contents/Info.plist"_s);
            QVERIFY(plist.open(QIODevice::ReadWrite));
            const QByteArray text = plist.readAll().replace(old.toUtf8(), id.toUtf8());
            QVERIFY(plist.resize(0) && plist.seek(0) && plist.write(text) == text.size());
        }
        const QByteArray text = QJsonDocument(manifest).toJson();
        QVERIFY(manifestFile.resize(0) && manifestFile.seek(0) && manifestFile.write(text) == text.size());
        manifestFile.close();
        NativePluginBundle::sign(bundle, m_key);
    }

private slots:
    void initTestCase() {
        QVERIFY(m_work.isValid());
        m_key = m_work.filePath(u"key"_s);
        run(u"ssh-keygen"_s, {u"-t"_s, u"ed25519"_s, u"-N"_s, QString(), u"-q"_s, u"-f"_s, m_key});
    }

    void refusals_data() {
        QTest::addColumn<QString>("change");
        QTest::addColumn<QString>("expected");
        const QString invalid = u"The plugin's code signature is invalid."_s;
        row("signed", QString(), QString());
        row("unsigned", u"unsign"_s, invalid);
        row("symbolic link inside", u"link"_s,
            u"This native plugin preview does not accept bundle symlinks."_s);
        row("a byte changed after signing", u"byte"_s, invalid);
        row("a byte changed and signed again after review", u"resigned"_s,
            u"The plugin changed after review. Review the new package."_s);
        row("reserved namespace", u"reserved"_s, u"This namespace is reserved for built-in services."_s);
    }
    void refusals() {
        QFETCH(QString, change);
        QFETCH(QString, expected);
        QTemporaryDir data;
        NativePluginStore store(data.filePath(u"Plugins"_s));
        const QString bundle = copy(u"Dice"_s);
        if (change == u"reserved")
            remake(bundle, u"1.0.0"_s, u"local.ostavell.test"_s);
        const QString reviewed = NativePluginBundle::inspect(bundle).fingerprint;
        if (change == u"unsign")
            QVERIFY(QFile::remove(bundle + u'/' + NativePluginBundle::signatureFile.toString()));
        if (change == u"link")
            QVERIFY(QFile::link(u"VellPlugin.json"_s, bundle + u"/Contents/Resources/x"_s));
        if (change == u"byte" || change == u"resigned")
            append(bundle + u"/Contents/MacOS/dice"_s, "#");
        if (change == u"resigned")
            NativePluginBundle::sign(bundle, m_key);
        QCOMPARE(problemOf([&] { store.install(bundle, reviewed); }), expected);
        QCOMPARE(store.plugins().size(), expected.isEmpty() ? 1 : 0);
        // A refused install leaves no folder behind; the accepted one leaves exactly its own.
        QCOMPARE(folders(data.filePath(u"Plugins"_s)).size(), expected.isEmpty() ? 1 : 0);
        if (expected.isEmpty())
            QCOMPARE(store.notice(), u"Plugin installed."_s);
    }

    void updatesRestoresAndRemoval() {
        QTemporaryDir data;
        auto store = std::make_unique<NativePluginStore>(data.filePath(u"Plugins"_s));
        const QString first = copy(u"Dice"_s);
        const QString second = copy(u"Dice"_s);
        remake(second, u"1.0.1"_s);
        QCOMPARE(install(*store, first), QString());
        QTRY_COMPARE_WITH_TIMEOUT(status(*store, diceID), u"Running"_s, launchTimeout);
        store->setVisible(diceID, u"display-HDMI-1"_s, false);
        store->setEnabled(diceID, false);
        QCOMPARE(status(*store, diceID), u"Disabled"_s);

        // An update keeps placement and the switch, and saves the version it replaces.
        QCOMPARE(install(*store, second), QString());
        QCOMPARE(store->notice(), updated);
        NativePluginRecord record = *store->plugin(diceID);
        QCOMPARE(record.manifest.version, u"1.0.1"_s);
        QCOMPARE(record.hiddenDisplayIDs, QStringList{u"display-HDMI-1"_s});
        QVERIFY(!record.enabled);
        QCOMPARE(record.previousVersions->size(), 1);
        const NativePluginVersion saved = record.previousVersions->first();
        QCOMPARE(saved.manifest.version, u"1.0.0"_s);

        // The same package again makes no history entry of the version now installed.
        QCOMPARE(install(*store, second), QString());
        QCOMPARE(*store->plugin(diceID)->previousVersions, *record.previousVersions);

        // A restore brings the saved version back and puts the running one at the head.
        const NativePluginInspection reviewed = store->reviewRestore(diceID, saved.folder);
        QCOMPARE(
            problemOf([&] { store->restore(diceID, saved.folder, reviewed.fingerprint, QString(64, u'0')); }),
            u"The installed plugin changed during review. Review the restore again."_s);
        store->restore(diceID, saved.folder, reviewed.fingerprint, store->plugin(diceID)->fingerprint);
        QCOMPARE(store->notice(),
                 u"Restored Dice 1.0.0. Current settings and monitor placement were kept."_s);
        record = *store->plugin(diceID);
        QCOMPARE(record.manifest.version, u"1.0.0"_s);
        QCOMPARE(record.previousVersions->first().manifest.version, u"1.0.1"_s);
        for (const NativePluginVersion& version : *record.previousVersions)
            QVERIFY(version.fingerprint != record.fingerprint);
        QCOMPARE(problemOf([&] { store->reviewRestore(diceID, u"nowhere"_s); }),
                 u"This saved version is no longer available."_s);

        // It survives a restart as written.
        store = std::make_unique<NativePluginStore>(data.filePath(u"Plugins"_s));
        QCOMPARE(*store->plugin(diceID), record);

        // Removal forgets the record but deletes no folder.
        const QStringList before = folders(data.filePath(u"Plugins"_s));
        store->remove(diceID);
        QVERIFY(!store->plugin(diceID));
        QCOMPARE(folders(data.filePath(u"Plugins"_s)), before);
        QCOMPARE(install(*store, first), QString());
        QVERIFY(!store->plugin(diceID)->previousVersions);
    }

    // Every launch checks the installed copy again: a change breaks its signature, and a change
    // signed anew is still not what was reviewed.
    void launchVerifiesTheCopy() {
        QTemporaryDir data;
        NativePluginStore store(data.filePath(u"Plugins"_s));
        QCOMPARE(install(store, copy(u"Dice"_s)), QString());
        QTRY_COMPARE_WITH_TIMEOUT(status(store, diceID), u"Running"_s, launchTimeout);
        const QString installed = store.bundlePath(store.plugin(diceID)->folder);
        append(installed + u"/Contents/MacOS/dice"_s, "\n");
        store.restart(diceID);
        QCOMPARE(status(store, diceID), u"The plugin's code signature is invalid."_s);
        NativePluginBundle::sign(installed, m_key);
        store.restart(diceID);
        QCOMPARE(status(store, diceID), u"Plugin changed on disk. Reinstall it to review the update."_s);
        QVERIFY(!store.sessions().hasWorker(diceID));
        QVERIFY(store.plugin(diceID)->enabled);
    }

    // Twenty installed: a new id is refused, an update of one of them passes.
    void twentyPlugins() {
        QTemporaryDir data;
        const QString root = data.filePath(u"Plugins"_s);
        const QString dice = copy(u"Dice"_s);
        const NativePluginInspection inspection = NativePluginBundle::inspect(dice);
        QList<NativePluginRecord> records;
        for (int i = 0; i < NativePluginIndex::maximumPlugins; ++i) {
            NativePluginRecord record;
            record.manifest = inspection.manifest;
            if (i > 0)
                record.manifest.id = u"app.ostavell.filler%1"_s.arg(i);
            record.folder = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
            record.fingerprint = inspection.fingerprint;
            record.enabled = false;
            records.append(record);
        }
        NativePluginIndex(root).persist(records);
        NativePluginStore store(root);
        QCOMPARE(install(store, copy(u"Clock"_s)), u"Up to 20 plugins can be installed."_s);
        remake(dice, u"1.0.1"_s);
        QCOMPARE(install(store, dice), QString());
        QCOMPARE(store.plugins().size(), NativePluginIndex::maximumPlugins);
        QCOMPARE(store.notice(), updated);
    }

    // No plugin runs across a sleep; waking starts every enabled one again, also one that had
    // stopped before, and none that is switched off.
    void sleepAndWake() {
        QTemporaryDir data;
        NativePluginStore store(data.filePath(u"Plugins"_s));
        QCOMPARE(install(store, copy(u"Dice"_s)), QString());
        QCOMPARE(install(store, copy(u"Clock"_s)), QString());
        QTRY_COMPARE_WITH_TIMEOUT(status(store, diceID), u"Running"_s, launchTimeout);
        store.setEnabled(clockID, false);
        ::kill(pid_t(store.sessions().processID(diceID)), SIGKILL);
        QTRY_COMPARE_WITH_TIMEOUT(status(store, diceID), u"Plugin stopped. Restart it when ready."_s,
                                  launchTimeout);
        QVERIFY(QMetaObject::invokeMethod(&store, "onPrepareForSleep", Q_ARG(bool, true)));
        QVERIFY(store.sessions().running().isEmpty());
        QVERIFY(QMetaObject::invokeMethod(&store, "onPrepareForSleep", Q_ARG(bool, false)));
        QTRY_COMPARE_WITH_TIMEOUT(status(store, diceID), u"Running"_s, launchTimeout);
        QCOMPARE(status(store, clockID), u"Disabled"_s);
        QVERIFY(!store.sessions().hasWorker(clockID));
    }

    void unusableIndexIsKept() {
        QTemporaryDir data;
        const QString root = data.filePath(u"Plugins"_s);
        QDir().mkpath(root);
        append(root + u"/installed-v1.json"_s, "{\"not\":\"a list\"}");
        NativePluginStore store(root);
        QVERIFY(store.storageFailed());
        QCOMPARE(store.notice(), u"Plugin storage needs recovery. The original file was kept."_s);
        QCOMPARE(install(store, copy(u"Dice"_s)), u"Recover plugin storage before installing."_s);
        QFile index(root + u"/installed-v1.json"_s);
        QVERIFY(index.open(QIODevice::ReadOnly));
        QCOMPARE(index.readAll(), QByteArray("{\"not\":\"a list\"}"));
    }

    // Counter calls Dice's two actions: refused without a grant, "roll" at once with one,
    // "clear" only after a person approves; the grants survive a restart in their file and
    // lapse when Dice's bundle changes.
    void pluginsCallEachOtherUnderGrantsAndReview() {
        QTemporaryDir data;
        const QString plugins = data.filePath(u"Plugins"_s);
        const QString actions = data.filePath(u"Actions"_s);
        auto store = std::make_unique<NativePluginStore>(plugins, actions);
        int reviewsPresented = 0;
        store->presentReview = [&] { ++reviewsPresented; };
        QCOMPARE(install(*store, copy(u"Dice"_s)), QString());
        QCOMPARE(install(*store, copy(u"Counter"_s)), QString());
        const auto running = [&] {
            QTRY_COMPARE_WITH_TIMEOUT(status(*store, diceID), u"Running"_s, launchTimeout);
            QTRY_COMPARE_WITH_TIMEOUT(status(*store, counterID), u"Running"_s, launchTimeout);
            QTRY_VERIFY_WITH_TIMEOUT(store->sessions().snapshots().contains(counterID), launchTimeout);
            QTRY_VERIFY_WITH_TIMEOUT(store->router().exported().size() == 3,
                                     launchTimeout); // roll, clear and rolled
        };
        running();

        const QString refused = u"Action unavailable or access not granted."_s;
        store->press(counterID, u"rollDice"_s);
        QTRY_COMPARE(field(*store, counterID), refused);

        QCOMPARE(store->setAllowed(counterID, diceID, u"roll"_s, false, true), QString());
        store->press(counterID, u"rollDice"_s);
        QTRY_VERIFY(field(*store, counterID).startsWith(u"Rolled "_s));
        QCOMPARE(reviewsPresented, 0);

        QCOMPARE(store->setAllowed(counterID, diceID, u"clear"_s, false, true), QString());
        store->press(counterID, u"clearDice"_s);
        QTRY_COMPARE(field(*store, counterID), u"Waiting for review"_s);
        QCOMPARE(reviewsPresented, 1);
        const QVariantList reviews = store->property("reviews").toList();
        QCOMPARE(reviews.size(), 1);
        const QVariantMap review = reviews.first().toMap();
        QCOMPARE(review.value(u"callerName"_s).toString(), u"Counter"_s);
        QCOMPARE(review.value(u"title"_s).toString(), u"Clear the die"_s);
        QCOMPARE(store->approve(review.value(u"id"_s).toString()), QString());
        QTRY_COMPARE(field(*store, counterID), u"Cleared."_s);
        QCOMPARE(store->approve(review.value(u"id"_s).toString()), u"Review expired."_s);

        // A restart keeps the grants: the same two bundles are allowed as before.
        store.reset();
        store = std::make_unique<NativePluginStore>(plugins, actions);
        QCOMPARE(store->router().grants().size(), 2);
        store->start();
        running();
        store->press(counterID, u"rollDice"_s);
        QTRY_VERIFY(field(*store, counterID).startsWith(u"Rolled "_s));

        // A new Dice bundle is another provider: the grant lapses silently.
        const QString changed = copy(u"Dice"_s);
        remake(changed, u"1.0.1"_s);
        QCOMPARE(install(*store, changed), QString());
        running();
        store->press(counterID, u"rollDice"_s);
        QTRY_COMPARE(field(*store, counterID), refused);
        QCOMPARE(store->router().grants().size(), 2);
        store->stop();
    }

    // The app killed at any moment of an install or update leaves an index that loads, whose
    // every record names a complete copy of what was installed, and which holds every install
    // that was acknowledged before the kill.
    void killedDuringInstallsLosesNothing() {
        QTemporaryDir data;
        const QString root = data.filePath(u"Plugins"_s);
        const QStringList sources{copy(u"Dice"_s), copy(u"Dice"_s)};
        remake(sources.at(1), u"1.0.1"_s);
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
                       {u"--install-loop"_s, root, sources.at(0), sources.at(1),
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
