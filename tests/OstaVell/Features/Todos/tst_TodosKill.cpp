// The to-do store under SIGKILL: a child makes 500 changes of a fixed sequence, acknowledging each
// once it has returned, and is killed at random moments. After every kill the list is loaded as
// the next launch would load it, and it holds exactly the acknowledged changes, or one more that
// was on its way to disk. The states the sequence passes through come from running it once on a
// store that nobody kills.

#include "OstaVell/Features/Todos/TodosStore.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QTemporaryDir>
#include <QTest>

#include "KillLoop.h"

using namespace vell;
using namespace vell::test;

namespace {

constexpr int total = 500;
const QDateTime base(QDate(2024, 6, 1), QTime(8, 0), Qt::UTC);

// Change n happens ten minutes after change n - 1.
QDateTime clockAt(int change) {
    return base.addSecs(qint64(change) * 600);
}

QString idAt(const QList<TodoItem>& items, qsizetype index) {
    return items.isEmpty() ? QString() : items.at(index % items.size()).id.toString();
}

// Change n of the sequence: adds, completions, favourites, sweeps, deletions and restores, mixed.
// One that would change nothing adds instead, so every change leaves its own state.
void apply(TodosStore& store, int n) {
    const QString title = QStringLiteral("Task %1").arg(n);
    const QList<TodoItem> todos = store.todos();
    const QList<TodoItem> archived = store.archived();
    bool changed = false;
    switch (n % 8) {
    case 2:
    case 5:
        changed = store.toggleDone(idAt(todos, n / 8));
        break;
    case 3:
        changed = store.toggleFavorite(idAt(todos, n * 3));
        break;
    case 6:
        changed = todos.size() > 6 ? store.deleteItem(idAt(todos, 0)) : store.archiveSweep(clockAt(n));
        break;
    case 7:
        changed = (n / 8) % 2 ? store.restore(idAt(archived, n)) : store.deleteArchived(idAt(archived, 0));
        break;
    default:
        break;
    }
    if (!changed)
        store.add(title);
}

// What a state is, without the ids each run makes afresh.
TodosDocument withoutIds(const TodosStore& store) {
    TodosDocument document{store.todos(), store.archived()};
    for (QList<TodoItem>* list : {&document.active, &document.archived})
        for (TodoItem& item : *list)
            item.id = QUuid();
    return document;
}

struct Folder {
    explicit Folder(const QString& root)
        : defaults(root + QStringLiteral("/OstaVell.conf"))
        , file(root + QStringLiteral("/todos.json")) {
        // Done items are archived an hour (six changes) after their completion.
        defaults.setValue(QString(TodosStore::autoArchiveHoursKey), 1);
    }
    UserDefaults defaults;
    QString file;
};

} // namespace

class tst_TodosKill final : public QObject {
    Q_OBJECT

private slots:
    void nothingAcknowledgedIsLost() {
        // Every state of the sequence, from a run nobody kills.
        QTemporaryDir oracleRoot;
        Folder oracleFolder(oracleRoot.path());
        int now = 0;
        TodosStore oracle(
            oracleFolder.file, [&now] { return clockAt(now); }, &oracleFolder.defaults);
        QList<TodosDocument> states{withoutIds(oracle)};
        for (now = 0; now < total; ++now) {
            apply(oracle, now);
            states.append(withoutIds(oracle));
        }
        // Each change leaves a state of its own, so a state on disk names how many were made.
        for (int a = 0; a < states.size(); ++a)
            for (int b = a + 1; b < states.size(); ++b)
                QVERIFY2(!(states.at(a) == states.at(b)),
                         qPrintable(QString("states %1 and %2").arg(a).arg(b)));

        QTemporaryDir root;
        Folder folder(root.path());
        const KillLoopResult result = runKillLoop({"--child", root.path()}, total, [&] {
            const TodosStore reloaded(
                folder.file, [] { return base; }, &folder.defaults);
            return int(states.indexOf(withoutIds(reloaded)));
        });
        QVERIFY2(result.failure.isEmpty(), qPrintable(result.failure));
        QCOMPARE(result.held, total);
        qInfo("%d changes held through %d kills", result.held, result.kills);
        QVERIFY(result.kills > 0);
    }
};

// The app of the kill test: the store on the folder, the sequence from change `from` on.
static int child(const QString& root, int from) {
    Folder folder(root);
    int now = from;
    TodosStore store(
        folder.file, [&now] { return clockAt(now); }, &folder.defaults);
    for (now = from; now < total; ++now) {
        apply(store, now);
        acknowledge(now);
    }
    return 0;
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() == 4 && arguments.at(1) == u"--child")
        return child(arguments.at(2), arguments.at(3).toInt());
    tst_TodosKill test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "tst_TodosKill.moc"
