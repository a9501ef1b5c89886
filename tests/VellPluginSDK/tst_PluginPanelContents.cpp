#include "VellPluginSDK/Presentation/PluginCollectionFilter.h"
#include "VellPluginSDK/Presentation/PluginTransientCaption.h"
#include "VellPluginSDK/ReferenceTime.h"

#include <QDateTime>
#include <QTest>

#include "PresentationSupport.h"

using namespace vell;
using namespace vell::test;

namespace {

using Kind = PluginParameter::Kind;
using Style = PluginFormInput::Style;

const QString identity = "Invalid form identity or fields.";
const QString badInput = "Invalid form input.";
const QString mismatch = "Input style does not match the action schema.";
const QString bounds = "Sliders require finite bounds.";
const QString badChoices = "Invalid choices.";
const QString choose = "Choose an available value.";
const QString wrongKind = "Argument type does not match its schema.";
const QString size = "Invalid collection size.";
const QString badItem = "Invalid collection item.";
const QString calendar = "Invalid calendar collection.";
const QString undated = "Dates require a calendar collection.";
const QString badView = "Invalid custom view.";
const QString namespaces = "Invalid resource namespaces.";
const QString tooManyFrames = "Too many embedded documents.";
const QString https = "Invalid HTTPS document.";
const QString owned = "Invalid plugin-owned document.";
const QString embedded = "Invalid embedded document.";
const QString badURL = "Invalid resource URL.";
const QString changed = "This view changed or the event is unavailable.";
const QString badResult = "Invalid resource error.";
const QString badCaption = "Invalid transient caption.";
const QString badDiagram = "Invalid module diagram.";
const QString badElement = "Invalid module diagram element.";

PluginFormInput input(Style style, const PluginValue& value,
                      std::optional<QStringList> choices = std::nullopt) {
    return {"v", "Label", style, value, choices};
}

// A form of one input over one field, both named "v".
PluginForm single(const PluginParameter& field, const PluginFormInput& input) {
    return with(form(), [&](auto& f) { f.action.input.fields = {field}, f.inputs = {input}; });
}

// fields string fields f0, f1, ..., the first inputs of them entered as text.
PluginForm texts(int fields, int inputs) {
    return with(form(), [&](auto& f) {
        f.action.input.fields.clear(), f.inputs.clear();
        for (int i = 0; i < fields; ++i)
            f.action.input.fields.append(parameter("f" + QString::number(i), Kind::string));
        for (int i = 0; i < inputs; ++i)
            f.inputs.append({"f" + QString::number(i), "Label", Style::text, PluginValue::string(""), {}});
    });
}

QStringList choices(int count) {
    QStringList list;
    for (int i = 0; i < count; ++i)
        list.append(QString::number(i));
    return list;
}

template <typename Change> PluginCollection onItem(Change change) {
    return with(collection(1), [&](auto& c) { change(c.items[0]); });
}

PluginCollection calendarOf(const QList<PluginCalendarDay>& days) {
    return with(collection(1, PluginCollection::Layout::calendar),
                [&](auto& c) { c.days = days, c.selectedDate = 86400.0; });
}

PluginCalendarDay day(double date) {
    return {date, button("load")};
}

template <typename Change> PluginCustomView view(Change change) {
    return with(customView(), change);
}

PluginViewResourceResult data(std::optional<QString> mime, qsizetype bytes) {
    return {QUuid::createUuid(), mime, QByteArray(bytes, 'd'), std::nullopt};
}

PluginViewResourceResult error(const QString& text, std::optional<QString> mime = std::nullopt) {
    return {QUuid::createUuid(), mime, std::nullopt, text};
}

const auto box = PluginDiagramElement::Kind::box;
const auto line = PluginDiagramElement::Kind::line;

PluginDiagramElement element(PluginDiagramElement::Kind kind, double x, double y, double w, double h) {
    return {kind,         x,           y, w, h, std::nullopt, std::nullopt, std::nullopt, std::nullopt,
            std::nullopt, std::nullopt};
}

template <typename Change> PluginDiagramElement styled(Change change) {
    return with(element(box, 0, 0, 10, 10), change);
}

// An element on a canvas of 200 by 100.
void elementRow(const char* name, const PluginDiagramElement& element, const QString& message) {
    QTest::newRow(name) << Check([element] { element.validate(200, 100); }) << message;
}

// Seconds since 2001 of a local time on 2024-03-10 plus days, in a zone this many hours east.
double at(int days, QTime time, int zoneHours = 14) {
    const QDateTime local(QDate(2024, 3, 10).addDays(days), time, QTimeZone(zoneHours * 3600));
    return double(local.toMSecsSinceEpoch()) / 1000 - ReferenceTime::epoch;
}

// Rows of a list, with an id, the three searched texts, a date, and the marks.
QList<PluginCollectionItem> errands() {
    const auto make = [](const QString& id, const QString& title, const QString& subtitle,
                         const QString& detail, std::optional<double> date, bool unread, bool completed) {
        PluginCollectionItem row = item(id);
        row.title = title, row.subtitle = subtitle, row.detail = detail, row.date = date;
        row.unread = unread, row.completed = completed;
        return row;
    };
    return {make("a", "Parcel", "Post office", "Bring an ID", at(0, {9, 0}), true, false),
            make("b", "Receipt", "Plumber", "Paid in full", at(-1, {23, 59, 59}), false, false),
            make("c", "Book club", "Ana", "\u00C4pfel mitbringen", std::nullopt, true, false),
            make("d", "Plants", "Home", "", at(-2, {12, 0}), false, false),
            make("e", "Dentist", "", "", at(1, {0, 0}), false, false),
            make("f", "Midnight", "", "", at(0, {0, 0}), false, false),
            make("g", "Late", "", "", at(0, {23, 59, 59}), false, false),
            make("h", "Receipt 10", "", "", std::nullopt, false, false),
            make("i", "receipt 2", "", "", std::nullopt, false, false),
            make("j", "Old news", "", "", at(-30, {12, 0}), false, true)};
}

} // namespace

