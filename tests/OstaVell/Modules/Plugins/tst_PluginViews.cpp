// The plugin views drawn in real windows, against the real store and real example plugins: text
// a plugin brings is shown as it is and never interpreted, the control grid narrows as a person
// asks, and a button reaches the plugin only when it may. Forms and collections have their own
// file.
#include "OstaVell/Modules/Plugins/NativePluginStore.h"

#include <QDir>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

#include "../../QuickTestSupport.h"
#include "HostilePresentation.h"
#include "PluginViewFixture.h"

using namespace vell;
using namespace vell::test;

namespace {

const QString kCounter = QStringLiteral("app.ostavell.example.counter");
const QString kDice = QStringLiteral("app.ostavell.example.dice");

// Counts the requests that reach it, each by the path it asked for.
class Listener final : public QTcpServer {
public:
    Listener() {
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    const QByteArray line = socket->readLine();
                    paths.append(QString::fromLatin1(line.split(' ').value(1)));
                    socket->disconnectFromHost();
                });
            }
        });
    }
    QStringList paths;
};

void findItems(QQuickItem* root, const QString& prefix, QStringList& names) {
    if (root->objectName().startsWith(prefix))
        names.append(root->objectName().mid(prefix.size()));
    const QList<QQuickItem*> children = root->childItems();
    for (QQuickItem* child : children)
        findItems(child, prefix, names);
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
    const QVariantList fields = snapshot.value(QStringLiteral("fields")).toList();
    for (const QVariant& field : fields)
        if (field.toMap().value(QStringLiteral("label")).toString() == label)
            return field.toMap().value(QStringLiteral("value")).toString();
    return {};
}

QVariantMap action(const QString& id, const QString& label, bool enabled,
                   const std::optional<QString>& confirmation = std::nullopt) {
    QVariantMap map{
        {QStringLiteral("id"), id}, {QStringLiteral("label"), label}, {QStringLiteral("enabled"), enabled}};
    if (confirmation)
        map.insert(QStringLiteral("confirmation"), *confirmation);
    return map;
}

QVariantMap card(const QString& id, const QString& title, const QString& subtitle) {
    return {{QStringLiteral("id"), id},
            {QStringLiteral("title"), title},
            {QStringLiteral("subtitle"), subtitle},
            {QStringLiteral("value"), QString()},
            {QStringLiteral("detail"), QString()},
            {QStringLiteral("highlighted"), false},
            {QStringLiteral("actions"), QVariantList()}};
}

} // namespace

class tst_PluginViews final : public QObject, public PluginViewFixture {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void hostileTextIsNeverFetched();
    void controlGridNarrows_data();
    void controlGridNarrows();
    void confirmationComesBeforeThePress();
    void disabledActionIsNotPressable();
    void grantsAndReviewsGoThroughTheRouter();
    void refusedGrantShowsItsSentence();
    void paneShowsInstalledPluginsAndTheReview();

private:
    // A request for `path` made after everything else has been drawn: once it arrives, any
    // earlier fetch would have arrived too.
    void waitForOneMore(const QString& path);
    // Counter in a fresh session, so that its count and its "Dice" row start over.
    void restartCounter();
    // Counter answers "rollDice" with a new "Dice" row, after every press sent before it.
    QString countAfterFence();

    Listener m_listener;
};

void tst_PluginViews::waitForOneMore(const QString& path) {
    const QString url = QStringLiteral("http://127.0.0.1:%1%2").arg(m_listener.serverPort()).arg(path);
    QQuickWindow* window =
        show(QStringLiteral("import QtQuick\nWindow { visible: true; width: 100; height: 40; "
                            "Text { text: '<img src=\"%1\">' } }")
                 .arg(url)
                 .toUtf8());
    QVERIFY(window);
    QTRY_VERIFY_WITH_TIMEOUT(m_listener.paths.contains(path), 20000);
}

void tst_PluginViews::restartCounter() {
    NativePluginStore* store = NativePluginStore::instance();
    store->restart(kCounter);
    QTRY_VERIFY_WITH_TIMEOUT(
        snapshotOf(kCounter).value(QStringLiteral("status")).toString() == u"0 presses" &&
            fieldOf(snapshotOf(kCounter), QStringLiteral("Dice")) == u"Dice not asked yet",
        30000);
}

