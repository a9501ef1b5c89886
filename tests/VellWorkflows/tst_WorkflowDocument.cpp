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

void validation(const char* name, const WorkflowDocument& workflow, const QString& message,
                const Catalog& catalog = std::nullopt) {
    QTest::newRow(name) << Check([workflow, catalog] { workflow.validate(catalog); }) << message;
}

} // namespace

class TestWorkflowDocument final : public QObject {
    Q_OBJECT

private slots:
    void structure_data();
    void structure() { runCheck(); }
    void graph_data();
    void graph() { runCheck(); }
    void outputs_data();
    void outputs() { runCheck(); }
    void steps_data();
    void steps() { runCheck(); }
    void events_data();
    void events() { runCheck(); }
    void bindings_data();
    void bindings() { runCheck(); }
    void json();
    void decoding_data();
    void decoding();
    void next();
    void resolve();
    void matches();
    void shellScript();

private:
    static void runCheck() {
        QFETCH(Check, check);
        QFETCH(QString, message);
        QCOMPARE(problemOf(check), message);
    }
};

void TestWorkflowDocument::structure_data() {
    QTest::addColumn<Check>("check");
    QTest::addColumn<QString>("message");
    validation("blank", WorkflowDocument::blank(), "");
    WorkflowDocument version = chain(1);
    version.schemaVersion = 2;
    validation("version 2", version, badSize);
    WorkflowDocument titled = chain(1);
    titled.title = QString(80, 't');
    validation("title 80", titled, "");
    titled.title = QString(81, 't');
    validation("title 81", titled, badSize);
    titled.title = "";
    validation("title empty", titled, badSize);
    validation("no nodes", document({}), badSize);
    validation("64 nodes", chain(64), "");
    validation("65 nodes", chain(65), badSize);
    // 96 edges pass the size test and fail at the next one; 97 fail it.
    QList<WorkflowEdge> many;
    for (int i = 0; i < 97; ++i)
        many.append({QString::number(i), "a", "b", std::nullopt});
    const QList<WorkflowNode> noStart{step("a", Kind::review), step("b", Kind::review)};
    validation("96 edges", document(noStart, many.mid(0, 96)), oneStart);
    validation("97 edges", document(noStart, many), badSize);
    validation("same node id", document({manual("a"), step("a", Kind::review)}), badSize);
    WorkflowDocument sameEdge = chain(3);
    sameEdge.edges[1].id = sameEdge.edges[0].id;
    validation("same edge id, different ends", sameEdge, badSize);
    WorkflowDocument sameEdgeSelf = sameEdge;
    sameEdgeSelf.edges[1].target = sameEdgeSelf.edges[1].source;
    validation("same edge id before a self loop", sameEdgeSelf, badSize);
    validation("no start", document({step("a", Kind::review)}), oneStart);
    // Two starts share one target: the start count decides before the merge.
    validation(
        "two starts before a merge",
        document({manual("a"), eventStart("b"), step("c", Kind::review)}, {edge("a", "c"), edge("b", "c")}),
        oneStart);
}

