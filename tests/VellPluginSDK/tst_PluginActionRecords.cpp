#include "VellPluginSDK/Actions/PluginBusMessage.h"

#include <QTest>

#include "TestSupport.h"

using namespace vell;
using namespace vell::test;

namespace {

PluginRegisteredAction action(const QString& id = "toggle", double timeout = 10) {
    PluginRegisteredAction action;
    action.id = id;
    action.title = "Toggle";
    action.timeoutSeconds = timeout;
    return action;
}

PluginChannel channel(const QString& id = "level") {
    return {id, "Level", PluginChannel::Kind::state, {}};
}

} // namespace

class TestPluginActionRecords final : public QObject {
    Q_OBJECT

private slots:
    void addressValidation_data() {
        QTest::addColumn<QString>("plugin");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("valid");

        QTest::addRow("no dot") << "cafe"
                                << "toggle" << false;
        QTest::addRow("100 characters") << "a." + QString(98, 'b') << "x" << true;
        QTest::addRow("101 characters") << "a." + QString(99, 'b') << "x" << false;
        QTest::addRow("bad name") << "cafe.osta"
                                  << "9lives" << false;
        QTest::addRow("65-character name") << "cafe.osta"
                                           << "a" + QString(64, 'b') << false;
    }

    void addressValidation() {
        QFETCH(QString, plugin);
        QFETCH(QString, name);
        QFETCH(bool, valid);
        const PluginActionAddress address{plugin, name};
        QCOMPARE(problemOf([&] { address.validate(); }), valid ? QString() : "Invalid action address.");
    }

    void registeredActionValidation_data() {
        QTest::addColumn<QString>("title");
        QTest::addColumn<double>("timeout");
        QTest::addColumn<double>("completion");
        QTest::addColumn<QString>("message");

        const QString invalid = "Invalid registered action.";
        const QString completion = "Invalid completion limit.";
        const double none = -1;
        const QString family = QStringLiteral("\U0001F468\u200D\U0001F469\u200D\U0001F467");

        QTest::addRow("timeout 1") << "T" << 1.0 << none << QString();
        QTest::addRow("timeout 300") << "T" << 300.0 << none << QString();
        QTest::addRow("timeout 0.5") << "T" << 0.5 << none << invalid;
        QTest::addRow("timeout 300.5") << "T" << 300.5 << none << invalid;
        QTest::addRow("timeout not a number") << "T" << qQNaN() << none << invalid;
        QTest::addRow("empty title") << "" << 10.0 << none << invalid;
        QTest::addRow("blank title is not empty") << "   " << 10.0 << none << QString();
        QTest::addRow("80-character title") << QString(80, 'x') << 10.0 << none << QString();
        QTest::addRow("81-character title") << QString(81, 'x') << 10.0 << none << invalid;
        QTest::addRow("80 emoji clusters") << family.repeated(80) << 10.0 << none << QString();
        QTest::addRow("completion equal to timeout") << "T" << 10.0 << 10.0 << QString();
        QTest::addRow("completion below timeout") << "T" << 10.0 << 9.0 << completion;
        QTest::addRow("completion 86400") << "T" << 10.0 << 86400.0 << QString();
        QTest::addRow("completion above 86400") << "T" << 10.0 << 86400.5 << completion;
        QTest::addRow("completion not a number") << "T" << 10.0 << qQNaN() << completion;
        QTest::addRow("own fields before completion") << "" << 10.0 << 1.0 << invalid;
    }

    void registeredActionValidation() {
        QFETCH(QString, title);
        QFETCH(double, timeout);
        QFETCH(double, completion);
        QFETCH(QString, message);
        PluginRegisteredAction definition = action("toggle", timeout);
        definition.title = title;
        if (completion != -1)
            definition.completionTimeoutSeconds = completion;
        QCOMPARE(problemOf([&] { definition.validate(); }), message);
    }

    void actionSchemasAreCheckedLastInputFirst() {
        PluginRegisteredAction definition = action();
        definition.output.fields = {{"9", PluginParameter::Kind::string, true, {}, {}}};
        definition.input.fields = {{"a", PluginParameter::Kind::string, true, {}, {}},
                                   {"a", PluginParameter::Kind::string, true, {}, {}}};
        QCOMPARE(problemOf([&] { definition.validate(); }), "Invalid value schema.");
        definition.input.fields.removeLast();
        QCOMPARE(problemOf([&] { definition.validate(); }), "Invalid parameter constraint.");
        definition.id = "bad id";
        QCOMPARE(problemOf([&] { definition.validate(); }), "Invalid registered action.");
    }

