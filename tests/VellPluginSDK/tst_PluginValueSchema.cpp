#include "VellPluginSDK/Actions/PluginValueSchema.h"

#include <QTest>

#include "TestSupport.h"

using namespace vell;
using namespace vell::test;

namespace {

const QString badSchema = "Invalid value schema.";
const QString badConstraint = "Invalid parameter constraint.";
const QString unexpected = "Unexpected action arguments.";
const QString outside = "Number is outside its limits.";
const QString tooLong = "Text argument is too long.";

// One required field; extra holds further members, starting with a comma.
QByteArray field(const QByteArray& name, const char* kind, const char* extra = "") {
    return "{\"name\":\"" + name + "\",\"kind\":\"" + kind + "\",\"required\":true" + extra + "}";
}

QByteArray schemaOf(const QByteArrayList& fields) {
    return "{\"fields\":[" + fields.join(',') + "]}";
}

// count optional number fields f0, f1, ...
QByteArray schemaOfCount(int count) {
    QByteArrayList fields;
    for (int i = 0; i < count; ++i)
        fields.append("{\"name\":\"f" + QByteArray::number(i) + "\",\"kind\":\"number\",\"required\":false}");
    return schemaOf(fields);
}

// Rows of checks on the schema decoded from its JSON, alone or with values.
void schemaRow(const char* name, const QByteArray& schema, const QString& message) {
    QTest::newRow(name) << Check([schema] { PluginValueSchema::fromJson(parse(schema)).validate(); })
                        << message;
}

void valuesRow(const char* name, const QByteArray& schema, const PluginValueMap& values,
               const QString& message) {
    QTest::newRow(name) << Check([=] { PluginValueSchema::fromJson(parse(schema)).validate(values); })
                        << message;
}

void valuesRow(const char* name, const QByteArray& schema, const QByteArray& values, const QString& message) {
    valuesRow(name, schema, PluginValue::mapFromJson(parse(values)), message);
}

} // namespace

