#include "VellPluginSDK/Presentation/PluginIcon.h"
#include "VellPluginSDK/Presentation/PluginPresentationGate.h"
#include "VellPluginSDK/Presentation/PluginSnapshot.h"

#include <QTest>

#include "PresentationSupport.h"

using namespace vell;
using namespace vell::test;

namespace {

const QString badEndpointList = "Invalid volume endpoint list.";
const QString conflicting = "Invalid or conflicting card action.";
const QString tooManyCards = "Too many control cards.";
const QString tooManyItems = "Too many collection items.";
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

PluginPanel panel(const QString& id = "main") {
    return {id, "Main", false, {}, std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt};
}

PluginControlCard card(const QString& id, const QList<PluginAction>& actions = {}) {
    return {id, "Lamp", "Kitchen", "On", "", std::nullopt, false, actions};
}

PluginPanel gridPanel(const QString& id, int count) {
    PluginPanel page = panel(id);
    page.cards = QList<PluginControlCard>();
    for (int i = 0; i < count; ++i)
        page.cards->append(card("c" + QString::number(i)));
    return page;
}

// A snapshot whose only panel is page after change.
template <typename Change> PluginSnapshot onPanel(PluginPanel page, Change change) {
    change(page);
    return snapshot([&](auto& s) { s.panels = QList<PluginPanel>{page}; });
}

template <typename Change> PluginSnapshot onCard(Change change) {
    return onPanel(panel(), [&](auto& p) { p.cards = QList<PluginControlCard>{with(card("lamp"), change)}; });
}

PluginVolumeEndpoint endpoint(const QString& id) {
    return {id, "Speakers", true, 0.5, false, true, true, 700000000};
}

QList<PluginVolumeEndpoint> endpoints(int count) {
    QList<PluginVolumeEndpoint> list;
    for (int i = 0; i < count; ++i)
        list.append(endpoint("e" + QString::number(i)));
    return list;
}

template <typename T> QList<T> copies(const T& value, int count) {
    return QList<T>(count, value);
}

QList<PluginSection> sectionsWithImages(int count, qsizetype bytes) {
    return copies(PluginSection{"", "", QByteArray(bytes, 'p')}, count);
}

} // namespace