    void channelValidation() {
        QCOMPARE(problemOf([] { channel().validate(); }), QString());
        QCOMPARE(problemOf([] { channel("_x").validate(); }), "Invalid channel.");
        PluginChannel untitled = channel();
        untitled.title.clear();
        QCOMPARE(problemOf([&] { untitled.validate(); }), "Invalid channel.");
        PluginChannel badSchema = channel();
        badSchema.schema.fields = {{"a", PluginParameter::Kind::boolean, true, 0.0, {}}};
        QCOMPARE(problemOf([&] { badSchema.validate(); }), "Invalid parameter constraint.");
    }

    void registrationValidation_data() {
        QTest::addColumn<int>("actions");
        QTest::addColumn<int>("channels");
        QTest::addColumn<bool>("duplicateAction");
        QTest::addColumn<bool>("duplicateChannel");
        QTest::addColumn<bool>("brokenFirstAction");
        QTest::addColumn<QString>("message");

        const QString excessive = "Duplicate or excessive registration.";
        QTest::addRow("empty") << 0 << 0 << false << false << false << QString();
        QTest::addRow("32 and 32") << 32 << 32 << false << false << false << QString();
        QTest::addRow("33 actions") << 33 << 0 << false << false << false << excessive;
        QTest::addRow("33 channels") << 0 << 33 << false << false << false << excessive;
        QTest::addRow("count before any action") << 33 << 0 << false << false << true << excessive;
        QTest::addRow("duplicate action id") << 2 << 0 << true << false << false << excessive;
        QTest::addRow("duplicate channel id") << 0 << 2 << false << true << false << excessive;
        QTest::addRow("duplicate before a broken action") << 2 << 0 << true << false << true << excessive;
        QTest::addRow("broken action") << 2 << 2 << false << false << true << "Invalid registered action.";
    }

    void registrationValidation() {
        QFETCH(int, actions);
        QFETCH(int, channels);
        QFETCH(bool, duplicateAction);
        QFETCH(bool, duplicateChannel);
        QFETCH(bool, brokenFirstAction);
        QFETCH(QString, message);
        PluginRegistration registration;
        for (int i = 0; i < actions; ++i)
            registration.actions.append(action(QStringLiteral("a%1").arg(duplicateAction ? 0 : i)));
        for (int i = 0; i < channels; ++i)
            registration.channels.append(channel(QStringLiteral("c%1").arg(duplicateChannel ? 0 : i)));
        if (brokenFirstAction)
            registration.actions[0].timeoutSeconds = 0;
        QCOMPARE(problemOf([&] { registration.validate(); }), message);
    }

    void channelsAreCheckedAfterAllActions() {
        PluginRegistration registration{{action("a"), action("b")}, {channel("_bad")}};
        registration.actions[1].completionTimeoutSeconds = 1;
        QCOMPARE(problemOf([&] { registration.validate(); }), "Invalid completion limit.");
        registration.actions[1].completionTimeoutSeconds.reset();
        QCOMPARE(problemOf([&] { registration.validate(); }), "Invalid channel.");
    }

    void displayValidation_data() {
        QTest::addColumn<int>("completed");
        QTest::addColumn<int>("total");
        QTest::addColumn<int>("titleLength");
        QTest::addColumn<int>("detailLength");
        QTest::addColumn<bool>("valid");

        QTest::addRow("nothing done of nothing") << 0 << 0 << 0 << 0 << true;
        QTest::addRow("all of 64") << 64 << 64 << 80 << 300 << true;
        QTest::addRow("65 steps") << 0 << 65 << 0 << 0 << false;
        QTest::addRow("more done than exist") << 3 << 2 << 0 << 0 << false;
        QTest::addRow("negative done") << -1 << 2 << 0 << 0 << false;
        QTest::addRow("negative total") << 0 << -1 << 0 << 0 << false;
        QTest::addRow("81-character title") << 0 << 0 << 81 << 0 << false;
        QTest::addRow("301-character detail") << 0 << 0 << 0 << 301 << false;
    }

    void displayValidation() {
        QFETCH(int, completed);
        QFETCH(int, total);
        QFETCH(int, titleLength);
        QFETCH(int, detailLength);
        QFETCH(bool, valid);
        const PluginRunDisplay display{
            QString(titleLength, 't'), "step", QString(detailLength, 'd'), completed, total, false};
        QCOMPARE(problemOf([&] { display.validate(); }), valid ? QString() : "Invalid run display.");
        PluginRunDisplay longStep = display;
        longStep.step = QString(81, 's');
        QCOMPARE(problemOf([&] { longStep.validate(); }), "Invalid run display.");
    }

