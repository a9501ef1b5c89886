#include "VellPluginSDK/Modules/InstalledModule.h"
#include "VellPluginSDK/Modules/ModuleRequest.h"
#include "VellPluginSDK/Modules/ModuleResponse.h"

#include <QJsonDocument>
#include <QTest>

#include "TestSupport.h"

using namespace vell;
using vell::test::problemOf;

namespace {

ModulePackage package() {
    ModulePackage package;
    package.id = QStringLiteral("cafe.osta.hello");
    package.name = QStringLiteral("Hello");
    package.version = QStringLiteral("1.0.0");
    package.author = QStringLiteral("Osta");
    package.initialState = {{QStringLiteral("count"), QStringLiteral("0")}};
    package.settings = {{QStringLiteral("greeting"), QStringLiteral("Greeting"), QStringLiteral("Hello")},
                        {QStringLiteral("name"), QStringLiteral("Name"), QString()}};
    package.script = QStringLiteral("function run(request) { return request.state; }");
    return package;
}

} // namespace

class TestModuleRecords final : public QObject {
    Q_OBJECT

private slots:
    void progressValue_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<double>("value");
        QTest::addRow("fraction") << QStringLiteral("57.5") << 57.5;
        QTest::addRow("negative") << QStringLiteral("-3") << 0.0;
        QTest::addRow("infinity") << QStringLiteral("inf") << 0.0;
        QTest::addRow("NaN") << QStringLiteral("nan") << 0.0;
        QTest::addRow("over 100") << QStringLiteral("250") << 100.0;
        QTest::addRow("exactly 100") << QStringLiteral("100") << 100.0;
        QTest::addRow("trailing text") << QStringLiteral("12abc") << 0.0;
    }

    void progressValue() {
        QFETCH(QString, text);
        QFETCH(double, value);
        QCOMPARE(ModuleComponent::progressValue(text), value);
    }

    void installedFromPackage() {
        InstalledModule installed(package());
        QCOMPARE(installed.state, package().initialState);
        QCOMPARE(installed.configuration, (ModuleState{{QStringLiteral("greeting"), QStringLiteral("Hello")},
                                                       {QStringLiteral("name"), QString()}}));
        QVERIFY(installed.enabled);
        QVERIFY(!installed.compactActivity);
        QVERIFY(installed.isVisible(QStringLiteral("DP-1")));

        installed.hiddenDisplayIDs.insert(QStringLiteral("DP-1"));
        QVERIFY(!installed.isVisible(QStringLiteral("DP-1")));
        QVERIFY(installed.isVisible(QStringLiteral("HDMI-1")));
        installed.enabled = false;
        QVERIFY(!installed.isVisible(QStringLiteral("HDMI-1")));
    }

    void installedRoundTripsAndNeedsEveryKey_data() {
        QTest::addColumn<QString>("key");
        for (const char* key :
             {"package", "state", "configuration", "enabled", "hiddenDisplayIDs", "compactActivity"})
            QTest::newRow(key) << QString::fromLatin1(key);
    }

    void installedRoundTripsAndNeedsEveryKey() {
        QFETCH(QString, key);
        InstalledModule installed(package());
        installed.hiddenDisplayIDs = {QStringLiteral("HDMI-1"), QStringLiteral("DP-1")};
        const QByteArray data = installed.encoded();
        QVERIFY(data.contains(R"("hiddenDisplayIDs":["DP-1","HDMI-1"])"));
        QCOMPARE(InstalledModule::fromJson(QJsonDocument::fromJson(data).object()), installed);

        QJsonObject json = installed.toJson();
        json.remove(key);
        QCOMPARE(problemOf([&] { InstalledModule::fromJson(json); }),
                 u'"' + key + QStringLiteral("\" is missing"));
    }

    void requestRoundTrips() {
        ModuleRequest request{package(),
                              {{QStringLiteral("count"), QStringLiteral("2")}},
                              {},
                              QStringLiteral("greet"),
                              ModuleFeedEvent{QStringLiteral("sensor"), QStringLiteral(R"({"t":21})")}};
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
        QTest::addRow("error and state")
            << QByteArray(R"({"state":{},"error":"boom"})") << true << QStringLiteral("boom") << QString();
        QTest::addRow("nulls are absent")
            << QByteArray(R"({"state":null,"error":null})") << false << QString() << QString();
        QTest::addRow("number in state") << QByteArray(R"({"state":{"count":1}})") << false << QString()
                                         << QStringLiteral("\"state.count\" must be a string");
        QTest::addRow("state not an object") << QByteArray(R"({"state":[]})") << false << QString()
                                             << QStringLiteral("\"state\" must be a JSON object of strings");
    }

    void responseDecoding() {
        QFETCH(QByteArray, json);
        QFETCH(bool, hasState);
        QFETCH(QString, error);
        QFETCH(QString, problem);
        ModuleResponse response;
        QCOMPARE(
            problemOf([&] { response = ModuleResponse::fromJson(QJsonDocument::fromJson(json).object()); }),
            problem);
        QCOMPARE(response.state.has_value(), hasState);
        QCOMPARE(response.error.value_or(QString()), error);
        if (problem.isEmpty())
            QCOMPARE(ModuleResponse::fromJson(response.toJson()), response);
    }
};

QTEST_GUILESS_MAIN(TestModuleRecords)
#include "tst_ModuleRecords.moc"
