// Workflows with the real Dice plugin, the real router and its files, and the Automations tab in
// a real window: a reviewed action approved from the tab, a checkpoint continued from it, and an
// event workflow that runs once per roll and never for a replayed event. Dice writes a line for
// every action it runs, so what ran is counted by the provider itself.

#include "OstaVell/Features/Automations/AutomationStore.h"
#include "OstaVell/Modules/Plugins/NativePluginStore.h"

#include <QApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickStyle>
#include <QTest>

#include "../../QuickTestSupport.h"
#include "DiceLog.h"

using namespace vell;
using namespace vell::test;

namespace {

using Kind = WorkflowNode::Configuration::Kind;
using Operation = PluginBusMessage::Operation;
const QString& dice = diceID;
const QString automations = "local.ostavell.automations";

qsizetype logged(const QString& action) {
    const QStringList lines = diceLog();
    return std::count_if(lines.cbegin(), lines.cend(),
                         [&](const QString& line) { return line.endsWith(u' ' + action); });
}

PluginCatalogEntry diceEntry(const QString& name) {
    for (const PluginCatalogEntry& entry : NativePluginStore::instance()->router().exported())
        if (entry.address == PluginActionAddress{dice, name})
            return entry;
    return {};
}

PluginBusMessage bus(Operation operation) {
    PluginBusMessage message;
    message.operation = operation;
    message.requestID = QUuid::createUuid();
    return message;
}

WorkflowNode node(const QString& id, Kind kind, const QString& title) {
    WorkflowNode node;
    node.id = id;
    node.data.kind = kind;
    node.data.title = title;
    return node;
}

WorkflowNode diceStep(const QString& id, const QString& name, const QString& title) {
    const PluginCatalogEntry entry = diceEntry(name);
    WorkflowNode step = node(id, entry.channel ? Kind::event : Kind::action, title);
    step.data.address = entry.address;
    step.data.action = entry.action;
    step.data.channel = entry.channel;
    return step;
}

WorkflowDocument chain(const QString& title, const QList<WorkflowNode>& nodes) {
    WorkflowDocument flow{1, QUuid::createUuid(), title, nodes, {}};
    for (qsizetype i = 1; i < nodes.size(); ++i)
        flow.edges.append(WorkflowEdge::connecting(nodes[i - 1].id, nodes[i].id, "next"));
    return flow;
}

} // namespace

class AutomationsEndToEnd final : public QObject {
    Q_OBJECT

