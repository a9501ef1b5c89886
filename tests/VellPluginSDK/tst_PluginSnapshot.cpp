#include "VellPluginSDK/Presentation/PluginIcon.h"
#include "VellPluginSDK/Presentation/PluginPresentationGate.h"
#include "VellPluginSDK/Presentation/PluginSnapshot.h"

#include <QTest>

#include "PresentationSupport.h"

using namespace vell;
using namespace vell::test;

namespace {

const QString endpointList = "Invalid volume endpoint list.";
const QString conflicting = "Invalid or conflicting card action.";
const QString tooManyCards = "Too many control cards.";
const QString customPanel = "Conflicting custom view panel.";
const QString collectionPanel = "Conflicting collection panel.";
const QString formPanel = "Invalid form panel.";
const QString cardPanel = "Invalid control card panel.";
const QString badCard = "Invalid control card.";
const QString artwork = "Plugin artwork exceeded its limit.";
const QString diagramPages = "Invalid module diagram pages.";
const QString dashboardPanels = "Invalid dashboard panels.";
const QString dashboardData = "Invalid dashboard data.";
const QString displayData = "Invalid plugin display data.";

PluginSnapshot base() {
    return {"Lights",     "Connected",  "3 on",       std::nullopt, {},           {},          std::nullopt,
            std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt};
}

template <typename Change> PluginSnapshot snapshot(Change change) {
    return with(base(), change);
}

PluginSnapshot withPanels(const QList<PluginPanel>& panels) {
    return snapshot([&](auto& s) { s.panels = panels; });
}

PluginPanel panel(const QString& id = "main") {
    return {id, "Main", false, {}, std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt};
}

// A snapshot whose only panel is the plain one after change.
template <typename Change> PluginSnapshot onPanel(Change change) {
    return withPanels({with(panel(), change)});
}

PluginControlCard card(const QString& id, const QList<PluginAction>& actions = {}) {
    return {id, "Lamp", "Kitchen", "On", "", std::nullopt, false, actions};
}

template <typename Change> PluginSnapshot onCard(Change change) {
    return onPanel([&](auto& p) { p.cards = QList<PluginControlCard>{with(card("lamp"), change)}; });
}

// count records made by make(id), with the ids prefix0, prefix1, ...
template <typename Make> auto numbered(const char* prefix, int count, Make make) {
    QList<decltype(make(QString()))> list;
    for (int i = 0; i < count; ++i)
        list.append(make(prefix + QString::number(i)));
    return list;
}

PluginPanel gridPanel(const QString& id, int cards) {
    return with(panel(id), [&](auto& p) { p.cards = numbered("c", cards, [](auto i) { return card(i); }); });
}

PluginPanel listPanel(const QString& id, int items) {
    return with(panel(id), [&](auto& p) { p.collection = collection(items); });
}

QList<PluginVolumeEndpoint> endpoints(int count) {
    return numbered("e", count, [](auto id) {
        return PluginVolumeEndpoint{id, "Speakers", true, 0.5, false, true, true, 700000000};
    });
}

PluginSection image(qsizetype bytes) {
    return {"", "", QByteArray(bytes, 'p')};
}

} // namespace

