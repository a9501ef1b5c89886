// The timers' banners through real processes: ostavell-notify against python3-dbusmock's
// notification daemon on the test's private session bus; the running app showing the banner
// itself when no systemd user manager takes it; and a real `systemd --user` that keeps a banner
// after the app's manager is gone and drops it when the timer is paused or cancelled.
//
// systemd refuses to run as a user manager unless /run/systemd/system exists, which it does only
// on a system booted with systemd (not in these containers, whose first process is something
// else); the test gives it one in a mount namespace of its own, which needs root, and skips the
// manager's part where that is refused.

#include "OstaVell/Features/Timers/TimerManager.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include "TimersFixture.h"

using namespace vell;
using namespace vell::test;

namespace {

constexpr int patience = 20000;

struct Banner {
    QString application, title, body;
    QVariantMap hints;
};

void stop(QProcess& process) {
    if (process.state() == QProcess::NotRunning)
        return;
    process.terminate();
    if (!process.waitForFinished(patience))
        process.kill();
    process.waitForFinished(patience);
}

QString notifyProgram() {
    return qEnvironmentVariable("VELL_BUILD_DIR") + QStringLiteral("/bin/ostavell-notify");
}

TimerBanner::Programs realPrograms() {
    return {QStandardPaths::findExecutable(QStringLiteral("systemd-run")),
            QStandardPaths::findExecutable(QStringLiteral("systemctl")), notifyProgram()};
}

// What `systemctl --user is-active` says of a unit.
QString unitState(const QString& unit) {
    QProcess systemctl;
    systemctl.start(QStringLiteral("systemctl"), {"--user", "is-active", unit});
    systemctl.waitForFinished(patience);
    return QString::fromUtf8(systemctl.readAllStandardOutput().trimmed());
}

} // namespace

class tst_TimerBanners final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void notifyDelivers_data();
    void notifyDelivers();
    void notifyWithoutService_data();
    void notifyWithoutService();
    void theAppShowsItWithoutAUserManager();
    void theUserManagerKeepsItAfterAQuit();
    void pauseAndCancelRemoveIt_data();
    void pauseAndCancelRemoveIt();
    void anEndingBannerIsNotCutShort();

private:
    QList<Banner> banners();
    QDBusMessage mock(const QString& method, const QVariantList& arguments = {});
    // A private user manager, once it answers; false when this machine won't run one.
    bool startUserManager();

    QProcess m_daemon;
    QProcess m_userManager;
    bool m_userManagerTried = false;
};

void tst_TimerBanners::initTestCase() {
    m_daemon.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_daemon.start(QStringLiteral("/usr/bin/python3"),
                   {"-m", "dbusmock", "--template", "notification_daemon"});
    QTRY_VERIFY_WITH_TIMEOUT(
        QDBusConnection::sessionBus().interface()->isServiceRegistered("org.freedesktop.Notifications"),
        patience);
    QVERIFY(QFileInfo(notifyProgram()).isExecutable());
}

void tst_TimerBanners::cleanupTestCase() {
    stop(m_userManager);
    stop(m_daemon);
}

void tst_TimerBanners::init() {
    QCOMPARE(mock(QStringLiteral("ClearCalls")).type(), QDBusMessage::ReplyMessage);
}

