// What comes onto the tray by a drop or the clipboard, and what leaves it for other programs:
// copies, the file manager (played by python3-dbusmock on the private bus) and KDE Connect's
// client (a script on PATH that records what it is asked).
#include "OstaVell/Features/Shelf/ShelfStore.h"

#include <QClipboard>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QGuiApplication>
#include <QImage>
#include <QMimeData>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include "ShelfTestSupport.h"

using namespace vell;
using namespace vell::test;
using namespace Qt::StringLiterals;

namespace {

// "kind:name" of each item, newest first.
QStringList shape(const ShelfStore& store) {
    QStringList list;
    for (const ShelfItem& item : store.items()) {
        const char* kind = item.kind == ShelfItem::Kind::file   ? (item.isStoredCopy ? "stored" : "file")
                           : item.kind == ShelfItem::Kind::link ? "link"
                                                                : "text";
        list.append(QLatin1String(kind) + u':' + item.displayName);
    }
    return list;
}

struct MockService {
    QString name;
    QString path;
    QString interface;
};

const MockService fileManager{u"org.freedesktop.FileManager1"_s, u"/org/freedesktop/FileManager1"_s,
                              u"org.freedesktop.FileManager1"_s};
const MockService previewer{u"org.gnome.NautilusPreviewer"_s, u"/org/gnome/NautilusPreviewer"_s,
                            u"org.gnome.NautilusPreviewer"_s};

QDBusMessage mockCall(const MockService& service, const QString& method, const QVariantList& arguments) {
    QDBusMessage call =
        QDBusMessage::createMethodCall(service.name, service.path, u"org.freedesktop.DBus.Mock"_s, method);
    call.setArguments(arguments);
    return QDBusConnection::sessionBus().call(call);
}

// The arguments of each call of the method the mock received, as text.
QList<QStringList> calls(const MockService& service, const QString& method) {
    const QDBusMessage reply = mockCall(service, u"GetMethodCalls"_s, {method});
    QList<QStringList> found;
    if (reply.type() != QDBusMessage::ReplyMessage)
        return found;
    const QDBusArgument list = reply.arguments().first().value<QDBusArgument>();
    list.beginArray();
    while (!list.atEnd()) {
        list.beginStructure();
        quint64 when = 0;
        QVariantList arguments;
        list >> when >> arguments;
        list.endStructure();
        QStringList texts;
        for (const QVariant& argument : std::as_const(arguments)) {
            if (argument.metaType() == QMetaType::fromType<QDBusArgument>())
                texts.append(qdbus_cast<QStringList>(argument.value<QDBusArgument>()).join(u'|'));
            else if (argument.metaType() == QMetaType::fromType<QStringList>())
                texts.append(argument.toStringList().join(u'|'));
            else
                texts.append(argument.toString());
        }
        found.append(texts);
    }
    list.endArray();
    return found;
}

} // namespace

class tst_ShelfStoreUse final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void aDropTakesFilesThenLinksThenTextThenData_data();
    void aDropTakesFilesThenLinksThenTextThenData();
    void pastingTakesFilesThenAnImageThenLinksThenText_data();
    void pastingTakesFilesThenAnImageThenLinksThenText();
    void copyingWritesURLsAndTexts();
    void revealAsksTheFileManagerForTheFiles();
    void quickLookShowsFilesAndTextsInThePreviewer();
    void sendingGoesThroughKDEConnectWhenItIsInstalled();

private:
    void startMock(QProcess& process, const MockService& service, const QString& method,
                   const QString& signature);

    QProcess m_fileManager;
    QProcess m_previewer;
};

