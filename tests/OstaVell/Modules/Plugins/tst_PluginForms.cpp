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
using namespace Qt::StringLiterals;

namespace {

constexpr int patience = 30000;
const QString unavailable = u"This form changed or is unavailable. Review the current values."_s;
const QString changed = u"This form changed. Review the current values before trying again."_s;

PluginValueMap errand(const QString& title) {
    return {{u"title"_s, PluginValue::string(title)},
            {u"cost"_s, PluginValue::number(2.5)},
            {u"priority"_s, PluginValue::number(4)},
            {u"urgent"_s, PluginValue::boolean(true)},
            {u"list"_s, PluginValue::string(u"Shopping"_s)}};
}

bool paused(const PluginForm& form) {
    return !form.enabled;
}

bool resumed(const PluginForm& form) {
    return form.enabled;
}

} // namespace

class tst_PluginForms final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { m_store.reset(); }
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
    std::optional<ActionRun> run(const QUuid& id) const {
        for (const ActionRun& candidate : m_store->router().runs())
            if (candidate.id == id)
                return candidate;
        return std::nullopt;
    }
    PluginRunPhase phase(const QUuid& id) const {
        return run(id) ? run(id)->phase() : PluginRunPhase::interrupted;
    }
    QUuid submit(const QString& title) { return sessions().submitForm(errandsID, form(), errand(title)); }
    void cancel(const QUuid& id) { m_store->router().cancel(id, NativePluginSessions::currentTime()); }
    void waitForErrands();
    // Errands answers the press with a new snapshot whose form passes the check.
    void press(const QString& action, bool (*until)(const PluginForm&)) {
        m_store->press(errandsID, action);
        QTRY_VERIFY_WITH_TIMEOUT(until(form()), patience);
    }

    QTemporaryDir m_data;
    std::unique_ptr<NativePluginStore> m_store;
};

void tst_PluginForms::waitForErrands() {
    QTRY_COMPARE_WITH_TIMEOUT(sessions().status().value(errandsID), u"Running"_s, patience);
    QTRY_VERIFY_WITH_TIMEOUT(sessions().currentForm(errandsID, "add", "add").has_value(), patience);
    QTRY_VERIFY_WITH_TIMEOUT(!m_store->router().exported().isEmpty(), patience);
}

void tst_PluginForms::initTestCase() {
    QVERIFY(m_data.isValid());
    m_store = std::make_unique<NativePluginStore>(m_data.filePath(u"Plugins"_s));
    const QString bundle = qEnvironmentVariable("VELL_BUILD_DIR") + u"/examples/plugins/Errands.app"_s;
    m_store->install(bundle, NativePluginBundle::inspect(bundle).fingerprint);
    waitForErrands();
}

void tst_PluginForms::submitThenApproveRunsOnce() {
    const qsizetype logged = errandsLog().size();
    const PluginForm shown = form();
    const QUuid id = submit(u"Buy bread"_s);

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
    QCOMPARE(log.last().action, u"add"_s);
    const QVariantMap expected{
        {"title", "Buy bread"}, {"cost", 2.5}, {"priority", 4.0}, {"urgent", true}, {"list", "Shopping"}};
    QCOMPARE(log.last().values, expected);

    // The errand is on the task list, and the form moved on to its next revision.
    QTRY_VERIFY_WITH_TIMEOUT(form().revision != shown.revision, patience);
    const PluginSnapshot snapshot = sessions().snapshots().value(errandsID);
    QCOMPARE(snapshot.panels->at(2).collection->items.last().title, u"Buy bread"_s);

    // Approved once is approved for good: a second approval finds nothing waiting.
    QCOMPARE(problemOf([&] { sessions().approveForm(errandsID, form(), id); }), changed);
    QCOMPARE(errandsLog().size(), logged + 1);
}

void tst_PluginForms::submitRefusals_data() {
    QTest::addColumn<QString>("change");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("expected");
    const auto refused = [](const char* name, const QString& change, const QString& expected) {
        QTest::addRow("%s", name) << change << QString() << QVariant() << expected;
    };
    // The value of key changed to value, or gone when there is none.
    const auto value = [](const char* name, const QString& key, const QVariant& value,
                          const QString& expected) {
        QTest::addRow("%s", name) << QString() << key << value << expected;
    };
    refused("plugin not running", u"stopped"_s, unavailable);
    refused("form not in the snapshot", u"other form"_s, unavailable);
    refused("a newer revision in the snapshot", u"stale"_s, unavailable);
    refused("form disabled by the plugin", u"paused"_s, unavailable);
    refused("a label other than shown, same revision", u"relabelled"_s, unavailable);
    value("number beyond the schema's bounds", u"priority"_s, 9.0, u"Number is outside its limits."_s);
    value("text for a number", u"cost"_s, u"5"_s, u"Argument type does not match its schema."_s);
    value("required value missing", u"title"_s, QVariant(), u"Missing argument: title"_s);
    value("displayed input without a value", u"urgent"_s, QVariant(),
          u"Every displayed input needs a value."_s);
    value("value the schema does not name", u"colour"_s, u"red"_s, u"Unexpected action arguments."_s);
    value("choice not offered", u"list"_s, u"Garage"_s, u"Choose an available value."_s);
    value("every choice offered passes", u"list"_s, u"Work"_s, QString());
}

