// The tree parser against QJsonDocument::fromJson on the inputs where a JSON parser is most
// likely to go its own way: both must accept and refuse the same texts, fail with the same
// error at the same offset, and agree on every value, down to integer or double and the sign of
// zero. Then the whole-number rules of JsonReader on numbers as the tree holds them.

#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <QVariant>

#include <cstring>

#include "TestSupport.h"

using namespace vell;
using namespace vell::test;

namespace {

// The value as Qt holds it, spelt out: the type, integer or double, the bits of a double. Members
// are sorted, since an object Qt parsed and one built by insert() can order non-ASCII keys apart.
QString spelt(const QJsonValue& value) {
    const QString type = QString::number(value.type()) + ':';
    if (value.isDouble()) {
        const double number = value.toDouble();
        quint64 bits = 0;
        std::memcpy(&bits, &number, sizeof bits);
        return type + QString::number(value.toVariant().typeId()) + ':' + QString::number(bits, 16);
    }
    QStringList parts;
    for (const QJsonValue& item : value.toArray())
        parts.append(spelt(item));
    const QJsonObject object = value.toObject();
    for (auto it = object.begin(); it != object.end(); ++it)
        parts.append(QString::number(it.key().size()) + ':' + it.key() + spelt(it.value()));
    if (value.isObject())
        parts.sort();
    const QString scalar = value.isBool() ? QString::number(value.toBool()) : value.toString();
    return type + scalar + '(' + parts.join(',') + ')';
}

QByteArray nested(int depth) {
    return QByteArray(depth, '[') + QByteArray(depth, ']');
}

} // namespace

