// The open/close machine of the panels, driven through the controllers' own operations on a
// real X server. The out-of-process test drives the same machine with a real pointer.
#include "OstaVell/DisplayShelfController.h"
#include "OstaVell/ShelfController.h"
#include "OstaVell/ShelfPanel.h"
#include "OstaVell/Support/MenuTracking.h"
#include "OstaVell/Support/SettingsStore.h"
#include "OstaVell/Support/ShellContributions.h"
#include "OstaVell/Support/UserDefaults.h"
#include "OstaVell/VellMenu.h"

#include <QAction>
#include <QApplication>
#include <QCursor>
#include <QMenu>
#include <QProcess>
#include <QScreen>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>

using namespace vell;

class TestShelfController final : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void initialTab_data();
    void initialTab();
    void hoverOpensAfterTheWaitAndLeavingCancelsIt();
    void leavingClosesAfterTheWaitUnlessPinnedAndCollapseUnpins();
    void popoversHoldThePanelOpenUntilTheLastCloses();
    void scrollOpensAndClosesOnlyInTheTopStrip();
    void tabDecidesTheOpenSizeAndIsSaved();
    void showVellsOffRemovesEveryPanelUntilAnOpen();
    void showOnAllDisplaysOffKeepsTheFirstScreen();
    void menuListsEntriesInOrder();
    void featuresOfferTheirViews();

private:
    DisplayShelfController* onlyPanel() const { return m_shelf->panels().first(); }
    static void moveCursorAway() {
        QCursor::setPos(QGuiApplication::primaryScreen()->geometry().bottomLeft());
    }
    static void xrandr(const QStringList& arguments);

    SettingsStore* m_settings = SettingsStore::instance();
    ShelfController* m_shelf = nullptr;
};

void TestShelfController::init() {
    moveCursorAway();
    m_settings->setHoverDelay(0);
    m_settings->setOpenOnHover(true);
    m_settings->setShowOnAllDisplays(true);
    m_shelf = new ShelfController(m_settings);
    m_shelf->start();
    QCOMPARE(m_shelf->panels().size(), QGuiApplication::screens().size());
}

void TestShelfController::cleanup() {
    delete m_shelf;
    m_shelf = nullptr;
}

void TestShelfController::xrandr(const QStringList& arguments) {
    QCOMPARE(QProcess::execute(QStringLiteral("xrandr"), arguments), 0);
}

void TestShelfController::initialTab_data() {
    QTest::addColumn<QString>("saved");
    QTest::addColumn<bool>("hasWorkspace");
    QTest::addColumn<QString>("defaultTab");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char* name, const char* saved, bool workspace, const char* tab,
                        const char* to) {
        QTest::addRow("%s", name) << (saved ? QString::fromLatin1(saved) : QString()) << workspace << tab
                                  << to;
    };
    row("nothing saved takes the default", nullptr, false, "Tray", "Tray");
    row("nothing saved with a workspace opens on it", nullptr, true, "Tray", "Vell");
    row("saved Modules opens on Vell", "Modules", false, "Tray", "Vell");
    row("saved Google opens on Vell", "Google", false, "Tray", "Vell");
    row("saved Tools opens on Automations", "Tools", false, "Vell", "Automations");
    row("saved Tray stays", "Tray", true, "Vell", "Tray");
    row("a default of Tools is mapped too", nullptr, false, "Tools", "Automations");
}

void TestShelfController::initialTab() {
    QFETCH(QString, saved);
    QFETCH(bool, hasWorkspace);
    QFETCH(QString, defaultTab);
    QFETCH(QString, expected);
    QCOMPARE(notchTabRaw(DisplayShelfController::initialTab(saved, hasWorkspace, defaultTab)), expected);
}

void TestShelfController::hoverOpensAfterTheWaitAndLeavingCancelsIt() {
    DisplayShelfController* panel = onlyPanel();
    // A delay of 0 still waits: the open is never immediate.
    panel->hoverChanged(true);
    QVERIFY(!panel->isExpanded());
    QVERIFY(panel->hoverTaskActive());
    panel->hoverChanged(false);
    QVERIFY(!panel->hoverTaskActive());
    QVERIFY(!panel->isExpanded());

    panel->hoverChanged(true);
    QTRY_VERIFY(panel->isExpanded());
    // Hover opens without taking the keyboard.
    QVERIFY(!panel->panel()->isActive());

    m_settings->setOpenOnHover(false);
    panel->collapse();
    panel->hoverChanged(true);
    QVERIFY(!panel->hoverTaskActive());
}

