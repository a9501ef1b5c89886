// The whole app in this process on a real X server, with a real example module, the real Dice
// plugin and a saved workflow: the stage and its rail, what survives a restart, the editor
// window, and a run shown in the closed wings with the panel following their width.
#include "OstaVell/AppDelegate.h"
#include "OstaVell/DisplayShelfController.h"
#include "OstaVell/Features/Automations/AutomationStore.h"
#include "OstaVell/Modules/Lightweight/ModuleStore.h"
#include "OstaVell/Modules/Plugins/NativePluginStore.h"
#include "OstaVell/Modules/Workspace/ModuleStageStore.h"
#include "OstaVell/ShelfController.h"
#include "OstaVell/ShelfPanel.h"
#include "OstaVell/Support/UserDefaults.h"
#include "VellHost/Plugins/NativePluginSessions.h"

#include <QApplication>
#include <QCursor>
#include <QQuickStyle>
#include <QScreen>
#include <QTest>

#include "../Modules/Plugins/ErrandsLog.h"
#include "../QuickTestSupport.h"
#include "WorkflowFixtures.h"

using namespace vell;
using namespace vell::test;
using namespace Qt::StringLiterals;

namespace {

const QString hello = u"local:app.ostavell.hello"_s;
const QString dice = u"native:app.ostavell.example.dice"_s;
const QString errands = u"native:app.ostavell.example.errands"_s;

QStringList rail(QQuickItem* root) {
    QStringList ids;
    const QList<QQuickItem*> entries = findItems(root, u"rail:"_s);
    for (QQuickItem* entry : entries)
        if (entry->isVisible())
            ids.append(entry->objectName().mid(5));
    return ids;
}

} // namespace

class tst_Workspace final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void theFirstTabIsTheStageAndTheRailChoosesWhatItShows();
    void theEditorHidesAndArranges();
    void aRunShowsInTheClosedWingsAndThePanelFollows();
    void aFormRunsAfterItsReviewAndCollectionsShowOnTheStage();

private:
    DisplayShelfController* panel() const { return m_app->shelf()->panels().first(); }
    QQuickItem* content() const { return panel()->panel()->contentItem(); }
    QQuickWindow* window() const { return panel()->panel(); }
    QStringList onRail() const { return rail(content()); }
    // The panel stands where its layout puts it: no animation under way.
    void settle() const {
        QTRY_COMPARE(window()->geometry(), panel()->frame().toAlignedRect());
        QTRY_COMPARE(panel()->outline(), QRectF(QPointF(), panel()->frame().size()));
    }

    std::unique_ptr<AppDelegate> m_app;
};

void tst_Workspace::initTestCase() {
    QQuickStyle::setStyle(u"Material"_s);
    QCursor::setPos(QGuiApplication::primaryScreen()->geometry().bottomLeft());
    ModuleStore::instance()->install(ModuleStore::example(u"HelloVell"_s));
    m_app = std::make_unique<AppDelegate>();
    m_app->applicationDidFinishLaunching();

    NativePluginStore* plugins = NativePluginStore::instance();
    QCOMPARE(plugins->review(QUrl::fromLocalFile(qEnvironmentVariable("VELL_BUILD_DIR") +
                                                 u"/examples/plugins/Dice.app"_s)),
             QString());
    QCOMPARE(plugins->installReviewed(), QString());
    QTRY_VERIFY_WITH_TIMEOUT(plugins->sessions().snapshots().contains(dice.mid(7)), 30000);

    WorkflowDocument flow = chain(2);
    flow.title = u"Morning routine"_s;
    flow.nodes[1].data.title = u"Check the blinds"_s;
    AutomationStore::instance()->save(flow);
}

void tst_Workspace::cleanupTestCase() {
    m_app.reset();
}

void tst_Workspace::theFirstTabIsTheStageAndTheRailChoosesWhatItShows() {
    QCOMPARE(panel()->tab(), u"Vell"_s);
    panel()->expand(true);
    QVERIFY(QTest::qWaitForWindowExposed(window()));
    QTRY_COMPARE(onRail(), (QStringList{dice, hello, u"builtin:home"_s, u"builtin:media"_s,
                                        u"builtin:calendar"_s, u"builtin:automations"_s}));
    // Nothing chosen before: the first thing there is.
    QTRY_VERIFY(shown(content(), u"action:roll"_s));
    settle();
    screenshot(window(), u"workspace-plugin"_s);

    // The pointer on the rail opens it over the stage with the names.
    QQuickItem* entry = findItem(content(), u"rail:"_s + hello);
    QTest::mouseMove(window(), entry->mapToScene({10, 10}).toPoint());
    QTRY_COMPARE(findItem(content(), u"rail"_s)->width(), 156.0);
    screenshot(window(), u"workspace-rail"_s);
    QVERIFY(click(window(), entry));
    QTRY_VERIFY(!shown(content(), u"action:roll"_s));
    QTRY_VERIFY(shown(content(), u"moduleCard"_s));
    screenshot(window(), u"workspace-module"_s);

    // The choice is this display's, and it is what the next launch reads.
    const QString display = panel()->appearanceID();
    UserDefaults defaults(UserDefaults::instance()->filePath());
    ModuleStageStore again(&defaults);
    QCOMPARE(again.selections().value(display), hello);
    QCOMPARE(again.selections().size(), 1);
}

