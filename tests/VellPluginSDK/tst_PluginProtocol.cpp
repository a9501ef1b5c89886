#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Protocol/NativePluginRecord.h"
#include "VellPluginSDK/Protocol/PluginApplicationChannel.h"
#include "VellPluginSDK/Protocol/PluginCapabilities.h"
#include "VellPluginSDK/Protocol/PluginLines.h"
#include "VellPluginSDK/Protocol/PluginManifest.h"

#include <QTemporaryDir>
#include <QTest>

#include "PresentationSupport.h"

using namespace vell;
using namespace vell::test;

namespace {

const QByteArray session = "6F9619FF-8B86-D011-B42D-00C04FC964FF";

// One message line of exactly size bytes, newline not counted, padded in its action.
QByteArray line(qsizetype size = 0, int apiVersion = 1, quint64 sequence = 1) {
    const QByteArray head = R"({"apiVersion":)" + QByteArray::number(apiVersion) +
                            R"(,"type":"heartbeat","pluginID":"com.example.a","session":")" + session +
                            R"(","sequence":)" + QByteArray::number(sequence) + R"(,"action":")";
    const QByteArray tail = "\"}";
    const qsizetype padding = std::max<qsizetype>(0, size - head.size() - tail.size());
    return head + QByteArray(padding, 'x') + tail;
}

PluginManifest manifest() {
    PluginManifest manifest;
    manifest.id = "com.example.clock";
    manifest.name = "Clock";
    manifest.version = "1.0.0";
    manifest.summary = "The time.";
    manifest.capabilities = {"Shows the time"};
    return manifest;
}

template <typename F> PluginManifest manifestWith(F change) {
    return with(manifest(), change);
}

} // namespace

class TestPluginProtocol final : public QObject {
    Q_OBJECT

private slots:
    void framing_data() {
        QTest::addColumn<QList<QByteArray>>("chunks");
        QTest::addColumn<int>("messages");
        QTest::addColumn<qsizetype>("rest");
        QTest::addColumn<QString>("message");
        const QByteArray one = line() + '\n';
        const auto row = [](const char* name, QList<QByteArray> chunks, int messages, qsizetype rest,
                            const QString& message = {}) {
            QTest::newRow(name) << chunks << messages << rest << message;
        };
        row("three lines and a half", {one + one + one + one.left(20)}, 3, 20);
        QList<QByteArray> bytes;
        for (const char c : one)
            bytes.append(QByteArray(1, c));
        row("a line cut into single bytes", bytes, 1, 0);
        row("line of exactly the limit", {line(131072) + '\n'}, 1, 0);
        row("one byte over, valid JSON or not", {line(131073) + '\n'}, 0, 0, "Invalid plugin message size.");
        row("an empty line is an error", {one + '\n'}, 0, 0, "Invalid plugin message size.");
        row("rest of exactly the limit waits", {QByteArray(131072, ' ')}, 0, 131072);
        row("rest one byte over fails at once", {QByteArray(131073, ' ')}, 0, 0,
            "Unterminated plugin message exceeded its limit.");
        row("buffer plus chunk of exactly the limit", {line(131072), '\n' + QByteArray(131071, ' ')}, 1,
            131071);
        row("one byte more is refused whole, newline or not",
            {QByteArray(131072, ' '), "\n" + QByteArray(131072, ' ')}, 0, 0,
            "Plugin output exceeded its limit.");
        row("another interface version", {line(0, 2) + '\n'}, 0, 0, "Incompatible plugin interface.");
        row("not JSON: the parser's reason", {"{\"apiVersion\":1\n"}, 0, 0, "invalid termination by number");
        row("not a message: the decoder's reason", {"{\"apiVersion\":1}\n"}, 0, 0, "\"type\" is missing");
        row("a negative sequence", {line().replace("\"sequence\":1", "\"sequence\":-1") + '\n'}, 0, 0,
            "\"sequence\" must not be negative");
    }

    void framing() {
        QFETCH(QList<QByteArray>, chunks);
        QFETCH(int, messages);
        QFETCH(qsizetype, rest);
        QFETCH(QString, message);
        PluginLines lines;
        int framed = 0;
        const QString problem = problemOf([&] {
            for (const QByteArray& chunk : chunks)
                framed += int(lines.append(chunk).size());
        });
        QCOMPARE(problem, message);
        QCOMPARE(framed, messages);
        if (message.isEmpty())
            QCOMPARE(lines.buffer().size(), rest);
    }

