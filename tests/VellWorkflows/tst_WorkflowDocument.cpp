#include "VellWorkflows/WorkflowDocument.h"

#include <QTest>

#include "TestSupport.h"
#include "WorkflowFixtures.h"

using namespace vell;
using namespace vell::test;

namespace {

using Catalog = std::optional<QList<PluginCatalogEntry>>;

const QString badSize = "Invalid workflow version, title or size.";
const QString oneStart = "Use exactly one manual or event start.";
const QString badConnection = "A connection has an invalid target.";
const QString badNode = "A node has an invalid identity or position.";
const QString merge = "Connect every step once. Merge points are not supported in this version.";
const QString badOutput = "Use one connection per output. Conditions have yes and no outputs.";
const QString unreachable = "Every step must be reachable from the start; loops are not supported.";
const QString incomplete = "Complete the condition.";
const QString incompatible = "The condition compares incompatible values.";
const QString chooseAction = "Choose an available module action.";
const QString chooseChannel = "Choose a live event channel.";
const QString eventMissing = "The event module is missing or its definition changed.";
const QString hidden = "This step cannot carry hidden actions or inputs.";
const QString unavailable = "An input references an unavailable earlier output.";
const QString tooLong = "Text input is too long.";

const Catalog sendCatalog = QList<PluginCatalogEntry>{{{plugin, "send"}, sendAction(), std::nullopt},
                                                      {{plugin, "ring"}, std::nullopt, ringChannel()}};

const QString actionChanged = "Send it: its module is missing or the action changed. Choose it again.";
const QString incompleteInputs = "Send it: complete its required inputs.";
const QString wrongType = "Send it: an input has the wrong type.";

void columns() {
    QTest::addColumn<Check>("check");
    QTest::addColumn<QString>("message");
}

void expect(const char* name, const WorkflowDocument& workflow, const QString& message,
            const Catalog& catalog = std::nullopt) {
    QTest::newRow(name) << Check([workflow, catalog] { workflow.validate(catalog); }) << message;
}

// A copy of value as edit leaves it.
template <typename T, typename Edit> T edited(T value, Edit&& edit) {
    edit(value);
    return value;
}

// start -> node
WorkflowDocument single(const WorkflowNode& node) {
    return document({manual(), node}, {edge("start", node.id)});
}

} // namespace

class TestWorkflowDocument final : public QObject {
    Q_OBJECT

    static void runCheck() {
        QFETCH(Check, check);
        QFETCH(QString, message);
        QCOMPARE(problemOf(check), message);
    }

private slots:
    void structure_data() {
        columns();
        const auto one = [](auto&& edit) { return edited(chain(1), edit); };
        expect("blank", WorkflowDocument::blank(), "");
        expect("version 2", one([](auto& w) { w.schemaVersion = 2; }), badSize);
        expect("title 80", one([](auto& w) { w.title = QString(80, 't'); }), "");
        expect("title 81", one([](auto& w) { w.title = QString(81, 't'); }), badSize);
        expect("title empty", one([](auto& w) { w.title = ""; }), badSize);
        expect("no nodes", document({}), badSize);
        expect("64 nodes", chain(64), "");
        expect("65 nodes", chain(65), badSize);
        // 96 edges pass the size test and fail at the next one; 97 fail it.
        QList<WorkflowEdge> many;
        for (int i = 0; i < 97; ++i)
            many.append({QString::number(i), "a", "b", std::nullopt});
        const QList<WorkflowNode> noStart{step("a", Kind::review), step("b", Kind::review)};
        expect("96 edges", document(noStart, many.mid(0, 96)), oneStart);
        expect("97 edges", document(noStart, many), badSize);
        expect("same node id", document({manual("a"), step("a", Kind::review)}), badSize);
        // The second edge takes the first one's id and loops on its own source.
        WorkflowDocument sameEdge = chain(3);
        sameEdge.edges[1] = {sameEdge.edges[0].id, "n1", "n1", std::nullopt};
        expect("same edge id before a self loop", sameEdge, badSize);
        expect("no start", document({step("a", Kind::review)}), oneStart);
        // Two starts share one target: the start count decides before the merge.
        expect("two starts before a merge",
               document({manual("a"), eventStart("b"), step("c", Kind::review)},
                        {edge("a", "c"), edge("b", "c")}),
               oneStart);
    }
    void structure() { runCheck(); }