class TestPluginPanelContents final : public QObject {
    Q_OBJECT

private slots:
    void forms_data() {
        checkColumns();
        const auto a = PluginValue::string("a"), five = PluginValue::number(5);
        const PluginParameter string = parameter("v", Kind::string),
                              ranged = parameter("v", Kind::number, 0, 10);
        check("action first", with(form(), [](auto& f) { f.action.title = f.revision = ""; }),
              "Invalid registered action.");
        check("id not a key", with(form(), [](auto& f) { f.id = "9"; }), identity);
        check("empty title", with(form(), [](auto& f) { f.title = ""; }), identity);
        textLimits(identity, form())("title", 80, &PluginForm::title);
        check("empty revision", with(form(), [](auto& f) { f.revision = ""; }), identity);
        textLimits(identity, form())("revision", 128, &PluginForm::revision);
        check("no inputs", texts(0, 0), identity);
        bothSides("inputs", 6, identity, [](int n) { return texts(n, n); });
        check("a field without input", texts(2, 1), identity);
        check("an input without field", with(texts(1, 1), [](auto& f) { f.inputs[0].id = "x"; }), identity);
        check("one input twice", with(texts(2, 2), [](auto& f) { f.inputs[1].id = "f0"; }), identity);
        check("empty label", with(form(), [](auto& f) { f.inputs[0].label = ""; }), badInput);
        bothSides("label", 80, badInput,
                  [](int n) { return with(form(), [&](auto& f) { f.inputs[0].label = text(n); }); });
        check("text on a number field", single(ranged, input(Style::text, five)), mismatch);
        check("text with choices", single(string, input(Style::text, a, {{"a"}})), "Unexpected choices.");
        const PluginFormInput toggle = input(Style::toggle, PluginValue::boolean(true), {{"a"}});
        check("toggle with choices", single(parameter("v", Kind::boolean), toggle), "Unexpected choices.");
        const auto slider = [&](const PluginParameter& field) {
            return single(field, input(Style::slider, five));
        };
        check("slider", slider(ranged), "");
        check("slider with choices", single(ranged, input(Style::slider, five, {{"a"}})), bounds);
        check("slider without bounds", slider(parameter("v", Kind::number)), bounds);
        check("slider of equal bounds", slider(parameter("v", Kind::number, 5, 5)), bounds);
        check("slider too wide to measure", slider(parameter("v", Kind::number, -1e308, 1e308)), bounds);
        const auto choice = [&](const std::optional<QStringList>& choices) {
            return single(string, input(Style::choice, a, choices));
        };
        check("choice without choices", choice(std::nullopt), badChoices);
        check("choice of nothing", choice(QStringList()), badChoices);
        bothSides("choices", 24, badChoices, [&](int n) {
            return single(string, input(Style::choice, PluginValue::string("0"), choices(n)));
        });
        check("empty choice", choice(QStringList{"a", ""}), badChoices);
        bothSides("choice characters", 80, badChoices, [&](int n) {
            return choice(QStringList{"a", text(n)});
        });
        check("repeated choice", choice(QStringList{"a", "a"}), badChoices);
        check("initial choice not offered", choice(QStringList{"b"}), choose);
        check("initial value of the wrong kind", single(string, input(Style::text, five)), wrongKind);
        check("initial value out of bounds", single(ranged, input(Style::slider, PluginValue::number(11))),
              "Number is outside its limits.");
        check("inputs in order",
              with(texts(2, 2), [](auto& f) { f.inputs[0].style = Style::toggle, f.inputs[1].label = ""; }),
              mismatch);

        const PluginForm room = with(form(), [](auto& f) {
            f.action.input.fields.append(parameter("room", Kind::string));
            f.inputs.append({"room", "Room", Style::choice, PluginValue::string("Hall"), {{"Hall", "Den"}}});
        });
        const auto values = [&](const char* name, const PluginValueMap& values, const QString& message) {
            QTest::newRow(name) << Check([=] { room.validateValues(values); }) << message;
        };
        const PluginValue den = PluginValue::string("Den"), desk = PluginValue::string("Desk");
        values("values: defaults", room.defaults(), "");
        values("values: another choice", {{"name", desk}, {"room", den}}, "");
        values("values: an input left out", {{"name", desk}}, "Every displayed input needs a value.");
        values("values: unknown argument", {{"name", desk}, {"room", den}, {"x", den}},
               "Unexpected action arguments.");
        values("values: choice not offered", {{"name", desk}, {"room", PluginValue::string("Attic")}},
               choose);
        values("values: schema first", {{"name", PluginValue::number(1)}, {"room", desk}}, wrongKind);
    }

