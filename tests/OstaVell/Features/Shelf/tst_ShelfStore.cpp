// The tray's store on temporary folders: what it takes and how it names it, what it deletes and
// what it never touches, files found again after a move, and its file under faults: damaged,
// unreadable, in a read-only folder, or grown to its bound.
#include "OstaVell/Features/Shelf/ShelfBookmark.h"
#include "OstaVell/Features/Shelf/ShelfFile.h"
#include "OstaVell/Features/Shelf/ShelfStorage.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <sys/stat.h>

#include "ShelfTestSupport.h"

using namespace vell;
using namespace vell::test;
using namespace Qt::StringLiterals;

namespace {

QStringList names(const ShelfStore& store) {
    QStringList list;
    for (const ShelfItem& item : store.items())
        list.append(item.displayName);
    return list;
}

const QString savedNotice = u"The tray could not be saved ("_s;
const QString notKept = u"), so the change was not kept."_s;

} // namespace

class tst_ShelfStore final : public QObject {
    Q_OBJECT

private slots:
    void theSameFileTwiceIsOneItemAtTheFront();
    void textsThatDifferOnlyInOuterBlanksAreOne();
    void textOrLink_data();
    void textOrLink();
    void dataIsStoredUnderCleanedNames_data();
    void dataIsStoredUnderCleanedNames();
    void storageNamesAvoidWhatIsThere();
    void removingDeletesOnlyStoredCopiesInsideTheFolder_data();
    void removingDeletesOnlyStoredCopiesInsideTheFolder();
    void clearDeletesEveryStoredCopy();
    void aDamagedFileIsMovedAsideAndTheTrayWorks_data();
    void aDamagedFileIsMovedAsideAndTheTrayWorks();
    void aBookmarkFindsAMovedFile_data();
    void aBookmarkFindsAMovedFile();
    void aReadOnlyFolderChangesNothing_data();
    void aReadOnlyFolderChangesNothing();
    void theFileBoundHoldsFromBothSides();
    void anUnreadableFileIsKeptAndNeverOverwritten_data();
    void anUnreadableFileIsKeptAndNeverOverwritten();
};

void tst_ShelfStore::theSameFileTwiceIsOneItemAtTheFront() {
    TrayFolder folder;
    const QString a = folder.path() + u"/a.txt"_s;
    const QString b = folder.path() + u"/b.txt"_s;
    QVERIFY(writeAll(a, "a") && writeAll(b, "b"));
    auto store = folder.open();
    QVERIFY(store->addFiles({QUrl::fromLocalFile(a)}));
    QVERIFY(store->addFiles({QUrl::fromLocalFile(b)}));
    const QUuid first = store->items().last().id;
    folder.now = folder.now.addSecs(90);
    QVERIFY(store->addFiles({QUrl::fromLocalFile(a)}));
    QCOMPARE(names(*store), QStringList({u"a.txt"_s, u"b.txt"_s}));
    // The same item, not a second one: its id stays and only its date moves.
    QCOMPARE(store->items().first().id, first);
    QCOMPARE(store->items().first().addedAt, folder.now);
    QCOMPARE(store->items().first().filePath, a);
    QVERIFY(!store->items().first().isStoredCopy);
    // And so it is on disk.
    QCOMPARE(folder.open()->items(), store->items());
    // A file that isn't there is nothing to add.
    QVERIFY(!store->addFiles({QUrl::fromLocalFile(folder.path() + u"/missing"_s)}));
    QCOMPARE(store->count(), 2);
}

void tst_ShelfStore::textsThatDifferOnlyInOuterBlanksAreOne() {
    TrayFolder folder;
    auto store = folder.open();
    QVERIFY(store->addText(u"Call Ana\nabout Friday"_s));
    QVERIFY(store->addText(u"Other"_s));
    folder.now = folder.now.addSecs(5);
    QVERIFY(store->addTextOrLink(u"  \n Call Ana\nabout Friday \t\n"_s));
    QCOMPARE(names(*store), QStringList({u"Call Ana"_s, u"Other"_s}));
    QCOMPARE(store->items().first().string, u"Call Ana\nabout Friday"_s);
    QCOMPARE(store->items().first().addedAt, folder.now);
    // Case is not a blank: a different text.
    QVERIFY(store->addText(u"call ana\nabout friday"_s));
    QCOMPARE(store->count(), 3);
}

