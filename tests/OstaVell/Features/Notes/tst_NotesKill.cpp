// The notes store under SIGKILL: a child makes 500 changes of a fixed sequence and acknowledges
// each once the store has written it (a short save delay stands for the half second), and is
// killed at random moments. After every kill the notes are loaded as the next launch would load
// them, and they hold exactly the acknowledged changes, or one more that was on its way to disk.
// The states the sequence passes through come from running it once on a store nobody kills.

#include "OstaVell/Features/Notes/NotesStore.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QTemporaryDir>
#include <QTest>

#include "KillLoop.h"

using namespace vell;
using namespace vell::test;

namespace {

constexpr int total = 500;
constexpr std::chrono::milliseconds saveDelay{5};

const NotesItem* at(const QList<NotesItem>& notes, qsizetype index) {
    return notes.isEmpty() ? nullptr : &notes.at(index % notes.size());
}

// Change n of the sequence: new notes, edits, copies and deletions, mixed. One that would change
// nothing adds a note instead, so every change leaves its own state.
void apply(NotesStore& store, int n) {
    const QList<NotesItem> notes = store.notes();
    bool changed = false;
    const auto edit = [&](const NotesItem* note, const QString& text) {
        changed = note && store.updateText(note->id, text);
    };
    switch (n % 6) {
    case 1:
        if (const NotesItem* note = at(notes, n / 6))
            edit(note, note->text + QStringLiteral("\nedit %1").arg(n));
        break;
    case 2:
        changed = at(notes, n * 5) && store.duplicateNote(at(notes, n * 5)->id).has_value();
        break;
    case 3:
        edit(at(notes, 0), QStringLiteral("Rewritten %1").arg(n));
        break;
    case 4:
        changed = notes.size() > 5 && store.deleteNote(notes.last().id);
        break;
    case 5:
        if (const NotesItem* note = at(notes, notes.size() / 2))
            edit(note, QStringLiteral("%1 %2").arg(note->text).arg(n));
        break;
    default:
        break;
    }
    if (!changed)
        store.addNote(QStringLiteral("Note %1").arg(n));
}

// What a state is: the texts in the file's order. Ids and dates are each run's own.
QStringList texts(const NotesStore& store) {
    QStringList list;
    for (const NotesItem& note : store.notes())
        list.append(note.text);
    return list;
}

} // namespace

class tst_NotesKill final : public QObject {
    Q_OBJECT

private slots:
    void nothingAcknowledgedIsLost() {
        QTemporaryDir oracleRoot;
        UserDefaults oracleDefaults(oracleRoot.filePath("OstaVell.conf"));
        NotesStore oracle(oracleRoot.filePath("notes.json"), saveDelay, &oracleDefaults);
        QList<QStringList> states{texts(oracle)};
        for (int n = 0; n < total; ++n) {
            apply(oracle, n);
            states.append(texts(oracle));
        }
        // Each change leaves a state of its own, so a state on disk names how many were made.
        for (int a = 0; a < states.size(); ++a)
            for (int b = a + 1; b < states.size(); ++b)
                QVERIFY2(states.at(a) != states.at(b), qPrintable(QString("states %1 and %2").arg(a).arg(b)));

        QTemporaryDir root;
        UserDefaults defaults(root.filePath("OstaVell.conf"));
        const KillLoopResult result = runKillLoop({"--child", root.path()}, total, [&] {
            const NotesStore reloaded(root.filePath("notes.json"), saveDelay, &defaults);
            return int(states.indexOf(texts(reloaded)));
        });
        QVERIFY2(result.failure.isEmpty(), qPrintable(result.failure));
        QCOMPARE(result.held, total);
        qInfo("%d changes held through %d kills", result.held, result.kills);
        QVERIFY(result.kills > 0);
    }
};

// The app of the kill test: the store on the folder, the sequence from change `from` on, each
// change acknowledged once the store has written it.
static int child(const QString& root, int from) {
    UserDefaults defaults(root + QStringLiteral("/OstaVell.conf"));
    NotesStore store(root + QStringLiteral("/notes.json"), saveDelay, &defaults);
    for (int n = from; n < total; ++n) {
        apply(store, n);
        if (!QTest::qWaitFor([&] { return !store.dirty(); }, 30000))
            return 1;
        acknowledge(n);
    }
    return 0;
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() == 4 && arguments.at(1) == u"--child")
        return child(arguments.at(2), arguments.at(3).toInt());
    tst_NotesKill test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "tst_NotesKill.moc"
