#include "OstaVell/Features/Notes/NotesFile.h"
#include "OstaVell/Features/Notes/NotesStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace vell;

namespace {

const QByteArray olderList = R"([
  {"id": "0B5C1D4E-1111-4A2B-9C3D-000000000001", "text": "first", "createdAt": "2023-01-02T03:04:05Z",
   "updatedAt": "2023-02-03T04:05:06Z"},
  {"id": "0b5c1d4e-1111-4a2b-9c3d-000000000002", "text": "second\nline", "createdAt": "2023-01-01T00:00:00Z",
   "updatedAt": "2023-01-01T00:00:00Z"}
])";

} // namespace

class tst_NotesStore final : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_path;

    void writeFile(const QByteArray& data) {
        QVERIFY(QDir().mkpath(QFileInfo(m_path).absolutePath()));
        QFile file(m_path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(data);
    }

    QByteArray readFile() const {
        QFile file(m_path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private slots:
    void init() {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_path = m_dir->filePath("OstaVell/notes.json");
    }

    void olderListLoadsAndIsWrittenAsANotesFile() {
        writeFile(olderList);
        NotesStore store(m_path);
        QCOMPARE(store.notes().size(), 2);
        const NotesItem first = store.notes().at(0);
        QCOMPARE(first.id, QUuid("0B5C1D4E-1111-4A2B-9C3D-000000000001"));
        QCOMPARE(first.text, "first");
        QCOMPARE(first.createdAt, QDateTime(QDate(2023, 1, 2), QTime(3, 4, 5), Qt::UTC));
        QCOMPARE(first.updatedAt, QDateTime(QDate(2023, 2, 3), QTime(4, 5, 6), Qt::UTC));
        QCOMPARE(store.notes().at(1).id, QUuid("0B5C1D4E-1111-4A2B-9C3D-000000000002"));

        store.deleteNote(store.notes().at(1).id);
        store.saveNow();

        const QByteArray saved = readFile();
        const QJsonObject object = QJsonDocument::fromJson(saved).object();
        QCOMPARE(object.value("version").toInt(), NotesFile::currentVersion);
        const QJsonArray notes = object.value("notes").toArray();
        QCOMPARE(notes.size(), 1);
        // Ids upper case, dates ISO 8601 in UTC.
        const QJsonObject note = notes.at(0).toObject();
        QCOMPARE(note.value("id").toString(), "0B5C1D4E-1111-4A2B-9C3D-000000000001");
        QCOMPARE(note.value("createdAt").toString(), "2023-01-02T03:04:05Z");

        NotesStore reloaded(m_path);
        QCOMPARE(reloaded.notes(), store.notes());
    }

    void unusableFileIsSetAside_data() {
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

    void unusableFileIsSetAside() {
        QFETCH(QByteArray, contents);
        writeFile(contents);
        {
            QFile older(m_path + ".corrupt");
            QVERIFY(older.open(QIODevice::WriteOnly));
            older.write("an older casualty");
        }

        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression("^load failed, keeping corrupt file aside: .+"));
        NotesStore store(m_path);
        QVERIFY(store.notes().isEmpty());
        QVERIFY(!QFile::exists(m_path));
        QFile aside(m_path + ".corrupt");
        QVERIFY(aside.open(QIODevice::ReadOnly));
        QCOMPARE(aside.readAll(), contents);
    }

    void editsInsertAtTheTopAndFindById() {
        NotesStore store(m_path);
        const QDateTime then(QDate(2024, 1, 1), QTime(9, 0), Qt::UTC);
        const QUuid a = store.addNote("a", then);
        const QUuid b = store.addNote("b", then);
        QCOMPARE(store.notes().at(0).id, b);

        store.updateText(a, "a, edited");
        QCOMPARE(store.note(a)->text, "a, edited");
        QCOMPARE(store.note(a)->createdAt, then);
        QVERIFY(store.note(a)->updatedAt > then);
        QCOMPARE(store.notes().at(1).id, a);

        const std::optional<QUuid> copy = store.duplicateNote(a);
        QVERIFY(copy.has_value());
        QVERIFY(*copy != a);
        QCOMPARE(store.notes().at(0).id, *copy);
        QCOMPARE(store.notes().at(0).text, "a, edited");
        QVERIFY(store.notes().at(0).createdAt > then);

        store.deleteNote(b);
        QVERIFY(!store.note(b).has_value());
        QCOMPARE(store.notes().size(), 2);
    }

    void burstOfEditsWritesOnce() {
        NotesStore store(m_path);
        const QUuid id = store.addNote();
        store.saveNow();
        QVERIFY(!store.dirty());

        // Every write ends a dirty spell, so the number of spells is the number of writes.
        QSignalSpy dirtyChanged(&store, &NotesStore::dirtyChanged);
        for (int i = 1; i <= 10; ++i)
            store.updateText(id, QString("draft %1").arg(i));
        QVERIFY(store.dirty());
        QVERIFY(!readFile().contains("draft"));

        QVERIFY(dirtyChanged.wait());
        QVERIFY(!store.dirty());
        QCOMPARE(dirtyChanged.count(), 2);
        QVERIFY(readFile().contains("\"draft 10\""));
    }

    void absentFileIsEmptyAndSaveNowWritesOnlyWhenDirty() {
        QTest::failOnWarning(QRegularExpression(".*"));
        NotesStore store(m_path);
        QVERIFY(store.notes().isEmpty());
        store.saveNow();
        QVERIFY(!QFile::exists(m_path));

        store.addNote("quit soon after typing");
        store.saveNow();
        QVERIFY(!store.dirty());
        QVERIFY(readFile().contains("quit soon after typing"));
    }

    void failedSaveLogsAndStaysDirty() {
        QFile blocker(m_dir->filePath("OstaVell"));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();

        NotesStore store(m_path);
        store.addNote("nowhere to go");
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^save failed: .+"));
        store.saveNow();
        QVERIFY(store.dirty());
    }

    void firstLinePreview_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("preview");
        QTest::addRow("empty") << QString() << "New Note";
        QTest::addRow("only blank lines") << QString("\n   \n\t\n") << "New Note";
        QTest::addRow("first non-blank line, trimmed")
            << QString("\n  Shopping list \nmilk") << "Shopping list";
        QTest::addRow("carriage returns") << QString("\r\n\r\nTitle\r\nbody") << "Title";
    }

    void firstLinePreview() {
        QFETCH(QString, text);
        NotesItem item;
        item.text = text;
        QTEST(item.firstLinePreview(), "preview");
    }
};

QTEST_GUILESS_MAIN(tst_NotesStore)
#include "tst_notesstore.moc"
