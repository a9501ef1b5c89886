// The to-do widget, its wing and its settings pane in real windows on the shared store: what a
// person types and clicks reaches the store, and what the store holds is drawn as plain text.

#include "OstaVell/Features/Todos/TodosStore.h"

#include <QFile>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QRegularExpression>
#include <QtQml/qqmlextensionplugin.h>
#include <QtTest>

#include "QuickTestSupport.h"

Q_IMPORT_QML_PLUGIN(OstaVell_SupportPlugin)
Q_IMPORT_QML_PLUGIN(OstaVell_TodosPlugin)

using namespace vell;
using namespace vell::test;

class tst_TodosViews final : public QObject {
    Q_OBJECT

    QQmlEngine m_engine;
    std::vector<std::unique_ptr<QQuickWindow>> m_windows;

    QQuickWindow* show(const QByteArray& qml) {
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
        return QTest::qWaitForWindowExposed(window, 20000) ? window : nullptr;
    }
    // Keys as a keyboard sends them, one at a time.
    static void type(QWindow* window, const char* text) {
        for (const char* key = text; *key; ++key)
            QTest::keyClick(window, *key);
    }
    static QString idOf(const QString& title) {
        for (const TodoItem& item : TodosStore::instance()->todos())
            if (item.title == title)
                return item.id.toString();
        return {};
    }

private slots:
    void initTestCase() {
        QQuickStyle::setStyle(QStringLiteral("Material"));
        m_engine.addImportPath(QStringLiteral("qrc:/qt/qml"));
        // Any complaint of our views' code (a failed binding, a missing property) fails the test.
        QTest::failOnWarning(QRegularExpression("qrc:/qt/qml/OstaVell/Todos/"));
    }

    void cleanupTestCase() { m_windows.clear(); }

    void theListTheWingAndThePane() {
        TodosStore* store = TodosStore::instance();
        store->setShowArchived(true);
        store->setAutoArchiveHours(1);
        QQuickWindow* view = show("import QtQuick\nimport OstaVell.Todos\n"
                                  "Window { width: 720; height: 330; visible: true; color: '#111111'\n"
                                  "  TodosView { anchors.fill: parent } }");
        QQuickWindow* wing =
            show("import QtQuick\nimport OstaVell.Todos\n"
                 "Window { width: 120; height: 30; x: 0; y: 400; visible: true; color: 'black'\n"
                 "  TodoCountWing { id: w; objectName: 'wing'; x: 10; anchors.verticalCenter: "
                 "parent.verticalCenter } }");
        QVERIFY(view && wing);
        QQuickItem* root = view->contentItem();
        QVERIFY(shown(root, "allClear"));
        QCOMPARE(findItem(wing->contentItem(), "wing")->implicitWidth(), 0.0);

        // Typed and added with Return; a title of spaces adds nothing.
        view->requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(view));
        QVERIFY(click(view, findItem(root, "addField")));
        type(view, "Water the plants");
        QTRY_VERIFY(shown(root, "hint"));
        QTest::keyClick(view, Qt::Key_Return);
        QTRY_COMPARE(store->todos().size(), 1);
        QCOMPARE(findItem(root, "addField")->property("text").toString(), QString());
        type(view, "   ");
        QTest::keyClick(view, Qt::Key_Return);
        QCOMPARE(store->todos().size(), 1);
        QCOMPARE(findItem(root, "addField")->property("text").toString(), QString());
        for (const char* title :
             {"Call the bank", "<img src=\"http://127.0.0.1:9/x.png\"><b>Loud</b>", "Pay rent"})
            QVERIFY(store->add(title));
        QTRY_VERIFY(findItem(root, "todo:Pay rent"));
        QCOMPARE(findItem(root, "openCount")->property("text").toString(), "4 open");
        QTRY_COMPARE(findItem(wing->contentItem(), "todoCountText")->property("text").toString(), "4");

