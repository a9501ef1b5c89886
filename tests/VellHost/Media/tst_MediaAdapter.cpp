#include "VellHost/Media/MediaArtworkFetcher.h"
#include "VellHost/Media/MprisPlayerState.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

#include "MpvPlayer.h"

using namespace vell;

namespace {

QString adapter() {
    return qEnvironmentVariable("VELL_BUILD_DIR") + QStringLiteral("/bin/ostavell-media-adapter");
}

// The adapter's stream, read line by line as the app reads it.
class Stream {
public:
    explicit Stream(const QStringList& extra = {}) {
        m_process.start(adapter(), QStringList{QStringLiteral("stream"), QStringLiteral("--no-diff"),
                                               QStringLiteral("--micros"), QStringLiteral("--debounce=100")} +
                                       extra);
        QObject::connect(&m_process, &QProcess::readyReadStandardOutput, [this] {
            while (m_process.canReadLine())
                lines.append(QJsonDocument::fromJson(m_process.readLine()).object());
        });
    }
    ~Stream() {
        m_process.kill();
        m_process.waitForFinished();
    }
    QJsonObject payload() const {
        return lines.isEmpty() ? QJsonObject() : lines.last().value(u"payload").toObject();
    }
    QString title() const { return payload().value(u"title").toString(); }
    bool playing() const { return payload().value(u"playing").toBool(); }
    QString player() const { return payload().value(u"player").toString(); }
    // What happens when the reader goes: its end of our input closes.
    bool endsWhenTheReaderGoes() {
        m_process.closeWriteChannel();
        return m_process.waitForFinished(5000) && m_process.exitStatus() == QProcess::NormalExit;
    }

    QList<QJsonObject> lines;

private:
    QProcess m_process;
};

int command(const QStringList& arguments) {
    return QProcess::execute(adapter(), arguments);
}

MprisPlayerState player(const char* bus, MprisPlayerState::Status status, quint64 serial,
                        const char* title = "T") {
    MprisPlayerState state;
    state.busName = QString::fromLatin1(bus);
    state.status = status;
    state.changeSerial = serial;
    state.title = QString::fromLatin1(title);
    return state;
}

} // namespace

class tst_MediaAdapter : public QObject {
    Q_OBJECT

private slots:
    void choice_data();
    void choice();
    void duplicatesCollapse();
    void streamFollowsThePlayers();
    void floodCostsAtMostOneLinePerInterval();
    void seekReachesThePlayer();
    void artworkWithinItsLimits();

private:
    QTemporaryDir m_folder;
};

void tst_MediaAdapter::choice_data() {
    using S = MprisPlayerState::Status;
    QTest::addColumn<QList<MprisPlayerState>>("players");
    QTest::addColumn<QString>("pin");
    QTest::addColumn<QString>("chosen");
    const auto a = [](S s, quint64 n) { return player("org.mpris.MediaPlayer2.a", s, n); };
    const auto b = [](S s, quint64 n) { return player("org.mpris.MediaPlayer2.b", s, n); };
    QTest::addRow("none") << QList<MprisPlayerState>{} << QString() << QString();
    QTest::addRow("playing beats a newer pause")
        << QList{a(S::playing, 1), b(S::paused, 2)} << QString() << "org.mpris.MediaPlayer2.a";
    QTest::addRow("paused beats a newer stop")
        << QList{a(S::stopped, 3), b(S::paused, 2)} << QString() << "org.mpris.MediaPlayer2.b";
    QTest::addRow("both playing: the newest")
        << QList{a(S::playing, 5), b(S::playing, 4)} << QString() << "org.mpris.MediaPlayer2.a";
    QTest::addRow("both paused: the newest")
        << QList{a(S::paused, 4), b(S::paused, 5)} << QString() << "org.mpris.MediaPlayer2.b";
    QTest::addRow("pinned and paused beats playing")
        << QList{a(S::playing, 5), b(S::paused, 1)} << "org.mpris.MediaPlayer2.b"
        << "org.mpris.MediaPlayer2.b";
    QTest::addRow("a pin that is gone changes nothing")
        << QList{a(S::paused, 5), b(S::playing, 1)} << "org.mpris.MediaPlayer2.c"
        << "org.mpris.MediaPlayer2.b";
}

void tst_MediaAdapter::choice() {
    QFETCH(QList<MprisPlayerState>, players);
    QFETCH(QString, pin);
    QFETCH(QString, chosen);
    const std::optional<qsizetype> index = MprisChoice::choose(players, pin);
    QCOMPARE(index ? players[*index].busName : QString(), chosen);
}

