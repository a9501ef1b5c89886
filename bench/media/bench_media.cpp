// How long a new title takes from a player's PropertiesChanged to MusicManager, beside a bare
// QtDBus round trip between the same two processes; and what a closed OstaVell costs while a
// real player plays.
#include "OstaVell/Features/Media/MusicManager.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QGuiApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <unistd.h>

#include "MprisStandIn.h"
#include "ProcessFigures.h"

using namespace vell;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int samples = 120;
// Past the stream's 100 ms debounce twice, so that each change is the first of its interval: the
// position asked for after a new track may write a trailing line at the end of the first
// interval, which opens another.
constexpr int restMilliseconds = 250;

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[std::min(values.size() - 1, size_t(p * double(values.size())))];
}

// Runs the event loop until done() holds or the deadline passes; false on the deadline.
bool waitFor(const std::function<bool()>& done, int milliseconds) {
    const QDeadlineTimer deadline(milliseconds);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 10);
    }
    return true;
}

void pause(int milliseconds) {
    waitFor([] { return false; }, milliseconds);
}

QDBusMessage control(const char* method, const QString& argument) {
    QDBusMessage call = QDBusMessage::createMethodCall(
        MprisStandIn::service.toString(), QStringLiteral("/org/mpris/MediaPlayer2"),
        MprisStandIn::controlInterface.toString(), QLatin1String(method));
    call << argument;
    call.setAutoStartService(false);
    return call;
}

// The receiver of the baseline's Pong signal.
class PongCatcher final : public QObject {
    Q_OBJECT
public slots:
    void pong(const QString& text) { last = text; }

public:
    QString last;
};

void print(const char* name, const std::vector<double>& values) {
    std::printf("%s: median %.3f ms, 99th percentile %.3f ms (%zu samples)\n", name, percentile(values, 0.5),
                percentile(values, 0.99), values.size());
}

} // namespace

int main(int argc, char* argv[]) {
    if (argc > 1 && QStringView(QString::fromLocal8Bit(argv[1])) == MprisStandIn::serverArgument) {
        QCoreApplication server(argc, argv);
        return MprisStandIn::serve();
    }
    QGuiApplication app(argc, argv);
    const QString build =
        qEnvironmentVariable("VELL_BUILD_DIR", QDir(app.applicationDirPath()).filePath(".."));
    QProcess player;
    player.start(app.applicationFilePath(), {MprisStandIn::serverArgument.toString()});
    if (!player.waitForReadyRead(10000) || !player.readAll().startsWith("ready")) {
        std::fprintf(stderr, "media bench: the stand-in player did not start\n");
        return 1;
    }
    QDBusConnection bus = QDBusConnection::sessionBus();

    // The bare round trip: a call to the player's process, and the signal it sends back.
    PongCatcher catcher;
    bus.connect(QString(), QStringLiteral("/org/mpris/MediaPlayer2"),
                MprisStandIn::controlInterface.toString(), QStringLiteral("Pong"), &catcher,
                SLOT(pong(QString)));
    std::vector<double> baseline;
    for (int i = 0; i < samples; ++i) {
        const QString text = QStringLiteral("P%1").arg(i);
        const Clock::time_point start = Clock::now();
        bus.send(control("Ping", text));
        if (!waitFor([&] { return catcher.last == text; }, 5000))
            return 1;
        baseline.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        // The same rest as between the changes below, so that both wake from the same idleness.
        pause(restMilliseconds);
    }

    // The same call making the player change its track, to the title in MusicManager: the
    // adapter's stream, its pipe, its reading thread and the hop to the main thread.
    QTemporaryDir folder;
    UserDefaults defaults(folder.filePath(QStringLiteral("OstaVell.conf")));
    MusicManager music(
        defaults,
        std::make_unique<MediaAdapterTransport>(build + QStringLiteral("/bin/ostavell-media-adapter")),
        std::make_unique<MediaScriptPlayerController>(bus));
    music.start();
    const auto title = [&] { return music.playback() ? music.playback()->title : QString(); };
    if (!waitFor([&] { return title() == u"First"; }, 10000)) {
        std::fprintf(stderr, "media bench: MusicManager never saw the stand-in player\n");
        return 1;
    }
    std::vector<double> media;
    for (int i = 0; i < samples; ++i) {
        const QString text = QStringLiteral("T%1").arg(i);
        pause(restMilliseconds);
        const Clock::time_point start = Clock::now();
        bus.send(control("SetTitle", text));
        if (!waitFor([&] { return title() == text; }, 5000))
            return 1;
        media.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    music.stop();
    player.terminate();
    player.waitForFinished();
    print("bare QtDBus round trip", baseline);
    print("PropertiesChanged to MusicManager", media);
    std::printf("ratio: %.2f\n", percentile(media, 0.5) / percentile(baseline, 0.5));

    // A closed OstaVell while a real player plays.
    QProcess mpv;
    const QString tone = folder.filePath(QStringLiteral("tone.flac"));
    QProcess::execute(QStringLiteral("sox"),
                      {QStringLiteral("-n"), QStringLiteral("-r"), QStringLiteral("22050"),
                       QStringLiteral("-c"), QStringLiteral("1"), tone, QStringLiteral("synth"),
                       QStringLiteral("600"), QStringLiteral("sine"), QStringLiteral("440")});
    mpv.start(QStringLiteral("mpv"),
              {QStringLiteral("--no-config"), QStringLiteral("--no-video"), QStringLiteral("--ao=null"),
               QStringLiteral("--script=/etc/mpv/scripts/mpris.so"), tone});
    QProcess ostavell;
    ostavell.setProcessChannelMode(QProcess::ForwardedChannels);
    ostavell.start(build + QStringLiteral("/bin/ostavell"));
    if (!ostavell.waitForStarted(10000))
        return 1;
    QThread::sleep(8);
    const qint64 pid = ostavell.processId();
    const qint64 ticks = bench::cpuTicks(pid);
    const qint64 switches = bench::contextSwitches(pid);
    constexpr int seconds = 20;
    QThread::sleep(seconds);
    const double cpu = 100.0 * double(bench::cpuTicks(pid) - ticks) / double(sysconf(_SC_CLK_TCK)) / seconds;
    const double wakeups = double(bench::contextSwitches(pid) - switches) / seconds;
    std::printf("while a track plays, panel closed: cpu %.2f%%, wakeups %.1f/s\n", cpu, wakeups);
    ostavell.terminate();
    ostavell.waitForFinished(10000);
    mpv.terminate();
    mpv.waitForFinished();
    return 0;
}

#include "bench_media.moc"
