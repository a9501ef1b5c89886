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

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<SettingsStore> m_store;

    QString rawValue(const QString& key) const {
        QSettings reader(m_defaults->filePath(), QSettings::IniFormat);
        return reader.value(key).toString();
    }

private slots:
    void init() {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_defaults = std::make_unique<UserDefaults>(m_dir->filePath("OstaVell.conf"));
        m_store = std::make_unique<SettingsStore>(m_defaults.get());
    }

    void cleanup() {
        m_store.reset();
        m_defaults.reset();
        m_dir.reset();
    }

    // Two properties sharing a key, a key missing from the set that announces changes, or a
    // value that doesn't survive a restart all show here, for properties added later too.
    void everyPropertyPersistsUnderAKeyOfItsOwn() {
        const QMetaObject* meta = m_store->metaObject();
        QHash<QByteArray, QVariant> written;
        for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i) {
            const QMetaProperty property = meta->property(i);
            if (qstrcmp(property.name(), "launchAtLogin") == 0)
                continue;
            const QVariant before = property.read(m_store.get());
            const int type = before.typeId();
            const QVariant other = type == QMetaType::Bool         ? QVariant(!before.toBool())
                                   : type == QMetaType::Double     ? QVariant(before.toDouble() + 1.5)
                                   : type == QMetaType::QString    ? QVariant(before.toString() + ",x")
                                   : type == QMetaType::QByteArray ? QVariant(QByteArray("{}"))
                                                                   : QVariant();
            QVERIFY2(other.isValid(), property.name());

            const QStringList keysBefore = QSettings(m_defaults->filePath(), QSettings::IniFormat).allKeys();
            QSignalSpy spy(m_store.get(), &SettingsStore::changed);
            // Its own signal, and no other property's.
            QList<std::shared_ptr<QSignalSpy>> notified;
            for (int j = meta->propertyOffset(); j < meta->propertyCount(); ++j)
                notified.append(
                    std::make_shared<QSignalSpy>(m_store.get(), meta->property(j).notifySignal()));
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
        m_defaults = std::make_unique<UserDefaults>(m_dir->filePath("OstaVell.conf"));
        const SettingsStore reopened(m_defaults.get());
        for (auto entry = written.cbegin(); entry != written.cend(); ++entry)
            QCOMPARE(reopened.property(entry.key()), entry.value());
    }

    // Keys that files of older versions hold, and the defaults a first start shows.
    void keysAndDefaultsThatOlderFilesDependOn() {
        const struct {
            const char* property;
            const char* key;
            QVariant fallback;
            QVariant stored;
        } rows[] = {
            {"modulePickerSide", "modules.pickerSide", "left", "right"},
            {"openOnHover", "openOnHover", true, false},
            {"hoverDelay", "hoverDelay", 0.1, 0.25},
            {"openWidth", "appearance.openWidth", 760.0, 3000.0},
            {"backgroundOpacity", "appearance.opacity", 1.0, 0.5},
            {"gradientDirection", "appearance.direction", "vertical", "up"},
            {"displayAppearanceData", "appearance.displays.v1", QByteArray(), QByteArray("{}")},
            {"visibleTabsCSV", "layout.visibleTabs", "Vell,Tray,Automations,Modules", "Vell,Tray"},
            {"defaultTabRaw", "layout.defaultTab", "Vell", "Tray"},
        };
        for (const auto& row : rows) {
            QCOMPARE(m_store->property(row.property), row.fallback);
            m_defaults->setValue(QString::fromLatin1(row.key), row.stored);
            QCOMPARE(m_store->property(row.property), row.stored);
        }
    }

    void changeFromAnotherProcessIsPublished() {
        QSignalSpy spy(m_store.get(), &SettingsStore::changed);
        QSignalSpy width(m_store.get(), &SettingsStore::openWidthChanged);
        {
            QSettings other(m_defaults->filePath(), QSettings::IniFormat);
            other.setValue("appearance.openWidth", 1234.5);
        }
        QVERIFY(spy.wait());
        QCOMPARE(width.count(), 1);
        QCOMPARE(m_store->openWidth(), 1234.5);

        // A key of one tool alone doesn't concern the shell.
        spy.clear();
        m_defaults->setValue("notes.sortOrder", "alphabetical");
        QCOMPARE(spy.count(), 0);
    }

    void sharedAppearanceIsNormalizedOnReadAndWrite() {
        m_defaults->setValue("appearance.openHeight", 900.0);
        m_defaults->setValue("appearance.backgroundStyle", "glass");
        QCOMPARE(m_store->sharedAppearance().height, 560.0);
        QCOMPARE(m_store->sharedAppearance().backgroundStyle, "black");
        // Reading corrects nothing in the defaults.
        QCOMPARE(rawValue("appearance.openHeight"), "900");

        // Every field away from its default, in the declared order.
        const VellAppearance appearance{"solid", "#112233",    "#445566", "#778899", 0.5, true, 0.9,
                                        0.1,     "horizontal", true,      1000,      900, 16};
        m_store->setSharedAppearance(appearance);
        VellAppearance expected = appearance;
        expected.height = 560;
        QCOMPARE(m_store->sharedAppearance(), expected);
        // Stored as corrected, not only read so.
        QCOMPARE(m_store->openHeight(), 560.0);
    }

    void wideDisplayAppearanceIsKept() {
        // The geometry fits a wide panel to its screen; the stored width stays for a wider one.
        const VellAppearance wide{.width = 3000, .height = 900};
        m_store->setAppearance("display-1", "HDMI-1", wide);
        const VellAppearance stored = m_store->displayAppearances().value("display-1").appearance;
        QCOMPARE(stored.width, 3000.0);
        QCOMPARE(stored.height, 560.0);
        QCOMPARE(m_store->appearance("display-1").width, 3000.0);
    }

    void unreadableMapReadsEmptyAndIsNotRewrittenUntilTheNextSet() {
        const VellAppearance own{.accentHex = "#123456"};
        m_store->setAppearance("kept", "Kept", own);
        QString stored = rawValue("appearance.displays.v1");
        stored.replace("\"width\":760,", QString());
        m_defaults->setValue("appearance.displays.v1", stored);

        QVERIFY(m_store->displayAppearances().isEmpty());
        QCOMPARE(m_store->appearance("kept"), m_store->sharedAppearance());
        QVERIFY(!m_store->hasOwnAppearance("kept"));
        QVERIFY(m_store->savedDisplays().isEmpty());
        m_store->setAccentHex("#ABCDEF");
        QCOMPARE(rawValue("appearance.displays.v1"), stored);

        m_store->setAppearance("new", "New", own);
        const DisplayAppearance::Map map = m_store->displayAppearances();
        QCOMPARE(map.keys(), QStringList{"new"});
        QCOMPARE(map.value("new").appearance.accentHex, "#123456");

        // Going back to the shared look rewrites the map even for an id it never held.
        m_defaults->setValue("appearance.displays.v1", "not json");
        m_store->useSharedAppearance("never-saved");
        QCOMPARE(rawValue("appearance.displays.v1"), "{}");
    }

    void appearancePaneOperations() {
        const QString display = "5B1E0C2A-0000-5000-8000-000000000001";
        const QString shared = "shared";

        m_store->setAppearanceValue(shared, QString(), "width", 5000);
        QCOMPARE(m_store->openWidth(), 3840.0);
        QVERIFY(m_store->displayAppearances().isEmpty());

        // Turning the shared look off for a display starts it from a copy of the shared one.
        m_store->setUsesSharedAppearance(display, "Built-in", false);
        QVERIFY(m_store->hasOwnAppearance(display));
        QCOMPARE(m_store->appearance(display), m_store->sharedAppearance());

        m_store->setAppearanceValue(display, "Built-in", "fades", true);
        m_store->setAppearanceValue(display, "Built-in", "no such field", 1);
        QCOMPARE(m_store->appearanceMap(display).value("fades").toBool(), true);
        QCOMPARE(m_store->sharedAppearance().fades, false);

        m_store->setAppearanceValue("display-7", "HDMI-1", "cornerRadius", 33);
        const QVariantList saved = m_store->savedDisplays();
        QCOMPARE(saved.size(), 2);
        QCOMPARE(saved.at(0).toMap().value("name").toString(), "Built-in");
        QCOMPARE(saved.at(1).toMap().value("id").toString(), "display-7");

        m_store->setUsesSharedAppearance(display, "Built-in", true);
        QVERIFY(!m_store->hasOwnAppearance(display));
        QCOMPARE(m_store->appearanceMap(display), m_store->appearanceMap(shared));
    }

    void launchAtLogin() {
        const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
        const QString entry = config + "/autostart/app.ostavell.OstaVell.desktop";
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
        QVERIFY(QDir(config + "/autostart").removeRecursively());
        QFile blocker(config + "/autostart");
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^launch-at-login toggle failed: .+"));
        m_store->setLaunchAtLogin(true);
        QVERIFY(!m_store->launchAtLogin());
        QFile::remove(blocker.fileName());
    }
};

QTEST_GUILESS_MAIN(tst_SettingsStore)
#include "tst_settingsstore.moc"