class TestPluginSnapshot final : public QObject {
    Q_OBJECT

private slots:
    void validation_data() {
        QTest::addColumn<Check>("check");
        QTest::addColumn<QString>("message");
        check("plain", base(), "");
        bothSides("endpoints", 8, endpointList,
                  [](int n) { return snapshot([&](auto& s) { s.volumeEndpoints = endpoints(n); }); });
        check("repeated endpoint", snapshot([](auto& s) { s.volumeEndpoints = endpoints(2) + endpoints(1); }),
              endpointList);
        check("bad endpoint", snapshot([](auto& s) {
                  s.volumeEndpoints = endpoints(1), s.volumeEndpoints->first().name = "";
              }),
              "Invalid volume endpoint.");
        check("endpoints before actions",
              snapshot([](auto& s) { s.volumeEndpoints = endpoints(9), s.actions = {button("9")}; }),
              endpointList);

        check("action id not a key", snapshot([](auto& s) { s.actions = {button("9lives")}; }), conflicting);
        check("empty label", snapshot([](auto& s) { s.actions = {button("a", "")}; }), conflicting);
        bothSides("action label", 80, conflicting,
                  [](int n) { return snapshot([&](auto& s) { s.actions = {button("a", text(n))}; }); });
        bothSides("action symbol", 80, conflicting, [](int n) {
            return snapshot([&](auto& s) { s.actions = {button()}, s.actions[0].symbol = text(n); });
        });
        bothSides("confirmation", 400, conflicting, [](int n) {
            return snapshot([&](auto& s) { s.actions = {button()}, s.actions[0].confirmation = text(n); });
        });
        const auto twoCards = [](const PluginAction& first, const PluginAction& second) {
            return onPanel([&](auto& p) { p.cards = {{card("a", {first}), card("b", {second})}}; });
        };
        check("one id on two cards alike", twoCards(button("on"), button("on")), "");
        check("one id, two labels", twoCards(button("on", "On"), button("on", "Light")), conflicting);
        check("one id, enabled and not", twoCards(button("on"), button("on", "On", false)), conflicting);
        check("top level and card differ",
              with(twoCards(button("on"), button("on")), [](auto& s) { s.actions = {button("on", "Go")}; }),
              conflicting);
        check("actions before totals",
              with(twoCards(button("x", ""), button("y")),
                   [](auto& s) { s.panels->append(gridPanel("p2", 192)); }),
              conflicting);

        // The third panel would fail on its own too: the totals come before any panel.
        check("two panels of 96 cards", withPanels({gridPanel("a", 96), gridPanel("b", 96)}), "");
        check("a 193rd card",
              withPanels({gridPanel("a", 96), gridPanel("b", 96),
                          with(gridPanel("c", 1), [](auto& p) { p.usesMedia = true; })}),
              tooManyCards);
        check("192 items", withPanels({listPanel("a", 96), listPanel("b", 96)}), "");
        check("193 items", withPanels({listPanel("a", 96), listPanel("b", 96), listPanel("c", 1)}),
              "Too many collection items.");
        check("cards counted before items",
              withPanels({listPanel("a", 96), listPanel("b", 96), listPanel("c", 1), gridPanel("d", 96),
                          gridPanel("e", 96), gridPanel("f", 1)}),
              tooManyCards);

        check("custom view", onPanel([](auto& p) { p.customView = customView(); }), "");
        check("custom view and forms",
              onPanel([](auto& p) { p.customView = customView(), p.forms = {{form()}}; }), customPanel);
        check("custom view and collection",
              onPanel([](auto& p) { p.customView = customView(), p.collection = collection(); }),
              customPanel);
        check("custom view with media",
              onPanel([](auto& p) { p.customView = customView(), p.usesMedia = true; }), customPanel);
        check("custom view validated",
              onPanel([](auto& p) { p.customView = customView(), p.customView->entry = ""; }),
              "Invalid custom view.");
        check("collection", onPanel([](auto& p) { p.collection = collection(); }), "");
        check("collection and forms",
              onPanel([](auto& p) { p.collection = collection(), p.forms = {{form()}}; }), collectionPanel);
        check("collection and diagrams",
              onPanel([](auto& p) { p.collection = collection(), p.diagrams = {{diagram()}}; }),
              collectionPanel);
        check("collection validated",
              onPanel([](auto& p) { p.collection = collection(), p.collection->title = ""; }),
              "Invalid collection size.");
        bothSides("forms", 4, formPanel,
                  [](int n) { return onPanel([&](auto& p) { p.forms = numbered("f", n, form); }); });
        check("no forms", onPanel([](auto& p) { p.forms = QList<PluginForm>(); }), formPanel);
        check("repeated form", onPanel([](auto& p) { p.forms = {{form(), form()}}; }), formPanel);
        check("forms and cards", withPanels({with(gridPanel("a", 1), [](auto& p) { p.forms = {{form()}}; })}),
              formPanel);
        check("forms with media", onPanel([](auto& p) { p.forms = {{form()}}, p.usesMedia = true; }),
              formPanel);
        check("form validated",
              onPanel([](auto& p) { p.forms = {{form()}}, p.forms->first().revision = ""; }),
              "Invalid form identity or fields.");
        bothSides("cards on a panel", 96, cardPanel, [](int n) { return withPanels({gridPanel("a", n)}); });
        check("cards with media", withPanels({with(gridPanel("a", 1), [](auto& p) { p.usesMedia = true; })}),
              cardPanel);
        check("cards and diagrams",
              withPanels({with(gridPanel("a", 1), [](auto& p) { p.diagrams = {{diagram()}}; })}), cardPanel);
        check("repeated card", onPanel([](auto& p) { p.cards = {{card("a"), card("a")}}; }), cardPanel);
        check("card id not a key", onCard([](auto& c) { c.id = "a-b"; }), badCard);
        check("empty card title", onCard([](auto& c) { c.title = ""; }), badCard);
        bothSides("card title", 80, badCard,
                  [](int n) { return onCard([&](auto& c) { c.title = text(n); }); });
        bothSides("card subtitle", 100, badCard,
                  [](int n) { return onCard([&](auto& c) { c.subtitle = text(n); }); });
        bothSides("card value", 100, badCard,
                  [](int n) { return onCard([&](auto& c) { c.value = text(n); }); });
        bothSides("card detail", 300, badCard,
                  [](int n) { return onCard([&](auto& c) { c.detail = text(n); }); });
        bothSides("card symbol", 80, badCard,
                  [](int n) { return onCard([&](auto& c) { c.symbol = text(n); }); });
        bothSides("card actions", 3, badCard, [](int n) {
            return onCard([&](auto& c) { c.actions = numbered("a", n, [](auto i) { return button(i); }); });
        });
        check("one action twice on a card", onCard([](auto& c) {
                  c.actions = {button("a"), button("a")};
              }),
              badCard);
        check(
            "first panel first",
            withPanels({with(gridPanel("a", 1), [](auto& p) { p.forms = {{form()}}; }),
                        with(panel("b"), [](auto& p) { p.customView = customView(), p.usesMedia = true; })}),
            formPanel);
        check("panels before artwork",
              with(onCard([](auto& c) { c.title = ""; }), [](auto& s) { s.iconPNG = QByteArray(); }),
              badCard);

        bothSides("icon bytes", 8192, artwork,
                  [](int n) { return snapshot([&](auto& s) { s.iconPNG = QByteArray(n, 'p'); }); });
        check("empty icon", snapshot([](auto& s) { s.iconPNG = QByteArray(); }), artwork);
        check("empty section image", snapshot([](auto& s) { s.sections = {{image(0)}}; }), artwork);
        // The icon, eight sections and the panels' sections: ten images of 8 KiB, then one byte more.
        bothSides("total artwork bytes", 0, artwork, [](int extra) {
            return snapshot([&](auto& s) {
                s.iconPNG = QByteArray(8192, 'p');
                s.sections = QList<PluginSection>(8, image(8192));
                s.panels = {{with(panel(), [&](auto& p) {
                    p.sections = {image(8192)};
                    if (extra > 0)
                        p.sections.append(image(extra));
                })}};
            });
        });
        check("artwork before panels",
              snapshot([](auto& s) { s.iconPNG = QByteArray(), s.panels = QList<PluginPanel>(); }), artwork);

        const auto diagrams = [](int n) { return numbered("d", n, diagram); };
        bothSides("diagrams", 10, diagramPages,
                  [&](int n) { return onPanel([&](auto& p) { p.diagrams = diagrams(n); }); });
        check("no diagrams", onPanel([](auto& p) { p.diagrams = QList<PluginDiagram>(); }), diagramPages);
        check("repeated diagram", onPanel([](auto& p) {
                  p.diagrams = {{diagram(), diagram()}};
              }),
              diagramPages);
        check("diagrams with media", onPanel([](auto& p) { p.diagrams = {{diagram()}}, p.usesMedia = true; }),
              diagramPages);
        check("diagram validated",
              onPanel([](auto& p) { p.diagrams = {{diagram()}}, (*p.diagrams)[0].width = 99; }),
              "Invalid module diagram.");
        const auto pages = [](int n) { return withPanels(numbered("p", n, panel)); };
        check("diagram pages before the panel count",
              with(pages(7), [](auto& s) { s.panels->last().diagrams = QList<PluginDiagram>(); }),
              diagramPages);
        check("empty panels", pages(0), dashboardPanels);
        bothSides("panels", 6, dashboardPanels, pages);
        check("repeated panel", withPanels({panel(), panel()}), dashboardPanels);
        check("panel id not a key", withPanels({panel("_main")}), dashboardPanels);
        check("empty panel title", onPanel([](auto& p) { p.title = ""; }), dashboardPanels);
        bothSides("panel title", 40, dashboardPanels,
                  [](int n) { return onPanel([&](auto& p) { p.title = text(n); }); });
        const PluginSection longest{text(80), text(1200), std::nullopt};
        bothSides("panel sections", 12, dashboardPanels, [&](int n) {
            return onPanel([&](auto& p) { p.sections = QList<PluginSection>(n, longest); });
        });
        check("81-character panel section title", onPanel([](auto& p) {
                  p.sections = {{text(81), "", std::nullopt}};
              }),
              dashboardPanels);
        check("1201-character panel section detail", onPanel([](auto& p) {
                  p.sections = {{"", text(1201), std::nullopt}};
              }),
              dashboardPanels);
        check("panels before dashboard", snapshot([](auto& s) {
                  s.panels = QList<PluginPanel>(), s.metrics = QList<PluginField>(9, PluginField());
              }),
              dashboardPanels);

        const PluginField metric{text(80), text(200), text(80)};
        bothSides("metrics", 8, dashboardData, [&](int n) {
            return snapshot([&](auto& s) { s.metrics = QList<PluginField>(n, metric); });
        });
        check("81-character metric label", snapshot([](auto& s) {
                  s.metrics = {{{text(81), "", std::nullopt}}};
              }),
              dashboardData);
        check("201-character metric value", snapshot([](auto& s) {
                  s.metrics = {{{"", text(201), std::nullopt}}};
              }),
              dashboardData);
        check("81-character metric symbol", snapshot([](auto& s) {
                  s.metrics = {{{"", "", text(81)}}};
              }),
              dashboardData);
        bothSides("sections", 8, dashboardData, [&](int n) {
            return snapshot([&](auto& s) { s.sections = QList<PluginSection>(n, longest); });
        });
        check("1201-character section detail", snapshot([](auto& s) {
                  s.sections = {{{"", text(1201), std::nullopt}}};
              }),
              dashboardData);
        bothSides("media label", 120, dashboardData, [](int n) {
            return snapshot([&](auto& s) { s.media = PluginMedia{text(n), ""}; });
        });
        bothSides("media status", 300, dashboardData, [](int n) {
            return snapshot([&](auto& s) { s.media = PluginMedia{"", text(n)}; });
        });
        check("dashboard before top level",
              snapshot([&](auto& s) { s.metrics = QList<PluginField>(9, metric), s.title = text(301); }),
              dashboardData);

        check("empty title", snapshot([](auto& s) { s.title = ""; }), "");
        bothSides("badge", 50, displayData,
                  [](int n) { return snapshot([&](auto& s) { s.badge = text(n); }); });
        bothSides("title", 300, displayData,
                  [](int n) { return snapshot([&](auto& s) { s.title = text(n); }); });
        bothSides("status", 500, displayData,
                  [](int n) { return snapshot([&](auto& s) { s.status = text(n); }); });
        bothSides("activity", 100, displayData,
                  [](int n) { return snapshot([&](auto& s) { s.activity = text(n); }); });
        const PluginField field{text(80), text(1024, u'é'), text(80)};
        bothSides("fields", 24, displayData,
                  [&](int n) { return snapshot([&](auto& s) { s.fields = QList<PluginField>(n, field); }); });
        check("81-character field label", snapshot([](auto& s) {
                  s.fields = {{text(81), "", std::nullopt}};
              }),
              displayData);
        check("2049-byte field value", snapshot([](auto& s) {
                  s.fields = {{"", text(1024, u'é') + "x", std::nullopt}};
              }),
              displayData);
        check("81-character field symbol", snapshot([](auto& s) {
                  s.fields = {{"", "", text(81)}};
              }),
              displayData);
        bothSides("actions", 12, displayData, [](int n) {
            return snapshot([&](auto& s) { s.actions = numbered("a", n, [](auto i) { return button(i); }); });
        });
        check("one top-level action twice", snapshot([](auto& s) {
                  s.actions = {button(), button()};
              }),
              displayData);
        check("progress 0", snapshot([](auto& s) { s.progress = 0.0; }), "");
        check("progress 100", snapshot([](auto& s) { s.progress = 100.0; }), "");
        check("progress 100.5", snapshot([](auto& s) { s.progress = 100.5; }), displayData);
        check("progress below 0", snapshot([](auto& s) { s.progress = -0.5; }), displayData);
        check("progress not a number", snapshot([](auto& s) { s.progress = qQNaN(); }), displayData);
    }

