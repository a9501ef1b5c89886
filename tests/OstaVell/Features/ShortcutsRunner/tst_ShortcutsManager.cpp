// The widget's manager with the real ostavell-shortcuts on this session's private data folder:
// shortcuts that are small shell scripts, one slow (it waits for a file of the test's) and one
// failing, each logging its runs. Where `list` has to misbehave, a stand-in script takes the
// command's place.

#include "OstaVell/Features/ShortcutsRunner/ShortcutsManager.h"
#include "OstaVell/Support/UserDefaults.h"
#include "VellHost/ShortcutsCommand.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace vell;
using Clock = std::chrono::steady_clock;

namespace {

QString tool() {
    return qEnvironmentVariable("VELL_BUILD_DIR") + QStringLiteral("/bin/ostavell-shortcuts");
}

bool writeScript(const QString& path, const QByteArray& body) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write("#!/bin/sh\n" + body) < 0)
        return false;
    file.close();
    return file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

QStringList logLines(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
}

} // namespace

class tst_ShortcutsManager final : public QObject {
    Q_OBJECT

    QTemporaryDir m_work;
    QString m_folder;
    std::unique_ptr<UserDefaults> m_defaults;
    Clock::time_point m_now = Clock::now();

    std::unique_ptr<ShortcutsManager> makeManager(const QString& program = tool()) {
        return std::make_unique<ShortcutsManager>(program, m_defaults.get(), [this] { return m_now; });
    }
    QString logOf(const QString& name) const { return m_work.filePath(name + ".log"); }
    QString releaseOf(const QString& name) const { return m_work.filePath(name + ".release"); }
    // A shortcut that logs its run, then waits until the test lets it end.
    bool slowShortcut(const QString& name) {
        return writeScript(m_folder + u'/' + name,
                           QStringLiteral("echo run >> '%1'\nwhile [ ! -e '%2' ]; do sleep 0.02; done\n")
                               .arg(logOf(name), releaseOf(name))
                               .toUtf8());
    }
    static bool release(const QString& path) {
        QFile file(path);
        return file.open(QIODevice::WriteOnly);
    }
    static bool loaded(ShortcutsManager& manager) {
        manager.refresh();
        return QTest::qWaitFor([&] { return manager.loadState() != ShortcutsManager::LoadState::loading; },
                               30000) &&
               manager.loadState() == ShortcutsManager::LoadState::loaded;
    }

private slots:
    void initTestCase() {
        QVERIFY(m_work.isValid());
        m_folder =
            QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + "/OstaVell/Shortcuts";
        QVERIFY(QDir().mkpath(m_folder));
        QVERIFY(writeScript(m_folder + "/Say Hello", "exit 0\n"));
        QVERIFY(writeScript(m_folder + "/Broken",
                            QStringLiteral("echo run >> '%1'\nexit 3\n").arg(logOf("Broken")).toUtf8()));
        QVERIFY(slowShortcut("Slow Backup"));
        QVERIFY(slowShortcut("Other Slow"));
    }

    void init() {
        m_defaults.reset();
        QFile::remove(m_work.filePath("config/OstaVell.conf"));
        m_defaults = std::make_unique<UserDefaults>(m_work.filePath("config/OstaVell.conf"));
        for (const char* name : {"Slow Backup", "Other Slow", "Broken"}) {
            QFile::remove(logOf(name));
            QFile::remove(releaseOf(name));
        }
    }

    void theCommandIsFoundBesideTheApp() {
        QCOMPARE(ShortcutsCommand::defaultProgram(), QDir::cleanPath(tool()));
        QVERIFY(QFileInfo(ShortcutsCommand::defaultProgram()).isExecutable());
    }

    void listsTheFolder() {
        auto manager = makeManager();
        QCOMPARE(manager->loadState(), ShortcutsManager::LoadState::idle);
        QCOMPARE(manager->emptyState().value("title").toString(), QString("Loading shortcuts\u2026"));
        QVERIFY(loaded(*manager));
        QCOMPARE(manager->allShortcuts(), QStringList({"Broken", "Other Slow", "Say Hello", "Slow Backup"}));
        QCOMPARE(manager->widgetShortcuts(), manager->allShortcuts());
        QVERIFY(manager->emptyState().isEmpty());
    }