class TestPluginSnapshot final : public QObject {
    Q_OBJECT

private slots:
    void validation_data() {
        QTest::addColumn<Check>("check");
        QTest::addColumn<QString>("message");
        check("plain", base(), "");

        check("8 endpoints", snapshot([](auto& s) { s.volumeEndpoints = endpoints(8); }), "");
        check("9 endpoints", snapshot([](auto& s) { s.volumeEndpoints = endpoints(9); }), badEndpointList);
        check("repeated endpoint", snapshot([](auto& s) {
                  s.volumeEndpoints = {endpoint("a"), endpoint("a")};
              }),
              badEndpointList);
        check("bad endpoint", snapshot([](auto& s) { s.volumeEndpoints = {endpoint("")}; }),
              "Invalid volume endpoint.");
        check("endpoints before actions", snapshot([](auto& s) {
                  s.volumeEndpoints = endpoints(9);
                  s.actions = {button("9")};
              }),
              badEndpointList);

        check("action id not a key", snapshot([](auto& s) { s.actions = {button("9lives")}; }), conflicting);
        check("empty label", snapshot([](auto& s) { s.actions = {button("a", "")}; }), conflicting);
        check("80-character label", snapshot([](auto& s) { s.actions = {button("a", text(80))}; }), "");
        check("81-character label", snapshot([](auto& s) { s.actions = {button("a", text(81))}; }),
              conflicting);
        PluginAction symbol = button(), confirmation = button();
        symbol.symbol = text(80);
        confirmation.confirmation = text(400);
        check("80-character symbol", snapshot([&](auto& s) { s.actions = {symbol}; }), "");
        check("400-character confirmation", snapshot([&](auto& s) { s.actions = {confirmation}; }), "");
        symbol.symbol = text(81);
        confirmation.confirmation = text(401);
        check("81-character symbol", snapshot([&](auto& s) { s.actions = {symbol}; }), conflicting);
        check("401-character confirmation", snapshot([&](auto& s) { s.actions = {confirmation}; }),
              conflicting);
        const auto twoCards = [](const PluginAction& first, const PluginAction& second) {
            return onPanel(panel(), [&](auto& p) {
                p.cards = QList<PluginControlCard>{card("a", {first}), card("b", {second})};
            });
        };
        check("one id on two cards alike", twoCards(button("on"), button("on")), "");
        check("one id, two labels", twoCards(button("on", "On"), button("on", "Light")), conflicting);
        check("one id, enabled and not", twoCards(button("on"), button("on", "On", false)), conflicting);
        check("top level and card differ",
              with(twoCards(button("on"), button("on")), [](auto& s) { s.actions = {button("on", "Go")}; }),
              conflicting);
        check("a bad card action", onCard([](auto& c) {
                  c.actions = {button("ok"), button("b", "")};
              }),
              conflicting);
        check("actions before totals",
              with(twoCards(button("x", ""), button("y")),
                   [](auto& s) { s.panels->append(gridPanel("p2", 192)); }),
              conflicting);

        const auto withPanels = [](const QList<PluginPanel>& pages) {
            return snapshot([&](auto& s) { s.panels = pages; });
        };
        check("two panels of 96 cards", withPanels({gridPanel("a", 96), gridPanel("b", 96)}), "");
        check("a 193rd card before any panel",
              withPanels({gridPanel("a", 96), gridPanel("b", 96),
                          with(gridPanel("c", 1), [](auto& p) { p.usesMedia = true; })}),
              tooManyCards);
        const auto itemsPanel = [](const QString& id, int items) {
            return with(panel(id), [&](auto& p) { p.collection = collection(items); });
        };
        check("192 items", withPanels({itemsPanel("a", 96), itemsPanel("b", 96)}), "");
        check("193 items", withPanels({itemsPanel("a", 96), itemsPanel("b", 96), itemsPanel("c", 1)}),
              tooManyItems);
        check("cards counted before items",
              withPanels({itemsPanel("a", 96), itemsPanel("b", 96), itemsPanel("c", 1), gridPanel("d", 96),
                          gridPanel("e", 96), gridPanel("f", 1)}),
              tooManyCards);

        check("custom view", onPanel(panel(), [](auto& p) { p.customView = customView(); }), "");
        check("custom view and forms",
              onPanel(panel(),
                      [](auto& p) {
                          p.customView = customView();
                          p.forms = QList<PluginForm>{form()};
                      }),
              "Conflicting custom view panel.");
        check("custom view and collection",
              onPanel(panel(),
                      [](auto& p) {
                          p.customView = customView();
                          p.collection = collection();
                      }),
              "Conflicting custom view panel.");
        check("custom view with media",
              onPanel(panel(),
                      [](auto& p) {
                          p.customView = customView();
                          p.usesMedia = true;
                      }),
              "Conflicting custom view panel.");
        check("custom view is validated",
              onPanel(
                  panel(),
                  [](auto& p) { p.customView = with(customView(), [](auto& v) { v.entry = "index.htm"; }); }),
              "Invalid custom view.");
        check("collection", onPanel(panel(), [](auto& p) { p.collection = collection(); }), "");
        check("collection and forms",
              onPanel(panel(),
                      [](auto& p) {
                          p.collection = collection();
                          p.forms = QList<PluginForm>{form()};
                      }),
              "Conflicting collection panel.");
        check("collection with diagrams",
              onPanel(panel(),
                      [](auto& p) {
                          p.collection = collection();
                          p.diagrams = QList<PluginDiagram>{diagram()};
                      }),
              "Conflicting collection panel.");
        check("collection is validated",
              onPanel(panel(),
                      [](auto& p) { p.collection = with(collection(), [](auto& c) { c.title = ""; }); }),
              "Invalid collection size.");
        check("4 forms",
              onPanel(panel(),
                      [](auto& p) {
                          p.forms = QList<PluginForm>{form("a"), form("b"), form("c"), form("d")};
                      }),
              "");
        check("5 forms",
              onPanel(panel(),
                      [](auto& p) {
                          p.forms = QList<PluginForm>{form("a"), form("b"), form("c"), form("d"), form("e")};
                      }),
              formPanel);
        check("no forms", onPanel(panel(), [](auto& p) { p.forms = QList<PluginForm>(); }), formPanel);
        check("repeated form id",
              onPanel(panel(),
                      [](auto& p) {
                          p.forms = QList<PluginForm>{form(), form()};
                      }),
              formPanel);
        check("forms and cards",
              onPanel(gridPanel("main", 1), [](auto& p) { p.forms = QList<PluginForm>{form()}; }), formPanel);
        check("forms with media",
              onPanel(panel(),
                      [](auto& p) {
                          p.forms = QList<PluginForm>{form()};
                          p.usesMedia = true;
                      }),
              formPanel);
        check("form is validated",
              onPanel(panel(),
                      [](auto& p) {
                          p.forms = QList<PluginForm>{with(form(), [](auto& f) { f.revision = ""; })};
                      }),
              "Invalid form identity or fields.");
        check("96 cards on a panel",
              snapshot([](auto& s) { s.panels = QList<PluginPanel>{gridPanel("a", 96)}; }), "");
        check("97 cards on a panel",
              snapshot([](auto& s) { s.panels = QList<PluginPanel>{gridPanel("a", 97)}; }), cardPanel);
        check("cards with media", onPanel(gridPanel("a", 1), [](auto& p) { p.usesMedia = true; }), cardPanel);
        check("cards with diagrams",
              onPanel(gridPanel("a", 1), [](auto& p) { p.diagrams = QList<PluginDiagram>{diagram()}; }),
              cardPanel);
        check("repeated card id",
              onPanel(panel(),
                      [](auto& p) {
                          p.cards = QList<PluginControlCard>{card("a"), card("a")};
                      }),
              cardPanel);
        check("card id not a key", onCard([](auto& c) { c.id = "a-b"; }), badCard);
        check("empty card title", onCard([](auto& c) { c.title = ""; }), badCard);
        check("80-character card title", onCard([](auto& c) { c.title = text(80); }), "");
        check("81-character card title", onCard([](auto& c) { c.title = text(81); }), badCard);
        check("100-character subtitle and value", onCard([](auto& c) { c.subtitle = c.value = text(100); }),
              "");
        check("101-character subtitle", onCard([](auto& c) { c.subtitle = text(101); }), badCard);
        check("101-character value", onCard([](auto& c) { c.value = text(101); }), badCard);
        check("300-character detail", onCard([](auto& c) { c.detail = text(300); }), "");
        check("301-character detail", onCard([](auto& c) { c.detail = text(301); }), badCard);
        check("81-character card symbol", onCard([](auto& c) { c.symbol = text(81); }), badCard);
        check("3 card actions", onCard([](auto& c) {
                  c.actions = {button("a"), button("b"), button("c")};
              }),
              "");
        check("4 card actions", onCard([](auto& c) {
                  c.actions = {button("a"), button("b"), button("c"), button("d")};
              }),
              badCard);
        check("one action twice on a card", onCard([](auto& c) {
                  c.actions = {button("a"), button("a")};
              }),
              badCard);
        check("first panel first",
              withPanels({with(gridPanel("a", 1), [](auto& p) { p.forms = {{form()}}; }),
                          with(panel("b"),
                               [](auto& p) {
                                   p.customView = customView();
                                   p.usesMedia = true;
                               })}),
              formPanel);
        check("panels before artwork",
              with(onCard([](auto& c) { c.title = ""; }), [](auto& s) { s.iconPNG = QByteArray(); }),
              badCard);

        check("8192-byte icon", snapshot([](auto& s) { s.iconPNG = QByteArray(8192, 'p'); }), "");
        check("8193-byte icon", snapshot([](auto& s) { s.iconPNG = QByteArray(8193, 'p'); }), artwork);
        check("empty icon", snapshot([](auto& s) { s.iconPNG = QByteArray(); }), artwork);
        check("empty section image", snapshot([](auto& s) { s.sections = sectionsWithImages(1, 0); }),
              artwork);
        const auto tenImages = [&](qsizetype extra) {
            return snapshot([&](auto& s) {
                s.iconPNG = QByteArray(8192, 'p');
                s.sections = sectionsWithImages(8, 8192);
                s.panels = QList<PluginPanel>{with(panel(), [&](auto& p) {
                    p.sections = sectionsWithImages(1, 8192);
                    if (extra > 0)
                        p.sections += sectionsWithImages(1, extra);
                })};
            });
        };
        check("80 KiB of artwork", tenImages(0), "");
        check("one byte more", tenImages(1), artwork);
        check("artwork before panels", snapshot([](auto& s) {
                  s.iconPNG = QByteArray();
                  s.panels = QList<PluginPanel>();
              }),
              artwork);

        const auto diagrams = [](int count) {
            QList<PluginDiagram> list;
            for (int i = 0; i < count; ++i)
                list.append(diagram("d" + QString::number(i)));
            return list;
        };
        check("10 diagrams", onPanel(panel(), [&](auto& p) { p.diagrams = diagrams(10); }), "");
        check("11 diagrams", onPanel(panel(), [&](auto& p) { p.diagrams = diagrams(11); }), diagramPages);
        check("no diagrams", onPanel(panel(), [&](auto& p) { p.diagrams = diagrams(0); }), diagramPages);
        check("repeated diagram id",
              onPanel(panel(),
                      [&](auto& p) {
                          p.diagrams = QList<PluginDiagram>{diagram(), diagram()};
                      }),
              diagramPages);
        check("diagrams with media",
              onPanel(panel(),
                      [&](auto& p) {
                          p.diagrams = diagrams(1);
                          p.usesMedia = true;
                      }),
              diagramPages);
        check("diagram is validated",
              onPanel(panel(),
                      [&](auto& p) {
                          p.diagrams = QList<PluginDiagram>{with(diagram(), [](auto& d) { d.width = 99; })};
                      }),
              "Invalid module diagram.");
        const auto pages = [](int count) {
            QList<PluginPanel> list;
            for (int i = 0; i < count; ++i)
                list.append(panel("p" + QString::number(i)));
            return list;
        };
        check("diagram pages before the panel count",
              with(withPanels(pages(7)), [&](auto& s) { (*s.panels)[6].diagrams = diagrams(0); }),
              diagramPages);
        check("empty panels", withPanels({}), dashboardPanels);
        check("6 panels", withPanels(pages(6)), "");
        check("7 panels", withPanels(pages(7)), dashboardPanels);
        check("repeated panel id", withPanels({panel(), panel()}), dashboardPanels);
        check("panel id not a key", onPanel(panel("_main"), [](auto&) {}), dashboardPanels);
        check("empty panel title", onPanel(panel(), [](auto& p) { p.title = ""; }), dashboardPanels);
        check("40-character panel title", onPanel(panel(), [](auto& p) { p.title = text(40); }), "");
        check("41-character panel title", onPanel(panel(), [](auto& p) { p.title = text(41); }),
              dashboardPanels);
        const PluginSection longest{text(80), text(1200), std::nullopt};
        check("12 panel sections", onPanel(panel(), [&](auto& p) { p.sections = copies(longest, 12); }), "");
        check("13 panel sections", onPanel(panel(), [&](auto& p) { p.sections = copies(longest, 13); }),
              dashboardPanels);
        check("81-character panel section title",
              onPanel(panel(),
                      [&](auto& p) {
                          p.sections = {{text(81), "", std::nullopt}};
                      }),
              dashboardPanels);
        check("1201-character panel section detail",
              onPanel(panel(),
                      [&](auto& p) {
                          p.sections = {{"", text(1201), std::nullopt}};
                      }),
              dashboardPanels);
        check("panels before dashboard", snapshot([](auto& s) {
                  s.panels = QList<PluginPanel>();
                  s.metrics = copies(PluginField{"", "", std::nullopt}, 9);
              }),
              dashboardPanels);

        const PluginField metric{text(80), text(200), text(80)};
        check("8 longest metrics", snapshot([&](auto& s) { s.metrics = copies(metric, 8); }), "");
        check("9 metrics", snapshot([&](auto& s) { s.metrics = copies(metric, 9); }), dashboardData);
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
        check("8 longest sections", snapshot([&](auto& s) { s.sections = copies(longest, 8); }), "");
        check("9 sections", snapshot([&](auto& s) { s.sections = copies(longest, 9); }), dashboardData);
        check("1201-character section detail", snapshot([](auto& s) {
                  s.sections = {{{"", text(1201), std::nullopt}}};
              }),
              dashboardData);
        check("longest media", snapshot([](auto& s) { s.media = PluginMedia{text(120), text(300)}; }), "");
        check("121-character media label", snapshot([](auto& s) {
                  s.media = PluginMedia{text(121), ""};
              }),
              dashboardData);
        check("301-character media status", snapshot([](auto& s) {
                  s.media = PluginMedia{"", text(301)};
              }),
              dashboardData);
        check("dashboard before top level", snapshot([&](auto& s) {
                  s.metrics = copies(metric, 9);
                  s.title = text(301);
              }),
              dashboardData);

        check("empty title", snapshot([](auto& s) { s.title = ""; }), "");
        check("longest texts", snapshot([](auto& s) {
                  s.badge = text(50);
                  s.title = text(300);
                  s.status = text(500);
                  s.activity = text(100);
              }),
              "");
        check("51-character badge", snapshot([](auto& s) { s.badge = text(51); }), displayData);
        check("301-character title", snapshot([](auto& s) { s.title = text(301); }), displayData);
        check("501-character status", snapshot([](auto& s) { s.status = text(501); }), displayData);
        check("101-character activity", snapshot([](auto& s) { s.activity = text(101); }), displayData);
        const PluginField field{text(80), text(1024, u'é'), text(80)};
        check("24 longest fields", snapshot([&](auto& s) { s.fields = copies(field, 24); }), "");
        check("25 fields", snapshot([&](auto& s) { s.fields = copies(field, 25); }), displayData);
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
        const auto topActions = [](int count) {
            return snapshot([&](auto& s) {
                for (int i = 0; i < count; ++i)
                    s.actions.append(button("a" + QString::number(i)));
            });
        };
        check("12 actions", topActions(12), "");
        check("13 actions", topActions(13), displayData);
        check("one top-level action twice", snapshot([](auto& s) {
                  s.actions = {button(), button()};
              }),
              displayData);
        check("progress 0", snapshot([](auto& s) { s.progress = 0.0; }), "");
        check("progress 100", snapshot([](auto& s) { s.progress = 100.0; }), "");
        check("progress 100.5", snapshot([](auto& s) { s.progress = 100.5; }), displayData);
        check("progress below 0", snapshot([](auto& s) { s.progress = -0.5; }), displayData);
        check("progress not a number", snapshot([](auto& s) { s.progress = qQNaN(); }), displayData);
        check("progress infinite", snapshot([](auto& s) { s.progress = qInf(); }), displayData);
    }

