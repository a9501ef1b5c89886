// The notes view and its settings pane in real windows on the shared store: a note made, typed,
// listed by its first line, deleted from its menu; and every text drawn as plain text.

#include "OstaVell/Features/Notes/NotesStore.h"

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
Q_IMPORT_QML_PLUGIN(OstaVell_NotesPlugin)

using namespace vell;
using namespace vell::test;

class tst_NotesViews final : public QObject {
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
    static void type(QWindow* window, const char* text) {
        for (const char* key = text; *key; ++key) {
            if (*key == '\n')
                QTest::keyClick(window, Qt::Key_Return);
            else
                QTest::keyClick(window, *key);
        }
    }
    static QByteArray saved() {
        QFile file(NotesStore::instance()->filePath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private slots:
    void initTestCase() {
        QQuickStyle::setStyle(QStringLiteral("Material"));
        m_engine.addImportPath(QStringLiteral("qrc:/qt/qml"));
        QTest::failOnWarning(QRegularExpression("qrc:/qt/qml/OstaVell/Notes/"));
    }

    void cleanupTestCase() { m_windows.clear(); }

    void theListBesideTheEditor() {
        NotesStore* store = NotesStore::instance();
        QQuickWindow* view = show("import QtQuick\nimport OstaVell.Notes\n"
                                  "Window { width: 720; height: 330; visible: true; color: '#111111'\n"
                                  "  NotesView { anchors.fill: parent } }");
        QVERIFY(view);
        QQuickItem* root = view->contentItem();
        QVERIFY(shown(root, "noNotes"));
        QVERIFY(shown(root, "noSelection"));

        // A new note is selected and takes the keys; its first line names it in the list.
        view->requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(view));
        QVERIFY(click(view, findItem(root, "newNote")));
        QTRY_COMPARE(store->notes().size(), 1);
        QTRY_VERIFY(shown(root, "placeholder"));
        QVERIFY(!shown(root, "noSelection"));
        QTRY_VERIFY(findItem(root, "editor")->hasActiveFocus());
        type(view, "\n  Groceries\nmilk, bread");
        QTRY_COMPARE(store->notes().first().text, "\n  Groceries\nmilk, bread");
        QTRY_VERIFY(findItem(root, "note:Groceries"));
        QVERIFY(!shown(root, "placeholder"));
        // A moment after the last key it is on disk.
        QTRY_VERIFY(!store->dirty());
        QVERIFY(saved().contains("milk, bread"));

        // Another note, chosen in the list: the editor shows its text.
        const QUuid other = *store->addNote("<b>Bold?</b>\n<img src=\"http://127.0.0.1:9/x.png\">");
        QTRY_VERIFY(findItem(root, "note:<b>Bold?</b>"));
        QVERIFY(drawn(view));
        QVERIFY(click(view, findItem(root, "note:<b>Bold?</b>")));
        QTRY_COMPARE(store->selectedNoteID(), other.toString(QUuid::WithoutBraces).toUpper());
        QTRY_COMPARE(findItem(root, "editor")->property("text").toString(), store->note(other)->text);
        verifyPlainText(root);

        store->setSortOrder("alphabetical");
        QVERIFY(drawn(view));
        QCOMPARE(findItems(root, "note:").first()->objectName(), "note:<b>Bold?</b>");
        screenshot(view, "notes-view");

        // Deleted from its menu: the next note is chosen.
        QTest::mouseClick(view, Qt::RightButton, {},
                          findItem(root, "note:<b>Bold?</b>")->mapToScene({20, 20}).toPoint());
        QTRY_VERIFY(shown(root, "menuDelete"));
        QVERIFY(click(view, findItem(root, "menuDelete")));
        QTRY_COMPARE(store->notes().size(), 1);
        QTRY_VERIFY(findItem(root, "editor")->property("text").toString().contains("Groceries"));
    }

    void theSettingsPane() {
        QQuickWindow* window =
            show("import QtQuick\nimport QtQuick.Controls.Material\nimport OstaVell.Notes\n"
                 "Window { width: 640; height: 360; visible: true; color: '#1c1c1e'\n"
                 "  Material.theme: Material.Dark\n"
                 "  NotesSettingsPane { anchors.fill: parent } }");
        QVERIFY(window);
        QQuickItem* order = findItem(window->contentItem(), "sortOrder");
        NotesStore::instance()->setSortOrder("recentlyCreated");
        QTRY_COMPARE(order->property("displayText").toString(), "Recently Created");
        QCOMPARE(findItem(window->contentItem(), "reveal")->property("text").toString(),
                 "Show Notes File in File Manager");
        screenshot(window, "notes-settings");
    }
};

QTEST_MAIN(tst_NotesViews)
#include "tst_NotesViews.moc"
