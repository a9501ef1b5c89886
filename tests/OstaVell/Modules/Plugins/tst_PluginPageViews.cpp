// Plugin pages with forms and collections drawn in real windows against the real store and the
// real Errands plugin: a form is filled, reviewed and run once, and each collection layout is
// searched, filtered and pressed as a person would.
#include "OstaVell/Modules/Plugins/NativePluginStore.h"

#include <QQuickItem>
#include <QTest>

#include "../../QuickTestSupport.h"
#include "ErrandsLog.h"
#include "PluginViewFixture.h"

using namespace vell;
using namespace vell::test;

class tst_PluginPageViews final : public QObject, public PluginViewFixture {
    Q_OBJECT

private slots:
    void initTestCase() { startViews(); }
    void cleanupTestCase() { stopViews(); }
    void formFilledSubmittedAndConfirmed();
    void collectionLayouts();

private:
    // Errands' pages in a window of their own, on the page of this id.
    QQuickWindow* showErrands(const QString& page);
};

QQuickWindow* tst_PluginPageViews::showErrands(const QString& page) {
    install(QStringLiteral("Errands"), errandsID);
    QQuickWindow* window =
        show("import QtQuick\nimport QtQuick.Controls\nimport OstaVell.Plugins\n"
             "ApplicationWindow { visible: true; width: 640; height: 960; color: '#1c1c20'\n"
             "NativePluginCards { objectName: 'cards'; x: 20; y: 20; width: 600; "
             "plugin: ({ id: 'app.ostavell.example.errands', status: '' }) } }");
    if (!window)
        return nullptr;
    QQuickItem* tab = findItem(window->contentItem(), QStringLiteral("panel:") + page);
    if (!click(window, tab) || !QTest::qWaitFor([&] { return tab->property("active").toBool(); }, 20000))
        return nullptr;
    return window;
}

// Typed into a field as a person types, after selecting what it held.
static void type(QQuickWindow* window, QQuickItem* field, const QString& text) {
    QVERIFY(click(window, field));
    QTRY_VERIFY(field->hasActiveFocus());
    QTest::keyClick(window, Qt::Key_A, Qt::ControlModifier);
    for (const QChar c : text)
        QTest::keyClick(window, c.toLatin1());
}

