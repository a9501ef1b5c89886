// The closed wings: each rung of each ladder against the one above it, the standing row, and
// the short-lived events that take the wings for a while and let them go.
#include "OstaVell/ClosedNotchActivities.h"
#include "OstaVell/ClosedNotchLadder.h"
#include "OstaVell/Support/SettingsStore.h"
#include "OstaVell/Support/ShellContributions.h"

#include <QSignalSpy>
#include <QTest>

using namespace vell;
using namespace Qt::StringLiterals;
using Transient = WingState::Transient;

Q_DECLARE_METATYPE(WingState)

namespace {

const QSet<QString> everySource{u"hud.left"_s,
                                u"hud.right"_s,
                                u"battery.event"_s,
                                u"battery.status"_s,
                                u"bluetooth.event"_s,
                                u"automation.left"_s,
                                u"automation.right"_s,
                                u"media.left"_s,
                                u"media.right"_s,
                                u"module.activity"_s,
                                u"timer"_s,
                                u"calendar"_s,
                                u"todos"_s};

// Every source there, every switch on, and then the row's own changes.
WingState state(const std::function<void(WingState&)>& change) {
    WingState state;
    state.sources = everySource;
    change(state);
    return state;
}

} // namespace

class tst_ClosedNotch final : public QObject {
    Q_OBJECT

private slots:
    void leftWing_data();
    void leftWing();
    void rightWing_data();
    void rightWing();
    void standingRow_data();
    void standingRow();
    void transientEventsHoldTheirWingsAndLetGo();
};

void tst_ClosedNotch::leftWing_data() {
    QTest::addColumn<WingState>("state");
    QTest::addColumn<QString>("wing");

    QTest::addRow("the HUD over a battery event") << state([](WingState& s) {
        s.peekVisible = true;
        s.transient = Transient::battery;
    }) << u"hud.left"_s;
    QTest::addRow("a battery event over a run") << state([](WingState& s) {
        s.transient = Transient::battery;
        s.automationRun = true;
    }) << u"battery.event"_s;
    QTest::addRow("a battery event with its activity off leaves the run") << state([](WingState& s) {
        s.transient = Transient::battery;
        s.batteryLiveActivity = false;
        s.automationRun = true;
    }) << u"automation.left"_s;
    QTest::addRow("a Bluetooth event never takes the left wing") << state([](WingState& s) {
        s.transient = Transient::bluetooth;
        s.automationRun = true;
    }) << u"automation.left"_s;
    QTest::addRow("a run over now playing")
        << state([](WingState& s) { s.automationRun = true; }) << u"automation.left"_s;
    QTest::addRow("now playing") << state([](WingState&) {}) << u"media.left"_s;
    QTest::addRow("now playing switched off")
        << state([](WingState& s) { s.mediaLiveActivity = false; }) << QString();
    QTest::addRow("a rung whose source is missing never holds") << state([](WingState& s) {
        s.sources.remove(u"hud.left"_s);
        s.sources.remove(u"media.left"_s);
        s.peekVisible = true;
    }) << QString();
}

void tst_ClosedNotch::leftWing() {
    QFETCH(WingState, state);
    QFETCH(QString, wing);
    QCOMPARE(ClosedNotchLadder::leftWing(state), wing);
}

void tst_ClosedNotch::rightWing_data() {
    QTest::addColumn<WingState>("state");
    QTest::addColumn<QString>("wing");

    QTest::addRow("the HUD over a Bluetooth event") << state([](WingState& s) {
        s.peekVisible = true;
        s.transient = Transient::bluetooth;
    }) << u"hud.right"_s;
    QTest::addRow("a Bluetooth event over a run") << state([](WingState& s) {
        s.transient = Transient::bluetooth;
        s.automationRun = true;
    }) << u"bluetooth.event"_s;
    QTest::addRow("a battery event over a run") << state([](WingState& s) {
        s.transient = Transient::battery;
        s.automationRun = true;
    }) << u"battery.status"_s;
    QTest::addRow("a battery event with its activity off blanks the wing") << state([](WingState& s) {
        s.transient = Transient::battery;
        s.batteryLiveActivity = false;
        s.automationRun = true;
    }) << ClosedNotchLadder::blank;
    QTest::addRow("a run over the standing row")
        << state([](WingState& s) { s.automationRun = true; }) << u"automation.right"_s;
    QTest::addRow("the standing row") << state([](WingState&) {}) << ClosedNotchLadder::standing;
    QTest::addRow("without a battery source there is nothing to blank") << state([](WingState& s) {
        s.sources.remove(u"battery.status"_s);
        s.transient = Transient::battery;
        s.batteryLiveActivity = false;
    }) << ClosedNotchLadder::standing;
}

