// The plugin views drawn in real windows, against the real store and real example plugins: text
// a plugin brings is shown as it is and never interpreted, the control grid narrows as a person
// asks, and a button reaches the plugin only when it may. Forms and collections have their own
// file.
#include "OstaVell/Modules/Plugins/NativePluginStore.h"

#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

#include <functional>

#include "../../QuickTestSupport.h"
#include "../FetchListener.h"
#include "PluginViewFixture.h"

using namespace vell;
using namespace vell::test;
using namespace Qt::StringLiterals;

namespace {

const QString kCounter = u"app.ostavell.example.counter"_s;
const QString kDice = u"app.ostavell.example.dice"_s;

// Forms and collections as a hostile plugin would send them: every text the views show carries
// markup that would fetch from the listener if it were ever read as rich text.
using Markup = std::function<QString(const QString&)>;

// The map with each of keys holding markup that fetches prefix + key.
QVariantMap marked(const Markup& img, const QString& prefix, const QStringList& keys, QVariantMap map = {}) {
    for (const QString& key : keys)
        map.insert(key, img(prefix + key));
    return map;
}

// A form with every style of input.
QVariantMap hostileForm(const Markup& img) {
    const auto field = [](const QString& name, const QString& kind) {
        QVariantMap map{{"name", name}, {"kind", kind}, {"required", true}};
        if (kind == u"number")
            map.insert({{"minimum", 0.0}, {"maximum", 10.0}});
        return map;
    };
    const auto input = [&](const QString& id, const QString& style, const QVariant& value) {
        return marked(img, id + "-", {"label"}, {{"id", id}, {"style", style}, {"value", value}});
    };
    QVariantMap choice = input("c", "choice", img("c-value"));
    choice.insert("choices", QStringList{img("c-value"), img("c-other")});
    const QVariantMap action =
        marked(img, "action-", {"title"},
               {{"id", "act"},
                {"input", QVariantMap{{"fields", QVariantList{field("t", "string"), field("n", "number"),
                                                              field("s", "number"), field("b", "boolean"),
                                                              field("c", "string")}}}},
                {"output", QVariantMap{{"fields", QVariantList()}}},
                {"effect", "localChange"},
                {"cancellable", false},
                {"timeoutSeconds", 10.0}});
    return marked(img, "form-", {"title", "revision"},
                  {{"id", "hostile"},
                   {"action", action},
                   {"enabled", true},
                   {"inputs", QVariantList{input("t", "text", img("t-value")), input("n", "number", 3.0),
                                           input("s", "slider", 4.0), input("b", "toggle", true), choice}}});
}

// A collection of that layout, one item dated and one not.
QVariantMap hostileCollection(const Markup& img, const QString& layout) {
    const auto action = [&](const QString& id) {
        return marked(img, id + "-", {"label", "confirmation"}, {{"id", id}, {"enabled", true}});
    };
    const auto entry = [&](const QString& id, const QVariant& date) {
        QVariantMap map =
            marked(img, id + "-", {"title", "subtitle", "detail", "category", "symbol"},
                   {{"id", id}, {"unread", true}, {"completed", false}, {"action", action(id + "act")}});
        if (date.isValid())
            map.insert("date", date);
        return map;
    };
    QVariantMap collection =
        marked(img, layout + "-", {"title", "subtitle", "emptyText"},
               {{"layout", layout},
                {"items", QVariantList{entry(layout + "i1", 0.0), entry(layout + "i2", QVariant())}},
                {"actions", QVariantList{action(layout + "tool")}}});
    if (layout == u"calendar")
        collection.insert("days", QVariantList{QVariantMap{{"date", 0.0}, {"action", action("day")}}});
    return collection;
}

QStringList menuTexts(QQuickItem* menu) {
    QStringList texts;
    for (int i = 0; i < menu->property("count").toInt(); ++i) {
        QString text;
        QMetaObject::invokeMethod(menu, "textAt", Q_RETURN_ARG(QString, text), Q_ARG(int, i));
        texts.append(text);
    }
    return texts;
}

QString fieldOf(const QVariantMap& snapshot, const QString& label) {
    const QVariantList fields = snapshot.value(u"fields"_s).toList();
    for (const QVariant& field : fields)
        if (field.toMap().value(u"label"_s).toString() == label)
            return field.toMap().value(u"value"_s).toString();
    return {};
}

QVariantMap card(const QString& id, const QString& title, const QString& subtitle) {
    return {{"id", id},
            {"title", title},
            {"subtitle", subtitle},
            {"value", QString()},
            {"detail", QString()},
            {"highlighted", false},
            {"actions", QVariantList()}};
}

} // namespace

