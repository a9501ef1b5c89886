// Drag and drop between real X clients: the whole app in this process on a real X server, and
// ShelfDragPeer as the other program, with xdotool moving the pointer as a person would. A file
// dragged from the peer towards the notch opens the tray, and lands on it; a drag that moves no
// content opens nothing; a tile dragged out lands in the peer.
#include "OstaVell/AppDelegate.h"
#include "OstaVell/DisplayShelfController.h"
#include "OstaVell/Features/Shelf/DragDetector.h"
#include "OstaVell/Features/Shelf/ShelfStore.h"
#include "OstaVell/ShelfController.h"
#include "OstaVell/ShelfPanel.h"
#include "OstaVell/Support/SettingsStore.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QApplication>
#include <QCursor>
#include <QQuickStyle>
#include <QScopeGuard>
#include <QScreen>
#include <QSignalSpy>
#include <QTest>

#include <atomic>
#include <thread>

#include "QuickTestSupport.h"
#include "ShelfPeer.h"
#include "ShelfTestSupport.h"

using namespace vell;
using namespace vell::test;
using namespace Qt::StringLiterals;

namespace {

// Near the notch: the top centre of the 1920 wide screen, inside the zone (760..1160, 0..48).
const QPoint nearNotch(960, 20);
const QPoint awayFromNotch(960, 700);
const QPoint peerPlace(120, 640);

void setSetting(QLatin1StringView key, bool value) {
    UserDefaults::instance()->setValue(QString(key), value);
}

} // namespace

class tst_ShelfDragDrop final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();

    void aFileDraggedTowardsTheNotchOpensTheTrayAndLandsOnIt();
    void dragsThatMustNotOpenTheTray_data();
    void dragsThatMustNotOpenTheTray();
    void aTileDraggedOutLandsInAnotherProgram_data();
    void aTileDraggedOutLandsInAnotherProgram();

private:
    DisplayShelfController* panel() const { return m_app->shelf()->panels().first(); }
    QQuickWindow* window() const { return panel()->panel(); }
    QQuickItem* content() const { return window()->contentItem(); }
    // The panel stands where its layout puts it, and takes the pointer there: no animation
    // under way, and its input region grown to its whole frame.
    void settle() const {
        QTRY_COMPARE(window()->geometry(), panel()->frame().toAlignedRect());
        QTRY_COMPARE(panel()->outline(), QRectF(QPointF(), panel()->frame().size()));
    }
    QPoint onScreen(QQuickItem* item) const {
        return item->mapToGlobal(QPointF(item->width() / 2, item->height() / 2)).toPoint();
    }

    std::unique_ptr<AppDelegate> m_app;
    QString m_file;
};

void tst_ShelfDragDrop::initTestCase() {
    QQuickStyle::setStyle(u"Material"_s);
    QVERIFY(pointerTo(awayFromNotch));
    // Only the drag may open the panel here, not the pointer passing over it.
    SettingsStore::instance()->setOpenOnHover(false);
    m_app = std::make_unique<AppDelegate>();
    m_app->applicationDidFinishLaunching();
    QVERIFY(DragDetector::instance()->watching());
    QCOMPARE(panel()->tab(), u"Vell"_s);

    m_file = QDir::homePath() + u"/Quarterly report.txt"_s;
    QVERIFY(writeAll(m_file, "numbers"));
}

void tst_ShelfDragDrop::cleanupTestCase() {
    m_app.reset();
}

void tst_ShelfDragDrop::init() {
    setSetting(ShelfStore::autoOpenOnDragKey, true);
    setSetting(ShelfStore::autoRemoveAfterDragKey, false);
    panel()->collapse();
    QTRY_VERIFY(!panel()->isExpanded());
    panel()->setTab(u"Vell"_s);
    QVERIFY(ShelfStore::instance()->clear() || ShelfStore::instance()->count() == 0);
    QVERIFY(xdotool({u"mouseup"_s, u"1"_s}));
    QVERIFY(pointerTo(awayFromNotch));
    QTRY_VERIFY(!DragDetector::instance()->isMouseDown());
}

