// Reduce Motion from the desktop's settings portal, played by dbusmock on the private bus,
// and our own settings overriding it.
#include "OstaVell/Support/Accessibility.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace vell;

class TestAccessibility final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void followsThePortalAndOurOverrides();

private:
    static QDBusMessage mockCall(const QString& method, const QVariantList& arguments);

    QProcess m_portal;
};

QDBusMessage TestAccessibility::mockCall(const QString& method, const QVariantList& arguments) {
    QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.portal.Desktop"),
                                                       QStringLiteral("/org/freedesktop/portal/desktop"),
                                                       QStringLiteral("org.freedesktop.DBus.Mock"), method);
    call.setArguments(arguments);
    return QDBusConnection::sessionBus().call(call);
}

void TestAccessibility::initTestCase() {
    m_portal.start(QStringLiteral("/usr/bin/python3"),
                   {"-m", "dbusmock", "org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
                    "org.freedesktop.portal.Settings"});
    QVERIFY(m_portal.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(QDBusConnection::sessionBus().interface()->isServiceRegistered(
                                 QStringLiteral("org.freedesktop.portal.Desktop")),
                             15000);
    // Older portals wrap the value in a second variant; the reading must see through both.
    const QDBusMessage added = mockCall(
        QStringLiteral("AddMethod"),
        {QStringLiteral("org.freedesktop.portal.Settings"), QStringLiteral("Read"), QStringLiteral("ss"),
         QStringLiteral("v"),
         QStringLiteral("ret = dbus.Boolean(False, variant_level=2) "
                        "if args == ['org.gnome.desktop.interface', 'enable-animations'] else None")});
    QCOMPARE(added.type(), QDBusMessage::ReplyMessage);
}

void TestAccessibility::cleanupTestCase() {
    m_portal.terminate();
    m_portal.waitForFinished();
}

void TestAccessibility::followsThePortalAndOurOverrides() {
    QTemporaryDir dir;
    UserDefaults defaults(dir.filePath(QStringLiteral("OstaVell.conf")));
    Accessibility accessibility(&defaults);
    QVERIFY(!accessibility.reduceMotion());
    QSignalSpy changed(&accessibility, &Accessibility::changed);

    accessibility.startWatchingDesktop();
    QVERIFY(changed.wait(10000));
    QVERIFY(accessibility.reduceMotion());

    const QDBusMessage emitted =
        mockCall(QStringLiteral("EmitSignal"), {QStringLiteral("org.freedesktop.portal.Settings"),
                                                QStringLiteral("SettingChanged"), QStringLiteral("ssv"),
                                                QVariantList{QStringLiteral("org.gnome.desktop.interface"),
                                                             QStringLiteral("enable-animations"),
                                                             QVariant::fromValue(QDBusVariant(true))}});
    QCOMPARE(emitted.type(), QDBusMessage::ReplyMessage);
    // The signal may already have been delivered while the call above waited for its reply.
    QTRY_VERIFY_WITH_TIMEOUT(!accessibility.reduceMotion(), 10000);

    // Our own keys win over the desktop, both ways.
    defaults.setValue(QStringLiteral("accessibility.reduceMotion"), true);
    QVERIFY(accessibility.reduceMotion());
    QVERIFY(!accessibility.reduceTransparency());
    defaults.setValue(QStringLiteral("accessibility.reduceTransparency"), true);
    QVERIFY(accessibility.reduceTransparency());
}

QTEST_GUILESS_MAIN(TestAccessibility)
#include "tst_accessibility.moc"