void tst_MediaAdapter::duplicatesCollapse() {
    using S = MprisPlayerState::Status;
    // A browser and its desktop integration showing the same tab, and a second tab elsewhere.
    const QList<MprisPlayerState> players{
        player("org.mpris.MediaPlayer2.chromium.instance1", S::playing, 1, "Clip"),
        player("org.mpris.MediaPlayer2.plasma-browser", S::playing, 2, "Clip"),
        player("org.mpris.MediaPlayer2.firefox", S::paused, 3, "Clip"),
        player("org.mpris.MediaPlayer2.mpv", S::playing, 4, "Song")};
    QStringList kept;
    for (qsizetype index : MprisChoice::distinct(players))
        kept.append(players[index].busName);
    QCOMPARE(kept, (QStringList{"org.mpris.MediaPlayer2.firefox", "org.mpris.MediaPlayer2.mpv",
                                "org.mpris.MediaPlayer2.plasma-browser"}));
}

void tst_MediaAdapter::streamFollowsThePlayers() {
    Stream stream;
    // With no player at all the stream still speaks: an empty payload, nothing playing.
    QTRY_VERIFY_WITH_TIMEOUT(!stream.lines.isEmpty(), 10000);
    QCOMPARE(stream.title(), QString());

    MpvPlayer alpha;
    QVERIFY(alpha.start({MpvPlayer::tone(m_folder.path(), "Alpha", 440)}, false, m_folder.path()));
    QTRY_COMPARE_WITH_TIMEOUT(stream.title(), QStringLiteral("Alpha"), 10000);
    QVERIFY(stream.playing());
    QCOMPARE(stream.payload().value(u"bundleIdentifier").toString(), QStringLiteral("mpv"));

    MpvPlayer beta;
    QVERIFY(beta.start({MpvPlayer::tone(m_folder.path(), "Beta", 550)}, true, m_folder.path()));
    // Its track is known once mpv has read the file's tags; until then it goes by the file's name.
    QTRY_VERIFY_WITH_TIMEOUT(QJsonDocument(stream.lines.last().value(u"players").toArray())
                                 .toJson(QJsonDocument::Compact)
                                 .contains("\"title\":\"Beta\""),
                             10000);
    QCOMPARE(stream.title(), QStringLiteral("Alpha"));

    // Paused in the player itself: both paused now, and the newest change wins the tie.
    QVERIFY(alpha.command({"set_property", "pause", true}));
    QTRY_VERIFY_WITH_TIMEOUT(!stream.playing(), 10000);
    QCOMPARE(stream.title(), QStringLiteral("Alpha"));

    // Played by a command to that player alone: playing beats paused.
    QCOMPARE(
        command({QStringLiteral("--player=") + beta.busName, QStringLiteral("send"), QStringLiteral("0")}),
        0);
    QTRY_COMPARE_WITH_TIMEOUT(stream.title(), QStringLiteral("Beta"), 10000);
    QVERIFY(stream.playing());
    QCOMPARE(stream.player(), beta.busName);

    // A pinned player is reported whatever the others do.
    Stream pinned({QStringLiteral("--pin=") + alpha.busName});
    QTRY_COMPARE_WITH_TIMEOUT(pinned.title(), QStringLiteral("Alpha"), 10000);

    // The player that quits hands over at once.
    beta.quit();
    QTRY_COMPARE_WITH_TIMEOUT(stream.title(), QStringLiteral("Alpha"), 10000);
    alpha.quit();
    QTRY_COMPARE_WITH_TIMEOUT(stream.title(), QString(), 10000);
    QVERIFY(pinned.endsWhenTheReaderGoes());
    // A command for a player that is gone reaches no other.
    QCOMPARE(
        command({QStringLiteral("--player=") + beta.busName, QStringLiteral("send"), QStringLiteral("0")}),
        1);
}