void tst_ShelfDragDrop::aFileDraggedTowardsTheNotchOpensTheTrayAndLandsOnIt() {
    DragDetector* detector = DragDetector::instance();
    QSignalSpy fired(detector, &DragDetector::fired);
    DragPeer peer;
    QVERIFY(peer.start({u"source"_s, QUrl::fromLocalFile(m_file).toString(), QString::number(peerPlace.x()),
                        QString::number(peerPlace.y())}));
    const int before = detector->changeCount();

    QVERIFY(pointerTo(peer.centre()));
    QVERIFY(xdotool({u"mousedown"_s, u"1"_s}));
    // The peer took the drag selection: one more change of the drag pasteboard.
    QTRY_VERIFY_WITH_TIMEOUT(detector->changeCount() > before, 20000);
    QVERIFY(!peer.line(u"dragging"_s).isEmpty());
    QVERIFY(!panel()->isExpanded());

    QVERIFY(glide(peer.centre(), nearNotch));
    QTRY_VERIFY_WITH_TIMEOUT(panel()->isExpanded(), 20000);
    QCOMPARE(panel()->tab(), u"Tray"_s);
    QCOMPARE(fired.count(), 1);

    // Over the tray, and dropped.
    QQuickItem* drop = nullptr;
    QTRY_VERIFY((drop = shown(content(), u"dropArea"_s)));
    settle();
    QVERIFY(glide(nearNotch, onScreen(drop), 4));
    // A drag source sends its next position only when the pointer moves again after the
    // target answered the last: the hand keeps moving a little until the tray takes the drag.
    QTRY_VERIFY_WITH_TIMEOUT((pointerTo(onScreen(drop)), drop->property("containsDrag").toBool()), 20000);
    // Still once per drag, however long it stays near.
    QCOMPARE(fired.count(), 1);
    QVERIFY(xdotool({u"mouseup"_s, u"1"_s}));
    QTRY_COMPARE_WITH_TIMEOUT(peer.line(u"dragged"_s), u"dragged copy"_s, 20000);
    QTRY_COMPARE(ShelfStore::instance()->count(), 1);
    const ShelfItem item = ShelfStore::instance()->items().first();
    QCOMPARE(item.kind, ShelfItem::Kind::file);
    QCOMPARE(item.filePath, m_file);
    QCOMPARE(item.displayName, u"Quarterly report.txt"_s);
    QVERIFY(!item.isStoredCopy);
    QVERIFY(!drop->property("containsDrag").toBool());
}

void tst_ShelfDragDrop::dragsThatMustNotOpenTheTray_data() {
    QTest::addColumn<QString>("mode");
    QTest::addColumn<bool>("autoOpen");
    QTest::addRow("a press and move that carries no content") << u"still"_s << true;
    QTest::addRow("a file with auto open switched off") << u"source"_s << false;
}

