// The timers' views in real windows on Xvfb, driven by clicks: the widget's three modes, the
// steppers and presets, the closed wing while a countdown runs and while a finished one pulses,
// and the settings pane. Screenshots go to <build>/screenshots.

#include "OstaVell/Features/Timers/TimerManager.h"
#include "OstaVell/Support/ShellContributions.h"

#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QtTest>

#include "QuickTestSupport.h"

using namespace vell;
using namespace vell::test;

namespace {

constexpr int patience = 20000;

// The animations under root that are running now.
QStringList runningAnimations(QObject* root) {
    QStringList running;
    const QList<QObject*> objects = root->findChildren<QObject*>();
    for (QObject* object : objects)
        if (object->inherits("QQuickAbstractAnimation") && object->property("running").toBool())
            running.append(object->objectName().isEmpty()
                               ? QString::fromLatin1(object->metaObject()->className())
                               : object->objectName());
    return running;
}

} // namespace

class tst_TimersViews final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void offeredToTheShell();
    void settingTheCountdown();
    void theCountdownAndItsWing();
    void stopwatchAndPomodoro();
    void settingsPane();

private:
    QQuickWindow* show(const QByteArray& qml);
    bool press(QQuickWindow* window, const QString& name);

    QQmlEngine m_engine;
    std::vector<std::unique_ptr<QQuickWindow>> m_windows;
    QQuickWindow* m_widget = nullptr;
    QQuickWindow* m_wing = nullptr;
};

void tst_TimersViews::initTestCase() {
    QQuickStyle::setStyle(QStringLiteral("Material"));
    m_engine.addImportPath(QStringLiteral("qrc:/qt/qml"));
    m_widget = show("import QtQuick\nimport OstaVell.Timers\n"
                    "Window { width: 600; height: 230; visible: true; color: '#161616'\n"
                    "  TimersWidgetView { anchors.fill: parent; anchors.margins: 12 } }");
    m_wing = show(
        "import QtQuick\nimport OstaVell.Timers\n"
        "Window { width: 120; height: 30; x: 0; y: 300; visible: true; color: 'black'\n"
        "  TimerClosedWing { objectName: 'wing'; x: 8; anchors.verticalCenter: parent.verticalCenter } }");
    QVERIFY(m_widget && m_wing);
}

void tst_TimersViews::cleanupTestCase() {
    m_windows.clear();
}

QQuickWindow* tst_TimersViews::show(const QByteArray& qml) {
    QQmlComponent component(&m_engine);
    component.setData(qml, QUrl());
    if (!component.isReady()) {
        qWarning() << component.errorString();
        return nullptr;
    }
    auto* window = qobject_cast<QQuickWindow*>(component.create());
    if (!window)
        return nullptr;
    m_windows.emplace_back(window);
    return QTest::qWaitForWindowExposed(window, patience) ? window : nullptr;
}

bool tst_TimersViews::press(QQuickWindow* window, const QString& name) {
    return click(window, shown(window->contentItem(), name));
}

void tst_TimersViews::offeredToTheShell() {
    ShellContributions shell(nullptr);
    TimerManager::offerViews(shell);
    QCOMPARE(shell.tools(QStringLiteral("Automations")), QStringList{QStringLiteral("Timers")});
    QVERIFY(shell.tabView(QStringLiteral("Automations"), QStringLiteral("Timers"))
                .toString()
                .endsWith(u"TimersWidgetView.qml"));
    QVERIFY(shell.wingView(QStringLiteral("timer")).toString().endsWith(u"TimerClosedWing.qml"));
    QCOMPARE(shell.settingsPanes().size(), 1);
}