void tst_PluginPageViews::formFilledSubmittedAndConfirmed() {
    QQuickWindow* window = showErrands(QStringLiteral("add"));
    QVERIFY(window);
    QQuickItem* form = findItem(window->contentItem(), QStringLiteral("form:add"));
    QVERIFY(form);
    const auto input = [&](const char* id) {
        return findItem(form, QStringLiteral("input:") + QLatin1String(id));
    };
    const qsizetype logged = errandsLog().size();

    type(window, input("title"), QStringLiteral("Buy stamps"));
    // A number field takes only a decimal: the form says so and starts nothing.
    type(window, input("cost"), QStringLiteral("twelve"));
    QVERIFY(click(window, findItem(form, QStringLiteral("submit"))));
    QTRY_COMPARE(findItem(form, QStringLiteral("error"))->property("text").toString(),
                 QStringLiteral("Missing argument: cost"));
    QCOMPARE(NativePluginStore::instance()->property("reviews").toList().size(), 0);
    type(window, input("cost"), QStringLiteral("12.5"));

    // The slider's far end is its maximum, the switch turns on, the menu offers the list's choices.
    QQuickItem* slider = input("priority");
    QTest::mouseClick(window, Qt::LeftButton, {},
                      slider->mapToScene(QPointF(slider->width() - 2, slider->height() / 2)).toPoint());
    QTRY_COMPARE(slider->property("value").toDouble(), 5.0);
    QVERIFY(click(window, input("urgent")));
    QTRY_VERIFY(input("urgent")->property("checked").toBool());
    QVERIFY(click(window, input("list")));
    QTRY_VERIFY(shown(window->contentItem(), QStringLiteral("choice:Work")));
    QVERIFY(drawn(window));
    QVERIFY(click(window, findItem(window->contentItem(), QStringLiteral("choice:Work"))));
    QTRY_COMPARE(input("list")->property("currentText").toString(), QStringLiteral("Work"));
    QTRY_VERIFY(!shown(window->contentItem(), QStringLiteral("choice:Work")));

    // Submitted, it waits for "Confirm", warning in the run's words; nothing ran yet.
    QVERIFY(click(window, findItem(form, QStringLiteral("submit"))));
    QTRY_VERIFY_WITH_TIMEOUT(
        shown(form, QStringLiteral("confirmRun")) || shown(form, QStringLiteral("error")), 20000);
    QCOMPARE(findItem(form, QStringLiteral("error"))->property("text").toString(), QString());
    QTRY_VERIFY(shown(form, QStringLiteral("confirmRun")));
    QCOMPARE(
        findItem(form, QStringLiteral("warning"))->property("text").toString(),
        QStringLiteral("This action changes things on this computer. Undo is not provided by this action."));
    verifyPlainText(findItem(window->contentItem(), QStringLiteral("cards")));
    screenshot(window, QStringLiteral("plugin-form-review"));
    QCOMPARE(errandsLog().size(), logged);

    QVERIFY(click(window, findItem(form, QStringLiteral("confirmRun"))));
    QTRY_VERIFY_WITH_TIMEOUT(errandsLog().size() == logged + 1, 20000);
    const ErrandsEntry ran = errandsLog().last();
    QCOMPARE(ran.action, QStringLiteral("add"));
    const QVariantMap expected{{QStringLiteral("title"), QStringLiteral("Buy stamps")},
                               {QStringLiteral("cost"), 12.5},
                               {QStringLiteral("priority"), 5.0},
                               {QStringLiteral("urgent"), true},
                               {QStringLiteral("list"), QStringLiteral("Work")}};
    QCOMPARE(ran.values, expected);
    QTRY_VERIFY_WITH_TIMEOUT(
        shown(form, QStringLiteral("runPhase")) &&
            shown(form, QStringLiteral("runPhase"))->property("text").toString().startsWith(u"Succeeded"),
        20000);
    // The form moved on to its next revision and starts over, remembering the list.
    QTRY_COMPARE(input("title")->property("text").toString(), QString());
    QCOMPARE(input("list")->property("currentText").toString(), QStringLiteral("Work"));
    screenshot(window, QStringLiteral("plugin-form"));
    verifyPlainText(findItem(window->contentItem(), QStringLiteral("cards")));
}