class tst_PluginViews final : public QObject, public PluginViewFixture {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { stopViews(); }
    void hostileTextIsNeverFetched();
    void controlGridNarrows_data();
    void controlGridNarrows();
    void aPressReachesThePluginOnlyWhenItMay_data();
    void aPressReachesThePluginOnlyWhenItMay();
    void grantsAndReviewsGoThroughTheRouter();
    void refusedGrantShowsItsSentence();
    void paneShowsInstalledPluginsAndTheReview();

private:
    // Shown last: once its fetch has come, any earlier fetch would have come too.
    void fence(const QString& path);
    // Counter in a fresh session, so that its count and its "Dice" row start over.
    void restartCounter();
    // Counter answers "rollDice" with a new "Dice" row, after every press sent before it.
    QString countAfterFence();
    // The hostile presentation in every view, each page and popup drawn.
    void drawEveryView(const QVariantMap& hostile);

    FetchListener m_listener;
};

void tst_PluginViews::fence(const QString& path) {
    QVERIFY(show(m_listener.fence(path)));
    QTRY_VERIFY_WITH_TIMEOUT(m_listener.heard(path), 20000);
}

void tst_PluginViews::restartCounter() {
    NativePluginStore::instance()->restart(kCounter);
    QTRY_VERIFY_WITH_TIMEOUT(snapshotOf(kCounter).value(u"status"_s).toString() == u"0 presses" &&
                                 fieldOf(snapshotOf(kCounter), u"Dice"_s) == u"Dice not asked yet",
                             30000);
}

QString tst_PluginViews::countAfterFence() {
    NativePluginStore::instance()->press(kCounter, u"rollDice"_s);
    const bool answered = QTest::qWaitFor(
        [] { return fieldOf(snapshotOf(kCounter), u"Dice"_s) != u"Dice not asked yet"; }, 30000);
    return answered ? snapshotOf(kCounter).value(u"status"_s).toString() : u"no answer"_s;
}

void tst_PluginViews::initTestCase() {
    QVERIFY(m_listener.listen(QHostAddress::LocalHost));
    startViews();
}

