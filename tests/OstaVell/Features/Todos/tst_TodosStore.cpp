// The to-do store on its own file: the file's exact form, the operations' edge cases, the sweep's
// cut-off from both sides, and what happens to a file that can't be decoded, can't be read, or
// can't be written.

#include "OstaVell/Features/Todos/TodosStore.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <memory>
#include <sys/stat.h>

#include "OwnerPermissions.h"

using namespace vell;
using namespace vell::test;

namespace {

const QDateTime t0(QDate(2024, 5, 1), QTime(9, 30), Qt::UTC);

QByteArray fixture(const char* name) {
    QFile file(qEnvironmentVariable("VELL_TEST_DATA") + u'/' + QLatin1String(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("missing fixture");
}

QString idText(const TodoItem& item) {
    return item.id.toString(QUuid::WithoutBraces).toUpper();
}

QStringList titles(const QList<TodoItem>& items) {
    QStringList list;
    for (const TodoItem& item : items)
        list.append(item.title);
    return list;
}

} // namespace

class tst_TodosStore final : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<UserDefaults> m_defaults;
    QString m_path;
    QDateTime m_now;

    std::unique_ptr<TodosStore> makeStore() {
        return std::make_unique<TodosStore>(
            m_path, [this] { return m_now; }, m_defaults.get());
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
    // Two hours after t0, a store holding "Open" (a favourite), "Done" (done just now) and "Old"
    // (done at t0, archived).
    std::unique_ptr<TodosStore> populated() {
        m_now = t0;
        auto store = makeStore();
        store->add("Open");
        store->add("Done");
        store->add("Old");
        store->toggleFavorite(idText(store->todos().at(0)));
        store->toggleDone(idText(store->todos().at(2)));
        m_defaults->setValue(QString(TodosStore::autoArchiveHoursKey), 1);
        m_now = t0.addSecs(2 * 3600);
        store->archiveSweep(m_now);
        store->toggleDone(idText(store->todos().at(1)));
        m_defaults->remove(QString(TodosStore::autoArchiveHoursKey));
        return store;
    }

private slots:
    void init() {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_path = m_dir->filePath("OstaVell/todos.json");
        m_defaults = std::make_unique<UserDefaults>(m_dir->filePath("config/OstaVell.conf"));
        m_now = t0;
    }

    // The file's form is fixed byte for byte: indented, keys sorted, instants in ISO 8601, ids in
    // upper case, an absent completion left out. What the store writes after one change to the
    // first fixture is the second.
    void fileFormIsPinned() {
        QCOMPARE(TodosDocument().toData(),
                 QByteArray("{\n    \"active\": [\n    ],\n    \"archived\": [\n    ]\n}\n"));
        const QByteArray before = fixture("todos-before.json");
        const QByteArray after = fixture("todos-after.json");
        const std::optional<TodosDocument> document = TodosDocument::fromData(before);
        QVERIFY(document.has_value());
        QCOMPARE(document->toData(), before);

        writeFile(before);
        m_now = QDateTime(QDate(2024, 5, 2), QTime(18, 5, 9, 750), Qt::UTC);
        auto store = makeStore();
        QVERIFY(store->toggleDone("6F1C8D2E-0B7A-4C59-9E3D-2A1B0C9D8E7F"));
        QCOMPARE(readFile(), after);
        // Memory holds what the file holds, to the second.
        QCOMPARE(TodosDocument::fromData(after)->active, store->todos());
    }

    void addTrimsAndRefusesBlankTitles_data() {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("stored");
        QTest::addRow("spaces only") << "     " << QString();
        QTest::addRow("new lines and tabs") << "\n\t \r\n" << QString();
        QTest::addRow("no-break and ideographic spaces") << QString("\u00A0\u3000") << QString();
        QTest::addRow("empty") << "" << QString();
        QTest::addRow("trimmed at both ends") << "  Buy milk \n"
                                              << "Buy milk";
        QTest::addRow("inner line break kept") << "a\nb"
                                               << "a\nb";
        QTest::addRow("markup is text") << "<b>bold</b>"
                                        << "<b>bold</b>";
    }

    void addTrimsAndRefusesBlankTitles() {
        QFETCH(QString, title);
        QFETCH(QString, stored);
        auto store = makeStore();
        QSignalSpy changed(store.get(), &TodosStore::listsChanged);
        QCOMPARE(store->add(title), !stored.isEmpty());
        if (stored.isEmpty()) {
            QVERIFY(store->todos().isEmpty());
            QCOMPARE(changed.count(), 0);
            QVERIFY(!QFile::exists(m_path));
            return;
        }
        QCOMPARE(store->todos().size(), 1);
        const TodoItem item = store->todos().first();
        QCOMPARE(item.title, stored);
        QVERIFY(!item.done && !item.favorite && !item.completedAt);
        QCOMPARE(item.createdAt, t0);
        QCOMPARE(makeStore()->todos(), store->todos());
    }

    void doneOpenDoneKeepsTheLaterCompletion() {
        auto store = makeStore();
        store->add("Water plants");
        const QString id = idText(store->todos().first());
        store->toggleDone(id);
        QCOMPARE(store->todos().first().completedAt, t0);
        QCOMPARE(store->openCount(), 0);
        QCOMPARE(store->doneCount(), 1);

        m_now = t0.addSecs(600);
        store->toggleDone(id);
        QVERIFY(!store->todos().first().done);
        QVERIFY(!store->todos().first().completedAt);

        m_now = t0.addSecs(3600);
        store->toggleDone(id);
        QCOMPARE(store->todos().first().completedAt, t0.addSecs(3600));
        // So the delay starts anew: a day after the first completion it is not yet due.
        QVERIFY(!store->archiveSweep(t0.addSecs(24 * 3600)));
        QVERIFY(store->archiveSweep(t0.addSecs(25 * 3600)));
        QCOMPARE(titles(store->archived()), QStringList{"Water plants"});
    }

    // The cut-off is now minus the delay: an item completed exactly then is archived, one
    // completed a second later stays; "Never" keeps everything however old.
    void sweepCutOff_data() {
        QTest::addColumn<QVariant>("hours");
        QTest::addColumn<qint64>("age");
        QTest::addColumn<bool>("archived");
        QTest::addRow("default, exactly a day") << QVariant() << qint64(24 * 3600) << true;
        QTest::addRow("default, a second short") << QVariant() << qint64(24 * 3600 - 1) << false;
        QTest::addRow("1 hour, exactly") << QVariant(1) << qint64(3600) << true;
        QTest::addRow("1 hour, a second short") << QVariant(1) << qint64(3599) << false;
        QTest::addRow("one week, exactly") << QVariant(168) << qint64(168 * 3600) << true;
        QTest::addRow("one week, a second short") << QVariant(168) << qint64(168 * 3600 - 1) << false;
        QTest::addRow("never, ten years") << QVariant(0) << qint64(10LL * 365 * 24 * 3600) << false;
        QTest::addRow("negative is never") << QVariant(-5) << qint64(10LL * 365 * 24 * 3600) << false;
    }

    void sweepCutOff() {
        QFETCH(QVariant, hours);
        QFETCH(qint64, age);
        QFETCH(bool, archived);
        if (hours.isValid())
            m_defaults->setValue(QString(TodosStore::autoArchiveHoursKey), hours);
        auto store = makeStore();
        store->add("First");
        store->add("Due");
        store->add("Last");
        store->toggleDone(idText(store->todos().at(1)));
        const QByteArray before = readFile();

        QCOMPARE(store->archiveSweep(t0.addSecs(age)), archived);
        if (archived) {
            QCOMPARE(titles(store->todos()), QStringList({"First", "Last"}));
            QCOMPARE(titles(store->archived()), QStringList{"Due"});
            QCOMPARE(makeStore()->archived(), store->archived());
        } else {
            QCOMPARE(titles(store->todos()), QStringList({"First", "Due", "Last"}));
            // A sweep with nothing due writes nothing.
            QCOMPARE(readFile(), before);
        }
    }

    void sweepKeepsTheListsOrder() {
        m_defaults->setValue(QString(TodosStore::autoArchiveHoursKey), 1);
        auto store = makeStore();
        for (const char* title : {"a", "b", "c", "d", "e"})
            store->add(title);
        store->toggleDone(idText(store->todos().at(3)));
        store->toggleDone(idText(store->todos().at(0)));
        store->toggleDone(idText(store->todos().at(2)));
        QVERIFY(store->archiveSweep(t0.addSecs(3600)));
        QCOMPARE(titles(store->todos()), QStringList({"b", "e"}));
        QCOMPARE(titles(store->archived()), QStringList({"a", "c", "d"}));
    }

    void theTimerSweeps() {
        m_defaults->setValue(QString(TodosStore::autoArchiveHoursKey), 1);
        auto store = makeStore();
        store->add("Due");
        store->toggleDone(idText(store->todos().first()));
        auto* timer = store->findChild<QTimer*>();
        QVERIFY(timer);
        QCOMPARE(timer->interval(), TodosStore::sweepIntervalMs);
        QCOMPARE(timer->timerType(), Qt::CoarseTimer);
        QVERIFY(timer->isActive());
        QVERIFY(!timer->isSingleShot());
        // Its clock is the store's: an hour on, the next tick archives.
        m_now = t0.addSecs(3600);
        timer->start(1);
        QTRY_COMPARE(titles(store->archived()), QStringList{"Due"});
    }

    void restoreDeleteAndClear() {
        auto store = populated();
        QCOMPARE(titles(store->todos()), QStringList({"Open", "Done"}));
        QCOMPARE(titles(store->archived()), QStringList{"Old"});

        // Unknown ids change nothing and write nothing.
        const QByteArray before = readFile();
        QSignalSpy changed(store.get(), &TodosStore::listsChanged);
        for (const QString& id : {QUuid::createUuid().toString(), QString("not an id"), QString()}) {
            QVERIFY(!store->restore(id));
            QVERIFY(!store->deleteArchived(id));
            QVERIFY(!store->toggleDone(id));
            QVERIFY(!store->toggleFavorite(id));
            QVERIFY(!store->deleteItem(id));
        }
        // An archived item is not in the list, and a listed one is not in the archive.
        QVERIFY(!store->toggleDone(idText(store->archived().first())));
        QVERIFY(!store->restore(idText(store->todos().first())));
        QCOMPARE(changed.count(), 0);
        QCOMPARE(readFile(), before);

        // Restored: open again, at the end of the list.
        QVERIFY(store->restore(idText(store->archived().first())));
        QCOMPARE(titles(store->todos()), QStringList({"Open", "Done", "Old"}));
        const TodoItem restored = store->todos().last();
        QVERIFY(!restored.done && !restored.completedAt);
        QVERIFY(store->archived().isEmpty());
        QVERIFY(!store->clearArchive());

        QVERIFY(store->deleteItem(idText(store->todos().at(1))));
        QCOMPARE(titles(store->todos()), QStringList({"Open", "Old"}));
        m_defaults->setValue(QString(TodosStore::autoArchiveHoursKey), 1);
        store->toggleDone(idText(store->todos().at(1)));
        QVERIFY(store->archiveSweep(m_now.addSecs(3600)));
        QVERIFY(store->deleteArchived(idText(store->archived().first())));
        QVERIFY(store->archived().isEmpty());
        QCOMPARE(makeStore()->todos(), store->todos());
    }

    void favouritesComeFirstInTheListsOrder() {
        auto store = makeStore();
        for (const char* title : {"a", "b", "c", "d"})
            store->add(title);
        store->toggleFavorite(idText(store->todos().at(3)));
        store->toggleFavorite(idText(store->todos().at(1)));
        QCOMPARE(titles(TodosStore::favoritesFirst(store->todos())), QStringList({"b", "d", "a", "c"}));
        QStringList shown;
        for (const QVariant& item : store->items())
            shown.append(item.toMap().value("title").toString());
        QCOMPARE(shown, QStringList({"b", "d", "a", "c"}));
        // The file keeps the list's own order.
        QCOMPARE(titles(makeStore()->todos()), QStringList({"a", "b", "c", "d"}));
    }

    // A file that can't be decoded goes aside, replacing an earlier casualty, and the store
    // starts empty and works.
    void undecodableFileGoesAside_data() {
        QTest::addColumn<QByteArray>("contents");
        QTest::addRow("not JSON") << QByteArray("{ active: ");
        QTest::addRow("empty") << QByteArray();
        QTest::addRow("a list") << QByteArray("[]");
        QTest::addRow("no archive") << QByteArray(R"({"active": []})");
        QTest::addRow("date as a number") << QByteArray(
            R"({"active": [{"createdAt": 7, "done": false, "favorite": false,)"
            R"( "id": "6F1C8D2E-0B7A-4C59-9E3D-2A1B0C9D8E7F", "title": "x"}], "archived": []})");
        QTest::addRow("done as text") << QByteArray(
            R"({"active": [{"createdAt": "2024-05-01T09:30:00Z", "done": "no", "favorite": false,)"
            R"( "id": "6F1C8D2E-0B7A-4C59-9E3D-2A1B0C9D8E7F", "title": "x"}], "archived": []})");
        QTest::addRow("bad id") << QByteArray(
            R"({"active": [], "archived": [{"createdAt": "2024-05-01T09:30:00Z", "done": true,)"
            R"( "favorite": false, "id": "nope", "title": "x"}]})");
    }

    void undecodableFileGoesAside() {
        QFETCH(QByteArray, contents);
        const QString aside = m_path + ".corrupt";
        for (const QByteArray& attempt : {QByteArray("the first casualty"), contents}) {
            writeFile(attempt);
            QTest::ignoreMessage(
                QtWarningMsg,
                QRegularExpression(
                    R"(^failed to decode todos\.json \(.+\); backing it up and starting fresh$)"));
            auto store = makeStore();
            QVERIFY(store->todos().isEmpty() && store->archived().isEmpty());
            QVERIFY(!store->storageUnavailable());
            QVERIFY(store->notice().isEmpty());
            QVERIFY(!QFile::exists(m_path));
            QCOMPARE(readFile(aside), attempt);
        }
        auto store = makeStore();
        QVERIFY(store->add("after the crash"));
        QCOMPARE(titles(makeStore()->todos()), QStringList{"after the crash"});
        QCOMPARE(readFile(aside), contents);
    }

    // Whatever can't be read stays where it is, untouched; the store is empty, says so, and
    // refuses every change. A file at the bound is read (and, being garbage, set aside); one
    // byte more is not read at all.
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
        if (kind == "mode 000" || kind == "over" || kind == "at") {
            const qint64 size = TodosStore::maximumFileBytes + (kind == "over" ? 1 : 0);
            writeFile(kind == "mode 000" ? QByteArray(R"({"active": [], "archived": []})")
                                         : QByteArray(size, ' '));
            if (kind == "mode 000")
                QVERIFY(QFile::setPermissions(m_path, {}));
        } else if (kind == "folder") {
            QVERIFY(QDir().mkpath(m_path));
        } else {
            QCOMPARE(::mkfifo(QFile::encodeName(m_path).constData(), 0600), 0);
        }
        const QFileInfo before(m_path);

        OwnerPermissions asTheUser;
        if (!kept)
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^failed to decode todos.json"));
        auto store = makeStore();
        QCOMPARE(store->storageUnavailable(), kept);
        if (!kept) {
            QVERIFY(!QFile::exists(m_path));
            QVERIFY(store->add("works"));
            return;
        }
        QVERIFY2(store->notice().contains(m_path), qPrintable(store->notice()));
        QVERIFY(store->todos().isEmpty());
        QSignalSpy changed(store.get(), &TodosStore::listsChanged);
        QVERIFY(!store->add("refused"));
        QVERIFY(!store->archiveSweep(t0.addYears(1)));
        QCOMPARE(changed.count(), 0);
        QVERIFY(store->notice().contains(m_path));
        const QFileInfo after(m_path);
        QCOMPARE(after.exists(), true);
        QCOMPARE(after.isDir(), before.isDir());
        QCOMPARE(after.size(), before.size());
        QCOMPARE(after.lastModified(), before.lastModified());
        QVERIFY(!QFile::exists(m_path + ".corrupt"));
    }

    // A change whose save fails is not made: memory, file and signals stay as they were, the
    // log says "save failed" and the notice says the change wasn't saved. The next change once
    // the folder can be written again goes through and clears the notice.
    void failedSaveChangesNothing_data() {
        QTest::addColumn<QString>("operation");
        for (const char* operation : {"add", "toggleDone", "toggleFavorite", "delete", "restore",
                                      "deleteArchived", "clearArchive", "sweep"})
            QTest::addRow("%s", operation) << QString(operation);
    }

    void failedSaveChangesNothing() {
        QFETCH(QString, operation);
        auto store = populated();
        m_defaults->setValue(QString(TodosStore::autoArchiveHoursKey), 1);
        const QList<TodoItem> todos = store->todos();
        const QList<TodoItem> archived = store->archived();
        const QByteArray before = readFile();
        const QString folder = QFileInfo(m_path).absolutePath();
        const auto apply = [&] {
            if (operation == "add")
                return store->add("New");
            if (operation == "toggleDone")
                return store->toggleDone(idText(todos.at(0)));
            if (operation == "toggleFavorite")
                return store->toggleFavorite(idText(todos.at(1)));
            if (operation == "delete")
                return store->deleteItem(idText(todos.at(0)));
            if (operation == "restore")
                return store->restore(idText(archived.at(0)));
            if (operation == "deleteArchived")
                return store->deleteArchived(idText(archived.at(0)));
            if (operation == "clearArchive")
                return store->clearArchive();
            return store->archiveSweep(m_now.addSecs(7200));
        };

        QSignalSpy changed(store.get(), &TodosStore::listsChanged);
        {
            OwnerPermissions asTheUser;
            QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner));
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^save failed: .+"));
            QVERIFY(!apply());
            QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        }
        QCOMPARE(store->todos(), todos);
        QCOMPARE(store->archived(), archived);
        QCOMPARE(changed.count(), 0);
        QCOMPARE(readFile(), before);
        QVERIFY2(store->notice().startsWith("This change wasn't saved ("), qPrintable(store->notice()));
        QVERIFY(!store->storageUnavailable());

