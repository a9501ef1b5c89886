#include "OstaVell/Support/SettingsStore.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QMetaProperty>
#include <QRegularExpression>
#include <QSettings>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace vell;

class tst_SettingsStore final : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void everyPropertyPersistsUnderAKeyOfItsOwn();
    void keysAndDefaultsThatOlderFilesDependOn();
    void changeFromAnotherProcessIsPublished();

    void sharedAppearanceIsNormalizedOnReadAndWrite();
    void wideDisplayAppearanceIsKept();
    void unreadableMapReadsEmptyAndIsNotRewrittenUntilTheNextSet();
    void appearancePaneOperations();

    void launchAtLogin();

private:
    QString rawValue(const QString& key) const;

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<SettingsStore> m_store;
};

void tst_SettingsStore::init() {
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_defaults = std::make_unique<UserDefaults>(m_dir->filePath(QStringLiteral("OstaVell.conf")));
    m_store = std::make_unique<SettingsStore>(m_defaults.get());
}

void tst_SettingsStore::cleanup() {
    m_store.reset();
    m_defaults.reset();
    m_dir.reset();
}

QString tst_SettingsStore::rawValue(const QString& key) const {
    QSettings reader(m_defaults->filePath(), QSettings::IniFormat);
    return reader.value(key).toString();
}

// Two properties sharing a key, a key missing from the set that announces changes, or a
// value that doesn't survive a restart all show here, for properties added later too.
void tst_SettingsStore::everyPropertyPersistsUnderAKeyOfItsOwn() {
    const QMetaObject* meta = m_store->metaObject();
    QHash<QByteArray, QVariant> written;
    for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i) {
        const QMetaProperty property = meta->property(i);
        if (qstrcmp(property.name(), "launchAtLogin") == 0)
            continue;
        const QVariant before = property.read(m_store.get());
        const int type = before.typeId();
        const QVariant other = type == QMetaType::Bool     ? QVariant(!before.toBool())
                               : type == QMetaType::Double ? QVariant(before.toDouble() + 1.5)
                               : type == QMetaType::QString
                                   ? QVariant(before.toString() + QStringLiteral(",x"))
                               : type == QMetaType::QByteArray ? QVariant(QByteArray("{}"))
                                                               : QVariant();
        QVERIFY2(other.isValid(), property.name());

        const QStringList keysBefore = QSettings(m_defaults->filePath(), QSettings::IniFormat).allKeys();
        QSignalSpy spy(m_store.get(), &SettingsStore::changed);
        // Its own signal, and no other property's.
        QList<std::shared_ptr<QSignalSpy>> notified;
        for (int j = meta->propertyOffset(); j < meta->propertyCount(); ++j)
            notified.append(std::make_shared<QSignalSpy>(m_store.get(), meta->property(j).notifySignal()));
        QVERIFY(property.write(m_store.get(), other));
        QVERIFY2(spy.count() == 1, property.name());
        for (int j = meta->propertyOffset(); j < meta->propertyCount(); ++j) {
            // launchAtLogin is told by the store-wide signal, which every write raises.
            const bool own = j == i || qstrcmp(meta->property(j).name(), "launchAtLogin") == 0;
            QVERIFY2(notified.at(j - meta->propertyOffset())->count() == (own ? 1 : 0),
                     meta->property(j).name());
        }
        QStringList added = QSettings(m_defaults->filePath(), QSettings::IniFormat).allKeys();
        for (const QString& key : keysBefore)
            added.removeOne(key);
        QVERIFY2(added.size() == 1, property.name());
        written.insert(property.name(), other);
    }

    m_store.reset();
    m_defaults = std::make_unique<UserDefaults>(m_dir->filePath(QStringLiteral("OstaVell.conf")));
    const SettingsStore reopened(m_defaults.get());
    for (auto entry = written.cbegin(); entry != written.cend(); ++entry)
        QCOMPARE(reopened.property(entry.key()), entry.value());
}

