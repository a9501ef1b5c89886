#include "OstaVell/Support/SettingsStore.h"
#include "OstaVell/Support/UserDefaults.h"
#include "VellCore/ShelfGeometry.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSaveFile>
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

    void propertyDefaultsAndKeys_data();
    void propertyDefaultsAndKeys();
    void toolKeysDoNotConcernTheStore();
    void changeFromAnotherProcessIsPublished();

    void sharedAppearanceIsNormalizedOnRead();
    void setSharedAppearanceWritesThirteenNormalizedKeys();

    void displayFallsBackToShared();
    void wideDisplayAppearanceIsKeptAndFittedByTheGeometry();
    void unreadableMapReadsEmptyAndIsNotRewrittenUntilTheNextSet();
    void useSharedOnAnAbsentIdStillRewrites();
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

void tst_SettingsStore::propertyDefaultsAndKeys_data() {
    QTest::addColumn<QByteArray>("property");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("fallback");
    QTest::addColumn<QVariant>("other");

    auto row = [](const char* property, const char* key, const QVariant& fallback, const QVariant& other) {
        QTest::addRow("%s", property)
            << QByteArray(property) << QString::fromLatin1(key) << fallback << other;
    };
    row("modulePickerSide", "modules.pickerSide", QStringLiteral("left"), QStringLiteral("right"));
    row("openOnHover", "openOnHover", true, false);
    row("hoverDelay", "hoverDelay", 0.1, 0.25);
    row("showOnAllDisplays", "showOnAllDisplays", true, false);
    row("fakeNotchOnExternalDisplays", "fakeNotchOnExternalDisplays", true, false);
    row("hapticFeedback", "hapticFeedback", true, false);
    row("notchExtraWidth", "notchExtraWidth", 0.0, 12.5);
    row("openCornerRadius", "openCornerRadius", 24.0, 30.0);
    row("showBorderGlow", "showBorderGlow", false, true);
    row("backgroundStyle", "appearance.backgroundStyle", QStringLiteral("black"), QStringLiteral("gradient"));
    row("gradientStartHex", "appearance.gradientStartHex", QStringLiteral("#101018"),
        QStringLiteral("#FF0000"));
    row("gradientEndHex", "appearance.gradientEndHex", QStringLiteral("#000000"), QStringLiteral("#00FF00"));
    row("accentHex", "appearance.accentHex", QStringLiteral("#C7EB87"), QStringLiteral("#0000FF"));
    row("openWidth", "appearance.openWidth", 760.0, 3000.0);
    row("openHeight", "appearance.openHeight", 400.0, 900.0);
    row("backgroundOpacity", "appearance.opacity", 1.0, 0.5);
    row("backgroundFades", "appearance.fades", false, true);
    row("startOpacity", "appearance.startOpacity", 1.0, 0.75);
    row("endOpacity", "appearance.endOpacity", 0.0, 0.25);
    row("gradientDirection", "appearance.direction", QStringLiteral("vertical"), QStringLiteral("diagonal"));
    row("displayAppearanceData", "appearance.displays.v1", QByteArray(), QByteArray("{}"));
    row("visibleTabsCSV", "layout.visibleTabs", QStringLiteral("Vell,Tray,Automations,Modules"),
        QStringLiteral("Vell,Tray"));
    row("defaultTabRaw", "layout.defaultTab", QStringLiteral("Vell"), QStringLiteral("Tray"));
    row("homeLayout", "layout.homeLayout", QStringLiteral("mediaCalendar"), QStringLiteral("mediaOnly"));
    row("mediaLiveActivity", "mediaLiveActivity", true, false);
    row("timerLiveActivity", "timerLiveActivity", true, false);
    row("batteryLiveActivity", "batteryLiveActivity", true, false);
    row("calendarLiveActivity", "calendarLiveActivity", true, false);
    row("todosLiveActivity", "todosLiveActivity", true, false);
    row("replaceSystemHUD", "replaceSystemHUD", false, true);
}