void TestWorkflowDocument::graph_data() {
    QTest::addColumn<Check>("check");
    QTest::addColumn<QString>("message");
    WorkflowDocument unknownTarget = chain(2);
    unknownTarget.edges[0].target = "nowhere";
    validation("unknown target", unknownTarget, badConnection);
    WorkflowDocument unknownSource = chain(2);
    unknownSource.edges[0].source = "nowhere";
    validation("unknown source", unknownSource, badConnection);
    // A self loop fails before any node is looked at, even one with an invalid id.
    WorkflowDocument self = chain(2);
    self.nodes[1].id = "9bad";
    self.edges = {{"e", "9bad", "9bad", std::nullopt}};
    validation("self loop before a bad node", self, badConnection);

    WorkflowDocument node = chain(2);
    node.nodes[1].id = "n" + QString(63, 'x');
    node.edges[0].target = node.nodes[1].id;
    validation("id of 64", node, "");
    node.nodes[1].id += u'x';
    node.edges[0].target = node.nodes[1].id;
    validation("id of 65", node, badNode);
    validation("id with a dash", document({manual("a-b")}), badNode);
    WorkflowDocument titled = chain(1);
    titled.nodes[0].data.title = QString(80, 't');
    validation("node title 80", titled, "");
    titled.nodes[0].data.title = QString(81, 't');
    validation("node title 81", titled, badNode);
    titled.nodes[0].data.title = "";
    validation("node title empty", titled, badNode);
    const QList<std::pair<const char*, WorkflowNode::Position>> positions{
        {"x 100000", {100000, 0}},   {"x -100000", {-100000, 0}},   {"y 100000", {0, 100000}},
        {"y -100000", {0, -100000}}, {"x 100000.5", {100000.5, 0}}, {"y -100000.5", {0, -100000.5}},
        {"x NaN", {qQNaN(), 0}},     {"y infinite", {0, qInf()}}};
    for (int i = 0; i < positions.size(); ++i) {
        WorkflowDocument placed = chain(1);
        placed.nodes[0].position = positions[i].second;
        validation(positions[i].first, placed, i < 4 ? "" : badNode);
    }

    // d is reached from the condition's no and again through a.
    const WorkflowDocument merged =
        document({manual(), condition("c", literal(PluginValue::number(1)), "equals", PluginValue::number(1)),
                  step("a", Kind::review), step("d", Kind::review)},
                 {edge("start", "c"), edge("c", "a", "yes"), edge("c", "d", "no"), edge("a", "d")});
    validation("two incoming", merged, merge);
    validation("orphan", document({manual(), step("a", Kind::review)}), merge);
    validation("incoming edge to the start",
               document({manual(), step("a", Kind::review)}, {edge("a", "start")}), merge);
    // The identity of a decides before the merge at d, which follows it.
    WorkflowDocument badBeforeMerge = merged;
    badBeforeMerge.nodes[2].data.title = "";
    validation("bad node before a merge", badBeforeMerge, badNode);
}

void TestWorkflowDocument::outputs_data() {
    QTest::addColumn<Check>("check");
    QTest::addColumn<QString>("message");
    const WorkflowBinding yes = literal(PluginValue::boolean(true));
    const WorkflowNode test = condition("c", yes, "equals", PluginValue::boolean(true));
    const auto branched = [&](std::optional<QString> first, std::optional<QString> second = std::nullopt) {
        QList<WorkflowNode> nodes{manual(), test, step("a", Kind::review)};
        QList<WorkflowEdge> edges{edge("start", "c"), edge("c", "a", first)};
        if (second) {
            nodes.append(step("b", Kind::review));
            edges.append(edge("c", "b", second));
        }
        return document(nodes, edges);
    };
    validation("condition yes", branched("yes"), "");
    validation("condition yes and no", branched("yes", "no"), "");
    validation("condition next", branched(std::nullopt), badOutput);
    validation("condition yes twice", branched("yes", "yes"), badOutput);
    validation("condition maybe", branched("maybe"), badOutput);
    WorkflowDocument actionYes = chain(2);
    actionYes.edges[0].sourceHandle = "yes";
    validation("manual with yes", actionYes, badOutput);
    WorkflowDocument explicitNext = chain(2);
    explicitNext.edges[0].sourceHandle = "next";
    validation("explicit next", explicitNext, "");
    validation("two next outputs",
               document({manual(), step("a", Kind::review), step("b", Kind::review)},
                        {edge("start", "a"), edge("start", "b")}),
               badOutput);

    // Each of a and b has its one incoming edge, so only the walk from the start finds them out.
    validation("cycle apart from the start",
               document({manual(), step("a", Kind::review), step("b", Kind::review)},
                        {edge("a", "b"), edge("b", "a")}),
               unreachable);
}