    void validation() {
        QFETCH(Check, check);
        QTEST(problemOf(check), "message");
    }

    void displayActionsAreTopLevelThenCardsInOrder() {
        PluginSnapshot s = base();
        s.actions = {button("top")};
        PluginPanel first = panel("a"), second = panel("b");
        first.cards = QList<PluginControlCard>{card("x", {button("one"), button("off", "Off", false)}),
                                               card("y", {button("two")})};
        second.cards = QList<PluginControlCard>{card("z", {button("off", "Off", true)})};
        s.panels = QList<PluginPanel>{first, panel("c"), second};
        QStringList ids;
        for (const PluginAction& action : s.displayActions())
            ids.append(action.id);
        QCOMPARE(ids, QStringList({"top", "one", "off", "two", "off"}));
        // The first enabled one counts: a disabled entry with the same id is passed over.
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
        QCOMPARE(gate.latest.value("cafe.lights"), 1.0);
        QVERIFY(!gate.accept("cafe.lights", 0.5));
    }

    void gatePrunesOnlyPastItsKeyLimit_data() {
        QTest::addColumn<double>("now");
        QTest::addColumn<int>("left");
        row("the 65th key, the others 60 seconds old", 60.0, 1);
        row("the 65th key, the others just younger", 59.9, 65);
    }