void TestShelfController::leavingClosesAfterTheWaitUnlessPinnedAndCollapseUnpins() {
    DisplayShelfController* panel = onlyPanel();
    panel->expand(false);
    panel->setPinned(true);
    panel->hoverChanged(false);
    QVERIFY(!panel->hoverTaskActive());

    panel->setPinned(false);
    QVERIFY(panel->hoverTaskActive());
    QTRY_VERIFY(!panel->isExpanded());

    // Coming back during the close wait keeps it open.
    panel->expand(false);
    panel->hoverChanged(false);
    QVERIFY(panel->hoverTaskActive());
    panel->hoverChanged(true);
    QVERIFY(!panel->hoverTaskActive());
    QVERIFY(panel->isExpanded());

    // Collapsing clears the pin.
    panel->setPinned(true);
    panel->collapse();
    QVERIFY(!panel->isPinned());
    QVERIFY(!panel->isExpanded());
}

void TestShelfController::popoversHoldThePanelOpenUntilTheLastCloses() {
    DisplayShelfController* panel = onlyPanel();
    MenuTracking* tracking = MenuTracking::instance();
    panel->expand(false);
    panel->hoverChanged(false);
    QVERIFY(panel->hoverTaskActive());

    tracking->popoverWillShow();
    tracking->popoverWillShow();
    QVERIFY(!panel->hoverTaskActive());
    tracking->popoverDidClose();
    QVERIFY(!panel->hoverTaskActive());
    tracking->popoverDidClose();
    QVERIFY(panel->hoverTaskActive());

    // An extra close can't drive the count below zero: one more popover still holds it.
    tracking->popoverDidClose();
    tracking->popoverWillShow();
    panel->scheduleCollapse();
    QVERIFY(!panel->hoverTaskActive());
    tracking->popoverDidClose();
    QVERIFY(panel->hoverTaskActive());

    tracking->menuDidBeginTracking();
    QVERIFY(!panel->hoverTaskActive());
    tracking->menuDidEndTracking();
    QVERIFY(panel->hoverTaskActive());
}

