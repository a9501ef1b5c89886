// The tray's records without a store: what makes two items the same, how they are named, the
// exact form of shelf.json and what it refuses, names in the storage folder, and where a drag
// counts as near the notch.
#include "OstaVell/Features/Shelf/ShelfDragZone.h"
#include "OstaVell/Features/Shelf/ShelfFile.h"
#include "OstaVell/Features/Shelf/ShelfItem.h"
#include "OstaVell/Features/Shelf/ShelfStorage.h"

#include <QFile>
#include <QTest>
#include <QTimeZone>

using namespace vell;
using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(vell::NotchGeometry::ScreenReading)
Q_DECLARE_METATYPE(vell::ShelfItem)

namespace {

QByteArray fixture(const char* name) {
    QFile file(qEnvironmentVariable("VELL_TEST_DATA") + u'/' + QLatin1String(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

NotchGeometry::ScreenReading screen(const QRectF& frame, double menuBar) {
    NotchGeometry::ScreenReading reading;
    reading.frame = frame;
    reading.visibleFrame = frame.adjusted(0, menuBar, 0, 0);
    return reading;
}

} // namespace

class tst_ShelfItem final : public QObject {
    Q_OBJECT

private slots:
    void stableHashIsFnv1a_data();
    void stableHashIsFnv1a();
    void identityKeys_data();
    void identityKeys();
    void textNames_data();
    void textNames();
    void linkNames_data();
    void linkNames();
    void theFileIsPinnedByteForByte();
    void decodingRefuses_data();
    void decodingRefuses();
    void storageNames_data();
    void storageNames();
    void timestampFormat();
    void hotZone_data();
    void hotZone();
};

void tst_ShelfItem::stableHashIsFnv1a_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("hex");
    // The published FNV-1a 64 test vectors, and UTF-8 bytes for text beyond ASCII.
    QTest::addRow("empty") << u""_s << u"cbf29ce484222325"_s;
    QTest::addRow("a") << u"a"_s << u"af63dc4c8601ec8c"_s;
    QTest::addRow("foobar") << u"foobar"_s << u"85944171f73967e8"_s;
    // Over the UTF-8 bytes, and written without padding: this one has 15 digits.
    QTest::addRow("é as two bytes") << u"é"_s << u"ac21707b7181e01"_s;
}

void tst_ShelfItem::stableHashIsFnv1a() {
    QFETCH(QString, text);
    QFETCH(QString, hex);
    QCOMPARE(QString::number(ShelfItem::stableHash(text), 16), hex);
}

void tst_ShelfItem::identityKeys_data() {
    QTest::addColumn<ShelfItem>("item");
    QTest::addColumn<QString>("key");
    const QUuid id(u"{0a1b2c3d-0000-4000-8000-00000000abcd}"_s);
    const QDateTime when = QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC);
    QTest::addRow("file by its path")
        << ShelfItem::file(id, {}, u"a.txt"_s, when, u"/home/u/a.txt"_s, false) << u"file:/home/u/a.txt"_s;
    ShelfItem pathless = ShelfItem::file(id, {}, u"a.txt"_s, when, {}, false);
    pathless.filePath.reset();
    QTest::addRow("file without a path by its id") << pathless << u"0A1B2C3D-0000-4000-8000-00000000ABCD"_s;
    QTest::addRow("link by its address") << ShelfItem::link(id, QUrl(u"https://example.com/a?b=c"_s), when)
                                         << u"link:https://example.com/a?b=c"_s;
    // No padding: a hash with leading zero nibbles is shorter than 16 digits.
    QTest::addRow("text by its hash") << ShelfItem::text(id, u"a"_s, when) << u"text:af63dc4c8601ec8c"_s;
}

void tst_ShelfItem::identityKeys() {
    QFETCH(ShelfItem, item);
    QFETCH(QString, key);
    QCOMPARE(item.identityKey(), key);
}

void tst_ShelfItem::textNames_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("name");
    const QString forty = QString(40, u'x');
    QTest::addRow("nothing") << u""_s << u"Text Snippet"_s;
    QTest::addRow("only blanks and breaks") << u"  \n\t\r\n  "_s << u"Text Snippet"_s;
    QTest::addRow("the first line with something")
        << u"\n   \n  Shopping list \nmilk"_s << u"Shopping list"_s;
    QTest::addRow("40 characters stay whole") << forty << forty;
    QTest::addRow("41 are cut to 40 and an ellipsis") << forty + u'y' << forty + u"…"_s;
    QTest::addRow("45 are cut to 40 and an ellipsis") << forty + u"abcde"_s << forty + u"…"_s;
    // A letter with its accent and a flag are one character each, never split.
    const QString accented = QString(39, u'x') + u"e\u0301z"_s;
    QTest::addRow("a combining accent counts once") << accented << QString(39, u'x') + u"e\u0301…"_s;
    const QString flags = QString(40, u'y').replace(u'y', u"🇫🇷"_s);
    QTest::addRow("40 flags stay whole") << flags << flags;
    QTest::addRow("41 flags are cut after 40")
        << QString(41, u'y').replace(u'y', u"🇫🇷"_s) << QString(40, u'y').replace(u'y', u"🇫🇷"_s) + u"…"_s;
}