    void graph_data() {
        columns();
        const auto two = [](auto&& edit) { return edited(chain(2), edit); };
        expect("unknown target", two([](auto& w) { w.edges[0].target = "nowhere"; }), badConnection);
        expect("unknown source", two([](auto& w) { w.edges[0].source = "nowhere"; }), badConnection);
        // A self loop fails before any node is looked at, even one with an invalid id.
        expect("self loop before a bad node", two([](auto& w) {
                   w.nodes[1].id = "9bad";
                   w.edges = {{"e", "9bad", "9bad", std::nullopt}};
               }),
               badConnection);
        const auto renamed = [&](const QString& id) {
            return two([&](auto& w) { w.nodes[1].id = w.edges[0].target = id; });
        };
        expect("id of 64", renamed("n" + QString(63, 'x')), "");
        expect("id of 65", renamed("n" + QString(64, 'x')), badNode);
        expect("id with a dash", document({manual("a-b")}), badNode);
        const auto titled = [](const QString& title) {
            return edited(chain(1), [&](auto& w) { w.nodes[0].data.title = title; });
        };
        expect("node title 80", titled(QString(80, 't')), "");
        expect("node title 81", titled(QString(81, 't')), badNode);
        expect("node title empty", titled(""), badNode);
        const QList<std::pair<const char*, WorkflowNode::Position>> positions{
            {"x 100000", {100000, 0}},   {"x -100000", {-100000, 0}},   {"y 100000", {0, 100000}},
            {"y -100000", {0, -100000}}, {"x 100000.5", {100000.5, 0}}, {"y -100000.5", {0, -100000.5}},
            {"x NaN", {qQNaN(), 0}},     {"y infinite", {0, qInf()}}};
        for (int i = 0; i < positions.size(); ++i) {
            const WorkflowNode::Position at = positions[i].second;
            expect(positions[i].first, edited(chain(1), [&](auto& w) { w.nodes[0].position = at; }),
                   i < 4 ? "" : badNode);
        }

        // d is reached from the condition's no and again through a.
        const WorkflowDocument merged = document(
            {manual(), condition("c", literal(PluginValue::number(1)), "equals", PluginValue::number(1)),
             step("a", Kind::review), step("d", Kind::review)},
            {edge("start", "c"), edge("c", "a", "yes"), edge("c", "d", "no"), edge("a", "d")});
        expect("two incoming", merged, merge);
        expect("orphan", document({manual(), step("a", Kind::review)}), merge);
        expect("incoming edge to the start",
               document({manual(), step("a", Kind::review)}, {edge("a", "start")}), merge);
        // The identity of a decides before the merge at d, which follows it.
        expect("bad node before a merge", edited(merged, [](auto& w) { w.nodes[2].data.title = ""; }),
               badNode);
    }
    void graph() { runCheck(); }

    void outputs_data() {
        columns();
        const WorkflowBinding yes = literal(PluginValue::boolean(true));
        const WorkflowNode test = condition("c", yes, "equals", PluginValue::boolean(true));
        const auto branched = [&](std::optional<QString> first,
                                  std::optional<QString> second = std::nullopt) {
            QList<WorkflowNode> nodes{manual(), test, step("a", Kind::review)};
            QList<WorkflowEdge> edges{edge("start", "c"), edge("c", "a", first)};
            if (second) {
                nodes.append(step("b", Kind::review));
                edges.append(edge("c", "b", second));
            }
            return document(nodes, edges);
        };
        expect("condition yes", branched("yes"), "");
        expect("condition yes and no", branched("yes", "no"), "");
        expect("condition next", branched(std::nullopt), badOutput);
        expect("condition yes twice", branched("yes", "yes"), badOutput);
        expect("condition maybe", branched("maybe"), badOutput);
        const auto handle = [](const QString& name) {
            return edited(chain(2), [&](auto& w) { w.edges[0].sourceHandle = name; });
        };
        expect("manual with yes", handle("yes"), badOutput);
        expect("explicit next", handle("next"), "");
        const QList<WorkflowNode> three{manual(), step("a", Kind::review), step("b", Kind::review)};
        expect("two next outputs", document(three, {edge("start", "a"), edge("start", "b")}), badOutput);
        // Each of a and b has its one incoming edge, so only the walk from the start finds them out.
        expect("cycle apart from the start", document(three, {edge("a", "b"), edge("b", "a")}), unreachable);
    }
    void outputs() { runCheck(); }