void TestWorkflowDocument::steps_data() {
    QTest::addColumn<Check>("check");
    QTest::addColumn<QString>("message");
    const auto single = [](const WorkflowNode& node) {
        return document({manual(), node}, {edge("start", node.id)});
    };

    WorkflowNode review = step("r", Kind::review);
    review.data.address = PluginActionAddress{plugin, "send"};
    validation("review with an address", single(review), hidden);
    WorkflowDocument manualArguments = chain(1);
    manualArguments.nodes[0].data.arguments.insert("text", literal(PluginValue::string("x")));
    validation("manual with arguments", manualArguments, hidden);
    // Steps are tested in array order: the review comes before the incomplete condition.
    WorkflowNode noTest = condition("c", literal(PluginValue::number(1)), "equals", PluginValue::number(1));
    noTest.data.test.reset();
    validation("review before condition",
               document({manual(), review, noTest}, {edge("start", "r"), edge("r", "c")}), hidden);

    validation("condition without test", single(noTest), incomplete);
    validation("condition with an unknown comparison",
               single(condition("c", literal(PluginValue::number(1)), "less", PluginValue::number(1))),
               incomplete);
    WorkflowNode noExpected =
        condition("c", literal(PluginValue::number(1)), "equals", PluginValue::number(1));
    noExpected.data.expected.reset();
    validation("condition without expected", single(noExpected), incomplete);

    WorkflowNode noAction = actionStep("a");
    noAction.data.action.reset();
    validation("action without definition", single(noAction), chooseAction);
    WorkflowNode renamed = actionStep("a");
    renamed.data.address->name = "post";
    validation("address and action differ", single(renamed), chooseAction);
    WorkflowNode withChannel = actionStep("a");
    withChannel.data.channel = ringChannel();
    validation("action with a channel", single(withChannel), chooseAction);
    WorkflowNode badAddress = actionStep("a");
    badAddress.data.address->plugin = "cafe";
    validation("address fails its own test", single(badAddress), "Invalid action address.");
    WorkflowNode badDefinition = actionStep("a");
    badDefinition.data.action->timeoutSeconds = 0;
    validation("definition fails its own test", single(badDefinition), "Invalid registered action.");
    validation("action in the catalogue", single(actionStep("a")), "", sendCatalog);
    WorkflowNode changed = actionStep("a");
    changed.data.action->timeoutSeconds = 20;
    validation("changed timeout, no catalogue", single(changed), "");
    validation("changed timeout", single(changed),
               "Send it: its module is missing or the action changed. Choose it again.", sendCatalog);
    validation("empty catalogue", single(actionStep("a")),
               "Send it: its module is missing or the action changed. Choose it again.",
               QList<PluginCatalogEntry>{});
    // The catalogue decides before the inputs.
    changed.data.arguments.clear();
    validation("changed before inputs", single(changed),
               "Send it: its module is missing or the action changed. Choose it again.", sendCatalog);
    validation("required input missing", single(actionStep("a", {})),
               "Send it: complete its required inputs.");
    validation("unknown input",
               single(actionStep("a", {{"text", literal(PluginValue::string("x"))},
                                       {"other", literal(PluginValue::string("x"))}})),
               "Send it: complete its required inputs.");
    // An unknown key decides before the type of a known one.
    validation("unknown before wrong type",
               single(actionStep("a", {{"text", literal(PluginValue::number(1))},
                                       {"other", literal(PluginValue::string("x"))}})),
               "Send it: complete its required inputs.");
    validation("wrong type", single(actionStep("a", {{"text", literal(PluginValue::number(1))}})),
               "Send it: an input has the wrong type.");
    const auto counted = [&](double count) {
        return single(actionStep("a", {{"text", literal(PluginValue::string("x"))},
                                       {"count", literal(PluginValue::number(count))}}));
    };
    validation("count 10", counted(10), "");
    validation("count 10.5", counted(10.5), "Number is outside its limits.");
    validation("count -1", counted(-1), "Number is outside its limits.");
}