    void messageJson() {
        // Every field, written in any order and case: the encoding is the declared order,
        // upper-case UUIDs, base64, and a date of 0 stays the first instant of 2001.
        const QByteArray all =
            R"({"caption":{"phase":"dismiss","title":"","text":"","detail":"","symbol":""},)"
            R"("viewResourceCancel":"7d3c2f4e-0a1b-4c5d-8e9f-0123456789ab","agendaDate":0,)"
            R"("frame":{"jpeg":"/9j/"},"visible":true,"features":["actions-v1"],"action":"go",)"
            R"("sequence":9,"session":"6f9619ff-8b86-d011-b42d-00c04fc964ff","pluginID":"com.example.a",)"
            R"("type":"x","apiVersion":1,"bus":{"operation":"discover","requestID":"7D3C2F4E-0A1B-4C5D-8E9F-0123456789AB"}})";
        const PluginMessage message = PluginMessage::decode(all);
        QCOMPARE(message.frame->jpeg, QByteArray::fromBase64("/9j/"));
        QCOMPARE(message.agendaDate, 0.0);
        const QByteArray json = message.json();
        QCOMPARE(json,
                 R"({"apiVersion":1,"type":"x","pluginID":"com.example.a","session":")" + session +
                     R"(","sequence":9,"action":"go","features":["actions-v1"],"visible":true,)"
                     R"("frame":{"jpeg":"/9j/"},)"
                     R"("bus":{"operation":"discover","requestID":"7D3C2F4E-0A1B-4C5D-8E9F-0123456789AB"},)"
                     R"("agendaDate":0,"viewResourceCancel":"7D3C2F4E-0A1B-4C5D-8E9F-0123456789AB",)"
                     R"("caption":{"phase":"dismiss","title":"","text":"","detail":"","symbol":""}})");
        QCOMPARE(PluginMessage::decode(json), message);

        // A null is an absent optional, and an absent optional is not written.
        const PluginMessage bare =
            PluginMessage::decode(line().replace(R"("action":"")", R"("action":null)"));
        QVERIFY(!bare.action);
        QVERIFY(!bare.json().contains("action"));
    }

    void messageLimit() {
        const PluginMessage largest = PluginMessage::decode(line(131072));
        QCOMPARE(largest.encoded().size(), 131073);
        QVERIFY(largest.encoded().endsWith('\n'));
        QCOMPARE(problemOf([] { PluginMessage::decode(line(131073)).encoded(); }),
                 "Plugin message exceeds its limit.");
    }

    void manifestValidation_data() {
        checkColumns();
        const QString invalid = "Invalid plugin manifest.";
        const QString badIcon = "Invalid module icon. Use an SF Symbol name and six-digit RGB color.";
        const QString badMode = "Unsupported plugin launch mode.";
        const QString badVersion = "This plugin requires a different plugin interface version.";
        check("application mode", manifestWith([](auto& m) { m.launchMode = "application"; }), "");
        // The order: icon, launch mode, interface version, then the limits.
        check("icon before launch mode", manifestWith([](auto& m) {
                  m.icon = PluginIcon{"clock", "#4F8EF7", {}};
                  m.launchMode = "daemon";
              }),
              badIcon);
        check("launch mode before version", manifestWith([](auto& m) {
                  m.launchMode = "daemon";
                  m.apiVersion = 2;
              }),
              badMode);
        check("version before limits", manifestWith([](auto& m) {
                  m.apiVersion = 2;
                  m.name.clear();
              }),
              badVersion);
        bothSides("id characters", 100, invalid,
                  [](int n) { return manifestWith([&](auto& m) { m.id = "a." + text(n - 2); }); });
        check("id without a dot", manifestWith([](auto& m) { m.id = "clock"; }), invalid);
        check("empty name", manifestWith([](auto& m) { m.name.clear(); }), invalid);
        textLimits(invalid, manifest())("name", 80, &PluginManifest::name);
        check("version 9999.0.0", manifestWith([](auto& m) { m.version = "9999.0.0"; }), "");
        check("version 10000.0.0", manifestWith([](auto& m) { m.version = "10000.0.0"; }), invalid);
        check("version of two parts", manifestWith([](auto& m) { m.version = "1.0"; }), invalid);
        check("version with a newline", manifestWith([](auto& m) { m.version = "1.0.0\n"; }), invalid);
        textLimits(invalid, manifest())("summary", 500, &PluginManifest::summary);
        bothSides("capabilities", 12, invalid,
                  [](int n) { return manifestWith([&](auto& m) { m.capabilities = QStringList(n, "c"); }); });
        check("empty capability", manifestWith([](auto& m) { m.capabilities = {""}; }), invalid);
        bothSides("capability characters", 160, invalid,
                  [](int n) { return manifestWith([&](auto& m) { m.capabilities = {text(n)}; }); });
    }

    void manifestValidation() { runCheckRow(); }

    void manifestFile() {
        QTemporaryDir folder;
        const auto write = [&](const QByteArray& bytes) {
            QFile file(folder.filePath("VellPlugin.json"));
            file.open(QIODevice::WriteOnly | QIODevice::Truncate);
            file.write(bytes);
            return file.fileName();
        };
        const QByteArray json = manifest().encoded();
        QCOMPARE(PluginManifest::read(write(json + QByteArray(8192 - json.size(), ' '))), manifest());
        QCOMPARE(problemOf([&] { PluginManifest::read(write(json + QByteArray(8193 - json.size(), ' '))); }),
                 "Plugin manifest exceeds its limit.");
        QCOMPARE(problemOf([&] { PluginManifest::read(write(R"({"id":"a.b"})")); }), "\"name\" is missing");
    }

    void nativePluginRecordJson() {
        // Written plainly: moc misreads some raw strings that hold JSON.
        const QByteArray manifestJson = manifest().encoded();
        const QByteArray fingerprint(64, 'a');
        const QByteArray version =
            "{\"savedAt\":0,\"fingerprint\":\"" + fingerprint +
            "\",\"folder\":\"7D3C2F4E-0A1B-4C5D-8E9F-0123456789AB\",\"manifest\":" + manifestJson + "}";
        // Keys in any order; the hidden displays are a set, written sorted without repeats.
        const QByteArray head = "{\"previousVersions\":";
        const QByteArray rest =
            ",\"compactActivity\":true,\"hiddenDisplayIDs\":[\"HDMI-1\",\"DP-2\",\"HDMI-1\"],"
            "\"enabled\":false,\"fingerprint\":\"f\",\"folder\":\"F\",\"manifest\":" +
            manifestJson + "}";
        const NativePluginRecord record =
            NativePluginRecord::fromJson(JsonReader::parse(head + "[" + version + "]" + rest));
        QCOMPARE(record.hiddenDisplayIDs, QStringList({"DP-2", "HDMI-1"}));
        QCOMPARE(record.encoded(), "{\"manifest\":" + manifestJson +
                                       ",\"folder\":\"F\",\"fingerprint\":\"f\",\"enabled\":false,"
                                       "\"hiddenDisplayIDs\":[\"DP-2\",\"HDMI-1\"],\"compactActivity\":true,"
                                       "\"previousVersions\":[{\"manifest\":" +
                                       manifestJson +
                                       ",\"folder\":\"7D3C2F4E-0A1B-4C5D-8E9F-0123456789AB\","
                                       "\"fingerprint\":\"" +
                                       fingerprint + "\",\"savedAt\":0}]}");
        QCOMPARE(NativePluginRecord::fromJson(JsonReader::parse(record.encoded())), record);

        // A null history is no history, and no history is not written.
        const NativePluginRecord bare = NativePluginRecord::fromJson(JsonReader::parse(head + "null" + rest));
        QVERIFY(!bare.previousVersions);
        QVERIFY(!bare.encoded().contains("previousVersions"));
        QCOMPARE(problemOf([&] {
                     NativePluginVersion::fromJson(JsonReader::parse("{\"manifest\":" + manifestJson + "}"));
                 }),
                 "\"folder\" is missing");
    }

    void capabilities() {
        const QStringList offered = PluginCapabilities::offered();
        QCOMPARE(offered.size(), 19);
        QCOMPARE(QSet<QString>(offered.begin(), offered.end()).size(), 19);
        QStringList seventeen = offered.mid(0, 17);
        const QSet<QString> negotiated = PluginCapabilities::negotiated(seventeen);
        QCOMPARE(negotiated.size(), 16);
        QVERIFY(!negotiated.contains(seventeen.last()));
        QCOMPARE(PluginCapabilities::negotiated({"forms-v1", "forms-v1"}), QSet<QString>{"forms-v1"});
    }

    void channelEnvironment_data() {
        QTest::addColumn<QString>("port");
        QTest::addColumn<QString>("token");
        QTest::addColumn<bool>("accepted");
        const QString token = QString(36, 'a') + QString(35, '-') + "F";
        row("port 65535", QString("65535"), token, true);
        row("port 65536", QString("65536"), token, false);
        row("port 0", QString("0"), token, false);
        row("signed port", QString("+80"), token, false);
        row("port with a space", QString(" 80"), token, false);
        row("no port", QString(""), token, false);
        row("token of 71", QString("80"), token.left(71), false);
        row("token of 73", QString("80"), token + "a", false);
        row("token not hexadecimal", QString("80"), token.left(71) + "g", false);
    }

    void channelEnvironment() {
        QFETCH(QString, port);
        QFETCH(QString, token);
        QFETCH(bool, accepted);
        QProcessEnvironment environment;
        environment.insert("OSTAVELL_PLUGIN_PORT", port);
        environment.insert("OSTAVELL_PLUGIN_TOKEN", token);
        QCOMPARE(PluginApplicationChannel::create(environment) != nullptr, accepted);
    }
};

QTEST_GUILESS_MAIN(TestPluginProtocol)
#include "tst_PluginProtocol.moc"