    // Two presses on a running shortcut start it once: its own log shows one run.
    void twoPressesRunOnce() {
        auto manager = makeManager();
        QSignalSpy finished(manager.get(), &ShortcutsManager::runFinished);
        manager->run("Slow Backup");
        manager->run("Slow Backup");
        QCOMPARE(manager->runningNames(), QStringList{"Slow Backup"});
        QTRY_COMPARE(logLines(logOf("Slow Backup")).size(), 1);
        manager->run("Slow Backup");
        QVERIFY(release(releaseOf("Slow Backup")));
        QVERIFY(finished.wait(30000));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished.first(), QVariantList({"Slow Backup", true}));
        QVERIFY(manager->runningNames().isEmpty());
        QCOMPARE(logLines(logOf("Slow Backup")).size(), 1);
        QCOMPARE(manager->recentOutcome("Slow Backup"), ShortcutsManager::Outcome::success);
        QCOMPARE(manager->recentOutcomes(), QVariantMap({{"Slow Backup", "success"}}));
        // The outcome shows for a moment, then goes.
        QTRY_VERIFY_WITH_TIMEOUT(!manager->recentOutcome("Slow Backup"), 10000);
    }

    void twoDifferentShortcutsRunAtOnce() {
        auto manager = makeManager();
        QSignalSpy finished(manager.get(), &ShortcutsManager::runFinished);
        manager->run("Slow Backup");
        manager->run("Other Slow");
        QCOMPARE(manager->runningNames(), QStringList({"Other Slow", "Slow Backup"}));
        // Both started while the other still runs.
        QTRY_COMPARE(logLines(logOf("Slow Backup")).size(), 1);
        QTRY_COMPARE(logLines(logOf("Other Slow")).size(), 1);
        QVERIFY(release(releaseOf("Other Slow")));
        QTRY_COMPARE(finished.count(), 1);
        QCOMPARE(manager->runningNames(), QStringList{"Slow Backup"});
        QVERIFY(release(releaseOf("Slow Backup")));
        QTRY_COMPARE(finished.count(), 2);
        QVERIFY(manager->runningNames().isEmpty());
    }

    void failuresFlashAsFailures_data() {
        QTest::addColumn<QString>("name");
        QTest::addRow("exits with 3") << "Broken";
        QTest::addRow("no such shortcut") << "Nothing Here";
    }

    void failuresFlashAsFailures() {
        QFETCH(QString, name);
        auto manager = makeManager();
        QSignalSpy finished(manager.get(), &ShortcutsManager::runFinished);
        manager->run(name);
        QVERIFY(finished.wait(30000));
        QCOMPARE(finished.first(), QVariantList({name, false}));
        QCOMPARE(manager->recentOutcome(name), ShortcutsManager::Outcome::failure);
    }

    void aCommandThatCantStartIsAFailedRun() {
        auto manager = makeManager(m_work.filePath("absent/ostavell-shortcuts"));
        QSignalSpy finished(manager.get(), &ShortcutsManager::runFinished);
        manager->run("Say Hello");
        QVERIFY(finished.wait(30000));
        QCOMPARE(finished.first(), QVariantList({"Say Hello", false}));
    }

    // A later run's outcome keeps its whole moment: the earlier run's clearing finds another token.
    void aLaterFlashIsNotCutShort() {
        auto manager = makeManager();
        manager->timing.flash = std::chrono::milliseconds(3000);
        QSignalSpy finished(manager.get(), &ShortcutsManager::runFinished);
        QSignalSpy outcomes(manager.get(), &ShortcutsManager::outcomesChanged);
        manager->run("Say Hello");
        QVERIFY(finished.wait(30000));
        manager->run("Say Hello");
        QVERIFY(finished.wait(30000));
        QCOMPARE(outcomes.count(), 2);
        QTRY_VERIFY_WITH_TIMEOUT(!manager->recentOutcome("Say Hello"), 20000);
        // Shown, shown again, cleared once.
        QCOMPARE(outcomes.count(), 3);
    }

    void favouritesFirstAndHiddenNotShown() {
        auto manager = makeManager();
        QVERIFY(loaded(*manager));
        QSignalSpy changed(manager.get(), &ShortcutsManager::widgetShortcutsChanged);
        manager->toggleFavorite("Slow Backup");
        manager->toggleFavorite("Broken");
        manager->setHidden("Broken", true);
        QCOMPARE(manager->widgetShortcuts(), QStringList({"Slow Backup", "Other Slow", "Say Hello"}));
        QVERIFY(changed.count() >= 3);
        QCOMPARE(m_defaults->dataValue(QString(ShortcutsManager::favoritesKey)),
                 QByteArray(R"(["Slow Backup","Broken"])"));
        QCOMPARE(m_defaults->dataValue(QString(ShortcutsManager::hiddenKey)), QByteArray(R"(["Broken"])"));
        QVERIFY(manager->isFavorite("Broken") && manager->isHidden("Broken"));

        manager->toggleFavorite("Slow Backup");
        manager->setHidden("Broken", false);
        manager->setHidden("Broken", false);
        QCOMPARE(manager->widgetShortcuts(),
                 QStringList({"Broken", "Other Slow", "Say Hello", "Slow Backup"}));
        QCOMPARE(m_defaults->dataValue(QString(ShortcutsManager::hiddenKey)), QByteArray("[]"));

        for (const QString& name : manager->allShortcuts())
            manager->setHidden(name, true);
        QCOMPARE(manager->emptyState().value("title").toString(), "All Shortcuts Hidden");
        QCOMPARE(manager->emptyState().value("message").toString(),
                 "Every shortcut is hidden. Show some again from OstaVell settings.");
    }

    void malformedListsReadAsEmpty_data() {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QStringList>("read");
        QTest::addRow("absent") << QByteArray() << QStringList();
        QTest::addRow("not JSON") << QByteArray("Broken") << QStringList();
        QTest::addRow("an object") << QByteArray(R"({"a": 1})") << QStringList();
        QTest::addRow("texts among others")
            << QByteArray(R"(["a", 1, null, "b"])") << QStringList({"a", "b"});
    }

    void malformedListsReadAsEmpty() {
        QFETCH(QByteArray, stored);
        if (!stored.isEmpty())
            m_defaults->setValue(QString(ShortcutsManager::favoritesKey), stored);
        QTEST(makeManager()->favorites(), "read");
    }

    // Opened again within 20 seconds, the widget lists nothing new; at 20 seconds it lists again.
    void aSecondOpenWithinTwentySecondsListsOnce() {
        auto manager = makeManager();
        QSignalSpy states(manager.get(), &ShortcutsManager::loadStateChanged);
        // Each list is two changes of state: to loading and back.
        const auto lists = [&] { return states.count(); };
        manager->refreshOnAppear();
        QCOMPARE(manager->loadState(), ShortcutsManager::LoadState::loading);
        // Opened again while the first list is under way: still one.
        manager->refreshOnAppear();
        QTRY_COMPARE(manager->loadState(), ShortcutsManager::LoadState::loaded);
        QCOMPARE(lists(), 2);

        m_now += std::chrono::milliseconds(19999);
        manager->refreshOnAppear();
        QCOMPARE(manager->loadState(), ShortcutsManager::LoadState::loaded);
        QCOMPARE(lists(), 2);

        m_now += std::chrono::milliseconds(1);
        manager->refreshOnAppear();
        QCOMPARE(manager->loadState(), ShortcutsManager::LoadState::loading);
        QTRY_COMPARE(manager->loadState(), ShortcutsManager::LoadState::loaded);
    }

    void anEmptyListIsLoaded() {
        QTemporaryDir empty;
        const QByteArray data = qgetenv("XDG_DATA_HOME");
        qputenv("XDG_DATA_HOME", QFile::encodeName(empty.path()));
        const auto restore = qScopeGuard([&] { qputenv("XDG_DATA_HOME", data); });
        auto manager = makeManager();
        QVERIFY(loaded(*manager));
        QVERIFY(manager->allShortcuts().isEmpty());
        QCOMPARE(
            manager->emptyState(),
            QVariantMap({{"title", "No Shortcuts Yet"},
                         {"message", "Create shortcuts in the Shortcuts app and they will show up here."}}));
    }

    void aMissingToolIsUnavailable_data() {
        QTest::addColumn<QString>("program");
        QTest::addColumn<bool>("exists");
        QTest::addRow("absent") << "absent/ostavell-shortcuts" << false;
        QTest::addRow("not executable") << "plain/ostavell-shortcuts" << true;
        QTest::addRow("a folder") << "folder/ostavell-shortcuts" << true;
    }

    void aMissingToolIsUnavailable() {
        QFETCH(QString, program);
        QFETCH(bool, exists);
        const QString path = m_work.filePath(program);
        if (exists && program.startsWith("plain")) {
            QVERIFY(QDir().mkpath(QFileInfo(path).absolutePath()));
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
        } else if (exists) {
            QVERIFY(QDir().mkpath(path));
        }
        auto manager = makeManager(path);
        QSignalSpy states(manager.get(), &ShortcutsManager::loadStateChanged);
        manager->refresh();
        QCOMPARE(manager->loadState(), ShortcutsManager::LoadState::unavailable);
        const QString sentence = "The Shortcuts command-line tool was not found at " + path + ".";
        QCOMPARE(manager->loadMessage(), sentence);
        QCOMPARE(manager->emptyState(),
                 QVariantMap({{"title", "Shortcuts Unavailable"}, {"message", sentence}}));
        QCOMPARE(states.count(), 1);
    }

    // A `list` that fails says how: its own words when it has any, else its code.
    void aFailingListSaysWhy_data() {
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QString>("message");
        QTest::addRow("words on standard error")
            << QByteArray("echo '  The folder is gone.  ' >&2\necho half\nexit 3\n") << "The folder is gone.";
        QTest::addRow("no words") << QByteArray("exit 4\n") << "ostavell-shortcuts list exited with code 4.";
        QTest::addRow("blank words") << QByteArray("echo '   ' >&2\nexit 5\n")
                                     << "ostavell-shortcuts list exited with code 5.";
        QTest::addRow("killed") << QByteArray("kill -9 $$\n")
                                << "ostavell-shortcuts list exited with code 137.";
        QTest::addRow("one byte over the bound")
            << QByteArray("yes abcdefghijklmno | head -c 1048577\n")
            << "ostavell-shortcuts list printed more than 1048576 bytes.";
    }

    void aFailingListSaysWhy() {
        QFETCH(QByteArray, script);
        QFETCH(QString, message);
        const QString program = m_work.filePath("stand-in");
        QVERIFY(writeScript(program, script));
        auto manager = makeManager(program);
        if (!message.contains("more than"))
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^list exited with code \\d+$"));
        QVERIFY(!loaded(*manager));
        QCOMPARE(manager->loadState(), ShortcutsManager::LoadState::failed);
        QCOMPARE(manager->loadMessage(), message);
        QCOMPARE(manager->emptyState(),
                 QVariantMap({{"title", "Couldn't Load Shortcuts"}, {"message", message}}));
    }

    void aListAtTheBoundIsRead() {
        const QString program = m_work.filePath("stand-in");
        // 65,536 lines of 16 bytes: exactly the bound.
        QVERIFY(writeScript(program, "yes abcdefghijklmno | head -c 1048576\n"));
        auto manager = makeManager(program);
        QVERIFY(loaded(*manager));
        QCOMPARE(manager->allShortcuts().size(), 65536);
    }

    void aListThatHangsIsStopped() {
        const QString program = m_work.filePath("stand-in");
        QVERIFY(writeScript(program, "exec sleep 600\n"));
        auto manager = makeManager(program);
        manager->timing.listDeadline = std::chrono::seconds(2);
        QVERIFY(!loaded(*manager));
        QCOMPARE(manager->loadMessage(), "ostavell-shortcuts list did not finish within 2 seconds.");
    }

    // The search ignores case as the locale does and surrounding blanks; names stay as listed.
    void widgetList_data() {
        QTest::addColumn<QStringList>("all");
        QTest::addColumn<QStringList>("favorites");
        QTest::addColumn<QStringList>("hidden");
        QTest::addColumn<QString>("search");
        QTest::addColumn<QString>("locale");
        QTest::addColumn<QStringList>("expected");
        const QStringList names{"Back Up", "Été", "Clean", "backlog"};
        QTest::addRow("no search") << names << QStringList() << QStringList() << ""
                                   << "en_US" << names;
        QTest::addRow("blank search") << names << QStringList() << QStringList() << " \t "
                                      << "en_US" << names;
        QTest::addRow("favourites first, in order")
            << names << QStringList({"backlog", "Été"}) << QStringList() << ""
            << "en_US" << QStringList({"Été", "backlog", "Back Up", "Clean"});
        QTest::addRow("a hidden favourite is not shown")
            << names << QStringList({"Clean"}) << QStringList({"Clean"}) << ""
            << "en_US" << QStringList({"Back Up", "Été", "backlog"});
        QTest::addRow("case ignored") << names << QStringList() << QStringList() << "BACK"
                                      << "en_US" << QStringList({"Back Up", "backlog"});
        QTest::addRow("trimmed") << names << QStringList() << QStringList() << "  k u "
                                 << "en_US" << QStringList({"Back Up"});
        QTest::addRow("accents count") << names << QStringList() << QStringList() << "ete"
                                       << "en_US" << QStringList();
        QTest::addRow("accented, either case") << names << QStringList() << QStringList() << "éTÉ"
                                               << "en_US" << QStringList({"Été"});
        QTest::addRow("composed matches decomposed")
            << QStringList({QString("Cafe\u0301 run")}) << QStringList() << QStringList()
            << QString("CAF\u00C9") << "en_US" << QStringList({QString("Cafe\u0301 run")});
        QTest::addRow("Turkish dotted capital")
            << QStringList({QString("\u0130stanbul trip")}) << QStringList() << QStringList() << "istanbul"
            << "tr_TR" << QStringList({QString("\u0130stanbul trip")});
        QTest::addRow("hidden stays hidden when searched")
            << names << QStringList() << QStringList({"backlog"}) << "back"
            << "en_US" << QStringList({"Back Up"});
    }

    void widgetList() {
        QFETCH(QStringList, all);
        QFETCH(QStringList, favorites);
        QFETCH(QStringList, hidden);
        QFETCH(QString, search);
        QFETCH(QString, locale);
        QTEST(ShortcutsManager::widgetList(all, favorites, hidden, search, QLocale(locale)), "expected");
    }
};

QTEST_GUILESS_MAIN(tst_ShortcutsManager)
#include "tst_ShortcutsManager.moc"