    void steps_data() {
        columns();
        const auto send = [](auto&& edit) { return single(edited(actionStep("a"), edit)); };
        const WorkflowNode review = edited(step("r", Kind::review), [](auto& n) {
            n.data.address = PluginActionAddress{plugin, "send"};
        });
        expect("review with an address", single(review), hidden);
        const WorkflowBinding x = literal(PluginValue::string("x"));
        const WorkflowBinding one = literal(PluginValue::number(1));
        expect("manual with arguments",
               document({edited(manual(),
                                [&](auto& n) {
                                    n.data.arguments = {{"text", x}};
                                })}),
               hidden);
        const WorkflowNode test = condition("c", one, "equals", PluginValue::number(1));
        const WorkflowNode noTest = edited(test, [](auto& n) { n.data.test.reset(); });
        // Steps are tested in array order: the review comes before the incomplete condition.
        expect("review before condition",
               document({manual(), review, noTest}, {edge("start", "r"), edge("r", "c")}), hidden);
        expect("condition without test", single(noTest), incomplete);
        expect("condition with an unknown comparison",
               single(edited(test, [](auto& n) { n.data.comparison = "less"; })), incomplete);
        expect("condition without expected", single(edited(test, [](auto& n) { n.data.expected.reset(); })),
               incomplete);

        expect("action without definition", send([](auto& n) { n.data.action.reset(); }), chooseAction);
        expect("address and action differ", send([](auto& n) { n.data.address->name = "post"; }),
               chooseAction);
        expect("action with a channel", send([](auto& n) { n.data.channel = ringChannel(); }), chooseAction);
        expect("address fails its own test", send([](auto& n) { n.data.address->plugin = "cafe"; }),
               "Invalid action address.");
        expect("definition fails its own test", send([](auto& n) { n.data.action->timeoutSeconds = 0; }),
               "Invalid registered action.");
        expect("action in the catalogue", single(actionStep("a")), "", sendCatalog);
        const WorkflowDocument changed = send([](auto& n) { n.data.action->timeoutSeconds = 20; });
        expect("changed timeout, no catalogue", changed, "");
        expect("changed timeout", changed, actionChanged, sendCatalog);
        expect("empty catalogue", single(actionStep("a")), actionChanged, QList<PluginCatalogEntry>{});
        // The catalogue decides before the inputs.
        expect("changed before inputs", edited(changed, [](auto& w) { w.nodes[1].data.arguments.clear(); }),
               actionChanged, sendCatalog);
        const auto bound = [](const QMap<QString, WorkflowBinding>& arguments) {
            return single(actionStep("a", arguments));
        };
        expect("required input missing", bound({}), incompleteInputs);
        expect("unknown input", bound({{"text", x}, {"other", x}}), incompleteInputs);
        // An unknown key decides before the type of a known one.
        expect("unknown before wrong type", bound({{"text", one}, {"other", x}}), incompleteInputs);
        expect("wrong type", bound({{"text", one}}), wrongType);
        const auto counted = [&](double count) {
            return bound({{"text", x}, {"count", literal(PluginValue::number(count))}});
        };
        expect("count 10", counted(10), "");
        expect("count 10.5", counted(10.5), "Number is outside its limits.");
        expect("count -1", counted(-1), "Number is outside its limits.");
    }
    void steps() { runCheck(); }

