#include "OstaVell/Features/Notes/NotesStore.h"
#include "OstaVell/Migrations.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace vell;

namespace {

const QString tabsKey = QStringLiteral("layout.visibleTabs");
const QString defaultTabKey = QStringLiteral("layout.defaultTab");
const QStringList flags{QStringLiteral("migration.notes.v3"), QStringLiteral("migration.googleTab.v4"),
                        QStringLiteral("migration.modulesTab.v6"),
                        QStringLiteral("migration.automations.v17")};

} // namespace

class tst_Migrations final : public QObject {
    Q_OBJECT

private slots:
    void init();

    void tabs_data();
    void tabs();
    void scratchNote_data();
    void scratchNote();
    void runningTwiceChangesNothing();
    void aSetFlagSkipsItsStep();
    void unreadableNotesWaitForTheImport();

private:
    // Writes the starting defaults as an older version of the app would have left them.
    void writeSettings(const QVariantMap& values);
    void migrate();
    QVariant reread(const QString& key) const {
        return QSettings(m_settingsPath, QSettings::IniFormat).value(key);
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_settingsPath;
    QString m_notesPath;
    QDateTime m_now = QDateTime(QDate(2024, 5, 6), QTime(7, 8, 9), Qt::UTC);
};

void tst_Migrations::init() {
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_settingsPath = m_dir->filePath(QStringLiteral("OstaVell/OstaVell.conf"));
    m_notesPath = m_dir->filePath(QStringLiteral("data/OstaVell/notes.json"));
}

void tst_Migrations::writeSettings(const QVariantMap& values) {
    QSettings settings(m_settingsPath, QSettings::IniFormat);
    for (auto value = values.cbegin(); value != values.cend(); ++value)
        settings.setValue(value.key(), value.value());
    settings.sync();
    QCOMPARE(settings.status(), QSettings::NoError);
}

void tst_Migrations::migrate() {
    UserDefaults defaults(m_settingsPath);
    NotesStore notes(m_notesPath);
    Migrations::run(defaults, notes, m_now);
    notes.saveNow();
}

// The visible tabs and the default tab as stored, then as migrated; an invalid value is absent.
void tst_Migrations::tabs_data() {
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<QVariant>("storedDefault");
    QTest::addColumn<QString>("migrated");
    QTest::addColumn<QVariant>("migratedDefault");
    const auto row = [](const char* name, const QVariant& stored, const QString& migrated,
                        const QVariant& storedDefault = {}, const QVariant& migratedDefault = {}) {
        QTest::addRow("%s", name) << stored << storedDefault << migrated << migratedDefault;
    };
    const QString everyTab = QStringLiteral("Vell,Tray,Automations,Google,Modules");
    row("fresh install", {}, everyTab);
    row("old tools list", "Vell,Tray,Tools", everyTab);
    row("empty parts dropped", ",Vell,,Tray,", "Vell,Tray,Google,Modules");
    row("google and modules already there", "Modules,Google,Vell", "Modules,Google,Vell");
    row("tools replaced wherever it stands", "Tools,Vell,ToolsBox",
        "Automations,Vell,AutomationsBox,Google,Modules");
    row("empty list", "", "Google,Modules");
    row("default tab Tools moves", "Vell,Tray,Tools", everyTab, "Tools", "Automations");
    row("default tab Tray kept", "Vell,Tray,Tools", everyTab, "Tray", "Tray");
    row("default tab not exactly Tools", "Vell,Tray,Tools", everyTab, "Tools ", "Tools ");
}

void tst_Migrations::tabs() {
    QFETCH(QVariant, stored);
    QFETCH(QVariant, storedDefault);
    QFETCH(QVariant, migratedDefault);
    if (stored.isValid())
        writeSettings({{tabsKey, stored}});
    if (storedDefault.isValid())
        writeSettings({{defaultTabKey, storedDefault}});
    migrate();
    QTEST(reread(tabsKey).toString(), "migrated");
    QCOMPARE(reread(defaultTabKey).isValid(), migratedDefault.isValid());
    QCOMPARE(reread(defaultTabKey).toString(), migratedDefault.toString());
    for (const QString& flag : flags)
        QCOMPARE(reread(flag).toString(), QStringLiteral("true"));
}

void tst_Migrations::scratchNote_data() {
    QTest::addColumn<QVariant>("scratch");
    QTest::addColumn<bool>("imports");

    QTest::addRow("text") << QVariant("Buy milk\nand bread") << true;
    QTest::addRow("text with commas") << QVariant("one, two, three") << true;
    QTest::addRow("empty") << QVariant("") << false;
    QTest::addRow("absent") << QVariant() << false;
}

void tst_Migrations::scratchNote() {
    QFETCH(QVariant, scratch);
    QFETCH(bool, imports);

    // An earlier note, to see that the import goes to the top.
    {
        NotesStore notes(m_notesPath);
        notes.addNote(QStringLiteral("older"), m_now.addDays(-3));
        notes.saveNow();
    }
    if (scratch.isValid())
        writeSettings({{QStringLiteral("scratchNote"), scratch}});
    migrate();

    NotesStore reloaded(m_notesPath);
    QCOMPARE(reloaded.notes().size(), imports ? 2 : 1);
    if (imports) {
        const NotesItem& imported = reloaded.notes().first();
        QCOMPARE(imported.text, scratch.toString());
        QCOMPARE(imported.createdAt, m_now);
        QCOMPARE(imported.updatedAt, m_now);
        QVERIFY(!imported.id.isNull());
        QCOMPARE(reloaded.notes().at(1).text, QStringLiteral("older"));
    }
    QCOMPARE(reread(QStringLiteral("migration.notes.v3")).toString(), QStringLiteral("true"));
    // The old key stays; only the flag stops a second import.
    QCOMPARE(reread(QStringLiteral("scratchNote")).isValid(), scratch.isValid());
}

void tst_Migrations::runningTwiceChangesNothing() {
    writeSettings({{tabsKey, QStringLiteral("Vell,Tray,Tools")},
                   {defaultTabKey, QStringLiteral("Tools")},
                   {QStringLiteral("scratchNote"), QStringLiteral("keep me once")}});
    migrate();

    auto snapshot = [this] {
        QByteArray both;
        for (const QString& path : {m_settingsPath, m_notesPath}) {
            QFile file(path);
            if (!file.open(QIODevice::ReadOnly))
                return QByteArray();
            both += file.readAll();
        }
        return both;
    };
    const QByteArray first = snapshot();
    QVERIFY(!first.isEmpty());

    // Once more, as the next launch would, with the tab rewritten by the user meanwhile.
    writeSettings({{tabsKey, QStringLiteral("Vell,Tools")}});
    const QByteArray edited = snapshot();
    migrate();
    QCOMPARE(snapshot(), edited);
}

void tst_Migrations::aSetFlagSkipsItsStep() {
    writeSettings({{tabsKey, QStringLiteral("Vell,Tray,Tools")},
                   {QStringLiteral("migration.googleTab.v4"), true},
                   {QStringLiteral("migration.automations.v17"), true}});
    migrate();
    QCOMPARE(reread(tabsKey).toString(), QStringLiteral("Vell,Tray,Tools,Modules"));
}

// A notes file that can't be read takes no note; the import waits for a launch where it can be,
// and the other steps go on.
void tst_Migrations::unreadableNotesWaitForTheImport() {
    writeSettings({{QStringLiteral("scratchNote"), QStringLiteral("not lost")}});
    QVERIFY(QDir().mkpath(m_notesPath));
    migrate();
    QVERIFY(!reread(QStringLiteral("migration.notes.v3")).isValid());
    QCOMPARE(reread(QStringLiteral("migration.automations.v17")).toString(), QStringLiteral("true"));

    QVERIFY(QDir(m_notesPath).removeRecursively());
    migrate();
    QCOMPARE(reread(QStringLiteral("migration.notes.v3")).toString(), QStringLiteral("true"));
    NotesStore reloaded(m_notesPath);
    QCOMPARE(reloaded.notes().size(), 1);
    QCOMPARE(reloaded.notes().first().text, QStringLiteral("not lost"));
}

QTEST_GUILESS_MAIN(tst_Migrations)
#include "tst_migrations.moc"
