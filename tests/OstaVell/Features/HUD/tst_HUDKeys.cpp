// The whole app in this process on a real X server with a real pulseaudio: the volume keys,
// pressed through the X server, reach the sink through the app's grab, and another program's
// changes are followed; the peek takes the closed wings from a playing track; the feedback sound plays on the
// sink when asked for; the setting off, or a key another program holds, leaves no grab; keys the HUD can't
// act on are left to the desktop. The server may go and come back, and an output without a mute of its own is
// muted in software.
#include "OstaVell/AppDelegate.h"
#include "OstaVell/DisplayShelfController.h"
#include "OstaVell/Features/HUD/HUDBrightnessManager.h"
#include "OstaVell/Features/HUD/HUDSettings.h"
#include "OstaVell/Features/HUD/HUDVolumeManager.h"
#include "OstaVell/Features/HUD/MediaKeyInterceptor.h"
#include "OstaVell/Features/HUD/VolumeTargetManager.h"
#include "OstaVell/Features/Media/MusicManager.h"
#include "OstaVell/ShelfController.h"
#include "OstaVell/ShelfPanel.h"
#include "OstaVell/Support/SettingsStore.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QCursor>
#include <QGuiApplication>
#include <QQuickItem>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QScopeGuard>
#include <QScreen>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

#include "../../../VellHost/Media/MpvPlayer.h"
#include "../../QuickTestSupport.h"
#include "SoundServer.h"

using namespace vell;
using namespace vell::test;

namespace {

constexpr int patience = 20000;
constexpr quint32 raiseVolume = 0x1008FF13;
constexpr quint32 brightnessUp = 0x1008FF02;

// An output that has a level but no mute, as some hardware is; the sound server has none such.
// Each write comes back as a reading, as a server's echo would.
class OutputWithoutMute final : public HUDAudioOutput {
public:
    HUDOutputReading state{true, "hdmi", "HDMI", 0.4f, std::nullopt, true, false};
    void start() override {}
    HUDOutputReading reading() const override { return state; }
    void writeVolume(float volume) override { change(volume); }
    void writeMuted(bool) override { QFAIL("an output without mute was asked to mute"); }
    void change(float volume) {
        state.volume = volume;
        emit readingChanged();
    }
};

// Another X client, as a desktop that wants the key for itself would be.
class OtherClient final {
public:
    ~OtherClient() { xcb_disconnect(m_connection); }

    // Whether the server let it have the key without modifiers.
    bool grab(quint32 keysym) {
        std::unique_ptr<xcb_key_symbols_t, decltype(&xcb_key_symbols_free)> symbols(
            xcb_key_symbols_alloc(m_connection), &xcb_key_symbols_free);
        std::unique_ptr<xcb_keycode_t, decltype(&free)> codes(
            xcb_key_symbols_get_keycode(symbols.get(), keysym), &free);
        const xcb_keycode_t keycode = codes ? *codes : 0;
        xcb_generic_error_t* error =
            xcb_request_check(m_connection, xcb_grab_key_checked(m_connection, 1, root(), 0, keycode,
                                                                 XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        const bool granted = keycode != 0 && !error;
        free(error);
        return granted;
    }

    // Lets go of every key and waits until the server has done so, before anyone else tries.
    void release() {
        xcb_ungrab_key(m_connection, XCB_GRAB_ANY, root(), XCB_MOD_MASK_ANY);
        free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    }

private:
    xcb_window_t root() const { return xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root; }

    xcb_connection_t* m_connection = xcb_connect(nullptr, nullptr);
};

} // namespace

class tst_HUDKeys final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void everyChangeReachesTheHUD_data();
    void everyChangeReachesTheHUD();
    void thePeekTakesTheClosedWings();
    void feedbackPlaysOnlyWhenAsked();
    void noGrabOfKeysUnusedOffOrHeldElsewhere();
    void waylandGrabsNothing();
    void softwareMute_data();
    void softwareMute();
    void theServerMayGoAndComeBack();

private:
    static MediaKeyInterceptor* keys() { return MediaKeyInterceptor::instance(); }
    static HUDVolumeManager* hardware() { return HUDVolumeManager::instance(); }
    DisplayShelfController* panel() const { return m_app->shelf()->panels().first(); }
    // The settings window's content, once it is open.
    static QQuickItem* settings() {
        const QWindowList windows = QGuiApplication::topLevelWindows();
        for (QWindow* window : windows)
            if (auto* quick = qobject_cast<QQuickWindow*>(window);
                quick && window->title() == u"OstaVell Settings")
                return quick->contentItem();
        return nullptr;
    }

