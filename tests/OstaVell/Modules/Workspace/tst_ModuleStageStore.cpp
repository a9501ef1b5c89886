// The workspace tables of each display, on a private defaults file: what is visible, in which
// order, what stands on the stage, and what survives a restart.
#include "OstaVell/Modules/Lightweight/ModuleStore.h"
#include "OstaVell/Modules/Workspace/ModuleStageStore.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QTemporaryDir>
#include <QTest>

using namespace vell;
using namespace Qt::StringLiterals;

namespace {

const QString A = u"display-A"_s;
const QString B = u"display-B"_s;
const QString flow = u"workflow:6F1C1B7E-1D1A-4C36-9E4B-1B0C0A5B6C01"_s;

QStringList ids(const QString& words) {
    return words.split(u' ', Qt::SkipEmptyParts);
}

const QStringList natural = ids(u"native:p local:m builtin:home builtin:media"_s);
const QStringList available = natural + QStringList{flow};

ModulePackage package(const QString& id, const std::optional<QString>& activity) {
    ModulePackage package;
    package.id = id;
    package.name = u"Counter"_s;
    package.version = u"1.0.0"_s;
    package.author = u"Tests"_s;
    package.initialState = {{u"count"_s, u"3"_s}};
    package.activity = activity;
    package.script = u"function run() {}"_s;
    return package;
}

} // namespace

class tst_ModuleStageStore final : public QObject {
    Q_OBJECT

private slots:
    void init();

    void arrangingADisplay_data();
    void arrangingADisplay();
    void selectionFallsBackWithoutForgetting();
    void tablesSurviveARestartAndBadEntriesReadEmpty();
    void choicesFollowWhatIsInstalled();
    void dropTarget_data();
    void dropTarget();

private:
    QTemporaryDir m_dir;
    QString m_path;
};

void tst_ModuleStageStore::init() {
    m_path =
        m_dir.filePath(u"defaults-%1.ini"_s.arg(QTest::currentDataTag() ? QTest::currentDataTag() : "x"));
    QFile::remove(m_path);
}

// Each row: the operations on display A in order, then the rail that results. Operations:
// "hide X", "show X", "place X before Y", "last X", "move X by N"; "flow" stands for the workflow.
void tst_ModuleStageStore::arrangingADisplay_data() {
    QTest::addColumn<QStringList>("operations");
    QTest::addColumn<QStringList>("rail");
    const auto row = [](const char* name, const QString& operations, const QStringList& rail) {
        QTest::addRow("%s", name) << operations.split(u';', Qt::SkipEmptyParts) << rail;
    };
    row("new display: all but workflows", {}, natural);
    row("pinned workflow joins at the end", u"show flow"_s, natural + QStringList{flow});
    row("hidden comes back in its old place",
        u"place builtin:home before native:p;hide local:m;show local:m"_s,
        ids(u"builtin:home native:p local:m builtin:media"_s));
    row("place before itself does nothing", u"place local:m before local:m"_s, natural);
    row("place before a hidden one does nothing", u"hide native:p;place local:m before native:p"_s,
        ids(u"local:m builtin:home builtin:media"_s));
    row("place what is not available does nothing", u"place native:gone before local:m"_s, natural);
    row("place last also shows it", u"hide native:p;last native:p"_s,
        ids(u"local:m builtin:home builtin:media native:p"_s));
    row("a workflow placed is pinned", u"place flow before local:m"_s,
        ids(u"native:p flow local:m builtin:home builtin:media"_s).replaceInStrings(u"flow"_s, flow));
    row("move later swaps with the next", u"move native:p by 1"_s,
        ids(u"local:m native:p builtin:home builtin:media"_s));
    row("move before the first does nothing", u"move native:p by -1"_s, natural);
    row("move past the last does nothing", u"move builtin:media by 1"_s, natural);
}