    void validation() {
        QFETCH(Check, check);
        QTEST(problemOf(check), "message");
    }

    void displayActionsAreTopLevelThenCardsInOrder() {
        PluginSnapshot s = base();
        s.actions = {button("top")};
        PluginPanel first = panel("a"), second = panel("b");
        first.cards = {{card("x", {button("one"), button("off", "Off", false)}), card("y", {button("two")})}};
        second.cards = {{card("z", {button("off", "Off", true)})}};
        s.panels = {{first, panel("c"), second}};
        QStringList ids;
        for (const PluginAction& action : s.displayActions())
            ids.append(action.id);
        QCOMPARE(ids, QStringList({"top", "one", "off", "two", "off"}));
        // A disabled entry with the id is passed over for a later enabled one.
        QCOMPARE(s.enabledDisplayAction("off"), button("off", "Off", true));
        QCOMPARE(s.enabledDisplayAction("top"), button("top"));
        QCOMPARE(s.enabledDisplayAction("missing"), std::nullopt);
        s.panels->last().cards->first().actions.first().enabled = false;
        QCOMPARE(s.enabledDisplayAction("off"), std::nullopt);
    }

    void gate() {
        PluginPresentationGate gate;
        QVERIFY(gate.accept("cafe.lights", 0));
        QVERIFY(!gate.accept("cafe.lights", 0.999));
        QVERIFY(gate.accept("cafe.radio", 0.5));
        // A refusal changes nothing, so the interval still runs from the first presentation.
        QVERIFY(gate.accept("cafe.lights", 1));
        QVERIFY(!gate.accept("cafe.lights", 0.5));
        QCOMPARE(gate.latest.value("cafe.lights"), 1.0);
    }

