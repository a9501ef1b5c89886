#include "OstaVell/Features/Media/MediaImageProvider.h"
#include "OstaVell/Features/Media/MusicManager.h"

#include <QImage>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QtTest>

#include "MpvPlayer.h"
#include "QuickTestSupport.h"

using namespace vell;
using namespace vell::test;

// The player views in real windows, fed by the real adapter from a real mpv, with a track
// whose title is markup pointing at a listener that hears any fetch.
class tst_MediaViews : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void nowPlayingAndTheWings();

private:
    QQuickWindow* show(const QByteArray& qml);

    QTemporaryDir m_folder;
    QTcpServer m_listener;
    MpvPlayer m_player;
    QQmlEngine m_engine;
    std::vector<std::unique_ptr<QQuickWindow>> m_windows;
};

void tst_MediaViews::initTestCase() {
    QQuickStyle::setStyle(QStringLiteral("Material"));
    m_engine.addImportPath(QStringLiteral("qrc:/qt/qml"));
    m_engine.addImageProvider(MediaImageProvider::name.toString(), new MediaImageProvider);
    QVERIFY(m_listener.listen(QHostAddress::LocalHost));
    // The folder's cover is the artwork of every track in it.
    QImage cover(240, 240, QImage::Format_RGB32);
    cover.fill(QColor("#b5562a"));
    QVERIFY(cover.save(m_folder.filePath(QStringLiteral("cover.jpg"))));
    const QString hostile =
        QStringLiteral("<img src=\"http://127.0.0.1:%1/x.png\"><b>Loud</b>").arg(m_listener.serverPort());
    QVERIFY(m_player.start({MpvPlayer::tone(m_folder.path(), QStringLiteral("Harbour Lights"), 440),
                            MpvPlayer::tone(m_folder.path(), hostile, 550, QStringLiteral("hostile"))},
                           false, m_folder.path()));
    MusicManager::instance()->timing.quietLaunch = 0;
    MusicManager::instance()->start();
}

void tst_MediaViews::cleanupTestCase() {
    m_windows.clear();
    MusicManager::instance()->stop();
}

QQuickWindow* tst_MediaViews::show(const QByteArray& qml) {
    QQmlComponent component(&m_engine);
    component.setData(qml, QUrl());
    if (!component.isReady()) {
        qWarning() << component.errorString();
        return nullptr;
    }
    auto* window = qobject_cast<QQuickWindow*>(component.create());
    if (!window)
        return nullptr;
    m_windows.emplace_back(window);
    return QTest::qWaitForWindowExposed(window, 20000) ? window : nullptr;
}

void tst_MediaViews::nowPlayingAndTheWings() {
    QQuickWindow* stage = show("import QtQuick\nimport OstaVell.Media\n"
                               "Window { width: 760; height: 400; visible: true; color: '#111111'\n"
                               "  NowPlayingView { anchors.fill: parent } }");
    QQuickWindow* wings =
        show("import QtQuick\nimport OstaVell.Media\n"
             "Window { width: 360; height: 30; x: 0; y: 460; visible: true; color: 'black'\n"
             "  Row { anchors.verticalCenter: parent.verticalCenter; spacing: 120\n"
             "    MediaClosedWingLeft {} MediaClosedWingRight {} } }");
    QVERIFY(stage && wings);
    QQuickItem* root = stage->contentItem();
    QTRY_COMPARE_WITH_TIMEOUT(findItem(root, "title")->property("text").toString(),
                              QStringLiteral("Harbour Lights"), 20000);
    QTRY_COMPARE_WITH_TIMEOUT(findItem(root, "artwork")->property("status").toInt(), 1, 10000); // Image.Ready
    QVERIFY(shown(wings->contentItem(), "mediaWingBars"));
    QVERIFY(drawn(stage));
    screenshot(stage, QStringLiteral("media-nowplaying"));
    screenshot(wings, QStringLiteral("media-closed"));

    // The next track, by the view's own button: its markup is shown as the text it is, in the
    // view and in the wing's quick peek, and nothing is fetched.
    QVERIFY(click(stage, findItem(root, "next")));
    QTRY_VERIFY_WITH_TIMEOUT(findItem(root, "title")->property("text").toString().startsWith(u"<img"), 20000);
    QTRY_VERIFY(shown(wings->contentItem(), "mediaQuickPeek"));
    QVERIFY(
        findItem(wings->contentItem(), "mediaQuickPeek")->property("text").toString().startsWith(u"<img"));
    verifyPlainText(root);
    verifyPlainText(wings->contentItem());
    screenshot(wings, QStringLiteral("media-quickpeek"));
    QTRY_VERIFY(!shown(wings->contentItem(), "mediaQuickPeek"));

    QVERIFY(click(stage, findItem(root, "playPause")));
    QTRY_COMPARE_WITH_TIMEOUT(m_player.property(QStringLiteral("pause")).toBool(), true, 10000);
    QTRY_VERIFY(shown(wings->contentItem(), "mediaWingPaused"));
    QVERIFY(!m_listener.hasPendingConnections());
}

QTEST_MAIN(tst_MediaViews)
#include "tst_MediaViews.moc"
