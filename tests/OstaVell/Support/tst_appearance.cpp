#include "OstaVell/Support/ColorHex.h"
#include "OstaVell/Support/DisplayAppearance.h"
#include "OstaVell/Support/VellAppearance.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <limits>

using namespace vell;

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

const QByteArray defaultJson = R"({"backgroundStyle":"black","startHex":"#101018","endHex":"#000000",)"
                               R"("accentHex":"#C7EB87","opacity":1,"fades":false,"startOpacity":1,)"
                               R"("endOpacity":0,"direction":"vertical","borderGlow":false,"width":760,)"
                               R"("height":400,"cornerRadius":24})";

} // namespace

class tst_Appearance final : public QObject {
    Q_OBJECT

private slots:
    void normalized_data() {
        QTest::addColumn<QString>("field");
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<QVariant>("read");
        const auto number = [](const char* name, const char* field, double stored, double read) {
            QTest::addRow("%s", name) << field << QVariant(stored) << QVariant(read);
        };
        number("opacity NaN reads 1", "opacity", notANumber, 1);
        number("opacity infinite reads 1, not the top", "opacity", -infinity, 1);
        number("opacity below 0", "opacity", -0.5, 0);
        number("opacity above 1", "opacity", 1.5, 1);
        number("startOpacity NaN reads 1", "startOpacity", notANumber, 1);
        number("startOpacity below 0", "startOpacity", -3, 0);
        number("startOpacity above 1", "startOpacity", 1.5, 1);
        number("endOpacity NaN reads 0", "endOpacity", notANumber, 0);
        number("endOpacity below 0", "endOpacity", -0.5, 0);
        number("endOpacity above 1", "endOpacity", 1.5, 1);
        number("width below 600", "width", 100, 600);
        number("width above 3840", "width", 5000, 3840);
        number("width NaN reads 760", "width", notANumber, 760);
        number("height 900 reads 560", "height", 900, 560);
        number("height below 300", "height", 10, 300);
        number("height infinite reads 400", "height", infinity, 400);
        number("corner radius below 10", "cornerRadius", 2, 10);
        number("corner radius above 40", "cornerRadius", 41, 40);
        number("corner radius NaN reads 24", "cornerRadius", notANumber, 24);
        const auto choice = [](const char* field, const char* stored, const char* read) {
            QTest::addRow("%s \"%s\"", field, stored) << field << QVariant(stored) << QVariant(read);
        };
        for (const char* style : {"black", "solid", "gradient", "artwork"})
            choice("backgroundStyle", style, style);
        choice("backgroundStyle", "glass", "black");
        choice("backgroundStyle", "Solid", "black");
        choice("backgroundStyle", "", "black");
        for (const char* direction : {"vertical", "horizontal", "diagonal"})
            choice("direction", direction, direction);
        choice("direction", "up", "vertical");
        choice("startHex", "not a colour", "not a colour");
    }

    // Only the field itself moves.
    void normalized() {
        QFETCH(QString, field);
        QFETCH(QVariant, stored);
        QFETCH(QVariant, read);
        QVariantMap fields = VellAppearance().toVariantMap();
        fields.insert(field, stored);
        const VellAppearance normalized = VellAppearance::fromVariantMap(fields).normalized();
        QCOMPARE(normalized.toVariantMap().value(field), read);
        QVariantMap expected = VellAppearance().toVariantMap();
        expected.insert(field, read);
        QCOMPARE(normalized, VellAppearance::fromVariantMap(expected));
    }

    void jsonKeepsTheFieldOrder() {
        QCOMPARE(VellAppearance().encodedJson().value_or(QByteArray()), defaultJson);

        DisplayAppearance display{"Studio \"Display\"", VellAppearance()};
        QCOMPARE(display.encodedJson().value_or(QByteArray()),
                 "{\"name\":\"Studio \\\"Display\\\"\",\"appearance\":" + defaultJson + '}');
    }

    void jsonRequiresEveryKey_data() {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QJsonValue>("replacement");
        const QJsonValue absent(QJsonValue::Undefined);
        const QStringList keys = VellAppearance().toVariantMap().keys();
        for (const QString& key : keys)
            QTest::addRow("%s missing", qPrintable(key)) << key << absent;
        QTest::addRow("width as text") << "width" << QJsonValue("760");
        QTest::addRow("fades as number") << "fades" << QJsonValue(0);
        QTest::addRow("accentHex null") << "accentHex" << QJsonValue(QJsonValue::Null);
    }