void tst_TimersViews::settingTheCountdown() {
    TimerManager* timers = TimerManager::instance();
    QVERIFY(press(m_widget, QStringLiteral("mode:timer")));
    QCOMPARE(timers->selectedMode(), QStringLiteral("timer"));
    timers->setConfiguredDuration(0);
    // Nothing to count: Start does nothing.
    QVERIFY(!shown(m_widget->contentItem(), QStringLiteral("start"))->isEnabled());
    QVERIFY(press(m_widget, QStringLiteral("start")));
    QCOMPARE(timers->countdownPhase(), TimerManager::CountdownPhase::idle);

    // Each stepper wraps on its own; all three at their top make the longest countdown.
    const QList<std::pair<QString, double>> steps{{"secondsDown", 59},  {"minutesDown", 59 * 60 + 59},
                                                  {"hoursDown", 86399}, {"hoursUp", 3599},
                                                  {"secondsUp", 3540},  {"minutesUp", 0},
                                                  {"preset25", 1500},   {"preset1", 60},
                                                  {"preset5", 300}};
    for (const auto& [name, duration] : steps) {
        QVERIFY2(press(m_widget, name), qPrintable(name));
        QCOMPARE(timers->configuredDuration(), duration);
    }
    QVERIFY(shown(m_widget->contentItem(), QStringLiteral("start"))->isEnabled());
    verifyPlainText(m_widget->contentItem());
    screenshot(m_widget, QStringLiteral("timers-timer-idle"));
    QCOMPARE(findItem(m_wing->contentItem(), QStringLiteral("wing"))->implicitWidth(), 0.0);
}

void tst_TimersViews::theCountdownAndItsWing() {
    TimerManager* timers = TimerManager::instance();
    QQuickItem* wing = findItem(m_wing->contentItem(), QStringLiteral("wing"));
    QVERIFY(wing);
    timers->setConfiguredDuration(300);
    QVERIFY(press(m_widget, QStringLiteral("start")));
    QCOMPARE(timers->countdownPhase(), TimerManager::CountdownPhase::running);
    QTRY_VERIFY(shown(m_widget->contentItem(), QStringLiteral("countdownTime")));
    QTRY_COMPARE_WITH_TIMEOUT(findItem(m_widget->contentItem(), "countdownTime")->property("text").toString(),
                              QStringLiteral("04:59"), patience);
    QVERIFY(wing->implicitWidth() > 0);
    QCOMPARE(findItem(wing, "timerWingTime")->property("text").toString(), QStringLiteral("04:59"));
    QCOMPARE(runningAnimations(wing), QStringList());
    screenshot(m_widget, QStringLiteral("timers-timer-running"));
    screenshot(m_wing, QStringLiteral("timers-wing-running"));
    verifyPlainText(wing);

    QVERIFY(press(m_widget, QStringLiteral("pause")));
    QCOMPARE(timers->countdownPhase(), TimerManager::CountdownPhase::paused);
    QVERIFY(!timers->ticking());
    QVERIFY(press(m_widget, QStringLiteral("resume")));
    QCOMPARE(timers->countdownPhase(), TimerManager::CountdownPhase::running);
    QVERIFY(press(m_widget, QStringLiteral("reset")));
    QCOMPARE(timers->countdownPhase(), TimerManager::CountdownPhase::idle);
    QTRY_COMPARE(wing->implicitWidth(), 0.0);

    // A countdown that ends: the wing pulses for the three seconds of the finished phase, and
    // then shows nothing and moves nothing.
    timers->setConfiguredDuration(1);
    QVERIFY(press(m_widget, QStringLiteral("start")));
    QTRY_COMPARE_WITH_TIMEOUT(timers->countdownPhase(), TimerManager::CountdownPhase::finished, patience);
    QCOMPARE(runningAnimations(wing), QStringList{QStringLiteral("timerWingPulse")});
    QQuickItem* row = findItem(wing, "timerWing");
    QTRY_VERIFY_WITH_TIMEOUT(row->opacity() < 0.7, patience);
    screenshot(m_wing, QStringLiteral("timers-wing-finished"));
    screenshot(m_widget, QStringLiteral("timers-timer-finished"));
    QTRY_COMPARE_WITH_TIMEOUT(timers->countdownPhase(), TimerManager::CountdownPhase::idle, patience);
    QCOMPARE(wing->implicitWidth(), 0.0);
    QTRY_COMPARE(runningAnimations(wing), QStringList());
    QCOMPARE(runningAnimations(m_widget->contentItem()), QStringList());
    QVERIFY(!timers->ticking());
}