void TestShelfController::scrollOpensAndClosesOnlyInTheTopStrip() {
    DisplayShelfController* panel = onlyPanel();
    auto scroll = [&](double y, int angle) {
        QWheelEvent event(QPointF(100, y), QPointF(100, y), QPoint(), QPoint(0, angle), Qt::NoButton,
                          Qt::NoModifier, Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(panel->panel(), &event);
    };
    scroll(10, 80); // 10 degrees: not past the threshold
    QVERIFY(!panel->isExpanded());
    scroll(10, -120);
    QVERIFY(panel->isExpanded());
    scroll(200, 120); // below the strip the content scrolls
    QVERIFY(panel->isExpanded());
    scroll(10, 120);
    QVERIFY(!panel->isExpanded());
}

void TestShelfController::tabDecidesTheOpenSizeAndIsSaved() {
    DisplayShelfController* panel = onlyPanel();
    panel->setTab(QStringLiteral("Vell"));
    panel->expand(false);
    const QSizeF stage = panel->frame().size();
    QCOMPARE(stage.width(), 900.0);

    panel->setTab(QStringLiteral("Tray"));
    QCOMPARE(panel->frame().size(), QSizeF(760, 400));
    QCOMPARE(
        UserDefaults::instance()->stringValue(QStringLiteral("display.lastTab.") + panel->appearanceID()),
        QStringLiteral("Tray"));
    // The window settles on the frame once the animation has run.
    QTRY_COMPARE(panel->panel()->geometry(), panel->frame().toAlignedRect());

    // The wings' width is kept while open and moves nothing until the panel closes.
    const QRectF open = panel->frame();
    panel->setWingWidth(120);
    QCOMPARE(panel->frame(), open);
    panel->collapse();
    QTRY_COMPARE(panel->panel()->geometry().size(), QSize(196 + 2 * 120, 28));
    // Empty wings still leave the narrowest ones beside the notch.
    panel->setWingWidth(0);
    QTRY_COMPARE(panel->panel()->geometry().size(), QSize(196 + 2 * 40, 28));
}

void TestShelfController::showVellsOffRemovesEveryPanelUntilAnOpen() {
    m_shelf->setEnabled(false);
    QVERIFY(m_shelf->panels().isEmpty());
    m_shelf->openAtPointer({}, false);
    QVERIFY(m_shelf->isEnabled());
    QCOMPARE(m_shelf->panels().size(), QGuiApplication::screens().size());
    QVERIFY(m_shelf->anyExpanded());

    // An open can name the tool; the display keeps it for the next start.
    m_shelf->openAtPointer(QStringLiteral("Automations"), false, QStringLiteral("Timers"));
    DisplayShelfController* panel = m_shelf->panels().first();
    QCOMPARE(panel->tab(), QStringLiteral("Automations"));
    QCOMPARE(panel->tool(), QStringLiteral("Timers"));
    DisplayShelfController again(panel->screen(), m_settings);
    QCOMPARE(again.tool(), QStringLiteral("Timers"));
}

void TestShelfController::showOnAllDisplaysOffKeepsTheFirstScreen() {
    xrandr({"--setmonitor", "left", "960/254x1080/286+0+0", "screen"});
    xrandr({"--setmonitor", "right", "960/254x1080/286+960+0", "none"});
    QTRY_COMPARE(QGuiApplication::screens().size(), 2);
    QTRY_COMPARE(m_shelf->panels().size(), 2);
    QCOMPARE(m_shelf->displays().size(), 2);

    m_settings->setShowOnAllDisplays(false);
    QTRY_COMPARE(m_shelf->panels().size(), 1);
    QCOMPARE(m_shelf->panels().firstKey(), QGuiApplication::screens().first()->name());

    m_settings->setShowOnAllDisplays(true);
    xrandr({"--delmonitor", "right"});
    xrandr({"--delmonitor", "left"});
    QTRY_COMPARE(QGuiApplication::screens().size(), 1);
    QTRY_COMPARE(m_shelf->panels().size(), 1);
}

void TestShelfController::menuListsEntriesInOrder() {
    VellMenu menu(m_shelf, [] {});
    QStringList texts;
    for (QAction* action : menu.menu()->actions())
        texts << (action->isSeparator() ? QStringLiteral("-") : action->text());
    const QString screen = m_shelf->displays().first().name;
    QCOMPARE(texts, (QStringList{"Open Vell Here", "Open on All Displays", "Open on " + screen,
                                 "Collapse All", "Show Vells", "-", "Settings", "-", "Quit OstaVell"}));
    QAction* show = menu.menu()->actions().at(4);
    QVERIFY(show->isChecked());
    show->trigger();
    QVERIFY(!m_shelf->isEnabled());
}

void TestShelfController::featuresOfferTheirViews() {
    ShellContributions offers(nullptr);
    const QUrl tray(QStringLiteral("qrc:/tray.qml"));
    const QUrl timers(QStringLiteral("qrc:/timers.qml"));
    offers.offerTab(NotchTab::shelf, QString(), QUrl(QStringLiteral("qrc:/older.qml")));
    offers.offerTab(NotchTab::shelf, QString(), tray);
    offers.offerTab(NotchTab::tools, QStringLiteral("Workflows"), tray);
    offers.offerTab(NotchTab::tools, QStringLiteral("Timers"), timers);
    offers.offerSettingsPane(QStringLiteral("Modules"), timers);
    // A later offer for the same place replaces the earlier; old saved names find their tab.
    QCOMPARE(offers.tabView(QStringLiteral("Tray")), tray);
    QCOMPARE(offers.tabView(QStringLiteral("Tools"), QStringLiteral("Timers")), timers);
    QCOMPARE(offers.tabView(QStringLiteral("Automations")), QUrl());
    QCOMPARE(offers.tools(QStringLiteral("Automations")), (QStringList{"Workflows", "Timers"}));
    QCOMPARE(offers.tools(QStringLiteral("Tray")), QStringList());
    const QVariantMap pane{{QStringLiteral("title"), QStringLiteral("Modules")},
                           {QStringLiteral("view"), timers}};
    QCOMPARE(offers.settingsPanes(), QVariantList{pane});
}

QTEST_MAIN(TestShelfController)
#include "tst_shelfcontroller.moc"