void tst_ShelfItem::textNames() {
    QFETCH(QString, text);
    QFETCH(QString, name);
    QCOMPARE(ShelfItem::displayNameForText(text), name);
}

void tst_ShelfItem::linkNames_data() {
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("name");
    QTest::addRow("the host") << u"https://www.example.com/a/b"_s << u"www.example.com"_s;
    QTest::addRow("no host: the whole address")
        << u"mailto:someone@example.com"_s << u"mailto:someone@example.com"_s;
}

void tst_ShelfItem::linkNames() {
    QFETCH(QString, url);
    QFETCH(QString, name);
    QCOMPARE(ShelfItem::displayNameForLink(QUrl(url)), name);
}

void tst_ShelfItem::theFileIsPinnedByteForByte() {
    const QDateTime when = QDateTime::fromString(u"2024-03-09T14:05:59Z"_s, Qt::ISODate);
    ShelfItem text =
        ShelfItem::text(QUuid(u"{11111111-1111-4111-8111-111111111111}"_s), u"Buy milk\nand eggs"_s, when);
    ShelfItem link = ShelfItem::link(QUuid(u"{22222222-2222-4222-8222-222222222222}"_s),
                                     QUrl(u"https://example.com/page?q=1"_s), when.addSecs(-60));
    const QByteArray bookmark = R"({"device":"2049","inode":"131","path":"/home/u/Report.pdf","size":"512"})";
    ShelfItem file = ShelfItem::file(QUuid(u"{33333333-3333-4333-8333-333333333333}"_s), bookmark,
                                     u"Report.pdf"_s, when.addSecs(-120), u"/home/u/Report.pdf"_s, false);
    ShelfItem pathless = ShelfItem::file(QUuid(u"{44444444-4444-4444-8444-444444444444}"_s), {},
                                         u"Pasted Image.png"_s, when.addDays(-1), {}, true);
    pathless.filePath.reset();
    const QList<ShelfItem> items{text, link, file, pathless};

    const QByteArray expected = fixture("shelf.json");
    QVERIFY(!expected.isEmpty());
    const QByteArray written = ShelfFile::encode(items);
    if (written != expected)
        qWarning().noquote() << "written:\n" << written;
    QCOMPARE(written, expected);

    QString error;
    const std::optional<QList<ShelfItem>> read = ShelfFile::decode(expected, &error);
    QVERIFY2(read, qPrintable(error));
    QCOMPARE(*read, items);
}