    void events_data() {
        columns();
        const WorkflowDocument event = edited(chain(1), [](auto& w) { w.nodes[0] = eventStart(); });
        const auto start = [&](auto&& edit) {
            return edited(event, [&](auto& w) { edit(w.nodes[0].data); });
        };
        expect("event start", event, "");
        expect("event in the catalogue", event, "", sendCatalog);
        const WorkflowDocument bell = start([](auto& data) { data.channel->title = "Bell"; });
        expect("changed channel, no catalogue", bell, "");
        expect("changed channel", bell, eventMissing, sendCatalog);
        expect("state channel", start([](auto& data) { data.channel->kind = PluginChannel::Kind::state; }),
               chooseChannel);
        const WorkflowBinding x = literal(PluginValue::string("x"));
        expect("event with arguments", start([&](auto& data) {
                   data.arguments = {{"caller", x}};
               }),
               chooseChannel);
        expect("event address and channel differ", start([](auto& data) { data.address->name = "bell"; }),
               chooseChannel);
        expect("channel fails its own test", start([](auto& data) { data.channel->title = ""; }),
               "Invalid channel.");
    }
    void events() { runCheck(); }

    void bindings_data() {
        columns();
        const auto compare = [](const WorkflowBinding& test, const QString& comparison,
                                const PluginValue& expected) {
            return afterSend(condition("c", test, comparison, expected));
        };
        const PluginValue text = PluginValue::string("x");
        const PluginValue one = PluginValue::number(1);
        const WorkflowBinding reply = reference("send", "reply");
        expect("reply equals text", compare(reply, "equals", text), "");
        expect("reply contains text", compare(reply, "contains", text), "");
        expect("sent equals true",
               compare(reference("send", "sent"), "notEquals", PluginValue::boolean(true)), "");
        expect("reply equals number", compare(reply, "equals", one), incompatible);
        expect("greater on text", compare(literal(text), "greater", text), incompatible);
        expect("greater on numbers", compare(literal(one), "greater", one), "");
        expect("contains on numbers", compare(literal(one), "contains", one), incompatible);
        expect("unknown field", compare(reference("send", "missing"), "equals", text), unavailable);
        expect("manual start has no outputs", compare(reference("start", "x"), "equals", text), unavailable);
        expect("reference without field", compare({std::nullopt, "send", std::nullopt}, "equals", text),
               unavailable);
        expect("literal with a source", compare({text, "send", std::nullopt}, "equals", text), unavailable);
        expect("neither form", compare({}, "equals", text), unavailable);
        const QString accents(1024, u'é');
        expect("expected 2048 bytes", compare(literal(text), "equals", PluginValue::string(accents)), "");
        expect("expected 2049 bytes", compare(literal(text), "equals", PluginValue::string(accents + "x")),
               tooLong);
        expect("test number NaN", compare(literal(PluginValue::number(qQNaN())), "equals", one),
               "A number is invalid.");
        // The test decides before the expected value.
        expect("test before expected",
               compare(reference("send", "missing"), "equals", PluginValue::string(QString(2049, 'x'))),
               unavailable);

        // The event start's fields are the event's values.
        WorkflowDocument fromEvent = compare(reference("start", "caller"), "equals", text);
        fromEvent.nodes[0] = eventStart();
        expect("event field", fromEvent, "");

        // start -> c; yes -> send; no -> other, which refers to send's output on the other branch.
        const WorkflowDocument branched =
            document({manual(), condition("c", literal(one), "equals", one), actionStep("send"),
                      condition("other", reply, "equals", text)},
                     {edge("start", "c"), edge("c", "send", "yes"), edge("c", "other", "no")});
        expect("other branch", branched, unavailable);
        expect("same branch", edited(branched, [](auto& w) { w.edges[2] = edge("send", "other"); }), "");
        // A node that refers to a step after it.
        expect("later step",
               document({manual(), condition("c", reply, "equals", text), actionStep("send")},
                        {edge("start", "c"), edge("c", "send", "yes")}),
               unavailable);

        const auto argument = [](const WorkflowBinding& binding) {
            return afterSend(actionStep("second", {{"text", binding}}));
        };
        expect("argument from reply", argument(reply), "");
        expect("argument from sent", argument(reference("send", "sent")), wrongType);
        expect("argument of 2048 bytes", argument(literal(PluginValue::string(QString(2048, 'x')))), "");
        expect("argument of 2049 bytes", argument(literal(PluginValue::string(QString(2049, 'x')))), tooLong);
        expect("argument referring to itself", argument(reference("second", "reply")), unavailable);
    }
    void bindings() { runCheck(); }