class JsonTreeTest final : public QObject {
    Q_OBJECT

private slots:
    void agreesWithQt_data() {
        QTest::addColumn<QByteArray>("json");
        const auto add = [](const char* name, const QByteArray& json) { QTest::newRow(name) << json; };
        add("empty input", "");
        add("only spaces", "  \n\t ");
        add("a bare string", R"("a")");
        add("a bare number", "1");
        add("empty object", "{}");
        add("empty array", "[]");
        add("spaces everywhere", " \r\n\t{ \"a\" :\t[ 1 , { } ] }\n ");
        add("form feed is no space", "[\f1]");
        add("byte order mark", "\xef\xbb\xbf{}");
        add("byte order mark alone", "\xef\xbb\xbf");
        add("garbage after the document", "{} x");
        add("a second document", "[1][2]");
        add("a nul after the document", QByteArray("{}\0", 3));
        add("unterminated object", R"({"a":1)");
        add("unterminated object after a key", R"({"a":)");
        add("unterminated array", "[1,");
        add("trailing comma in an object", R"({"a":1,})");
        add("trailing comma in an array", "[1,]");
        add("missing value", R"({"a":})");
        add("comma for a value", R"({"a":,})");
        add("missing name separator", R"({"a" 1})");
        add("missing value separator", "[1 2]");
        add("members without a comma", R"({"a":1 "b":2})");
        add("a key that is no string", R"({1:2})");
        // Every text and number both parsers take, each an element of one array.
        add("accepted texts",
            "[true,false,null,\"\\\" \\\\ \\/ \\b \\f \\n \\r \\t \\u0041 \\u00e9\","
            "\"\\ud83d\\ude00\",\"\\uD83D\\uDE00\",\"\\ud800\",\"\\udc00x\",\"\\ude00\\ud83d\",\"\\x\","
            "\"a\\u0000b\",\"a\tb\",\"a\x01\",\"a\x7f\",\"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80\","
            "\"\xef\xbf\xbe\"]");
        add("a raw nul in a text", QByteArray("[\"a\0b\"]", 7));
        add("accepted numbers", "[0,-1,42,123456789012345678,-0,-0.0,1.0,1e3,1E2,0.5e1,1.5,-0.25,1e-2,.5,-.5,"
                                "9223372036854775807,-9223372036854775808,9223372036854775808,"
                                "-9223372036854775809,9223372036854775807.0,9007199254740993,"
                                "18446744073709551615,100000000000000000000,1.7976931348623157e308,5e-324,"
                                "2.5e-324]");
        add("cut literal", "[tru]");
        add("literal at the very end", "[true");
        add("literal too long", "[nulll]");
        add("escaped non-ASCII byte", "[\"\\\xc3\xa9\"]");
        add("short unicode escape", R"(["\u12"])");
        add("bad hex digit", R"(["\u12g4"])");
        add("backslash at the end", "[\"a\\");
        add("escaped quote at the end", "[\"a\\\"]");
        add("unterminated string", "[\"abc");
        add("UTF-8 cut short", "[\"\xc3\"]");
        add("UTF-8 cut by the end", "[\"\xe2\x82");
        add("UTF-8 overlong", "[\"\xc0\x80\"]");
        add("UTF-8 overlong three bytes", "[\"\xe0\x80\xaf\"]");
        add("UTF-8 surrogate", "[\"\xed\xa0\x80\"]");
        add("UTF-8 beyond U+10FFFF", "[\"\xf4\x90\x80\x80\"]");
        add("UTF-8 stray continuation", "[\"\x80\"]");
        add("byte 0xff", "[\"\xff\"]");
        add("invalid UTF-8 after an escape", "[\"\\n\xff\"]");
        add("invalid UTF-8 in a key", "{\"\xff\":1}");
        add("overflowing double", "[1e400]");
        add("overflowing negative double", "[-1e400]");
        add("underflowing double", "[1e-400]");
        add("no digits after the point", "[1.]");
        add("lone minus", "[-]");
        add("plus sign", "[+1]");
        add("leading zero", "[01]");
        add("bare exponent", "[1e]");
        add("exponent sign without digits", "[1e+]");
        add("two points", "[1.5.5]");
        add("hexadecimal", "[0x10]");
        add("infinity", "[Infinity]");
        add("not a number", "[NaN]");
        add("a word", "[x]");
        add("number at the very end", "[1");
        add("duplicate keys", R"({"a":1,"b":2,"a":3})");
        add("duplicate keys, an escaped twin", R"({"\u0061":1,"a":2})");
        add("duplicate keys, the last one null", R"({"a":1,"a":null})");
        add("keys out of order", R"({"b":1,"a":2,"c":{"z":1,"y":2}})");
        add("non-ASCII keys", "{\"z\":1,\"\xc3\xa9\":2,\"\xef\xbc\xa1\":3,\"\xf0\x9f\x98\x80\":4}");
        add("escaped non-ASCII keys", R"({"\uff21":1,"\ud83d\ude00":2,"\u00e9":3})");
        add("escaped against plain keys", "{\"\xef\xbc\xa1\":1,\"\\ud83d\\ude00\":2,\"\\ud800\":3}");
        add("empty key", R"({"":1,"a":2})");
        add("nesting at the limit", nested(JsonTree::maximumDepth));
        add("nesting past the limit", nested(JsonTree::maximumDepth + 1));
        add("objects nested past the limit",
            QByteArray(JsonTree::maximumDepth + 1, '{').replace("{", "{\"a\":") + "1" +
                QByteArray(JsonTree::maximumDepth + 1, '}'));
    }

    void agreesWithQt() {
        QFETCH(QByteArray, json);
        QJsonParseError expectedError;
        const QJsonDocument expected = QJsonDocument::fromJson(json, &expectedError);
        QJsonParseError error;
        const JsonNode tree = JsonTree::parse(json, &error);
        QCOMPARE(error.errorString(), expectedError.errorString());
        QCOMPARE(error.offset, expectedError.offset);
        QCOMPARE(tree.isUndefined(), expected.isNull());
        if (expected.isNull())
            return;

        const QJsonValue value =
            expected.isArray() ? QJsonValue(expected.array()) : QJsonValue(expected.object());
        QCOMPARE(spelt(tree.toJsonValue()), spelt(value));
        // The slow way in, from the Qt value, holds the same tree.
        QCOMPARE(spelt(JsonNode(value).toJsonValue()), spelt(value));
        if (!tree.isObject())
            return;
        const QJsonObject object = expected.object();
        const QList<JsonMember> members = tree.members();
        QCOMPARE(members.size(), object.size());
        QCOMPARE(tree.size(), object.size());
        auto it = object.begin();
        for (const JsonMember& member : members) {
            QCOMPARE(member.key, it.key());
            QCOMPARE(spelt(member.value.toJsonValue()), spelt(it.value()));
            ++it;
        }
    }

