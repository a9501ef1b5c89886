#include "VellPluginSDK/Modules/ModulePackage.h"

#include <QJsonDocument>
#include <QTest>

#include "TestSupport.h"

using namespace vell;
using vell::test::problemOf;

namespace {

const QString passes;
const QString badApi =
    QStringLiteral("This module needs a different OstaVell module API. This preview supports version 1.");
const QString badId = QStringLiteral("Module ID must be a namespaced name such as cafe.osta.hello.");
const QString badVersion = QStringLiteral("Use a three-part module version, such as 1.0.0.");
const QString badMetadata = QStringLiteral("Module metadata or code exceeds its limit.");
const QString badPermission = QStringLiteral("This module requests an unsupported permission.");
const QString badFeed = QStringLiteral(
    "Declare one feed with the local.mqtt.read permission, or no feeds and no network permission.");
const QString badState = QStringLiteral("Module returned invalid or oversized state.");
const QString tooMany = QStringLiteral("Too many settings, actions or view components.");
const QString notUnique = QStringLiteral("Setting and action IDs must be unique.");
const QString badSetting = QStringLiteral("Invalid module setting.");
const QString badAction = QStringLiteral("Invalid module action.");
const QString notUniqueInView = QStringLiteral("View component IDs must be unique within each view.");
const QString badComponent = QStringLiteral("Invalid view component.");
const QString noStateKey = QStringLiteral("Progress requires a state key.");
const QString undeclared = QStringLiteral("A button refers to an undeclared action.");
const QString tooLarge = QStringLiteral("Module exceeds the 256 KB package limit.");
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

// A JSON array, or object, of count copies of item, %1 in it standing for the index.
QString items(int count, const QString& item, const char* brackets = "[]") {
    QStringList result;
    for (int i = 0; i < count; ++i)
        result.append(QString(item).arg(i));
    return brackets[0] + result.join(u',') + brackets[1];
}

const char textItem[] = R"({"id":"c%1","kind":"text","text":""})";
const char settingItem[] = R"({"id":"s%1","label":"S","defaultValue":""})";

QString with(const char* pattern, const QString& value) {
    return QString::fromUtf8(pattern).arg(value);
}

// A page of the valid progress bar and one more component.
QString inPage(const char* component) {
    return with(R"({"page":[{"id":"bar","kind":"progress","text":"","valueKey":"count"},%1]})",
                QString::fromUtf8(component));
}

// The valid package with the top-level keys of patch put in; a null removes its key.
QByteArray patched(const QString& patch) {
    QJsonObject json = QJsonDocument::fromJson(validJson).object();
    const QJsonObject changes = vell::test::parse(patch.toUtf8()).toObject();
    for (auto it = changes.begin(); it != changes.end(); ++it) {
        if (it->isNull())
            json.remove(it.key());
        else
            json.insert(it.key(), *it);
    }
    return QJsonDocument(json).toJson(QJsonDocument::Compact);
}

void row(const char* name, const QString& patch, const QString& message = passes) {
    QTest::newRow(name) << patched(patch) << message;
}

// Both sides of a limit: the pattern holding at passes, holding over fails with message.
void limit(const char* name, const char* pattern, const QString& at, const QString& over,
           const QString& message) {
    QTest::addRow("%s at the limit", name) << patched(with(pattern, at)) << passes;
    QTest::addRow("%s over the limit", name) << patched(with(pattern, over)) << message;
}

} // namespace

class TestModulePackage final : public QObject {
    Q_OBJECT

