// The Shortcuts widget and its settings pane in real windows, on the shared manager with the real
// ostavell-shortcuts and this session's private shortcuts folder: a press runs, the chip shows how
// it ended, the search narrows the chips, and names (one of them markup) are drawn as plain text.

#include "OstaVell/Features/ShortcutsRunner/ShortcutsManager.h"

#include <QDir>
#include <QFile>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QtQml/qqmlextensionplugin.h>
#include <QtTest>

#include "QuickTestSupport.h"

Q_IMPORT_QML_PLUGIN(OstaVell_SupportPlugin)
Q_IMPORT_QML_PLUGIN(OstaVell_ShortcutsRunnerPlugin)

using namespace vell;
using namespace vell::test;

class tst_ShortcutsViews final : public QObject {
    Q_OBJECT

    QQmlEngine m_engine;
    std::vector<std::unique_ptr<QQuickWindow>> m_windows;
    QString m_folder;

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
    bool shortcut(const QString& name, const QByteArray& body) {
        QFile file(m_folder + u'/' + name);
        if (!file.open(QIODevice::WriteOnly) || file.write("#!/bin/sh\n" + body) < 0)
            return false;
        file.close();
        return file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

private slots:
    void initTestCase() {
        QQuickStyle::setStyle(QStringLiteral("Material"));
        m_engine.addImportPath(QStringLiteral("qrc:/qt/qml"));
        QTest::failOnWarning(QRegularExpression("qrc:/qt/qml/OstaVell/ShortcutsRunner/"));
        m_folder =
            QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + "/OstaVell/Shortcuts";
        QVERIFY(QDir().mkpath(m_folder));
    }

    void cleanupTestCase() { m_windows.clear(); }

    void theWidget() {
        ShortcutsManager* manager = ShortcutsManager::instance();
        // Outcomes stay while the pictures are taken.
        manager->timing.flash = std::chrono::minutes(5);
        QQuickWindow* view = show("import QtQuick\nimport OstaVell.ShortcutsRunner\n"
                                  "Window { width: 720; height: 330; visible: true; color: '#111111'\n"
                                  "  ShortcutsView { anchors.fill: parent } }");
        QVERIFY(view);
        QQuickItem* root = view->contentItem();
        // Opened on an empty folder: the first empty state.
        QTRY_COMPARE(manager->loadState(), ShortcutsManager::LoadState::loaded);
        QCOMPARE(findItem(root, "emptyTitle")->property("text").toString(), "No Shortcuts Yet");
        QCOMPARE(findItem(root, "emptyMessage")->property("text").toString(),
                 "Create shortcuts in the Shortcuts app and they will show up here.");
        screenshot(view, "shortcuts-empty");

        QVERIFY(shortcut("Say Hello", "exit 0\n"));
        QVERIFY(shortcut("Broken", "exit 3\n"));
        QVERIFY(shortcut("Back Up Photos", "exit 0\n"));
        QVERIFY(shortcut("<font color=red><b>Markup", "exit 0\n"));
        manager->refresh();
        QTRY_VERIFY(findItem(root, "shortcut:Say Hello"));
        QVERIFY(!shown(root, "emptyState"));
        manager->toggleFavorite("Back Up Photos");
        QVERIFY(drawn(view));
        QCOMPARE(findItems(root, "shortcut:").size(), 4);

        QSignalSpy finished(manager, &ShortcutsManager::runFinished);
        QVERIFY(click(view, findItem(root, "shortcut:Say Hello")));
        QVERIFY(finished.wait(30000));
        QVERIFY(click(view, findItem(root, "shortcut:Broken")));
        QVERIFY(finished.wait(30000));
        QCOMPARE(manager->recentOutcomes(), QVariantMap({{"Say Hello", "success"}, {"Broken", "failure"}}));
        QTRY_COMPARE(findItem(findItem(root, "shortcut:Broken"), "state")->property("name").toString(),
                     "exclamationmark.triangle");
        QCOMPARE(findItem(findItem(root, "shortcut:Say Hello"), "state")->property("name").toString(),
                 "checkmark.circle.fill");
        verifyPlainText(root);
        screenshot(view, "shortcuts-view");

        // The search narrows the chips.
        view->requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(view));
        QVERIFY(click(view, findItem(root, "search")));
        for (const char key : QByteArray("HEL"))
            QTest::keyClick(view, key);
        QTRY_COMPARE(manager->searchText(), "HEL");
        QTRY_COMPARE(findItems(root, "shortcut:").size(), 1);
        QVERIFY(findItem(root, "shortcut:Say Hello"));
        manager->setSearchText({});
        QTRY_COMPARE(findItems(root, "shortcut:").size(), 4);

        // Every one hidden: the second empty state.
        for (const QString& name : manager->allShortcuts())
            manager->setHidden(name, true);
        QTRY_COMPARE(findItem(root, "emptyTitle")->property("text").toString(), "All Shortcuts Hidden");
        for (const QString& name : manager->allShortcuts())
            manager->setHidden(name, false);
    }

    void theSettingsPane() {
        QQuickWindow* window =
            show("import QtQuick\nimport QtQuick.Controls.Material\nimport OstaVell.ShortcutsRunner\n"
                 "Window { width: 640; height: 360; visible: true; color: '#1c1c1e'\n"
                 "  Material.theme: Material.Dark\n"
                 "  ShortcutsSettingsPane { anchors.fill: parent } }");
        QVERIFY(window);
        QQuickItem* root = window->contentItem();
        QTRY_VERIFY(findItem(root, "setting:Broken"));
        QVERIFY(drawn(window));
        QVERIFY(click(window, findItem(findItem(root, "setting:Broken"), "shown")));
        QTRY_VERIFY(ShortcutsManager::instance()->isHidden("Broken"));
        QVERIFY(!ShortcutsManager::instance()->widgetShortcuts().contains("Broken"));
        screenshot(window, "shortcuts-settings");
    }
};

QTEST_MAIN(tst_ShortcutsViews)
#include "tst_ShortcutsViews.moc"