void tst_SettingsStore::propertyDefaultsAndKeys() {
    QFETCH(QByteArray, property);
    QFETCH(QString, key);
    QFETCH(QVariant, fallback);
    QFETCH(QVariant, other);

    QCOMPARE(m_store->property(property), fallback);

    QSignalSpy spy(m_store.get(), &SettingsStore::changed);
    QVERIFY(m_store->setProperty(property, other));
    QCOMPARE(spy.count(), 1);
    QCOMPARE(m_store->property(property), other);
    QCOMPARE(rawValue(key), other.toString());

    // A restart reads what was written.
    m_store.reset();
    m_defaults = std::make_unique<UserDefaults>(m_dir->filePath(QStringLiteral("OstaVell.conf")));
    SettingsStore reopened(m_defaults.get());
    QCOMPARE(reopened.property(property), other);
}

void tst_SettingsStore::toolKeysDoNotConcernTheStore() {
    QSignalSpy spy(m_store.get(), &SettingsStore::changed);
    m_defaults->setValue(QStringLiteral("notes.sortOrder"), QStringLiteral("alphabetical"));
    QCOMPARE(spy.count(), 0);
    m_defaults->setValue(QStringLiteral("openOnHover"), false);
    QCOMPARE(spy.count(), 1);
}

void tst_SettingsStore::changeFromAnotherProcessIsPublished() {
    QSignalSpy spy(m_store.get(), &SettingsStore::changed);
    {
        QSettings other(m_defaults->filePath(), QSettings::IniFormat);
        other.setValue(QStringLiteral("appearance.openWidth"), 1234.5);
    }
    QVERIFY(spy.wait());
    QCOMPARE(m_store->openWidth(), 1234.5);

    // The same by a plain atomic replace of the file, which nothing in this process shares.
    QSaveFile file(m_defaults->filePath());
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("[General]\nappearance.openWidth=987\nlayout.visibleTabs=Vell,Tray\n");
    QVERIFY(file.commit());
    QVERIFY(spy.wait());
    QCOMPARE(m_store->openWidth(), 987.0);
    QCOMPARE(m_store->visibleTabsCSV(), QStringLiteral("Vell,Tray"));
}

void tst_SettingsStore::sharedAppearanceIsNormalizedOnRead() {
    m_defaults->setValue(QStringLiteral("appearance.openHeight"), 900.0);
    m_defaults->setValue(QStringLiteral("appearance.backgroundStyle"), QStringLiteral("glass"));
    m_defaults->setValue(QStringLiteral("appearance.direction"), QStringLiteral("up"));
    m_defaults->setValue(QStringLiteral("appearance.endOpacity"), std::numeric_limits<double>::quiet_NaN());
    m_defaults->setValue(QStringLiteral("openCornerRadius"), 2.0);

    const VellAppearance shared = m_store->sharedAppearance();
    QCOMPARE(shared.height, 560.0);
    QCOMPARE(shared.backgroundStyle, QStringLiteral("black"));
    QCOMPARE(shared.direction, QStringLiteral("vertical"));
    QCOMPARE(shared.endOpacity, 0.0);
    QCOMPARE(shared.cornerRadius, 10.0);
    // Reading corrects nothing in the defaults.
    QCOMPARE(m_store->openHeight(), 900.0);
    QCOMPARE(rawValue(QStringLiteral("appearance.openHeight")), QStringLiteral("900"));
}

void tst_SettingsStore::setSharedAppearanceWritesThirteenNormalizedKeys() {
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

    QSignalSpy spy(m_store.get(), &SettingsStore::changed);
    m_store->setSharedAppearance(appearance);
    QCOMPARE(spy.count(), 13);

    VellAppearance expected = appearance;
    expected.height = 560;
    QCOMPARE(m_store->sharedAppearance(), expected);
    QCOMPARE(m_store->openHeight(), 560.0);
    QCOMPARE(m_store->gradientStartHex(), QStringLiteral("#112233"));
    QCOMPARE(m_store->gradientEndHex(), QStringLiteral("#445566"));
    QCOMPARE(m_store->backgroundOpacity(), 0.5);
    QVERIFY(m_store->backgroundFades());
    QVERIFY(m_store->showBorderGlow());
    QCOMPARE(m_store->gradientDirection(), QStringLiteral("horizontal"));
    QCOMPARE(m_store->openCornerRadius(), 16.0);
}

void tst_SettingsStore::displayFallsBackToShared() {
    m_store->setAccentHex(QStringLiteral("#FF0000"));
    QCOMPARE(m_store->appearance(QStringLiteral("display-1")).accentHex, QStringLiteral("#FF0000"));
    QVERIFY(!m_store->hasOwnAppearance(QStringLiteral("display-1")));
}