// Keys that files of older versions hold, and the defaults a first start shows.
void tst_SettingsStore::keysAndDefaultsThatOlderFilesDependOn() {
    const struct {
        const char* property;
        const char* key;
        QVariant fallback;
        QVariant stored;
    } rows[] = {
        {"modulePickerSide", "modules.pickerSide", QStringLiteral("left"), QStringLiteral("right")},
        {"openOnHover", "openOnHover", true, false},
        {"hoverDelay", "hoverDelay", 0.1, 0.25},
        {"openWidth", "appearance.openWidth", 760.0, 3000.0},
        {"backgroundOpacity", "appearance.opacity", 1.0, 0.5},
        {"gradientDirection", "appearance.direction", QStringLiteral("vertical"), QStringLiteral("up")},
        {"displayAppearanceData", "appearance.displays.v1", QByteArray(), QByteArray("{}")},
        {"visibleTabsCSV", "layout.visibleTabs", QStringLiteral("Vell,Tray,Automations,Modules"),
         QStringLiteral("Vell,Tray")},
        {"defaultTabRaw", "layout.defaultTab", QStringLiteral("Vell"), QStringLiteral("Tray")},
    };
    for (const auto& row : rows) {
        QCOMPARE(m_store->property(row.property), row.fallback);
        m_defaults->setValue(QString::fromLatin1(row.key), row.stored);
        QCOMPARE(m_store->property(row.property), row.stored);
    }
}

void tst_SettingsStore::changeFromAnotherProcessIsPublished() {
    QSignalSpy spy(m_store.get(), &SettingsStore::changed);
    QSignalSpy width(m_store.get(), &SettingsStore::openWidthChanged);
    {
        QSettings other(m_defaults->filePath(), QSettings::IniFormat);
        other.setValue(QStringLiteral("appearance.openWidth"), 1234.5);
    }
    QVERIFY(spy.wait());
    QCOMPARE(width.count(), 1);
    QCOMPARE(m_store->openWidth(), 1234.5);

    // A key of one tool alone doesn't concern the shell.
    spy.clear();
    m_defaults->setValue(QStringLiteral("notes.sortOrder"), QStringLiteral("alphabetical"));
    QCOMPARE(spy.count(), 0);
}

void tst_SettingsStore::sharedAppearanceIsNormalizedOnReadAndWrite() {
    m_defaults->setValue(QStringLiteral("appearance.openHeight"), 900.0);
    m_defaults->setValue(QStringLiteral("appearance.backgroundStyle"), QStringLiteral("glass"));
    QCOMPARE(m_store->sharedAppearance().height, 560.0);
    QCOMPARE(m_store->sharedAppearance().backgroundStyle, QStringLiteral("black"));
    // Reading corrects nothing in the defaults.
    QCOMPARE(rawValue(QStringLiteral("appearance.openHeight")), QStringLiteral("900"));

    VellAppearance appearance;
    appearance.backgroundStyle = QStringLiteral("solid");
    appearance.startHex = QStringLiteral("#112233");
    appearance.endHex = QStringLiteral("#445566");
    appearance.accentHex = QStringLiteral("#778899");
    appearance.opacity = 0.5;
    appearance.fades = true;
    appearance.startOpacity = 0.9;
    appearance.endOpacity = 0.1;
    appearance.direction = QStringLiteral("horizontal");
    appearance.borderGlow = true;
    appearance.width = 1000;
    appearance.height = 900;
    appearance.cornerRadius = 16;
    m_store->setSharedAppearance(appearance);

    VellAppearance expected = appearance;
    expected.height = 560;
    QCOMPARE(m_store->sharedAppearance(), expected);
    // Stored as corrected, not only read so.
    QCOMPARE(m_store->openHeight(), 560.0);
}

void tst_SettingsStore::wideDisplayAppearanceIsKept() {
    // The geometry fits a wide panel to its screen; the stored width stays for a wider one.
    const VellAppearance wide{.width = 3000, .height = 900};
    m_store->setAppearance(QStringLiteral("display-1"), QStringLiteral("HDMI-1"), wide);
    const VellAppearance stored = m_store->displayAppearances().value(QStringLiteral("display-1")).appearance;
    QCOMPARE(stored.width, 3000.0);
    QCOMPARE(stored.height, 560.0);
    QCOMPARE(m_store->appearance(QStringLiteral("display-1")).width, 3000.0);
}

