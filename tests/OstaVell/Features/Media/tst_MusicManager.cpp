#include "OstaVell/Features/Media/MediaArtworkColor.h"
#include "OstaVell/Features/Media/MusicManager.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QBuffer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include "MpvPlayer.h"

using namespace vell;

namespace {

QString adapter() {
    return qEnvironmentVariable("VELL_BUILD_DIR") + QStringLiteral("/bin/ostavell-media-adapter");
}

QByteArray line(const QJsonObject& payload) {
    return QJsonDocument(QJsonObject{{QStringLiteral("payload"), payload}}).toJson(QJsonDocument::Compact);
}

} // namespace

class tst_MusicManager : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void recordsAndArtwork();
    void nowPlayingAndItsControls();
    void restartsThenTheFallback();
    void aSilentStreamGivesWayAndWinsBack();

private:
    // A manager on a private defaults file whose stream is this program.
    std::unique_ptr<MusicManager> manager(const QString& executable);
    QString script(const char* name, const QString& body);

    QTemporaryDir m_folder;
    std::unique_ptr<UserDefaults> m_defaults;
    MpvPlayer m_player;
};

void tst_MusicManager::init() {
    QFile::remove(m_folder.filePath(QStringLiteral("OstaVell.conf")));
    m_defaults = std::make_unique<UserDefaults>(m_folder.filePath(QStringLiteral("OstaVell.conf")));
}

void tst_MusicManager::cleanup() {
    m_player.quit();
}

std::unique_ptr<MusicManager> tst_MusicManager::manager(const QString& executable) {
    auto music = std::make_unique<MusicManager>(
        *m_defaults, std::make_unique<MediaAdapterTransport>(executable),
        std::make_unique<MediaScriptPlayerController>(QDBusConnection::sessionBus()));
    music->timing = {20, 300, 0, 300};
    return music;
}

QString tst_MusicManager::script(const char* name, const QString& body) {
    QFile file(m_folder.filePath(QString::fromLatin1(name)));
    file.open(QIODevice::WriteOnly);
    file.write(("#!/bin/sh\n" + body + "\n").toUtf8());
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    return file.fileName();
}

void tst_MusicManager::recordsAndArtwork() {
    QImage red(8, 8, QImage::Format_ARGB32);
    red.fill(Qt::red);
    QByteArray png;
    QBuffer buffer(&png);
    red.save(&buffer, "PNG");
    const QJsonObject payload{{"title", "One"},
                              {"playing", true},
                              {"artworkData", QString::fromLatin1(png.toBase64())},
                              {"elapsedTimeMicros", 2e6},
                              {"timestampEpochMicros", 1.7e15},
                              {"shuffleMode", 3},
                              {"repeatMode", 2}};
    const std::optional<MediaAdapterRecord> first = MediaAdapterRecord::decode(line(payload), {}, {});
    QVERIFY(first && first->state);
    QCOMPARE(first->state->elapsed, 2.0);
    QCOMPARE(first->state->shuffleMode, MediaPlaybackState::ShuffleMode::songs);
    QCOMPARE(first->state->repeatMode, MediaPlaybackState::RepeatMode::one);
    QCOMPARE(first->state->artworkImage.pixelColor(0, 0), QColor(Qt::red));
    // The same bytes again are not decoded again: the image is the one handed in.
    const std::optional<MediaAdapterRecord> again =
        MediaAdapterRecord::decode(line(payload), first->artworkData, first->state->artworkImage);
    QCOMPARE(again->state->artworkImage.cacheKey(), first->state->artworkImage.cacheKey());
    // A record without a title is a record of nothing playing; a line that isn't one is dropped.
    QVERIFY(!MediaAdapterRecord::decode(line({{"title", ""}, {"playing", true}}), {}, {})->state);
    QVERIFY(!MediaAdapterRecord::decode("[1]", {}, {}));
    QVERIFY(!MediaAdapterRecord::decode("{\"payload\":3}", {}, {}));

    // The tint: the mean of the pixels that are not nearly transparent.
    QCOMPARE(MediaArtworkColor::tint(red)->name(), QStringLiteral("#ff0000"));
    QImage half(12, 12, QImage::Format_ARGB32);
    half.fill(Qt::transparent);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 12; ++x)
            half.setPixelColor(x, y, Qt::blue);
    QCOMPARE(MediaArtworkColor::tint(half)->name(), QStringLiteral("#0000ff"));
    half.fill(QColor(255, 255, 255, 25));
    QVERIFY(!MediaArtworkColor::tint(half));
}

