#include "VellPluginSDK/Modules/ModulePackage.h"

#include <QJsonDocument>
#include <QTest>

#include "TestSupport.h"

using namespace vell;
using vell::test::problemOf;

namespace {

const QString apiMessage =
    QStringLiteral("This module needs a different OstaVell module API. This preview supports version 1.");
const QString idMessage = QStringLiteral("Module ID must be a namespaced name such as cafe.osta.hello.");
const QString versionMessage = QStringLiteral("Use a three-part module version, such as 1.0.0.");
const QString metadataMessage = QStringLiteral("Module metadata or code exceeds its limit.");
const QString permissionMessage = QStringLiteral("This module requests an unsupported permission.");
const QString feedMessage = QStringLiteral(
    "Declare one feed with the local.mqtt.read permission, or no feeds and no network permission.");
const QString stateMessage = QStringLiteral("Module returned invalid or oversized state.");
const QString countMessage = QStringLiteral("Too many settings, actions or view components.");
const QString uniqueMessage = QStringLiteral("Setting and action IDs must be unique.");
const QString settingMessage = QStringLiteral("Invalid module setting.");
const QString actionMessage = QStringLiteral("Invalid module action.");
const QString viewUniqueMessage = QStringLiteral("View component IDs must be unique within each view.");
const QString componentMessage = QStringLiteral("Invalid view component.");
const QString progressMessage = QStringLiteral("Progress requires a state key.");
const QString buttonMessage = QStringLiteral("A button refers to an undeclared action.");
const QString activityMessage = QStringLiteral("Compact activity text is too long.");
const QString invalidPrefix = QStringLiteral("This is not a valid OstaVell module package: ");

QString invalid(QStringView reason) {
    return invalidPrefix + reason.toString();
}

const char validJson[] = R"({"schemaVersion":1,"hostAPIVersion":1,"id":"cafe.osta.hello","name":"Hello",
    "version":"1.0.0","author":"Osta","summary":"Says hello.","permissions":[],"initialState":{"count":"0"},
    "settings":[{"id":"greeting","label":"Greeting","defaultValue":"Hello"}],
    "actions":[{"id":"greet","label":"Say hello"}],
    "card":[{"id":"title","kind":"heading","text":"{greeting}"},
            {"id":"go","kind":"button","text":"Go","action":"greet"}],
    "page":[{"id":"bar","kind":"progress","text":"{count}","valueKey":"count"}],
    "activity":"{count} hellos","script":"function run(request) { return request.state; }"})";

// "é" as e plus a combining accent: one character, two UTF-16 units, three bytes.
QString characters(int count) {
    return QStringLiteral("e\u0301").repeated(count);
}

// A JSON array of count copies of item, %1 in it standing for the index.
QString items(int count, const char* item) {
    QStringList result;
    for (int i = 0; i < count; ++i)
        result.append(QString::fromUtf8(item).arg(i));
    return u'[' + result.join(u',') + u']';
}

// A JSON object of count keys "k0", "k1", ... each with the JSON value.
QString entries(int count, const QString& value) {
    QStringList result;
    for (int i = 0; i < count; ++i)
        result.append(QStringLiteral("\"k%1\":").arg(i) + value);
    return u'{' + result.join(u',') + u'}';
}

ModulePackage validPackage() {
    return ModulePackage::fromJson(QJsonDocument::fromJson(validJson).object());
}

} // namespace

