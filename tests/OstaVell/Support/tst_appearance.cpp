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
    void normalizedNumbers_data();
    void normalizedNumbers();
    void normalizedChoices_data();
    void normalizedChoices();
    void jsonKeepsTheFieldOrder();
    void jsonRequiresEveryKey_data();
    void jsonRequiresEveryKey();
    void jsonRefusesNonFiniteNumbers();
    void displayMap();
    void colorFromHex_data();
    void colorFromHex();
    void hexString_data();
    void hexString();
};

void tst_Appearance::normalizedNumbers_data() {
    QTest::addColumn<QString>("field");
    QTest::addColumn<double>("stored");
    QTest::addColumn<double>("read");

    const auto row = [](const char* name, const char* field, double stored, double read) {
        QTest::addRow("%s", name) << field << stored << read;
    };
    row("opacity NaN reads 1", "opacity", notANumber, 1);
    row("opacity infinite reads 1, not the top", "opacity", -infinity, 1);
    row("opacity below 0", "opacity", -0.5, 0);
    row("opacity above 1", "opacity", 1.5, 1);
    row("startOpacity NaN reads 1", "startOpacity", notANumber, 1);
    row("startOpacity below 0", "startOpacity", -3, 0);
    row("startOpacity above 1", "startOpacity", 1.5, 1);
    row("endOpacity NaN reads 0", "endOpacity", notANumber, 0);
    row("endOpacity below 0", "endOpacity", -0.5, 0);
    row("endOpacity above 1", "endOpacity", 1.5, 1);
    row("width below 600", "width", 100, 600);
    row("width above 3840", "width", 5000, 3840);
    row("width NaN reads 760", "width", notANumber, 760);
    row("height 900 reads 560", "height", 900, 560);
    row("height below 300", "height", 10, 300);
    row("height infinite reads 400", "height", infinity, 400);
    row("corner radius below 10", "cornerRadius", 2, 10);
    row("corner radius above 40", "cornerRadius", 41, 40);
    row("corner radius NaN reads 24", "cornerRadius", notANumber, 24);
}

void tst_Appearance::normalizedNumbers() {
    QFETCH(QString, field);
    QFETCH(double, stored);
    QFETCH(double, read);

    QVariantMap fields = VellAppearance().toVariantMap();
    fields.insert(field, stored);
    const VellAppearance normalized = VellAppearance::fromVariantMap(fields).normalized();
    QCOMPARE(normalized.toVariantMap().value(field).toDouble(), read);

    // Only the field itself moves.
    QVariantMap expected = VellAppearance().toVariantMap();
    expected.insert(field, read);
    QCOMPARE(normalized, VellAppearance::fromVariantMap(expected));
}

void tst_Appearance::normalizedChoices_data() {
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QString>("read");

    const auto row = [](const char* field, const char* stored, const char* read) {
        QTest::addRow("%s \"%s\"", field, stored) << field << stored << read;
    };
    for (const char* style : {"black", "solid", "gradient", "artwork"})
        row("backgroundStyle", style, style);
    row("backgroundStyle", "glass", "black");
    row("backgroundStyle", "Solid", "black");
    row("backgroundStyle", "", "black");
    for (const char* direction : {"vertical", "horizontal", "diagonal"})
        row("direction", direction, direction);
    row("direction", "up", "vertical");
    row("startHex", "not a colour", "not a colour");
}

void tst_Appearance::normalizedChoices() {
    QFETCH(QString, field);
    QFETCH(QString, stored);

    QVariantMap fields = VellAppearance().toVariantMap();
    fields.insert(field, stored);
    QTEST(VellAppearance::fromVariantMap(fields).normalized().toVariantMap().value(field).toString(), "read");
}

void tst_Appearance::jsonKeepsTheFieldOrder() {
    QCOMPARE(VellAppearance().encodedJson().value_or(QByteArray()), defaultJson);

    DisplayAppearance display{QStringLiteral("Studio \"Display\""), VellAppearance()};
    QCOMPARE(display.encodedJson().value_or(QByteArray()),
             R"({"name":"Studio \"Display\"","appearance":)" + defaultJson + '}');
}

void tst_Appearance::jsonRequiresEveryKey_data() {
    QTest::addColumn<QString>("key");
    QTest::addColumn<QJsonValue>("replacement");

    const QJsonValue absent(QJsonValue::Undefined);
    const QStringList keys = VellAppearance().toVariantMap().keys();
    for (const QString& key : keys)
        QTest::addRow("%s missing", qPrintable(key)) << key << absent;
    QTest::addRow("width as text") << "width" << QJsonValue(QStringLiteral("760"));
    QTest::addRow("fades as number") << "fades" << QJsonValue(0);
    QTest::addRow("accentHex null") << "accentHex" << QJsonValue(QJsonValue::Null);
}

void tst_Appearance::jsonRequiresEveryKey() {
    QFETCH(QString, key);
    QFETCH(QJsonValue, replacement);

    QJsonObject object = QJsonDocument::fromJson(defaultJson).object();
    if (replacement.isUndefined())
        object.remove(key);
    else
        object.insert(key, replacement);
    QVERIFY(!VellAppearance::fromJson(object).has_value());
}

void tst_Appearance::jsonRefusesNonFiniteNumbers() {
    const VellAppearance appearance{.width = notANumber};
    QVERIFY(!appearance.encodedJson().has_value());
    QVERIFY(!DisplayAppearance::encodeMap({{QStringLiteral("a"), {QStringLiteral("A"), appearance}}})
                 .has_value());
}

void tst_Appearance::displayMap() {
    const VellAppearance wide{.backgroundStyle = QStringLiteral("gradient"),
                              .opacity = 0.5,
                              .fades = true,
                              .endOpacity = 0.25,
                              .direction = QStringLiteral("diagonal"),
                              .borderGlow = true,
                              .width = 3000,
                              .height = 333.5};
    const DisplayAppearance::Map map{
        {QStringLiteral("display-2"), {QStringLiteral("HDMI"), wide}},
        {QStringLiteral("5B1E0C2A-0000-5000-8000-000000000001"),
         {QStringLiteral("Built-in"), VellAppearance()}},
    };
    const QByteArray json = DisplayAppearance::encodeMap(map).value_or(QByteArray());
    QVERIFY(json.startsWith(R"({"5B1E0C2A-0000-5000-8000-000000000001":{"name":"Built-in","appearance":{)"));
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

void tst_Appearance::colorFromHex_data() {
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

void tst_Appearance::colorFromHex() {
    QFETCH(QString, hex);
    QTEST(vell::colorFromHex(hex).rgba(), "rgb");
}

void tst_Appearance::hexString_data() {
    QTest::addColumn<QColor>("color");
    QTest::addColumn<QString>("hex");

    QTest::addRow("upper case, padded") << QColor(1, 10, 255) << "#010AFF";
    QTest::addRow("rounded, not truncated") << QColor::fromRgbF(0.5f, 0.999f, 0.001f) << "#80FF00";
    QTest::addRow("invalid is black") << QColor() << "#000000";
}

void tst_Appearance::hexString() {
    QFETCH(QColor, color);
    QTEST(vell::hexString(color), "hex");
}

QTEST_GUILESS_MAIN(tst_Appearance)
#include "tst_appearance.moc"
