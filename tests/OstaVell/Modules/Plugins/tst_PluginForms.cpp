// Forms against the real router and the real Errands process: a submit invokes the plugin's own
// action as the plugin, waits for review, and runs only what was reviewed; a form that changed
// is never submitted, never approved, and a run waiting on a form that is gone is cancelled.
// Errands' own log says what ran.

#include "OstaVell/Modules/Plugins/NativePluginStore.h"
#include "VellHost/NativePluginBundle.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QTemporaryDir>
#include <QTest>

#include "ErrandsLog.h"
#include "TestSupport.h"

using namespace vell;
using namespace vell::test;

namespace {

constexpr int patience = 30000;
const QString unavailable = QStringLiteral("This form changed or is unavailable. Review the current values.");
const QString changed = QStringLiteral("This form changed. Review the current values before trying again.");

PluginValueMap errand(const QString& title) {
    return {{QStringLiteral("title"), PluginValue::string(title)},
            {QStringLiteral("cost"), PluginValue::number(2.5)},
            {QStringLiteral("priority"), PluginValue::number(4)},
            {QStringLiteral("urgent"), PluginValue::boolean(true)},
            {QStringLiteral("list"), PluginValue::string(QStringLiteral("Shopping"))}};
}

} // namespace

class tst_PluginForms final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void submitThenApproveRunsOnce();
    void submitRefusals_data();
    void submitRefusals();
    void liveRunsAreBounded();
    void approvalNeedsTheSameForm_data();
    void approvalNeedsTheSameForm();
    void formGoneCancelsTheWaitingRun();

private:
    NativePluginSessions& sessions() { return m_store->sessions(); }
    PluginForm form() const { return *m_store->sessions().currentForm(errandsID, "add", "add"); }
    std::optional<ActionRun> run(const QUuid& id) const;
    PluginRunPhase phase(const QUuid& id) const {
        return run(id) ? run(id)->phase() : PluginRunPhase::interrupted;
    }
    void waitForErrands();
    // Submits and approves one errand, then waits until the form shows its next revision.
    void addErrand(const QString& title);
    void press(const QString& action, const std::function<bool(const PluginForm&)>& until);

    QTemporaryDir m_data;
    std::unique_ptr<NativePluginStore> m_store;
};

std::optional<ActionRun> tst_PluginForms::run(const QUuid& id) const {
    for (const ActionRun& candidate : m_store->router().runs())
        if (candidate.id == id)
            return candidate;
    return std::nullopt;
}

void tst_PluginForms::waitForErrands() {
    QTRY_COMPARE_WITH_TIMEOUT(sessions().status().value(errandsID), QStringLiteral("Running"), patience);
    QTRY_VERIFY_WITH_TIMEOUT(sessions().currentForm(errandsID, "add", "add").has_value(), patience);
    QTRY_VERIFY_WITH_TIMEOUT(!m_store->router().exported().isEmpty(), patience);
}

void tst_PluginForms::addErrand(const QString& title) {
    const PluginForm before = form();
    const QUuid id = sessions().submitForm(errandsID, before, errand(title));
    sessions().approveForm(errandsID, before, id);
    QTRY_COMPARE_WITH_TIMEOUT(phase(id), PluginRunPhase::succeeded, patience);
    QTRY_VERIFY_WITH_TIMEOUT(form().revision != before.revision, patience);
}

void tst_PluginForms::press(const QString& action, const std::function<bool(const PluginForm&)>& until) {
    m_store->press(errandsID, action);
    QTRY_VERIFY_WITH_TIMEOUT(until(form()), patience);
}

void tst_PluginForms::initTestCase() {
    QVERIFY(m_data.isValid());
    m_store = std::make_unique<NativePluginStore>(m_data.filePath(QStringLiteral("Plugins")));
    const QString bundle =
        qEnvironmentVariable("VELL_BUILD_DIR") + QStringLiteral("/examples/plugins/Errands.app");
    m_store->install(bundle, NativePluginBundle::inspect(bundle).fingerprint);
    waitForErrands();
}

void tst_PluginForms::cleanupTestCase() {
    m_store.reset();
}