void TestWorkflowDocument::events_data() {
    QTest::addColumn<Check>("check");
    QTest::addColumn<QString>("message");
    WorkflowDocument event = chain(1);
    event.nodes[0] = eventStart();
    validation("event start", event, "");
    validation("event in the catalogue", event, "", sendCatalog);
    WorkflowDocument changedEvent = event;
    changedEvent.nodes[0].data.channel->title = "Bell";
    validation("changed channel, no catalogue", changedEvent, "");
    validation("changed channel", changedEvent, eventMissing, sendCatalog);
    WorkflowDocument state = event;
    state.nodes[0].data.channel->kind = PluginChannel::Kind::state;
    validation("state channel", state, chooseChannel);
    WorkflowDocument eventArguments = event;
    eventArguments.nodes[0].data.arguments.insert("caller", literal(PluginValue::string("x")));
    validation("event with arguments", eventArguments, chooseChannel);
    WorkflowDocument eventRenamed = event;
    eventRenamed.nodes[0].data.address->name = "bell";
    validation("event address and channel differ", eventRenamed, chooseChannel);
    WorkflowDocument badChannel = event;
    badChannel.nodes[0].data.channel->title = "";
    validation("channel fails its own test", badChannel, "Invalid channel.");
}

void TestWorkflowDocument::bindings_data() {
    QTest::addColumn<Check>("check");
    QTest::addColumn<QString>("message");
    const auto compare = [](const WorkflowBinding& test, const QString& comparison,
                            const PluginValue& expected) {
        return afterSend(condition("c", test, comparison, expected));
    };
    const PluginValue text = PluginValue::string("x");
    const PluginValue one = PluginValue::number(1);
    validation("reply equals text", compare(reference("send", "reply"), "equals", text), "");
    validation("reply contains text", compare(reference("send", "reply"), "contains", text), "");
    validation("sent equals true",
               compare(reference("send", "sent"), "notEquals", PluginValue::boolean(true)), "");
    validation("reply equals number", compare(reference("send", "reply"), "equals", one), incompatible);
    validation("greater on text", compare(literal(text), "greater", text), incompatible);
    validation("greater on numbers", compare(literal(one), "greater", one), "");
    validation("contains on numbers", compare(literal(one), "contains", one), incompatible);
    validation("unknown field", compare(reference("send", "missing"), "equals", text), unavailable);
    validation("manual start has no outputs", compare(reference("start", "x"), "equals", text), unavailable);
    validation("reference without field", compare({std::nullopt, "send", std::nullopt}, "equals", text),
               unavailable);
    validation("literal with a source", compare({text, "send", std::nullopt}, "equals", text), unavailable);
    validation("neither form", compare({}, "equals", text), unavailable);
    validation("expected 2048 bytes",
               compare(literal(text), "equals", PluginValue::string(QString(1024, u'é'))), "");
    validation("expected 2049 bytes",
               compare(literal(text), "equals", PluginValue::string(QString(1024, u'é') + "x")), tooLong);
    validation("test number NaN", compare(literal(PluginValue::number(qQNaN())), "equals", one),
               "A number is invalid.");
    // The test decides before the expected value.
    validation("test before expected",
               compare(reference("send", "missing"), "equals", PluginValue::string(QString(2049, 'x'))),
               unavailable);

    // The event start's fields are the event's values.
    WorkflowDocument fromEvent = afterSend(condition("c", reference("start", "caller"), "equals", text));
    fromEvent.nodes[0] = eventStart();
    validation("event field", fromEvent, "");

    // start -> c; yes -> send; no -> other, which refers to send's output on the other branch.
    const WorkflowNode branch = condition("c", literal(one), "equals", one);
    const WorkflowNode other = condition("other", reference("send", "reply"), "equals", text);
    const WorkflowDocument branched =
        document({manual(), branch, actionStep("send"), other},
                 {edge("start", "c"), edge("c", "send", "yes"), edge("c", "other", "no")});
    validation("other branch", branched, unavailable);
    WorkflowDocument later = branched;
    later.edges[2] = edge("send", "other");
    validation("same branch", later, "");
    // A node that refers to a step after it.
    WorkflowDocument ahead =
        document({manual(), condition("c", reference("send", "reply"), "equals", text), actionStep("send")},
                 {edge("start", "c"), edge("c", "send", "yes")});
    validation("later step", ahead, unavailable);

    const auto argument = [](const WorkflowBinding& binding) {
        return afterSend(actionStep("second", {{"text", binding}}));
    };
    validation("argument from reply", argument(reference("send", "reply")), "");
    validation("argument from sent", argument(reference("send", "sent")),
               "Send it: an input has the wrong type.");
    validation("argument of 2048 bytes", argument(literal(PluginValue::string(QString(2048, 'x')))), "");
    validation("argument of 2049 bytes", argument(literal(PluginValue::string(QString(2049, 'x')))), tooLong);
    validation("argument referring to itself", argument(reference("second", "reply")), unavailable);
}