void tst_ShelfStore::textOrLink_data() {
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("kind"); // "", "text" or "link"
    QTest::addColumn<QString>("name");
    QTest::addRow("an address alone is a link")
        << u"https://example.com/a"_s << u"link"_s << u"example.com"_s;
    QTest::addRow("in any case") << u"HTTP://Example.com"_s << u"link"_s << u"example.com"_s;
    QTest::addRow("trimmed first") << u"  https://example.com \n"_s << u"link"_s << u"example.com"_s;
    QTest::addRow("an address after a word is a text")
        << u"see https://x"_s << u"text"_s << u"see https://x"_s;
    QTest::addRow("an address before a line is a text")
        << u"https://example.com\nnotes"_s << u"text"_s << u"https://example.com"_s;
    QTest::addRow("a bare domain is a text") << u"example.com"_s << u"text"_s << u"example.com"_s;
    QTest::addRow("another scheme is a text")
        << u"ftp://example.com/f"_s << u"text"_s << u"ftp://example.com/f"_s;
    QTest::addRow("blanks alone are nothing") << u" \n\t "_s << u""_s << u""_s;
}

void tst_ShelfStore::textOrLink() {
    QFETCH(QString, input);
    QFETCH(QString, kind);
    QFETCH(QString, name);
    TrayFolder folder;
    auto store = folder.open();
    QCOMPARE(store->addTextOrLink(input), !kind.isEmpty());
    if (kind.isEmpty()) {
        QCOMPARE(store->count(), 0);
        QVERIFY(!QFile::exists(folder.storeFile()));
        return;
    }
    QCOMPARE(store->count(), 1);
    const ShelfItem& item = store->items().first();
    QCOMPARE(item.kind, kind == u"link" ? ShelfItem::Kind::link : ShelfItem::Kind::text);
    QCOMPARE(item.displayName, name);
}

void tst_ShelfStore::dataIsStoredUnderCleanedNames_data() {
    QTest::addColumn<QStringList>("suggested"); // one drop each
    QTest::addColumn<QString>("type");
    QTest::addColumn<QStringList>("files"); // what the storage folder holds afterwards, as patterns
    QTest::addRow("one name twice gets a counter")
        << QStringList{u"photo.png"_s, u"photo.png"_s, u"photo.jpeg"_s} << u"image/png"_s
        << QStringList{u"photo 2\\.png"_s, u"photo 3\\.png"_s, u"photo\\.png"_s};
    QTest::addRow("forbidden characters become dashes")
        << QStringList{u"a/b:c?.png"_s, u"<|>"_s} << u"image/png"_s
        << QStringList{u"-\\.png"_s, u"a-b-c-\\.png"_s};
    QTest::addRow("no name gets the time")
        << QStringList{u""_s} << u"image/png"_s
        << QStringList{u"Dropped \\d{4}-\\d\\d-\\d\\d at \\d\\d\\.\\d\\d\\.\\d\\d\\.png"_s};
    QTest::addRow("a type without extension keeps the name's")
        << QStringList{u"notes.md"_s} << u"application/x-nobody-knows"_s << QStringList{u"notes\\.md"_s};
    QTest::addRow("a text type") << QStringList{u"clip"_s} << u"text/plain"_s << QStringList{u"clip\\.txt"_s};
}

void tst_ShelfStore::dataIsStoredUnderCleanedNames() {
    QFETCH(QStringList, suggested);
    QFETCH(QString, type);
    QFETCH(QStringList, files);
    TrayFolder folder;
    auto store = folder.open();
    for (const QString& name : std::as_const(suggested))
        QVERIFY(store->addData("bytes of " + name.toUtf8(), type, name));
    const QStringList stored = namesIn(folder.storage());
    QCOMPARE(stored.size(), files.size());
    for (qsizetype i = 0; i < files.size(); ++i)
        QVERIFY2(QRegularExpression(u'^' + files.at(i) + u'$').match(stored.at(i)).hasMatch(),
                 qPrintable(stored.at(i)));
    // Each is an item of its own that owns its copy, named after the file, newest first.
    QCOMPARE(store->count(), suggested.size());
    for (qsizetype i = 0; i < suggested.size(); ++i) {
        const ShelfItem& item = store->items().at(suggested.size() - 1 - i);
        QVERIFY(item.isStoredCopy);
        QCOMPARE(item.displayName, QFileInfo(*item.filePath).fileName());
        QCOMPARE(QFileInfo(*item.filePath).absolutePath(), folder.storage());
        QCOMPARE(readAll(*item.filePath), "bytes of " + suggested.at(i).toUtf8());
    }
    // Nothing to keep is nothing.
    QVERIFY(!store->addData({}, type, u"empty.png"_s));
    QCOMPARE(store->count(), suggested.size());
}