class TestModulePackage final : public QObject {
    Q_OBJECT

private slots:
    // Each row replaces top-level keys of the valid package (null removes one) and decodes
    // the result; validation failures come out of decode without a prefix.
    void decode_data() {
        QTest::addColumn<QString>("patch");
        QTest::addColumn<QString>("message");
        const auto row = [](const char* name, const QString& patch, const QString& message = QString()) {
            QTest::newRow(name) << patch << message;
        };
        const auto with = [](const char* pattern, const QString& value) {
            return QString::fromUtf8(pattern).arg(value);
        };
        const QString oneFeed = QStringLiteral(R"("feeds":[{"id":"sensor","label":"Sensor"}])");
        const QString mqtt = QStringLiteral(R"("permissions":["local.mqtt.read"])");
        const auto inPage = [](const char* json) {
            return QStringLiteral(
                       R"({"page":[{"id":"bar","kind":"progress","text":"","valueKey":"count"},%1]})")
                .arg(QString::fromUtf8(json));
        };

        row("valid", QStringLiteral("{}"));
        row("unknown key ignored", QStringLiteral(R"({"colour":"red"})"));
        row("null optionals are absent", QStringLiteral(R"({"activity":null,"feeds":null})"));
        row("whole number with a fraction", QStringLiteral(R"({"schemaVersion":1.0})"));
        row("missing script", QStringLiteral(R"({"script":null})"), invalid(u"\"script\" is missing"));
        row("schemaVersion as text", QStringLiteral(R"({"schemaVersion":"1"})"),
            invalid(u"\"schemaVersion\" must be a whole number"));
        row("permission not a string", QStringLiteral(R"({"permissions":[1]})"),
            invalid(u"\"permissions[0]\" must be a string"));
        row("unknown component kind", inPage(R"({"id":"s","kind":"slider","text":""})"),
            invalid(u"\"page[1].kind\" must be one of \"text\", \"heading\", \"badge\", \"progress\", "
                    u"\"button\""));

        row("schemaVersion 2", QStringLiteral(R"({"schemaVersion":2})"), apiMessage);
        row("hostAPIVersion 0", QStringLiteral(R"({"hostAPIVersion":0})"), apiMessage);
        row("API before id", QStringLiteral(R"({"schemaVersion":2,"id":"x"})"), apiMessage);

        for (const char* id : {"a.b", "a.b-c", "a1.b0.c-"})
            row(id, with(R"({"id":"%1"})", QString::fromUtf8(id)));
        for (const char* id : {"a", "a.1b", "a-b.c", "Cafe.osta", "a.b\\n", "a..b", "a.b."})
            row(id, with(R"({"id":"%1"})", QString::fromUtf8(id)), idMessage);
        row("id of 100", with(R"({"id":"a.%1"})", QString(98, u'b')));
        row("id of 101", with(R"({"id":"a.%1"})", QString(99, u'b')), idMessage);
        row("id before version", QStringLiteral(R"({"id":"","version":""})"), idMessage);

        for (const char* version : {"0.0.0", "9999.9999.9999"})
            row(version, with(R"({"version":"%1"})", QString::fromUtf8(version)));
        for (const char* version : {"1.0", "10000.0.0", "1.0.0-beta", "1.0.0.0"})
            row(version, with(R"({"version":"%1"})", QString::fromUtf8(version)), versionMessage);

        row("empty name", QStringLiteral(R"({"name":""})"), metadataMessage);
        row("name of 80", with(R"({"name":"%1"})", characters(80)));
        row("name of 81", with(R"({"name":"%1"})", characters(81)), metadataMessage);
        row("empty author", QStringLiteral(R"({"author":""})"), metadataMessage);
        row("author of 101", with(R"({"author":"%1"})", characters(101)), metadataMessage);
        row("empty summary", QStringLiteral(R"({"summary":""})"));
        row("summary of 500", with(R"({"summary":"%1"})", characters(500)));
        row("summary of 501", with(R"({"summary":"%1"})", characters(501)), metadataMessage);
        row("script of 131072 ASCII bytes", with(R"({"script":"%1"})", QString(131072, u'x')));
        row("script of 65537 two-byte characters", with(R"({"script":"%1"})", QString(65537, u'é')),
            metadataMessage);

        row("unsupported permission", QStringLiteral(R"({"permissions":["network"]})"), permissionMessage);
        row("unsupported beside a feed",
            QStringLiteral(R"({"permissions":["local.mqtt.read","camera"],%1})").arg(oneFeed),
            permissionMessage);
        row("feed with permission", QStringLiteral("{%1,%2}").arg(mqtt, oneFeed));
        row("permission listed twice",
            QStringLiteral(R"({"permissions":["local.mqtt.read","local.mqtt.read"],%1})").arg(oneFeed));
        row("permission alone", QStringLiteral("{%1}").arg(mqtt), feedMessage);
        row("permission with empty feeds", QStringLiteral(R"({%1,"feeds":[]})").arg(mqtt), feedMessage);
        row("feed alone", QStringLiteral("{%1}").arg(oneFeed), feedMessage);
        row("two feeds",
            with(R"({"permissions":["local.mqtt.read"],"feeds":%1})",
                 items(2, R"({"id":"f%1","label":"F"})")),
            feedMessage);
        row("feed with bad id", QStringLiteral(R"({%1,"feeds":[{"id":"1x","label":"X"}]})").arg(mqtt),
            feedMessage);
        row("feed with empty label", QStringLiteral(R"({%1,"feeds":[{"id":"x","label":""}]})").arg(mqtt),
            feedMessage);
        row("feed label of 81",
            QStringLiteral(R"({%1,"feeds":[{"id":"x","label":"%2"}]})").arg(mqtt, characters(81)),
            feedMessage);

        row("empty initial state", QStringLiteral(R"({"initialState":{}})"));
        row("state key with a space", QStringLiteral(R"({"initialState":{"a b":""}})"), stateMessage);
        row("state of 64 entries", with(R"({"initialState":%1})", entries(64, QStringLiteral("\"\""))));
        row("state of 65 entries", with(R"({"initialState":%1})", entries(65, QStringLiteral("\"\""))),
            stateMessage);
        row("state value of 2048 bytes", with(R"({"initialState":{"v":"%1"}})", QString(1024, u'é')));
        row("state value of 2049 bytes", with(R"({"initialState":{"v":"%1x"}})", QString(1024, u'é')),
            stateMessage);
        // Every value is within its limit, but escaping the quotes doubles the encoded size.
        row("state JSON over 32768 bytes",
            with(R"({"initialState":%1})", entries(16, u'"' + QStringLiteral("\\\"").repeated(1100) + u'"')),
            stateMessage);
        row("state before counts",
            with(R"({"initialState":{"_bad":""},"page":%1})",
                 items(41, R"({"id":"c%1","kind":"text","text":""})")),
            stateMessage);

        row("13 settings",
            with(R"({"settings":%1})", items(13, R"({"id":"s%1","label":"S","defaultValue":""})")),
            countMessage);
        row("21 actions", with(R"({"actions":%1})", items(21, R"({"id":"a%1","label":"A"})")), countMessage);
        row("13 card components",
            with(R"({"card":%1})", items(13, R"({"id":"c%1","kind":"text","text":""})")), countMessage);
        row("40 page components",
            with(R"({"page":%1})", items(40, R"({"id":"c%1","kind":"text","text":""})")));
        row("41 page components",
            with(R"({"page":%1})", items(41, R"({"id":"c%1","kind":"text","text":""})")), countMessage);

        const QString greet = QStringLiteral(R"({"id":"greet","label":"Say hello"})");
        row("duplicate setting ids",
            with(R"({"settings":%1})", items(2, R"({"id":"s","label":"S","defaultValue":""})")),
            uniqueMessage);
        row("duplicate action ids", with(R"({"actions":[%1,%1]})", greet), uniqueMessage);
        row("setting and action share an id",
            QStringLiteral(R"({"settings":[{"id":"greet","label":"Greet","defaultValue":""}]})"));
        row("duplicates before a bad setting",
            with(R"({"settings":[{"id":"s","label":"","defaultValue":""}],"actions":[%1,%1]})", greet),
            uniqueMessage);
        row("setting with bad id",
            QStringLiteral(R"({"settings":[{"id":"9lives","label":"S","defaultValue":""}]})"),
            settingMessage);
        row("setting with empty label",
            QStringLiteral(R"({"settings":[{"id":"s","label":"","defaultValue":""}]})"), settingMessage);
        row("setting default of 200",
            with(R"({"settings":[{"id":"s","label":"S","defaultValue":"%1"}]})", characters(200)));
        row("setting default of 201",
            with(R"({"settings":[{"id":"s","label":"S","defaultValue":"%1"}]})", characters(201)),
            settingMessage);
        row("settings before actions",
            QStringLiteral(
                R"({"settings":[{"id":"s","label":"","defaultValue":""}],"actions":[{"id":"greet","label":""}]})"),
            settingMessage);
        row("action with bad id", with(R"({"actions":[%1,{"id":"a-b","label":"X"}]})", greet), actionMessage);
        row("action label of 81", with(R"({"actions":[{"id":"greet","label":"%1"}]})", characters(81)),
            actionMessage);

        row("duplicate card ids", with(R"({"card":%1})", items(2, R"({"id":"t","kind":"text","text":""})")),
            viewUniqueMessage);
        row("same id in card and page", QStringLiteral(R"({"card":[{"id":"bar","kind":"text","text":""}]})"));
        row("view uniqueness before components",
            with(R"({"card":[{"id":"t","kind":"text","text":"%1"},{"id":"t","kind":"text","text":""}]})",
                 characters(501)),
            viewUniqueMessage);
        row("component with bad id", inPage(R"({"id":"_x","kind":"text","text":""})"), componentMessage);
        row("component text of 500",
            with(R"({"card":[{"id":"t","kind":"text","text":"%1"}]})", characters(500)));
        row("component text of 501",
            with(R"({"card":[{"id":"t","kind":"text","text":"%1"}]})", characters(501)), componentMessage);
        row("progress without state key", inPage(R"({"id":"p","kind":"progress","text":""})"),
            progressMessage);
        row("progress with bad state key",
            inPage(R"({"id":"p","kind":"progress","text":"","valueKey":"1x"})"), progressMessage);
        row("button with undeclared action",
            inPage(R"({"id":"b","kind":"button","text":"","action":"wave"})"), buttonMessage);
        row("button without action", inPage(R"({"id":"b","kind":"button","text":""})"), buttonMessage);
        row("text ignores action and valueKey",
            inPage(R"({"id":"t","kind":"text","text":"","action":"wave","valueKey":"1x"})"));
        row("card before page",
            QStringLiteral(R"({"card":[{"id":"b","kind":"button","text":"","action":"wave"}],)"
                           R"("page":[{"id":"_x","kind":"text","text":""}]})"),
            buttonMessage);

        row("activity of 100", with(R"({"activity":"%1"})", characters(100)));
        row("activity of 101", with(R"({"activity":"%1"})", characters(101)), activityMessage);
        row("components before activity",
            with(R"({"activity":"%1","page":[{"id":"p","kind":"progress","text":""}]})", characters(101)),
            progressMessage);
    }