QString tst_PluginViews::countAfterFence() {
    NativePluginStore::instance()->press(kCounter, QStringLiteral("rollDice"));
    const bool answered = QTest::qWaitFor(
        [] { return fieldOf(snapshotOf(kCounter), QStringLiteral("Dice")) != u"Dice not asked yet"; }, 30000);
    return answered ? snapshotOf(kCounter).value(QStringLiteral("status")).toString()
                    : QStringLiteral("no answer");
}

void tst_PluginViews::initTestCase() {
    QVERIFY(m_listener.listen(QHostAddress::LocalHost));
    startViews();
}

void tst_PluginViews::cleanupTestCase() {
    stopViews();
}

void tst_PluginViews::hostileTextIsNeverFetched() {
    // The listener hears a view that guesses the format: the check below can fail.
    waitForOneMore(QStringLiteral("/control"));

    const auto img = [this](const QString& path) {
        return QStringLiteral("<img src=\"http://127.0.0.1:%1/%2\">").arg(m_listener.serverPort()).arg(path);
    };
    const auto field = [&](const QString& what) {
        return QVariantMap{{QStringLiteral("label"), img(what + QStringLiteral("-label"))},
                           {QStringLiteral("value"), img(what + QStringLiteral("-value"))},
                           {QStringLiteral("symbol"), img(what + QStringLiteral("-symbol"))}};
    };
    const auto section = [&](const QString& what) {
        return QVariantMap{{QStringLiteral("title"), img(what + QStringLiteral("-title"))},
                           {QStringLiteral("detail"), img(what + QStringLiteral("-detail"))},
                           {QStringLiteral("imagePNG"), img(what + QStringLiteral("-image"))}};
    };
    QVariantMap go = action(QStringLiteral("go"), img(QStringLiteral("action")), true,
                            img(QStringLiteral("confirmation")));
    go.insert(QStringLiteral("symbol"), img(QStringLiteral("action-symbol")));
    QVariantMap tile =
        card(QStringLiteral("c1"), img(QStringLiteral("card-title")), img(QStringLiteral("card-subtitle")));
    tile.insert(QStringLiteral("value"), img(QStringLiteral("card-value")));
    tile.insert(QStringLiteral("detail"), img(QStringLiteral("card-detail")));
    tile.insert(QStringLiteral("symbol"), img(QStringLiteral("card-symbol")));
    tile.insert(QStringLiteral("highlighted"), true);
    tile.insert(QStringLiteral("actions"), QVariantList{go});

    const QVariantMap top{{QStringLiteral("title"), img(QStringLiteral("title"))},
                          {QStringLiteral("status"), img(QStringLiteral("snapshot-status"))},
                          {QStringLiteral("activity"), img(QStringLiteral("activity"))}};
    QVariantMap flat = top;
    flat.insert(QStringLiteral("badge"), img(QStringLiteral("badge")));
    flat.insert(QStringLiteral("progress"), 50.0);
    flat.insert(QStringLiteral("fields"), QVariantList{field(QStringLiteral("field"))});
    flat.insert(QStringLiteral("actions"), QVariantList{go});
    flat.insert(QStringLiteral("metrics"), QVariantList{field(QStringLiteral("metric"))});
    flat.insert(QStringLiteral("sections"), QVariantList{section(QStringLiteral("section"))});
    flat.insert(QStringLiteral("media"),
                QVariantMap{{QStringLiteral("label"), img(QStringLiteral("media-label"))},
                            {QStringLiteral("status"), img(QStringLiteral("media-status"))}});
    QVariantMap paged = top;
    paged.insert(QStringLiteral("badge"), img(QStringLiteral("paged-badge")));
    paged.insert(QStringLiteral("fields"), QVariantList());
    paged.insert(QStringLiteral("actions"), QVariantList());
    paged.insert(
        QStringLiteral("panels"),
        QVariantList{
            QVariantMap{{QStringLiteral("id"), QStringLiteral("p1")},
                        {QStringLiteral("title"), img(QStringLiteral("panel-title"))},
                        {QStringLiteral("usesMedia"), false},
                        {QStringLiteral("sections"), QVariantList{section(QStringLiteral("panel"))}},
                        {QStringLiteral("cards"), QVariantList{tile}}},
            QVariantMap{{QStringLiteral("id"), QStringLiteral("p2")},
                        {QStringLiteral("title"), img(QStringLiteral("second-panel-title"))},
                        {QStringLiteral("usesMedia"), false},
                        {QStringLiteral("sections"), QVariantList()},
                        {QStringLiteral("forms"), QVariantList{hostileForm(img)}}},
            QVariantMap{{QStringLiteral("id"), QStringLiteral("p3")},
                        {QStringLiteral("title"), img(QStringLiteral("calendar-panel-title"))},
                        {QStringLiteral("usesMedia"), false},
                        {QStringLiteral("sections"), QVariantList()},
                        {QStringLiteral("collection"), hostileCollection(img, QStringLiteral("calendar"))}},
            QVariantMap{{QStringLiteral("id"), QStringLiteral("p4")},
                        {QStringLiteral("title"), img(QStringLiteral("tasks-panel-title"))},
                        {QStringLiteral("usesMedia"), false},
                        {QStringLiteral("sections"), QVariantList()},
                        {QStringLiteral("collection"), hostileCollection(img, QStringLiteral("tasks"))}}});

    const QVariantMap icon{{QStringLiteral("symbol"), img(QStringLiteral("icon"))},
                           {QStringLiteral("color"), "FF9F0A"}};
    const QVariantMap plugin{
        {QStringLiteral("id"), QStringLiteral("cafe.osta.hostile")},
        {QStringLiteral("name"), img(QStringLiteral("name"))},
        {QStringLiteral("version"), img(QStringLiteral("version"))},
        {QStringLiteral("status"), img(QStringLiteral("status"))},
        {QStringLiteral("icon"), icon},
        {QStringLiteral("enabled"), true},
        {QStringLiteral("running"), false},
        {QStringLiteral("compactActivity"), false},
        {QStringLiteral("hiddenDisplayIDs"), QStringList()},
        {QStringLiteral("previousVersions"),
         QVariantList{QVariantMap{{QStringLiteral("folder"), QStringLiteral("F")},
                                  {QStringLiteral("name"), img(QStringLiteral("saved-name"))},
                                  {QStringLiteral("version"), img(QStringLiteral("saved-version"))},
                                  {QStringLiteral("savedAt"), 0.0}}}}};
    const QVariantMap review{
        {QStringLiteral("id"), QStringLiteral("R")},
        {QStringLiteral("callerName"), img(QStringLiteral("caller"))},
        {QStringLiteral("providerName"), img(QStringLiteral("provider"))},
        {QStringLiteral("title"), img(QStringLiteral("review-title"))},
        {QStringLiteral("effect"), img(QStringLiteral("effect"))},
        {QStringLiteral("arguments"),
         QVariantList{QVariantMap{{QStringLiteral("name"), img(QStringLiteral("argument-name"))},
                                  {QStringLiteral("value"), img(QStringLiteral("argument-value"))}}}}};
    const QVariantMap reviewed{
        {QStringLiteral("id"), img(QStringLiteral("reviewed-id"))},
        {QStringLiteral("name"), img(QStringLiteral("reviewed-name"))},
        {QStringLiteral("version"), img(QStringLiteral("reviewed-version"))},
        {QStringLiteral("summary"), img(QStringLiteral("summary"))},
        {QStringLiteral("capabilities"), QStringList{img(QStringLiteral("capability"))}},
        {QStringLiteral("launchMode"), QStringLiteral("application")},
        {QStringLiteral("icon"), icon},
        {QStringLiteral("fingerprint"), img(QStringLiteral("fingerprint"))},
        {QStringLiteral("restore"), true},
        {QStringLiteral("restoreWarning"), img(QStringLiteral("restore-warning"))}};
    const QVariantMap entry{{QStringLiteral("caller"), QStringLiteral("c")},
                            {QStringLiteral("callerName"), img(QStringLiteral("entry-caller"))},
                            {QStringLiteral("provider"), QStringLiteral("p")},
                            {QStringLiteral("providerName"), img(QStringLiteral("entry-provider"))},
                            {QStringLiteral("name"), QStringLiteral("n")},
                            {QStringLiteral("title"), img(QStringLiteral("entry-title"))},
                            {QStringLiteral("effect"), img(QStringLiteral("entry-effect"))},
                            {QStringLiteral("channel"), false},
                            {QStringLiteral("allowed"), true}};
    const QVariantMap run{{QStringLiteral("callerName"), img(QStringLiteral("history-caller"))},
                          {QStringLiteral("providerName"), img(QStringLiteral("history-provider"))},
                          {QStringLiteral("title"), img(QStringLiteral("history-title"))},
                          {QStringLiteral("phase"), img(QStringLiteral("history-phase"))},
                          {QStringLiteral("date"), 0.0}};
    const QVariantMap display{{QStringLiteral("id"), QStringLiteral("D")},
                              {QStringLiteral("name"), img(QStringLiteral("display"))},
                              {QStringLiteral("appearanceID"), QStringLiteral("A")}};
    const QVariantMap hostile{{QStringLiteral("flat"), flat},
                              {QStringLiteral("paged"), paged},
                              {QStringLiteral("plugin"), plugin},
                              {QStringLiteral("review"), review},
                              {QStringLiteral("reviewed"), reviewed},
                              {QStringLiteral("entries"), QVariantList{entry}},
                              {QStringLiteral("history"), QVariantList{run}},
                              {QStringLiteral("displays"), QVariantList{display}},
                              {QStringLiteral("error"), img(QStringLiteral("actions-error"))}};

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
        {{QStringLiteral("h"), hostile}});
    QVERIFY(window);
    QVERIFY(drawn(window));
    QQuickItem* root = window->contentItem();

    // The confirmation asks with the plugin's words.
    QVERIFY(click(window, findItem(findItem(root, QStringLiteral("flat")), QStringLiteral("action:go"))));
    QTRY_VERIFY(shown(root, QStringLiteral("cancel")));
    QVERIFY(drawn(window));
    QVERIFY(click(window, findItem(root, QStringLiteral("cancel"))));
    QTRY_VERIFY(!shown(root, QStringLiteral("cancel")));

    // The group menu lists the subtitles.
    QObject* menu = findItem(findItem(root, QStringLiteral("paged")), QStringLiteral("groupMenu"))
                        ->property("popup")
                        .value<QObject*>();
    QVERIFY(menu);
    QMetaObject::invokeMethod(menu, "open");
    QTRY_VERIFY(menu->property("opened").toBool());
    QVERIFY(drawn(window));
    QMetaObject::invokeMethod(menu, "close");
    QTRY_VERIFY(!menu->property("visible").toBool());

    // The removal asks under the plugin's name; then the other page.
    QVERIFY(click(window, findItem(root, QStringLiteral("remove"))));
    QTRY_VERIFY(shown(root, QStringLiteral("confirmRemove")));
    QVERIFY(drawn(window));
    QVERIFY(click(window, findItem(root, QStringLiteral("cancelRemove"))));
    QTRY_VERIFY(!shown(root, QStringLiteral("confirmRemove")));
    QVERIFY(click(window, findItem(root, QStringLiteral("panel:p2"))));
    QTRY_VERIFY(shown(root, QStringLiteral("form:hostile")));
    screenshot(window, QStringLiteral("plugins-hostile"));
    verifyPlainText(findItem(root, QStringLiteral("paged")));
    // The collections, with nothing typed, then a search that finds nothing.
    for (const QString& page : {QStringLiteral("p3"), QStringLiteral("p4")}) {
        QVERIFY(click(window, findItem(root, QStringLiteral("panel:") + page)));
        QTRY_VERIFY(shown(findItem(root, QStringLiteral("paged")), QStringLiteral("searchHint")));
        QVERIFY(drawn(window));
        verifyPlainText(findItem(root, QStringLiteral("paged")));
        findItem(findItem(root, QStringLiteral("paged")), QStringLiteral("search"))
            ->setProperty("text", "zz");
        QTRY_VERIFY(shown(findItem(root, QStringLiteral("paged")), QStringLiteral("emptyText")));
        QVERIFY(drawn(window));
        findItem(findItem(root, QStringLiteral("paged")), QStringLiteral("search"))->setProperty("text", "");
    }

    waitForOneMore(QStringLiteral("/last"));
    QStringList fetched = m_listener.paths;
    fetched.removeAll(QStringLiteral("/control"));
    fetched.removeAll(QStringLiteral("/last"));
    QCOMPARE(fetched, QStringList());
}

