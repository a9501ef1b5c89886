#include "VellPluginSDK/TextMetrics.h"

#include <QTest>

using namespace vell;

namespace {

const QString combiningE = QStringLiteral("e\u0301");
// Man, woman, girl, boy joined by zero-width joiners: seven code points, eleven UTF-16 units.
const QString family = QStringLiteral("\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466");
const QString flag = QStringLiteral("\U0001F1E9\U0001F1EA");

} // namespace

class TestTextMetrics final : public QObject {
    Q_OBJECT

private slots:
    void characterCount_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("characters");

        QTest::addRow("empty") << QString() << 0;
        QTest::addRow("two-byte letters") << QStringLiteral("çé") << 2;
        QTest::addRow("combining mark is one character") << combiningE << 1;
        QTest::addRow("emoji family is one character") << family << 1;
        QTest::addRow("flag is one character") << flag << 1;
        QTest::addRow("CR LF is one character") << QStringLiteral("a\r\nb") << 3;
    }

    // Byte sizes are counted without encoding; the encoder is the measure.
    void characterCount() {
        QFETCH(QString, text);
        QFETCH(int, characters);
        QCOMPARE(TextMetrics::characterCount(text), characters);
        QCOMPARE(TextMetrics::utf8Size(text), text.toUtf8().size());
    }

    void leftCharacters_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("count");
        QTest::addColumn<QString>("expected");

        QTest::addRow("shorter text is whole") << QStringLiteral("abc") << 5 << QStringLiteral("abc");
        QTest::addRow("exact count") << QStringLiteral("abc") << 3 << QStringLiteral("abc");
        QTest::addRow("zero") << QStringLiteral("abc") << 0 << QString();
        QTest::addRow("keeps a combining mark") << QStringLiteral("a") + combiningE + QStringLiteral("b") << 2
                                                << QStringLiteral("a") + combiningE;
        QTest::addRow("never splits an emoji") << family + family << 1 << family;
    }

    void leftCharacters() {
        QFETCH(QString, text);
        QFETCH(int, count);
        QFETCH(QString, expected);
        QCOMPARE(TextMetrics::leftCharacters(text, count), expected);
    }
};

QTEST_GUILESS_MAIN(TestTextMetrics)
#include "tst_TextMetrics.moc"
