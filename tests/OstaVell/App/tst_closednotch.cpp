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

namespace {

const QStringList everySource = u"hud.left hud.right battery.event battery.status bluetooth.event "
                                u"automation.left automation.right media.left media.right module.activity "
                                u"timer calendar todos"_s.split(u' ');
const QStringList fullRow{u"module.activity"_s, u"media.right"_s, u"timer"_s, u"calendar"_s, u"todos"_s};

// Every source there and every switch on, then the words: "peek", "run", the event ("battery",
// "bluetooth"), a live activity switched off ("no-media"), a source missing ("-hud.left"), or
// the only sources there are ("only:timer,todos").
WingState state(const QString& words) {
    const QMap<QString, bool WingState::*> switches{{u"no-battery"_s, &WingState::batteryLiveActivity},
                                                    {u"no-media"_s, &WingState::mediaLiveActivity},
                                                    {u"no-timer"_s, &WingState::timerLiveActivity},
                                                    {u"no-calendar"_s, &WingState::calendarLiveActivity},
                                                    {u"no-todos"_s, &WingState::todosLiveActivity}};
    WingState state;
    state.sources = QSet<QString>(everySource.cbegin(), everySource.cend());
    for (const QString& word : words.split(u' ', Qt::SkipEmptyParts)) {
        if (word == u"peek")
            state.peekVisible = true;
        else if (word == u"run")
            state.automationRun = true;
        else if (word == u"battery" || word == u"bluetooth")
            state.transient = word == u"battery" ? Transient::battery : Transient::bluetooth;
        else if (switches.contains(word))
            state.*switches.value(word) = false;
        else if (word.startsWith(u'-'))
            state.sources.remove(word.mid(1));
        else if (word.startsWith(u"only:")) {
            const QStringList only = word.mid(5).split(u',');
            state.sources = QSet<QString>(only.cbegin(), only.cend());
        } else
            qFatal("unknown word %s", qPrintable(word));
    }
    return state;
}

} // namespace

class tst_ClosedNotch final : public QObject {
    Q_OBJECT

private slots:
    void wings_data();
    void wings();
    void transientEventsHoldTheirWingsAndLetGo();
};

void tst_ClosedNotch::wings_data() {
    QTest::addColumn<QString>("words");
    QTest::addColumn<QString>("left");
    QTest::addColumn<QString>("right");
    QTest::addColumn<QStringList>("row");
    const auto row = [](const char* name, const char* words, const QString& left, const QString& right,
                        const QStringList& standing = fullRow) {
        QTest::addRow("%s", name) << QString::fromLatin1(words) << left << right << standing;
    };
    const QString blank = ClosedNotchLadder::blank;
    const QString standing = ClosedNotchLadder::standing;
    row("the HUD over a battery event", "peek battery", u"hud.left"_s, u"hud.right"_s);
    row("the HUD over a Bluetooth event", "peek bluetooth", u"hud.left"_s, u"hud.right"_s);
    row("a battery event over a run", "battery run", u"battery.event"_s, u"battery.status"_s);
    row("a battery event with its activity off: the run, and a blank", "battery no-battery run",
        u"automation.left"_s, blank);
    row("a Bluetooth event takes the right wing alone", "bluetooth run", u"automation.left"_s,
        u"bluetooth.event"_s);
    row("a run over now playing and the standing row", "run", u"automation.left"_s, u"automation.right"_s);
    row("now playing and the standing row", "", u"media.left"_s, standing);
    row("each switch removes its own", "no-media no-calendar", QString(), standing,
        {u"module.activity"_s, u"timer"_s, u"todos"_s});
    row("every switch off leaves the modules", "no-media no-timer no-calendar no-todos", QString(), standing,
        {u"module.activity"_s});
    row("a rung whose source is missing never holds", "peek -hud.left -media.left", QString(),
        u"hud.right"_s);
    row("without a battery source there is nothing to blank", "battery no-battery -battery.status",
        u"media.left"_s, standing);
    row("what no feature offers is not there", "only:module.activity,todos", QString(), standing,
        {u"module.activity"_s, u"todos"_s});
}

void tst_ClosedNotch::wings() {
    QFETCH(QString, words);
    const WingState wings = state(words);
    QTEST(ClosedNotchLadder::leftWing(wings), "left");
    QTEST(ClosedNotchLadder::rightWing(wings), "right");
    QTEST(ClosedNotchLadder::standingRow(wings), "row");
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