void tst_PluginViews::hostileTextIsNeverFetched() {
    // The listener hears a view that guesses the format: the check below can fail.
    fence(u"control"_s);
    const Markup img = [this](const QString& path) { return m_listener.img(path); };
    const auto field = [&](const QString& what) { return marked(img, what, {"label", "value", "symbol"}); };
    const auto section = [&](const QString& what) {
        return marked(img, what, {"title", "detail", "imagePNG"});
    };
    const QVariantMap go =
        marked(img, "action-", {"label", "confirmation", "symbol"}, {{"id", "go"}, {"enabled", true}});
    const QVariantMap tile = marked(img, "card-", {"title", "subtitle", "value", "detail", "symbol"},
                                    {{"id", "c1"}, {"highlighted", true}, {"actions", QVariantList{go}}});
    const QVariantMap flat = marked(img, "flat-", {"title", "status", "activity", "badge"},
                                    {{"progress", 50.0},
                                     {"fields", QVariantList{field("field-")}},
                                     {"actions", QVariantList{go}},
                                     {"metrics", QVariantList{field("metric-")}},
                                     {"sections", QVariantList{section("section-")}},
                                     {"media", marked(img, "media-", {"label", "status"})}});
    const auto panel = [&](const QString& id, const QVariantMap& contents) {
        QVariantMap panel = marked(img, id + "-", {"title"}, {{"id", id}, {"usesMedia", false}});
        panel.insert(contents);
        return panel;
    };
    const QVariantList panels{
        panel("p1", {{"sections", QVariantList{section("panel-")}}, {"cards", QVariantList{tile}}}),
        panel("p2", {{"sections", QVariantList()}, {"forms", QVariantList{hostileForm(img)}}}),
        panel("p3", {{"sections", QVariantList()}, {"collection", hostileCollection(img, "calendar")}}),
        panel("p4", {{"sections", QVariantList()}, {"collection", hostileCollection(img, "tasks")}})};
    const QVariantMap paged =
        marked(img, "paged-", {"title", "status", "activity", "badge"},
               {{"fields", QVariantList()}, {"actions", QVariantList()}, {"panels", panels}});
    const QVariantMap icon = marked(img, "icon-", {"symbol"}, {{"color", "FF9F0A"}});
    const QVariantMap saved = marked(img, "saved-", {"name", "version"}, {{"folder", "F"}, {"savedAt", 0.0}});
    const QVariantMap plugin = marked(img, "plugin-", {"name", "version", "status"},
                                      {{"id", "cafe.osta.hostile"},
                                       {"icon", icon},
                                       {"enabled", true},
                                       {"running", false},
                                       {"compactActivity", false},
                                       {"hiddenDisplayIDs", QStringList()},
                                       {"previousVersions", QVariantList{saved}}});
    const QVariantMap review =
        marked(img, "review-", {"callerName", "providerName", "title", "effect"},
               {{"id", "R"}, {"arguments", QVariantList{marked(img, "argument-", {"name", "value"})}}});
    const QVariantMap reviewed =
        marked(img, "reviewed-", {"id", "name", "version", "summary", "fingerprint", "restoreWarning"},
               {{"capabilities", QStringList{img("capability")}},
                {"launchMode", "application"},
                {"icon", icon},
                {"restore", true}});
    const QVariantMap entry =
        marked(img, "entry-", {"callerName", "providerName", "title", "effect"},
               {{"caller", "c"}, {"provider", "p"}, {"name", "n"}, {"channel", false}, {"allowed", true}});
    const QVariantMap run =
        marked(img, "history-", {"callerName", "providerName", "title", "phase"}, {{"date", 0.0}});
    const QVariantMap display = marked(img, "display-", {"name"}, {{"id", "D"}, {"appearanceID", "A"}});
    drawEveryView({{"flat", flat},
                   {"paged", paged},
                   {"plugin", plugin},
                   {"review", review},
                   {"reviewed", reviewed},
                   {"entries", QVariantList{entry}},
                   {"history", QVariantList{run}},
                   {"displays", QVariantList{display}},
                   {"error", img("actions-error")}});

    fence(u"last"_s);
    QCOMPARE(m_listener.fetched(), QStringList());
}