void tst_TimersViews::stopwatchAndPomodoro() {
    TimerManager* timers = TimerManager::instance();
    QVERIFY(press(m_widget, QStringLiteral("mode:stopwatch")));
    QCOMPARE(timers->selectedMode(), QStringLiteral("stopwatch"));
    QTRY_VERIFY(shown(m_widget->contentItem(), QStringLiteral("stopwatchTime")));
    QVERIFY(!shown(m_widget->contentItem(), QStringLiteral("lap"))->isEnabled());
    QVERIFY(press(m_widget, QStringLiteral("start")));
    QVERIFY(timers->stopwatchRunning());
    QTRY_VERIFY_WITH_TIMEOUT(timers->stopwatchElapsed() > 0.4, patience);
    QVERIFY(press(m_widget, QStringLiteral("lap")));
    const double first = timers->laps().first().total;
    QTRY_VERIFY_WITH_TIMEOUT(timers->stopwatchElapsed() > first + 0.4, patience);
    QVERIFY(press(m_widget, QStringLiteral("lap")));
    QVERIFY(press(m_widget, QStringLiteral("pause")));
    QCOMPARE(timers->laps().size(), 2);
    QCOMPARE(findItem(m_widget->contentItem(), "laps")->property("count").toInt(), 2);
    verifyPlainText(m_widget->contentItem());
    screenshot(m_widget, QStringLiteral("timers-stopwatch"));
    QVERIFY(press(m_widget, QStringLiteral("reset")));
    QVERIFY(timers->laps().isEmpty());

    QVERIFY(press(m_widget, QStringLiteral("mode:pomodoro")));
    QTRY_VERIFY(shown(m_widget->contentItem(), QStringLiteral("pomodoroTime")));
    QCOMPARE(findItem(m_widget->contentItem(), "pomodoroTime")->property("text").toString(),
             QStringLiteral("25:00"));
    QVERIFY(press(m_widget, QStringLiteral("start")));
    QCOMPARE(timers->pomodoroPhase(), TimerManager::PomodoroPhase::focus);
    QTRY_COMPARE_WITH_TIMEOUT(findItem(m_widget->contentItem(), "pomodoroTime")->property("text").toString(),
                              QStringLiteral("24:59"), patience);
    QCOMPARE(findItem(m_widget->contentItem(), "pomodoroPhaseLabel")->property("text").toString(),
             QStringLiteral("Focus"));
    screenshot(m_widget, QStringLiteral("timers-pomodoro"));
    screenshot(m_wing, QStringLiteral("timers-wing-pomodoro"));
    QVERIFY(press(m_widget, QStringLiteral("skip")));
    QCOMPARE(findItem(m_widget->contentItem(), "pomodoroPhaseLabel")->property("text").toString(),
             QStringLiteral("Break"));
    QVERIFY(press(m_widget, QStringLiteral("reset")));
    QCOMPARE(timers->pomodoroPhase(), TimerManager::PomodoroPhase::idle);
    QVERIFY(!timers->ticking());
}

void tst_TimersViews::settingsPane() {
    QQuickWindow* window = show("import QtQuick\nimport QtQuick.Controls\nimport OstaVell.Timers\n"
                                "ApplicationWindow { width: 640; height: 520; visible: true\n"
                                "  TimersSettingsPane { anchors.fill: parent } }");
    QVERIFY(window);
    // No notification service on this bus: the pane says what to do.
    QTRY_VERIFY_WITH_TIMEOUT(shown(window->contentItem(), QStringLiteral("notificationsDenied")), patience);
    QCOMPARE(findItem(window->contentItem(), "notificationsDenied")->property("text").toString(),
             QStringLiteral("Allow notifications to get a banner when a timer finishes."));
    const QStringList sounds =
        findItem(window->contentItem(), "completionSound")->property("model").toStringList();
    QCOMPARE(sounds.first(), QStringLiteral("None"));
    QVERIFY(sounds.contains(QStringLiteral("complete")));
    QCOMPARE(findItem(window->contentItem(), "completionSound")->property("currentText").toString(),
             QStringLiteral("complete"));
    TimerManager* timers = TimerManager::instance();
    const bool before = timers->pomodoroAutoAdvance();
    QVERIFY(press(window, QStringLiteral("autoAdvance")));
    QCOMPARE(timers->pomodoroAutoAdvance(), !before);
    screenshot(window, QStringLiteral("timers-settings"));
}

QTEST_MAIN(tst_TimersViews)
#include "tst_TimersViews.moc"