void tst_MusicManager::nowPlayingAndItsControls() {
    QVERIFY(m_player.start(
        {MpvPlayer::tone(m_folder.path(), "Alpha", 440), MpvPlayer::tone(m_folder.path(), "Bravo", 550)},
        false, m_folder.path()));
    const std::unique_ptr<MusicManager> music = manager(adapter());
    music->start();
    QTRY_COMPARE_WITH_TIMEOUT(music->playbackMap().value("title").toString(), QStringLiteral("Alpha"), 10000);
    QVERIFY(music->playback()->isPlaying);
    QVERIFY(!music->usingScriptFallback());

    // The view answers at once, and the player follows.
    music->togglePlayPause();
    QVERIFY(!music->playback()->isPlaying);
    QTRY_COMPARE_WITH_TIMEOUT(m_player.property(QStringLiteral("pause")).toBool(), true, 10000);
    music->seek(50);
    QCOMPARE(music->playback()->elapsed, 50.0);
    QTRY_VERIFY_WITH_TIMEOUT(std::abs(m_player.property(QStringLiteral("time-pos")).toDouble() - 50) < 1,
                             10000);
    QTRY_VERIFY_WITH_TIMEOUT(std::abs(music->elapsedNow() - 50) < 1, 10000);

    // A new track while playing: the quick peek, gone by itself.
    music->togglePlayPause();
    QTRY_COMPARE_WITH_TIMEOUT(m_player.property(QStringLiteral("pause")).toBool(), false, 10000);
    QSignalSpy peek(music.get(), &MusicManager::quickPeekChanged);
    music->nextTrack();
    QTRY_COMPARE_WITH_TIMEOUT(music->playbackMap().value("title").toString(), QStringLiteral("Bravo"), 10000);
    QVERIFY(music->showQuickPeek());
    QCOMPARE(music->quickPeekMap().value("title").toString(), QStringLiteral("Bravo"));
    QTRY_VERIFY(!music->showQuickPeek());
    // The same change just after a launch stays quiet: it is what was playing already.
    music->timing.quietLaunch = 3600 * 1000;
    music->nextTrack();
    QTRY_COMPARE_WITH_TIMEOUT(music->playbackMap().value("title").toString(), QStringLiteral("Alpha"), 10000);
    QVERIFY(!music->showQuickPeek());
    music->timing.quietLaunch = 0;
    music->nextTrack();
    QTRY_COMPARE_WITH_TIMEOUT(music->playbackMap().value("title").toString(), QStringLiteral("Bravo"), 10000);

    // A second player, paused: shown only once pinned, and the pin outlasts nothing but itself.
    MpvPlayer other;
    QVERIFY(other.start({MpvPlayer::tone(m_folder.path(), "Charlie", 660)}, true, m_folder.path()));
    QTRY_COMPARE_WITH_TIMEOUT(music->players().size(), 2, 10000);
    QCOMPARE(music->playbackMap().value("title").toString(), QStringLiteral("Bravo"));
    music->setPinnedPlayer(other.busName);
    QTRY_COMPARE_WITH_TIMEOUT(music->playbackMap().value("title").toString(), QStringLiteral("Charlie"),
                              10000);
    QVERIFY(!music->playback()->isPlaying);
    music->setPinnedPlayer(QString());
    QTRY_COMPARE_WITH_TIMEOUT(music->playbackMap().value("title").toString(), QStringLiteral("Bravo"), 10000);
    other.quit();

    // Media switched off: nothing playing, nothing listened to; on again: back.
    music->setMediaEnabled(false);
    QVERIFY(!music->hasPlayback());
    QVERIFY(!music->transport().isRunning());
    music->setMediaEnabled(true);
    QTRY_COMPARE_WITH_TIMEOUT(music->playbackMap().value("title").toString(), QStringLiteral("Bravo"), 10000);
    // Restricted to a player that isn't this one: nothing passes.
    music->setRestrictTo(QStringLiteral("spotify"));
    QVERIFY(!music->hasPlayback());
}

void tst_MusicManager::restartsThenTheFallback() {
    QVERIFY(m_player.start({MpvPlayer::tone(m_folder.path(), "Alpha", 440)}, false, m_folder.path()));
    const QString log = m_folder.filePath(QStringLiteral("starts.log"));
    const std::unique_ptr<MusicManager> music =
        manager(script("ends", QStringLiteral("echo x >> '%1'").arg(log)));
    music->timing.fallbackProbe = 60000;
    music->start();
    // Three restarts after the first end; at the fourth end the reader in this process takes over.
    QTRY_VERIFY_WITH_TIMEOUT(music->usingScriptFallback(), 10000);
    QFile starts(log);
    QVERIFY(starts.open(QIODevice::ReadOnly));
    QCOMPARE(starts.readAll().count('\n'), 1 + MusicManager::maximumRestarts);
    QTRY_COMPARE_WITH_TIMEOUT(music->playbackMap().value("title").toString(), QStringLiteral("Alpha"), 10000);
    QCOMPARE(music->playback()->appName, QStringLiteral("mpv"));

    // Steering goes to the player through the reader.
    music->togglePlayPause();
    QTRY_COMPARE_WITH_TIMEOUT(m_player.property(QStringLiteral("pause")).toBool(), true, 10000);
}

void tst_MusicManager::aSilentStreamGivesWayAndWinsBack() {
    // Nothing on the bus: the fallback isn't started, for it would have nothing to read and
    // must never start a player; the probe looks again later.
    const std::unique_ptr<MusicManager> silent = manager(script("silent", QStringLiteral("exec sleep 60")));
    silent->start();
    // The probe has looked twice and found nothing each time.
    QTRY_VERIFY_WITH_TIMEOUT(silent->emptyProbes() >= 2, 10000);
    QVERIFY(!silent->usingScriptFallback());
    QVERIFY(!silent->scriptController().isActive());
    silent->stop();

    // A stream that speaks only after the probe: the fallback first, then the stream wins.
    QVERIFY(m_player.start({MpvPlayer::tone(m_folder.path(), "Alpha", 440)}, false, m_folder.path()));
    const std::unique_ptr<MusicManager> music =
        manager(script("late", QStringLiteral("sleep 2; exec '%1' \"$@\"").arg(adapter())));
    music->start();
    QTRY_VERIFY_WITH_TIMEOUT(music->usingScriptFallback(), 10000);
    QTRY_COMPARE_WITH_TIMEOUT(music->playbackMap().value("title").toString(), QStringLiteral("Alpha"), 10000);
    QTRY_VERIFY_WITH_TIMEOUT(!music->usingScriptFallback(), 10000);
    QVERIFY(!music->scriptController().isActive());
    QCOMPARE(music->playbackMap().value("title").toString(), QStringLiteral("Alpha"));
}

QTEST_MAIN(tst_MusicManager)
#include "tst_MusicManager.moc"