    void forms() { runCheckRow(); }

    void collections_data() {
        checkColumns();
        check("empty title", with(collection(), [](auto& c) { c.title = ""; }), size);
        const auto collectionText = textLimits(size, collection());
        collectionText("title", 100, &PluginCollection::title);
        collectionText("subtitle", 300, &PluginCollection::subtitle);
        collectionText("empty text", 500, &PluginCollection::emptyText);
        bothSides("items", 96, size, [](int n) { return collection(n); });
        bothSides("actions", 4, size, [](int n) {
            return with(collection(), [&](auto& c) { c.actions = QList<PluginAction>(n, button()); });
        });
        check("bad action", with(collection(), [](auto& c) { c.actions = {button("a", "")}; }), size);
        check("repeated item", with(collection(2), [](auto& c) { c.items[1].id = "i0"; }), size);
        check("size before items", with(collection(97), [](auto& c) { c.items[0].title = ""; }), size);
        check("item id not a key", onItem([](auto& i) { i.id = "1"; }), badItem);
        check("empty item title", onItem([](auto& i) { i.title = ""; }), badItem);
        const auto itemText =
            textLimits(badItem, item("i0"), [](const auto& i) { return onItem([&](auto& o) { o = i; }); });
        itemText("item title", 160, &PluginCollectionItem::title);
        itemText("item subtitle", 200, &PluginCollectionItem::subtitle);
        itemText("item detail", 500, &PluginCollectionItem::detail);
        itemText("category", 80, &PluginCollectionItem::category);
        itemText("item symbol", 80, &PluginCollectionItem::symbol);
        check("item action", onItem([](auto& i) { i.action = button(); }), "");
        check("bad item action", onItem([](auto& i) { i.action = button("a", text(81)); }), badItem);
        check("item date not a number", onItem([](auto& i) { i.date = qQNaN(); }), badItem);
        check("calendar", calendarOf({day(0), day(86400)}), "");
        check("selected date infinite", with(calendarOf({}), [](auto& c) { c.selectedDate = qInf(); }),
              calendar);
        check("two days of one date", calendarOf({day(0), day(0)}), calendar);
        check("day not a number", calendarOf({day(qQNaN())}), calendar);
        check("bad day action", calendarOf({{0, button("a", "")}}), calendar);
        check("dated item in an inbox", onItem([](auto& i) { i.date = 0.0; }), "");
        check("selected date in an inbox", with(collection(), [](auto& c) { c.selectedDate = 0.0; }),
              undated);
        check("days in a task list",
              with(collection(1, PluginCollection::Layout::tasks),
                   [](auto& c) { c.days = QList<PluginCalendarDay>(); }),
              undated);
    }