void TestWorkflowDocument::json() {
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
    QVERIFY(
        encoded.contains(R"("arguments":{"count":{"source":"start","field":"n"},"text":{"value":"hi"}}}})"));
    QVERIFY(encoded.endsWith(
        R"({"id":"c","position":{"x":0,"y":0},"data":{"kind":"condition","title":"If","arguments":{},)"
        R"("test":{"source":"send","field":"reply"},"comparison":"contains","expected":"ok"}}],)"
        R"("edges":[{"id":"start-send-next","source":"start","target":"send"},)"
        R"({"id":"send-c-next","source":"send","target":"c"}]})"));
    QCOMPARE(WorkflowDocument::fromJson(parse(encoded)), workflow);
}

void TestWorkflowDocument::decoding_data() {
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

void TestWorkflowDocument::decoding() {
    QFETCH(QByteArray, json);
    QFETCH(QString, message);
    QCOMPARE(problemOf([&] { WorkflowDocument::fromJson(parse(json)); }), message);
}

void TestWorkflowDocument::next() {
    // Array order decides between two edges of the same branch, which validation would refuse.
    WorkflowDocument workflow = document({manual(), step("a", Kind::review), step("b", Kind::review)},
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

void TestWorkflowDocument::resolve() {
    const WorkflowBinding::Results results{{"send", {{"reply", PluginValue::string("ok")}}}};
    const QString missing = "A required input is unavailable.";
    QCOMPARE(literal(PluginValue::number(2)).resolve(results), PluginValue::number(2));
    QCOMPARE(reference("send", "reply").resolve(results), PluginValue::string("ok"));
    QCOMPARE(problemOf([&] { reference("send", "sent").resolve(results); }), missing);
    QCOMPARE(problemOf([&] { reference("other", "reply").resolve(results); }), missing);
    QCOMPARE(problemOf([&] {
                 WorkflowBinding{PluginValue::number(2), std::nullopt, "reply"}.resolve(results);
             }),
             missing);
    QCOMPARE(problemOf([&] { WorkflowBinding{}.resolve(results); }), missing);
}

void TestWorkflowDocument::matches() {
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
void TestWorkflowDocument::shellScript() {
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
    const QString refused = "Shell script export currently supports only manual starts and literal Shortcut "
                            "actions. Conditions, events, AI, reviews and module actions cannot be omitted.";
    QCOMPARE(problemOf([] { chain(2).shellScript(); }), refused);
    QCOMPARE(problemOf([] { afterSend(step("done", Kind::review)).shellScript(); }), refused);
    // An invalid document gives the validation's own sentence first.
    QCOMPARE(problemOf([] {
                 document({manual(), manual("again")}).shellScript();
             }),
             QStringLiteral("Use exactly one manual or event start."));
}

QTEST_GUILESS_MAIN(TestWorkflowDocument)
#include "tst_WorkflowDocument.moc"