void tst_PluginViews::drawEveryView(const QVariantMap& hostile) {
    QQuickWindow* window = show(
        "import QtQuick\nimport QtQuick.Controls\nimport QtQuick.Controls.Material\nimport OstaVell.Plugins\n"
        "ApplicationWindow { id: w; required property var h; visible: true; width: 1840; height: 1000\n"
        "Material.theme: Material.Dark; color: '#1c1c20'\n"
        "Row { spacing: 10\n"
        "  PluginsPane { objectName: 'pane'; width: 440; height: 1000; plugins: [w.h.plugin]; reviews: "
        "[w.h.review];\n"
        "                reviewed: ({}); shelf: QtObject { property var displays: w.h.displays } }\n"
        "  Column { width: 440; spacing: 10\n"
        "    PluginReviewView { width: 440; reviewed: w.h.reviewed }\n"
        "    AllowedActionsView { width: 440; entries: w.h.entries; history: w.h.history; error: w.h.error } "
        "}\n"
        "  Column { width: 440; spacing: 10\n"
        "    NativePluginCards { objectName: 'flat'; width: 440; plugin: w.h.plugin; snapshot: w.h.flat }\n"
        "    NativePluginCards { width: 440; plugin: w.h.plugin; snapshot: null } }\n"
        "  NativePluginCards { objectName: 'paged'; width: 440; plugin: w.h.plugin; snapshot: w.h.paged } } "
        "}",
        {{u"h"_s, hostile}});
    QVERIFY(window);
    QVERIFY(drawn(window));
    QQuickItem* root = window->contentItem();
    QQuickItem* paged = findItem(root, u"paged"_s);

    // The confirmation asks with the plugin's words.
    QVERIFY(click(window, findItem(findItem(root, u"flat"_s), u"action:go"_s)));
    QTRY_VERIFY(shown(root, u"cancel"_s));
    QVERIFY(drawn(window));
    QVERIFY(click(window, findItem(root, u"cancel"_s)));
    QTRY_VERIFY(!shown(root, u"cancel"_s));

    // The group menu lists the subtitles.
    QObject* menu = findItem(paged, u"groupMenu"_s)->property("popup").value<QObject*>();
    QVERIFY(menu);
    QMetaObject::invokeMethod(menu, "open");
    QTRY_VERIFY(menu->property("opened").toBool());
    QVERIFY(drawn(window));
    QMetaObject::invokeMethod(menu, "close");
    QTRY_VERIFY(!menu->property("visible").toBool());

    // The removal asks under the plugin's name; then the other page.
    QVERIFY(click(window, findItem(root, u"remove"_s)));
    QTRY_VERIFY(shown(root, u"confirmRemove"_s));
    QVERIFY(drawn(window));
    QVERIFY(click(window, findItem(root, u"cancelRemove"_s)));
    QTRY_VERIFY(!shown(root, u"confirmRemove"_s));
    QVERIFY(click(window, findItem(root, u"panel:p2"_s)));
    QTRY_VERIFY(shown(root, u"form:hostile"_s));
    screenshot(window, u"plugins-hostile"_s);
    verifyPlainText(paged);
    // The collections, with nothing typed, then a search that finds nothing.
    for (const QString& page : {u"p3"_s, u"p4"_s}) {
        QVERIFY(click(window, findItem(root, u"panel:"_s + page)));
        QTRY_VERIFY(shown(paged, u"searchHint"_s));
        QVERIFY(drawn(window));
        verifyPlainText(paged);
        findItem(paged, u"search"_s)->setProperty("text", "zz");
        QTRY_VERIFY(shown(paged, u"emptyText"_s));
        QVERIFY(drawn(window));
        findItem(paged, u"search"_s)->setProperty("text", "");
    }
}

void tst_PluginViews::controlGridNarrows_data() {
    QTest::addColumn<QString>("group");
    QTest::addColumn<QString>("search");
    QTest::addColumn<QStringList>("shown");
    const auto row = [](const char* name, const QString& group, const QString& search,
                        const QStringList& shown) { QTest::addRow("%s", name) << group << search << shown; };
    const QStringList all{"k1", "k2", "l1", "n1", "b1", "u1"};
    row("everything", "", "", all);
    row("search ignores case", "", "LIGHT", {"k1", "n1"});
    row("search finds the subtitle", "", "room", {"l1", "b1"});
    row("search ignores case beyond ASCII", "", u"\u00E4PF"_s, {"u1"});
    row("group", "Kitchen", "", {"k1", "k2"});
    row("group and search", "Kitchen", "light", {"k1"});
    row("group is exact", "bedroom", "", {"b1"});
    row("nothing matches in the group", "Living Room", "light", {});
    row("a group no card names shows all", "Garage", "", all);
    row("search is a substring, not a prefix", "", "amp", {"l1"});
}