void tst_PluginForms::submitRefusals() {
    QFETCH(QString, change);
    QFETCH(QString, key);
    QFETCH(QVariant, value);
    QFETCH(QString, expected);
    PluginForm submitted = form();
    if (change == u"stale") {
        // Another errand added: the form the view showed is a revision behind.
        const QUuid added = submit(u"Fetch the keys"_s);
        sessions().approveForm(errandsID, submitted, added);
        QTRY_VERIFY_WITH_TIMEOUT(form().revision != submitted.revision, patience);
    }
    PluginValueMap values = errand(u"Post a letter"_s);
    if (change == u"stopped")
        sessions().stopWorker(errandsID);
    if (change == u"other form")
        submitted.id = u"remove"_s;
    if (change == u"relabelled")
        submitted.inputs.first().label = u"Something else"_s;
    if (change == u"paused") {
        press(u"pauseAdding"_s, paused);
        submitted = form();
    }
    if (!value.isValid())
        values.remove(key);
    else if (!key.isEmpty())
        values.insert(key, value.typeId() == QMetaType::Double ? PluginValue::number(value.toDouble())
                                                               : PluginValue::string(value.toString()));

    const qsizetype runs = m_store->router().runs().size();
    const qsizetype pending = sessions().pendingForms().size();
    QUuid id;
    QCOMPARE(problemOf([&] { id = sessions().submitForm(errandsID, submitted, values); }), expected);
    if (expected.isEmpty()) {
        QCOMPARE(phase(id), PluginRunPhase::waitingReview);
        cancel(id);
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
        press(u"resumeAdding"_s, resumed);
}

// Waiting runs count as live, and the router takes 32 at most: the 33rd submit is refused by
// the router, and the form says so.
void tst_PluginForms::liveRunsAreBounded() {
    QList<QUuid> waiting;
    for (int i = 0; i < 32; ++i)
        QCOMPARE(problemOf([&] { waiting.append(submit(u"Errand %1"_s.arg(i))); }), QString());
    QCOMPARE(sessions().pendingForms().size(), 32);
    QCOMPARE(problemOf([&] { submit(u"One more"_s); }), u"The action could not be started."_s);
    for (const QUuid& id : waiting)
        cancel(id);
    // Ended runs leave the remembered forms at the next submit.
    const QUuid next = submit(u"After the limit"_s);
    QCOMPARE(sessions().pendingForms().keys(), QList<QUuid>{next});
    cancel(next);
}

void tst_PluginForms::approvalNeedsTheSameForm_data() {
    QTest::addColumn<QString>("change");
    QTest::addRow("the view shows another version of the form") << u"edited"_s;
    QTest::addRow("another plugin's approval") << u"plugin"_s;
    QTest::addRow("the snapshot changed the form under review") << u"paused"_s;
}

void tst_PluginForms::approvalNeedsTheSameForm() {
    QFETCH(QString, change);
    const qsizetype logged = errandsLog().size();
    PluginForm approved = form();
    const QUuid id = submit(u"Wash the car"_s);
    QString plugin = errandsID;
    if (change == u"edited")
        approved.title = u"Another title"_s;
    if (change == u"plugin")
        plugin = u"app.ostavell.example.dice"_s;
    if (change == u"paused") {
        press(u"pauseAdding"_s, paused);
        // The new snapshot alone has already ended the review.
        QCOMPARE(phase(id), PluginRunPhase::cancelled);
    }

    QCOMPARE(problemOf([&] { sessions().approveForm(plugin, approved, id); }), changed);
    QCOMPARE(phase(id), PluginRunPhase::cancelled);
    QCOMPARE(run(id)->update.message, u"Request declined before execution."_s);
    // Nothing reached the plugin: once it has answered a press sent after all this, its log
    // is still as it was.
    if (change != u"paused")
        press(u"pauseAdding"_s, paused);
    press(u"resumeAdding"_s, resumed);
    QCOMPARE(errandsLog().size(), logged);
}

void tst_PluginForms::formGoneCancelsTheWaitingRun() {
    const qsizetype logged = errandsLog().size();
    const QUuid first = submit(u"Mow the lawn"_s);
    const QUuid second = submit(u"Rake the leaves"_s);

    // A new snapshot that keeps the form keeps its reviews.
    const PluginSnapshot before = sessions().snapshots().value(errandsID);
    m_store->press(errandsID, u"markAllRead"_s);
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