    void collections() { runCheckRow(); }

    void viewPaths_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("valid");
        row("file", QString("index.html"), true);
        row("nested", QString("assets/js/app.min.js"), true);
        row("empty", QString(""), false);
        row("absolute", QString("/index.html"), false);
        row("trailing slash", QString("assets/"), false);
        row("empty segment", QString("a//b"), false);
        row("parent", QString("a/../b"), false);
        row("hidden file", QString(".env"), false);
        row("leading hyphen", QString("-x"), false);
        row("escape", QString("a%2e"), false);
        row("trailing newline", QString("a\n"), false);
        row("not ASCII", QString("caf\u00e9"), false);
        row("240 bytes", "a/" + text(238), true);
        row("241 bytes", "a/" + text(239), false);
    }

    void viewPaths() {
        QFETCH(QString, path);
        QTEST(PluginViewResources::validPath(path), "valid");
    }

    void customViews_data() {
        checkColumns();
        check("entry not a page", view([](auto& v) { v.entry = "index.htm"; }), badView);
        check("entry outside the root", view([](auto& v) { v.entry = "../index.html"; }), badView);
        check("revision not a key", view([](auto& v) { v.revision = "1"; }), badView);
        bothSides("state keys", 64, badView, [](int n) {
            return view([&](auto& v) {
                v.state.clear();
                for (int i = 0; i < n; ++i)
                    v.state.insert("k" + QString::number(i), {});
            });
        });
        check("state key not a key", view([](auto& v) { v.state.insert("a-b", {}); }), badView);
        // {"k":"…"} is 8 bytes around the text.
        bothSides("state bytes", 32768, badView, [](int n) {
            return view([&](auto& v) { v.state = {{"k", PluginValue::string(text(n - 8))}}; });
        });
        bothSides("events", 16, badView, [](int n) {
            return view([&](auto& v) {
                for (int i = 1; i < n; ++i)
                    v.events.append({"e" + QString::number(i), {}});
            });
        });
        check("repeated event", view([](auto& v) { v.events.append(v.events[0]); }), badView);
        bothSides("namespaces", 4, namespaces,
                  [](int n) { return view([&](auto& v) { v.resourceNamespaces = QStringList(n, "a"); }); });
        check("namespace not a name", view([](auto& v) { v.resourceNamespaces = QStringList{"a/b"}; }),
              namespaces);
        const PluginViewFrame frame{"https://example.com/"};
        bothSides("frames", 2, tooManyFrames,
                  [&](int n) { return view([&](auto& v) { v.frames = QList<PluginViewFrame>(n, frame); }); });
        check("frame validated", view([](auto& v) { v.frames = {{{"http://example.com/"}}}; }), embedded);
        check("event id not a key", view([](auto& v) { v.events[0].id = "_pick"; }), "Invalid view event.");
        check("event schema",
              view([](auto& v) { v.events[0].input.fields.append(parameter("_", Kind::string)); }),
              "Invalid view event.");
        check("namespaces before frames", view([&](auto& v) {
                  v.resourceNamespaces = QStringList{""}, v.frames = QList<PluginViewFrame>(3, frame);
              }),
              namespaces);
        check("frames before events",
              view([&](auto& v) { v.frames = QList<PluginViewFrame>(3, frame), v.events[0].id = "_"; }),
              tooManyFrames);

        const auto frameRow = [](const char* name, const QString& url, const QString& message) {
            check(name, PluginViewFrame{url}, message);
        };
        frameRow("https page", "https://docs.example.com/a?b=1#c", "");
        frameRow("host in capitals", "https://Example.COM/", "");
        frameRow("international host", "https://b\u00fccher.de/", "");
        frameRow("user info", "https://user@example.com/", https);
        frameRow("empty user info", "https://@example.com/", https);
        frameRow("user info behind a backslash", "https://evil.com\\@example.com/", https);
        frameRow("port", "https://example.com:8443/", https);
        frameRow("default port written", "https://example.com:443/", https);
        frameRow("no dot", "https://localhost/", https);
        frameRow("address", "https://127.0.0.1/", https);
        frameRow("trailing dot", "https://example.com./", https);
        bothSides("label characters", 63, https,
                  [](int n) { return PluginViewFrame{"https://" + text(n, u'a') + ".com/"}; });
        // Four labels of 61 with their dots, then the top-level label.
        bothSides("host characters", 253, https, [](int n) {
            return PluginViewFrame{"https://" + (text(61) + ".").repeated(4) + text(n - 248) + "/"};
        });
        bothSides("url characters", 512, embedded,
                  [](int n) { return PluginViewFrame{"https://example.com/" + text(n - 20)}; });
        frameRow("plain http", "http://example.com/", embedded);
        frameRow("script", "javascript:alert(1)", embedded);
        frameRow("no scheme", "example.com", embedded);
        frameRow("plugin page", "vell-view://surface/frames/map.html", "");
        frameRow("plugin page escaping", "vell-view://surface/../x.html", owned);
        frameRow("plugin page on another host", "vell-view://other/x.html", owned);
        frameRow("plugin root", "vell-view://surface/", owned);
        frameRow("plugin scheme in capitals", "VELL-VIEW://surface/a.html", owned);

        const PluginCustomView served = view([](auto& v) { v.resourceNamespaces = QStringList{"img"}; });
        const auto request = [](const char* name, const PluginCustomView& view, const QString& path,
                                const QString& message) {
            const PluginViewResourceRequest request{QUuid::createUuid(), "main", "r1", path};
            QTest::newRow(name) << Check([=] { view.validate(request); }) << message;
        };
        request("request in a namespace", served, "img/a.png", "");
        request("request outside the namespaces", served, "css/a.css", badURL);
        request("request without namespaces", customView(), "img/a.png", badURL);
        request("request path invalid", served, "img/../a.png", badURL);
        request("request checks the view first", with(served, [](auto& v) { v.revision = ""; }), "css",
                badView);
        const auto event = [](const char* name, const QString& event, const PluginValueMap& values,
                              const QString& message) {
            const PluginViewEvent sent{"main", "r1", event, values};
            QTest::newRow(name) << Check([=] { customView().validate(sent); }) << message;
        };
        event("event", "pick", {{"choice", PluginValue::string("a")}}, "");
        event("undeclared event", "drop", {}, changed);
        event("event values refused", "pick", {{"choice", PluginValue::number(1)}}, changed);
    }

    void customViews() { runCheckRow(); }

    void resultsAndCaptions_data() {
        checkColumns();
        check("empty data", data("text/css", 0), "");
        bothSides("data bytes", 8 << 20, badResult,
                  [](int n) { return data("application/octet-stream", n); });
        check("data without type", data(std::nullopt, 1), badResult);
        check("type alone", data("text", 1), badResult);
        check("parameters", data("text/html; charset=utf-8", 1), badResult);
        check("header break", data("text/html\r\nX: y", 1), badResult);
        bothSides("type characters", 100, badResult, [](int n) { return data("a/" + text(n - 2), 1); });
        check("empty error", error(""), badResult);
        bothSides("error characters", 300, badResult, [](int n) { return error(text(n)); });
        check("error with a type", error("Not found", "text/plain"), badResult);
        check("both", with(data("text/plain", 1), [](auto& r) { r.error = "x"; }), badResult);
        check("neither", with(error("x"), [](auto& r) { r.error.reset(); }), badResult);

        using Phase = PluginTransientCaption::Phase;
        const PluginTransientCaption caption{Phase::active, "Listening", "", "", "mic", std::nullopt};
        const auto captioned = [&](auto change) { return with(caption, change); };
        check("untitled", captioned([](auto& c) { c.title = ""; }), badCaption);
        check("untitled result", captioned([](auto& c) { c.title = "", c.phase = Phase::result; }),
              badCaption);
        check("untitled dismiss", captioned([](auto& c) { c.title = "", c.phase = Phase::dismiss; }), "");
        const auto captionText = textLimits(badCaption, caption);
        captionText("caption title", 80, &PluginTransientCaption::title);
        bothSides("caption text bytes", 1200, badCaption, [&](int n) {
            return captioned([&](auto& c) { c.text = text(n / 2, u'é') + text(n % 2); });
        });
        captionText("caption detail", 160, &PluginTransientCaption::detail);
        captionText("caption symbol", 50, &PluginTransientCaption::symbol);
        check("display 1", captioned([](auto& c) { c.displayNumber = 1; }), "");
        check("display 0", captioned([](auto& c) { c.displayNumber = 0; }), badCaption);
        const auto display = [](const char* name, const QByteArray& number, const QString& message) {
            const QByteArray json =
                R"({"phase":"active","title":"T","text":"","detail":"","symbol":"","displayNumber":)" +
                number + "}";
            QTest::newRow(name) << Check([=] { PluginTransientCaption::fromJson(parse(json)).validate(); })
                                << message;
        };
        const QString outside = "\"displayNumber\" must be a whole number from 0 to 4294967295";
        display("largest display", "4294967295", "");
        display("display past 32 bits", "4294967296", outside);
        display("negative display", "-1", outside);
        display("fractional display", "1.5", outside);
        display("display as text", "\"1\"", outside);
    }

    void resultsAndCaptions() { runCheckRow(); }

    void diagrams_data() {
        checkColumns();
        const auto drawn = [](auto change) { return with(diagram(), change); };
        check("id not a key", drawn([](auto& d) { d.id = ""; }), badDiagram);
        check("empty title", drawn([](auto& d) { d.title = ""; }), badDiagram);
        textLimits(badDiagram, diagram())("title", 60, &PluginDiagram::title);
        check("smallest", drawn([](auto& d) { d.width = d.height = 100; }), "");
        check("largest", drawn([](auto& d) { d.width = 2400, d.height = 1600; }), "");
        check("width 99.5", drawn([](auto& d) { d.width = 99.5; }), badDiagram);
        check("width 2400.5", drawn([](auto& d) { d.width = 2400.5; }), badDiagram);
        check("height 99.5", drawn([](auto& d) { d.height = 99.5; }), badDiagram);
        check("height 1600.5", drawn([](auto& d) { d.height = 1600.5; }), badDiagram);
        check("width not a number", drawn([](auto& d) { d.width = qQNaN(); }), badDiagram);
        textLimits(badDiagram, diagram())("summary", 4000, &PluginDiagram::summary);
        bothSides("elements", 300, badDiagram, [&](int n) {
            return drawn(
                [&](auto& d) { d.elements = QList<PluginDiagramElement>(n, element(box, 0, 0, 1, 1)); });
        });
        check("element validated", drawn([](auto& d) { d.elements[0].w = 1000; }), badElement);
        check("own limits before elements", drawn([](auto& d) { d.elements[0].w = 1000, d.title = ""; }),
              badDiagram);

        elementRow("box filling the canvas", element(box, 0, 0, 200, 100), "");
        elementRow("box of negative width", element(box, 50, 0, -10, 10), badElement);
        elementRow("ellipse of negative height", element(PluginDiagramElement::Kind::ellipse, 0, 50, 10, -10),
                   badElement);
        elementRow("line backwards", element(line, 150, 90, -100, -80), "");
        elementRow("line ending off the canvas", element(line, 50, 50, -60, 0), badElement);
        elementRow("box past the right edge", element(box, 150, 0, 51, 10), badElement);
        elementRow("box past the bottom edge", element(box, 0, 50, 10, 51), badElement);
        elementRow("box starting left of the canvas", element(box, -10, 0, 20, 10), badElement);
        elementRow("x not a number", element(box, qQNaN(), 0, 0, 0), badElement);
        elementRow("infinite width", element(line, 0, 0, qInf(), 0), badElement);
        elementRow("colours", styled([](auto& e) { e.fill = "#A0b1C2", e.stroke = "#a0b1c2ff"; }), "");
        elementRow("fill without hash", styled([](auto& e) { e.fill = "a0b1c2"; }), badElement);
        elementRow("five-digit stroke", styled([](auto& e) { e.stroke = "#a0b1c"; }), badElement);
        elementRow("seven-digit fill", styled([](auto& e) { e.fill = "#a0b1c2f"; }), badElement);
        elementRow("lower limits", styled([](auto& e) { e.font = 8.0, e.radius = 0.0, e.weight = 0.5; }), "");
        elementRow("upper limits", styled([](auto& e) {
                       e.text = text(200), e.font = 64.0, e.radius = 100.0, e.weight = 12.0;
                   }),
                   "");
        elementRow("201-character text", styled([](auto& e) { e.text = text(201); }), badElement);
        elementRow("font 7.5", styled([](auto& e) { e.font = 7.5; }), badElement);
        elementRow("font 64.5", styled([](auto& e) { e.font = 64.5; }), badElement);
        elementRow("negative radius", styled([](auto& e) { e.radius = -0.5; }), badElement);
        elementRow("radius 100.5", styled([](auto& e) { e.radius = 100.5; }), badElement);
        elementRow("weight 0.4", styled([](auto& e) { e.weight = 0.4; }), badElement);
        elementRow("weight 12.5", styled([](auto& e) { e.weight = 12.5; }), badElement);
        elementRow("weight not a number", styled([](auto& e) { e.weight = qQNaN(); }), badElement);
    }

    void diagrams() { runCheckRow(); }

    // Now is noon of 2024-03-10 in a zone 14 hours east of UTC, which is still the 9th in UTC.
    void filtered_data() {
        QTest::addColumn<QString>("query");
        QTest::addColumn<QString>("filter");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<int>("zoneHours");
        QTest::addColumn<bool>("sortByName");
        QTest::addColumn<int>("day");
        // Day 99 stands for no day chosen.
        const auto add = [](const char* name, const QString& query, const QString& filter,
                            const QString& shown, int zoneHours = 14, bool sortByName = false, int day = 99) {
            QTest::newRow(name) << query << filter << shown << zoneHours << sortByName << day;
        };
        add("everything", "", "All", "abcdefghij");
        add("an unknown filter keeps all", "", "Someday", "abcdefghij");
        add("unread", "", "Unread", "ac");
        add("today, from its first to its last second", "", "Today", "afg");
        add("today is the zone's", "", "Today", "abf", 0);
        add("overdue: open and before today", "", "Overdue", "bd");
        add("overdue is the zone's too", "", "Overdue", "d", 0);
        add("search ignores case", "PARCEL", "All", "a");
        add("search finds the subtitle", "plumb", "All", "b");
        add("search finds the detail beyond ASCII", "\u00E4PFEL", "All", "c");
        add("search is a substring", "eipt", "All", "bhi");
        add("search and filter together", "o", "Unread", "ac");
        add("nothing matches", "zebra", "All", "");
        add("by name, numbers as numbers", "", "All", "cegfjadbih", 14, true);
        add("by name after a search", "receipt", "All", "bih", 14, true);
        add("one day", "", "All", "afg", 14, false, 0);
        add("another day", "", "All", "e", 14, false, 1);
        add("one day and a search", "late", "All", "g", 14, false, 0);
    }

    void filtered() {
        QFETCH(QString, query);
        QFETCH(QString, filter);
        QFETCH(int, zoneHours);
        QFETCH(bool, sortByName);
        QFETCH(int, day);
        PluginCollectionFilter rows{query,        filter,    at(0, {12, 0}), QTimeZone(zoneHours * 3600),
                                    std::nullopt, sortByName};
        if (day != 99)
            rows.day = at(day, {12, 0});
        QString ids;
        for (const PluginCollectionItem& row : rows.apply(errands()))
            ids += row.id;
        QTEST(ids, "shown");
    }

    void recordsRoundTrip() {
        const PluginFormInput text{"name", "Name", Style::text, PluginValue::string("Desk"), std::nullopt};
        QCOMPARE(text.encoded(), QByteArray(R"({"id":"name","label":"Name","style":"text","value":"Desk"})"));
        const PluginForm choice = with(form(), [](auto& f) {
            f.inputs[0] = {"name", "Name", Style::choice, PluginValue::string("Desk"), {{"Desk", "Door"}}};
        });
        QCOMPARE(PluginForm::fromJson(choice.toJson()), choice);

        const PluginCollection agenda = with(calendarOf({day(0), day(86400)}), [](auto& c) {
            c.items[0].date = 0.0, c.items[0].action = button(), c.actions = {button("refresh", "Refresh")};
        });
        QCOMPARE(PluginCollection::fromJson(agenda.toJson()), agenda);
        QCOMPARE(agenda.items[0].toJson().value("date").toDouble(-1), 0.0);

        const PluginCustomView framed = view([](auto& v) {
            v.resourceNamespaces = QStringList{"img"}, v.frames = {{{"https://example.com/"}}};
        });
        QCOMPARE(PluginCustomView::fromJson(framed.toJson()), framed);

        const PluginViewResourceResult result{
            QUuid::createUuid(), "image/png", QByteArray("\x00\xff", 2), {}};
        QCOMPARE(result.toJson().value("data").toString(), QString("AP8="));
        QCOMPARE(result.toJson().value("id").toString(), result.id.toString(QUuid::WithoutBraces).toUpper());
        QCOMPARE(PluginViewResourceResult::fromJson(result.toJson()), result);

        const PluginTransientCaption caption{
            PluginTransientCaption::Phase::dismiss, "", "", "", "", 4294967295u};
        QCOMPARE(caption.encoded(), QByteArray(R"({"phase":"dismiss","title":"","text":"","detail":"",)"
                                               R"("symbol":"","displayNumber":4294967295})"));
        QCOMPARE(PluginTransientCaption::fromJson(caption.toJson()), caption);

        const PluginDiagram drawing = with(diagram(), [](auto& d) {
            d.elements.append({line, 0, 0, 5, 5, "#000000", "#ffffff80", "to", 9.0, 1.0, 2.0});
        });
        QCOMPARE(PluginDiagram::fromJson(drawing.toJson()), drawing);
    }
};

QTEST_GUILESS_MAIN(TestPluginPanelContents)
#include "tst_PluginPanelContents.moc"