void tst_ShelfStore::storageNamesAvoidWhatIsThere() {
    TrayFolder folder;
    const ShelfStorage storage(folder.storage());
    QString error;
    QCOMPARE(storage.write("1", {}, u"png"_s, &error), folder.storage() + u"/Item.png"_s);
    // A dangling link is taken too: writing there would replace it.
    QVERIFY(QFile::link(folder.path() + u"/gone"_s, folder.storage() + u"/Item 2.png"_s));
    QCOMPARE(storage.write("2", {}, u"png"_s, &error), folder.storage() + u"/Item 3.png"_s);
    QCOMPARE(storage.write("3", u"Item"_s, {}, &error), folder.storage() + u"/Item"_s);
    QCOMPARE(readAll(folder.storage() + u"/Item.png"_s), "1");
    QVERIFY(!QFile::exists(folder.path() + u"/gone"_s));
}

void tst_ShelfStore::removingDeletesOnlyStoredCopiesInsideTheFolder_data() {
    QTest::addColumn<QString>("setup");
    QTest::addColumn<bool>("deleted");
    QTest::addRow("a referenced file stays") << u"referenced"_s << false;
    QTest::addRow("a stored copy goes") << u"stored"_s << true;
    QTest::addRow("a stored copy pointing outside deletes nothing") << u"edited"_s << false;
    QTest::addRow("a link in the folder to a file outside deletes nothing") << u"symlink"_s << false;
    QTest::addRow("a path that climbs out of the folder deletes nothing") << u"dotdot"_s << false;
}

void tst_ShelfStore::removingDeletesOnlyStoredCopiesInsideTheFolder() {
    QFETCH(QString, setup);
    QFETCH(bool, deleted);
    TrayFolder folder;
    const QString outside = folder.path() + u"/Outside.png"_s;
    QVERIFY(writeAll(outside, "precious"));
    QString file;
    {
        auto store = folder.open();
        if (setup == u"referenced") {
            QVERIFY(store->addFiles({QUrl::fromLocalFile(outside)}));
            file = outside;
        } else {
            QVERIFY(store->addData("copy", u"image/png"_s, u"Copy.png"_s));
            file = *store->items().first().filePath;
        }
    }
    if (setup == u"edited" || setup == u"symlink" || setup == u"dotdot") {
        // What the file claims, edited by hand or by anything else that writes there.
        QString claimed = outside;
        if (setup == u"symlink") {
            claimed = folder.storage() + u"/Link.png"_s;
            QVERIFY(QFile::link(outside, claimed));
        } else if (setup == u"dotdot") {
            claimed = folder.storage() + u"/../../Outside.png"_s;
        }
        QByteArray json = readAll(folder.storeFile());
        json.replace(QFile::encodeName(file), QFile::encodeName(claimed));
        QVERIFY(writeAll(folder.storeFile(), json));
        file = outside;
    }
    auto store = folder.open();
    QCOMPARE(store->count(), 1);
    QVERIFY(store->remove({ShelfItem::idText(store->items().first().id)}));
    QCOMPARE(store->count(), 0);
    QCOMPARE(!QFile::exists(file), deleted);
    if (setup != u"stored")
        QCOMPARE(readAll(outside), "precious");
    // An id that isn't there removes nothing and writes nothing.
    QVERIFY(!store->remove({QUuid::createUuid().toString()}));
}

