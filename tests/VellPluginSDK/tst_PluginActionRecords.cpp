#include "VellPluginSDK/Actions/PluginBusMessage.h"

#include <QTest>

#include "PresentationSupport.h"

using namespace vell;
using namespace vell::test;

namespace {

const QString badAction = "Invalid registered action.";
const QString badCompletion = "Invalid completion limit.";
const QString excessive = "Duplicate or excessive registration.";
const QString badDisplay = "Invalid run display.";
const QString badUpdate = "Invalid execution update.";

PluginChannel channel(const QString& id = "level") {
    return {id, "Level", PluginChannel::Kind::state, {}};
}

PluginRegistration registration(const QStringList& actions, const QStringList& channels) {
    PluginRegistration registration;
    for (const QString& id : actions)
        registration.actions.append(action(id));
    for (const QString& id : channels)
        registration.channels.append(channel(id));
    return registration;
}

QStringList ids(const char* prefix, int count) {
    QStringList result;
    for (int i = 0; i < count; ++i)
        result.append(prefix + QString::number(i));
    return result;
}

PluginRunDisplay display(qint64 completed, qint64 total, int title = 0, int step = 0, int detail = 0) {
    return {QString(title, 't'), QString(step, 's'), QString(detail, 'd'), completed, total, false};
}

PluginRunUpdate update(std::optional<double> progress, int messageLength = 0, int values = 0,
                       std::optional<PluginRunDisplay> display = std::nullopt) {
    PluginRunUpdate update{PluginRunPhase::running, progress, QString(messageLength, 'm'), {}, display};
    for (int i = 0; i < values; ++i)
        update.values.insert(QStringLiteral("v%1").arg(i), PluginValue::boolean(true));
    return update;
}

// A bus message of the operation with a valid request ID and the given further members.
QByteArray bus(const char* operation, const QByteArray& members = {}) {
    return QByteArray("{\"operation\":\"") + operation + "\"," + members +
           R"("requestID":"7d3c2f4e-0a1b-4c5d-8e9f-0123456789ab"})";
}

} // namespace

class TestPluginActionRecords final : public QObject {
    Q_OBJECT

private slots:
    void definitions_data() {
        checkColumns();
        const QString badAddress = "Invalid action address.";
        check("address: no dot", PluginActionAddress{"cafe", "toggle"}, badAddress);
        bothSides("address: plugin characters", 100, badAddress, [](int n) {
            return PluginActionAddress{"a." + text(n - 2), "x"};
        });
        check("address: bad name", PluginActionAddress{"cafe.osta", "9lives"}, badAddress);
        textLimits(badAddress, PluginActionAddress{"cafe.osta", ""})("address: name", 64,
                                                                     &PluginActionAddress::name);

        const QString family = QStringLiteral("\U0001F468\u200D\U0001F469\u200D\U0001F467");
        check("timeout 1", action("a", "T", 1), "");
        check("timeout 300", action("a", "T", 300), "");
        check("timeout 0.5", action("a", "T", 0.5), badAction);
        check("timeout 300.5", action("a", "T", 300.5), badAction);
        check("timeout not a number", action("a", "T", qQNaN()), badAction);
        check("empty title", action("a", ""), badAction);
        check("blank title is not empty", action("a", "   "), "");
        textLimits(badAction, action("a"), std::identity(), family)("title", 80,
                                                                    &PluginRegisteredAction::title);
        check("completion equal to timeout", action("a", "T", 10, 10), "");
        check("completion below timeout", action("a", "T", 10, 9), badCompletion);
        check("completion 86400", action("a", "T", 10, 86400), "");
        check("completion above 86400", action("a", "T", 10, 86400.5), badCompletion);
        check("completion not a number", action("a", "T", 10, qQNaN()), badCompletion);
        check("own fields before completion", action("a", "", 10, 1), badAction);

        // The output schema is checked last, after the input schema and the action's own fields.
        PluginRegisteredAction schemas = action();
        schemas.output.fields = {{"9", PluginParameter::Kind::string, true, {}, {}}};
        schemas.input.fields = {{"a", PluginParameter::Kind::string, true, {}, {}},
                                {"a", PluginParameter::Kind::string, true, {}, {}}};
        check("input schema before output schema", schemas, "Invalid value schema.");
        schemas.input.fields.removeLast();
        check("output schema", schemas, "Invalid parameter constraint.");
        schemas.id = "bad id";
        check("own fields before schemas", schemas, badAction);

        PluginChannel untitled = channel(), badSchema = channel();
        untitled.title.clear();
        badSchema.schema.fields = {{"a", PluginParameter::Kind::boolean, true, 0.0, {}}};
        check("channel with bad id", channel("_x"), "Invalid channel.");
        check("channel without title", untitled, "Invalid channel.");
        check("channel with bad schema", badSchema, "Invalid parameter constraint.");

        // "_bad" is no valid action id, so its action fails on its own.
        check("empty registration", registration({}, {}), "");
        check("32 actions and 32 channels", registration(ids("a", 32), ids("c", 32)), "");
        check("33 actions", registration(ids("a", 33), {}), excessive);
        check("33 channels", registration({}, ids("c", 33)), excessive);
        check("count before any action", registration(QStringList{"_bad"} + ids("a", 32), {}), excessive);
        check("duplicate action id", registration({"a", "a"}, {}), excessive);
        check("duplicate channel id", registration({}, {"c", "c"}), excessive);
        check("duplicate before a broken action", registration({"_bad", "_bad"}, {}), excessive);
        check("broken action", registration({"_bad", "a"}, ids("c", 2)), badAction);
        PluginRegistration late{{action("a"), action("b", "B", 10, 1)}, {channel("_bad")}};
        check("channels after all actions", late, badCompletion);
        late.actions[1].completionTimeoutSeconds.reset();
        check("channels checked", late, "Invalid channel.");
    }