void tst_ModuleStageStore::arrangingADisplay() {
    QFETCH(QStringList, operations);
    UserDefaults defaults(m_path);
    ModuleStageStore store(&defaults);
    for (const QString& operation : operations) {
        const QStringList words = ids(operation).replaceInStrings(u"flow"_s, flow);
        if (words[0] == u"hide" || words[0] == u"show")
            store.setVisible(words[1], A, words[0] == u"show");
        else if (words[0] == u"place")
            store.place(words[1], words[3], A, available);
        else if (words[0] == u"last")
            store.place(words[1], std::nullopt, A, available);
        else
            store.move(words[1], words[3].toInt(), A, available);
    }
    QTEST(store.ordered(available, A), "rail");
    // Another display is a workspace of its own.
    QCOMPARE(store.ordered(available, B), natural);
}

void tst_ModuleStageStore::selectionFallsBackWithoutForgetting() {
    UserDefaults defaults(m_path);
    ModuleStageStore store(&defaults);
    QCOMPARE(store.selected(A, {}), std::nullopt);
    // Nothing is chosen for a new display until it is reconciled.
    QVERIFY(!store.selections().contains(A));
    store.reconcile(A, available);
    QCOMPARE(store.selections().value(A), u"native:p"_s);
    store.select(u"local:m"_s, A);
    store.reconcile(A, available);
    QCOMPARE(store.selected(A, available), u"local:m"_s);

    // The module is uninstalled: the stage shows the first there is, and the choice stays.
    const QStringList without{u"native:p"_s, u"builtin:home"_s};
    QCOMPARE(store.selected(A, without), u"native:p"_s);
    store.reconcile(A, without);
    QCOMPARE(store.selections().value(A), u"local:m"_s);
    // Back again, and so is its place on the stage.
    QCOMPARE(store.selected(A, available), u"local:m"_s);
}

void tst_ModuleStageStore::tablesSurviveARestartAndBadEntriesReadEmpty() {
    {
        UserDefaults defaults(m_path);
        ModuleStageStore store(&defaults);
        store.select(u"builtin:media"_s, A);
        store.place(u"builtin:media"_s, u"native:p"_s, A, available);
        store.setVisible(u"local:m"_s, A, false);
        store.setVisible(flow, A, true);
        // What is not available now keeps its place behind what is.
        store.place(u"builtin:home"_s, u"builtin:media"_s, A, {u"builtin:home"_s, u"builtin:media"_s});
        QCOMPARE(defaults.dataValue(ModuleStageStore::selectionsKey), "{\"display-A\":\"builtin:media\"}");
        QCOMPARE(defaults.dataValue(ModuleStageStore::hiddenKey), "{\"display-A\":[\"local:m\"]}");
        QCOMPARE(defaults.dataValue(ModuleStageStore::pinnedWorkflowsKey),
                 QByteArray("{\"display-A\":[\"") + flow.toUtf8() + "\"]}");
        QCOMPARE(defaults.dataValue(ModuleStageStore::orderKey),
                 "{\"display-A\":[\"builtin:home\",\"builtin:media\",\"native:p\",\"local:m\"]}");
    }
    UserDefaults defaults(m_path);
    ModuleStageStore again(&defaults);
    QCOMPARE(again.selected(A, available), u"builtin:media"_s);
    QCOMPARE(again.ordered(available, A),
             (QStringList{u"builtin:home"_s, u"builtin:media"_s, u"native:p"_s, flow}));

    // Tables of the wrong shape read as empty; entries of the wrong type are left out alone.
    defaults.setValue(ModuleStageStore::selectionsKey, QByteArray("[\"native:p\"]"));
    defaults.setValue(ModuleStageStore::hiddenKey,
                      QByteArray("{\"display-A\":\"local:m\",\"display-B\":[1,\"local:m\"]}"));
    defaults.setValue(ModuleStageStore::orderKey, QByteArray("not json"));
    ModuleStageStore damaged(&defaults);
    QVERIFY(damaged.selections().isEmpty());
    QVERIFY(damaged.isVisible(u"local:m"_s, A));
    QVERIFY(!damaged.isVisible(u"local:m"_s, B));
    QVERIFY(damaged.order().isEmpty());
}