void tst_PluginViews::controlGridNarrows() {
    QFETCH(QString, group);
    QFETCH(QString, search);
    const QVariantList cards{
        card("k1", "Ceiling Light", "Kitchen"),  card("k2", "Counter", "Kitchen"),
        card("l1", "Floor lamp", "Living Room"), card("n1", "Night light", ""),
        card("b1", "Bedside", "bedroom"),        card("u1", u"\u00C4pfel"_s, u"K\u00FCche"_s)};
    QQuickWindow* window = show("import QtQuick\nimport OstaVell.Plugins\n"
                                "Window { id: w; required property var cards; visible: true; width: 900; "
                                "height: 700; color: '#111114'\n"
                                "PluginControlGrid { objectName: 'grid'; width: 860; x: 20; y: 20; "
                                "pluginID: 'app.ostavell.example.grid'; cards: w.cards } }",
                                {{u"cards"_s, cards}});
    QVERIFY(window);
    QQuickItem* grid = findItem(window->contentItem(), u"grid"_s);
    QQuickItem* menu = findItem(window->contentItem(), u"groupMenu"_s);
    QQuickItem* field = findItem(window->contentItem(), u"search"_s);
    QVERIFY(grid && menu && field);

    // Distinct non-empty subtitles, ascending, after "All", which is chosen at the start.
    QCOMPARE(menuTexts(menu), QStringList({"All", "Kitchen", u"K\u00FCche"_s, "Living Room", "bedroom"}));
    QCOMPARE(menu->property("currentIndex").toInt(), 0);

    grid->setProperty("group", group);
    field->setProperty("text", search);
    QStringList names;
    for (QQuickItem* item : findItems(window->contentItem(), u"card:"_s))
        names.append(item->objectName().mid(5));
    QTEST(names, "shown");
    const bool offered = menuTexts(menu).contains(group);
    QCOMPARE(menu->property("displayText").toString(), offered && !group.isEmpty() ? group : u"All"_s);
}

void tst_PluginViews::aPressReachesThePluginOnlyWhenItMay_data() {
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("count");
    QTest::addRow("disabled, then enabled") << false << QString() << u"0 presses"_s;
    QTest::addRow("asks first and is turned down") << true << u"cancel"_s << u"0 presses"_s;
    QTest::addRow("asks first and is confirmed") << true << u"confirm"_s << u"1 press"_s;
}

// The view is given a snapshot of its own; the store still judges each press against Counter's
// own snapshot, where "add" is enabled and needs no confirmation, so only the view holds it back.
void tst_PluginViews::aPressReachesThePluginOnlyWhenItMay() {
    QFETCH(bool, enabled);
    QFETCH(QString, answer);
    install(u"Counter"_s, kCounter);
    restartCounter();
    QVariantMap add{{"id", "add"}, {"label", "Add one"}, {"enabled", enabled}};
    if (!answer.isEmpty())
        add.insert("confirmation", "Add one to the count?");
    const QVariantMap shot{{"title", "Counter"},
                           {"status", QString()},
                           {"activity", QString()},
                           {"fields", QVariantList()},
                           {"actions", QVariantList{add}}};
    QQuickWindow* window =
        show("import QtQuick\nimport QtQuick.Controls\nimport OstaVell.Plugins\n"
             "ApplicationWindow { id: w; required property var shot; visible: true; width: 600; height: 400\n"
             "NativePluginCards { x: 20; y: 20; width: 560; "
             "plugin: ({ id: 'app.ostavell.example.counter', status: '' }); snapshot: w.shot } }",
             {{u"shot"_s, shot}});
    QVERIFY(window);
    QQuickItem* button = findItem(window->contentItem(), u"action:add"_s);
    QVERIFY(button);
    QCOMPARE(button->isEnabled(), enabled);
    QVERIFY(click(window, button));
    if (!answer.isEmpty()) {
        QTRY_VERIFY(shown(window->contentItem(), answer));
        QVERIFY(drawn(window));
        QVERIFY(click(window, findItem(window->contentItem(), answer)));
        QTRY_VERIFY(!shown(window->contentItem(), answer));
    }
    QTEST(countAfterFence(), "count");
    if (enabled)
        return;

    // The next snapshot enables the same button, and then it reaches the plugin.
    add.insert("enabled", true);
    QVariantMap next = shot;
    next.insert("actions", QVariantList{add});
    restartCounter();
    window->setProperty("shot", next);
    QTRY_VERIFY((button = findItem(window->contentItem(), u"action:add"_s)) && button->isEnabled());
    QVERIFY(drawn(window));
    QVERIFY(click(window, button));
    QCOMPARE(countAfterFence(), u"1 press"_s);
}