void tst_MediaAdapter::floodCostsAtMostOneLinePerInterval() {
    MpvPlayer flood;
    QVERIFY(flood.start({MpvPlayer::tone(m_folder.path(), "Flood", 330)}, false, m_folder.path()));
    Stream stream;
    QTRY_COMPARE_WITH_TIMEOUT(stream.title(), QStringLiteral("Flood"), 10000);
    QTRY_VERIFY_WITH_TIMEOUT(stream.playing(), 10000);
    // Changes that don't touch what is shown write nothing at all.
    const qsizetype settled = stream.lines.size();
    for (int i = 0; i < 60; ++i)
        QVERIFY(flood.command({"set_property", "volume", 40 + i % 20}));
    QVERIFY(flood.command({"set_property", "pause", true}));
    QTRY_VERIFY_WITH_TIMEOUT(!stream.playing(), 10000);
    QVERIFY2(stream.lines.size() - settled <= 2, qPrintable(QString::number(stream.lines.size() - settled)));

    // A player flipping its state as fast as it can: at most one line per 100 ms, whatever
    // the rate of its signals. Slowness only lowers the count.
    const qsizetype before = stream.lines.size();
    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < 80; ++i)
        QVERIFY(flood.command({"cycle", "pause"}));
    QVERIFY(flood.command({"set_property", "pause", false}));
    QTRY_VERIFY_WITH_TIMEOUT(stream.playing(), 10000);
    // One line an interval, plus the interval's first and last line, plus one the settling
    // before may still have had on its way when the count began: the bound the earlier wait
    // of one and a half intervals gave. Without the throttle it would be near one line a flip.
    const qint64 bound = clock.elapsed() / 100 + 3;
    QVERIFY2(stream.lines.size() - before <= bound,
             qPrintable(QStringLiteral("%1 lines, bound %2").arg(stream.lines.size() - before).arg(bound)));
}

void tst_MediaAdapter::seekReachesThePlayer() {
    MpvPlayer mpv;
    QVERIFY(mpv.start({MpvPlayer::tone(m_folder.path(), "Seek", 440)}, true, m_folder.path()));
    Stream stream;
    QTRY_COMPARE_WITH_TIMEOUT(stream.title(), QStringLiteral("Seek"), 10000);
    QCOMPARE(command({QStringLiteral("seek"), QStringLiteral("42000000")}), 0);
    QTRY_VERIFY_WITH_TIMEOUT(std::abs(stream.payload().value(u"elapsedTimeMicros").toDouble() - 42e6) < 1e6,
                             10000);
    QCOMPARE(command({QStringLiteral("repeat"), QStringLiteral("3")}), 0);
    QTRY_COMPARE_WITH_TIMEOUT(stream.payload().value(u"repeatMode").toInt(), 3, 10000);
    // Anything the adapter doesn't know is refused without reaching a player.
    QCOMPARE(command({QStringLiteral("send"), QStringLiteral("6")}), 2);
    QCOMPARE(command({QStringLiteral("shuffle"), QStringLiteral("0")}), 2);
}

void tst_MediaAdapter::artworkWithinItsLimits() {
    const auto file = [&](const char* name, qsizetype size) {
        QFile out(m_folder.filePath(QString::fromLatin1(name)));
        out.open(QIODevice::WriteOnly);
        out.write(QByteArray(size, 'x'));
        return QUrl::fromLocalFile(out.fileName()).toString();
    };
    MediaArtworkFetcher fetcher(nullptr, 500);
    QCOMPARE(fetcher.artwork(file("limit", MediaArtworkFetcher::maximumBytes)).size(),
             MediaArtworkFetcher::maximumBytes);
    QVERIFY(fetcher.artwork(file("over", MediaArtworkFetcher::maximumBytes + 1)).isEmpty());
    // A fifo would block the stream for as long as nobody writes to it.
    const QString fifo = m_folder.filePath(QStringLiteral("fifo"));
    QCOMPARE(::mkfifo(qPrintable(fifo), 0600), 0);
    QVERIFY(fetcher.artwork(QUrl::fromLocalFile(fifo).toString()).isEmpty());
    QVERIFY(fetcher.artwork(QStringLiteral("ftp://example.invalid/a.png")).isEmpty());

    // Over http: an answer within the limit, one announced too large, and one that never ends.
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    QObject::connect(&server, &QTcpServer::newConnection, [&] {
        QTcpSocket* socket = server.nextPendingConnection();
        QObject::connect(socket, &QTcpSocket::readyRead, [socket] {
            const QByteArray request = socket->readAll();
            if (request.contains("/small"))
                socket->write("HTTP/1.1 200 OK\r\nContent-Length: 5\r\nConnection: close\r\n\r\nimage");
            else if (request.contains("/large"))
                socket->write("HTTP/1.1 200 OK\r\nContent-Length: 3000000\r\n\r\n" + QByteArray(1000, 'x'));
        });
    });
    const QString base = QStringLiteral("http://127.0.0.1:%1/").arg(server.serverPort());
    QSignalSpy fetched(&fetcher, &MediaArtworkFetcher::fetched);
    for (const auto& [path, expected] :
         {std::pair{"small", QByteArray("image")}, {"large", {}}, {"silent", {}}}) {
        fetched.clear();
        QVERIFY(fetcher.artwork(base + QLatin1String(path)).isEmpty());
        QVERIFY(fetched.wait(5000));
        QCOMPARE(fetcher.artwork(base + QLatin1String(path)), expected);
    }
}

QTEST_MAIN(tst_MediaAdapter)
#include "tst_MediaAdapter.moc"