    SoundServer m_server;
    std::unique_ptr<AppDelegate> m_app;
};

void tst_HUDKeys::initTestCase() {
    QVERIFY(m_server.start());
    // The app's own style, as main() sets it.
    QQuickStyle::setStyle(QStringLiteral("Material"));
    QCursor::setPos(QGuiApplication::primaryScreen()->geometry().bottomLeft());
    SettingsStore::instance()->setReplaceSystemHUD(true);
    m_app = std::make_unique<AppDelegate>();
    m_app->applicationDidFinishLaunching();
    QTRY_VERIFY_WITH_TIMEOUT(HUDVolumeManager::instance()->hasOutputDevice(), patience);
    QTRY_VERIFY_WITH_TIMEOUT(keys()->isActive(), patience);
    QVERIFY(keys()->grabAvailable());
    // No route: the volume is the system output's, and nothing wakes it up by itself.
    QCOMPARE(VolumeTargetManager::instance()->targetName(), QStringLiteral("Speakers"));
    QVERIFY(!VolumeTargetManager::instance()->refreshing());
}

void tst_HUDKeys::cleanupTestCase() {
    m_app.reset();
}

void tst_HUDKeys::init() {
    HUDSettings::instance()->setVolumeFeedback(false);
    HUDSettings::instance()->setShowOnExternalChange(true);
    VolumeTargetManager::instance()->select("mac");
    QVERIFY(SoundServer::setVolume(0.5));
    QVERIFY(SoundServer::pactl({"set-sink-mute", "@DEFAULT_SINK@", "0"}));
    QTRY_VERIFY_WITH_TIMEOUT(hardware()->volume() == 0.5f && !hardware()->isMuted(), patience);
    SneakPeekCoordinator::instance()->hide();
}

void tst_HUDKeys::everyChangeReachesTheHUD_data() {
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<QString>("before");
    QTest::addColumn<double>("volume");
    QTest::addColumn<bool>("muted");

    const auto press = [](const QStringList& keys) { return QStringList{"xdotool", "key"} + keys; };
    QTest::addRow("Shift and Alt: a quarter step")
        << press({"shift+alt+XF86AudioRaiseVolume"}) << QString() << 0.515625 << false;
    QTest::addRow("Shift alone: a whole step")
        << press({"shift+XF86AudioRaiseVolume"}) << QString() << 0.5625 << false;
    QTest::addRow("Alt alone: a whole step")
        << press({"alt+XF86AudioLowerVolume"}) << QString() << 0.4375 << false;
    // Repeats come faster than the server answers: each starts from the step before it.
    QTest::addRow("each repeat a step")
        << press({"--repeat", "3", "XF86AudioRaiseVolume"}) << QString() << 0.6875 << false;
    QTest::addRow("mute") << press({"XF86AudioMute"}) << QString() << 0.5 << true;
    QTest::addRow("unmute") << press({"XF86AudioMute"}) << "muted" << 0.5 << false;
    QTest::addRow("up unmutes") << press({"XF86AudioRaiseVolume"}) << "muted" << 0.5625 << false;
    QTest::addRow("down stays muted") << press({"XF86AudioLowerVolume"}) << "muted" << 0.4375 << true;

    // 37.5%: a level the server's integer scale holds exactly.
    const QStringList level{"pactl", "set-sink-volume", "@DEFAULT_SINK@", "37.5%"};
    QTest::addRow("another program's level") << level << QString() << 0.375 << false;
    QTest::addRow("another program's mute")
        << QStringList{"pactl", "set-sink-mute", "@DEFAULT_SINK@", "1"} << QString() << 0.5 << true;
    QTest::addRow("another program's, not to be shown") << level << "not shown" << 0.375 << false;
    QTest::addRow("another program's, on a routed output: not what is heard")
        << level << "routed" << 0.375 << false;
}

void tst_HUDKeys::everyChangeReachesTheHUD() {
    QFETCH(QStringList, command);
    QFETCH(QString, before);
    QFETCH(double, volume);
    QFETCH(bool, muted);
    SneakPeekCoordinator* peek = SneakPeekCoordinator::instance();
    const HUDEventSource source =
        command.first() == u"xdotool" ? HUDEventSource::internalControl : HUDEventSource::external;
    if (before == u"muted") {
        QVERIFY(SoundServer::pactl({"set-sink-mute", "@DEFAULT_SINK@", "1"}));
        QTRY_VERIFY_WITH_TIMEOUT(hardware()->isMuted(), patience);
        peek->hide();
    }
    if (before == u"not shown")
        HUDSettings::instance()->setShowOnExternalChange(false);
    // A route to a control no plugin offers now: still a route.
    if (before == u"routed")
        UserDefaults::instance()->setValue(
            VolumeRoutes::key,
            QByteArray(R"({"outputs":{"speakers":{"pluginID":"app.gone","endpointID":"desk"}}})"));
    const int plays = keys()->feedback().plays();
    // Another program's change right after a key of ours would pass for that key's echo.
    if (source == HUDEventSource::external)
        QTRY_VERIFY_WITH_TIMEOUT(!hardware()->expectsOwnEcho(), patience);
    // Held as a finger on the slider holds it: a slow machine may take longer than the peek's
    // 1.5 s to follow the change, and the peek must still be there to be looked at.
    peek->setInteracting(true);
    const auto letGo = qScopeGuard([peek] { peek->setInteracting(false); });

    QVERIFY(run(command.first(), command.mid(1)));
    QTRY_COMPARE_WITH_TIMEOUT(SoundServer::volume(), std::optional(volume), patience);
    QTRY_COMPARE_WITH_TIMEOUT(SoundServer::muted(), std::optional(muted), patience);
    // The server's echo of our own change is ours, not another program's.
    QTRY_VERIFY_WITH_TIMEOUT(hardware()->volume() == float(volume) && hardware()->isMuted() == muted,
                             patience);
    QCOMPARE(hardware()->lastChangeSource(), source);
    QCOMPARE(keys()->feedback().plays(), plays);
    // The peek is decided with the change itself: once the change is followed, it is decided.
    QCOMPARE(peek->visible(), before != u"not shown" && before != u"routed");
    if (!peek->visible())
        return;
    const bool muteChange = command.join(u' ').contains(u"mute", Qt::CaseInsensitive);
    QCOMPARE(peek->type(), muteChange ? SneakPeekType::mute : SneakPeekType::volume);
    QCOMPARE(peek->value(), float(volume));
    QCOMPARE(peek->lastEventSource(), source);
    QCOMPARE(VolumeTargetManager::instance()->hudLabel(),
             muted ? QStringLiteral("Muted") : QStringLiteral("Volume"));
}

void tst_HUDKeys::thePeekTakesTheClosedWings() {
    // A track plays in a real player: the closed wings show it until the peek takes them.
    QTemporaryDir music;
    MpvPlayer player;
    QVERIFY(player.start({MpvPlayer::tone(music.path(), "Harbour Lights", 440)}, false, music.path()));
    QQuickItem* content = panel()->panel()->contentItem();
    QTRY_VERIFY_WITH_TIMEOUT(shown(content, QStringLiteral("left:media.left")), patience);
    QTRY_VERIFY_WITH_TIMEOUT(shown(content, QStringLiteral("mediaWingBars")), patience);
    // Now playing's volume slider is the system output's, both ways.
    MusicManager::instance()->setSystemVolume(0.25);
    QTRY_COMPARE_WITH_TIMEOUT(SoundServer::volume(), std::optional(0.25), patience);
    QVERIFY(SoundServer::setVolume(0.5));
    QTRY_COMPARE_WITH_TIMEOUT(MusicManager::instance()->systemVolume(), 0.5, patience);
    QVERIFY(drawn(panel()->panel()));
    const QString folder = qEnvironmentVariable("VELL_BUILD_DIR") + QStringLiteral("/screenshots");
    QVERIFY(QDir().mkpath(folder));
    QVERIFY(run("import", {"-display", qEnvironmentVariable("DISPLAY"), "-window", "root",
                           folder + "/app-closed-playing.png"}));

    SneakPeekCoordinator* peek = SneakPeekCoordinator::instance();
    // Held as a finger on the slider holds it, for the picture, however slow the machine.
    peek->setInteracting(true);
    QVERIFY(run("xdotool", {"key", "--repeat", "4", "XF86AudioRaiseVolume"}));
    QTRY_COMPARE_WITH_TIMEOUT(SoundServer::volume(), std::optional(0.75), patience);
    QTRY_VERIFY_WITH_TIMEOUT(shown(content, QStringLiteral("left:hud.left")), patience);
    QTRY_VERIFY_WITH_TIMEOUT(shown(content, QStringLiteral("right:hud.right")), patience);
    QTRY_COMPARE_WITH_TIMEOUT(findItem(content, QStringLiteral("hudLabel"))->property("text").toString(),
                              QStringLiteral("Volume"), patience);
    QQuickItem* fill = findItem(content, QStringLiteral("hudLevelFill"));
    QTRY_COMPARE_WITH_TIMEOUT(fill->width(), 96 * 0.75, patience);
    QVERIFY(drawn(panel()->panel()));
    QVERIFY(run("import", {"-display", qEnvironmentVariable("DISPLAY"), "-window", "root",
                           folder + "/hud-volume.png"}));
    peek->setInteracting(false);

    // A finger on the bar sets the level where it lands, and holds the peek until it lifts.
    QQuickItem* track = findItem(content, QStringLiteral("hudLevel"));
    const QPoint quarter = track->mapToScene(QPointF(track->width() / 4, track->height() / 2)).toPoint();
    QTest::mousePress(panel()->panel(), Qt::LeftButton, {}, quarter);
    // Within the pixel the press lands on.
    QTRY_VERIFY_WITH_TIMEOUT(qAbs(SoundServer::volume().value_or(-1) - 0.25) <= 1.0 / track->width(),
                             patience);
    QVERIFY(peek->isInteracting());
    QCOMPARE(peek->hidesIn(), -1);
    QTest::mouseRelease(panel()->panel(), Qt::LeftButton, {}, quarter);
    QVERIFY(!peek->isInteracting());
    // Let go, the peek leaves by itself and the wings are what they were.
    QTRY_VERIFY_WITH_TIMEOUT(!peek->visible(), patience);
    QTRY_VERIFY_WITH_TIMEOUT(!shown(content, QStringLiteral("left:hud.left")), patience);
    QTRY_VERIFY_WITH_TIMEOUT(shown(content, QStringLiteral("left:media.left")), patience);
}

void tst_HUDKeys::feedbackPlaysOnlyWhenAsked() {
    const int plays = keys()->feedback().plays();
    // The sound is a new stream on the sink.
    QProcess events;
    events.start(QStringLiteral("pactl"), {"subscribe"});
    QVERIFY(events.waitForStarted(patience));
    HUDSettings::instance()->setVolumeFeedback(true);
    QVERIFY(run("xdotool", {"key", "XF86AudioLowerVolume"}));
    QTRY_COMPARE_WITH_TIMEOUT(SoundServer::volume(), std::optional(0.4375), patience);
    QCOMPARE(keys()->feedback().plays(), plays + 1);
    QByteArray heard;
    QTRY_VERIFY_WITH_TIMEOUT((heard += events.readAllStandardOutput()).contains("'new' on sink-input"),
                             patience);
    events.kill();
    events.waitForFinished(patience);

    // Mute makes no sound.
    QVERIFY(run("xdotool", {"key", "XF86AudioMute"}));
    QTRY_COMPARE_WITH_TIMEOUT(SoundServer::muted(), std::optional(true), patience);
    QCOMPARE(keys()->feedback().plays(), plays + 1);
}

void tst_HUDKeys::noGrabOfKeysUnusedOffOrHeldElsewhere() {
    OtherClient desktop;
    // No backlight here: the brightness keys are not ours, and another program may have them.
    QVERIFY(!HUDBrightnessManager::instance()->isAvailable());
    QVERIFY(!keys()->actionableKeys().contains(MediaKeyInterceptor::Key::brightnessUp));
    QVERIFY(desktop.grab(brightnessUp));
    QVERIFY(!desktop.grab(raiseVolume));

    SettingsStore::instance()->setReplaceSystemHUD(false);
    QVERIFY(!keys()->isActive());
    // The key is free: another program can take it, and then it is theirs.
    QVERIFY(desktop.grab(raiseVolume));
    SettingsStore::instance()->setReplaceSystemHUD(true);
    QVERIFY(!keys()->isActive());
    QVERIFY(!keys()->grabAvailable());
    // While the other program holds it, asking again changes nothing.
    QVERIFY(SoundServer::setVolume(0.25));
    QTRY_COMPARE_WITH_TIMEOUT(hardware()->volume(), 0.25f, patience);
    QVERIFY(!keys()->isActive());
    // The settings pane says so, beside the switch that tries again.
    m_app->showSettings(QStringLiteral("Volume and brightness"));
    QTRY_VERIFY_WITH_TIMEOUT(settings() && shown(settings(), QStringLiteral("grabState")), patience);
    QCOMPARE(findItem(settings(), QStringLiteral("grabState"))->property("text").toString(),
             QStringLiteral("Another program holds the volume or brightness keys, so they stay with it "
                            "until it lets them go."));
    QVERIFY(findItem(settings(), QStringLiteral("replaceSystemHUD"))->property("checked").toBool());
    QCOMPARE(findItem(settings(), QStringLiteral("volumeRoute"))->property("displayText").toString(),
             QStringLiteral("System audio output"));
    screenshot(settings()->window(), QStringLiteral("hud-settings-refused"));

    // Let go of, the keys are taken without anyone touching the setting.
    desktop.release();
    QTRY_VERIFY_WITH_TIMEOUT(keys()->isActive(), patience);
    QVERIFY(keys()->grabAvailable());
    QTRY_VERIFY(!shown(settings(), QStringLiteral("grabState")));
    QVERIFY(run("xdotool", {"key", "XF86AudioRaiseVolume"}));
    QTRY_COMPARE_WITH_TIMEOUT(SoundServer::volume(), std::optional(0.3125), patience);
}

void tst_HUDKeys::waylandGrabsNothing() {
    qputenv("XDG_SESSION_TYPE", "wayland");
    MediaKeyInterceptor interceptor(VolumeTargetManager::instance(), HUDBrightnessManager::instance(),
                                    SettingsStore::instance(), HUDSettings::instance(),
                                    SneakPeekCoordinator::instance());
    interceptor.start();
    qunsetenv("XDG_SESSION_TYPE");
    QVERIFY(interceptor.keysUnavailable());
    QVERIFY(!interceptor.isActive());
    SettingsStore::instance()->setReplaceSystemHUD(true);
    QVERIFY(!interceptor.isActive());
}

void tst_HUDKeys::softwareMute_data() {
    QTest::addColumn<QString>("between");
    QTest::addColumn<float>("volume");

    QTest::addRow("unmute restores the level") << QString() << 0.4f;
    QTest::addRow("a new output remembers nothing: unmute goes to half") << "new output" << 0.5f;
    QTest::addRow("raised elsewhere is unmuted") << "raised elsewhere" << 0.3f;
}

void tst_HUDKeys::softwareMute() {
    QFETCH(QString, between);
    QFETCH(float, volume);
    SneakPeekCoordinator peek{nullptr};
    auto* output = new OutputWithoutMute;
    HUDVolumeManager hardware(output, HUDSettings::instance(), &peek);
    hardware.start();
    QVERIFY(!hardware.canMute());
    QCOMPARE(hardware.volume(), 0.4f);

    // Muted by someone else's hand, so that what follows is not taken for our own echo.
    const bool elsewhere = between == u"raised elsewhere";
    hardware.setMuted(true, elsewhere ? HUDEventSource::external : HUDEventSource::internalControl);
    QVERIFY(hardware.isMuted());
    QCOMPARE(output->state.volume, std::optional(0.0f));
    if (between == u"new output") {
        output->state.uid = QStringLiteral("hdmi-2");
        emit output->readingChanged();
        QCOMPARE(hardware.outputUID(), QStringLiteral("hdmi-2"));
        QVERIFY(hardware.isMuted());
    }
    if (elsewhere)
        output->change(volume);
    else
        hardware.setMuted(false, HUDEventSource::internalControl);
    QVERIFY(!hardware.isMuted());
    QCOMPARE(output->state.volume, std::optional(volume));
    QCOMPARE(hardware.volume(), volume);
}

void tst_HUDKeys::theServerMayGoAndComeBack() {
    m_server.stop();
    QTRY_VERIFY_WITH_TIMEOUT(!hardware()->hasOutputDevice(), patience);
    QVERIFY(!VolumeTargetManager::instance()->available());
    QVERIFY(m_server.start());
    QTRY_VERIFY_WITH_TIMEOUT(hardware()->hasOutputDevice(), patience);
    QCOMPARE(hardware()->outputUID(), QStringLiteral("speakers"));
    SneakPeekCoordinator::instance()->hide();
    QVERIFY(SoundServer::setVolume(0.75));
    QTRY_COMPARE_WITH_TIMEOUT(hardware()->volume(), 0.75f, patience);
    QVERIFY(SneakPeekCoordinator::instance()->visible());
}

QTEST_MAIN(tst_HUDKeys)
#include "tst_HUDKeys.moc"
