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

// For bothSides: the plain snapshot with its list made of n copies of record.
template <typename List, typename Record> auto copies(List PluginSnapshot::*list, const Record& record) {
    return [=](int n) { return snapshot([&](auto& s) { s.*list = QList<Record>(n, record); }); };
}

// For textLimits: the plain snapshot with record as its field, or the one entry of its list.
template <typename Field> auto into(Field PluginSnapshot::*field) {
    return [=](const auto& record) { return snapshot([&](auto& s) { s.*field = {{record}}; }); };
}

PluginSnapshot withPanels(const QList<PluginPanel>& panels) {
    return snapshot([&](auto& s) { s.panels = panels; });
}

PluginPanel panel(const QString& id = "main") {
    return {id, "Main", false, {}, std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt};
}

PluginSnapshot ofPanel(const PluginPanel& panel) {
    return withPanels({panel});
}

// A snapshot whose only panel is the plain one after change.
template <typename Change> PluginSnapshot onPanel(Change change) {
    return ofPanel(with(panel(), change));
}

PluginControlCard card(const QString& id, const QList<PluginAction>& actions = {}) {
    return {id, "Lamp", "Kitchen", "On", "", std::nullopt, false, actions};
}

PluginSnapshot ofCard(const PluginControlCard& card) {
    return onPanel([&](auto& p) { p.cards = QList<PluginControlCard>{card}; });
}

template <typename Change> PluginSnapshot onCard(Change change) {
    return ofCard(with(card("lamp"), change));
}

// count records made by make(id), with the ids prefix0, prefix1, ...
template <typename Make> auto numbered(const char* prefix, int count, Make make) {
    QList<decltype(make(QString()))> list;
    for (int i = 0; i < count; ++i)
        list.append(make(prefix + QString::number(i)));
    return list;
}