void tst_Workspace::theEditorHidesAndArranges() {
    QVERIFY(click(window(), findItem(content(), u"customize"_s)));
    QQuickWindow* editor = nullptr;
    QTRY_VERIFY((editor = qobject_cast<QQuickWindow*>([] {
                     for (QWindow* w : QGuiApplication::topLevelWindows())
                         if (w->objectName() == u"workspace-editor" && w->isVisible())
                             return w;
                     return static_cast<QWindow*>(nullptr);
                 }())));
    QVERIFY(QTest::qWaitForWindowExposed(editor));
    QCOMPARE(editor->title(), u"Customize Workspace — "_s + panel()->displayName());
    screenshot(editor, u"workspace-editor"_s);

    // "Remove from workspace" takes it off this display's rail; the module stays installed.
    QVERIFY(click(editor, findItem(findItem(editor->contentItem(), u"tile:builtin:media"_s), u"remove"_s)));
    QTRY_VERIFY(!onRail().contains(u"builtin:media"_s));
    QVERIFY(ModuleStore::instance()->module(u"app.ostavell.hello"_s));

    // A tile dragged onto the "place last" zone goes to the end.
    QQuickItem* tile = findItem(editor->contentItem(), u"tile:"_s + dice);
    QQuickItem* last = findItem(editor->contentItem(), u"last"_s);
    const QPoint from = tile->mapToScene({20, 20}).toPoint();
    const QPoint to = last->mapToScene({last->width() / 2, last->height() / 2}).toPoint();
    QTest::mousePress(editor, Qt::LeftButton, {}, from);
    for (int step = 1; step <= 10; ++step)
        QTest::mouseMove(editor, from + (to - from) * step / 10, 10);
    QTest::mouseRelease(editor, Qt::LeftButton, {}, to, 10);
    QTRY_COMPARE(onRail().last(), dice);
    // "Move earlier" on the last one puts it before the one that was before it.
    QVERIFY(click(editor, findItem(findItem(editor->contentItem(), u"tile:"_s + dice), u"earlier"_s)));
    QTRY_COMPARE(onRail().mid(onRail().size() - 2), (QStringList{dice, u"builtin:automations"_s}));
    QVERIFY(click(editor, findItem(findItem(editor->contentItem(), u"tile:"_s + dice), u"later"_s)));
    QTRY_COMPARE(onRail().last(), dice);
    // Shown again from the editor, it takes its old place.
    QVERIFY(click(editor, findItem(findItem(editor->contentItem(), u"tile:builtin:media"_s), u"add"_s)));
    QTRY_COMPARE(onRail(), (QStringList{hello, u"builtin:home"_s, u"builtin:calendar"_s,
                                        u"builtin:automations"_s, dice, u"builtin:media"_s}));
    editor->close();
}

void tst_Workspace::aRunShowsInTheClosedWingsAndThePanelFollows() {
    panel()->collapse();
    const QRectF narrow = panel()->frame();
    QCOMPARE(narrow.width(), 276.0);

    AutomationStore* automations = AutomationStore::instance();
    automations->runWorkflow(uuidText(automations->documents().first().id), false);
    QTRY_VERIFY(shown(content(), u"automationState"_s));
    QCOMPARE(findItem(content(), u"automationState"_s)->property("text").toString(), u"Running"_s);
    QTRY_COMPARE(findItem(content(), u"automationStep"_s)->property("text").toString(),
                 u"Check the blinds"_s);
    // Both wings take the wider one's width, and the closed panel grows with them.
    QTRY_VERIFY(panel()->frame().width() > narrow.width());
    QCOMPARE(panel()->frame().width(), 196 + 2 * panel()->wingWidth());
    settle();
    screenshot(window(), u"closed-automation"_s);

    // Pressed, it opens the panel on the run's workflow, pinned to this display's stage.
    QVERIFY(click(window(), findItem(content(), u"automationState"_s)));
    QTRY_VERIFY(panel()->isExpanded());
    const QString choice = u"workflow:"_s + uuidText(automations->documents().first().id);
    QCOMPARE(ModuleStageStore::instance()->selections().value(panel()->appearanceID()), choice);
    QTRY_VERIFY(onRail().contains(choice));
    settle();
    screenshot(window(), u"workspace-workflow"_s);

    automations->cancel();
    panel()->collapse();
    QTRY_COMPARE(panel()->frame(), narrow);

    // A plugin that asks to be shown is shown only where its workspace has it.
    const QString display = panel()->appearanceID();
    ModuleStageStore::instance()->setVisible(dice, display, false);
    m_app->shelf()->presentPlugin(dice.mid(7));
    QVERIFY(!panel()->isExpanded());
    ModuleStageStore::instance()->setVisible(dice, display, true);
    m_app->shelf()->presentPlugin(dice.mid(7));
    QVERIFY(panel()->isExpanded());
    QCOMPARE(panel()->tab(), u"Vell"_s);
    QCOMPARE(ModuleStageStore::instance()->selections().value(display), dice);
}

