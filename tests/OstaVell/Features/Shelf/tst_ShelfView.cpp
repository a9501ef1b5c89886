// The tray in the open panel of the whole app on a real X server: its empty state, tiles with
// thumbnails, selection by click, Ctrl-click and Shift-click, the stack over six items, the
// context menu acting on the selection, and every text shown plain. Pictures of each state go
// to <build>/screenshots.
#include "OstaVell/AppDelegate.h"
#include "OstaVell/DisplayShelfController.h"
#include "OstaVell/Features/Shelf/ShelfStore.h"
#include "OstaVell/ShelfController.h"
#include "OstaVell/ShelfPanel.h"
#include "OstaVell/Support/SettingsStore.h"

#include <QApplication>
#include <QClipboard>
#include <QCursor>
#include <QImage>
#include <QMimeData>
#include <QPainter>
#include <QQuickStyle>
#include <QScreen>
#include <QTest>

#include "QuickTestSupport.h"
#include "ShelfTestSupport.h"

using namespace vell;
using namespace vell::test;
using namespace Qt::StringLiterals;

class tst_ShelfView final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();

    void anEmptyTraySaysWhereToDrop();
    void tilesShowPicturesSymbolsAndPlainNames();
    void clicksSelectAndTheMenuActsOnTheSelection();
    void overSixItemsTheRestIsStacked();
    void sendToDeviceIsOfferedOnlyWithKDEConnect_data();
    void sendToDeviceIsOfferedOnlyWithKDEConnect();

private:
    DisplayShelfController* panel() const { return m_app->shelf()->panels().first(); }
    QQuickWindow* window() const { return panel()->panel(); }
    QQuickItem* content() const { return window()->contentItem(); }
    QQuickItem* tile(const QString& name) const { return shown(content(), u"tile:"_s + name); }
    QStringList selected() const;
    QStringList visibleTiles() const;
    void clickTile(const QString& name, Qt::KeyboardModifiers modifiers = {},
                   Qt::MouseButton button = Qt::LeftButton);
    void addTexts(int count);

    std::unique_ptr<AppDelegate> m_app;
    QTemporaryDir m_files;
};

QStringList tst_ShelfView::selected() const {
    QStringList names;
    const QList<QQuickItem*> tiles = findItems(content(), u"tile:"_s);
    for (QQuickItem* item : tiles)
        if (item->isVisible() && item->property("selected").toBool())
            names.append(item->objectName().mid(5));
    return names;
}

QStringList tst_ShelfView::visibleTiles() const {
    QStringList names;
    const QList<QQuickItem*> tiles = findItems(content(), u"tile:"_s);
    for (QQuickItem* item : tiles)
        if (item->isVisible())
            names.append(item->objectName().mid(5));
    return names;
}

void tst_ShelfView::clickTile(const QString& name, Qt::KeyboardModifiers modifiers, Qt::MouseButton button) {
    QQuickItem* item = nullptr;
    QTRY_VERIFY((item = tile(name)));
    // Laid out: a frame drawn since the tiles changed.
    QVERIFY(drawn(window()));
    QTest::mouseClick(window(), button, modifiers, item->mapToScene({item->width() / 2, 30}).toPoint());
}

void tst_ShelfView::addTexts(int count) {
    for (int i = 1; i <= count; ++i)
        QVERIFY(ShelfStore::instance()->addText(u"Clipping %1"_s.arg(i)));
}

void tst_ShelfView::initTestCase() {
    QQuickStyle::setStyle(u"Material"_s);
    QCursor::setPos(QGuiApplication::primaryScreen()->geometry().bottomLeft());
    SettingsStore::instance()->setOpenOnHover(false);
    m_app = std::make_unique<AppDelegate>();
    m_app->applicationDidFinishLaunching();
    panel()->setTab(u"Tray"_s);
    panel()->expand(false);
    QVERIFY(QTest::qWaitForWindowExposed(window()));
    QTRY_VERIFY(shown(content(), u"shelfView"_s));
    QTRY_COMPARE(window()->geometry(), panel()->frame().toAlignedRect());
    QTRY_COMPARE(panel()->outline(), QRectF(QPointF(), panel()->frame().size()));
}

