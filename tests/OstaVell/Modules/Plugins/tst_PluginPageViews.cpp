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
using namespace Qt::StringLiterals;

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
    install(u"Errands"_s, errandsID);
    QQuickWindow* window =
        show("import QtQuick\nimport QtQuick.Controls\nimport OstaVell.Plugins\n"
             "ApplicationWindow { visible: true; width: 640; height: 960; color: '#1c1c20'\n"
             "NativePluginCards { objectName: 'cards'; x: 20; y: 20; width: 600; "
             "plugin: ({ id: 'app.ostavell.example.errands', status: '' }) } }");
    if (!window)
        return nullptr;
    QQuickItem* tab = findItem(window->contentItem(), u"panel:"_s + page);
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
    QQuickWindow* window = showErrands(u"add"_s);
    QVERIFY(window);
    QQuickItem* root = window->contentItem();
    QQuickItem* form = findItem(root, u"form:add"_s);
    QVERIFY(form);
    const auto input = [&](const QString& id) { return findItem(form, u"input:"_s + id); };
    const auto text = [&](const QString& name) { return findItem(form, name)->property("text").toString(); };
    const qsizetype logged = errandsLog().size();

    type(window, input("title"), u"Buy stamps"_s);
    // A number field takes only a decimal: the form says so and starts nothing.
    type(window, input("cost"), u"twelve"_s);
    QVERIFY(click(window, findItem(form, u"submit"_s)));
    QTRY_COMPARE(text("error"), u"Missing argument: cost"_s);
    QCOMPARE(NativePluginStore::instance()->property("reviews").toList().size(), 0);
    type(window, input("cost"), u"12.5"_s);

    // The slider's far end is its maximum, the switch turns on, the menu offers the list's choices.
    QQuickItem* slider = input("priority");
    QTest::mouseClick(window, Qt::LeftButton, {},
                      slider->mapToScene(QPointF(slider->width() - 2, slider->height() / 2)).toPoint());
    QTRY_COMPARE(slider->property("value").toDouble(), 5.0);
    QVERIFY(click(window, input("urgent")));
    QTRY_VERIFY(input("urgent")->property("checked").toBool());
    QVERIFY(click(window, input("list")));
    QTRY_VERIFY(shown(root, u"choice:Work"_s));
    QVERIFY(drawn(window));
    QVERIFY(click(window, findItem(root, u"choice:Work"_s)));
    QTRY_COMPARE(input("list")->property("currentText").toString(), u"Work"_s);
    QTRY_VERIFY(!shown(root, u"choice:Work"_s));

    // Submitted, it waits for "Confirm", warning in the run's words; nothing ran yet.
    QVERIFY(click(window, findItem(form, u"submit"_s)));
    QTRY_VERIFY_WITH_TIMEOUT(shown(form, u"confirmRun"_s) || shown(form, u"error"_s), 20000);
    QCOMPARE(text("error"), QString());
    QTRY_VERIFY(shown(form, u"confirmRun"_s));
    QCOMPARE(text("warning"),
             u"This action changes things on this computer. Undo is not provided by this action."_s);
    verifyPlainText(findItem(root, u"cards"_s));
    screenshot(window, u"plugin-form-review"_s);
    QCOMPARE(errandsLog().size(), logged);

    QVERIFY(click(window, findItem(form, u"confirmRun"_s)));
    QTRY_VERIFY_WITH_TIMEOUT(errandsLog().size() == logged + 1, 20000);
    const ErrandsEntry ran = errandsLog().last();
    QCOMPARE(ran.action, u"add"_s);
    const QVariantMap expected{
        {"title", "Buy stamps"}, {"cost", 12.5}, {"priority", 5.0}, {"urgent", true}, {"list", "Work"}};
    QCOMPARE(ran.values, expected);
    QTRY_VERIFY_WITH_TIMEOUT(shown(form, u"runPhase"_s) && text("runPhase").startsWith(u"Succeeded"), 20000);
    // The form moved on to its next revision and starts over, remembering the list.
    QTRY_COMPARE(input("title")->property("text").toString(), QString());
    QCOMPARE(input("list")->property("currentText").toString(), u"Work"_s);
    screenshot(window, u"plugin-form"_s);
    verifyPlainText(findItem(root, u"cards"_s));
}