    void updateValidation_data() {
        QTest::addColumn<double>("progress");
        QTest::addColumn<int>("messageLength");
        QTest::addColumn<int>("values");
        QTest::addColumn<bool>("badDisplay");
        QTest::addColumn<QString>("message");

        const QString invalid = "Invalid execution update.";
        QTest::addRow("no progress") << -1.0 << 0 << 0 << false << QString();
        QTest::addRow("progress 0") << 0.0 << 0 << 0 << false << QString();
        QTest::addRow("progress 1") << 1.0 << 300 << 16 << false << QString();
        QTest::addRow("progress 1.01") << 1.01 << 0 << 0 << false << invalid;
        QTest::addRow("negative progress") << -0.01 << 0 << 0 << false << invalid;
        QTest::addRow("progress not a number") << qQNaN() << 0 << 0 << false << invalid;
        QTest::addRow("301-character message") << 0.5 << 301 << 0 << false << invalid;
        QTest::addRow("17 values") << 0.5 << 0 << 17 << false << invalid;
        QTest::addRow("bad display") << 0.5 << 0 << 0 << true << "Invalid run display.";
        QTest::addRow("update before display") << 2.0 << 0 << 0 << true << invalid;
    }

    void updateValidation() {
        QFETCH(double, progress);
        QFETCH(int, messageLength);
        QFETCH(int, values);
        QFETCH(bool, badDisplay);
        QFETCH(QString, message);
        PluginRunUpdate update;
        if (progress != -1.0)
            update.progress = progress;
        update.message = QString(messageLength, 'm');
        for (int i = 0; i < values; ++i)
            update.values.insert(QStringLiteral("v%1").arg(i), PluginValue::boolean(true));
        if (badDisplay)
            update.display = PluginRunDisplay{"", "", "", 1, 0, false};
        QCOMPARE(problemOf([&] { update.validate(); }), message);
    }

    void busMessageDecoding_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QString>("message");

        const QByteArray id = R"("requestID":"7d3c2f4e-0a1b-4c5d-8e9f-0123456789ab")";
        QTest::addRow("lower-case UUID") << "{\"operation\":\"discover\"," + id + "}" << QString();
        QTest::addRow("unknown keys ignored")
            << "{\"operation\":\"discover\",\"x\":[1]," + id + "}" << QString();
        QTest::addRow("null optionals")
            << "{\"operation\":\"invoke\",\"address\":null,\"values\":null," + id + "}" << QString();
        QTest::addRow("unknown operation") << "{\"operation\":\"ping\"," + id + "}"
                                           << "\"operation\" has an unknown case";
        QTest::addRow("operation by case name only") << "{\"operation\":\"Register\"," + id + "}"
                                                     << "\"operation\" has an unknown case";
        QTest::addRow("no request") << QByteArray(R"({"operation":"discover"})")
                                    << "\"requestID\" is missing";
        QTest::addRow("braced UUID")
            << QByteArray(R"({"operation":"discover","requestID":"{7d3c2f4e-0a1b-4c5d-8e9f-0123456789ab}"})")
            << "\"requestID\" must be a UUID";
        QTest::addRow("nested value that is an object")
            << "{\"operation\":\"invoke\",\"values\":{\"a\":{}}," + id + "}"
            << "\"values.a\" must be a string";
        QTest::addRow("update with an unknown phase")
            << "{\"operation\":\"update\",\"update\":{\"phase\":\"paused\",\"message\":\"\",\"values\":{}}," +
                   id + "}"
            << "\"update.phase\" has an unknown case";
        QTest::addRow("update without values")
            << "{\"operation\":\"update\",\"update\":{\"phase\":\"running\",\"message\":\"\"}," + id + "}"
            << "\"update.values\" is missing";
        QTest::addRow("fractional step count")
            << "{\"operation\":\"update\",\"update\":{\"phase\":\"running\",\"message\":\"\",\"values\":{},"
               "\"display\":{\"title\":\"\",\"step\":\"\",\"detail\":\"\",\"completedSteps\":1.5,"
               "\"totalSteps\":2,"
               "\"needsReview\":false}}," +
                   id + "}"
            << "\"update.display.completedSteps\" must be a whole number";
        QTest::addRow("catalog entry lacking address")
            << "{\"operation\":\"catalog\",\"catalog\":[{}]," + id + "}"
            << "\"catalog[0].address\" is missing";
        QTest::addRow("unknown effect") << "{\"operation\":\"register\",\"registration\":{\"channels\":[],"
                                           "\"actions\":[{\"id\":\"a\",\"title\":\"A\","
                                           "\"input\":{\"fields\":[]},\"output\":{\"fields\":[]},\"effect\":"
                                           "\"delete\",\"cancellable\":false,"
                                           "\"timeoutSeconds\":5}]}," +
                                               id + "}"
                                        << "\"registration.actions[0].effect\" has an unknown case";
        QTest::addRow("not an object") << QByteArray("[]") << "must be a JSON object";
    }

    void busMessageDecoding() {
        QFETCH(QByteArray, json);
        QFETCH(QString, message);
        QCOMPARE(problemOf([&] { PluginBusMessage::fromJson(parse(json)); }), message);
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