void tst_PluginViews::controlGridNarrows_data() {
    QTest::addColumn<QString>("group");
    QTest::addColumn<QString>("search");
    QTest::addColumn<QStringList>("shown");

    const QStringList all{"k1", "k2", "l1", "n1", "b1", "u1"};
    QTest::addRow("everything") << ""
                                << "" << all;
    QTest::addRow("search ignores case") << ""
                                         << "LIGHT" << QStringList{"k1", "n1"};
    QTest::addRow("search finds the subtitle") << ""
                                               << "room" << QStringList{"l1", "b1"};
    QTest::addRow("search ignores case beyond ASCII") << ""
                                                      << "\u00E4PF" << QStringList{"u1"};
    QTest::addRow("group") << "Kitchen"
                           << "" << QStringList{"k1", "k2"};
    QTest::addRow("group and search") << "Kitchen"
                                      << "light" << QStringList{"k1"};
    QTest::addRow("group is exact") << "bedroom"
                                    << "" << QStringList{"b1"};
    QTest::addRow("nothing matches in the group") << "Living Room"
                                                  << "light" << QStringList{};
    QTest::addRow("a group no card names shows all") << "Garage"
                                                     << "" << all;
    QTest::addRow("search is a substring, not a prefix") << ""
                                                         << "amp" << QStringList{"l1"};
}