void tst_PluginForms::submitThenApproveRunsOnce() {
    const qsizetype logged = errandsLog().size();
    const PluginForm shown = form();
    const QUuid id = sessions().submitForm(errandsID, shown, errand(QStringLiteral("Buy bread")));

    // A change waits for a person, and the plugin hears nothing of it yet.
    QCOMPARE(phase(id), PluginRunPhase::waitingReview);
    QCOMPARE(run(id)->caller, errandsID);
    QVERIFY(sessions().pendingForms().contains(id));
    QCOMPARE(sessions().pendingForms().value(id).form, shown);

    QCOMPARE(problemOf([&] { sessions().approveForm(errandsID, shown, id); }), QString());
    QTRY_COMPARE_WITH_TIMEOUT(phase(id), PluginRunPhase::succeeded, patience);
    const QList<ErrandsEntry> log = errandsLog();
    QCOMPARE(log.size(), logged + 1);
    QCOMPARE(log.last().run, id);
    QCOMPARE(log.last().action, QStringLiteral("add"));
    const QVariantMap expected{{QStringLiteral("title"), QStringLiteral("Buy bread")},
                               {QStringLiteral("cost"), 2.5},
                               {QStringLiteral("priority"), 4.0},
                               {QStringLiteral("urgent"), true},
                               {QStringLiteral("list"), QStringLiteral("Shopping")}};
    QCOMPARE(log.last().values, expected);

    // The errand is on the task list, and the form moved on to its next revision.
    QTRY_VERIFY_WITH_TIMEOUT(form().revision != shown.revision, patience);
    const PluginSnapshot snapshot = sessions().snapshots().value(errandsID);
    const PluginCollection tasks = *snapshot.panels->at(2).collection;
    QCOMPARE(tasks.items.last().title, QStringLiteral("Buy bread"));

    // Approved once is approved for good: a second approval finds nothing waiting.
    QCOMPARE(problemOf([&] { sessions().approveForm(errandsID, form(), id); }), changed);
    QCOMPARE(errandsLog().size(), logged + 1);
}

void tst_PluginForms::submitRefusals_data() {
    QTest::addColumn<QString>("change");
    QTest::addColumn<QString>("expected");
    QTest::addRow("plugin not running") << "stopped" << unavailable;
    QTest::addRow("form not in the snapshot") << "other form" << unavailable;
    QTest::addRow("a newer revision in the snapshot") << "stale" << unavailable;
    QTest::addRow("form disabled by the plugin") << "paused" << unavailable;
    QTest::addRow("a label other than shown, same revision") << "relabelled" << unavailable;
    QTest::addRow("number beyond the schema's bounds") << "priority 9"
                                                       << "Number is outside its limits.";
    QTest::addRow("text for a number") << "cost as text"
                                       << "Argument type does not match its schema.";
    QTest::addRow("required value missing") << "no title"
                                            << "Missing argument: title";
    QTest::addRow("displayed input without a value") << "no urgent"
                                                     << "Every displayed input needs a value.";
    QTest::addRow("value the schema does not name") << "extra"
                                                    << "Unexpected action arguments.";
    QTest::addRow("choice not offered") << "list Garage"
                                        << "Choose an available value.";
    QTest::addRow("every choice offered passes") << "list Work"
                                                 << "";
}

void tst_PluginForms::submitRefusals() {
    QFETCH(QString, change);
    QFETCH(QString, expected);
    PluginForm submitted = form();
    PluginValueMap values = errand(QStringLiteral("Post a letter"));
    if (change == u"stopped")
        sessions().stopWorker(errandsID);
    if (change == u"other form")
        submitted.id = QStringLiteral("remove");
    if (change == u"relabelled")
        submitted.inputs.first().label = QStringLiteral("Something else");
    if (change == u"stale")
        addErrand(QStringLiteral("Fetch the keys"));
    if (change == u"paused") {
        press(QStringLiteral("pauseAdding"), [](const PluginForm& f) { return !f.enabled; });
        submitted = form();
    }
    if (change == u"priority 9")
        values.insert(QStringLiteral("priority"), PluginValue::number(9));
    if (change == u"cost as text")
        values.insert(QStringLiteral("cost"), PluginValue::string(QStringLiteral("5")));
    if (change == u"no title")
        values.remove(QStringLiteral("title"));
    if (change == u"no urgent")
        values.remove(QStringLiteral("urgent"));
    if (change == u"extra")
        values.insert(QStringLiteral("colour"), PluginValue::string(QStringLiteral("red")));
    if (change.startsWith(u"list "))
        values.insert(QStringLiteral("list"), PluginValue::string(change.mid(5)));

    const qsizetype runs = m_store->router().runs().size();
    const qsizetype pending = sessions().pendingForms().size();
    QUuid id;
    QCOMPARE(problemOf([&] { id = sessions().submitForm(errandsID, submitted, values); }), expected);
    if (expected.isEmpty()) {
        QCOMPARE(phase(id), PluginRunPhase::waitingReview);
        m_store->router().cancel(id, NativePluginSessions::currentTime());
    } else {
        // Refused before the router: no run, nothing remembered.
        QCOMPARE(m_store->router().runs().size(), runs);
        QCOMPARE(sessions().pendingForms().size(), pending);
    }

    if (change == u"stopped") {
        m_store->restart(errandsID);
        waitForErrands();
    }
    if (change == u"paused")
        press(QStringLiteral("resumeAdding"), [](const PluginForm& f) { return f.enabled; });
}