        QVERIFY(apply());
        QCOMPARE(changed.count(), 1);
        QVERIFY(store->notice().isEmpty());
        QCOMPARE(makeStore()->todos(), store->todos());
    }

    // A list the loader would refuse as too large is never written: at the bound it is saved,
    // one byte more is refused.
    void aListOverTheBoundIsNotSaved() {
        auto probe = makeStore();
        probe->add("a");
        const qint64 oneLetter = readFile().size();
        const qint64 room = TodosStore::maximumFileBytes - oneLetter;
        for (const qint64 extra : {room, room + 1}) {
            init();
            auto store = makeStore();
            const bool fits = extra == room;
            if (!fits)
                QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^save failed: "));
            QCOMPARE(store->add(QString(1 + extra, u'a')), fits);
            QCOMPARE(QFileInfo(m_path).size(), fits ? TodosStore::maximumFileBytes : 0);
            QCOMPARE(store->todos().size(), fits ? 1 : 0);
            if (fits)
                QCOMPARE(makeStore()->todos().size(), 1);
            else
                QVERIFY(store->notice().startsWith("This change wasn't saved ("));
        }
    }

    void settingsAreReadAtTheMomentOfUse() {
        auto store = makeStore();
        QCOMPARE(store->autoArchiveHours(), 24.0);
        QVERIFY(!store->showArchived());
        QSignalSpy changed(store.get(), &TodosStore::settingsChanged);
        store->setAutoArchiveHours(6);
        m_defaults->setValue(QString(TodosStore::showArchivedKey), true);
        QCOMPARE(changed.count(), 2);
        QCOMPARE(store->autoArchiveHours(), 6.0);
        QVERIFY(store->showArchived());
        QCOMPARE(m_defaults->doubleValue(QString(TodosStore::autoArchiveHoursKey), 0), 6.0);
    }
};

QTEST_GUILESS_MAIN(tst_TodosStore)
#include "tst_TodosStore.moc"