    void jsonRequiresEveryKey() {
        QFETCH(QString, key);
        QFETCH(QJsonValue, replacement);
        QJsonObject object = QJsonDocument::fromJson(defaultJson).object();
        if (replacement.isUndefined())
            object.remove(key);
        else
            object.insert(key, replacement);
        QVERIFY(!VellAppearance::fromJson(object).has_value());
    }

    void jsonRefusesNonFiniteNumbers() {
        const VellAppearance appearance{.width = notANumber};
        QVERIFY(!appearance.encodedJson().has_value());
        QVERIFY(!DisplayAppearance::encodeMap({{"a", {"A", appearance}}}).has_value());
    }

    void displayMap() {
        const VellAppearance wide{.backgroundStyle = "gradient",
                                  .opacity = 0.5,
                                  .fades = true,
                                  .endOpacity = 0.25,
                                  .direction = "diagonal",
                                  .borderGlow = true,
                                  .width = 3000,
                                  .height = 333.5};
        const DisplayAppearance::Map map{
            {"display-2", {"HDMI", wide}},
            {"5B1E0C2A-0000-5000-8000-000000000001", {"Built-in", VellAppearance()}},
        };
        const QByteArray json = DisplayAppearance::encodeMap(map).value_or(QByteArray());
        QVERIFY(
            json.startsWith(R"({"5B1E0C2A-0000-5000-8000-000000000001":{"name":"Built-in","appearance":{)"));
        QCOMPARE(DisplayAppearance::decodeMap(json), map);

        QCOMPARE(DisplayAppearance::decodeMap("{}"), DisplayAppearance::Map());
        QVERIFY(!DisplayAppearance::decodeMap(QByteArray()).has_value());
        QVERIFY(!DisplayAppearance::decodeMap("[]").has_value());
        QVERIFY(!DisplayAppearance::decodeMap(R"({"a":{"appearance":)" + defaultJson + "}}").has_value());
        // One bad record makes the whole map unreadable.
        QByteArray oneBad = json;
        oneBad.replace(R"("cornerRadius":24})", R"("cornerRadius":"24"})");
        QVERIFY(oneBad != json);
        QVERIFY(!DisplayAppearance::decodeMap(oneBad).has_value());
    }

    void colorFromHex_data() {
        QTest::addColumn<QString>("hex");
        QTest::addColumn<QRgb>("rgb");
        QTest::addRow("#C7EB87") << "#C7EB87" << qRgb(199, 235, 135);
        QTest::addRow("surrounding junk trimmed") << "  ##C7EB87;\n" << qRgb(199, 235, 135);
        QTest::addRow("#FFF is 0x000FFF, not white") << "#FFF" << qRgb(0, 15, 255);
        QTest::addRow("bad string is black") << "#zzzzzz" << qRgb(0, 0, 0);
        QTest::addRow("scan stops at a non-hex digit") << "#12G456" << qRgb(0, 0, 0x12);
        QTest::addRow("0x prefix") << "0x102030" << qRgb(0x10, 0x20, 0x30);
        QTest::addRow("alpha bits ignored") << "#80C7EB87" << qRgb(199, 235, 135);
        QTest::addRow("overflow saturates") << "#FFFFFFFFFFFFFFFFFF00" << qRgb(255, 255, 255);
    }

    void colorFromHex() {
        QFETCH(QString, hex);
        QTEST(vell::colorFromHex(hex).rgba(), "rgb");
    }

    void hexString_data() {
        QTest::addColumn<QColor>("color");
        QTest::addColumn<QString>("hex");
        QTest::addRow("upper case, padded") << QColor(1, 10, 255) << "#010AFF";
        QTest::addRow("rounded, not truncated") << QColor::fromRgbF(0.5f, 0.999f, 0.001f) << "#80FF00";
        QTest::addRow("invalid is black") << QColor() << "#000000";
    }

    void hexString() {
        QFETCH(QColor, color);
        QTEST(vell::hexString(color), "hex");
    }
};

QTEST_GUILESS_MAIN(tst_Appearance)
#include "tst_appearance.moc"