// Waiting runs count as live, and the router takes 32 at most: the 33rd submit is refused by
// the router, and the form says so.
void tst_PluginForms::liveRunsAreBounded() {
    const PluginForm shown = form();
    QList<QUuid> waiting;
    for (int i = 0; i < 32; ++i) {
        QString problem = problemOf([&] {
            waiting.append(
                sessions().submitForm(errandsID, shown, errand(QStringLiteral("Errand %1").arg(i))));
        });
        QCOMPARE(problem, QString());
    }
    QCOMPARE(sessions().pendingForms().size(), 32);
    QCOMPARE(problemOf([&] { sessions().submitForm(errandsID, shown, errand(QStringLiteral("One more"))); }),
             QStringLiteral("The action could not be started."));
    for (const QUuid& id : waiting)
        m_store->router().cancel(id, NativePluginSessions::currentTime());
    // Ended runs leave the remembered forms at the next submit.
    const QUuid next = sessions().submitForm(errandsID, shown, errand(QStringLiteral("After the limit")));
    QCOMPARE(sessions().pendingForms().keys(), QList<QUuid>{next});
    m_store->router().cancel(next, NativePluginSessions::currentTime());
}

void tst_PluginForms::approvalNeedsTheSameForm_data() {
    QTest::addColumn<QString>("change");
    QTest::addRow("the view shows another version of the form") << "edited";
    QTest::addRow("another plugin's approval") << "plugin";
    QTest::addRow("the snapshot changed the form under review") << "paused";
}

void tst_PluginForms::approvalNeedsTheSameForm() {
    QFETCH(QString, change);
    const qsizetype logged = errandsLog().size();
    const PluginForm shown = form();
    const QUuid id = sessions().submitForm(errandsID, shown, errand(QStringLiteral("Wash the car")));
    PluginForm approved = shown;
    QString plugin = errandsID;
    if (change == u"edited")
        approved.title = QStringLiteral("Another title");
    if (change == u"plugin")
        plugin = QStringLiteral("app.ostavell.example.dice");
    if (change == u"paused") {
        press(QStringLiteral("pauseAdding"), [](const PluginForm& f) { return !f.enabled; });
        // The new snapshot alone has already ended the review.
        QCOMPARE(phase(id), PluginRunPhase::cancelled);
    }

    QCOMPARE(problemOf([&] { sessions().approveForm(plugin, approved, id); }), changed);
    QCOMPARE(phase(id), PluginRunPhase::cancelled);
    QCOMPARE(run(id)->update.message, QStringLiteral("Request declined before execution."));
    // Nothing reached the plugin: once it has answered a press sent after all this, its log
    // is still as it was.
    if (change != u"paused")
        press(QStringLiteral("pauseAdding"), [](const PluginForm& f) { return !f.enabled; });
    press(QStringLiteral("resumeAdding"), [](const PluginForm& f) { return f.enabled; });
    QCOMPARE(errandsLog().size(), logged);
}

void tst_PluginForms::formGoneCancelsTheWaitingRun() {
    const qsizetype logged = errandsLog().size();
    const PluginForm shown = form();
    const QUuid first = sessions().submitForm(errandsID, shown, errand(QStringLiteral("Mow the lawn")));
    const QUuid second = sessions().submitForm(errandsID, shown, errand(QStringLiteral("Rake the leaves")));

    // A new snapshot that keeps the form keeps its reviews.
    const PluginSnapshot before = sessions().snapshots().value(errandsID);
    m_store->press(errandsID, QStringLiteral("markAllRead"));
    QTRY_VERIFY_WITH_TIMEOUT(sessions().snapshots().value(errandsID) != before, patience);
    QCOMPARE(phase(first), PluginRunPhase::waitingReview);
    QCOMPARE(phase(second), PluginRunPhase::waitingReview);

    // Approved from the review list, the first runs and the form moves on: the second, waiting
    // on the form that is gone, is cancelled without running.
    QCOMPARE(m_store->approve(uuidText(first)), QString());
    QTRY_COMPARE_WITH_TIMEOUT(phase(first), PluginRunPhase::succeeded, patience);
    QTRY_COMPARE_WITH_TIMEOUT(phase(second), PluginRunPhase::cancelled, patience);
    QCOMPARE(m_store->approve(uuidText(second)), changed);
    const QList<ErrandsEntry> log = errandsLog();
    QCOMPARE(log.size(), logged + 1);
    QCOMPARE(log.last().run, first);
}

QTEST_GUILESS_MAIN(tst_PluginForms)
#include "tst_PluginForms.moc"