    void json() {
        WorkflowNode send = actionStep("send");
        send.data.arguments.insert("count", reference("start", "n"));
        const WorkflowNode test =
            condition("c", reference("send", "reply"), "contains", PluginValue::string("ok"));
        const WorkflowDocument workflow =
            document({manual(), send, test}, {edge("start", "send"), edge("send", "c")});
        const QByteArray encoded = workflow.encoded();
        QVERIFY(encoded.startsWith(
            R"({"schemaVersion":1,"id":"7D3C2F4E-0A1B-4C5D-8E9F-0123456789AB","title":"Flow",)"
            R"("nodes":[{"id":"start","position":{"x":0,"y":0},"data":{"kind":"manual",)"
            R"("title":"When I run it","arguments":{}}},{"id":"send","position":{"x":0,"y":0},)"
            R"("data":{"kind":"action","title":"Send it","address":{"plugin":"cafe.osta",)"
            R"("name":"send"},"action":{"id":"send",)"));
        QVERIFY(encoded.contains(
            R"("arguments":{"count":{"source":"start","field":"n"},"text":{"value":"hi"}}}})"));
        QVERIFY(encoded.endsWith(
            R"({"id":"c","position":{"x":0,"y":0},"data":{"kind":"condition","title":"If","arguments":{},)"
            R"("test":{"source":"send","field":"reply"},"comparison":"contains","expected":"ok"}}],)"
            R"("edges":[{"id":"start-send-next","source":"start","target":"send"},)"
            R"({"id":"send-c-next","source":"send","target":"c"}]})"));
        QCOMPARE(WorkflowDocument::fromJson(parse(encoded)), workflow);
    }