void tst_Workspace::aFormRunsAfterItsReviewAndCollectionsShowOnTheStage() {
    NativePluginStore* plugins = NativePluginStore::instance();
    QCOMPARE(plugins->review(QUrl::fromLocalFile(qEnvironmentVariable("VELL_BUILD_DIR") +
                                                 u"/examples/plugins/Errands.app"_s)),
             QString());
    QCOMPARE(plugins->installReviewed(), QString());
    panel()->expand(true);
    QTRY_VERIFY(onRail().contains(errands));
    QQuickItem* entry = findItem(content(), u"rail:"_s + errands);
    QTest::mouseMove(window(), entry->mapToScene({10, 10}).toPoint());
    QTRY_COMPARE(findItem(content(), u"rail"_s)->width(), 156.0);
    QVERIFY(click(window(), entry));
    QTRY_VERIFY_WITH_TIMEOUT(shown(content(), u"form:add"_s), 30000);
    QTest::mouseMove(window(), {window()->width() / 2, window()->height() / 2});

    // Filled in, submitted, reviewed on the form itself, and only then run by the plugin.
    QQuickItem* form = findItem(content(), u"form:add"_s);
    QQuickItem* title = findItem(form, u"input:title"_s);
    QVERIFY(click(window(), title));
    QTRY_VERIFY(title->hasActiveFocus());
    for (const QChar c : u"Buy stamps"_s)
        QTest::keyClick(window(), c.toLatin1());
    const qsizetype logged = errandsLog().size();
    QVERIFY(click(window(), findItem(form, u"submit"_s)));
    QTRY_VERIFY_WITH_TIMEOUT(shown(form, u"confirmRun"_s), 20000);
    // Its review is the form's: the stage lays no second one over it.
    QVERIFY(!shown(content(), u"reviews"_s));
    settle();
    screenshot(window(), u"workspace-form-review"_s);
    QCOMPARE(errandsLog().size(), logged);
    // The review is below the fold of a stage this size: scrolled to, as a person would.
    QQuickItem* stage = findItem(content(), u"pluginStage"_s);
    stage->setProperty("contentY", stage->property("contentHeight").toReal() - stage->height());
    QVERIFY(drawn(window()));
    QVERIFY(click(window(), findItem(form, u"confirmRun"_s)));
    QTRY_COMPARE_WITH_TIMEOUT(errandsLog().size(), logged + 1, 20000);
    QCOMPARE(errandsLog().last().values.value(u"title"_s).toString(), u"Buy stamps"_s);
    // The plugin's next snapshot redraws the page; pages are switched once it has come.
    QTRY_VERIFY_WITH_TIMEOUT(
        shown(form, u"runPhase"_s) &&
            shown(form, u"runPhase"_s)->property("text").toString().startsWith(u"Succeeded"),
        20000);

    // Each collection in its layout, on the stage of the real app.
    stage->setProperty("contentY", 0);
    for (const QString& page : {u"inbox"_s, u"tasks"_s, u"calendar"_s, u"files"_s}) {
        // A page pill pressed while a snapshot redraws the pills is pressed again: choosing a
        // page twice is choosing it once.
        const auto chosen = [&] {
            return findItem(content(), u"panel:"_s + page)->property("active").toBool();
        };
        QTRY_VERIFY((click(window(), findItem(content(), u"panel:"_s + page)), chosen()));
        QTRY_VERIFY(shown(content(), u"search"_s));
        QTRY_VERIFY(!findItems(content(), u"item:"_s).isEmpty());
        screenshot(window(), u"workspace-collection-"_s + page);
    }
}

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    tst_Workspace test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_workspace.moc"