    void lookupTakesTheLastDuplicate() {
        const JsonNode tree = JsonReader::parse(R"({"a":1,"b":[true,"x"],"a":{"c":null}})");
        QVERIFY(tree.value(u"a").isObject());
        QVERIFY(tree.value(u"a").value(u"c").isNull());
        QVERIFY(tree.value(u"a").value(u"d").isUndefined());
        QVERIFY(tree.value(u"missing").isUndefined());
        QCOMPARE(tree.value(u"b").size(), 2);
        QCOMPARE(tree.value(u"b").at(1).toString(), u"x");
        QVERIFY(tree.value(u"b").at(2).isUndefined());
        QCOMPARE(tree.size(), 2);
    }

    void wholeNumbers_data() {
        QTest::addColumn<QByteArray>("number");
        QTest::addColumn<QString>("integer");
        QTest::addColumn<QString>("unsigned32");
        const QString whole = "\"n\" must be a whole number";
        const QString outside = "\"n\" must be a whole number from 0 to 4294967295";
        row("zero", QByteArray("0"), QString("0"), QString("0"));
        row("minus zero", QByteArray("-0"), QString("0"), QString("0"));
        row("exponent", QByteArray("1e3"), QString("1000"), QString("1000"));
        row("point zero", QByteArray("7.0"), QString("7"), QString("7"));
        row("fraction", QByteArray("1.5"), whole, outside);
        row("negative", QByteArray("-1"), QString("-1"), outside);
        row("largest unsigned 32", QByteArray("4294967295"), QString("4294967295"), QString("4294967295"));
        row("past unsigned 32", QByteArray("4294967296"), QString("4294967296"), outside);
        row("largest integer", QByteArray("9223372036854775807"), QString("9223372036854775807"), outside);
        row("past the largest integer", QByteArray("9223372036854775808"), whole, outside);
        // Qt reads the literal as a double, which rounds to the smallest integer.
        row("past the smallest integer", QByteArray("-9223372036854775809"), QString("-9223372036854775808"),
            outside);
        row("large double", QByteArray("9.3e18"), whole, outside);
        row("whole double", QByteArray("1e18"), QString("1000000000000000000"), outside);
        row("string", QByteArray("\"1\""), whole, outside);
        row("null", QByteArray("null"), QString("\"n\" is missing"), QString("\"n\" is missing"));
    }

    void wholeNumbers() {
        QFETCH(QByteArray, number);
        QFETCH(QString, integer);
        QFETCH(QString, unsigned32);
        const JsonReader reader(JsonReader::parse("{\"n\":" + number + "}"));
        QString read;
        const QString problem = problemOf([&] { read = QString::number(reader.integer(u"n")); });
        QCOMPARE(problem.isEmpty() ? read : problem, integer);
        const QString problem32 = problemOf([&] { read = QString::number(reader.unsigned32(u"n")); });
        QCOMPARE(problem32.isEmpty() ? read : problem32, unsigned32);
    }

    // The writer's shortcut for plain text writes exactly what Qt writes, at every character
    // where the shortcut starts or stops applying, and alone or among others.
    void writerMatchesQt() {
        const auto qt = [](const QJsonValue& value) {
            const QByteArray wrapped = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
            return wrapped.mid(1, wrapped.size() - 2);
        };
        QList<QJsonValue> values{true,
                                 false,
                                 QJsonValue(),
                                 QString(),
                                 QStringLiteral("a/b c~"),
                                 QStringLiteral("caf\u00e9"),
                                 QStringLiteral("\u2603")};
        for (char16_t c = 0; c < 0x100; ++c) {
            values.append(QString(QChar(c)));
            values.append(QStringLiteral("key") + QChar(c) + QStringLiteral("tail"));
        }
        for (const QJsonValue& value : std::as_const(values))
            QCOMPARE(JsonWriter::encodeValue(value), qt(value));
    }
};

QTEST_GUILESS_MAIN(JsonTreeTest)
#include "tst_JsonTree.moc"