void tst_PluginViews::controlGridNarrows() {
    QFETCH(QString, group);
    QFETCH(QString, search);
    QFETCH(QStringList, shown);

    const QVariantList cards{card("k1", "Ceiling Light", "Kitchen"),  card("k2", "Counter", "Kitchen"),
                             card("l1", "Floor lamp", "Living Room"), card("n1", "Night light", ""),
                             card("b1", "Bedside", "bedroom"),        card("u1", "\u00C4pfel", "K\u00FCche")};
    QQuickWindow* window = show("import QtQuick\nimport OstaVell.Plugins\n"
                                "Window { id: w; required property var cards; visible: true; width: 900; "
                                "height: 700; color: '#111114'\n"
                                "PluginControlGrid { objectName: 'grid'; width: 860; x: 20; y: 20; "
                                "pluginID: 'app.ostavell.example.grid'; cards: w.cards } }",
                                {{QStringLiteral("cards"), cards}});
    QVERIFY(window);
    QQuickItem* grid = findItem(window->contentItem(), QStringLiteral("grid"));
    QQuickItem* menu = findItem(window->contentItem(), QStringLiteral("groupMenu"));
    QQuickItem* field = findItem(window->contentItem(), QStringLiteral("search"));
    QVERIFY(grid && menu && field);

    // Distinct non-empty subtitles, ascending, after "All", which is chosen at the start.
    QCOMPARE(menuTexts(menu), QStringList({"All", "Kitchen", "K\u00FCche", "Living Room", "bedroom"}));
    QCOMPARE(menu->property("currentIndex").toInt(), 0);

    grid->setProperty("group", group);
    field->setProperty("text", search);
    QStringList names;
    findItems(window->contentItem(), QStringLiteral("card:"), names);
    QCOMPARE(names, shown);
    const bool offered = menuTexts(menu).contains(group);
    QCOMPARE(menu->property("displayText").toString(),
             offered && !group.isEmpty() ? group : QStringLiteral("All"));
}