    void gatePrunesPastItsKeyLimit_data() {
        QTest::addColumn<double>("now");
        QTest::addColumn<int>("left");
        row("the 65th key, the others 60 seconds old", 60.0, 1);
        row("the 65th key, the others just younger", 59.9, 65);
    }

    void gatePrunesPastItsKeyLimit() {
        QFETCH(double, now);
        PluginPresentationGate gate;
        for (int i = 0; i < 64; ++i)
            QVERIFY(gate.accept("k" + QString::number(i), 0));
        QCOMPARE(gate.latest.size(), 64);
        QVERIFY(gate.accept("last", now));
        QTEST(int(gate.latest.size()), "left");
        QVERIFY(gate.latest.contains("last"));
    }

    void icon_data() {
        QTest::addColumn<Check>("check");
        QTest::addColumn<QString>("message");
        const QString badIcon = "Invalid module icon. Use an SF Symbol name and six-digit RGB color.";
        const PluginIcon icon{"lightbulb.fill", "ffcc00", std::nullopt};
        check("symbol and colour", icon, "");
        check("upper-case hex digits", with(icon, [](auto& i) { i.color = "A1B2C3"; }), "");
        check("hash sign", with(icon, [](auto& i) { i.color = "#ffcc00"; }), badIcon);
        check("five digits", with(icon, [](auto& i) { i.color = "ffcc0"; }), badIcon);
        check("badge", with(icon, [](auto& i) { i.badge = "star.fill"; }), "");
        check("empty badge", with(icon, [](auto& i) { i.badge = ""; }), badIcon);
        check("badge with a space", with(icon, [](auto& i) { i.badge = "star fill"; }), badIcon);
        check("upper-case symbol", with(icon, [](auto& i) { i.symbol = "Lightbulb"; }), badIcon);
        check("empty word in symbol", with(icon, [](auto& i) { i.symbol = "a..b"; }), badIcon);
        check("symbol with a trailing newline", with(icon, [](auto& i) { i.symbol = "a\n"; }), badIcon);
        bothSides("symbol characters", 80, badIcon,
                  [&](int n) { return with(icon, [&](auto& i) { i.symbol = text(n, u'b'); }); });
        check("81-character badge", with(icon, [](auto& i) { i.badge = text(81, u'b'); }), badIcon);
    }