    void decode() {
        QFETCH(QString, patch);
        QFETCH(QString, message);
        QJsonParseError error;
        const QJsonObject changes = QJsonDocument::fromJson(patch.toUtf8(), &error).object();
        QCOMPARE(error.error, QJsonParseError::NoError);
        QJsonObject json = QJsonDocument::fromJson(validJson).object();
        for (auto it = changes.begin(); it != changes.end(); ++it) {
            if (it->isNull())
                json.remove(it.key());
            else
                json.insert(it.key(), *it);
        }
        const QByteArray data = QJsonDocument(json).toJson(QJsonDocument::Compact);
        QCOMPARE(problemOf([&] { ModulePackage::decode(data); }), message);
    }

    void decodeSizeAndSyntax_data() {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<QString>("message");
        QByteArray padded = validPackage().encoded();
        padded.append(QByteArray(ModulePackage::maximumBytes - padded.size(), ' '));
        QTest::addRow("exactly 262144 bytes") << padded << QString();
        QTest::addRow("262145 bytes")
            << padded + ' ' << QStringLiteral("Module exceeds the 256 KB package limit.");
        QTest::addRow("262145 bytes of garbage")
            << QByteArray(262145, '{') << QStringLiteral("Module exceeds the 256 KB package limit.");
        QTest::addRow("not JSON") << QByteArray("{\"id\": ")
                                  << invalidPrefix + QStringLiteral("unterminated object");
        QTest::addRow("array at the top")
            << QByteArray("[]") << invalidPrefix + QStringLiteral("the package must be a JSON object");
    }