void tst_ShelfStoreUse::startMock(QProcess& process, const MockService& service, const QString& method,
                                  const QString& signature) {
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(u"/usr/bin/python3"_s,
                  {u"-m"_s, u"dbusmock"_s, service.name, service.path, service.interface});
    QVERIFY(process.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(QDBusConnection::sessionBus().interface()->isServiceRegistered(service.name),
                             15000);
    const QDBusMessage added =
        mockCall(service, u"AddMethod"_s, {service.interface, method, signature, u""_s, u""_s});
    QCOMPARE(added.type(), QDBusMessage::ReplyMessage);
}

void tst_ShelfStoreUse::initTestCase() {
    startMock(m_fileManager, fileManager, u"ShowItems"_s, u"ass"_s);
    startMock(m_previewer, previewer, u"ShowFile"_s, u"sib"_s);
}

void tst_ShelfStoreUse::cleanupTestCase() {
    for (QProcess* mock : {&m_fileManager, &m_previewer}) {
        mock->terminate();
        mock->waitForFinished();
    }
}

void tst_ShelfStoreUse::aDropTakesFilesThenLinksThenTextThenData_data() {
    QTest::addColumn<QStringList>("urls");     // "@a" and "@b" stand for two files that exist
    QTest::addColumn<QString>("text");         // set when not empty
    QTest::addColumn<QStringList>("formats");  // further formats, each with its name as data
    QTest::addColumn<QStringList>("expected"); // newest first
    QTest::addRow("two files, the last dropped first")
        << QStringList{u"@a"_s, u"@b"_s} << u""_s << QStringList()
        << QStringList{u"file:b.txt"_s, u"file:a.txt"_s};
    QTest::addRow("a file and a web address")
        << QStringList{u"@a"_s, u"https://example.com/x"_s} << u""_s << QStringList()
        << QStringList{u"link:example.com"_s, u"file:a.txt"_s};
    QTest::addRow("a browser's link: the address, not its title")
        << QStringList{u"https://example.com/x"_s} << u"Example page"_s << QStringList()
        << QStringList{u"link:example.com"_s};
    QTest::addRow("a file that isn't there, then the text")
        << QStringList{u"file:///nowhere/gone.txt"_s} << u"some words"_s << QStringList()
        << QStringList{u"text:some words"_s};
    QTest::addRow("text alone that is an address")
        << QStringList() << u"https://example.org"_s << QStringList() << QStringList{u"link:example.org"_s};
    QTest::addRow("image data alone is stored")
        << QStringList() << u""_s << QStringList{u"application/x-qt-image"_s, u"image/png"_s}
        << QStringList{u"stored:Dropped @.png"_s};
    QTest::addRow("nothing usable") << QStringList() << u""_s << QStringList{u"application/x-qt-image"_s}
                                    << QStringList();
}

void tst_ShelfStoreUse::aDropTakesFilesThenLinksThenTextThenData() {
    QFETCH(QStringList, urls);
    QFETCH(QString, text);
    QFETCH(QStringList, formats);
    QFETCH(QStringList, expected);
    TrayFolder folder;
    QVERIFY(writeAll(folder.path() + u"/a.txt"_s, "a") && writeAll(folder.path() + u"/b.txt"_s, "b"));
    QMimeData data;
    QList<QUrl> list;
    for (const QString& url : std::as_const(urls))
        list.append(url.startsWith(u'@') ? QUrl::fromLocalFile(folder.path() + u'/' + url.mid(1) + u".txt"_s)
                                         : QUrl(url));
    if (!list.isEmpty())
        data.setUrls(list);
    if (!text.isEmpty())
        data.setText(text);
    for (const QString& format : std::as_const(formats))
        data.setData(format, format.toUtf8());
    auto store = folder.open();
    QCOMPARE(store->ingest(data), !expected.isEmpty());
    QStringList found = shape(*store);
    // The time in a generated name is the wall clock's.
    found.replaceInStrings(QRegularExpression(u"\\d{4}-\\d\\d-\\d\\d at \\d\\d\\.\\d\\d\\.\\d\\d"_s), u"@"_s);
    QCOMPARE(found, expected);
    if (!formats.isEmpty() && !expected.isEmpty())
        QCOMPARE(readAll(*store->items().first().filePath), "image/png");
}

void tst_ShelfStoreUse::pastingTakesFilesThenAnImageThenLinksThenText_data() {
    QTest::addColumn<QString>("content");
    QTest::addColumn<QStringList>("expected");
    QTest::addRow("files before the rest") << u"files"_s << QStringList{u"file:a.txt"_s};
    QTest::addRow("an image as a PNG") << u"image"_s << QStringList{u"stored:Pasted Image @.png"_s};
    QTest::addRow("a web address") << u"link"_s << QStringList{u"link:example.com"_s};
    QTest::addRow("text") << u"text"_s << QStringList{u"text:pasted words"_s};
    QTest::addRow("nothing") << u"empty"_s << QStringList();
}

void tst_ShelfStoreUse::pastingTakesFilesThenAnImageThenLinksThenText() {
    QFETCH(QString, content);
    QFETCH(QStringList, expected);
    TrayFolder folder;
    QVERIFY(writeAll(folder.path() + u"/a.txt"_s, "a"));
    auto* data = new QMimeData;
    if (content == u"files") {
        data->setUrls({QUrl::fromLocalFile(folder.path() + u"/a.txt"_s)});
        data->setText(u"ignored"_s);
    } else if (content == u"image") {
        QImage image(4, 3, QImage::Format_RGB32);
        image.fill(Qt::red);
        data->setImageData(image);
        data->setText(u"ignored"_s);
    } else if (content == u"link") {
        data->setUrls({QUrl(u"https://example.com/page"_s)});
    } else if (content == u"text") {
        data->setText(u"pasted words"_s);
    }
    QGuiApplication::clipboard()->setMimeData(data);
    auto store = folder.open();
    QCOMPARE(store->pasteFromClipboard(), !expected.isEmpty());
    QStringList found = shape(*store);
    found.replaceInStrings(QRegularExpression(u"\\d{4}-\\d\\d-\\d\\d at \\d\\d\\.\\d\\d\\.\\d\\d"_s), u"@"_s);
    QCOMPARE(found, expected);
    if (content == u"image") {
        const QImage stored(*store->items().first().filePath, "PNG");
        QCOMPARE(stored.size(), QSize(4, 3));
        QCOMPARE(stored.pixelColor(0, 0), QColor(Qt::red));
    }
}

void tst_ShelfStoreUse::copyingWritesURLsAndTexts() {
    TrayFolder folder;
    const QString file = folder.path() + u"/a.txt"_s;
    QVERIFY(writeAll(file, "a"));
    auto store = folder.open();
    QVERIFY(store->addFiles({QUrl::fromLocalFile(file)}));
    QVERIFY(store->addLink(QUrl(u"https://example.com/x"_s)));
    QVERIFY(store->addText(u"hello"_s));
    QStringList all;
    for (const ShelfItem& item : store->items())
        all.append(ShelfItem::idText(item.id));
    store->copyToPasteboard(all);
    const QMimeData* copied = QGuiApplication::clipboard()->mimeData();
    QVERIFY(copied);
    QCOMPARE(copied->urls(), QList<QUrl>({QUrl(u"https://example.com/x"_s), QUrl::fromLocalFile(file)}));
    QCOMPARE(copied->text(), u"hello\nhttps://example.com/x"_s);

    // Only the given items.
    store->copyToPasteboard({all.first()});
    QVERIFY(!QGuiApplication::clipboard()->mimeData()->hasUrls());
    QCOMPARE(QGuiApplication::clipboard()->text(), u"hello"_s);
}

void tst_ShelfStoreUse::revealAsksTheFileManagerForTheFiles() {
    QCOMPARE(mockCall(fileManager, u"ClearCalls"_s, {}).type(), QDBusMessage::ReplyMessage);
    TrayFolder folder;
    const QString first = folder.path() + u"/My File.txt"_s;
    QVERIFY(writeAll(first, "a"));
    auto store = folder.open();
    QVERIFY(store->addFiles({QUrl::fromLocalFile(first)}));
    QVERIFY(store->addData("png", u"image/png"_s, u"shot.png"_s));
    QVERIFY(store->addText(u"not a file"_s));
    QStringList all;
    for (const ShelfItem& item : store->items())
        all.append(ShelfItem::idText(item.id));
    store->revealInFinder(all);
    QTRY_COMPARE_WITH_TIMEOUT(calls(fileManager, u"ShowItems"_s).size(), 1, 15000);
    // The files alone, as URIs, newest first; no startup id.
    const QString stored =
        QUrl::fromLocalFile(folder.storage() + u"/shot.png"_s).toString(QUrl::FullyEncoded);
    QCOMPARE(calls(fileManager, u"ShowItems"_s).first(),
             QStringList({stored + u'|' + QUrl::fromLocalFile(first).toString(QUrl::FullyEncoded), u""_s}));
    QVERIFY(calls(fileManager, u"ShowItems"_s).first().first().contains(u"My%20File.txt"_s));

    // A text alone has no file to show: the file manager isn't asked.
    store->revealInFinder({all.first()});
    store->revealInFinder({all.at(1)});
    QTRY_COMPARE_WITH_TIMEOUT(calls(fileManager, u"ShowItems"_s).size(), 2, 15000);
    QCOMPARE(calls(fileManager, u"ShowItems"_s).size(), 2);
}

void tst_ShelfStoreUse::quickLookShowsFilesAndTextsInThePreviewer() {
    QCOMPARE(mockCall(previewer, u"ClearCalls"_s, {}).type(), QDBusMessage::ReplyMessage);
    TrayFolder folder;
    auto store = folder.open();
    QVERIFY(store->addText(u"Plan: a/b?\nsecond line"_s));
    store->quickLook({ShelfItem::idText(store->items().first().id)});
    QTRY_COMPARE_WITH_TIMEOUT(calls(previewer, u"ShowFile"_s).size(), 1, 15000);
    const QStringList call = calls(previewer, u"ShowFile"_s).first();
    QCOMPARE(call.size(), 3);
    const QUrl shown(call.first());
    QVERIFY(shown.isLocalFile());
    // The text goes to a private temporary file named after its first line.
    QCOMPARE(QFileInfo(shown.toLocalFile()).fileName(), u"Plan- a-b-.txt"_s);
    QVERIFY(shown.toLocalFile().startsWith(qEnvironmentVariable("XDG_RUNTIME_DIR")));
    QCOMPARE(readAll(shown.toLocalFile()), "Plan: a/b?\nsecond line");
    // A link has nothing to preview.
    QVERIFY(store->addLink(QUrl(u"https://example.com"_s)));
    store->quickLook({ShelfItem::idText(store->items().first().id)});
    QVERIFY(store->addText(u"marker"_s));
    store->quickLook({ShelfItem::idText(store->items().first().id)});
    QTRY_COMPARE_WITH_TIMEOUT(calls(previewer, u"ShowFile"_s).size(), 2, 15000);
    QVERIFY(calls(previewer, u"ShowFile"_s).last().first().endsWith(u"/marker.txt"_s));
}

void tst_ShelfStoreUse::sendingGoesThroughKDEConnectWhenItIsInstalled() {
    TrayFolder folder;
    const QString bin = folder.path() + u"/bin"_s;
    const QString log = folder.path() + u"/kdeconnect.log"_s;
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", QFile::encodeName(bin) + ':' + path);
    auto store = folder.open();
    QVERIFY(!store->canSendToDevice());

    QVERIFY(writeAll(bin + u"/kdeconnect-cli"_s,
                     "#!/bin/sh\nfor a in \"$@\"; do printf '[%s]' \"$a\"; done >> '" +
                         QFile::encodeName(log) + "'\necho >> '" + QFile::encodeName(log) +
                         "'\n[ \"$1\" = --list-available ] && printf '\\nphone-1\\nphone-2\\n'\nexit 0\n"));
    QVERIFY(QFile::setPermissions(bin + u"/kdeconnect-cli"_s, QFile::ReadOwner | QFile::ExeOwner));
    QVERIFY(store->canSendToDevice());

    const QString file = folder.path() + u"/a b.txt"_s;
    QVERIFY(writeAll(file, "a"));
    QVERIFY(store->addFiles({QUrl::fromLocalFile(file)}));
    QVERIFY(store->addLink(QUrl(u"https://example.com/x"_s)));
    QVERIFY(store->addText(u"hello there"_s));
    QStringList all;
    for (const ShelfItem& item : store->items())
        all.append(ShelfItem::idText(item.id));
    store->sendToDevice(all);
    const auto lines = [&] { return QString::fromUtf8(readAll(log)).split(u'\n', Qt::SkipEmptyParts); };
    QTRY_COMPARE_WITH_TIMEOUT(lines().size(), 4, 20000);
    qputenv("PATH", path);
    // The first reachable device gets the files and links as they are, the texts as text.
    QCOMPARE(lines(), QStringList({u"[--list-available][--id-only]"_s,
                                   u"[--device][phone-1][--share][https://example.com/x]"_s,
                                   u"[--device][phone-1][--share]["_s + file + u']',
                                   u"[--device][phone-1][--share-text][hello there]"_s}));
}

QTEST_MAIN(tst_ShelfStoreUse)
#include "tst_ShelfStoreUse.moc"