void tst_ClosedNotch::rightWing() {
    QFETCH(WingState, state);
    QFETCH(QString, wing);
    QCOMPARE(ClosedNotchLadder::rightWing(state), wing);
}

void tst_ClosedNotch::standingRow_data() {
    QTest::addColumn<WingState>("state");
    QTest::addColumn<QStringList>("row");

    QTest::addRow("everything, in order")
        << state([](WingState&) {})
        << QStringList{u"module.activity"_s, u"media.right"_s, u"timer"_s, u"calendar"_s, u"todos"_s};
    QTest::addRow("each switch removes its own") << state([](WingState& s) {
        s.mediaLiveActivity = false;
        s.calendarLiveActivity = false;
    }) << QStringList{u"module.activity"_s, u"timer"_s, u"todos"_s};
    QTest::addRow("every switch off leaves the modules") << state([](WingState& s) {
        s.mediaLiveActivity = s.timerLiveActivity = s.calendarLiveActivity = s.todosLiveActivity = false;
    }) << QStringList{u"module.activity"_s};
    QTest::addRow("what no feature offers is not there") << state([](WingState& s) {
        s.sources = {u"module.activity"_s, u"todos"_s};
    }) << QStringList{u"module.activity"_s, u"todos"_s};
}

void tst_ClosedNotch::standingRow() {
    QFETCH(WingState, state);
    QFETCH(QStringList, row);
    QCOMPARE(ClosedNotchLadder::standingRow(state), row);
}

void tst_ClosedNotch::transientEventsHoldTheirWingsAndLetGo() {
    ShellContributions* shell = ShellContributions::instance();
    for (const QString& wing :
         {u"battery.event"_s, u"battery.status"_s, u"bluetooth.event"_s, u"module.activity"_s})
        shell->offerWing(wing, QUrl(u"qrc:/none/"_s + wing));
    SettingsStore::instance()->setBatteryLiveActivity(true);

    ClosedNotchActivities wings;
    QCOMPARE(wings.left(), QString());
    QCOMPARE(wings.right(), ClosedNotchLadder::standing);
    QCOMPARE(wings.standing(), QStringList{u"module.activity"_s});

    // The last event wins; the one it replaced does not come back.
    wings.showTransient(u"battery"_s);
    QCOMPARE(wings.left(), u"battery.event"_s);
    QCOMPARE(wings.right(), u"battery.status"_s);
    wings.showTransient(u"bluetooth"_s);
    QCOMPARE(wings.transient(), u"bluetooth"_s);
    QCOMPARE(wings.left(), QString());
    QCOMPARE(wings.right(), u"bluetooth.event"_s);

    // A switch turned off while the event shows is heard at once.
    wings.showTransient(u"battery"_s);
    SettingsStore::instance()->setBatteryLiveActivity(false);
    QCOMPARE(wings.left(), QString());
    QCOMPARE(wings.right(), ClosedNotchLadder::blank);

    // Its time over, the event goes by itself and the wings are what the sources say.
    QSignalSpy changed(&wings, &ClosedNotchActivities::wingsChanged);
    QTRY_COMPARE_WITH_TIMEOUT(wings.transient(), QString(), ClosedNotchActivities::transientMilliseconds * 3);
    QCOMPARE(wings.right(), ClosedNotchLadder::standing);
    QCOMPARE(changed.count(), 1);
    SettingsStore::instance()->setBatteryLiveActivity(true);
}

QTEST_MAIN(tst_ClosedNotch)
#include "tst_closednotch.moc"