void tst_ShelfStore::clearDeletesEveryStoredCopy() {
    TrayFolder folder;
    const QString referenced = folder.path() + u"/kept.txt"_s;
    QVERIFY(writeAll(referenced, "kept"));
    auto store = folder.open();
    QVERIFY(store->addData("1", u"image/png"_s, u"one.png"_s));
    QVERIFY(store->addData("2", u"image/png"_s, u"two.png"_s));
    QVERIFY(store->addFiles({QUrl::fromLocalFile(referenced)}));
    QVERIFY(store->addText(u"note"_s));
    QVERIFY(store->clear());
    QCOMPARE(store->count(), 0);
    QCOMPARE(namesIn(folder.storage()), QStringList());
    QCOMPARE(readAll(referenced), "kept");
    QCOMPARE(readAll(folder.storeFile()).trimmed(), "[\n]");
}

void tst_ShelfStore::aDamagedFileIsMovedAsideAndTheTrayWorks_data() {
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("reason");
    const QByteArray head = R"([{"id":"11111111-1111-4111-8111-111111111111","displayName":"n",)"
                            R"("addedAt":"2024-03-09T14:05:59Z","isStoredCopy":false,"kind":)";
    QTest::addRow("no JSON") << QByteArray("{ not json") << u"unterminated object"_s;
    QTest::addRow("a kind with two keys") << head + R"({"text":{"string":"a"},"link":{"url":"https://x"}}}])"
                                          << u"Invalid number of keys found, expected one."_s;
    QTest::addRow("a kind with none") << head + "{}}]" << u"Invalid number of keys found, expected one."_s;
}

void tst_ShelfStore::aDamagedFileIsMovedAsideAndTheTrayWorks() {
    QFETCH(QByteArray, bytes);
    QFETCH(QString, reason);
    TrayFolder folder;
    QVERIFY(writeAll(folder.storeFile(), bytes));
    QTest::ignoreMessage(QtWarningMsg,
                         qPrintable(u"failed to decode shelf.json ("_s + reason + u"); backing it up"_s));
    auto store = folder.open();
    QCOMPARE(store->count(), 0);
    QVERIFY(!store->storageUnavailable());
    QVERIFY(store->notice().isEmpty());
    const QStringList files = namesIn(folder.support());
    QCOMPARE(files.size(), 1);
    QVERIFY2(QRegularExpression(u"^shelf\\.json\\.corrupt-[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$"_s)
                 .match(files.first())
                 .hasMatch(),
             qPrintable(files.first()));
    QCOMPARE(readAll(folder.support() + u'/' + files.first()), bytes);
    // And it works: the next change writes a good file beside the damaged one.
    QVERIFY(store->addText(u"fresh"_s));
    QCOMPARE(names(*folder.open()), QStringList{u"fresh"_s});
    QCOMPARE(namesIn(folder.support()).size(), 2);
}

void tst_ShelfStore::aBookmarkFindsAMovedFile_data() {
    QTest::addColumn<QString>("movedTo"); // relative to the test folder; empty: deleted
    QTest::addColumn<bool>("replaced");   // another file at the old path
    QTest::addColumn<bool>("found");
    QTest::addRow("renamed in its folder") << u"docs/Renamed.txt"_s << false << true;
    QTest::addRow("moved into a folder under home") << u"home/Projects/2024/Report.txt"_s << false << true;
    QTest::addRow("moved out of reach") << u"elsewhere/deep/er/Report.txt"_s << false << false;
    QTest::addRow("deleted") << u""_s << false << false;
    QTest::addRow("another file took its place") << u""_s << true << true;
}

void tst_ShelfStore::aBookmarkFindsAMovedFile() {
    QFETCH(QString, movedTo);
    QFETCH(bool, replaced);
    QFETCH(bool, found);
    TrayFolder folder;
    const QString home = folder.path() + u"/home"_s;
    QVERIFY(QDir().mkpath(home));
    const QByteArray oldHome = qgetenv("HOME");
    qputenv("HOME", QFile::encodeName(home));
    const QString original = folder.path() + u"/docs/Report.txt"_s;
    QVERIFY(writeAll(original, "the report"));
    {
        auto store = folder.open();
        QVERIFY(store->addFiles({QUrl::fromLocalFile(original)}));
    }
    QString expected = original;
    if (!movedTo.isEmpty()) {
        expected = folder.path() + u'/' + movedTo;
        QVERIFY(QDir().mkpath(QFileInfo(expected).absolutePath()));
        QVERIFY(QFile::rename(original, expected));
    } else {
        QVERIFY(QFile::remove(original));
    }
    if (replaced)
        QVERIFY(writeAll(original, "a newer report"));

    auto store = folder.open();
    qputenv("HOME", oldHome);
    QCOMPARE(store->count(), 1);
    const ShelfItem item = store->items().first();
    const std::optional<QString> resolved = store->resolvePath(item);
    QCOMPARE(resolved.has_value(), found);
    // The repair reaches the file at once; an item not found keeps its last known path.
    QCOMPARE(item.filePath, found ? expected : original);
    QCOMPARE(ShelfFile::decode(readAll(folder.storeFile()))->first().filePath, item.filePath);
    if (found)
        QCOMPARE(ShelfBookmark::resolve(item.bookmark, {})->path, expected);
}