QList<PluginAction> buttons(int count) {
    return numbered("a", count, [](auto id) { return button(id); });
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
        checkColumns();
        bothSides("endpoints", 8, endpointList,
                  [](int n) { return snapshot([&](auto& s) { s.volumeEndpoints = endpoints(n); }); });
        check("repeated endpoint", snapshot([](auto& s) { s.volumeEndpoints = endpoints(2) + endpoints(1); }),
              endpointList);
        const PluginVolumeEndpoint unnamed = with(endpoints(1)[0], [](auto& e) { e.name = ""; });
        check("bad endpoint", into(&PluginSnapshot::volumeEndpoints)(unnamed), "Invalid volume endpoint.");
        check("endpoints before actions",
              snapshot([](auto& s) { s.volumeEndpoints = endpoints(9), s.actions = {button("9")}; }),
              endpointList);

        const auto topAction = into(&PluginSnapshot::actions);
        check("action id not a key", topAction(button("9lives")), conflicting);
        check("empty label", topAction(button("a", "")), conflicting);
        const auto actionText = textLimits(conflicting, button(), topAction);
        actionText("action label", 80, &PluginAction::label);
        actionText("action symbol", 80, &PluginAction::symbol);
        actionText("confirmation", 400, &PluginAction::confirmation);
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

        // The panels' own contents, one kind added at a time.
        const auto view = [](PluginPanel p) { return p.customView = customView(), p; };
        const auto list = [](PluginPanel p) { return p.collection = collection(), p; };
        const auto forms = [](PluginPanel p) { return p.forms = {{form()}}, p; };
        const auto media = [](PluginPanel p) { return p.usesMedia = true, p; };
        const auto drawn = [](PluginPanel p) { return p.diagrams = {{diagram()}}, p; };

        // The third panel would fail on its own too: the totals come before any panel.
        check("two panels of 96 cards", withPanels({gridPanel("a", 96), gridPanel("b", 96)}), "");
        check("a 193rd card", withPanels({gridPanel("a", 96), gridPanel("b", 96), media(gridPanel("c", 1))}),
              tooManyCards);
        check("192 items", withPanels({listPanel("a", 96), listPanel("b", 96)}), "");
        check("193 items", withPanels({listPanel("a", 96), listPanel("b", 96), listPanel("c", 1)}),
              "Too many collection items.");
        check("cards counted before items",
              withPanels({listPanel("a", 96), listPanel("b", 96), listPanel("c", 1), gridPanel("d", 96),
                          gridPanel("e", 96), gridPanel("f", 1)}),
              tooManyCards);

        check("custom view", ofPanel(view(panel())), "");
        check("custom view and forms", ofPanel(forms(view(panel()))), customPanel);
        check("custom view and collection", ofPanel(list(view(panel()))), customPanel);
        check("custom view with media", ofPanel(media(view(panel()))), customPanel);
        check("custom view validated",
              onPanel([](auto& p) { p.customView = with(customView(), [](auto& v) { v.entry = ""; }); }),
              "Invalid custom view.");
        check("collection", ofPanel(list(panel())), "");
        check("collection and forms", ofPanel(forms(list(panel()))), collectionPanel);
        check("collection and diagrams", ofPanel(drawn(list(panel()))), collectionPanel);
        check("collection validated",
              onPanel([](auto& p) { p.collection = collection(), p.collection->title = ""; }),
              "Invalid collection size.");
        bothSides("forms", 4, formPanel,
                  [](int n) { return onPanel([&](auto& p) { p.forms = numbered("f", n, form); }); });
        check("no forms", onPanel([](auto& p) { p.forms = QList<PluginForm>(); }), formPanel);
        check("repeated form", onPanel([](auto& p) { p.forms = {{form(), form()}}; }), formPanel);
        check("forms and cards", ofPanel(forms(gridPanel("a", 1))), formPanel);
        check("forms with media", ofPanel(media(forms(panel()))), formPanel);
        check("form validated",
              onPanel([](auto& p) { p.forms = {{form()}}, p.forms->first().revision = ""; }),
              "Invalid form identity or fields.");
        bothSides("cards on a panel", 96, cardPanel, [](int n) { return ofPanel(gridPanel("a", n)); });
        check("cards with media", ofPanel(media(gridPanel("a", 1))), cardPanel);
        check("cards and diagrams", ofPanel(drawn(gridPanel("a", 1))), cardPanel);
        check("repeated card", onPanel([](auto& p) { p.cards = {{card("a"), card("a")}}; }), cardPanel);
        check("card id not a key", onCard([](auto& c) { c.id = "a-b"; }), badCard);
        check("empty card title", onCard([](auto& c) { c.title = ""; }), badCard);
        const auto cardText = textLimits(badCard, card("lamp"), ofCard);
        cardText("card title", 80, &PluginControlCard::title);
        cardText("card subtitle", 100, &PluginControlCard::subtitle);
        cardText("card value", 100, &PluginControlCard::value);
        cardText("card detail", 300, &PluginControlCard::detail);
        cardText("card symbol", 80, &PluginControlCard::symbol);
        bothSides("card actions", 3, badCard, [](int n) { return ofCard(card("lamp", buttons(n))); });
        check("one action twice on a card", ofCard(card("lamp", {button("a"), button("a")})), badCard);
        check("first panel first", withPanels({forms(gridPanel("a", 1)), media(view(panel("b")))}),
              formPanel);
        check("panels before artwork",
              with(onCard([](auto& c) { c.title = ""; }), [](auto& s) { s.iconPNG = QByteArray(); }),
              badCard);

        bothSides("icon bytes", 8192, artwork,
                  [](int n) { return snapshot([&](auto& s) { s.iconPNG = QByteArray(n, 'p'); }); });
        check("empty icon", snapshot([](auto& s) { s.iconPNG = QByteArray(); }), artwork);
        check("empty section image", into(&PluginSnapshot::sections)(image(0)), artwork);
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

        bothSides("diagrams", 10, diagramPages,
                  [&](int n) { return onPanel([&](auto& p) { p.diagrams = numbered("d", n, diagram); }); });
        check("no diagrams", onPanel([](auto& p) { p.diagrams = QList<PluginDiagram>(); }), diagramPages);
        check("repeated diagram", onPanel([](auto& p) {
                  p.diagrams = {{diagram(), diagram()}};
              }),
              diagramPages);
        check("diagrams with media", ofPanel(media(drawn(panel()))), diagramPages);
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
        textLimits(dashboardPanels, panel(), ofPanel)("panel title", 40, &PluginPanel::title);
        const PluginSection longest{text(80), text(1200), std::nullopt};
        bothSides("panel sections", 12, dashboardPanels, [&](int n) {
            return onPanel([&](auto& p) { p.sections = QList<PluginSection>(n, longest); });
        });
        const auto onePanelSection = [](const PluginSection& s) {
            return onPanel([&](auto& p) { p.sections = {s}; });
        };
        const auto panelSection = textLimits(dashboardPanels, PluginSection(), onePanelSection);
        panelSection("panel section title", 80, &PluginSection::title);
        panelSection("panel section detail", 1200, &PluginSection::detail);
        check("panels before dashboard",
              with(copies(&PluginSnapshot::metrics, PluginField())(9),
                   [](auto& s) { s.panels = QList<PluginPanel>(); }),
              dashboardPanels);

        const PluginField metric{text(80), text(200), text(80)};
        bothSides("metrics", 8, dashboardData, copies(&PluginSnapshot::metrics, metric));
        const auto metricText = textLimits(dashboardData, PluginField(), into(&PluginSnapshot::metrics));
        metricText("metric label", 80, &PluginField::label);
        metricText("metric value", 200, &PluginField::value);
        metricText("metric symbol", 80, &PluginField::symbol);
        bothSides("sections", 8, dashboardData, copies(&PluginSnapshot::sections, longest));
        textLimits(dashboardData, PluginSection(), into(&PluginSnapshot::sections))("section detail", 1200,
                                                                                    &PluginSection::detail);
        const auto mediaText = textLimits(dashboardData, PluginMedia(), [](const PluginMedia& media) {
            return snapshot([&](auto& s) { s.media = media; });
        });
        mediaText("media label", 120, &PluginMedia::label);
        mediaText("media status", 300, &PluginMedia::status);
        check("dashboard before top level",
              with(copies(&PluginSnapshot::metrics, metric)(9), [](auto& s) { s.title = text(301); }),
              dashboardData);

        check("empty title", snapshot([](auto& s) { s.title = ""; }), "");
        const auto top = textLimits(displayData, base());
        top("badge", 50, &PluginSnapshot::badge);
        top("title", 300, &PluginSnapshot::title);
        top("status", 500, &PluginSnapshot::status);
        top("activity", 100, &PluginSnapshot::activity);
        bothSides("fields", 24, displayData,
                  copies(&PluginSnapshot::fields, PluginField{text(80), text(1024, u'é'), text(80)}));
        const auto field = textLimits(displayData, PluginField(), into(&PluginSnapshot::fields));
        field("field label", 80, &PluginField::label);
        field("field symbol", 80, &PluginField::symbol);
        check("2049-byte field value",
              into(&PluginSnapshot::fields)(PluginField{"", text(1024, u'é') + "x", {}}), displayData);
        bothSides("actions", 12, displayData,
                  [](int n) { return snapshot([&](auto& s) { s.actions = buttons(n); }); });
        check("one top-level action twice", snapshot([](auto& s) {
                  s.actions = {button(), button()};
              }),
              displayData);
        const auto progress = [](double value) { return snapshot([&](auto& s) { s.progress = value; }); };
        check("progress 0", progress(0), "");
        check("progress 100", progress(100), "");
        check("progress 100.5", progress(100.5), displayData);
        check("progress below 0", progress(-0.5), displayData);
        check("progress not a number", progress(qQNaN()), displayData);
    }

    void validation() { runCheckRow(); }

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
        checkColumns();
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

    void icon() { runCheckRow(); }

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