    void decodes() {
        QFETCH(QByteArray, data);
        QTEST(problemOf([&] { ModulePackage::decode(data); }), "message");
    }

private slots:
    // Most rows replace top-level keys of the valid package; validation failures come out of
    // decode without a prefix.
    void decode_data() {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<QString>("message");
        QByteArray padded = ModulePackage::decode(validJson).encoded();
        padded.append(QByteArray(ModulePackage::maximumBytes - padded.size(), ' '));
        QTest::newRow("exactly 262144 bytes") << padded << passes;
        QTest::newRow("262145 bytes") << padded + ' ' << tooLarge;
        QTest::newRow("262145 bytes of garbage") << QByteArray(262145, '{') << tooLarge;
        QTest::newRow("not JSON") << QByteArray("{\"id\": ") << invalid(u"unterminated object");
        QTest::newRow("array at the top")
            << QByteArray("[]") << invalid(u"the package must be a JSON object");

        row("unknown key ignored", R"({"colour":"red"})");
        row("null optionals are absent", R"({"activity":null,"feeds":null})");
        row("whole number with a fraction", R"({"schemaVersion":1.0})");
        row("missing script", R"({"script":null})", invalid(u"\"script\" is missing"));
        row("schemaVersion as text", R"({"schemaVersion":"1"})",
            invalid(u"\"schemaVersion\" must be a whole number"));
        row("permission not a string", R"({"permissions":[1]})",
            invalid(u"\"permissions[0]\" must be a string"));
        row("unknown component kind", inPage(R"({"id":"s","kind":"slider","text":""})"),
            invalid(u"\"page[1].kind\" must be one of \"text\", \"heading\", \"badge\", \"progress\", "
                    u"\"button\""));

        row("hostAPIVersion 0", R"({"hostAPIVersion":0})", badApi);
        row("API before id", R"({"schemaVersion":2,"id":"x"})", badApi);

        for (const char* id : {"a.b", "a.b-c", "a1.b0.c-"})
            row(id, with(R"({"id":"%1"})", QString::fromUtf8(id)));
        for (const char* id : {"a", "a.1b", "a-b.c", "Cafe.osta", "a.b\\n", "a..b", "a.b."})
            row(id, with(R"({"id":"%1"})", QString::fromUtf8(id)), badId);
        limit("id length", R"({"id":"a.%1"})", QString(98, u'b'), QString(99, u'b'), badId);
        row("id before version", R"({"id":"","version":""})", badId);

        for (const char* version : {"0.0.0", "9999.9999.9999"})
            row(version, with(R"({"version":"%1"})", QString::fromUtf8(version)));
        for (const char* version : {"1.0", "10000.0.0", "1.0.0-beta", "1.0.0.0"})
            row(version, with(R"({"version":"%1"})", QString::fromUtf8(version)), badVersion);

        row("empty name", R"({"name":""})", badMetadata);
        limit("name length", R"({"name":"%1"})", characters(80), characters(81), badMetadata);
        row("empty author", R"({"author":""})", badMetadata);
        limit("author length", R"({"author":"%1"})", characters(100), characters(101), badMetadata);
        row("empty summary", R"({"summary":""})");
        limit("summary length", R"({"summary":"%1"})", characters(500), characters(501), badMetadata);
        // 131072 ASCII bytes, then 65537 two-byte characters.
        limit("script bytes", R"({"script":"%1"})", QString(131072, u'x'), QString(65537, u'é'), badMetadata);

        const QString oneFeed = QStringLiteral(R"("feeds":[{"id":"sensor","label":"Sensor"}])");
        const QString mqtt = QStringLiteral(R"("permissions":["local.mqtt.read"])");
        row("unsupported permission", R"({"permissions":["network"]})", badPermission);
        row("unsupported beside a feed", with(R"({"permissions":["local.mqtt.read","camera"],%1})", oneFeed),
            badPermission);
        row("feed with permission", QStringLiteral("{%1,%2}").arg(mqtt, oneFeed));
        row("permission listed twice",
            with(R"({"permissions":["local.mqtt.read","local.mqtt.read"],%1})", oneFeed));
        row("permission alone", QStringLiteral("{%1}").arg(mqtt), badFeed);
        row("permission with empty feeds", with(R"({%1,"feeds":[]})", mqtt), badFeed);
        row("feed alone", QStringLiteral("{%1}").arg(oneFeed), badFeed);
        row("two feeds",
            QStringLiteral(R"({%1,"feeds":%2})").arg(mqtt, items(2, R"({"id":"f%1","label":"F"})")), badFeed);
        row("feed with bad id", with(R"({%1,"feeds":[{"id":"1x","label":"X"}]})", mqtt), badFeed);
        row("feed with empty label", with(R"({%1,"feeds":[{"id":"x","label":""}]})", mqtt), badFeed);
        limit("feed label length", R"({"permissions":["local.mqtt.read"],"feeds":[{"id":"x","label":"%1"}]})",
              characters(80), characters(81), badFeed);
    }

    void decode() { decodes(); }

