// The timers on a clock the test moves: the words and clocks they are written in, the countdown
// and pomodoro across a quit, the cycle's order, the stored keys as bytes, and a settings file
// that can't be read or written.

#include "OstaVell/Features/Timers/TimerManager.h"
#include "OstaVell/Features/Timers/TimersFormatting.h"

#include <QDir>
#include <QSignalSpy>
#include <QTest>

#include <csignal>
#include <sys/resource.h>

#include "TimersFixture.h"

using namespace vell;
using namespace vell::test;

using Phase = TimerManager::CountdownPhase;
using Pomodoro = TimerManager::PomodoroPhase;

namespace {

// What a relaunch four seconds of real time later still sees, at most: the finished phase and
// the tick both run on real timers.
constexpr int patience = 10000;

QByteArray fixture(const char* name) {
    QFile file(qEnvironmentVariable("VELL_TEST_DATA") + u'/' + QLatin1String(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing fixture>");
}

// Every write to a regular file of this process fails past one byte while it lives, as on a
// full disk; the signal such a write raises is ignored so that the write just fails.
class FullDisk {
public:
    FullDisk() {
        m_handler = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_limit);
        const rlimit tiny{1, m_limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &tiny);
    }
    ~FullDisk() {
        setrlimit(RLIMIT_FSIZE, &m_limit);
        std::signal(SIGXFSZ, m_handler);
    }
    Q_DISABLE_COPY_MOVE(FullDisk)

private:
    rlimit m_limit{};
    void (*m_handler)(int) = nullptr;
};

} // namespace

class tst_TimerManager final : public QObject {
    Q_OBJECT

private slots:
    void formatting_data();
    void formatting();

