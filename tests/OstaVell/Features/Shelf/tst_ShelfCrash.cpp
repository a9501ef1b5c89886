// The tray's promise under SIGKILL: a change that has returned is on disk. A child process makes
// 500 changes (texts, links and stored data added, stored copies removed, a link brought back to
// the front) and is killed at random moments; after each kill the tray is loaded afresh and
// must hold exactly the first N changes.
#include "OstaVell/Features/Shelf/ShelfStore.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QTest>

#include "../KillLoop.h"
#include "ShelfTestSupport.h"

using namespace vell;
using namespace vell::test;
using namespace Qt::StringLiterals;

namespace {

constexpr int total = 500;
const QDateTime start = QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC);

// What one item must be: its kind, what it holds (for stored data, its bytes), when. Not the
// stored copy's name: a kill between writing the copy and saving the list leaves the file behind,
// and the same drop made again is stored under the name with " 2".
struct Expected {
    ShelfItem::Kind kind;
    QString content;
    QDateTime addedAt;
    friend bool operator==(const Expected&, const Expected&) = default;
};

QString text(int change) {
    return u"Note %1"_s.arg(change);
}
QUrl link(int change) {
    return QUrl(u"https://example.com/%1"_s.arg(change));
}
QString dataName(int change) {
    return u"clip %1.txt"_s.arg(change);
}
QByteArray data(int change) {
    return "data " + QByteArray::number(change);
}
// The change whose item change c removes or brings back.
int removedBy(int change) {
    return change < 5 ? 0 : change - 6;
}

QList<Expected> modelAfter(int changes) {
    QList<Expected> items;
    for (int c = 0; c < changes; ++c) {
        const QDateTime when = start.addSecs(c);
        switch (c % 5) {
        case 0:
            items.prepend({ShelfItem::Kind::text, text(c), when});
            break;
        case 1:
            items.prepend({ShelfItem::Kind::link, link(c).toString(), when});
            break;
        case 2:
            items.prepend({ShelfItem::Kind::file, QString::fromUtf8(data(c)), when});
            break;
        case 3: {
            const int gone = removedBy(c);
            const QString content = gone == 0 ? text(0) : QString::fromUtf8(data(gone));
            items.removeIf([&](const Expected& item) { return item.content == content; });
            break;
        }
        case 4: {
            const QString content = link(c - 3).toString();
            const auto found = std::find_if(items.begin(), items.end(),
                                            [&](const Expected& item) { return item.content == content; });
            Expected moved = *found;
            items.erase(found);
            moved.addedAt = when;
            items.prepend(moved);
            break;
        }
        }
    }
    return items;
}

QList<Expected> found(const ShelfStore& store) {
    QList<Expected> items;
    for (const ShelfItem& item : store.items()) {
        QString content;
        if (item.kind == ShelfItem::Kind::text)
            content = item.string;
        else if (item.kind == ShelfItem::Kind::link)
            content = item.url.toString();
        else
            content = QString::fromUtf8(item.isStoredCopy && item.filePath ? readAll(*item.filePath) : "?");
        items.append({item.kind, content, item.addedAt});
    }
    return items;
}

bool apply(ShelfStore& store, int change) {
    switch (change % 5) {
    case 0:
        return store.addText(text(change));
    case 1:
        return store.addLink(link(change));
    case 2:
        return store.addData(data(change), u"text/plain"_s, dataName(change));
    case 3: {
        const int gone = removedBy(change);
        for (const ShelfItem& item : store.items())
            if ((gone == 0 && item.string == text(0)) ||
                (item.isStoredCopy && item.filePath && readAll(*item.filePath) == data(gone)))
                return store.remove({ShelfItem::idText(item.id)});
        return false;
    }
    default:
        return store.addLink(link(change - 3));
    }
}

std::unique_ptr<ShelfStore> openTray(const QString& folder, UserDefaults& defaults, int* change) {
    auto store = std::make_unique<ShelfStore>(ShelfLocations(folder + u"/OstaVell"_s), defaults);
    store->clock = [change] { return start.addSecs(*change); };
    return store;
}

} // namespace

class tst_ShelfCrash final : public QObject {
    Q_OBJECT

private slots:
    void everyAcknowledgedChangeSurvivesAKill();
};

void tst_ShelfCrash::everyAcknowledgedChangeSurvivesAKill() {
    QTemporaryDir dir;
    UserDefaults defaults(dir.filePath(u"OstaVell.conf"_s));
    QList<QList<Expected>> states;
    for (int n = 0; n <= total; ++n)
        states.append(modelAfter(n));

    const KillLoopResult result = runKillLoop({u"--tray-child"_s, dir.path()}, total, [&] {
        int none = 0;
        const auto store = openTray(dir.path(), defaults, &none);
        const QList<Expected> items = found(*store);
        const qsizetype n = states.indexOf(items);
        // Each change leaves a state no other prefix has, so the match names one N.
        if (n < 0 || states.lastIndexOf(items) != n)
            return -1;
        return int(n);
    });
    QVERIFY2(result.failure.isEmpty(), qPrintable(result.failure));
    QCOMPARE(result.held, total);
    qInfo("%d kills", result.kills);
    QVERIFY(result.kills > 10);
}

// The app of the kill test: from the given change on, one change after the other, each
// acknowledged once it has returned.
static int runChild(const QString& folder, int from) {
    UserDefaults defaults(folder + u"/OstaVell.conf"_s);
    int change = from;
    const auto store = openTray(folder, defaults, &change);
    for (; change < total; ++change) {
        if (!apply(*store, change)) {
            std::fprintf(stderr, "change %d refused: %s\n", change, qPrintable(store->notice()));
            return 1;
        }
        acknowledge(change);
    }
    return 0;
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() == 4 && arguments.at(1) == u"--tray-child")
        return runChild(arguments.at(2), arguments.at(3).toInt());
    tst_ShelfCrash test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "tst_ShelfCrash.moc"