        // Done: struck through, still listed, counted as done. (Rows take their places when a
        // frame is drawn.)
        QVERIFY(drawn(view));
        QQuickItem* bank = findItem(root, "todo:Call the bank");
        QVERIFY(click(view, findItem(bank, "done")));
        QTRY_VERIFY(store->todos().at(1).done);
        QVERIFY(findItem(bank, "title")->property("font").value<QFont>().strikeOut());
        QCOMPARE(findItem(root, "doneCount")->property("text").toString(), "1 done");
        QTRY_COMPARE(findItem(wing->contentItem(), "todoCountText")->property("text").toString(), "3");

        // "Pin to top" from the row's menu puts it first.
        QVERIFY(drawn(view));
        QVERIFY(click(view, findItem(findItem(root, "todo:Pay rent"), "more")));
        // The menu stands in the window's overlay, under its content.
        QTRY_VERIFY(shown(root, "menuFavorite"));
        QQuickItem* pin = findItem(root, "menuFavorite");
        QCOMPARE(pin->property("text").toString(), "Pin to top");
        // Once the menu's opening has played out.
        QQuickItem* popup = pin;
        while (popup && !popup->inherits("QQuickPopupItem"))
            popup = popup->parentItem();
        QVERIFY(popup);
        QTRY_COMPARE(popup->opacity(), 1.0);
        QTRY_COMPARE(popup->scale(), 1.0);
        screenshot(view, "todos-menu");
        QVERIFY(click(view, pin));
        QTRY_VERIFY(store->todos().at(3).favorite);
        QTRY_COMPARE(findItems(root, "todo:").first()->objectName(), "todo:Pay rent");

        // Swept into the archive, and restored from it.
        QVERIFY(store->archiveSweep(QDateTime::currentDateTimeUtc().addSecs(7200)));
        QTRY_VERIFY(shown(root, "archivedHeader"));
        QVERIFY(shown(root, "archived:Call the bank"));
        QVERIFY(!findItem(root, "todo:Call the bank"));
        QVERIFY(store->add("Archived soon"));
        QVERIFY(store->toggleDone(idOf("Archived soon")));
        QVERIFY(store->archiveSweep(QDateTime::currentDateTimeUtc().addSecs(7200)));
        QTRY_VERIFY(shown(root, "archived:Archived soon"));
        QVERIFY(drawn(view));
        QVERIFY(click(view, findItem(findItem(root, "archived:Call the bank"), "restore")));
        QTRY_VERIFY(findItem(root, "todo:Call the bank"));
        QVERIFY(!store->todos().last().done);

        QVERIFY(store->toggleDone(idOf("Water the plants")));
        verifyPlainText(root);
        verifyPlainText(wing->contentItem());
        screenshot(view, "todos-view");
        screenshot(wing, "todos-wing");

        QVERIFY(drawn(view));
        QVERIFY(click(view, findItem(findItem(root, "archived:Archived soon"), "deletePermanently")));
        QTRY_VERIFY(store->archived().isEmpty());
        QTRY_VERIFY(!shown(root, "archivedHeader"));

        // Everything done: the wing has nothing to show.
        const QList<TodoItem> items = store->todos();
        for (const TodoItem& item : items)
            if (!item.done)
                store->toggleDone(item.id.toString());
        QTRY_COMPARE(findItem(wing->contentItem(), "wing")->implicitWidth(), 0.0);
    }

    void theSettingsPane() {
        // Dark, as the settings window is.
        QQuickWindow* window =
            show("import QtQuick\nimport QtQuick.Controls.Material\nimport OstaVell.Todos\n"
                 "Window { width: 640; height: 360; visible: true; color: '#1c1c1e'\n"
                 "  Material.theme: Material.Dark\n"
                 "  TodosSettingsPane { anchors.fill: parent } }");
        QVERIFY(window);
        QQuickItem* picker = findItem(window->contentItem(), "autoArchive");
        QVERIFY(picker);
        TodosStore::instance()->setAutoArchiveHours(168);
        QTRY_COMPARE(picker->property("displayText").toString(), "After 1 week");
        TodosStore::instance()->setAutoArchiveHours(0);
        QTRY_COMPARE(picker->property("displayText").toString(), "Never");
        screenshot(window, "todos-settings");
    }
};

QTEST_MAIN(tst_TodosViews)
#include "tst_TodosViews.moc"
