// The timers under SIGKILL: 500 changes (the configured duration, the countdown's start, pause,
// resume and cancel, the pomodoro's start, pause, skip and reset), the app killed at random
// moments, and after every kill the next launch finds exactly the changes made so far.
//
// The clock stands still, so that nothing ends by itself and each change's stored state is a
// function of its index alone. Every other change sets a duration no earlier change set, so no
// two states of the sequence are alike and what a launch finds names how far the sequence got.

#include "OstaVell/Features/Timers/TimerManager.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QTest>


#include "../KillLoop.h"

using namespace vell;
using namespace vell::test;

namespace {

constexpr int total = 500;
const QDateTime standing = QDateTime::fromSecsSinceEpoch(1767225600, Qt::UTC);

void change(TimerManager& manager, int index) {
    if (index % 2 == 0) {
        manager.setConfiguredDuration(3600 + index);
        return;
    }
    // A round in which every step changes something, and that ends with both timers idle.
    switch ((index / 2) % 10) {
    case 0:
        return manager.startCountdown();
    case 1:
        return manager.pauseCountdown();
    case 2:
        return manager.startPomodoro();
    case 3:
        return manager.resumeCountdown();
    case 4:
        return manager.pausePomodoro();
    case 5:
        return manager.skipPomodoroPhase();
    case 6:
        return manager.cancelCountdown();
    case 7:
        return manager.pausePomodoro();
    case 8:
        return manager.startPomodoro();
    default:
        return manager.resetPomodoro();
    }
}

// What a launch makes of the folder: the state it publishes, as one line.
QString launched(const QString& folder) {
    UserDefaults defaults(folder + QStringLiteral("/OstaVell.conf"));
    TimerManager manager(defaults, [] { return standing; }, {});
    return QStringLiteral("%1 %2/%3 end %4 | %5%6 %7/%8 done %9 | %10")
        .arg(manager.countdownPhaseName())
        .arg(manager.countdownRemaining())
        .arg(manager.countdownTotal())
        .arg(manager.countdownEndDate() ? manager.countdownEndDate()->toMSecsSinceEpoch() : 0)
        .arg(manager.pomodoroPhaseName(), manager.pomodoroPaused() ? QStringLiteral(" paused") : QString())
        .arg(manager.pomodoroRemaining())
        .arg(manager.pomodoroTotal())
        .arg(manager.pomodoroCompletedFocus())
        .arg(manager.configuredDuration());
}

// The child: the changes from `from` on, each acknowledged once it has returned.
int runChanges(const QString& folder, int from) {
    UserDefaults defaults(folder + QStringLiteral("/OstaVell.conf"));
    TimerManager manager(defaults, [] { return standing; }, {});
    for (int index = from; index < total; ++index) {
        change(manager, index);
        if (!manager.notice().isEmpty())
            return 3;
        acknowledge(index);
    }
    return 0;
}

} // namespace

class tst_TimersCrash final : public QObject {
    Q_OBJECT

private slots:
    void everyAcknowledgedChangeIsThere();
};

void tst_TimersCrash::everyAcknowledgedChangeIsThere() {
    // The state after each prefix of the sequence, as a launch finds it.
    QTemporaryDir reference;
    QStringList expected{launched(reference.path())};
    {
        UserDefaults defaults(reference.filePath(QStringLiteral("OstaVell.conf")));
        TimerManager manager(defaults, [] { return standing; }, {});
        for (int index = 0; index < total; ++index) {
            change(manager, index);
            QVERIFY2(manager.notice().isEmpty(), qPrintable(manager.notice()));
            expected.append(launched(reference.path()));
        }
    }
    QCOMPARE(QSet<QString>(expected.cbegin(), expected.cend()).size(), total + 1);

    QTemporaryDir folder;
    int last = 0;
    const KillLoopResult result =
        runKillLoop({QStringLiteral("--changes"), folder.path()}, total, [&]() -> int {
            const qsizetype found = expected.indexOf(launched(folder.path()), last);
            if (found < 0)
                return -1;
            last = int(found);
            return last;
        });
    QVERIFY2(result.failure.isEmpty(), qPrintable(result.failure));
    QCOMPARE(result.held, total);
    QVERIFY(result.kills > 0);
    qInfo("%d kills, %d changes held", result.kills, result.held);
}

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() == 4 && arguments.at(1) == u"--changes")
        return runChanges(arguments.at(2), arguments.at(3).toInt());
    tst_TimersCrash test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_TimersCrash.moc"