    void icon() {
        QFETCH(Check, check);
        QTEST(problemOf(check), "message");
    }

    void jsonKeepsDeclaredOrder() {
        PluginSnapshot s = base();
        QCOMPARE(s.encoded(), QByteArray(R"({"title":"Lights","status":"Connected","activity":"3 on",)"
                                         R"("fields":[],"actions":[]})"));
        s.progress = 50;
        s.fields = {{"Power", "12 W", std::nullopt}};
        s.actions = {{"power", "Power", true, "power", "Sure?"}};
        s.metrics = {{{"Rooms", "3", "house"}}};
        s.sections = {{{"Notes", "Quiet", QByteArray("\x89PNG", 4)}}};
        s.media = PluginMedia{"Camera", "Live"};
        s.badge = "beta";
        s.panels = {{gridPanel("main", 1), with(panel("forms"), [](auto& p) { p.forms = {{form()}}; }),
                     listPanel("list", 2), with(panel("view"), [](auto& p) { p.customView = customView(); }),
                     with(panel("flow"), [](auto& p) { p.diagrams = {{diagram()}}; })}};
        s.panels->first().cards->first().actions = {button()};
        s.iconPNG = QByteArray("\x00\x01\x02", 3);
        s.volumeEndpoints = endpoints(1);
        QCOMPARE(problemOf([&] { s.validate(); }), QString());

        // Each key's first appearance is the top-level one.
        const QByteArray json = s.encoded();
        qsizetype last = -1;
        for (const char* key : {"title", "status", "activity", "progress", "fields", "actions", "metrics",
                                "sections", "media", "badge", "panels", "iconPNG", "volumeEndpoints"}) {
            const qsizetype at = json.indexOf('"' + QByteArray(key) + "\":");
            QVERIFY2(at > last, key);
            last = at;
        }
        QCOMPARE(s.toJson().value("iconPNG").toString(), QString("AAEC"));
        QCOMPARE(PluginSnapshot::fromJson(s.toJson()), s);
    }

    void decoding_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QString>("message");
        const QByteArray head = R"({"title":"","status":"","activity":"","fields":[],"actions":[])";
        row("null optionals are absent",
            head + R"(,"progress":null,"panels":null,"iconPNG":null,"media":null,"volumeEndpoints":null})",
            "");
        row("bad base64", head + R"(,"iconPNG":"A*=="})", "\"iconPNG\" must be base64");
        row("no actions", QByteArray(R"({"title":"","status":"","activity":"","fields":[]})"),
            "\"actions\" is missing");
        row("deep key path",
            head +
                R"(,"panels":[{"id":"a","title":"A","usesMedia":false,"sections":[],)"
                R"("cards":[{"id":"c","title":"C","subtitle":"","value":"","detail":"","highlighted":false,)"
                R"("actions":[{"id":"x","label":"X","enabled":"yes"}]}]}]})",
            "\"panels[0].cards[0].actions[0].enabled\" must be true or false");
    }

    void decoding() {
        QFETCH(QByteArray, json);
        QTEST(problemOf([&] { PluginSnapshot::fromJson(parse(json)).validate(); }), "message");
    }
};

QTEST_GUILESS_MAIN(TestPluginSnapshot)
#include "tst_PluginSnapshot.moc"