void tst_PluginPageViews::collectionLayouts() {
    QQuickWindow* window = showErrands(QStringLiteral("inbox"));
    QVERIFY(window);
    QQuickItem* cards = findItem(window->contentItem(), QStringLiteral("cards"));
    const auto names = [&] {
        QStringList found;
        const QList<QQuickItem*> items = findItems(cards, QStringLiteral("item:"));
        for (QQuickItem* item : items)
            found.append(item->objectName().mid(5));
        return found;
    };
    const auto text = [&](const QString& name) { return findItem(cards, name)->property("text").toString(); };

    // Inbox: every message, then the unread ones, then a search that finds none.
    QTRY_COMPARE(names(), QStringList({"m1", "m2", "m3", "m4"}));
    QCOMPARE(text(QStringLiteral("heading")), QStringLiteral("Messages"));
    QCOMPARE(text(QStringLiteral("searchHint")), QStringLiteral("Search inbox"));
    QVERIFY(findItem(findItem(cards, QStringLiteral("item:m1")), QStringLiteral("unread"))->isVisible());
    screenshot(window, QStringLiteral("plugin-collection-inbox"));
    verifyPlainText(cards);
    QVERIFY(click(window, findItem(cards, QStringLiteral("filter:Unread"))));
    QTRY_COMPARE(names(), QStringList({"m1", "m2"}));
    type(window, findItem(cards, QStringLiteral("search")), QStringLiteral("PLUMBER"));
    QTRY_VERIFY(shown(cards, QStringLiteral("emptyText")));
    QCOMPARE(text(QStringLiteral("emptyText")), QStringLiteral("No messages."));

    // Tasks: a new page starts without the inbox's search; the dates or "No due date"; a button
    // that asks first reaches Errands only after "Confirm".
    QVERIFY(click(window, findItem(window->contentItem(), QStringLiteral("panel:tasks"))));
    QTRY_VERIFY(names().contains(QStringLiteral("e4")));
    QCOMPARE(text(QStringLiteral("heading")), QStringLiteral("Due date"));
    QCOMPARE(text(QStringLiteral("date:e3")), QStringLiteral("No due date"));
    screenshot(window, QStringLiteral("plugin-collection-tasks"));
    verifyPlainText(cards);
    QVERIFY(click(window, findItem(cards, QStringLiteral("action:clearDone"))));
    QTRY_VERIFY(shown(window->contentItem(), QStringLiteral("confirm")));
    QVERIFY(drawn(window));
    QVERIFY(click(window, findItem(window->contentItem(), QStringLiteral("confirm"))));
    QTRY_VERIFY_WITH_TIMEOUT(!names().contains(QStringLiteral("e4")), 20000);
    // A closing popup still takes the next click.
    QTRY_VERIFY(!shown(window->contentItem(), QStringLiteral("confirm")));
    QVERIFY(names().contains(QStringLiteral("e1")));

    // Calendar: the days in a row; a press loads that day from Errands.
    QVERIFY(click(window, findItem(window->contentItem(), QStringLiteral("panel:calendar"))));
    QTRY_VERIFY(shown(cards, QStringLiteral("calendarHint")));
    QCOMPARE(text(QStringLiteral("calendarHint")), QStringLiteral("Select a day to load its agenda"));
    const QString tomorrow = QDate::currentDate().addDays(1).toString(QStringLiteral("yyyyMMdd"));
    QQuickItem* day = findItem(cards, QStringLiteral("day:day_") + tomorrow);
    QVERIFY(day && !day->property("active").toBool());
    QVERIFY(click(window, day));
    QTRY_VERIFY_WITH_TIMEOUT(snapshotOf(errandsID)
                                     .value(QStringLiteral("panels"))
                                     .toList()
                                     .value(3)
                                     .toMap()
                                     .value(QStringLiteral("collection"))
                                     .toMap()
                                     .value(QStringLiteral("selectedDate"))
                                     .toDouble() > NativePluginSessions::currentTime(),
                             20000);
    QTRY_VERIFY(findItem(cards, QStringLiteral("day:day_") + tomorrow)->property("active").toBool());
    screenshot(window, QStringLiteral("plugin-collection-calendar"));
    verifyPlainText(cards);

    // Files: a list in the plugin's order, then tiles, then by name.
    QVERIFY(click(window, findItem(window->contentItem(), QStringLiteral("panel:files"))));
    QTRY_COMPARE(names(), QStringList({"f1", "f2", "f3", "f4", "f5"}));
    QCOMPARE(findItem(cards, QStringLiteral("fileGrid"))->property("label").toString(),
             QStringLiteral("Grid view"));
    screenshot(window, QStringLiteral("plugin-collection-files-list"));
    QVERIFY(click(window, findItem(cards, QStringLiteral("fileGrid"))));
    QTRY_COMPARE(findItem(cards, QStringLiteral("fileGrid"))->property("label").toString(),
                 QStringLiteral("List view"));
    QVERIFY(click(window, findItem(cards, QStringLiteral("fileSort"))));
    QTRY_COMPARE(names(), QStringList({"f4", "f2", "f5", "f3", "f1"}));
    screenshot(window, QStringLiteral("plugin-collection-files"));
    verifyPlainText(cards);
}

QTEST_MAIN(tst_PluginPageViews)
#include "tst_PluginPageViews.moc"