void tst_SettingsStore::wideDisplayAppearanceIsKeptAndFittedByTheGeometry() {
    VellAppearance wide;
    wide.width = 3000;
    wide.height = 900;
    m_store->setAppearance(QStringLiteral("display-1"), QStringLiteral("HDMI-1"), wide);

    const VellAppearance stored = m_store->displayAppearances().value(QStringLiteral("display-1")).appearance;
    QCOMPARE(stored.width, 3000.0);
    QCOMPARE(stored.height, 560.0);
    const VellAppearance read = m_store->appearance(QStringLiteral("display-1"));
    QCOMPARE(read.width, 3000.0);

    const ShelfLayout layout = ShelfGeometry::layout(QRectF(0, 0, 1440, 900), 0, 196, true, read.width,
                                                     read.height, 40, QRectF(0, 30, 1440, 870), 0);
    QCOMPARE(layout.frame.width(), 1416.0);
    QCOMPARE(m_store->appearance(QStringLiteral("display-1")).width, 3000.0);
}

void tst_SettingsStore::unreadableMapReadsEmptyAndIsNotRewrittenUntilTheNextSet() {
    VellAppearance own;
    own.accentHex = QStringLiteral("#123456");
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
}

void tst_SettingsStore::useSharedOnAnAbsentIdStillRewrites() {
    m_defaults->setValue(QStringLiteral("appearance.displays.v1"), QStringLiteral("not json"));
    QSignalSpy spy(m_store.get(), &SettingsStore::changed);
    m_store->useSharedAppearance(QStringLiteral("never-saved"));
    QCOMPARE(spy.count(), 1);
    QCOMPARE(rawValue(QStringLiteral("appearance.displays.v1")), QStringLiteral("{}"));
}

void tst_SettingsStore::appearancePaneOperations() {
    const QString display = QStringLiteral("5B1E0C2A-0000-5000-8000-000000000001");
    const QString shared = QStringLiteral("shared");

    m_store->setAppearanceValue(shared, QString(), QStringLiteral("accentHex"), QStringLiteral("#00FF00"));
    m_store->setAppearanceValue(shared, QString(), QStringLiteral("width"), 5000);
    QCOMPARE(m_store->accentHex(), QStringLiteral("#00FF00"));
    QCOMPARE(m_store->openWidth(), 3840.0);
    QCOMPARE(m_store->appearanceMap(shared).value(QStringLiteral("accentHex")).toString(),
             QStringLiteral("#00FF00"));
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
    QCOMPARE(saved.at(0).toMap().value(QStringLiteral("id")).toString(), display);
    QCOMPARE(saved.at(0).toMap().value(QStringLiteral("name")).toString(), QStringLiteral("Built-in"));
    QCOMPARE(saved.at(1).toMap().value(QStringLiteral("id")).toString(), QStringLiteral("display-7"));
    QCOMPARE(saved.at(1).toMap().value(QStringLiteral("name")).toString(), QStringLiteral("HDMI-1"));

    m_store->setUsesSharedAppearance(display, QStringLiteral("Built-in"), true);
    QVERIFY(!m_store->hasOwnAppearance(display));
    QCOMPARE(m_store->appearanceMap(display), m_store->appearanceMap(shared));
    QCOMPARE(m_store->savedDisplays().size(), 1);
}

void tst_SettingsStore::launchAtLogin() {
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    const QString entry = config + QStringLiteral("/autostart/app.ostavell.OstaVell.desktop");
    QVERIFY2(!QFile::exists(entry), "the test session's config folder is not a fresh one");
    QVERIFY(!m_store->launchAtLogin());

    QSignalSpy spy(m_store.get(), &SettingsStore::changed);
    m_store->setLaunchAtLogin(true);
    QCOMPARE(spy.count(), 1);
    QVERIFY(m_store->launchAtLogin());
    QFile file(entry);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(file.readAll());
    QVERIFY(text.startsWith(QStringLiteral("[Desktop Entry]\n")));
    QVERIFY(text.contains(QStringLiteral("\nExec=") + QCoreApplication::applicationFilePath() + u'\n'));
    QVERIFY(text.contains(QStringLiteral("\nType=Application\n")));
    file.close();

    m_store->setLaunchAtLogin(false);
    QVERIFY(!QFile::exists(entry));
    QVERIFY(!m_store->launchAtLogin());

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