void tst_PluginViews::confirmationComesBeforeThePress() {
    install(QStringLiteral("Counter"), kCounter);
    restartCounter();
    // The view is given a snapshot that asks first; the store still judges each press against
    // Counter's own snapshot, where "add" needs no confirmation, so only the view holds it back.
    const QVariantMap asking{
        {QStringLiteral("title"), QStringLiteral("Counter")},
        {QStringLiteral("status"), QString()},
        {QStringLiteral("activity"), QString()},
        {QStringLiteral("fields"), QVariantList()},
        {QStringLiteral("actions"),
         QVariantList{action("add", "Add one", true, QStringLiteral("Add one to the count?"))}}};
    QQuickWindow* window =
        show("import QtQuick\nimport QtQuick.Controls\nimport OstaVell.Plugins\n"
             "ApplicationWindow { id: w; required property var shot; visible: true; "
             "width: 600; height: 400; color: '#111114'\n"
             "NativePluginCards { x: 20; y: 20; width: 560; "
             "plugin: ({ id: 'app.ostavell.example.counter', status: '' }); snapshot: w.shot } }",
             {{QStringLiteral("shot"), asking}});
    QVERIFY(window);
    QQuickItem* add = findItem(window->contentItem(), QStringLiteral("action:add"));
    QVERIFY(click(window, add));
    QTRY_VERIFY(shown(window->contentItem(), QStringLiteral("cancel")));
    QVERIFY(drawn(window));
    // Turned down: nothing goes.
    QVERIFY(click(window, findItem(window->contentItem(), QStringLiteral("cancel"))));
    QTRY_VERIFY(!shown(window->contentItem(), QStringLiteral("confirm")));
    // Asked again and confirmed: exactly one press.
    QVERIFY(click(window, add));
    QTRY_VERIFY(shown(window->contentItem(), QStringLiteral("confirm")));
    QVERIFY(click(window, findItem(window->contentItem(), QStringLiteral("confirm"))));
    QCOMPARE(countAfterFence(), QStringLiteral("1 press"));
}