class TestPluginValueSchema final : public QObject {
    Q_OBJECT

private slots:
    void readsScalarsInOrder_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("display");
        const int text = int(PluginValue::Kind::string), number = int(PluginValue::Kind::number);
        const int boolean = int(PluginValue::Kind::boolean);
        row("quoted true is text", QByteArray("\"true\""), text, "true");
        row("literal true is a boolean", QByteArray("true"), boolean, "Yes");
        row("false reads No", QByteArray("false"), boolean, "No");
        row("1 is a number, never a boolean", QByteArray("1"), number, "1.0");
        row("shortest round trip", QByteArray("0.1"), number, "0.1");
        row("large whole number stays plain", QByteArray("100000000"), number, "100000000.0");
        row("1e16 stays plain", QByteArray("1e16"), number, "10000000000000000.0");
        row("a negative large number stays plain", QByteArray("-1.5e17"), number, "-150000000000000000.0");
        row("below 1e-4 stays plain", QByteArray("0.000015"), number, "0.000015");
        row("the smallest normal number", QByteArray("2.2250738585072014e-308"), number,
            "0." + QString(307, u'0') + "22250738585072014");
        row("text stays unchanged", QByteArray("\" on \""), text, " on ");
    }

    void readsScalarsInOrder() {
        QFETCH(QByteArray, json);
        const PluginValue value = PluginValue::fromJson(parse(json));
        QTEST(int(value.kind()), "kind");
        QTEST(value.display(), "display");
        QCOMPARE(PluginValue::fromJson(value.toJson()), value);
    }

    void refusesWhatIsNoScalar_data() {
        QTest::addColumn<QByteArray>("json");
        for (const char* json : {"{}", "[1]", "null"})
            row(json, QByteArray(json));
    }

    void refusesWhatIsNoScalar() {
        QFETCH(QByteArray, json);
        QCOMPARE(problemOf([&] { PluginValue::fromJson(parse(json)); }), "must be a string");
        // Inside a dictionary the failure names its key, and the whole dictionary fails.
        QCOMPARE(problemOf([&] { PluginValue::mapFromJson(parse("{\"a\":1,\"b\":" + json + "}")); }),
                 "\"b\" must be a string");
    }

    void validation_data() {
        checkColumns();
        schemaRow("null is missing", QByteArray("{\"fields\":null}"), "\"fields\" is missing");
        schemaRow("text bound", schemaOf({field("a", "number", ",\"minimum\":\"0\"")}),
                  "\"fields[0].minimum\" must be a number");
        schemaRow("empty schema", schemaOf({}), "");
        schemaRow("16 fields", schemaOfCount(16), "");
        schemaRow("17 well-formed fields", schemaOfCount(17), badSchema);
        schemaRow("duplicate names", schemaOf({field("a", "number"), field("a", "string")}), badSchema);
        schemaRow("duplicate reported before a bad name",
                  schemaOf({field("9", "number"), field("a", "string"), field("a", "string")}), badSchema);
        schemaRow("names differing in case are distinct",
                  schemaOf({field("a", "number"), field("A", "string")}), "");
        schemaRow("64-character name", schemaOf({field("a" + QByteArray(63, 'b'), "string")}), "");
        schemaRow("65-character name", schemaOf({field("a" + QByteArray(64, 'b'), "string")}), badConstraint);
        schemaRow("name with a trailing newline", schemaOf({field("a\\n", "string")}), badConstraint);
        schemaRow("boolean with minimum", schemaOf({field("a", "boolean", ",\"minimum\":0")}), badConstraint);
        schemaRow("string with maximum", schemaOf({field("a", "string", ",\"maximum\":3")}), badConstraint);
        schemaRow("equal bounds", schemaOf({field("a", "number", ",\"minimum\":2,\"maximum\":2")}), "");
        schemaRow("crossed bounds", schemaOf({field("a", "number", ",\"minimum\":2,\"maximum\":1")}),
                  badConstraint);
        const auto bounds = [](std::optional<double> minimum, std::optional<double> maximum) {
            return PluginValueSchema{{{"a", PluginParameter::Kind::number, true, minimum, maximum}}};
        };
        check("infinite minimum", bounds(qInf(), {}), badConstraint);
        check("infinite maximum", bounds({}, qInf()), badConstraint);
        check("minimum not a number", bounds(qQNaN(), {}), badConstraint);
        check("maximum not a number", bounds({}, qQNaN()), badConstraint);

        const QByteArray unitLevel = schemaOf({field("level", "number", ",\"minimum\":0,\"maximum\":1")});
        const QByteArray ab = schemaOf({field("a", "string"), field("b", "boolean")});
        const QByteArray optionalText = R"({"fields":[{"name":"t","kind":"string","required":false}]})";
        const QByteArray onlyMaximum = schemaOf({field("n", "number", ",\"maximum\":5")});
        const QString typeMismatch = "Argument type does not match its schema.";
        // A valid schema holds at most 16 names, so the 17th key is refused by count alone.
        PluginValueMap sixteen;
        for (int i = 0; i < 16; ++i)
            sixteen.insert(QStringLiteral("f%1").arg(i), PluginValue::number(i));
        PluginValueMap seventeen = sixteen;
        seventeen.insert("f16", PluginValue::number(16));

        valuesRow("empty schema refuses any key", schemaOf({}), "{\"x\":1}", unexpected);
        valuesRow("16 entries of 16 fields", schemaOfCount(16), sixteen, "");
        valuesRow("17 entries, even of known names", schemaOfCount(16), seventeen, unexpected);
        valuesRow("lower bound inclusive", unitLevel, "{\"level\":0}", "");
        valuesRow("upper bound inclusive", unitLevel, "{\"level\":1}", "");
        valuesRow("just above the upper bound", unitLevel, "{\"level\":1.0000001}", outside);
        valuesRow("below the lower bound", unitLevel, "{\"level\":-0.5}", outside);
        valuesRow("only maximum accepts smaller", onlyMaximum, "{\"n\":-1e300}", "");
        valuesRow("only maximum refuses larger", onlyMaximum, "{\"n\":5.5}", outside);
        valuesRow("not finite is outside", schemaOf({field("n", "number")}),
                  PluginValueMap{{"n", PluginValue::number(qInf())}}, outside);
        valuesRow("text for a number is not coerced", unitLevel, "{\"level\":\"1\"}", typeMismatch);
        valuesRow("number for a boolean is not coerced", ab, "{\"a\":\"x\",\"b\":1}", typeMismatch);
        valuesRow("missing required", unitLevel, "{}", "Missing argument: level");
        valuesRow("declared order decides", ab, "{\"b\":\"wrong\"}", "Missing argument: a");
        valuesRow("unknown key before missing field", ab, "{\"zz\":true}", unexpected);
        valuesRow("optional may be absent", optionalText, "{}", "");
        valuesRow("empty text passes", optionalText, "{\"t\":\"\"}", "");
        valuesRow("2048 bytes pass", optionalText, "{\"t\":\"" + QByteArray(2048, 'x') + "\"}", "");
        valuesRow("2049 bytes fail", optionalText, "{\"t\":\"" + QByteArray(2049, 'x') + "\"}", tooLong);
        valuesRow("683 three-byte characters fail", optionalText,
                  "{\"t\":\"" + QString(683, QChar(0x20AC)).toUtf8() + "\"}", tooLong);
        valuesRow("broken schema before values", schemaOf({field("a", "boolean", ",\"maximum\":1")}),
                  "{\"nope\":1}", badConstraint);
    }

    void validation() { runCheckRow(); }
};

QTEST_GUILESS_MAIN(TestPluginValueSchema)
#include "tst_PluginValueSchema.moc"