void tst_ShelfView::cleanupTestCase() {
    m_app.reset();
}

void tst_ShelfView::init() {
    ShelfStore::instance()->clear();
    QCOMPARE(ShelfStore::instance()->count(), 0);
    QTRY_COMPARE(visibleTiles(), QStringList());
}

void tst_ShelfView::anEmptyTraySaysWhereToDrop() {
    QTRY_VERIFY(shown(content(), u"emptyState"_s));
    QVERIFY(!shown(content(), u"stackToggle"_s));
    QCOMPARE(findItem(content(), u"caption"_s)->property("text").toString(),
             u"Your files, links and clippings"_s);
    QVERIFY(shown(content(), u"addFiles"_s));
    verifyPlainText(content());
    screenshot(window(), u"tray-empty"_s);
}

void tst_ShelfView::tilesShowPicturesSymbolsAndPlainNames() {
    QImage picture(320, 200, QImage::Format_RGB32);
    picture.fill(QColor(40, 120, 220));
    QPainter(&picture).fillRect(0, 100, 320, 100, QColor(240, 190, 40));
    const QString photo = m_files.filePath(u"Beach.png"_s);
    QVERIFY(picture.save(photo));
    const QString pdf = m_files.filePath(u"Invoice.pdf"_s);
    QVERIFY(writeAll(pdf, "%PDF-1.4"));
    ShelfStore* store = ShelfStore::instance();
    QVERIFY(store->addFiles({QUrl::fromLocalFile(pdf), QUrl::fromLocalFile(photo)}));
    QVERIFY(store->addLink(QUrl(u"https://www.example.com/article"_s)));
    // Markup in a name is text like any other: never bold, never a picture fetched from afar.
    QVERIFY(store->addText(u"<b>Bold</b> <img src=\"https://x/y.png\">"_s));

    QTRY_COMPARE(visibleTiles(), QStringList({u"<b>Bold</b> <img src=\"https://x/y.png\">"_s,
                                              u"www.example.com"_s, u"Beach.png"_s, u"Invoice.pdf"_s}));
    QQuickItem* thumbnail = findItem(tile(u"Beach.png"_s), u"thumbnail"_s);
    QVERIFY(thumbnail);
    QTRY_COMPARE_WITH_TIMEOUT(thumbnail->property("status").toInt(), 1 /* Image.Ready */, 20000);
    // Decoded no larger than the tile asked for.
    QVERIFY(thumbnail->property("implicitWidth").toReal() <= 192);
    QCOMPARE(findItem(tile(u"Invoice.pdf"_s), u"thumbnail"_s)->property("status").toInt(),
             0 /* Image.Null */);
    verifyPlainText(content());
    screenshot(window(), u"tray-items"_s);
}

void tst_ShelfView::clicksSelectAndTheMenuActsOnTheSelection() {
    addTexts(4); // newest first: 4, 3, 2, 1
    const QString one = u"Clipping 1"_s, two = u"Clipping 2"_s, three = u"Clipping 3"_s,
                  four = u"Clipping 4"_s;
    QTRY_COMPARE(visibleTiles().size(), 4);

    clickTile(two);
    QTRY_COMPARE(selected(), QStringList{two});
    clickTile(four, Qt::ControlModifier);
    QTRY_COMPARE(selected(), QStringList({four, two}));
    // From the anchor, the last Ctrl-clicked, to here in display order.
    clickTile(one, Qt::ShiftModifier);
    QTRY_COMPARE(selected(), QStringList({four, three, two, one}));
    clickTile(three);
    QTRY_COMPARE(selected(), QStringList{three});
    clickTile(one, Qt::ShiftModifier);
    QTRY_COMPARE(selected(), QStringList({three, two, one}));
    clickTile(two, Qt::ControlModifier);
    QTRY_COMPARE(selected(), QStringList({three, one}));
    screenshot(window(), u"tray-selection"_s);

    // The menu of a tile outside the selection acts on that tile alone.
    clickTile(four, {}, Qt::RightButton);
    QTRY_VERIFY(shown(content(), u"menuCopy"_s));
    QVERIFY(click(window(), shown(content(), u"menuCopy"_s)));
    QTRY_COMPARE(QGuiApplication::clipboard()->text(), four);
    QTRY_VERIFY(!shown(content(), u"menuCopy"_s));

    // Of a selected tile, on the whole selection.
    clickTile(one, {}, Qt::RightButton);
    QTRY_VERIFY(shown(content(), u"menuRemove"_s));
    QVERIFY(click(window(), shown(content(), u"menuRemove"_s)));
    QTRY_COMPARE(visibleTiles(), QStringList({four, two}));
    QCOMPARE(selected(), QStringList());
}