void tst_ModuleStageStore::choicesFollowWhatIsInstalled() {
    UserDefaults defaults(m_path);
    ModuleStageStore store(&defaults);
    const ModuleStageStore::Workflow saved{QUuid(flow.mid(9)), u"Morning"_s};
    store.setWorkflowSource([saved] { return QList<ModuleStageStore::Workflow>{saved}; });

    ModuleStore* modules = ModuleStore::instance();
    modules->install(package(u"app.test.quiet"_s, std::nullopt));
    modules->install(package(u"app.test.count"_s, u"{count} cups"_s));
    modules->setVisible(u"app.test.quiet"_s, B, false);

    QStringList ids;
    for (const auto& choice : store.allChoices(A))
        ids.append(choice.id);
    QCOMPARE(ids, (QStringList{u"local:app.test.quiet"_s, u"local:app.test.count"_s, u"builtin:home"_s,
                               u"builtin:media"_s, u"builtin:calendar"_s, u"builtin:automations"_s, flow}));
    // The workflow is offered but not on the rail until pinned; a module hidden on B is not
    // offered there at all.
    QCOMPARE(store.choices(A).size(), 6);
    QCOMPARE(store.addableFor(A).size(), 1);
    QCOMPARE(store.choices(B).size(), 5);
    QCOMPARE(store.allChoices(A).last().workflow, saved.id);
    QCOMPARE(store.allChoices(A).last().symbol, u"play.rectangle"_s);

    // The status strip tells the chosen module's activity, or what to do.
    QCOMPARE(store.statusLine(A), u"Choose your workspace"_s);
    store.select(u"local:app.test.count"_s, A);
    QCOMPARE(store.statusLine(A), u"3 cups"_s);
    store.select(u"local:app.test.quiet"_s, A);
    QCOMPARE(store.statusLine(A), u"Choose your workspace"_s);
    // Gone, the stage shows the first there is, and the strip speaks of that one.
    modules->remove(u"app.test.quiet"_s);
    QCOMPARE(store.active(A)->id, u"local:app.test.count"_s);
    QCOMPARE(store.statusLine(A), u"3 cups"_s);
    modules->remove(u"app.test.count"_s);
}

void tst_ModuleStageStore::dropTarget_data() {
    QTest::addColumn<QPointF>("point");
    QTest::addColumn<QString>("target");

    QTest::addRow("a tile") << QPointF(20, 20) << u"tile:local:m"_s;
    QTest::addRow("a rail entry") << QPointF(320, 20) << u"rail:native:p"_s;
    QTest::addRow("the removal target") << QPointF(20, 150) << u"remove"_s;
    QTest::addRow("overlapping zones: the first key") << QPointF(20, 90) << u"last"_s;
    QTest::addRow("a tile scrolled out of its viewport") << QPointF(20, 250) << QString();
    QTest::addRow("a rail entry scrolled out of its viewport") << QPointF(320, 250) << QString();
    QTest::addRow("nothing there") << QPointF(200, 20) << QString();
    QTest::addRow("a viewport alone is no target") << QPointF(100, 50) << QString();
}

void tst_ModuleStageStore::dropTarget() {
    QFETCH(QPointF, point);
    QFETCH(QString, target);
    const QMap<QString, QRectF> frames{{u"viewport:tiles"_s, QRectF(0, 0, 150, 200)},
                                       {u"viewport:rail"_s, QRectF(300, 0, 100, 200)},
                                       {u"tile:local:m"_s, QRectF(0, 0, 50, 50)},
                                       {u"tile:builtin:home"_s, QRectF(0, 230, 50, 50)},
                                       {u"rail:native:p"_s, QRectF(300, 0, 50, 50)},
                                       {u"rail:local:m"_s, QRectF(300, 230, 50, 50)},
                                       {u"last"_s, QRectF(0, 80, 50, 20)},
                                       {u"tile:z"_s, QRectF(0, 80, 50, 20)},
                                       {u"remove"_s, QRectF(0, 140, 50, 20)}};
    QCOMPARE(ModuleStageStore::dropTarget(point, frames).value_or(QString()), target);
}

QTEST_GUILESS_MAIN(tst_ModuleStageStore)
#include "tst_ModuleStageStore.moc"