void tst_PluginViews::disabledActionIsNotPressable() {
    install(QStringLiteral("Counter"), kCounter);
    restartCounter();
    const QVariantMap disabled{{QStringLiteral("title"), QStringLiteral("Counter")},
                               {QStringLiteral("status"), QString()},
                               {QStringLiteral("activity"), QString()},
                               {QStringLiteral("fields"), QVariantList()},
                               {QStringLiteral("actions"), QVariantList{action("add", "Add one", false)}}};
    QQuickWindow* window =
        show("import QtQuick\nimport QtQuick.Controls\nimport OstaVell.Plugins\n"
             "ApplicationWindow { id: w; required property var shot; visible: true; "
             "width: 600; height: 400; color: '#111114'\n"
             "NativePluginCards { x: 20; y: 20; width: 560; "
             "plugin: ({ id: 'app.ostavell.example.counter', status: '' }); snapshot: w.shot } }",
             {{QStringLiteral("shot"), disabled}});
    QVERIFY(window);
    QQuickItem* add = findItem(window->contentItem(), QStringLiteral("action:add"));
    QVERIFY(add);
    QVERIFY(!add->isEnabled());
    QVERIFY(click(window, add));
    QVERIFY(click(window, add));
    QCOMPARE(countAfterFence(), QStringLiteral("0 presses"));

    // The other side: the same button enabled reaches the plugin.
    QVariantMap enabled = disabled;
    enabled.insert(QStringLiteral("actions"), QVariantList{action("add", "Add one", true)});
    restartCounter();
    window->setProperty("shot", enabled);
    QTRY_VERIFY(add = findItem(window->contentItem(), QStringLiteral("action:add")));
    QTRY_VERIFY(add->isEnabled());
    QVERIFY(drawn(window));
    QVERIFY(click(window, add));
    QCOMPARE(countAfterFence(), QStringLiteral("1 press"));
}