void tst_ShelfView::overSixItemsTheRestIsStacked() {
    addTexts(6);
    QTRY_COMPARE(visibleTiles().size(), 6);
    QVERIFY(!shown(content(), u"stack"_s));
    QVERIFY(!shown(content(), u"stackToggle"_s));

    addTexts(7);
    QTRY_COMPARE(visibleTiles(), QStringList({u"Clipping 7"_s, u"Clipping 6"_s, u"Clipping 5"_s,
                                              u"Clipping 4"_s, u"Clipping 3"_s}));
    QVERIFY(shown(content(), u"stack"_s));
    QQuickItem* toggle = shown(content(), u"stackToggle"_s);
    QVERIFY(toggle);
    QCOMPARE(toggle->property("label").toString(), u"Show all (7)"_s);
    screenshot(window(), u"tray-stack"_s);

    QVERIFY(click(window(), toggle));
    QTRY_COMPARE(visibleTiles().size(), 7);
    QVERIFY(!shown(content(), u"stack"_s));
    QCOMPARE(toggle->property("label").toString(), u"Collapse into stack"_s);
    screenshot(window(), u"tray-expanded-stack"_s);
    QVERIFY(click(window(), toggle));
    QTRY_COMPARE(visibleTiles().size(), 5);

    // Back to six: no stack, and nothing to toggle.
    QVERIFY(ShelfStore::instance()->remove({ShelfItem::idText(ShelfStore::instance()->items().last().id)}));
    QTRY_COMPARE(visibleTiles().size(), 6);
    QVERIFY(!shown(content(), u"stack"_s));
    QVERIFY(!shown(content(), u"stackToggle"_s));
}

void tst_ShelfView::sendToDeviceIsOfferedOnlyWithKDEConnect_data() {
    QTest::addColumn<bool>("installed");
    QTest::addRow("not installed") << false;
    QTest::addRow("installed") << true;
}

void tst_ShelfView::sendToDeviceIsOfferedOnlyWithKDEConnect() {
    QFETCH(bool, installed);
    const QByteArray path = qgetenv("PATH");
    const QString bin = m_files.filePath(u"bin"_s);
    if (installed) {
        QVERIFY(writeAll(bin + u"/kdeconnect-cli"_s, "#!/bin/sh\nexit 0\n"));
        QVERIFY(QFile::setPermissions(bin + u"/kdeconnect-cli"_s, QFile::ReadOwner | QFile::ExeOwner));
        qputenv("PATH", QFile::encodeName(bin) + ':' + path);
    }
    addTexts(1);
    clickTile(u"Clipping 1"_s, {}, Qt::RightButton);
    QTRY_VERIFY(shown(content(), u"menuOpen"_s));
    QStringList entries;
    for (const char* name : {"menuOpen", "menuQuickLook", "menuReveal", "menuSend", "menuCopy", "menuRemove"})
        if (QQuickItem* entry = shown(content(), QLatin1String(name)))
            entries.append(entry->property("text").toString());
    QStringList expected{u"Open"_s, u"Quick Look"_s, u"Show in File Manager"_s, u"Copy"_s, u"Remove"_s};
    if (installed)
        expected.insert(3, u"Send to device"_s);
    QCOMPARE(entries, expected);
    if (installed)
        screenshot(window(), u"tray-menu"_s);
    // A press outside the menu closes it.
    QVERIFY(click(window(), shown(content(), u"caption"_s)));
    QTRY_VERIFY(!shown(content(), u"menuOpen"_s));
    qputenv("PATH", path);
}

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    tst_ShelfView test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "tst_ShelfView.moc"