QDBusMessage tst_TimerBanners::mock(const QString& method, const QVariantList& arguments) {
    QDBusMessage call =
        QDBusMessage::createMethodCall("org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                                       "org.freedesktop.DBus.Mock", method);
    call.setArguments(arguments);
    return QDBusConnection::sessionBus().call(call, QDBus::Block, patience);
}

// The Notify calls the daemon has had, oldest first.
QList<Banner> tst_TimerBanners::banners() {
    QList<Banner> found;
    const QDBusMessage reply = mock(QStringLiteral("GetCalls"));
    if (reply.type() != QDBusMessage::ReplyMessage)
        return found;
    const QDBusArgument calls = reply.arguments().value(0).value<QDBusArgument>();
    calls.beginArray();
    while (!calls.atEnd()) {
        quint64 time = 0;
        QString method;
        QVariantList arguments;
        calls.beginStructure();
        calls >> time >> method;
        calls.beginArray();
        while (!calls.atEnd()) {
            QDBusVariant argument;
            calls >> argument;
            arguments.append(argument.variant());
        }
        calls.endArray();
        calls.endStructure();
        if (method != u"Notify" || arguments.size() < 7)
            continue;
        QVariantMap hints;
        const QDBusArgument map = arguments.at(6).value<QDBusArgument>();
        map >> hints;
        found.append(
            {arguments.at(0).toString(), arguments.at(3).toString(), arguments.at(4).toString(), hints});
    }
    calls.endArray();
    return found;
}

void tst_TimerBanners::notifyDelivers_data() {
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("body");
    QTest::addRow("a countdown") << "Timer Done"
                                 << "Your 5 sec timer finished.";
    QTest::addRow("markup is text") << "<b>Break's over</b>"
                                    << "Back to <i>focus</i>.";
}

void tst_TimerBanners::notifyDelivers() {
    QFETCH(QString, title);
    QFETCH(QString, body);
    QProcess notify;
    notify.start(notifyProgram(), {title, body});
    QVERIFY(notify.waitForFinished(patience));
    QCOMPARE(notify.exitCode(), 0);
    const QList<Banner> shown = banners();
    QCOMPARE(shown.size(), 1);
    QCOMPARE(shown.first().application, QStringLiteral("OstaVell"));
    QCOMPARE(shown.first().title, title);
    QCOMPARE(shown.first().body, body);
    QCOMPARE(shown.first().hints, (QVariantMap{{"suppress-sound", true}}));
}

void tst_TimerBanners::notifyWithoutService_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("bus");
    QTest::addColumn<int>("status");
    QTest::addRow("a bus without the service") << QStringList{"Timer Done", "x"} << "empty" << 1;
    QTest::addRow("no bus at all") << QStringList{"Timer Done", "x"} << "none" << 1;
    QTest::addRow("one argument") << QStringList{"Timer Done"} << "ours" << 2;
    QTest::addRow("three arguments") << QStringList{"a", "b", "c"} << "ours" << 2;
}

void tst_TimerBanners::notifyWithoutService() {
    QFETCH(QStringList, arguments);
    QFETCH(QString, bus);
    QFETCH(int, status);
    QTemporaryDir folder;
    QProcess emptyBus;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    if (bus == u"empty") {
        emptyBus.start(QStringLiteral("dbus-daemon"),
                       {"--session", "--nofork", "--nopidfile", "--print-address=1",
                        "--address=unix:path=" + folder.filePath("bus")});
        QVERIFY(emptyBus.waitForReadyRead(patience));
        environment.insert("DBUS_SESSION_BUS_ADDRESS", QString::fromUtf8(emptyBus.readLine().trimmed()));
    } else if (bus == u"none") {
        environment.remove("DBUS_SESSION_BUS_ADDRESS");
        environment.insert("XDG_RUNTIME_DIR", folder.path());
        environment.remove("DISPLAY");
    }
    QProcess notify;
    notify.setProcessEnvironment(environment);
    notify.start(notifyProgram(), arguments);
    QVERIFY(notify.waitForFinished(patience));
    QCOMPARE(notify.exitCode(), status);
    QVERIFY(banners().isEmpty());
    stop(emptyBus);
}

