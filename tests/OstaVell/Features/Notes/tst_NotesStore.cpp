// The notes store on its own file: the older list form, the debounced save, the save at quit,
// the orders of the list, and what happens to a file that can't be decoded, can't be read, or
// can't be written.

#include "OstaVell/Features/Notes/NotesFile.h"
#include "OstaVell/Features/Notes/NotesStore.h"
#include "OstaVell/Support/FileManagerReveal.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QDBusConnection>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <cstdio>
#include <memory>
#include <sys/stat.h>

#include "OwnerPermissions.h"

using namespace vell;
using namespace vell::test;

namespace {

const QByteArray olderList = R"([
  {"id": "0B5C1D4E-1111-4A2B-9C3D-000000000001", "text": "first", "createdAt": "2023-01-02T03:04:05Z",
   "updatedAt": "2023-02-03T04:05:06Z"},
  {"id": "0b5c1d4e-1111-4a2b-9c3d-000000000002", "text": "second\nline", "createdAt": "2023-01-01T00:00:00Z",
   "updatedAt": "2023-01-01T00:00:00Z"}
])";

QDateTime day(int n) {
    return QDateTime(QDate(2024, 3, n), QTime(12, 0), Qt::UTC);
}

// Notes as the file lists them: text, created on day c, edited on day u.
QList<NotesItem> notesOf(const QList<std::tuple<QString, int, int>>& specs) {
    QList<NotesItem> notes;
    for (const auto& [text, created, updated] : specs)
        notes.append(NotesItem{QUuid::createUuid(), text, day(created), day(updated)});
    return notes;
}

QStringList texts(const QList<NotesItem>& notes) {
    QStringList list;
    for (const NotesItem& note : notes)
        list.append(note.text);
    return list;
}

class FakeFileManager final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

public:
    QStringList shown;

public slots:
    void ShowItems(const QStringList& uris, const QString&) { shown += uris; }
};

} // namespace