    void startNeedsASecond_data();
    void startNeedsASecond();
    void countdownAcrossAQuit_data();
    void countdownAcrossAQuit();
    void pomodoroAcrossAQuit_data();
    void pomodoroAcrossAQuit();
    void pomodoroOrder_data();
    void pomodoroOrder();
    void anEndTheAppSees_data();
    void anEndTheAppSees();
    void ignoredRequestsWriteNothing();
    void lapsAndTheTick();
    void storedKeysAsBytes();
    void unreadableSettingsFailClosed();
    void aRefusedWriteChangesNothing();
};

void tst_TimerManager::formatting_data() {
    QTest::addColumn<QString>("kind");
    QTest::addColumn<double>("seconds");
    QTest::addColumn<QString>("text");
    const double nan = std::numeric_limits<double>::quiet_NaN();
    QTest::addRow("countdown zero") << "countdown" << 0.0 << "00:00";
    QTest::addRow("countdown below zero") << "countdown" << -5.0 << "00:00";
    QTest::addRow("countdown not a number") << "countdown" << nan << "00:00";
    QTest::addRow("countdown a fifth rounds up") << "countdown" << 0.2 << "00:01";
    QTest::addRow("countdown just past a minute") << "countdown" << 59.01 << "01:00";
    QTest::addRow("countdown last second of an hour") << "countdown" << 3599.0 << "59:59";
    QTest::addRow("countdown rounds up into the hour") << "countdown" << 3599.5 << "1:00:00";
    QTest::addRow("countdown hours") << "countdown" << 3723.0 << "1:02:03";
    QTest::addRow("countdown longest") << "countdown" << 86399.0 << "23:59:59";
    QTest::addRow("stopwatch zero") << "stopwatch" << 0.0 << "00:00.00";
    QTest::addRow("stopwatch below zero") << "stopwatch" << -1.0 << "00:00.00";
    QTest::addRow("stopwatch hundredths round down") << "stopwatch" << 4.256 << "00:04.25";
    QTest::addRow("stopwatch 0.29 is not 0.28") << "stopwatch" << 0.29 << "00:00.29";
    QTest::addRow("stopwatch under an hour") << "stopwatch" << 3599.999 << "59:59.99";
    QTest::addRow("stopwatch an hour") << "stopwatch" << 3600.0 << "1:00:00.00";
    QTest::addRow("spoken nothing") << "spoken" << 0.0 << "0 sec";
    QTest::addRow("spoken rounds down") << "spoken" << 0.4 << "0 sec";
    QTest::addRow("spoken rounds up") << "spoken" << 0.5 << "1 sec";
    QTest::addRow("spoken seconds") << "spoken" << 5.0 << "5 sec";
    QTest::addRow("spoken a minute") << "spoken" << 60.0 << "1 min";
    QTest::addRow("spoken minutes and seconds") << "spoken" << 330.0 << "5 min 30 sec";
    QTest::addRow("spoken an hour drops seconds") << "spoken" << 3659.0 << "1 hr";
    QTest::addRow("spoken hours and minutes") << "spoken" << 3900.0 << "1 hr 5 min";
    QTest::addRow("spoken rounding carries") << "spoken" << 3659.6 << "1 hr 1 min";
}

void tst_TimerManager::formatting() {
    QFETCH(QString, kind);
    QFETCH(double, seconds);
    QFETCH(QString, text);
    if (kind == u"countdown")
        QCOMPARE(TimersFormatting::countdown(seconds), text);
    else if (kind == u"stopwatch")
        QCOMPARE(TimersFormatting::stopwatch(seconds), text);
    else
        QCOMPARE(TimersFormatting::spoken(seconds), text);
}

void tst_TimerManager::startNeedsASecond_data() {
    QTest::addColumn<double>("configured");
    QTest::addColumn<double>("total");
    QTest::addRow("half a second") << 0.5 << 0.0;
    QTest::addRow("just under a second") << 0.999 << 0.0;
    QTest::addRow("a second") << 1.0 << 1.0;
    QTest::addRow("a day is clamped") << 90000.0 << 86399.0;
}

void tst_TimerManager::startNeedsASecond() {
    QFETCH(double, configured);
    QFETCH(double, total);
    TimersFixture timers;
    TimerManager& manager = timers.launch();
    manager.setConfiguredDuration(configured);
    manager.startCountdown();
    QCOMPARE(manager.countdownPhase(), total > 0 ? Phase::running : Phase::idle);
    QCOMPARE(manager.countdownTotal(), total);
    QCOMPARE(manager.ticking(), total > 0);
    QCOMPARE(timers.stored(TimerManager::endDateEpochKey),
             total > 0 ? QString::number(TimersFixture::startEpoch + total, 'g', 17)
                       : QStringLiteral("<absent>"));
}

void tst_TimerManager::countdownAcrossAQuit_data() {
    QTest::addColumn<double>("length");
    QTest::addColumn<bool>("pauseFirst");
    QTest::addColumn<double>("away");
    QTest::addColumn<QString>("phase");
    QTest::addColumn<double>("remaining");
    QTest::addColumn<double>("total");
    QTest::addRow("10 min left, back after 5") << 600.0 << false << 300.0 << "running" << 300.0 << 600.0;
    QTest::addRow("10 s left, back after a minute") << 10.0 << false << 60.0 << "idle" << 0.0 << 0.0;
    QTest::addRow("exactly 0.5 s left is over") << 10.0 << false << 9.5 << "idle" << 0.0 << 0.0;
    QTest::addRow("0.51 s left goes on") << 10.0 << false << 9.49 << "running" << 0.51 << 10.0;
    QTest::addRow("paused waits however long") << 600.0 << true << 86400.0 << "paused" << 600.0 << 600.0;
}

void tst_TimerManager::countdownAcrossAQuit() {
    QFETCH(double, length);
    QFETCH(bool, pauseFirst);
    QFETCH(double, away);
    QFETCH(QString, phase);
    QFETCH(double, remaining);
    QFETCH(double, total);
    TimersFixture timers;
    TimerManager& before = timers.launch();
    before.setCompletionSound(QStringLiteral("bell"));
    before.setConfiguredDuration(length);
    before.startCountdown();
    if (pauseFirst)
        before.pauseCountdown();
    timers.advance(away);
    TimerManager& after = timers.launch();
    QCOMPARE(after.countdownPhaseName(), phase);
    QVERIFY(qAbs(after.countdownRemaining() - remaining) < 1e-6);
    QCOMPARE(after.countdownTotal(), total);
    QCOMPARE(after.ticking(), phase == u"running");
    // A countdown that ended while the app was away has had its banner: no sound, and nothing
    // of it is left stored.
    QCOMPARE(after.sound().plays(), 0);
    if (phase == u"idle")
        for (const QString& key :
             {TimerManager::endDateEpochKey, TimerManager::runningTotalKey, TimerManager::pausedRemainingKey})
            QCOMPARE(timers.stored(key), QStringLiteral("0"));
}

void tst_TimerManager::pomodoroAcrossAQuit_data() {
    QTest::addColumn<double>("away");
    QTest::addColumn<bool>("pauseFirst");
    QTest::addColumn<QString>("phase");
    QTest::addColumn<bool>("paused");
    QTest::addColumn<double>("remaining");
    QTest::addColumn<int>("completed");
    QTest::addRow("back within the focus") << 600.0 << false << "focus" << false << 900.0 << 0;
    QTest::addRow("back after the focus") << 1501.0 << false << "shortBreak" << true << 300.0 << 1;
    QTest::addRow("back after the break too") << 1801.0 << false << "shortBreak" << true << 300.0 << 1;
    QTest::addRow("back a day later") << 86400.0 << false << "shortBreak" << true << 300.0 << 1;
    QTest::addRow("paused focus") << 86400.0 << true << "focus" << true << 1500.0 << 0;
}

void tst_TimerManager::pomodoroAcrossAQuit() {
    QFETCH(double, away);
    QFETCH(bool, pauseFirst);
    QFETCH(QString, phase);
    QFETCH(bool, paused);
    QFETCH(double, remaining);
    QFETCH(int, completed);
    TimersFixture timers;
    TimerManager& before = timers.launch();
    before.startPomodoro();
    if (pauseFirst)
        before.pausePomodoro();
    timers.advance(away);
    TimerManager& after = timers.launch();
    QCOMPARE(after.pomodoroPhaseName(), phase);
    QCOMPARE(after.pomodoroPaused(), paused);
    QVERIFY(qAbs(after.pomodoroRemaining() - remaining) < 1e-6);
    QCOMPARE(after.pomodoroCompletedFocus(), completed);
    QCOMPARE(after.sound().plays(), 0);
    // The phase it moved on to is stored as it stands: the next launch finds the same.
    if (phase == u"shortBreak") {
        QCOMPARE(timers.stored(TimerManager::pomodoroPhaseKey), phase);
        QCOMPARE(timers.stored(TimerManager::pomodoroEndEpochKey), QStringLiteral("0"));
        QCOMPARE(timers.stored(TimerManager::pomodoroPausedRemainingKey), QStringLiteral("300"));
        QCOMPARE(timers.stored(TimerManager::pomodoroCompletedFocusKey), QStringLiteral("1"));
        timers.advance(86400);
        QCOMPARE(timers.launch().pomodoroRemaining(), 300.0);
    }
}

void tst_TimerManager::pomodoroOrder_data() {
    QTest::addColumn<int>("sessions");
    QTest::addColumn<QStringList>("order");
    QTest::addColumn<QList<int>>("counts");
    QTest::addRow("four") << 4 << QStringList{"shortBreak", "focus", "shortBreak", "focus",
                                              "shortBreak", "focus", "longBreak",  "focus"}
                          << QList<int>{1, 1, 2, 2, 3, 3, 4, 0};
    QTest::addRow("one") << 1 << QStringList{"longBreak", "focus", "longBreak"} << QList<int>{1, 0, 1};
    QTest::addRow("zero counts as one")
        << 0 << QStringList{"longBreak", "focus", "longBreak"} << QList<int>{1, 0, 1};
    QTest::addRow("two") << 2 << QStringList{"shortBreak", "focus", "longBreak", "focus", "shortBreak"}
                         << QList<int>{1, 1, 2, 0, 1};
}

void tst_TimerManager::pomodoroOrder() {
    QFETCH(int, sessions);
    QFETCH(QStringList, order);
    QFETCH(QList<int>, counts);
    TimersFixture timers;
    TimerManager& manager = timers.launch();
    manager.setPomodoroSessionsPerCycle(sessions);
    manager.startPomodoro();
    QCOMPARE(manager.pomodoroPhaseName(), QStringLiteral("focus"));
    for (qsizetype step = 0; step < order.size(); ++step) {
        manager.skipPomodoroPhase();
        QCOMPARE(manager.pomodoroPhaseName(), order.at(step));
        QCOMPARE(manager.pomodoroCompletedFocus(), counts.at(step));
        QCOMPARE(manager.pomodoroRemaining(), manager.pomodoroDuration(manager.pomodoroPhase()));
        QVERIFY(manager.isPomodoroRunning());
    }
    // A skip is the person's own: no sound.
    QCOMPARE(manager.sound().plays(), 0);
}

void tst_TimerManager::anEndTheAppSees_data() {
    QTest::addColumn<QString>("sound");
    QTest::addColumn<bool>("autoOpen");
    QTest::addColumn<int>("plays");
    QTest::addRow("the default sound, opening") << QString() << true << 1;
    QTest::addRow("a theme sound, not opening") << "bell" << false << 1;
    QTest::addRow("None is silent") << "None" << true << 0;
    QTest::addRow("an unknown name plays nothing") << "no-such-sound" << true << 0;
    QTest::addRow("a path is no name") << "../stereo/bell" << true << 0;
}

void tst_TimerManager::anEndTheAppSees() {
    QFETCH(QString, sound);
    QFETCH(bool, autoOpen);
    QFETCH(int, plays);
    TimersFixture timers;
    TimerManager& manager = timers.launch();
    if (!sound.isEmpty())
        manager.setCompletionSound(sound);
    manager.setAutoOpenOnComplete(autoOpen);
    int opened = 0;
    manager.onCountdownFinished = [&opened] { ++opened; };

    manager.setConfiguredDuration(5);
    manager.startCountdown();
    timers.advance(5);
    QTRY_COMPARE_WITH_TIMEOUT(manager.countdownPhase(), Phase::finished, patience);
    QCOMPARE(manager.countdownRemaining(), 0.0);
    QCOMPARE(manager.countdownTotal(), 5.0);
    QCOMPARE(manager.sound().plays(), plays);
    QCOMPARE(opened, autoOpen ? 1 : 0);
    QVERIFY(!manager.ticking());
    QCOMPARE(timers.stored(TimerManager::endDateEpochKey), QStringLiteral("0"));
    // Three seconds later it is idle of itself.
    QTRY_COMPARE_WITH_TIMEOUT(manager.countdownPhase(), Phase::idle, patience);
    QCOMPARE(manager.countdownTotal(), 0.0);

    // A pomodoro phase that ends moves on with the same sound, running or not by the setting.
    manager.setPomodoroAutoAdvance(false);
    manager.startPomodoro();
    timers.advance(25 * 60);
    QTRY_COMPARE_WITH_TIMEOUT(manager.pomodoroPhase(), Pomodoro::shortBreak, patience);
    QVERIFY(manager.pomodoroPaused());
    QCOMPARE(manager.pomodoroCompletedFocus(), 1);
    QCOMPARE(manager.sound().plays(), 2 * plays);
    QVERIFY(!manager.ticking());
}

void tst_TimerManager::ignoredRequestsWriteNothing() {
    TimersFixture timers;
    TimerManager& manager = timers.launch();
    // Nothing to pause, resume, cancel, skip: the file is not even made.
    manager.pauseCountdown();
    manager.resumeCountdown();
    manager.cancelCountdown();
    manager.skipPomodoroPhase();
    manager.pausePomodoro();
    manager.resumePomodoro();
    QVERIFY(!QFile::exists(timers.path()));
    QCOMPARE(manager.pomodoroPhase(), Pomodoro::idle);

    manager.startCountdown();
    const QByteArray started = timers.fileBytes();
    timers.advance(30);
    manager.startCountdown();
    QCOMPARE(timers.fileBytes(), started);
    QCOMPARE(*manager.countdownEndDate(), timers.now.addSecs(270));

    manager.startPomodoro();
    const QByteArray focus = timers.fileBytes();
    timers.advance(30);
    manager.startPomodoro();
    QCOMPARE(timers.fileBytes(), focus);
}

void tst_TimerManager::lapsAndTheTick() {
    TimersFixture timers;
    TimerManager& manager = timers.launch();
    QVERIFY(!manager.ticking());
    manager.recordLap();
    QVERIFY(manager.laps().isEmpty());

    manager.startStopwatch();
    QVERIFY(manager.ticking());
    timers.advance(10);
    manager.recordLap();
    timers.advance(15.5);
    manager.recordLap();
    QCOMPARE(manager.laps().size(), 2);
    QCOMPARE(manager.laps().at(0).index, 2);
    QCOMPARE(manager.laps().at(0).total, 25.5);
    QCOMPARE(manager.laps().at(0).delta, 15.5);
    QCOMPARE(manager.laps().at(1).delta, 10.0);

    timers.advance(4.5);
    manager.pauseStopwatch();
    QCOMPARE(manager.stopwatchElapsed(), 30.0);
    QVERIFY(!manager.ticking());
    manager.recordLap();
    QCOMPARE(manager.laps().size(), 2);
    // Paused, its time stands.
    timers.advance(100);
    QCOMPARE(manager.stopwatchElapsedAt(timers.now), 30.0);
    manager.startStopwatch();
    timers.advance(1);
    QCOMPARE(manager.stopwatchElapsedAt(timers.now), 31.0);

    // Never stored: a relaunch forgets it, laps and all.
    QVERIFY(!QFile::exists(timers.path()));
    TimerManager& after = timers.launch();
    QVERIFY(!after.stopwatchRunning());
    QVERIFY(after.laps().isEmpty());

    // The tick runs while anything runs, and only then.
    after.startCountdown();
    after.startPomodoro();
    QVERIFY(after.ticking());
    after.pauseCountdown();
    QVERIFY(after.ticking());
    after.pausePomodoro();
    QVERIFY(!after.ticking());
}

void tst_TimerManager::storedKeysAsBytes() {
    TimersFixture timers;
    TimerManager& manager = timers.launch();
    manager.startCountdown();
    QCOMPARE(timers.fileBytes(), fixture("countdown-running.conf"));
    timers.advance(42.5);
    manager.pauseCountdown();
    QCOMPARE(timers.fileBytes(), fixture("countdown-paused.conf"));
    timers.advance(7.25);
    manager.startPomodoro();
    QCOMPARE(timers.fileBytes(), fixture("pomodoro-focus.conf"));
}

void tst_TimerManager::unreadableSettingsFailClosed() {
    TimersFixture timers;
    // A folder where the file should be: it exists, and can't be read.
    QVERIFY(QDir().mkpath(timers.path()));
    TimerManager& manager = timers.launch();
    QVERIFY(manager.storageUnavailable());
    const QString notice = QStringLiteral(
        "Timers can't be changed: the settings file could not be read, and saving now could overwrite it.");
    QCOMPARE(manager.notice(), notice);
    QSignalSpy countdown(&manager, &TimerManager::countdownChanged);
    QSignalSpy pomodoro(&manager, &TimerManager::pomodoroChanged);
    manager.setConfiguredDuration(60);
    manager.startCountdown();
    manager.startPomodoro();
    QCOMPARE(manager.countdownPhase(), Phase::idle);
    QCOMPARE(manager.pomodoroPhase(), Pomodoro::idle);
    QCOMPARE(countdown.count(), 0);
    QCOMPARE(pomodoro.count(), 0);
    QCOMPARE(manager.configuredDuration(), 300.0);
    QVERIFY(!manager.ticking());
    QCOMPARE(manager.notice(), notice);
    QVERIFY(QFileInfo(timers.path()).isDir());
    // The stopwatch is never stored, so it has nothing to lose.
    manager.startStopwatch();
    QVERIFY(manager.stopwatchRunning());
}

void tst_TimerManager::aRefusedWriteChangesNothing() {
    TimersFixture timers;
    TimerManager& manager = timers.launch();
    const QString notice =
        QStringLiteral("The timer was not changed: it could not be saved to the settings file.");
    {
        FullDisk full;
        manager.startCountdown();
        manager.startPomodoro();
        manager.setConfiguredDuration(60);
    }
    QCOMPARE(manager.countdownPhase(), Phase::idle);
    QCOMPARE(manager.pomodoroPhase(), Pomodoro::idle);
    QCOMPARE(manager.configuredDuration(), 300.0);
    QCOMPARE(manager.notice(), notice);
    QVERIFY(!manager.ticking());

    // Once the disk takes it again, the next change lands whole and the notice goes.
    manager.startCountdown();
    QCOMPARE(manager.countdownPhase(), Phase::running);
    QVERIFY(manager.notice().isEmpty());
    const QByteArray running = timers.fileBytes();
    timers.advance(60);
    {
        FullDisk full;
        manager.pauseCountdown();
        manager.cancelCountdown();
    }
    QCOMPARE(manager.countdownPhase(), Phase::running);
    QCOMPARE(manager.notice(), notice);
    QCOMPARE(timers.fileBytes(), running);
    // Nothing refused comes back later: not with the next write, not at the next launch.
    manager.setSelectedMode(QStringLiteral("stopwatch"));
    QCOMPARE(timers.stored(TimerManager::configuredDurationKey), QStringLiteral("<absent>"));
    QCOMPARE(timers.stored(TimerManager::pomodoroPhaseKey), QStringLiteral("<absent>"));
    TimerManager& after = timers.launch();
    QCOMPARE(after.countdownPhase(), Phase::running);
    QCOMPARE(after.countdownRemaining(), 240.0);
    QCOMPARE(after.pomodoroPhase(), Pomodoro::idle);
    QCOMPARE(after.configuredDuration(), 300.0);
    QCOMPARE(after.selectedMode(), QStringLiteral("stopwatch"));
}

QTEST_GUILESS_MAIN(tst_TimerManager)
#include "tst_TimerManager.moc"