    void decoding_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QString>("message");
        const QByteArray head =
            R"({"schemaVersion":1,"id":"7d3c2f4e-0a1b-4c5d-8e9f-0123456789ab","title":"Flow",)";
        const QByteArray node =
            R"("nodes":[{"id":"start","position":{"x":0,"y":0},"data":{"kind":"manual","title":"T",)";
        row("valid", head + node + R"("arguments":{},"test":null}}],"edges":[]})", QString());
        row("null handle",
            head + node +
                R"("arguments":{}}}],"edges":[{"id":"e","source":"a","target":"b","sourceHandle":null}]})",
            QString());
        row("no arguments", head + node + R"("test":{}}}],"edges":[]})",
            QString(R"("nodes[0].data.arguments" is missing)"));
        row("bad binding", head + node + R"("arguments":{"text":{"value":[]}}}}],"edges":[]})",
            QString(R"("nodes[0].data.arguments.text.value" must be a string)"));
        row("unknown kind",
            head +
                R"("nodes":[{"id":"s","position":{"x":0,"y":0},"data":{"kind":"loop","title":"T","arguments":{}}}],"edges":[]})",
            QString(R"("nodes[0].data.kind" has an unknown case)"));
        row("no edges", head + node + R"("arguments":{}}}]})", QString(R"("edges" is missing)"));
    }

    void decoding() {
        QFETCH(QByteArray, json);
        QFETCH(QString, message);
        QCOMPARE(problemOf([&] { WorkflowDocument::fromJson(parse(json)); }), message);
    }

    void next() {
        // Array order decides between two edges of the same branch, which validation would refuse.
        WorkflowDocument workflow =
            document({manual(), step("a", Kind::review), step("b", Kind::review)},
                     {edge("start", "a", "yes"), edge("start", "a"), edge("start", "b")});
        workflow.edges.append(WorkflowEdge::connecting("a", "b", "no"));
        QCOMPARE(workflow.next("start", u"next"), QString("a"));
        QCOMPARE(workflow.next("start", u"yes"), QString("a"));
        QCOMPARE(workflow.next("a", u"no"), QString("b"));
        QCOMPARE(workflow.next("a", u"next"), std::nullopt);
        QCOMPARE(workflow.next("b", u"next"), std::nullopt);
        const QString id = workflow.edges.last().id;
        QCOMPARE(id, id.toUpper());
        QVERIFY(!QUuid::fromString(id).isNull());
    }

    void resolve() {
        const WorkflowBinding::Results results{{"send", {{"reply", PluginValue::string("ok")}}}};
        const QString missing = "A required input is unavailable.";
        QCOMPARE(literal(PluginValue::number(2)).resolve(results), PluginValue::number(2));
        QCOMPARE(reference("send", "reply").resolve(results), PluginValue::string("ok"));
        QCOMPARE(problemOf([&] { reference("send", "sent").resolve(results); }), missing);
        QCOMPARE(problemOf([&] { reference("other", "reply").resolve(results); }), missing);
        const WorkflowBinding both{PluginValue::number(2), std::nullopt, "reply"};
        QCOMPARE(problemOf([&] { both.resolve(results); }), missing);
        QCOMPARE(problemOf([&] { WorkflowBinding{}.resolve(results); }), missing);
    }

    void matches() {
        const auto text = PluginValue::string;
        const auto number = PluginValue::number;
        QVERIFY(WorkflowDocument::matches(number(2), "equals", number(2.0)));
        QVERIFY(!WorkflowDocument::matches(text("2"), "equals", number(2)));
        QVERIFY(WorkflowDocument::matches(text("2"), "notEquals", number(2)));
        QVERIFY(!WorkflowDocument::matches(text("Ab"), "equals", text("ab")));
        QVERIFY(WorkflowDocument::matches(number(3), "greater", number(2)));
        QVERIFY(!WorkflowDocument::matches(number(2), "greater", number(2)));
        QVERIFY(WorkflowDocument::matches(text("Hello World"), "contains", text("wORLD")));
        QVERIFY(!WorkflowDocument::matches(text("Hello"), "contains", text("World")));
        const QString bad = "Condition values are incompatible.";
        QCOMPARE(problemOf([&] { WorkflowDocument::matches(text("3"), "greater", number(2)); }), bad);
        QCOMPARE(problemOf([&] { WorkflowDocument::matches(number(3), "contains", number(3)); }), bad);
        QCOMPARE(problemOf([&] { WorkflowDocument::matches(number(3), "less", number(3)); }), bad);
    }

    // Shortcut steps become one line each in the order they run, each name single-quoted so the
    // shell takes it as it is; anything a script can't do refuses the export, even when valid.
    void shellScript() {
        const auto shortcut = [](const QString& id, const PluginValue& name) {
            WorkflowNode node = step(id, Kind::action, "Run a shortcut");
            node.data.address = PluginActionAddress{"local.ostavell.utilities", "shortcut"};
            PluginRegisteredAction run = action("shortcut", "Run Shortcut");
            run.input.fields = {parameter("name", PluginParameter::Kind::string, true)};
            node.data.action = run;
            node.data.arguments = {{"name", literal(name)}};
            return node;
        };
        // Listed out of order: the script follows the edges, not the array.
        const WorkflowDocument workflow =
            document({manual(), shortcut("b", PluginValue::string("Back up")),
                      shortcut("a", PluginValue::string("Say 'hi' $HOME \\ \"now\""))},
                     {edge("start", "a"), edge("a", "b")});
        QCOMPARE(workflow.shellScript(),
                 QStringLiteral("#!/bin/sh\n"
                                "# Exported by OstaVell. Review before running.\n"
                                "ostavell-shortcuts run 'Say '\\''hi'\\'' $HOME \\ \"now\"'\n"
                                "ostavell-shortcuts run 'Back up'\n"));
        QCOMPARE(document({manual()}).shellScript(),
                 QStringLiteral("#!/bin/sh\n# Exported by OstaVell. Review before running.\n"));
        const QString refused =
            "Shell script export currently supports only manual starts and literal Shortcut "
            "actions. Conditions, events, AI, reviews and module actions cannot be omitted.";
        QCOMPARE(problemOf([] { chain(2).shellScript(); }), refused);
        QCOMPARE(problemOf([] { afterSend(step("done", Kind::review)).shellScript(); }), refused);
        // An invalid document gives the validation's own sentence first.
        QCOMPARE(problemOf([] { document({manual(), manual("again")}).shellScript(); }), oneStart);
    }
};

QTEST_GUILESS_MAIN(TestWorkflowDocument)
#include "tst_WorkflowDocument.moc"