void tst_PluginViews::grantsAndReviewsGoThroughTheRouter() {
    install(u"Counter"_s, kCounter);
    install(u"Dice"_s, kDice);
    restartCounter();
    NativePluginStore* store = NativePluginStore::instance();
    QQuickWindow* window =
        show("import QtQuick\nimport QtQuick.Controls\nimport OstaVell.Plugins\n"
             "ApplicationWindow { visible: true; width: 1200; height: 900; color: '#1c1c20'\n"
             "Row { x: 20; y: 20; spacing: 20\n"
             "  AllowedActionsView { width: 520 }\n"
             "  PluginRunsView { width: 620 } } }");
    QVERIFY(window);
    QQuickItem* root = window->contentItem();
    const QString allowClear = u"allow:%1:%2/clear:action"_s.arg(kCounter, kDice);
    const auto granted = [&] {
        const QVariantList entries = store->property("allowedActions").toList();
        for (const QVariant& entry : entries) {
            const QVariantMap map = entry.toMap();
            if (map.value(u"caller"_s) == kCounter && map.value(u"provider"_s) == kDice &&
                map.value(u"name"_s) == u"clear"_s)
                return map.value(u"allowed"_s).toBool();
        }
        return false;
    };
    const auto switchedOn = [&] { return findItem(root, allowClear)->property("checked").toBool(); };

    // Without a grant the router turns Counter away before anyone is asked.
    QTRY_VERIFY_WITH_TIMEOUT(findItem(root, allowClear), 30000);
    QVERIFY(!switchedOn());
    QVERIFY(drawn(window));
    QVERIFY(click(window, findItem(root, allowClear)));
    QTRY_VERIFY(granted());
    QTRY_VERIFY(findItem(root, allowClear) && switchedOn());

    // Granted, a change still waits for a person: declined, then allowed once.
    const auto answerTheReview = [&](const QString& answer) {
        store->press(kCounter, u"clearDice"_s);
        QTRY_VERIFY_WITH_TIMEOUT(!store->property("reviews").toList().isEmpty(), 30000);
        const QString run = store->property("reviews").toList().first().toMap().value(u"id"_s).toString();
        QTRY_VERIFY(findItem(root, u"review:"_s + run));
        QVERIFY(drawn(window));
        QVERIFY(click(window, findItem(findItem(root, u"review:"_s + run), answer)));
        QTRY_VERIFY_WITH_TIMEOUT(store->property("reviews").toList().isEmpty(), 30000);
        QTRY_VERIFY(!findItem(root, u"review:"_s + run));
    };
    answerTheReview(u"decline"_s);
    answerTheReview(u"approve"_s);
    QTRY_COMPARE_WITH_TIMEOUT(fieldOf(snapshotOf(kCounter), u"Dice"_s), u"Cleared."_s, 30000);
    const QVariantMap last = store->property("history").toList().value(0).toMap();
    QCOMPARE(last.value(u"title"_s).toString(), u"Clear the die"_s);
    QCOMPARE(last.value(u"phase"_s).toString(), u"succeeded"_s);

    // Revoked from the same switch.
    QVERIFY(click(window, findItem(root, allowClear)));
    QTRY_VERIFY(!granted());
    QTRY_VERIFY(findItem(root, allowClear) && !switchedOn());
}

void tst_PluginViews::refusedGrantShowsItsSentence() {
    // An entry that the router no longer offers: the switch asks, hears the refusal, and goes back.
    const QVariantMap gone{
        {"caller", kCounter},     {"callerName", "Counter"}, {"provider", "app.ostavell.example.gone"},
        {"providerName", "Gone"}, {"name", "vanish"},        {"title", "Vanish"},
        {"effect", "readOnly"},   {"channel", false},        {"allowed", false}};
    QQuickWindow* window = show("import QtQuick\nimport QtQuick.Controls\nimport OstaVell.Plugins\n"
                                "ApplicationWindow { id: w; required property var entries; visible: true; "
                                "width: 600; height: 500\n"
                                "AllowedActionsView { x: 20; width: 560; entries: w.entries; history: [] } }",
                                {{u"entries"_s, QVariantList{gone}}});
    QVERIFY(window);
    QQuickItem* allow =
        findItem(window->contentItem(), u"allow:%1:app.ostavell.example.gone/vanish:action"_s.arg(kCounter));
    QQuickItem* failure = findItem(window->contentItem(), u"failure"_s);
    QVERIFY(allow && failure);
    QVERIFY(!failure->isVisible());
    QVERIFY(click(window, allow));
    QTRY_COMPARE(failure->property("text").toString(), u"The action is no longer available."_s);
    QVERIFY(failure->isVisible());
    QVERIFY(!allow->property("checked").toBool());
}