void tst_PluginPageViews::collectionLayouts() {
    QQuickWindow* window = showErrands(u"inbox"_s);
    QVERIFY(window);
    QQuickItem* root = window->contentItem();
    QQuickItem* cards = findItem(root, u"cards"_s);
    const auto names = [&] {
        QStringList found;
        for (QQuickItem* item : findItems(cards, u"item:"_s))
            found.append(item->objectName().mid(5));
        return found;
    };
    const auto text = [&](const QString& name) { return findItem(cards, name)->property("text").toString(); };
    const auto label = [&](const QString& name) {
        return findItem(cards, name)->property("label").toString();
    };
    const auto page = [&](const QString& name) { return click(window, findItem(root, u"panel:"_s + name)); };

    // Inbox: every message, then the unread ones, then a search that finds none.
    QTRY_COMPARE(names(), QStringList({"m1", "m2", "m3", "m4"}));
    QCOMPARE(text("heading"), u"Messages"_s);
    QCOMPARE(text("searchHint"), u"Search inbox"_s);
    QVERIFY(findItem(findItem(cards, u"item:m1"_s), u"unread"_s)->isVisible());
    screenshot(window, u"plugin-collection-inbox"_s);
    verifyPlainText(cards);
    QVERIFY(click(window, findItem(cards, u"filter:Unread"_s)));
    QTRY_COMPARE(names(), QStringList({"m1", "m2"}));
    type(window, findItem(cards, u"search"_s), u"PLUMBER"_s);
    QTRY_VERIFY(shown(cards, u"emptyText"_s));
    QCOMPARE(text("emptyText"), u"No messages."_s);

    // Tasks: a new page starts without the inbox's search; the dates or "No due date"; a button
    // that asks first reaches Errands only after "Confirm".
    QVERIFY(page("tasks"));
    QTRY_VERIFY(names().contains(u"e4"_s));
    QCOMPARE(text("heading"), u"Due date"_s);
    QCOMPARE(text("date:e3"), u"No due date"_s);
    screenshot(window, u"plugin-collection-tasks"_s);
    verifyPlainText(cards);
    QVERIFY(click(window, findItem(cards, u"action:clearDone"_s)));
    QTRY_VERIFY(shown(root, u"confirm"_s));
    QVERIFY(drawn(window));
    QVERIFY(click(window, findItem(root, u"confirm"_s)));
    QTRY_VERIFY_WITH_TIMEOUT(!names().contains(u"e4"_s), 20000);
    // A closing popup still takes the next click.
    QTRY_VERIFY(!shown(root, u"confirm"_s));
    QVERIFY(names().contains(u"e1"_s));

    // Calendar: the days in a row; a press loads that day from Errands.
    QVERIFY(page("calendar"));
    QTRY_VERIFY(shown(cards, u"calendarHint"_s));
    QCOMPARE(text("calendarHint"), u"Select a day to load its agenda"_s);
    const QString tomorrow = u"day:day_"_s + QDate::currentDate().addDays(1).toString(u"yyyyMMdd"_s);
    QVERIFY(findItem(cards, tomorrow) && !findItem(cards, tomorrow)->property("active").toBool());
    QVERIFY(click(window, findItem(cards, tomorrow)));
    const auto selectedDate = [] {
        const QVariantMap calendar = snapshotOf(errandsID).value(u"panels"_s).toList().value(3).toMap();
        return calendar.value(u"collection"_s).toMap().value(u"selectedDate"_s).toDouble();
    };
    QTRY_VERIFY_WITH_TIMEOUT(selectedDate() > NativePluginSessions::currentTime(), 20000);
    QTRY_VERIFY(findItem(cards, tomorrow)->property("active").toBool());
    screenshot(window, u"plugin-collection-calendar"_s);
    verifyPlainText(cards);

    // Files: a list in the plugin's order, then tiles, then by name.
    QVERIFY(page("files"));
    QTRY_COMPARE(names(), QStringList({"f1", "f2", "f3", "f4", "f5"}));
    QCOMPARE(label("fileGrid"), u"Grid view"_s);
    screenshot(window, u"plugin-collection-files-list"_s);
    QVERIFY(click(window, findItem(cards, u"fileGrid"_s)));
    QTRY_COMPARE(label("fileGrid"), u"List view"_s);
    QVERIFY(click(window, findItem(cards, u"fileSort"_s)));
    QTRY_COMPARE(names(), QStringList({"f4", "f2", "f5", "f3", "f1"}));
    screenshot(window, u"plugin-collection-files"_s);
    verifyPlainText(cards);
}

QTEST_MAIN(tst_PluginPageViews)
#include "tst_PluginPageViews.moc"
