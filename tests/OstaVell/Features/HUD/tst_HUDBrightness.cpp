// Brightness against logind as python3-dbusmock plays it, on a private bus standing in for the
// system bus, and a backlight folder of the test's own: the device the kernel would have us
// prefer, availability only with both a device and a session, and each change written through
// the session's SetBrightness (which the mock carries out on the folder, as logind would).
#include "OstaVell/Features/HUD/HUDBrightnessManager.h"
#include "OstaVell/Features/HUD/HUDSettings.h"
#include "OstaVell/Features/HUD/MediaKeyInterceptor.h"
#include "OstaVell/Features/HUD/SneakPeekCoordinator.h"
#include "OstaVell/Features/HUD/VolumeTargetManager.h"
#include "OstaVell/Support/SettingsStore.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace vell;

namespace {

constexpr int patience = 20000;
const QString ourSession = QStringLiteral("/org/freedesktop/login1/session/c1");

struct Backlight {
    QString name, type;
    int maximum, level;
};

void stop(QProcess& process) {
    process.terminate();
    if (!process.waitForFinished(patience))
        process.kill();
    process.waitForFinished(patience);
}

} // namespace

Q_DECLARE_METATYPE(Backlight)

class tst_HUDBrightness final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void thePreferredDevice_data();
    void thePreferredDevice();
    void theKeysChangeItThroughLogind();
    void ourSessionPath_data();
    void ourSessionPath();

private:
    void make(const QList<Backlight>& devices);
    QString level(const QString& device) const;
    // A started manager, once logind has answered about the session (or the deadline passed).
    std::unique_ptr<HUDBrightnessManager> started(const QString& session = ourSession);
    QDBusMessage mock(const QString& path, const QString& method, const QVariantList& arguments);

    QTemporaryDir m_folder;
    QString m_backlight;
    QProcess m_bus;
    QProcess m_logind;
    std::optional<QDBusConnection> m_system;
};

void tst_HUDBrightness::initTestCase() {
    m_bus.start(QStringLiteral("dbus-daemon"), {"--session", "--nofork", "--nopidfile", "--print-address=1",
                                                "--address=unix:path=" + m_folder.filePath("system_bus")});
    QVERIFY(m_bus.waitForReadyRead(patience));
    const QString address = QString::fromUtf8(m_bus.readLine().trimmed());
    m_system = QDBusConnection::connectToBus(address, QStringLiteral("system"));
    QVERIFY(m_system->isConnected());

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DBUS_SYSTEM_BUS_ADDRESS", address);
    m_logind.setProcessEnvironment(environment);
    m_logind.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_logind.start(QStringLiteral("/usr/bin/python3"),
                   {"-m", "dbusmock", "--system", "--template", "logind"});
    QTRY_VERIFY_WITH_TIMEOUT(m_system->interface()->isServiceRegistered("org.freedesktop.login1"), patience);
    QCOMPARE(mock("/org/freedesktop/login1", "AddSession", {"c1", "seat0", 1000u, "user", true}).type(),
             QDBusMessage::ReplyMessage);
    // The template's session has no SetBrightness: this one does what logind does with it.
    const QString code = QStringLiteral("open('%1/' + args[1] + '/brightness', 'w').write(str(args[2]))")
                             .arg(m_folder.filePath("backlight"));
    QCOMPARE(
        mock(ourSession, "AddMethod", {"org.freedesktop.login1.Session", "SetBrightness", "ssu", "", code})
            .type(),
        QDBusMessage::ReplyMessage);
}

void tst_HUDBrightness::cleanupTestCase() {
    m_system.reset();
    QDBusConnection::disconnectFromBus(QStringLiteral("system"));
    stop(m_logind);
    stop(m_bus);
}

void tst_HUDBrightness::init() {
    m_backlight = m_folder.filePath("backlight");
    QDir(m_backlight).removeRecursively();
    QVERIFY(QDir().mkpath(m_backlight));
}

QDBusMessage tst_HUDBrightness::mock(const QString& path, const QString& method,
                                     const QVariantList& arguments) {
    QDBusMessage call =
        QDBusMessage::createMethodCall("org.freedesktop.login1", path, "org.freedesktop.DBus.Mock", method);
    call.setArguments(arguments);
    return m_system->call(call, QDBus::Block, patience);
}

void tst_HUDBrightness::make(const QList<Backlight>& devices) {
    for (const Backlight& device : devices) {
        const QString folder = m_backlight + u'/' + device.name;
        QVERIFY(QDir().mkpath(folder));
        for (const auto& [file, text] :
             {std::pair{"type", device.type}, std::pair{"max_brightness", QString::number(device.maximum)},
              std::pair{"brightness", QString::number(device.level)}}) {
            QFile attribute(folder + u'/' + QLatin1String(file));
            QVERIFY(attribute.open(QIODevice::WriteOnly));
            attribute.write(text.toUtf8() + '\n');
        }
    }
}

QString tst_HUDBrightness::level(const QString& device) const {
    QFile file(m_backlight + u'/' + device + QStringLiteral("/brightness"));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll().trimmed()) : QString();
}

std::unique_ptr<HUDBrightnessManager> tst_HUDBrightness::started(const QString& session) {
    auto manager = std::make_unique<HUDBrightnessManager>(m_backlight, *m_system, session);
    manager->start();
    // The callers check settled() themselves: a failure here could not stop them.
    (void)QTest::qWaitFor([&] { return manager->settled(); }, patience);
    return manager;
}