void tst_ShelfItem::decodingRefuses_data() {
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("error");
    const auto item = [](const char* kind) {
        return QByteArray(R"([{"id":"11111111-1111-4111-8111-111111111111","displayName":"n",)"
                          R"("addedAt":"2024-03-09T14:05:59Z","isStoredCopy":false,"kind":)") +
               kind + "}]";
    };
    const QString keys = u"Invalid number of keys found, expected one."_s;
    QTest::addRow("a kind with no key") << item("{}") << keys;
    QTest::addRow("a kind with two keys")
        << item(R"({"text":{"string":"a"},"link":{"url":"https://x"}})") << keys;
    QTest::addRow("an unknown kind") << item(R"({"folder":{"path":"/"}})")
                                     << u"Unknown kind of item \"folder\"."_s;
    QTest::addRow("a text without its string")
        << item(R"({"text":{}})") << u"The string of a text item is missing."_s;
    QTest::addRow("a bookmark that isn't base64")
        << item(R"({"file":{"bookmark":"#!"}})") << u"The bookmark of a file item isn't base64."_s;
    QTest::addRow("not a list") << QByteArray("{}") << u"The file isn't a list of items."_s;
    QTest::addRow("no id") << QByteArray(R"([{"kind":{"text":{"string":"a"}}}])")
                           << u"An item has no valid id."_s;
    QTest::addRow("a date that isn't one")
        << QByteArray(R"([{"id":"11111111-1111-4111-8111-111111111111","displayName":"n","addedAt":"soon",)"
                      R"("isStoredCopy":false,"kind":{"text":{"string":"a"}}}])")
        << u"An item has no valid date."_s;
}

void tst_ShelfItem::decodingRefuses() {
    QFETCH(QByteArray, json);
    QFETCH(QString, error);
    QString reason;
    QVERIFY(!ShelfFile::decode(json, &reason));
    QCOMPARE(reason, error);
}

void tst_ShelfItem::storageNames_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("cleaned");
    QTest::addRow("a plain name stays") << u"Holiday photo"_s << u"Holiday photo"_s;
    QTest::addRow("each run of forbidden characters is one dash")
        << u"a/b::c\\?%d*|e\"<f>"_s << u"a-b-c-d-e-f-"_s;
    QTest::addRow("only forbidden characters") << u"/:\\?%*|\"<>"_s << u"-"_s;
    QTest::addRow("empty") << u""_s << u"Item"_s;
    QTest::addRow("80 characters stay") << QString(80, u'n') << QString(80, u'n');
    QTest::addRow("81 are cut to 80") << QString(81, u'n') << QString(80, u'n');
    // 80 characters of four bytes would pass the file system's 255-byte limit with a counter.
    QTest::addRow("long in bytes is cut to 200 bytes")
        << QString(80, u'y').replace(u'y', u"😀"_s) << QString(50, u'y').replace(u'y', u"😀"_s);
}

void tst_ShelfItem::storageNames() {
    QFETCH(QString, name);
    QFETCH(QString, cleaned);
    QCOMPARE(ShelfStorage::cleanBaseName(name), cleaned);
}

void tst_ShelfItem::timestampFormat() {
    const QDateTime local(QDate(2024, 3, 9), QTime(14, 5, 59), Qt::LocalTime);
    QCOMPARE(ShelfStorage::timestamp(local), u"2024-03-09 at 14.05.59"_s);
}

void tst_ShelfItem::hotZone_data() {
    QTest::addColumn<NotchGeometry::ScreenReading>("reading");
    QTest::addColumn<QRectF>("zone");
    // No screen here has a notch: 200 wide, as high as the top bar within 24..38, then grown.
    QTest::addRow("no top bar") << screen({0, 0, 1920, 1080}, 0) << QRectF(760, 0, 400, 48);
    QTest::addRow("a 30-high top bar") << screen({0, 0, 1920, 1080}, 30) << QRectF(760, 0, 400, 54);
    QTest::addRow("a tall bar is clamped") << screen({0, 0, 1920, 1080}, 60) << QRectF(760, 0, 400, 62);
    QTest::addRow("a second screen to the right")
        << screen({1920, 0, 1280, 1024}, 0) << QRectF(2360, 0, 400, 48);
    NotchGeometry::ScreenReading notched = screen({0, 0, 1512, 982}, 0);
    notched.safeTop = 32;
    QTest::addRow("a notch without auxiliary areas") << notched << QRectF(558, 0, 396, 56);
    notched.auxiliaryTopLeftArea = QRectF(0, 0, 660, 32);
    notched.auxiliaryTopRightArea = QRectF(852, 0, 660, 32);
    QTest::addRow("a notch between auxiliary areas") << notched << QRectF(560, 0, 392, 56);
    notched.auxiliaryTopRightArea = QRectF(760, 0, 860, 32);
    QTest::addRow("auxiliary areas that leave nothing") << notched << QRectF(558, 0, 396, 56);
}

void tst_ShelfItem::hotZone() {
    QFETCH(NotchGeometry::ScreenReading, reading);
    QFETCH(QRectF, zone);
    QCOMPARE(ShelfDragZone::forScreen(reading), zone);
    // Its edges from both sides.
    QVERIFY(ShelfDragZone::contains({reading}, zone.topLeft()));
    QVERIFY(ShelfDragZone::contains({reading}, zone.bottomRight()));
    QVERIFY(!ShelfDragZone::contains({reading}, zone.bottomRight() + QPointF(0, 1)));
    QVERIFY(!ShelfDragZone::contains({reading}, zone.topLeft() - QPointF(1, 0)));
}

QTEST_GUILESS_MAIN(tst_ShelfItem)
#include "tst_ShelfItem.moc"