void tst_SettingsStore::unreadableMapReadsEmptyAndIsNotRewrittenUntilTheNextSet() {
    const VellAppearance own{.accentHex = QStringLiteral("#123456")};
    m_store->setAppearance(QStringLiteral("kept"), QStringLiteral("Kept"), own);
    QString stored = rawValue(QStringLiteral("appearance.displays.v1"));
    stored.replace(QStringLiteral("\"width\":760,"), QString());
    m_defaults->setValue(QStringLiteral("appearance.displays.v1"), stored);

    QVERIFY(m_store->displayAppearances().isEmpty());
    QCOMPARE(m_store->appearance(QStringLiteral("kept")), m_store->sharedAppearance());
    QVERIFY(!m_store->hasOwnAppearance(QStringLiteral("kept")));
    QVERIFY(m_store->savedDisplays().isEmpty());
    m_store->setAccentHex(QStringLiteral("#ABCDEF"));
    QCOMPARE(rawValue(QStringLiteral("appearance.displays.v1")), stored);

    m_store->setAppearance(QStringLiteral("new"), QStringLiteral("New"), own);
    const DisplayAppearance::Map map = m_store->displayAppearances();
    QCOMPARE(map.keys(), QStringList{QStringLiteral("new")});
    QCOMPARE(map.value(QStringLiteral("new")).appearance.accentHex, QStringLiteral("#123456"));

    // Going back to the shared look rewrites the map even for an id it never held.
    m_defaults->setValue(QStringLiteral("appearance.displays.v1"), QStringLiteral("not json"));
    m_store->useSharedAppearance(QStringLiteral("never-saved"));
    QCOMPARE(rawValue(QStringLiteral("appearance.displays.v1")), QStringLiteral("{}"));
}

void tst_SettingsStore::appearancePaneOperations() {
    const QString display = QStringLiteral("5B1E0C2A-0000-5000-8000-000000000001");
    const QString shared = QStringLiteral("shared");

    m_store->setAppearanceValue(shared, QString(), QStringLiteral("width"), 5000);
    QCOMPARE(m_store->openWidth(), 3840.0);
    QVERIFY(m_store->displayAppearances().isEmpty());

    // Turning the shared look off for a display starts it from a copy of the shared one.
    m_store->setUsesSharedAppearance(display, QStringLiteral("Built-in"), false);
    QVERIFY(m_store->hasOwnAppearance(display));
    QCOMPARE(m_store->appearance(display), m_store->sharedAppearance());

    m_store->setAppearanceValue(display, QStringLiteral("Built-in"), QStringLiteral("fades"), true);
    m_store->setAppearanceValue(display, QStringLiteral("Built-in"), QStringLiteral("no such field"), 1);
    QCOMPARE(m_store->appearanceMap(display).value(QStringLiteral("fades")).toBool(), true);
    QCOMPARE(m_store->sharedAppearance().fades, false);

    m_store->setAppearanceValue(QStringLiteral("display-7"), QStringLiteral("HDMI-1"),
                                QStringLiteral("cornerRadius"), 33);
    const QVariantList saved = m_store->savedDisplays();
    QCOMPARE(saved.size(), 2);
    QCOMPARE(saved.at(0).toMap().value(QStringLiteral("name")).toString(), QStringLiteral("Built-in"));
    QCOMPARE(saved.at(1).toMap().value(QStringLiteral("id")).toString(), QStringLiteral("display-7"));

    m_store->setUsesSharedAppearance(display, QStringLiteral("Built-in"), true);
    QVERIFY(!m_store->hasOwnAppearance(display));
    QCOMPARE(m_store->appearanceMap(display), m_store->appearanceMap(shared));
}

void tst_SettingsStore::launchAtLogin() {
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    const QString entry = config + QStringLiteral("/autostart/app.ostavell.OstaVell.desktop");
    QVERIFY2(!QFile::exists(entry), "the test session's config folder is not a fresh one");
    QVERIFY(!m_store->launchAtLogin());

    m_store->setLaunchAtLogin(true);
    QVERIFY(m_store->launchAtLogin());
    QFile file(entry);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.readAll().contains("\nExec=" + QCoreApplication::applicationFilePath().toUtf8() + '\n'));
    file.close();
    m_store->setLaunchAtLogin(false);
    QVERIFY(!QFile::exists(entry));

    // A file where the folder should be: the toggle fails, says so, and the switch reads off.
    QVERIFY(QDir(config + QStringLiteral("/autostart")).removeRecursively());
    QFile blocker(config + QStringLiteral("/autostart"));
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression(QStringLiteral("^launch-at-login toggle failed: .+")));
    m_store->setLaunchAtLogin(true);
    QVERIFY(!m_store->launchAtLogin());
    QFile::remove(blocker.fileName());
}

QTEST_GUILESS_MAIN(tst_SettingsStore)
#include "tst_settingsstore.moc"