    void decodeSizeAndSyntax() {
        QFETCH(QByteArray, data);
        QFETCH(QString, message);
        QCOMPARE(problemOf([&] { ModulePackage::decode(data); }), message);
    }

    void encodingKeepsFieldOrderAndRoundTrips() {
        ModulePackage package = validPackage();
        package.permissions = {QStringLiteral("local.mqtt.read")};
        package.feeds = QList<ModuleFeed>{{QStringLiteral("sensor"), QStringLiteral("Sensor")}};
        const QByteArray data = package.encoded();

        qsizetype last = -1;
        for (const char* key :
             {"schemaVersion", "hostAPIVersion", "id", "name", "version", "author", "summary", "permissions",
              "initialState", "settings", "actions", "card", "page", "activity", "feeds", "script"}) {
            const qsizetype at = data.indexOf(QByteArray("\"") + key + "\":");
            QVERIFY2(at > last, key);
            last = at;
        }
        QVERIFY(data.contains(R"({"id":"go","kind":"button","text":"Go","action":"greet"})"));
        QCOMPARE(ModulePackage::decode(data), package);

        package.activity.reset();
        package.feeds.reset();
        package.permissions.clear();
        const QByteArray bare = package.encoded();
        QVERIFY(!bare.contains("\"activity\""));
        QVERIFY(!bare.contains("\"feeds\""));
        QCOMPARE(ModulePackage::decode(bare), package);
    }

