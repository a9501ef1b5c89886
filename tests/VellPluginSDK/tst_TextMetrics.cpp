#include "VellPluginSDK/TextMetrics.h"

#include <QTest>

#include "TestSupport.h"

using namespace vell;
using vell::test::row;

namespace {

const QString combiningE = QStringLiteral("e\u0301");
// Man, woman, girl, boy joined by zero-width joiners: seven code points, eleven UTF-16 units.
const QString family = QStringLiteral("\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466");

} // namespace

class TestTextMetrics final : public QObject {
    Q_OBJECT

private slots:
    void characterCount_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("characters");
        row("empty", QString(), 0);
        row("combining mark is one character", combiningE, 1);
        row("emoji family is one character", family, 1);
        row("flag is one character", QStringLiteral("\U0001F1E9\U0001F1EA"), 1);
        row("CR LF is one character", QStringLiteral("a\r\nb"), 3);
    }

    // Byte sizes are counted without encoding; the encoder is the measure.
    void characterCount() {
        QFETCH(QString, text);
        QTEST(TextMetrics::characterCount(text), "characters");
        QCOMPARE(TextMetrics::utf8Size(text), text.toUtf8().size());
    }

    void leftCharacters_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("count");
        QTest::addColumn<QString>("expected");
        row("shorter text is whole", QStringLiteral("abc"), 5, QStringLiteral("abc"));
        row("exact count", QStringLiteral("abc"), 3, QStringLiteral("abc"));
        row("zero", QStringLiteral("abc"), 0, QString());
        row("keeps a combining mark", u'a' + combiningE + u'b', 2, u'a' + combiningE);
        row("never splits an emoji", family + family, 1, family);
    }

    void leftCharacters() {
        QFETCH(QString, text);
        QFETCH(int, count);
        QTEST(TextMetrics::leftCharacters(text, count), "expected");
    }
};

QTEST_GUILESS_MAIN(TestTextMetrics)
#include "tst_TextMetrics.moc"
