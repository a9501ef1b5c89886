#include "VellPluginSDK/Actions/PluginValueSchema.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <limits>

#include "TestSupport.h"

using namespace vell;
using namespace vell::test;

namespace {

QJsonObject numberField(const QString& name, bool required = true) {
    return {{"name", name}, {"kind", "number"}, {"required", required}};
}

QByteArray schemaOf(const QJsonArray& fields) {
    return QJsonDocument(QJsonObject{{"fields", fields}}).toJson(QJsonDocument::Compact);
}

QByteArray schemaOfCount(int count) {
    QJsonArray fields;
    for (int i = 0; i < count; ++i)
        fields.append(numberField(QStringLiteral("f%1").arg(i), false));
    return schemaOf(fields);
}

PluginValueSchema schemaFrom(const QByteArray& json) {
    return PluginValueSchema::fromJson(parse(json));
}

} // namespace

class TestPluginValueSchema final : public QObject {
    Q_OBJECT

private slots:
    void readsScalarsInOrder_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("display");

        QTest::addRow("quoted true is text")
            << QByteArray("\"true\"") << int(PluginValue::Kind::string) << "true";
        QTest::addRow("literal true is a boolean")
            << QByteArray("true") << int(PluginValue::Kind::boolean) << "Yes";
        QTest::addRow("false reads No") << QByteArray("false") << int(PluginValue::Kind::boolean) << "No";
        QTest::addRow("1 is a number, never a boolean")
            << QByteArray("1") << int(PluginValue::Kind::number) << "1.0";
        QTest::addRow("shortest round trip") << QByteArray("0.1") << int(PluginValue::Kind::number) << "0.1";
        QTest::addRow("large whole number stays plain")
            << QByteArray("100000000") << int(PluginValue::Kind::number) << "100000000.0";
        QTest::addRow("1e16 stays plain")
            << QByteArray("1e16") << int(PluginValue::Kind::number) << "10000000000000000.0";
        QTest::addRow("a negative large number stays plain")
            << QByteArray("-1.5e17") << int(PluginValue::Kind::number) << "-150000000000000000.0";
        QTest::addRow("below 1e-4 stays plain")
            << QByteArray("0.000015") << int(PluginValue::Kind::number) << "0.000015";
        QTest::addRow("the smallest normal number")
            << QByteArray("2.2250738585072014e-308") << int(PluginValue::Kind::number)
            << QStringLiteral("0.") + QString(307, u'0') + QStringLiteral("22250738585072014");
        QTest::addRow("text stays unchanged")
            << QByteArray("\" on \"") << int(PluginValue::Kind::string) << " on ";
    }

    void readsScalarsInOrder() {
        QFETCH(QByteArray, json);
        QFETCH(int, kind);
        QFETCH(QString, display);
        const PluginValue value = PluginValue::fromJson(parse(json));
        QCOMPARE(int(value.kind()), kind);
        QCOMPARE(value.display(), display);
        QCOMPARE(PluginValue::fromJson(value.toJson()), value);
    }

    void refusesWhatIsNoScalar_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addRow("object") << QByteArray("{}");
        QTest::addRow("array") << QByteArray("[1]");
        QTest::addRow("null") << QByteArray("null");
    }

    void refusesWhatIsNoScalar() {
        QFETCH(QByteArray, json);
        QCOMPARE(problemOf([&] { PluginValue::fromJson(parse(json)); }), "must be a string");
        // Inside a dictionary the failure names its key, and the whole dictionary fails.
        QCOMPARE(problemOf([&] { PluginValue::mapFromJson(parse("{\"a\":1,\"b\":" + json + "}")); }),
                 "\"b\" must be a string");
    }

    void schemaDecodingFailures_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QString>("message");

        QTest::addRow("null is missing") << QByteArray("{\"fields\":null}") << "\"fields\" is missing";
        QTest::addRow("text bound")
            << QByteArray(R"({"fields":[{"name":"a","kind":"number","required":true,"minimum":"0"}]})")
            << "\"fields[0].minimum\" must be a number";
    }

    void schemaDecodingFailures() {
        QFETCH(QByteArray, json);
        QFETCH(QString, message);
        QCOMPARE(problemOf([&] { schemaFrom(json); }), message);
    }

    void validateSchema_data() {
        QTest::addColumn<QByteArray>("schema");
        QTest::addColumn<QString>("message");

        const QString invalidSchema = "Invalid value schema.";
        const QString invalidConstraint = "Invalid parameter constraint.";
        auto field = [](const char* json) { return QByteArray("{\"fields\":[") + json + "]}"; };

        QTest::addRow("empty schema") << field("") << QString();
        QTest::addRow("16 fields") << schemaOfCount(16) << QString();
        QTest::addRow("17 well-formed fields") << schemaOfCount(17) << invalidSchema;
        QTest::addRow("duplicate names")
            << field(
                   R"({"name":"a","kind":"number","required":true},{"name":"a","kind":"string","required":true})")
            << invalidSchema;
        QTest::addRow("duplicate reported before a bad name")
            << field(
                   R"({"name":"9","kind":"number","required":true},{"name":"a","kind":"string","required":true},)"
                   R"({"name":"a","kind":"string","required":true})")
            << invalidSchema;
        QTest::addRow("names differing in case are distinct")
            << field(
                   R"({"name":"a","kind":"number","required":true},{"name":"A","kind":"string","required":true})")
            << QString();
        QTest::addRow("64-character name")
            << field(("{\"name\":\"a" + QByteArray(63, 'b') + "\",\"kind\":\"string\",\"required\":true}")
                         .constData())
            << QString();
        QTest::addRow("65-character name")
            << field(("{\"name\":\"a" + QByteArray(64, 'b') + "\",\"kind\":\"string\",\"required\":true}")
                         .constData())
            << invalidConstraint;
        QTest::addRow("name with a trailing newline")
            << field(R"({"name":"a\n","kind":"string","required":true})") << invalidConstraint;
        QTest::addRow("boolean with minimum")
            << field(R"({"name":"a","kind":"boolean","required":true,"minimum":0})") << invalidConstraint;
        QTest::addRow("string with maximum")
            << field(R"({"name":"a","kind":"string","required":true,"maximum":3})") << invalidConstraint;
        QTest::addRow("equal bounds")
            << field(R"({"name":"a","kind":"number","required":true,"minimum":2,"maximum":2})") << QString();
        QTest::addRow("crossed bounds")
            << field(R"({"name":"a","kind":"number","required":true,"minimum":2,"maximum":1})")
            << invalidConstraint;
    }

    void validateSchema() {
        QFETCH(QByteArray, schema);
        QFETCH(QString, message);
        QCOMPARE(problemOf([&] { schemaFrom(schema).validate(); }), message);
    }

    void nonFiniteBoundsAreRefused() {
        for (const double bad :
             {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
            PluginParameter low{"a", PluginParameter::Kind::number, true, bad, std::nullopt};
            PluginParameter high{"a", PluginParameter::Kind::number, true, std::nullopt, bad};
            QCOMPARE(problemOf([&] { PluginValueSchema{{low}}.validate(); }),
                     "Invalid parameter constraint.");
            QCOMPARE(problemOf([&] { PluginValueSchema{{high}}.validate(); }),
                     "Invalid parameter constraint.");
        }
    }

    void validateValues_data() {
        QTest::addColumn<QByteArray>("schema");
        QTest::addColumn<QByteArray>("values");
        QTest::addColumn<QString>("message");

        const QByteArray unitLevel =
            R"({"fields":[{"name":"level","kind":"number","required":true,"minimum":0,"maximum":1}]})";
        const QByteArray ab = R"({"fields":[{"name":"a","kind":"string","required":true},)"
                              R"({"name":"b","kind":"boolean","required":true}]})";
        const QByteArray optionalText = R"({"fields":[{"name":"t","kind":"string","required":false}]})";
        const QByteArray onlyMaximum =
            R"({"fields":[{"name":"n","kind":"number","required":true,"maximum":5}]})";
        const QString unexpected = "Unexpected action arguments.";
        const QString typeMismatch = "Argument type does not match its schema.";
        const QString outside = "Number is outside its limits.";

        QTest::addRow("empty schema refuses any key")
            << QByteArray("{\"fields\":[]}") << QByteArray("{\"x\":1}") << unexpected;
        QTest::addRow("lower bound inclusive") << unitLevel << QByteArray("{\"level\":0}") << QString();
        QTest::addRow("upper bound inclusive") << unitLevel << QByteArray("{\"level\":1}") << QString();
        QTest::addRow("just above the upper bound")
            << unitLevel << QByteArray("{\"level\":1.0000001}") << outside;
        QTest::addRow("below the lower bound") << unitLevel << QByteArray("{\"level\":-0.5}") << outside;
        QTest::addRow("only maximum accepts smaller")
            << onlyMaximum << QByteArray("{\"n\":-1e300}") << QString();
        QTest::addRow("only maximum refuses larger") << onlyMaximum << QByteArray("{\"n\":5.5}") << outside;
        QTest::addRow("text for a number is not coerced")
            << unitLevel << QByteArray("{\"level\":\"1\"}") << typeMismatch;
        QTest::addRow("number for a boolean is not coerced")
            << ab << QByteArray("{\"a\":\"x\",\"b\":1}") << typeMismatch;
        QTest::addRow("missing required") << unitLevel << QByteArray("{}") << "Missing argument: level";
        QTest::addRow("declared order decides")
            << ab << QByteArray("{\"b\":\"wrong\"}") << "Missing argument: a";
        QTest::addRow("unknown key before missing field") << ab << QByteArray("{\"zz\":true}") << unexpected;
        QTest::addRow("optional may be absent") << optionalText << QByteArray("{}") << QString();
        QTest::addRow("empty text passes") << optionalText << QByteArray("{\"t\":\"\"}") << QString();
        QTest::addRow("2048 bytes pass")
            << optionalText << "{\"t\":\"" + QByteArray(2048, 'x') + "\"}" << QString();
        QTest::addRow("2049 bytes fail") << optionalText << "{\"t\":\"" + QByteArray(2049, 'x') + "\"}"
                                         << "Text argument is too long.";
        QTest::addRow("683 three-byte characters fail")
            << optionalText << "{\"t\":\"" + QString(683, QChar(0x20AC)).toUtf8() + "\"}"
            << "Text argument is too long.";
        QTest::addRow("broken schema before values")
            << QByteArray(R"({"fields":[{"name":"a","kind":"boolean","required":true,"maximum":1}]})")
            << QByteArray("{\"nope\":1}") << "Invalid parameter constraint.";
    }

    void validateValues() {
        QFETCH(QByteArray, schema);
        QFETCH(QByteArray, values);
        QFETCH(QString, message);
        const PluginValueMap map = PluginValue::mapFromJson(parse(values));
        QCOMPARE(problemOf([&] { schemaFrom(schema).validate(map); }), message);
    }

    void entryCountComesFirst_data() {
        QTest::addColumn<int>("entries");
        QTest::addColumn<QString>("message");
        QTest::addRow("16 entries of 16 fields") << 16 << QString();
        QTest::addRow("17 entries, even of known names") << 17 << "Unexpected action arguments.";
    }

    void entryCountComesFirst() {
        QFETCH(int, entries);
        QFETCH(QString, message);
        // A valid schema holds at most 16 names, so the 17th key is refused by count alone.
        PluginValueSchema schema = schemaFrom(schemaOfCount(16));
        PluginValueMap values;
        for (int i = 0; i < entries; ++i)
            values.insert(QStringLiteral("f%1").arg(i), PluginValue::number(i));
        QCOMPARE(problemOf([&] { schema.validate(values); }), message);
    }

    void nonFiniteNumberIsOutsideLimits() {
        const PluginValueSchema schema =
            schemaFrom(R"({"fields":[{"name":"n","kind":"number","required":true}]})");
        const PluginValueMap values{{"n", PluginValue::number(std::numeric_limits<double>::infinity())}};
        QCOMPARE(problemOf([&] { schema.validate(values); }), "Number is outside its limits.");
    }
};

QTEST_GUILESS_MAIN(TestPluginValueSchema)
#include "tst_PluginValueSchema.moc"