    void text_data() {
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<ModuleState>("state");
        QTest::addColumn<ModuleState>("configuration");
        QTest::addColumn<QString>("expected");
        const ModuleState state{{QStringLiteral("count"), QStringLiteral("3")},
                                {QStringLiteral("a"), QStringLiteral("{count}")}};
        const ModuleState configuration{{QStringLiteral("count"), QStringLiteral("9")},
                                        {QStringLiteral("name"), QStringLiteral("Osta")}};

        QTest::addRow("state wins") << QStringLiteral("{count}") << state << configuration
                                    << QStringLiteral("3");
        QTest::addRow("configuration next")
            << QStringLiteral("Hi {name}!") << state << configuration << QStringLiteral("Hi Osta!");
        QTest::addRow("missing is a dash")
            << QStringLiteral("{missing}") << state << configuration << QStringLiteral("—");
        QTest::addRow("spaces stay") << QStringLiteral("{ name }") << state << configuration
                                     << QStringLiteral("{ name }");
        QTest::addRow("empty and digit keys stay")
            << QStringLiteral("{}{1a}") << state << configuration << QStringLiteral("{}{1a}");
        QTest::addRow("adjacent and repeated")
            << QStringLiteral("{name}{count}{name}") << state << configuration << QStringLiteral("Osta3Osta");
        QTest::addRow("value not scanned again")
            << QStringLiteral("{a}") << state << configuration << QStringLiteral("{count}");
        QTest::addRow("inner braces")
            << QStringLiteral("{{name}}") << state << configuration << QStringLiteral("{Osta}");
        QTest::addRow("cut at 2048 characters")
            << QStringLiteral("{long}!")
            << ModuleState{{QStringLiteral("long"), QString(2047, u'x') + characters(2)}} << ModuleState()
            << QString(2047, u'x') + characters(1);
    }

    void text() {
        QFETCH(QString, pattern);
        QFETCH(ModuleState, state);
        QFETCH(ModuleState, configuration);
        QFETCH(QString, expected);
        QCOMPARE(ModulePackage::text(pattern, state, configuration), expected);
    }
};

QTEST_GUILESS_MAIN(TestModulePackage)
#include "tst_ModulePackage.moc"