void tst_PluginViews::paneShowsInstalledPluginsAndTheReview() {
    install(u"Counter"_s, kCounter);
    install(u"Dice"_s, kDice);
    const QString clockID = u"app.ostavell.example.clock"_s;
    NativePluginStore* store = NativePluginStore::instance();
    QQuickWindow* window = show(
        "import QtQuick\nimport QtQuick.Controls\nimport QtQuick.Controls.Material\nimport OstaVell.Plugins\n"
        "ApplicationWindow { visible: true; width: 640; height: 1040; color: '#1c1c20'\n"
        "Material.theme: Material.Dark; font.capitalization: Font.MixedCase\n"
        "PluginsPane { objectName: 'pane'; anchors.fill: parent\n"
        "  shelf: QtObject { property var displays: [{ id: 'DP-1', name: 'Test display', "
        "appearanceID: 'display-pane' }] } } }");
    QVERIFY(window);
    QQuickItem* root = window->contentItem();
    const auto item = [&](const QString& name) { return findItem(root, name); };
    const auto diceDisplay = [&] { return findItem(item(u"plugin:"_s + kDice), u"display:display-pane"_s); };
    QTRY_VERIFY(item(u"plugin:"_s + kCounter) && item(u"plugin:"_s + kDice));

    // Where a plugin shows is the store's record, both ways.
    QVERIFY(diceDisplay() && diceDisplay()->property("checked").toBool());
    QVERIFY(click(window, diceDisplay()));
    QTRY_VERIFY(store->plugin(kDice)->hiddenDisplayIDs.contains(u"display-pane"_s));
    QTRY_VERIFY(!diceDisplay()->property("checked").toBool());
    QVERIFY(click(window, diceDisplay()));
    QTRY_VERIFY(!store->plugin(kDice)->hiddenDisplayIDs.contains(u"display-pane"_s));
    screenshot(window, u"plugins-pane"_s);

    // The review screen stands in place of the list until it is answered.
    QCOMPARE(store->review(QUrl::fromLocalFile(bundle(u"Clock"_s))), QString());
    QTRY_VERIFY(shown(root, u"installReviewed"_s));
    QVERIFY(!item(u"plugin:"_s + kDice)->isVisible());
    QCOMPARE(item(u"installReviewed"_s)->property("text").toString(), u"Install"_s);
    QCOMPARE(item(u"fingerprint"_s)->property("text").toString(),
             store->reviewed().value(u"fingerprint"_s).toString());
    screenshot(window, u"plugins-review"_s);
    QVERIFY(click(window, item(u"installReviewed"_s)));
    QTRY_VERIFY(store->plugin(clockID));
    QTRY_COMPARE(item(u"notice"_s)->property("text").toString(), u"Plugin installed."_s);
    QTRY_VERIFY(item(u"plugin:"_s + clockID));

    // An installed id is an update; cancelling leaves everything as it was.
    QCOMPARE(store->review(QUrl::fromLocalFile(bundle(u"Clock"_s))), QString());
    QTRY_COMPARE(item(u"installReviewed"_s)->property("text").toString(), u"Update"_s);
    QVERIFY(drawn(window));
    QVERIFY(click(window, item(u"cancelReview"_s)));
    QTRY_VERIFY(store->reviewed().isEmpty());
    QTRY_VERIFY(item(u"plugin:"_s + kDice)->isVisible());

    // Removal asks first, and only "Remove" removes.
    QVERIFY(drawn(window));
    QVERIFY(click(window, findItem(item(u"plugin:"_s + clockID), u"remove"_s)));
    QTRY_VERIFY(shown(root, u"confirmRemove"_s));
    QVERIFY(store->plugin(clockID));
    QVERIFY(drawn(window));
    QVERIFY(click(window, item(u"confirmRemove"_s)));
    QTRY_VERIFY(!store->plugin(clockID));
}

QTEST_MAIN(tst_PluginViews)
#include "tst_PluginViews.moc"
