#include "OstaVell/Features/Notes/NotesStore.h"
#include "OstaVell/Migrations.h"
#include "OstaVell/Support/UserDefaults.h"

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

    void visibleTabs_data();
    void visibleTabs();
    void defaultTabOnlyMovesFromTools_data();
    void defaultTabOnlyMovesFromTools();
    void scratchNote_data();
    void scratchNote();
    void runningTwiceChangesNothing();
    void aSetFlagSkipsItsStep();

private:
    // Writes the starting defaults as an older version of the app would have left them.
    void writeSettings(const QVariantMap& values);
    void migrate();
    QVariant reread(const QString& key) const;

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

QVariant tst_Migrations::reread(const QString& key) const {
    QSettings settings(m_settingsPath, QSettings::IniFormat);
    return settings.value(key);
}

void tst_Migrations::visibleTabs_data() {
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<QString>("migrated");

    QTest::addRow("fresh install") << QVariant() << "Vell,Tray,Automations,Google,Modules";
    QTest::addRow("old tools list") << QVariant("Vell,Tray,Tools") << "Vell,Tray,Automations,Google,Modules";
    QTest::addRow("empty parts dropped") << QVariant(",Vell,,Tray,") << "Vell,Tray,Google,Modules";
    QTest::addRow("google and modules already there")
        << QVariant("Modules,Google,Vell") << "Modules,Google,Vell";
    QTest::addRow("tools replaced wherever it stands")
        << QVariant("Tools,Vell,ToolsBox") << "Automations,Vell,AutomationsBox,Google,Modules";
    QTest::addRow("empty list") << QVariant("") << "Google,Modules";
}

void tst_Migrations::visibleTabs() {
    QFETCH(QVariant, stored);
    if (stored.isValid())
        writeSettings({{tabsKey, stored}});
    migrate();
    QTEST(reread(tabsKey).toString(), "migrated");
    for (const QString& flag : flags)
        QCOMPARE(reread(flag).toString(), QStringLiteral("true"));
}

void tst_Migrations::defaultTabOnlyMovesFromTools_data() {
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<QVariant>("migrated");

    QTest::addRow("Tools") << QVariant("Tools") << QVariant("Automations");
    QTest::addRow("Tray kept") << QVariant("Tray") << QVariant("Tray");
    QTest::addRow("not exactly Tools") << QVariant("Tools ") << QVariant("Tools ");
    QTest::addRow("absent stays absent") << QVariant() << QVariant();
}

void tst_Migrations::defaultTabOnlyMovesFromTools() {
    QFETCH(QVariant, stored);
    QFETCH(QVariant, migrated);
    writeSettings({{tabsKey, QStringLiteral("Vell,Tray,Tools")}});
    if (stored.isValid())
        writeSettings({{defaultTabKey, stored}});
    migrate();
    QCOMPARE(reread(defaultTabKey).isValid(), migrated.isValid());
    QCOMPARE(reread(defaultTabKey).toString(), migrated.toString());
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

QTEST_GUILESS_MAIN(tst_Migrations)
#include "tst_migrations.moc"
