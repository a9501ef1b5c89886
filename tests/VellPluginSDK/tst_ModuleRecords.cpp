#include "VellPluginSDK/Modules/InstalledModule.h"
#include "VellPluginSDK/Modules/ModuleRequest.h"
#include "VellPluginSDK/Modules/ModuleResponse.h"

#include <QJsonDocument>
#include <QTest>

#include "TestSupport.h"

using namespace vell;
using namespace vell::test;

namespace {

ModulePackage package() {
    return ModulePackage::fromJson(parse(R"({"schemaVersion":1,"hostAPIVersion":1,"id":"cafe.osta.hello",
        "name":"Hello","version":"1.0.0","author":"Osta","summary":"","permissions":[],
        "initialState":{"count":"0"},"settings":[{"id":"greeting","label":"Greeting","defaultValue":"Hello"},
        {"id":"name","label":"Name","defaultValue":""}],"actions":[],"card":[],"page":[],
        "script":"function run(request) { return request.state; }"})"));
}

} // namespace

class TestModuleRecords final : public QObject {
    Q_OBJECT

private slots:
    void progressValue_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<double>("value");
        row("fraction", "57.5", 57.5);
        row("negative", "-3", 0.0);
        row("infinity", "inf", 0.0);
        row("NaN", "nan", 0.0);
        row("over 100", "250", 100.0);
        row("trailing text", "12abc", 0.0);
    }

    void progressValue() {
        QFETCH(QString, text);
        QTEST(ModuleComponent::progressValue(text), "value");
    }

    void installedFromPackage() {
        InstalledModule installed(package());
        QCOMPARE(installed.state, package().initialState);
        QCOMPARE(installed.configuration, (ModuleState{{"greeting", "Hello"}, {"name", ""}}));
        QVERIFY(!installed.compactActivity);
        QVERIFY(installed.isVisible("DP-1"));
        installed.hiddenDisplayIDs.insert("DP-1");
        QVERIFY(!installed.isVisible("DP-1"));
        QVERIFY(installed.isVisible("HDMI-1"));
        installed.enabled = false;
        QVERIFY(!installed.isVisible("HDMI-1"));
    }

    void installedRoundTripsAndNeedsEveryKey_data() {
        QTest::addColumn<QString>("key");
        for (const char* key :
             {"package", "state", "configuration", "enabled", "hiddenDisplayIDs", "compactActivity"})
            row(key, key);
    }

    void installedRoundTripsAndNeedsEveryKey() {
        QFETCH(QString, key);
        InstalledModule installed(package());
        installed.hiddenDisplayIDs = {"HDMI-1", "DP-1"};
        const QByteArray data = installed.encoded();
        QVERIFY(data.contains(R"("hiddenDisplayIDs":["DP-1","HDMI-1"])"));
        QCOMPARE(InstalledModule::fromJson(QJsonDocument::fromJson(data).object()), installed);

        QJsonObject json = installed.toJson();
        json.remove(key);
        QCOMPARE(problemOf([&] { InstalledModule::fromJson(json); }), u'"' + key + "\" is missing");
    }

    void requestRoundTrips() {
        ModuleRequest request{
            package(), {{"count", "2"}}, {}, "greet", ModuleFeedEvent{"sensor", R"({"t":21})"}};
        const QByteArray data = request.encoded();
        QVERIFY(data.startsWith(R"({"package":{"schemaVersion":1,)"));
        QVERIFY(data.endsWith(
            R"("configuration":{},"action":"greet","event":{"feedID":"sensor","json":"{\"t\":21}"}})"));
        QCOMPARE(ModuleRequest::fromJson(QJsonDocument::fromJson(data).object()), request);

        request.action.reset();
        request.event.reset();
        QVERIFY(request.encoded().endsWith(R"("configuration":{}})"));
    }

    void responseDecoding_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<bool>("hasState");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QString>("problem");
        row("error and state", QByteArray(R"({"state":{},"error":"boom"})"), true, "boom", "");
        row("nulls are absent", QByteArray(R"({"state":null,"error":null})"), false, "", "");
        row("number in state", QByteArray(R"({"state":{"count":1}})"), false, "",
            "\"state.count\" must be a string");
        row("state not an object", QByteArray(R"({"state":[]})"), false, "",
            "\"state\" must be a JSON object of strings");
    }

    void responseDecoding() {
        QFETCH(QByteArray, json);
        QFETCH(QString, problem);
        ModuleResponse response;
        QCOMPARE(problemOf([&] { response = ModuleResponse::fromJson(parse(json)); }), problem);
        QTEST(response.state.has_value(), "hasState");
        QTEST(response.error.value_or(QString()), "error");
        if (problem.isEmpty())
            QCOMPARE(ModuleResponse::fromJson(response.toJson()), response);
    }
};

QTEST_GUILESS_MAIN(TestModuleRecords)
#include "tst_ModuleRecords.moc"