void tst_TimerBanners::theAppShowsItWithoutAUserManager() {
    TimersFixture timers;
    timers.programs = realPrograms();
    TimerManager& manager = timers.launch();
    manager.refreshNotificationStatus();
    QTRY_COMPARE_WITH_TIMEOUT(manager.notificationStatusName(), QStringLiteral("appOnly"), patience);

    manager.setConfiguredDuration(5);
    manager.startCountdown();
    QTRY_VERIFY_WITH_TIMEOUT(manager.countdownBanner().settled(), patience);
    QCOMPARE(manager.countdownBanner().userManagerReachable(), std::optional(false));
    QVERIFY(manager.countdownBanner().inApp());
    QVERIFY(banners().isEmpty());
    timers.advance(5);
    QTRY_COMPARE_WITH_TIMEOUT(banners().size(), 1, patience);
    QCOMPARE(banners().first().title, QStringLiteral("Timer Done"));
    QCOMPARE(banners().first().body, QStringLiteral("Your 5 sec timer finished."));
    QCOMPARE(banners().first().hints, (QVariantMap{{"suppress-sound", true}}));

    // A phase of the pomodoro the same way; one that is paused first shows nothing.
    manager.startPomodoro();
    QTRY_VERIFY_WITH_TIMEOUT(manager.pomodoroBanner().settled(), patience);
    timers.advance(25 * 60);
    QTRY_COMPARE_WITH_TIMEOUT(banners().size(), 2, patience);
    QCOMPARE(banners().last().title, QStringLiteral("Focus session done"));
    QCOMPARE(banners().last().body, QStringLiteral("Time for a break."));
    QCOMPARE(manager.pomodoroPhase(), TimerManager::PomodoroPhase::shortBreak);
    manager.pausePomodoro();
    timers.advance(60 * 60);
    manager.resumePomodoro();
    timers.advance(5 * 60);
    QTRY_COMPARE_WITH_TIMEOUT(manager.pomodoroPhase(), TimerManager::PomodoroPhase::focus, patience);
    QTRY_COMPARE_WITH_TIMEOUT(banners().size(), 3, patience);
    QCOMPARE(banners().last().title, QStringLiteral("Break's over"));
    QCOMPARE(banners().last().body, QStringLiteral("Back to focus."));
}

bool tst_TimerBanners::startUserManager() {
    if (std::exchange(m_userManagerTried, true))
        return m_userManager.state() == QProcess::Running;
    // On a desktop the manager brings up the session bus itself, at the runtime folder's "bus".
    // Here the test's bus stands there already, with the notification daemon on it: masked, the
    // manager's own bus doesn't take that socket's place.
    const QString units = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                          QStringLiteral("/systemd/user/");
    if (!QDir().mkpath(units))
        return false;
    for (const char* unit : {"dbus.socket", "dbus.service"})
        QFile::link(QStringLiteral("/dev/null"), units + QLatin1String(unit));
    m_userManager.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_userManager.start(QStringLiteral("unshare"),
                        {"-m", "sh", "-c",
                         "mount -t tmpfs tmpfs /run/systemd && mkdir /run/systemd/system && "
                         "exec /usr/lib/systemd/systemd --user"});
    if (!m_userManager.waitForStarted(patience))
        return false;
    QDeadlineTimer deadline(patience);
    while (!deadline.hasExpired() && m_userManager.state() == QProcess::Running) {
        QProcess probe;
        probe.start(QStringLiteral("systemctl"), {"--user", "show", "--property=Version", "--value"});
        if (probe.waitForFinished(patience) && probe.exitCode() == 0)
            return true;
        QTest::qWait(50);
    }
    return false;
}

void tst_TimerBanners::theUserManagerKeepsItAfterAQuit() {
    if (!startUserManager())
        QSKIP("no systemd user manager can run here (it needs a mount namespace of its own)");
    TimersFixture timers;
    timers.programs = realPrograms();
    timers.now = QDateTime::currentDateTimeUtc();
    auto& manager = timers.launch();
    manager.refreshNotificationStatus();
    QTRY_COMPARE_WITH_TIMEOUT(manager.notificationStatusName(), QStringLiteral("authorized"), patience);

    manager.setConfiguredDuration(2);
    timers.now = QDateTime::currentDateTimeUtc();
    manager.startCountdown();
    QTRY_VERIFY_WITH_TIMEOUT(manager.countdownBanner().settled(), patience);
    QCOMPARE(manager.countdownBanner().userManagerReachable(), std::optional(true));
    QVERIFY(!manager.countdownBanner().inApp());
    QCOMPARE(unitState("ostavell.timers.countdown.timer"), QStringLiteral("active"));
    // The app quits; the manager runs ostavell-notify at the end date.
    timers.manager.reset();
    QTRY_COMPARE_WITH_TIMEOUT(banners().size(), 1, patience);
    QCOMPARE(banners().first().title, QStringLiteral("Timer Done"));
    QCOMPARE(banners().first().body, QStringLiteral("Your 2 sec timer finished."));
    // The units go once they have run, so the next banner may take the name.
    QTRY_COMPARE_WITH_TIMEOUT(unitState("ostavell.timers.countdown.timer"), QStringLiteral("inactive"),
                              patience);
    QTRY_COMPARE_WITH_TIMEOUT(unitState("ostavell.timers.countdown.service"), QStringLiteral("inactive"),
                              patience);
}