void tst_ShelfStore::aReadOnlyFolderChangesNothing_data() {
    QTest::addColumn<QString>("change");
    for (const char* change : {"addText", "addLink", "addData", "addFiles", "remove", "clear", "readd"})
        QTest::addRow("%s", change) << QString::fromLatin1(change);
}

void tst_ShelfStore::aReadOnlyFolderChangesNothing() {
    QFETCH(QString, change);
    TrayFolder folder;
    const QString outside = folder.path() + u"/a.txt"_s;
    QVERIFY(writeAll(outside, "a"));
    {
        auto store = folder.open();
        QVERIFY(store->addData("png", u"image/png"_s, u"kept.png"_s));
        QVERIFY(store->addText(u"first"_s));
    }
    const QByteArray before = readAll(folder.storeFile());
    const QStringList storedBefore = namesIn(folder.storage());
    for (const QString& dir : {folder.support(), folder.storage()})
        QVERIFY(QFile::setPermissions(dir, QFile::ReadOwner | QFile::ExeOwner | QFile::ReadOther |
                                               QFile::ExeOther | QFile::ReadGroup | QFile::ExeGroup));
    {
        AsNobody nobody;
        QVERIFY2(!QFile(folder.support() + u"/probe"_s).open(QIODevice::WriteOnly),
                 "the folder must be read-only to this thread");
        auto store = folder.open();
        const QList<ShelfItem> items = store->items();
        QSignalSpy changed(store.get(), &ShelfStore::itemsChanged);
        folder.now = folder.now.addSecs(60);
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(change == u"addData"
                                                    ? u"^failed to store dropped data: Permission denied$"_s
                                                    : u"^save failed: Permission denied$"_s));
        bool done = true;
        if (change == u"addText")
            done = store->addText(u"second"_s);
        else if (change == u"addLink")
            done = store->addLink(QUrl(u"https://example.com"_s));
        else if (change == u"addData")
            done = store->addData("more", u"image/png"_s, u"more.png"_s);
        else if (change == u"addFiles")
            done = store->addFiles({QUrl::fromLocalFile(outside)});
        else if (change == u"remove")
            done = store->remove({ShelfItem::idText(items.last().id)});
        else if (change == u"clear")
            done = store->clear();
        else
            done = store->addText(u"first"_s);
        QVERIFY(!done);
        QCOMPARE(store->items(), items);
        QCOMPARE(changed.count(), 0);
        // Data is stored before its item, so there it is the copy that fails.
        if (change == u"addData")
            QVERIFY2(store->notice().startsWith(u"The dropped data could not be stored ("_s),
                     qPrintable(store->notice()));
        else
            QVERIFY2(store->notice().startsWith(savedNotice) && store->notice().endsWith(notKept),
                     qPrintable(store->notice()));
    }
    QCOMPARE(readAll(folder.storeFile()), before);
    QCOMPARE(namesIn(folder.storage()), storedBefore);
    QCOMPARE(namesIn(folder.support()), QStringList({u"ShelfStorage"_s, u"shelf.json"_s}));

    // Once the folder can be written again the same change goes through and the notice goes.
    for (const QString& dir : {folder.support(), folder.storage()})
        QVERIFY(QFile::setPermissions(dir, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    auto store = folder.open();
    QVERIFY(store->addText(u"second"_s));
    QVERIFY(store->notice().isEmpty());
}

void tst_ShelfStore::theFileBoundHoldsFromBothSides() {
    TrayFolder probe;
    const QString text = QString(300, u'x');
    {
        auto store = probe.open();
        QVERIFY(store->addText(text));
    }
    const qint64 exact = QFileInfo(probe.storeFile()).size();

    // A change that makes the file exactly as large as the bound is kept, and loads again.
    TrayFolder folder;
    auto store = folder.open(exact);
    QVERIFY(store->addText(text));
    QCOMPARE(QFileInfo(folder.storeFile()).size(), exact);
    QCOMPARE(folder.open(exact)->count(), 1);
    QVERIFY(!folder.open(exact)->storageUnavailable());

    // One byte more is refused before anything is written.
    TrayFolder over;
    auto overStore = over.open(exact);
    QVERIFY(!overStore->addText(text + u'x'));
    QCOMPARE(overStore->count(), 0);
    QVERIFY(!QFile::exists(over.storeFile()));
    QCOMPARE(overStore->notice(),
             u"The tray would grow larger than its file may be, so the change was not kept."_s);
}

void tst_ShelfStore::anUnreadableFileIsKeptAndNeverOverwritten_data() {
    QTest::addColumn<QString>("kind");
    QTest::addRow("no permission") << u"permission"_s;
    QTest::addRow("a folder") << u"folder"_s;
    QTest::addRow("a named pipe") << u"fifo"_s;
    QTest::addRow("larger than the bound") << u"large"_s;
}

void tst_ShelfStore::anUnreadableFileIsKeptAndNeverOverwritten() {
    QFETCH(QString, kind);
    TrayFolder folder;
    QVERIFY(QDir().mkpath(folder.support()));
    QVERIFY(QFile::setPermissions(folder.support(), QFile::permissions(folder.support()) | QFile::WriteOther |
                                                        QFile::ExeOther | QFile::ReadOther));
    const QByteArray good = ShelfFile::encode({ShelfItem::text(QUuid::createUuid(), u"mine"_s, folder.now)});
    qint64 bound = ShelfStore::defaultMaximumFileBytes;
    if (kind == u"folder") {
        QVERIFY(QDir().mkpath(folder.storeFile()));
    } else if (kind == u"fifo") {
        QCOMPARE(::mkfifo(QFile::encodeName(folder.storeFile()).constData(), 0600), 0);
    } else {
        QVERIFY(writeAll(folder.storeFile(), good));
        if (kind == u"large")
            bound = good.size() - 1;
        else
            QVERIFY(QFile::setPermissions(folder.storeFile(), {}));
    }
    const QFileInfo before(folder.storeFile());

    std::unique_ptr<ShelfStore> store;
    {
        QTest::ignoreMessage(
            QtWarningMsg, QRegularExpression(u"^can't read shelf\\.json \\(.+\\); leaving it as it is$"_s));
        std::optional<AsNobody> nobody;
        if (kind == u"permission")
            nobody.emplace();
        store = folder.open(bound);
    }
    QVERIFY(store->storageUnavailable());
    QVERIFY2(store->notice().startsWith(u"The tray's file can't be read ("_s), qPrintable(store->notice()));
    QCOMPARE(store->count(), 0);
    const QString notice = store->notice();

    // Every change is refused with that notice, and nothing is written anywhere.
    QVERIFY(!store->addText(u"new"_s));
    QVERIFY(!store->addLink(QUrl(u"https://example.com"_s)));
    QVERIFY(!store->addData("png", u"image/png"_s, u"p.png"_s));
    QVERIFY(!store->clear());
    QCOMPARE(store->notice(), notice);
    QCOMPARE(store->count(), 0);
    QCOMPARE(namesIn(folder.support()), QStringList{u"shelf.json"_s});
    const QFileInfo after(folder.storeFile());
    QCOMPARE(after.lastModified(), before.lastModified());
    QCOMPARE(after.size(), before.size());
    if (kind == u"large" || kind == u"permission") {
        QVERIFY(QFile::setPermissions(folder.storeFile(), QFile::ReadOwner | QFile::WriteOwner));
        QCOMPARE(readAll(folder.storeFile()), good);
    }
}

QTEST_GUILESS_MAIN(tst_ShelfStore)
#include "tst_ShelfStore.moc"