    void definitions() { runCheckRow(); }

    void runs_data() {
        checkColumns();
        check("nothing done of nothing", display(0, 0), "");
        check("all of 64", display(64, 64, 80, 80, 300), "");
        check("65 steps", display(0, 65), badDisplay);
        check("more done than exist", display(3, 2), badDisplay);
        check("negative done", display(-1, 2), badDisplay);
        check("negative total", display(0, -1), badDisplay);
        check("81-character display title", display(0, 0, 81), badDisplay);
        check("81-character step", display(0, 0, 0, 81), badDisplay);
        check("301-character detail", display(0, 0, 0, 0, 301), badDisplay);

        check("no progress", update(std::nullopt), "");
        check("progress 0", update(0.0), "");
        check("progress 1", update(1.0, 300, 16), "");
        check("progress 1.01", update(1.01), badUpdate);
        check("negative progress", update(-0.01), badUpdate);
        check("progress not a number", update(qQNaN()), badUpdate);
        check("301-character message", update(0.5, 301), badUpdate);
        check("17 values", update(0.5, 0, 17), badUpdate);
        check("bad display", update(0.5, 0, 0, display(1, 0)), badDisplay);
        check("update before display", update(2.0, 0, 0, display(1, 0)), badUpdate);
    }

    void runs() { runCheckRow(); }

    void busMessageDecoding_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QString>("message");
        const QByteArray running = R"("update":{"phase":"running","message":"")";
        row("lower-case UUID", bus("discover"), "");
        row("unknown keys ignored", bus("discover", R"("x":[1],)"), "");
        row("null optionals", bus("invoke", R"("address":null,"values":null,)"), "");
        row("unknown operation", bus("ping"), "\"operation\" has an unknown case");
        row("operation by case name only", bus("Register"), "\"operation\" has an unknown case");
        row("no request", QByteArray(R"({"operation":"discover"})"), "\"requestID\" is missing");
        row("braced UUID",
            QByteArray(R"({"operation":"discover","requestID":"{7d3c2f4e-0a1b-4c5d-8e9f-0123456789ab}"})"),
            "\"requestID\" must be a UUID");
        row("nested value that is an object", bus("invoke", R"("values":{"a":{}},)"),
            "\"values.a\" must be a string");
        row("update with an unknown phase",
            bus("update", R"("update":{"phase":"paused","message":"","values":{}},)"),
            "\"update.phase\" has an unknown case");
        row("update without values", bus("update", running + "},"), "\"update.values\" is missing");
        row("fractional step count",
            bus("update", running + R"(,"values":{},"display":{"title":"","step":"","detail":"",)"
                                    R"("completedSteps":1.5,"totalSteps":2,"needsReview":false}},)"),
            "\"update.display.completedSteps\" must be a whole number");
        row("catalog entry lacking address", bus("catalog", R"("catalog":[{}],)"),
            "\"catalog[0].address\" is missing");
        row("unknown effect",
            bus("register",
                R"("registration":{"channels":[],"actions":[{"id":"a","title":"A","input":{"fields":[]},)"
                R"("output":{"fields":[]},"effect":"delete","cancellable":false,"timeoutSeconds":5}]},)"),
            "\"registration.actions[0].effect\" has an unknown case");
        row("not an object", QByteArray("[]"), "must be a JSON object");
    }

    void busMessageDecoding() {
        QFETCH(QByteArray, json);
        QTEST(problemOf([&] { PluginBusMessage::fromJson(parse(json)); }), "message");
    }

    void busMessageRoundTripsEveryOperation() {
        for (int i = 0; i <= int(PluginBusMessage::Operation::failure); ++i) {
            const auto operation = PluginBusMessage::Operation(i);
            PluginBusMessage message;
            message.operation = operation;
            message.requestID = QUuid::createUuid();
            message.address = PluginActionAddress{"cafe.osta", "toggle"};
            message.registration = PluginRegistration{{action()}, {channel()}};
            message.catalog = QList<PluginCatalogEntry>{{{"cafe.osta", "level"}, std::nullopt, channel()}};
            message.values = PluginValueMap{{"a", PluginValue::string("x")}};
            message.update = PluginRunUpdate{PluginRunPhase::cancelling, 0.25, "M",
                                             PluginValueMap{{"n", PluginValue::number(1)}},
                                             PluginRunDisplay{"T", "S", "D", 1, 2, true}};
            message.lifetime = 12.5;
            message.error = "E";
            message.complete = true;
            const QJsonObject json = message.toJson();
            QCOMPARE(json.value("operation").toString(), PluginBusMessage::operationName(operation));
            QCOMPARE(json.value("requestID").toString(),
                     message.requestID.toString(QUuid::WithoutBraces).toUpper());
            QCOMPARE(PluginBusMessage::fromJson(json), message);
        }
    }
};

QTEST_GUILESS_MAIN(TestPluginActionRecords)
#include "tst_PluginActionRecords.moc"