void tst_HUDBrightness::thePreferredDevice_data() {
    QTest::addColumn<QList<Backlight>>("devices");
    QTest::addColumn<QString>("session");
    QTest::addColumn<QString>("chosen");

    const Backlight intel{"intel_backlight", "raw", 1000, 500};
    const Backlight acpi{"acpi_video0", "firmware", 15, 7};
    QTest::addRow("firmware over raw") << QList{intel, acpi} << ourSession << "acpi_video0";
    QTest::addRow("platform over raw")
        << QList{intel, Backlight{"dell_backlight", "platform", 10, 5}} << ourSession << "dell_backlight";
    QTest::addRow("firmware over platform")
        << QList{Backlight{"a_platform", "platform", 10, 5}, Backlight{"z_firmware", "firmware", 10, 5}}
        << ourSession << "z_firmware";
    QTest::addRow("the first name among equals")
        << QList{Backlight{"b", "raw", 10, 5}, Backlight{"a", "raw", 10, 5}} << ourSession << "a";
    QTest::addRow("no maximum is no device")
        << QList{Backlight{"acpi_video0", "firmware", 0, 0}, intel} << ourSession << "intel_backlight";
    QTest::addRow("no device") << QList<Backlight>() << ourSession << QString();
    QTest::addRow("no session") << QList{acpi} << "/org/freedesktop/login1/session/c9"
                                << "acpi_video0";
}

void tst_HUDBrightness::thePreferredDevice() {
    QFETCH(QList<Backlight>, devices);
    QFETCH(QString, session);
    QFETCH(QString, chosen);
    make(devices);
    const std::unique_ptr<HUDBrightnessManager> manager = started(session);
    QVERIFY(manager->settled());
    QCOMPARE(manager->device(), chosen);
    // Available with both a device and a session; otherwise it changes nothing and says so.
    const bool available = !chosen.isEmpty() && session == ourSession;
    QCOMPARE(manager->isAvailable(), available);
    if (!available) {
        QVERIFY(!manager->stepBrightness(0.0625));
        manager->setBrightness(1);
        QCOMPARE(level("acpi_video0"), chosen.isEmpty() ? QString() : QStringLiteral("7"));
    }
}

void tst_HUDBrightness::theKeysChangeItThroughLogind() {
    make({{"acpi_video0", "firmware", 15, 7}});
    const std::unique_ptr<HUDBrightnessManager> manager = started();
    QVERIFY(manager->isAvailable());
    QCOMPARE(manager->brightness(), 7.0f / 15);
    SneakPeekCoordinator peek{nullptr};
    MediaKeyInterceptor keys(VolumeTargetManager::instance(), manager.get(), SettingsStore::instance(),
                             HUDSettings::instance(), &peek);
    QVERIFY(keys.actionableKeys().contains(MediaKeyInterceptor::Key::brightnessUp));

    keys.perform(MediaKeyInterceptor::Key::brightnessUp, false);
    QVERIFY(peek.visible());
    QCOMPARE(peek.type(), SneakPeekType::brightness);
    QCOMPARE(peek.value(), 8.0f / 15);
    QCOMPARE(peek.symbol(false), QStringLiteral("sun.max.fill"));
    QTRY_COMPARE_WITH_TIMEOUT(level("acpi_video0"), QStringLiteral("8"), patience);
    QVERIFY(manager->lastChangedAt().has_value());
    // A quarter step is less than one of the panel's fifteen levels: it still moves one.
    keys.perform(MediaKeyInterceptor::Key::brightnessDown, true);
    QCOMPARE(peek.value(), 7.0f / 15);
    QTRY_COMPARE_WITH_TIMEOUT(level("acpi_video0"), QStringLiteral("7"), patience);
    manager->setBrightness(1.5);
    QCOMPARE(manager->brightness(), 1.0f);
    QTRY_COMPARE_WITH_TIMEOUT(level("acpi_video0"), QStringLiteral("15"), patience);
    manager->setBrightness(-1);
    QTRY_COMPARE_WITH_TIMEOUT(level("acpi_video0"), QStringLiteral("0"), patience);
    QCOMPARE(manager->stepBrightness(-0.0625), std::optional(0.0f));

    // A change made elsewhere is read when the level is next needed. The mock answers in
    // order: once it answered this, every write of ours before it was carried out.
    QCOMPARE(mock(ourSession, "GetMethodCalls", {"SetBrightness"}).type(), QDBusMessage::ReplyMessage);
    make({{"acpi_video0", "firmware", 15, 12}});
    // Not while a write of ours is on its way, which would read back what it overwrites.
    QTRY_COMPARE_WITH_TIMEOUT((manager->refresh(), manager->brightness()), 12.0f / 15, patience);
}

void tst_HUDBrightness::ourSessionPath_data() {
    QTest::addColumn<QByteArray>("id");
    QTest::addColumn<QString>("path");

    QTest::addRow("named") << QByteArray("c1") << "/org/freedesktop/login1/session/c1";
    QTest::addRow("a number") << QByteArray("2") << "/org/freedesktop/login1/session/_32";
    QTest::addRow("a dash") << QByteArray("a-1") << "/org/freedesktop/login1/session/a_2d1";
    QTest::addRow("none: logind finds ours") << QByteArray() << "/org/freedesktop/login1/session/auto";
}

void tst_HUDBrightness::ourSessionPath() {
    QFETCH(QByteArray, id);
    QFETCH(QString, path);
    qputenv("XDG_SESSION_ID", id);
    QCOMPARE(HUDBrightnessManager::sessionPath(), path);
    qunsetenv("XDG_SESSION_ID");
}

QTEST_MAIN(tst_HUDBrightness)
#include "tst_HUDBrightness.moc"