class tst_NotesStore final : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<UserDefaults> m_defaults;
    QString m_path;

    std::unique_ptr<NotesStore> makeStore(std::chrono::milliseconds delay = NotesStore::defaultSaveDelay) {
        return std::make_unique<NotesStore>(m_path, delay, m_defaults.get());
    }
    void writeFile(const QByteArray& data) {
        QVERIFY(QDir().mkpath(QFileInfo(m_path).absolutePath()));
        QFile file(m_path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(data), data.size());
    }
    QByteArray readFile(const QString& path = {}) const {
        QFile file(path.isEmpty() ? m_path : path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private slots:
    void init() {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_path = m_dir->filePath("OstaVell/notes.json");
        m_defaults = std::make_unique<UserDefaults>(m_dir->filePath("config/OstaVell.conf"));
    }

    void olderListLoadsAndIsWrittenAsANotesFile() {
        writeFile(olderList);
        auto store = makeStore();
        QCOMPARE(store->notes().size(), 2);
        const NotesItem first = store->notes().at(0);
        QCOMPARE(first.id, QUuid("0B5C1D4E-1111-4A2B-9C3D-000000000001"));
        QCOMPARE(first.text, "first");
        QCOMPARE(first.createdAt, QDateTime(QDate(2023, 1, 2), QTime(3, 4, 5), Qt::UTC));
        QCOMPARE(first.updatedAt, QDateTime(QDate(2023, 2, 3), QTime(4, 5, 6), Qt::UTC));
        QCOMPARE(store->notes().at(1).id, QUuid("0B5C1D4E-1111-4A2B-9C3D-000000000002"));
        // Loading alone writes nothing.
        QVERIFY(!store->dirty());
        QCOMPARE(readFile(), olderList);

        store->deleteNote(store->notes().at(1).id);
        store->saveNow();

        const QByteArray saved = readFile();
        const QJsonObject object = QJsonDocument::fromJson(saved).object();
        QCOMPARE(object.value("version").toInt(), NotesFile::currentVersion);
        const QJsonArray notes = object.value("notes").toArray();
        QCOMPARE(notes.size(), 1);
        // Ids upper case, dates ISO 8601 in UTC, keys sorted, indented.
        const QJsonObject note = notes.at(0).toObject();
        QCOMPARE(note.value("id").toString(), "0B5C1D4E-1111-4A2B-9C3D-000000000001");
        QCOMPARE(note.value("createdAt").toString(), "2023-01-02T03:04:05Z");
        QVERIFY(saved.startsWith("{\n    \"notes\": [\n        {\n            \"createdAt\": "));

        QCOMPARE(makeStore()->notes(), store->notes());
    }

    void undecodableFileIsSetAside_data() {
        QTest::addColumn<QByteArray>("contents");
        QTest::addRow("not JSON") << QByteArray("{ notes: ");
        QTest::addRow("empty file") << QByteArray();
        QTest::addRow("object without notes") << QByteArray(R"({"version": 1})");
        QTest::addRow("bad id") << QByteArray(
            R"([{"id": "nope", "text": "", "createdAt": "2023-01-02T03:04:05Z",)"
            R"( "updatedAt": "2023-01-02T03:04:05Z"}])");
        QTest::addRow("date as a number")
            << QByteArray(R"([{"id": "0B5C1D4E-1111-4A2B-9C3D-000000000001", "text": "", "createdAt": 7,)"
                          R"( "updatedAt": "2023-01-02T03:04:05Z"}])");
    }

    // The bad file replaces an earlier casualty, and the store starts empty and works.
    void undecodableFileIsSetAside() {
        QFETCH(QByteArray, contents);
        writeFile(contents);
        {
            QFile older(m_path + ".corrupt");
            QVERIFY(older.open(QIODevice::WriteOnly));
            older.write("an older casualty");
        }

        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression("^load failed, keeping corrupt file aside: .+"));
        auto store = makeStore();
        QVERIFY(store->notes().isEmpty());
        QVERIFY(!store->storageUnavailable());
        QVERIFY(!QFile::exists(m_path));
        QCOMPARE(readFile(m_path + ".corrupt"), contents);

        QVERIFY(store->addNote("after the crash"));
        store->saveNow();
        QCOMPARE(texts(makeStore()->notes()), QStringList{"after the crash"});
    }

    // Whatever can't be read stays where it is, untouched; the store is empty, says so, and
    // takes no note. A file at the bound is read (and, being garbage, set aside); one byte more
    // is not read at all.
    void unreadableFileIsKept_data() {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<bool>("kept");
        QTest::addRow("no read permission") << "mode 000" << true;
        QTest::addRow("a folder") << "folder" << true;
        QTest::addRow("a named pipe") << "fifo" << true;
        QTest::addRow("one byte over the bound") << "over" << true;
        QTest::addRow("exactly at the bound") << "at" << false;
    }

    void unreadableFileIsKept() {
        QFETCH(QString, kind);
        QFETCH(bool, kept);
        QVERIFY(QDir().mkpath(QFileInfo(m_path).absolutePath()));
        if (kind == "mode 000") {
            writeFile(olderList);
            QVERIFY(QFile::setPermissions(m_path, {}));
        } else if (kind == "over" || kind == "at") {
            writeFile(QByteArray(NotesStore::maximumFileBytes + (kind == "over" ? 1 : 0), ' '));
        } else if (kind == "folder") {
            QVERIFY(QDir().mkpath(m_path));
        } else {
            QCOMPARE(::mkfifo(QFile::encodeName(m_path).constData(), 0600), 0);
        }
        const QFileInfo before(m_path);

        OwnerPermissions asTheUser;
        if (!kept)
            QTest::ignoreMessage(QtWarningMsg,
                                 QRegularExpression("^load failed, keeping corrupt file aside"));
        auto store = makeStore();
        QCOMPARE(store->storageUnavailable(), kept);
        if (!kept) {
            QVERIFY(!QFile::exists(m_path));
            return;
        }
        QVERIFY2(store->notice().contains(m_path), qPrintable(store->notice()));
        QVERIFY(store->notes().isEmpty());
        QVERIFY(!store->addNote("refused"));
        QVERIFY(store->newNote().isEmpty());
        QVERIFY(store->notes().isEmpty());
        QVERIFY(!store->dirty());
        store->saveNow();
        const QFileInfo after(m_path);
        QVERIFY(after.exists());
        QCOMPARE(after.isDir(), before.isDir());
        QCOMPARE(after.size(), before.size());
        QCOMPARE(after.lastModified(), before.lastModified());
        QVERIFY(!QFile::exists(m_path + ".corrupt"));
    }

    void editsInsertAtTheTopAndFindById() {
        auto store = makeStore();
        const QDateTime then(QDate(2024, 1, 1), QTime(9, 0), Qt::UTC);
        const QUuid a = *store->addNote("a", then);
        const QUuid b = *store->addNote("b", then);
        QCOMPARE(store->notes().at(0).id, b);

        QVERIFY(store->updateText(a, "a, edited"));
        QCOMPARE(store->note(a)->text, "a, edited");
        QCOMPARE(store->note(a)->createdAt, then);
        QVERIFY(store->note(a)->updatedAt > then);
        QCOMPARE(store->notes().at(1).id, a);
        // The same text again is no edit: no new date, nothing to save.
        const QDateTime edited = store->note(a)->updatedAt;
        store->saveNow();
        QVERIFY(!store->updateText(a, "a, edited"));
        QCOMPARE(store->note(a)->updatedAt, edited);
        QVERIFY(!store->dirty());

        const std::optional<QUuid> copy = store->duplicateNote(a);
        QVERIFY(copy.has_value());
        QVERIFY(*copy != a);
        QCOMPARE(store->notes().at(0).id, *copy);
        QCOMPARE(store->notes().at(0).text, "a, edited");
        QVERIFY(store->notes().at(0).createdAt > then);

        QVERIFY(store->deleteNote(b));
        QVERIFY(!store->note(b).has_value());
        QVERIFY(!store->deleteNote(b));
        QVERIFY(!store->updateText(b, "gone"));
        QVERIFY(!store->duplicateNote(b));
        QCOMPARE(store->notes().size(), 2);
        QVERIFY(!store->note(std::nullopt));
    }

    // The views' side, by the ids' text.
    void theViewsWorkByIdText() {
        auto store = makeStore();
        const QString id = store->newNote();
        QCOMPARE(id, store->notes().first().id.toString(QUuid::WithoutBraces).toUpper());
        QVERIFY(store->setText(id.toLower(), "\n  \nTitle line\nbody"));
        QCOMPARE(store->text(id), "\n  \nTitle line\nbody");
        const QString copy = store->duplicate(id);
        QVERIFY(!copy.isEmpty() && copy != id);
        QCOMPARE(store->sortedNotes().size(), 2);
        QCOMPARE(store->sortedNotes().first().toMap().value("preview").toString(), "Title line");
        QVERIFY(store->remove(copy));
        for (const QString& bad : {QString(), QString("nope"), QUuid::createUuid().toString()}) {
            QVERIFY(!store->setText(bad, "x"));
            QVERIFY(!store->remove(bad));
            QVERIFY(store->duplicate(bad).isEmpty());
            QVERIFY(store->text(bad).isEmpty());
        }
        QCOMPARE(store->notes().size(), 1);
    }

    // Every write ends a dirty spell, so the number of spells is the number of writes.
    void tenChangesWithinTheDelayWriteOnce() {
        auto store = makeStore();
        const QUuid id = *store->addNote();
        store->saveNow();
        QVERIFY(!store->dirty());

        QSignalSpy dirtyChanged(store.get(), &NotesStore::dirtyChanged);
        for (int i = 1; i <= 10; ++i)
            store->updateText(id, QString("draft %1").arg(i));
        QVERIFY(store->dirty());
        QVERIFY(!readFile().contains("draft"));

        QVERIFY(dirtyChanged.wait());
        QVERIFY(!store->dirty());
        QCOMPARE(dirtyChanged.count(), 2);
        QVERIFY(readFile().contains("\"draft 10\""));
    }

    // The app quits a quarter of a second after the last key: the quit writes the note.
    void quitAfterTypingWritesTheFile() {
        QProcess app;
        app.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        app.start(QCoreApplication::applicationFilePath(), {"--type-and-quit", m_path});
        QVERIFY(app.waitForFinished(60000));
        QCOMPARE(app.exitStatus(), QProcess::NormalExit);
        QCOMPARE(app.exitCode(), 0);
        QCOMPARE(app.readAllStandardOutput(), QByteArray("dirty at quit\n"));
        QCOMPARE(texts(makeStore()->notes()), QStringList{"typed just before quitting"});
    }

    void absentFileIsEmptyAndSaveNowWritesOnlyWhenDirty() {
        QTest::failOnWarning(QRegularExpression(".*"));
        auto store = makeStore();
        QVERIFY(store->notes().isEmpty());
        store->saveNow();
        QVERIFY(!QFile::exists(m_path));

        store->addNote("quit soon after typing");
        store->saveNow();
        QVERIFY(!store->dirty());
        QVERIFY(readFile().contains("quit soon after typing"));
    }

    // A failed save keeps the notes dirty, logs, and says so; the next save that works clears
    // the notice. Memory keeps the text: typing never waits for the disk.
    void failedSaveKeepsDirtyAndSaysSo_data() {
        QTest::addColumn<bool>("readOnlyFolder");
        QTest::addRow("folder is a file") << false;
        QTest::addRow("read-only folder") << true;
    }

    void failedSaveKeepsDirtyAndSaysSo() {
        QFETCH(bool, readOnlyFolder);
        const QString folder = QFileInfo(m_path).absolutePath();
        auto store = makeStore();
        if (readOnlyFolder) {
            QVERIFY(QDir().mkpath(folder));
            QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner));
        } else {
            QFile blocker(folder);
            QVERIFY(blocker.open(QIODevice::WriteOnly));
        }
        store->addNote("nowhere to go");
        {
            OwnerPermissions asTheUser;
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^save failed: .+"));
            store->saveNow();
        }
        QVERIFY(store->dirty());
        QVERIFY2(store->notice().startsWith("Your notes weren't saved ("), qPrintable(store->notice()));
        QCOMPARE(texts(store->notes()), QStringList{"nowhere to go"});

        if (readOnlyFolder)
            QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        else
            QVERIFY(QFile::remove(folder));
        store->saveNow();
        QVERIFY(!store->dirty());
        QVERIFY(store->notice().isEmpty());
        QCOMPARE(texts(makeStore()->notes()), QStringList{"nowhere to go"});
    }

    // Notes the loader would refuse as too large are never written: at the bound they are saved,
    // one byte more is refused.
    void notesOverTheBoundAreNotSaved() {
        auto probe = makeStore();
        probe->addNote("a", day(1));
        probe->saveNow();
        const qint64 oneLetter = readFile().size();
        const qint64 room = NotesStore::maximumFileBytes - oneLetter;
        for (const qint64 extra : {room, room + 1}) {
            init();
            auto store = makeStore();
            const bool fits = extra == room;
            store->addNote(QString(1 + extra, u'a'), day(1));
            if (!fits)
                QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^save failed: "));
            store->saveNow();
            QCOMPARE(store->dirty(), !fits);
            QCOMPARE(QFileInfo(m_path).size(), fits ? NotesStore::maximumFileBytes : 0);
            if (!fits)
                QVERIFY(store->notice().startsWith("Your notes weren't saved ("));
        }
    }

    void firstLinePreview_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("preview");
        QTest::addRow("empty") << QString() << "New Note";
        QTest::addRow("only blank lines") << QString("\n   \n\t\n") << "New Note";
        QTest::addRow("first non-blank line, trimmed")
            << QString("\n  Shopping list \nmilk") << "Shopping list";
        QTest::addRow("carriage returns") << QString("\r\n\r\nTitle\r\nbody") << "Title";
        QTest::addRow("markup is text") << QString("<b>bold</b>\nrest") << "<b>bold</b>";
    }

    void firstLinePreview() {
        QFETCH(QString, text);
        NotesItem item;
        item.text = text;
        QTEST(item.firstLinePreview(), "preview");
    }

    // Each order is stable: equal keys keep the file's order. Titles compare case-insensitively
    // as the locale orders them.
    void sortOrders_data() {
        QTest::addColumn<QString>("order");
        QTest::addColumn<QString>("locale");
        QTest::addColumn<QStringList>("expected");
        QTest::addRow("recently edited") << "recentlyEdited"
                                         << "en_US" << QStringList({"b", "d", "a", "c", "e"});
        QTest::addRow("recently created") << "recentlyCreated"
                                          << "en_US" << QStringList({"e", "c", "a", "b", "d"});
        QTest::addRow("title, English")
            << "alphabetical"
            << "en_US" << QStringList({"Apple", "apple", "äpple", "Banana", "\n\n", "zebra"});
        QTest::addRow("title, Swedish")
            << "alphabetical"
            << "sv_SE" << QStringList({"Apple", "apple", "Banana", "\n\n", "zebra", "äpple"});
    }

    void sortOrders() {
        QFETCH(QString, order);
        QFETCH(QString, locale);
        QFETCH(QStringList, expected);
        const QList<NotesItem> notes =
            order == "alphabetical"
                ? notesOf({{"zebra", 1, 1},
                           {"Apple", 2, 2},
                           {"\n\n", 3, 3},
                           {"apple", 4, 4},
                           {"äpple", 5, 5},
                           {"Banana", 6, 6}})
                : notesOf({{"a", 3, 5}, {"b", 2, 9}, {"c", 4, 5}, {"d", 2, 7}, {"e", 6, 1}});
        const std::optional<NotesSortOrder::Order> parsed = NotesSortOrder::fromRaw(order);
        QVERIFY(parsed);
        QCOMPARE(texts(NotesSortOrder::sorted(notes, *parsed, QLocale(locale))), expected);

        // The store orders its list the same way, in the user's locale.
        QLocale::setDefault(QLocale(locale));
        const auto restore = qScopeGuard([] { QLocale::setDefault(QLocale::c()); });
        {
            NotesFile file;
            file.notes = notes;
            writeFile(file.toData());
        }
        auto store = makeStore();
        store->setSortOrder(order);
        QStringList shown;
        for (const QVariant& note : store->sortedNotes())
            shown.append(store->text(note.toMap().value("id").toString()));
        QCOMPARE(shown, expected);
    }

    void settings() {
        auto store = makeStore();
        QCOMPARE(store->fontSize(), NotesStore::defaultFontSize);
        QCOMPARE(store->sortOrder(), "recentlyEdited");
        QCOMPARE(store->selectedNoteID(), QString());
        const QStringList labels = [&] {
            QStringList list;
            for (const QVariant& order : store->sortOrders())
                list.append(order.toMap().value("label").toString());
            return list;
        }();
        QCOMPARE(labels, QStringList({"Recently Edited", "Recently Created", QString("Title (A\u2013Z)")}));

        QSignalSpy changed(store.get(), &NotesStore::settingsChanged);
        store->setSortOrder("newest");
        QCOMPARE(store->sortOrder(), "recentlyEdited");
        m_defaults->setValue(QString(NotesStore::sortOrderKey), "sideways");
        QCOMPARE(store->sortOrder(), "recentlyEdited");
        store->setSortOrder("alphabetical");
        store->setFontSize(17);
        const QString id = store->newNote();
        store->setSelectedNoteID(id.toLower());
        QCOMPARE(store->selectedNoteID(), id);
        QCOMPARE(m_defaults->stringValue(QString(NotesStore::selectedNoteKey)), id);
        store->setSelectedNoteID("not an id");
        QCOMPARE(store->selectedNoteID(), QString());
        QCOMPARE(changed.count(), 5);
        QCOMPARE(store->fontSize(), 17.0);
        QCOMPARE(store->sortOrder(), "alphabetical");
    }

    void revealShowsTheNotesFile() {
        QDBusConnection other = QDBusConnection::connectToBus(QDBusConnection::SessionBus, "file-manager");
        FakeFileManager manager;
        QVERIFY(other.registerObject(FileManagerReveal::path, &manager, QDBusConnection::ExportAllSlots));
        QVERIFY(other.registerService(FileManagerReveal::service));
        makeStore()->revealInFileManager();
        QTRY_COMPARE(manager.shown, QStringList{QUrl::fromLocalFile(m_path).toString(QUrl::FullyEncoded)});
        other.unregisterService(FileManagerReveal::service);
        QDBusConnection::disconnectFromBus("file-manager");
    }
};

// The app of the quit test: a store on the given file, a note typed, and a quit a quarter of a
// second later. The save delay is long here, so the quit alone can have written the note.
static int typeAndQuit(const QString& path) {
    NotesStore* store = nullptr;
    QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit,
                     [&store] { std::printf(store->dirty() ? "dirty at quit\n" : "clean at quit\n"); });
    NotesStore notes(path, std::chrono::minutes(10));
    store = &notes;
    notes.addNote("typed just before quitting");
    QTimer::singleShot(250, QCoreApplication::instance(), &QCoreApplication::quit);
    return QCoreApplication::exec();
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() == 3 && arguments.at(1) == u"--type-and-quit")
        return typeAndQuit(arguments.at(2));
    tst_NotesStore test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "tst_NotesStore.moc"