void tst_TimerBanners::pauseAndCancelRemoveIt_data() {
    QTest::addColumn<QString>("timer");
    QTest::addColumn<QString>("change");
    QTest::addRow("countdown paused") << "countdown"
                                      << "pause";
    QTest::addRow("countdown cancelled") << "countdown"
                                         << "cancel";
    QTest::addRow("pomodoro paused") << "pomodoro"
                                     << "pause";
    QTest::addRow("pomodoro reset") << "pomodoro"
                                    << "reset";
}

void tst_TimerBanners::pauseAndCancelRemoveIt() {
    QFETCH(QString, timer);
    QFETCH(QString, change);
    if (!startUserManager())
        QSKIP("no systemd user manager can run here (it needs a mount namespace of its own)");
    TimersFixture timers;
    timers.programs = realPrograms();
    timers.now = QDateTime::currentDateTimeUtc();
    auto& manager = timers.launch();
    const bool countdown = timer == u"countdown";
    TimerBanner& banner = countdown ? manager.countdownBanner() : manager.pomodoroBanner();
    const QString unit = banner.identifier() + QStringLiteral(".timer");
    countdown ? manager.startCountdown() : manager.startPomodoro();
    QTRY_VERIFY_WITH_TIMEOUT(banner.settled(), patience);
    QCOMPARE(unitState(unit), QStringLiteral("active"));

    if (change == u"pause")
        countdown ? manager.pauseCountdown() : manager.pausePomodoro();
    else
        countdown ? manager.cancelCountdown() : manager.resetPomodoro();
    QTRY_VERIFY_WITH_TIMEOUT(banner.settled(), patience);
    // No unit is left to show a banner.
    QCOMPARE(unitState(unit), QStringLiteral("inactive"));
    if (change != u"pause")
        return;
    // A resume hands it over again, once.
    countdown ? manager.resumeCountdown() : manager.resumePomodoro();
    QTRY_VERIFY_WITH_TIMEOUT(banner.settled(), patience);
    QCOMPARE(unitState(unit), QStringLiteral("active"));
    countdown ? manager.cancelCountdown() : manager.resetPomodoro();
    QTRY_VERIFY_WITH_TIMEOUT(banner.settled(), patience);
    QCOMPARE(unitState(unit), QStringLiteral("inactive"));
    QVERIFY(banners().isEmpty());
}

void tst_TimerBanners::anEndingBannerIsNotCutShort() {
    if (!startUserManager())
        QSKIP("no systemd user manager can run here (it needs a mount namespace of its own)");
    TimersFixture timers;
    timers.programs = realPrograms();
    timers.now = QDateTime::currentDateTimeUtc();
    auto& manager = timers.launch();
    manager.setConfiguredDuration(2);
    // The test's clock follows the real one, so the tick sees the end when the manager does.
    QTimer follow;
    connect(&follow, &QTimer::timeout, this, [&timers] { timers.now = QDateTime::currentDateTimeUtc(); });
    follow.start(20);
    manager.startCountdown();
    QTRY_VERIFY_WITH_TIMEOUT(manager.countdownBanner().settled(), patience);
    QTRY_COMPARE_WITH_TIMEOUT(manager.countdownPhase(), TimerManager::CountdownPhase::finished, patience);
    // Started again the moment it ends: the new banner replaces the old one only once that
    // one has had its chance to show.
    manager.setConfiguredDuration(6);
    manager.startCountdown();
    QTRY_COMPARE_WITH_TIMEOUT(banners().size(), 1, patience);
    QCOMPARE(banners().first().body, QStringLiteral("Your 2 sec timer finished."));
    QTRY_VERIFY_WITH_TIMEOUT(manager.countdownBanner().settled(), patience);
    QVERIFY(!manager.countdownBanner().inApp());
    QTRY_COMPARE_WITH_TIMEOUT(banners().size(), 2, patience);
    QCOMPARE(banners().last().body, QStringLiteral("Your 6 sec timer finished."));
}

QTEST_GUILESS_MAIN(tst_TimerBanners)
#include "tst_TimerBanners.moc"