    void decodeContents_data() {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<QString>("message");
        row("empty initial state", R"({"initialState":{}})");
        row("state key with a space", R"({"initialState":{"a b":""}})", badState);
        limit("state entries", R"({"initialState":%1})", items(64, R"("k%1":"")", "{}"),
              items(65, R"("k%1":"")", "{}"), badState);
        limit("state value bytes", R"({"initialState":{"v":"%1"}})", QString(1024, u'é'),
              QString(1024, u'é') + u'x', badState);
        // Every value is within its limit, but escaping the quotes doubles the encoded size.
        row("state JSON over 32768 bytes",
            with(R"({"initialState":%1})",
                 items(16, "\"k%1\":\"" + QStringLiteral("\\\"").repeated(1100) + u'"', "{}")),
            badState);
        row("state before counts", with(R"({"initialState":{"_bad":""},"page":%1})", items(41, textItem)),
            badState);

        const char* action = R"({"id":"a%1","label":"A"})";
        limit("settings", R"({"settings":%1})", items(12, settingItem), items(13, settingItem), tooMany);
        limit("actions", R"({"actions":%1,"card":[]})", items(20, action), items(21, action), tooMany);
        limit("card components", R"({"card":%1})", items(12, textItem), items(13, textItem), tooMany);
        limit("page components", R"({"page":%1})", items(40, textItem), items(41, textItem), tooMany);

        const QString greet = QStringLiteral(R"({"id":"greet","label":"Say hello"})");
        row("duplicate setting ids", with(R"({"settings":[%1,%1]})", with(settingItem, QString())),
            notUnique);
        row("duplicate action ids", with(R"({"actions":[%1,%1]})", greet), notUnique);
        row("setting and action share an id",
            R"({"settings":[{"id":"greet","label":"Greet","defaultValue":""}]})");
        row("duplicates before a bad setting",
            with(R"({"settings":[{"id":"s","label":"","defaultValue":""}],"actions":[%1,%1]})", greet),
            notUnique);
        row("setting with bad id", R"({"settings":[{"id":"9lives","label":"S","defaultValue":""}]})",
            badSetting);
        row("setting with empty label", R"({"settings":[{"id":"s","label":"","defaultValue":""}]})",
            badSetting);
        limit("setting default length", R"({"settings":[{"id":"s","label":"S","defaultValue":"%1"}]})",
              characters(200), characters(201), badSetting);
        row("settings before actions",
            R"({"settings":[{"id":"s","label":"","defaultValue":""}],"actions":[{"id":"greet","label":""}]})",
            badSetting);
        row("action with bad id", with(R"({"actions":[%1,{"id":"a-b","label":"X"}]})", greet), badAction);
        limit("action label length", R"({"actions":[{"id":"greet","label":"%1"}]})", characters(80),
              characters(81), badAction);

        row("duplicate card ids", with(R"({"card":[%1,%1]})", with(textItem, QString())), notUniqueInView);
        row("same id in card and page", R"({"card":[{"id":"bar","kind":"text","text":""}]})");
        row("view uniqueness before components",
            with(R"({"card":[{"id":"t","kind":"text","text":"%1"},{"id":"t","kind":"text","text":""}]})",
                 characters(501)),
            notUniqueInView);
        row("component with bad id", inPage(R"({"id":"_x","kind":"text","text":""})"), badComponent);
        limit("component text length", R"({"card":[{"id":"t","kind":"text","text":"%1"}]})", characters(500),
              characters(501), badComponent);
        row("progress without state key", inPage(R"({"id":"p","kind":"progress","text":""})"), noStateKey);
        row("progress with bad state key",
            inPage(R"({"id":"p","kind":"progress","text":"","valueKey":"1x"})"), noStateKey);
        row("button with undeclared action",
            inPage(R"({"id":"b","kind":"button","text":"","action":"wave"})"), undeclared);
        row("button without action", inPage(R"({"id":"b","kind":"button","text":""})"), undeclared);
        row("text ignores action and valueKey",
            inPage(R"({"id":"t","kind":"text","text":"","action":"wave","valueKey":"1x"})"));
        row("card before page",
            R"({"card":[{"id":"b","kind":"button","text":"","action":"wave"}],)"
            R"("page":[{"id":"_x","kind":"text","text":""}]})",
            undeclared);

        limit("activity length", R"({"activity":"%1"})", characters(100), characters(101),
              QStringLiteral("Compact activity text is too long."));
        row("components before activity",
            with(R"({"activity":"%1","page":[{"id":"p","kind":"progress","text":""}]})", characters(101)),
            noStateKey);
    }

    void decodeContents() { decodes(); }

    void encodingKeepsFieldOrderAndRoundTrips() {
        ModulePackage package = ModulePackage::decode(validJson);
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
        QTest::addColumn<QString>("expected");
        using vell::test::row;
        row("state wins", "{count}", "3");
        row("configuration next", "Hi {name}!", "Hi Osta!");
        row("missing is a dash", "{missing}", "—");
        row("spaces stay", "{ name }", "{ name }");
        row("empty and digit keys stay", "{}{1a}", "{}{1a}");
        row("adjacent and repeated", "{name}{count}{name}", "Osta3Osta");
        row("value not scanned again", "{a}", "{count}");
        row("inner braces", "{{name}}", "{Osta}");
        row("cut at 2048 characters", "{long}!", QString(2047, u'x') + characters(1));
    }

    void text() {
        QFETCH(QString, pattern);
        const ModuleState state{{QStringLiteral("count"), QStringLiteral("3")},
                                {QStringLiteral("a"), QStringLiteral("{count}")},
                                {QStringLiteral("long"), QString(2047, u'x') + characters(2)}};
        const ModuleState configuration{{QStringLiteral("count"), QStringLiteral("9")},
                                        {QStringLiteral("name"), QStringLiteral("Osta")}};
        QTEST(ModulePackage::text(pattern, state, configuration), "expected");
    }
};

QTEST_GUILESS_MAIN(TestModulePackage)
#include "tst_ModulePackage.moc"