void tst_PluginViews::grantsAndReviewsGoThroughTheRouter() {
    install(QStringLiteral("Counter"), kCounter);
    install(QStringLiteral("Dice"), kDice);
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
    const QString allowClear = QStringLiteral("allow:%1:%2/clear:action").arg(kCounter, kDice);
    const auto granted = [&] {
        const QVariantList entries = store->property("allowedActions").toList();
        for (const QVariant& entry : entries) {
            const QVariantMap map = entry.toMap();
            if (map.value(QStringLiteral("caller")).toString() == kCounter &&
                map.value(QStringLiteral("provider")).toString() == kDice &&
                map.value(QStringLiteral("name")).toString() == u"clear")
                return map.value(QStringLiteral("allowed")).toBool();
        }
        return false;
    };

    // Without a grant the router turns Counter away before anyone is asked.
    QTRY_VERIFY_WITH_TIMEOUT(findItem(root, allowClear), 30000);
    QVERIFY(!findItem(root, allowClear)->property("checked").toBool());
    QVERIFY(drawn(window));
    QVERIFY(click(window, findItem(root, allowClear)));
    QTRY_VERIFY(granted());
    QTRY_VERIFY(findItem(root, allowClear) && findItem(root, allowClear)->property("checked").toBool());

    // Granted, a change still waits for a person: declined, then allowed once.
    const auto waitingRun = [&] {
        const QVariantList reviews = store->property("reviews").toList();
        return reviews.isEmpty() ? QString() : reviews.first().toMap().value(QStringLiteral("id")).toString();
    };
    store->press(kCounter, QStringLiteral("clearDice"));
    QTRY_VERIFY_WITH_TIMEOUT(!waitingRun().isEmpty(), 30000);
    QString run = waitingRun();
    QTRY_VERIFY(findItem(root, QStringLiteral("review:") + run));
    QVERIFY(drawn(window));
    QVERIFY(
        click(window, findItem(findItem(root, QStringLiteral("review:") + run), QStringLiteral("decline"))));
    QTRY_VERIFY_WITH_TIMEOUT(waitingRun().isEmpty(), 30000);
    QTRY_VERIFY(!findItem(root, QStringLiteral("review:") + run));

    store->press(kCounter, QStringLiteral("clearDice"));
    QTRY_VERIFY_WITH_TIMEOUT(!waitingRun().isEmpty(), 30000);
    run = waitingRun();
    QTRY_VERIFY(findItem(root, QStringLiteral("review:") + run));
    QVERIFY(drawn(window));
    QVERIFY(
        click(window, findItem(findItem(root, QStringLiteral("review:") + run), QStringLiteral("approve"))));
    QTRY_COMPARE_WITH_TIMEOUT(fieldOf(snapshotOf(kCounter), QStringLiteral("Dice")),
                              QStringLiteral("Cleared."), 30000);
    const QVariantMap last = store->property("history").toList().value(0).toMap();
    QCOMPARE(last.value(QStringLiteral("title")).toString(), QStringLiteral("Clear the die"));
    QCOMPARE(last.value(QStringLiteral("phase")).toString(), QStringLiteral("succeeded"));

    // Revoked from the same switch.
    QVERIFY(click(window, findItem(root, allowClear)));
    QTRY_VERIFY(!granted());
    QTRY_VERIFY(findItem(root, allowClear) && !findItem(root, allowClear)->property("checked").toBool());
}

void tst_PluginViews::refusedGrantShowsItsSentence() {
    // An entry that the router no longer offers: the switch asks, hears the refusal, and goes back.
    const QVariantMap gone{{QStringLiteral("caller"), kCounter},
                           {QStringLiteral("callerName"), QStringLiteral("Counter")},
                           {QStringLiteral("provider"), QStringLiteral("app.ostavell.example.gone")},
                           {QStringLiteral("providerName"), QStringLiteral("Gone")},
                           {QStringLiteral("name"), QStringLiteral("vanish")},
                           {QStringLiteral("title"), QStringLiteral("Vanish")},
                           {QStringLiteral("effect"), QStringLiteral("readOnly")},
                           {QStringLiteral("channel"), false},
                           {QStringLiteral("allowed"), false}};
    QQuickWindow* window = show("import QtQuick\nimport QtQuick.Controls\nimport OstaVell.Plugins\n"
                                "ApplicationWindow { id: w; required property var entries; visible: true; "
                                "width: 600; height: 500\n"
                                "AllowedActionsView { x: 20; width: 560; entries: w.entries; history: [] } }",
                                {{QStringLiteral("entries"), QVariantList{gone}}});
    QVERIFY(window);
    QQuickItem* allow =
        findItem(window->contentItem(),
                 QStringLiteral("allow:%1:app.ostavell.example.gone/vanish:action").arg(kCounter));
    QQuickItem* failure = findItem(window->contentItem(), QStringLiteral("failure"));
    QVERIFY(allow && failure);
    QVERIFY(!failure->isVisible());
    QVERIFY(click(window, allow));
    QTRY_COMPARE(failure->property("text").toString(), QStringLiteral("The action is no longer available."));
    QVERIFY(failure->isVisible());
    QVERIFY(!allow->property("checked").toBool());
}