    void gatePrunesOnlyPastItsKeyLimit() {
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
        check("not hex", with(icon, [](auto& i) { i.color = "ffcc0g"; }), badIcon);
        check("badge", with(icon, [](auto& i) { i.badge = "star.fill"; }), "");
        check("empty badge", with(icon, [](auto& i) { i.badge = ""; }), badIcon);
        check("badge with a space", with(icon, [](auto& i) { i.badge = "star fill"; }), badIcon);
        check("empty symbol", with(icon, [](auto& i) { i.symbol = ""; }), badIcon);
        check("upper-case symbol", with(icon, [](auto& i) { i.symbol = "Lightbulb"; }), badIcon);
        check("empty word in symbol", with(icon, [](auto& i) { i.symbol = "a..b"; }), badIcon);
        check("symbol ending in a dot", with(icon, [](auto& i) { i.symbol = "a."; }), badIcon);
        check("symbol with a trailing newline", with(icon, [](auto& i) { i.symbol = "a\n"; }), badIcon);
        check("80-character symbol", with(icon, [](auto& i) { i.symbol = "a." + text(78, u'b'); }), "");
        check("81-character symbol", with(icon, [](auto& i) { i.symbol = "a." + text(79, u'b'); }), badIcon);
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
        s.metrics = QList<PluginField>{{"Rooms", "3", "house"}};
        s.sections = QList<PluginSection>{{"Notes", "Quiet", QByteArray("\x89PNG", 4)}};
        s.media = PluginMedia{"Camera", "Live"};
        s.badge = "beta";
        PluginPanel page = gridPanel("main", 1);
        page.cards->first().actions = {button()};
        s.panels = QList<PluginPanel>{page, with(panel("forms"), [](auto& p) { p.forms = {{form()}}; }),
                                      with(panel("list"), [](auto& p) { p.collection = collection(2); }),
                                      with(panel("view"), [](auto& p) { p.customView = customView(); }),
                                      with(panel("flow"), [](auto& p) { p.diagrams = {{diagram()}}; })};
        s.iconPNG = QByteArray("\x00\x01\x02", 3);
        s.volumeEndpoints = endpoints(1);
        QCOMPARE(problemOf([&] { s.validate(); }), QString());

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
        row("unknown element kind",
            head +
                R"(,"panels":[{"id":"a","title":"A","usesMedia":false,"sections":[],"diagrams":[{"id":"d",)"
                R"("title":"D","width":100,"height":100,"summary":"","elements":[{"kind":"star","x":0,"y":0,)"
                R"("w":0,"h":0}]}]}]})",
            "\"panels[0].diagrams[0].elements[0].kind\" has an unknown case");
    }

    void decoding() {
        QFETCH(QByteArray, json);
        QTEST(problemOf([&] { PluginSnapshot::fromJson(parse(json)).validate(); }), "message");
    }
};

QTEST_GUILESS_MAIN(TestPluginSnapshot)
#include "tst_PluginSnapshot.moc"