void tst_ShelfDragDrop::dragsThatMustNotOpenTheTray() {
    QFETCH(QString, mode);
    QFETCH(bool, autoOpen);
    setSetting(ShelfStore::autoOpenOnDragKey, autoOpen);
    DragDetector* detector = DragDetector::instance();
    QSignalSpy fired(detector, &DragDetector::fired);
    DragPeer peer;
    QStringList arguments{mode};
    if (mode == u"source")
        arguments.append(QUrl::fromLocalFile(m_file).toString());
    QVERIFY(peer.start(arguments << QString::number(peerPlace.x()) << QString::number(peerPlace.y())));
    const int before = detector->changeCount();

    QVERIFY(pointerTo(peer.centre()));
    QVERIFY(xdotool({u"mousedown"_s, u"1"_s}));
    QTRY_VERIFY_WITH_TIMEOUT(detector->isMouseDown(), 20000);
    QTRY_VERIFY_WITH_TIMEOUT(!peer.line(u"pressed"_s).isEmpty(), 20000);
    QVERIFY(glide(peer.centre(), nearNotch));
    QVERIFY(glide(nearNotch, nearNotch + QPoint(60, 0), 3));
    QVERIFY(xdotool({u"mouseup"_s, u"1"_s}));
    // The release went past the detector, and with it every move before it.
    QTRY_VERIFY_WITH_TIMEOUT(!detector->isMouseDown(), 20000);
    if (mode == u"source")
        QTRY_VERIFY_WITH_TIMEOUT(!peer.line(u"dragged"_s).isEmpty(), 20000);
    QCOMPARE(detector->changeCount() > before, mode == u"source");
    QCOMPARE(fired.count(), 0);
    QVERIFY(!panel()->isExpanded());
    QCOMPARE(ShelfStore::instance()->count(), 0);
}

void tst_ShelfDragDrop::aTileDraggedOutLandsInAnotherProgram_data() {
    QTest::addColumn<bool>("removeAfterDrag");
    QTest::addRow("the item stays") << false;
    QTest::addRow("the item leaves with shelf.autoRemoveAfterDrag") << true;
}

void tst_ShelfDragDrop::aTileDraggedOutLandsInAnotherProgram() {
    QFETCH(bool, removeAfterDrag);
    setSetting(ShelfStore::autoRemoveAfterDragKey, removeAfterDrag);
    ShelfStore* store = ShelfStore::instance();
    QVERIFY(store->addText(u"A note to keep"_s));
    QVERIFY(store->addFiles({QUrl::fromLocalFile(m_file)}));
    DragPeer peer;
    QVERIFY(peer.start({u"target"_s, QString::number(peerPlace.x()), QString::number(peerPlace.y())}));

    panel()->setTab(u"Tray"_s);
    panel()->expand(false);
    QQuickItem* tile = nullptr;
    QTRY_VERIFY((tile = shown(content(), u"tile:Quarterly report.txt"_s)));
    settle();
    const QPoint from = onScreen(tile);
    const QPoint to = peer.centre();

    // The drag runs in a loop of its own inside this thread until it ends, so the hand that
    // moves the pointer is another thread, and it waits on what the peer says, not on time.
    std::atomic<bool> entered = false;
    std::thread hand;
    const auto joinHand = qScopeGuard([&] {
        if (hand.joinable())
            hand.join();
    });
    hand = std::thread([&] {
        pointerTo(from);
        xdotool({u"mousedown"_s, u"1"_s});
        glide(from, to, 8);
        for (int i = 0; i < 400 && peer.line(u"entered"_s).isEmpty(); ++i)
            pointerTo(to + QPoint(i % 2 ? 3 : -3, 0));
        entered = !peer.line(u"entered"_s).isEmpty();
        xdotool({u"mouseup"_s, u"1"_s});
    });
    QTRY_VERIFY_WITH_TIMEOUT(!peer.line(u"dropped"_s).isEmpty(), 40000);
    hand.join();
    QVERIFY(entered);
    // The file's URI; Qt's X11 drag also offers it as text.
    QVERIFY2(
        peer.line(u"dropped"_s)
            .startsWith(u"dropped "_s + QUrl::fromLocalFile(m_file).toString(QUrl::FullyEncoded) + u" | "_s),
        qPrintable(peer.line(u"dropped"_s)));
    QTRY_COMPARE(store->count(), removeAfterDrag ? 1 : 2);
    QCOMPARE(store->items().first().displayName,
             removeAfterDrag ? u"A note to keep"_s : u"Quarterly report.txt"_s);
    // A referenced file is never moved or deleted by a drag.
    QCOMPARE(readAll(m_file), "numbers");
}

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    tst_ShelfDragDrop test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "tst_ShelfDragDrop.moc"