void tst_PluginViews::paneShowsInstalledPluginsAndTheReview() {
    install(QStringLiteral("Counter"), kCounter);
    install(QStringLiteral("Dice"), kDice);
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
    QTRY_VERIFY(findItem(root, QStringLiteral("plugin:") + kCounter) &&
                findItem(root, QStringLiteral("plugin:") + kDice));

    // Where a plugin shows is the store's record, both ways.
    QQuickItem* display =
        findItem(findItem(root, QStringLiteral("plugin:") + kDice), QStringLiteral("display:display-pane"));
    QVERIFY(display && display->property("checked").toBool());
    QVERIFY(click(window, display));
    QTRY_VERIFY(store->plugin(kDice)->hiddenDisplayIDs.contains(QStringLiteral("display-pane")));
    QTRY_VERIFY(
        !findItem(findItem(root, QStringLiteral("plugin:") + kDice), QStringLiteral("display:display-pane"))
             ->property("checked")
             .toBool());
    QVERIFY(click(window, findItem(findItem(root, QStringLiteral("plugin:") + kDice),
                                   QStringLiteral("display:display-pane"))));
    QTRY_VERIFY(!store->plugin(kDice)->hiddenDisplayIDs.contains(QStringLiteral("display-pane")));
    screenshot(window, QStringLiteral("plugins-pane"));

    // The review screen stands in place of the list until it is answered.
    QCOMPARE(store->review(QUrl::fromLocalFile(bundle(QStringLiteral("Clock")))), QString());
    QTRY_VERIFY(shown(root, QStringLiteral("installReviewed")));
    QVERIFY(!findItem(root, QStringLiteral("plugin:") + kDice)->isVisible());
    QCOMPARE(findItem(root, QStringLiteral("installReviewed"))->property("text").toString(),
             QStringLiteral("Install"));
    QCOMPARE(findItem(root, QStringLiteral("fingerprint"))->property("text").toString(),
             store->reviewed().value(QStringLiteral("fingerprint")).toString());
    screenshot(window, QStringLiteral("plugins-review"));
    QVERIFY(click(window, findItem(root, QStringLiteral("installReviewed"))));
    QTRY_VERIFY(store->plugin(QStringLiteral("app.ostavell.example.clock")));
    QTRY_COMPARE(findItem(root, QStringLiteral("notice"))->property("text").toString(),
                 QStringLiteral("Plugin installed."));
    QTRY_VERIFY(findItem(root, QStringLiteral("plugin:app.ostavell.example.clock")));

    // An installed id is an update; cancelling leaves everything as it was.
    QCOMPARE(store->review(QUrl::fromLocalFile(bundle(QStringLiteral("Clock")))), QString());
    QTRY_COMPARE(findItem(root, QStringLiteral("installReviewed"))->property("text").toString(),
                 QStringLiteral("Update"));
    QVERIFY(drawn(window));
    QVERIFY(click(window, findItem(root, QStringLiteral("cancelReview"))));
    QTRY_VERIFY(store->reviewed().isEmpty());
    QTRY_VERIFY(findItem(root, QStringLiteral("plugin:") + kDice)->isVisible());

    // Removal asks first, and only "Remove" removes.
    QQuickItem* clock = findItem(root, QStringLiteral("plugin:app.ostavell.example.clock"));
    QVERIFY(drawn(window));
    QVERIFY(click(window, findItem(clock, QStringLiteral("remove"))));
    QTRY_VERIFY(shown(root, QStringLiteral("confirmRemove")));
    QVERIFY(store->plugin(QStringLiteral("app.ostavell.example.clock")));
    QVERIFY(drawn(window));
    QVERIFY(click(window, findItem(root, QStringLiteral("confirmRemove"))));
    QTRY_VERIFY(!store->plugin(QStringLiteral("app.ostavell.example.clock")));
}

QTEST_MAIN(tst_PluginViews)
#include "tst_PluginViews.moc"