    QQmlEngine m_engine;
    std::unique_ptr<AutomationStore> m_store;
    std::unique_ptr<QQuickWindow> m_window;

private slots:
    void initTestCase() {
        QQuickStyle::setStyle("Material");
        m_engine.addImportPath("qrc:/qt/qml");
        NativePluginStore* plugins = NativePluginStore::instance();
        plugins->start();
        QCOMPARE(plugins->review(QUrl::fromLocalFile(qEnvironmentVariable("VELL_BUILD_DIR") +
                                                     "/examples/plugins/Dice.app")),
                 QString());
        QCOMPARE(plugins->installReviewed(), QString());
        QTRY_VERIFY_WITH_TIMEOUT(diceEntry("rolled").channel, 30000);
        m_store = std::make_unique<AutomationStore>(plugins->sessions());
        AutomationStore::setInstance(m_store.get());
        m_store->start();

        QQmlComponent component(&m_engine);
        component.setData("import QtQuick\nimport OstaVell.Automations\n"
                          "Window { visible: true; width: 760; height: 440; color: '#18181c'\n"
                          "  AutomationsView { objectName: 'tab'; anchors.fill: parent\n"
                          "    controller: QtObject { property color accentColor: '#C7EB87' } } }",
                          QUrl());
        m_window.reset(qobject_cast<QQuickWindow*>(component.create()));
        QVERIFY2(m_window, qPrintable(component.errorString()));
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get(), 20000));
    }
    void cleanupTestCase() {
        m_window.reset();
        m_store.reset();
        NativePluginStore::instance()->stop();
    }

    // Run from the tab; the reviewed action waits for "Allow Once"; the checkpoint for
    // "Continue"; the router's history keeps who ran what, without arguments or results.
    void reviewedActionAndCheckpointFromTheTab() {
        NativePluginStore* plugins = NativePluginStore::instance();
        QCOMPARE(plugins->setAllowed(automations, dice, "clear", false, true), QString());
        const WorkflowDocument flow =
            chain("Tidy the table",
                  {node("start", Kind::manual, "When I run it"), diceStep("clear", "clear", "Clear the die"),
                   node("look", Kind::review, "Is the table tidy?")});
        m_store->save(flow);
        QQuickItem* tab = m_window->contentItem();
        QQuickItem* entry = nullptr;
        QTRY_VERIFY(entry = findItem(tab, "workflow:Tidy the table"));
        QVERIFY(drawn(m_window.get()));
        QVERIFY(click(m_window.get(), findItem(entry, "run")));

        QTRY_VERIFY_WITH_TIMEOUT(m_store->actionReview(), 20000);
        QQuickItem* approve = nullptr;
        QTRY_VERIFY(approve = shown(tab, "approve"));
        QCOMPARE(logged("clear"), 0);
        screenshot(m_window.get(), "automations-review");
        QVERIFY(click(m_window.get(), approve));

        QQuickItem* proceed = nullptr;
        QTRY_VERIFY_WITH_TIMEOUT(proceed = shown(tab, "continue"), 20000);
        QCOMPARE(logged("clear"), 1);
        screenshot(m_window.get(), "automations-checkpoint");
        QVERIFY(click(m_window.get(), proceed));
        QTRY_COMPARE(m_store->message(), "Workflow completed");
        QCOMPARE(m_store->history().last().phase, "completed");
        screenshot(m_window.get(), "automations-completed");

        QFile history(NativePluginStore::defaultRouterDirectory() + "/action-history-v1.json");
        QVERIFY(history.open(QIODevice::ReadOnly));
        const QJsonArray summaries = QJsonDocument::fromJson(history.readAll()).array();
        const QJsonObject last = summaries.last().toObject();
        QCOMPARE(last.value("caller").toString(), automations);
        QCOMPARE(last.value("address").toObject().value("name").toString(), "clear");
        for (const char* key : {"arguments", "values", "outputs"})
            QVERIFY2(!last.contains(QLatin1String(key)), key);
        QCOMPARE(logged("clear"), 1);
    }

    // A file dialog exists only while it is open.
    void dialogsComeAndGo() {
        QQuickItem* tab = findItem(m_window->contentItem(), "tab");
        const auto dialogs = [&] {
            QList<QObject*> found;
            for (QObject* child : tab->children())
                if (child->inherits("QQuickFileDialog"))
                    found.append(child);
            return found;
        };
        QVERIFY(dialogs().isEmpty());
        QVERIFY(click(m_window.get(), findItem(tab, "import")));
        QTRY_COMPARE(dialogs().size(), 1);
        QVERIFY(QMetaObject::invokeMethod(dialogs().first(), "reject"));
        QTRY_VERIFY(dialogs().isEmpty());
    }

    // Titles, details, notices and messages come from workflows and plugins: no text of the tab
    // may guess rich text, which would fetch remote images.
    void everyTextIsPlain() {
        QList<QQuickItem*> items{m_window->contentItem()};
        int texts = 0;
        while (!items.isEmpty()) {
            QQuickItem* item = items.takeLast();
            items += item->childItems();
            if (qstrcmp(item->metaObject()->className(), "QQuickText") != 0)
                continue;
            ++texts;
            QVERIFY2(item->property("textFormat").toInt() == Qt::PlainText,
                     qPrintable(item->property("text").toString()));
        }
        QVERIFY(texts > 10);
    }

    // Each roll of the die runs the armed workflow once; the same event sent again does not.
    void eventWorkflowRunsOncePerEvent() {
        NativePluginStore* plugins = NativePluginStore::instance();
        ActionRouter& router = plugins->router();
        QCOMPARE(plugins->setAllowed(automations, dice, "rolled", true, true), QString());
        QCOMPARE(plugins->setAllowed(automations, dice, "roll", false, true), QString());
        const WorkflowDocument flow =
            chain("Roll again", {diceStep("start", "rolled", "When the die is rolled"),
                                 diceStep("again", "roll", "Roll once more")});
        m_store->save(flow);
        m_store->setArmed(flow, true);

        // A second watcher of the channel hears what the workflow hears, with its request id.
        QList<PluginBusMessage> heard;
        const QString watcher = "cafe.watcher";
        PluginBusMessage registration = bus(Operation::register_);
        registration.registration = PluginRegistration{};
        plugins->sessions().joinLocal(
            watcher, "Watcher", "watcher-v1",
            [&](const PluginBusMessage& message) {
                if (message.operation == Operation::event)
                    heard.append(message);
            },
            registration);
        QCOMPARE(plugins->setAllowed(watcher, dice, "rolled", true, true), QString());
        PluginBusMessage subscribe = bus(Operation::subscribe);
        subscribe.address = PluginActionAddress{dice, "rolled"};
        router.receive(subscribe, watcher, NativePluginSessions::currentTime());

        const qsizetype runs = m_store->history().size();
        plugins->press(dice, "roll");
        QTRY_VERIFY_WITH_TIMEOUT(
            heard.size() == 1 && m_store->history().size() == runs + 1 && !m_store->busy(), 20000);
        QCOMPARE(m_store->history().last().phase, "completed");
        QCOMPARE(logged("roll"), 1);

        // The same event again, as a faulty or hostile provider might send it.
        PluginBusMessage replay = heard.first();
        replay.operation = Operation::publish;
        router.receive(replay, dice, NativePluginSessions::currentTime());
        QTRY_COMPARE(heard.size(), 2);
        QCoreApplication::processEvents();
        QCOMPARE(m_store->history().size(), runs + 1);

        plugins->press(dice, "roll");
        QTRY_VERIFY_WITH_TIMEOUT(m_store->history().size() == runs + 2 && !m_store->busy(), 20000);
        QCOMPARE(logged("roll"), 2);
    }
};

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    AutomationsEndToEnd test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "tst_AutomationsEndToEnd.moc"
