// The system output's volume on a real pulseaudio: changes made by another program are
// followed and shown, ours are not reported back as theirs, the keys' steps and the mute reach
// the server, a new default sink is a new output, and the server may go and come back. An
// output without a mute of its own is muted in software.
#include "OstaVell/Features/HUD/HUDPulseOutput.h"
#include "OstaVell/Features/HUD/HUDSettings.h"
#include "OstaVell/Features/HUD/HUDVolumeManager.h"
#include "OstaVell/Features/HUD/VolumeTargetManager.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QTemporaryDir>
#include <QTest>

#include "SoundServer.h"

using namespace vell;
using namespace vell::test;
using Kind = PluginVolumeOperation::Kind;

namespace {

constexpr int patience = 20000;

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

} // namespace

Q_DECLARE_METATYPE(PluginVolumeOperation)

class tst_HUDVolumeManager final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void externalChangesAreFollowedAndShown();
    void externalChangesShowNothingWhenSwitchedOffOrRouted();
    void ourChangesReachTheServer_data();
    void ourChangesReachTheServer();
    void aNewDefaultSinkIsANewOutput();
    void theServerMayGoAndComeBack();
    void softwareMute_data();
    void softwareMute();

private:
    QTemporaryDir m_folder;
    SoundServer m_server;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<HUDSettings> m_settings;
    SneakPeekCoordinator m_peek{nullptr};
    HUDVolumeManager* m_hardware = nullptr;
    std::unique_ptr<VolumeTargetManager> m_volume;
};

void tst_HUDVolumeManager::initTestCase() {
    QVERIFY(m_server.start());
    m_defaults = std::make_unique<UserDefaults>(m_folder.filePath("OstaVell.conf"));
    m_settings = std::make_unique<HUDSettings>(m_defaults.get());
    m_hardware = new HUDVolumeManager(new HUDPulseOutput, m_settings.get(), &m_peek);
    m_volume = std::make_unique<VolumeTargetManager>(m_hardware, new PluginVolumeRegistry, m_defaults.get(),
                                                     m_settings.get(), &m_peek);
    m_hardware->setParent(m_volume.get());
    m_hardware->start();
    m_volume->start();
    QTRY_VERIFY_WITH_TIMEOUT(m_hardware->hasOutputDevice(), patience);
    QCOMPARE(m_hardware->outputUID(), QStringLiteral("speakers"));
    QCOMPARE(m_hardware->outputName(), QStringLiteral("Speakers"));
    QVERIFY(m_hardware->canSetVolume());
    QVERIFY(m_hardware->canMute());
    // No route: the façade is the system's output, and nothing wakes it up by itself.
    QCOMPARE(m_volume->targetName(), QStringLiteral("Speakers"));
    QVERIFY(!m_volume->refreshing());
}

void tst_HUDVolumeManager::init() {
    m_settings->setShowOnExternalChange(true);
    m_hardware->isRouted = nullptr;
    QVERIFY(SoundServer::setVolume(0.5));
    QVERIFY(SoundServer::pactl({"set-sink-mute", "@DEFAULT_SINK@", "0"}));
    QTRY_VERIFY_WITH_TIMEOUT(m_hardware->volume() == 0.5f && !m_hardware->isMuted(), patience);
    m_peek.hide();
}

void tst_HUDVolumeManager::externalChangesAreFollowedAndShown() {
    // 37.5%: a level the server's integer scale holds exactly.
    QVERIFY(SoundServer::pactl({"set-sink-volume", "@DEFAULT_SINK@", "37.5%"}));
    QTRY_COMPARE_WITH_TIMEOUT(m_hardware->volume(), 0.375f, patience);
    QCOMPARE(m_hardware->lastChangeSource(), HUDEventSource::external);
    QVERIFY(m_peek.visible());
    QCOMPARE(m_peek.type(), SneakPeekType::volume);
    QCOMPARE(m_peek.value(), 0.375f);
    QCOMPARE(m_peek.lastEventSource(), HUDEventSource::external);
    QCOMPARE(m_volume->volume(), 0.375f);

    m_peek.hide();
    QVERIFY(SoundServer::pactl({"set-sink-mute", "@DEFAULT_SINK@", "1"}));
    QTRY_VERIFY_WITH_TIMEOUT(m_hardware->isMuted(), patience);
    QVERIFY(m_peek.visible());
    QCOMPARE(m_peek.type(), SneakPeekType::mute);
    QCOMPARE(m_volume->hudLabel(), QStringLiteral("Muted"));
}

void tst_HUDVolumeManager::externalChangesShowNothingWhenSwitchedOffOrRouted() {
    // The peek is decided with the change itself: once the level is followed, it is decided.
    m_settings->setShowOnExternalChange(false);
    QVERIFY(SoundServer::setVolume(0.25));
    QTRY_COMPARE_WITH_TIMEOUT(m_hardware->volume(), 0.25f, patience);
    QVERIFY(!m_peek.visible());

    m_settings->setShowOnExternalChange(true);
    m_hardware->isRouted = [](const QString& output) { return output == QStringLiteral("speakers"); };
    QVERIFY(SoundServer::setVolume(0.125));
    QTRY_COMPARE_WITH_TIMEOUT(m_hardware->volume(), 0.125f, patience);
    QVERIFY(!m_peek.visible());
}

void tst_HUDVolumeManager::ourChangesReachTheServer_data() {
    QTest::addColumn<PluginVolumeOperation>("operation");
    QTest::addColumn<bool>("mutedBefore");
    QTest::addColumn<double>("volume");
    QTest::addColumn<bool>("muted");

    QTest::addRow("a step up") << PluginVolumeOperation::adjustVolume(0.0625) << false << 0.5625 << false;
    QTest::addRow("a quarter step down")
        << PluginVolumeOperation::adjustVolume(-0.015625) << false << 0.484375 << false;
    QTest::addRow("mute") << PluginVolumeOperation::toggleMute() << false << 0.5 << true;
    QTest::addRow("unmute") << PluginVolumeOperation::toggleMute() << true << 0.5 << false;
    QTest::addRow("a step up unmutes")
        << PluginVolumeOperation::adjustVolume(0.0625) << true << 0.5625 << false;
    QTest::addRow("a step down stays muted")
        << PluginVolumeOperation::adjustVolume(-0.0625) << true << 0.4375 << true;
    QTest::addRow("a level") << PluginVolumeOperation::setVolume(0.25) << false << 0.25 << false;
    QTest::addRow("no step beyond the top") << PluginVolumeOperation::setVolume(1) << false << 1.0 << false;
}

void tst_HUDVolumeManager::ourChangesReachTheServer() {
    QFETCH(PluginVolumeOperation, operation);
    QFETCH(bool, mutedBefore);
    QFETCH(double, volume);
    QFETCH(bool, muted);
    if (mutedBefore) {
        QVERIFY(SoundServer::pactl({"set-sink-mute", "@DEFAULT_SINK@", "1"}));
        QTRY_VERIFY_WITH_TIMEOUT(m_hardware->isMuted(), patience);
        m_peek.hide();
    }

    // Without a route a change is the system's: the caller plays the feedback.
    QVERIFY(!m_volume->perform(operation));
    QVERIFY(m_peek.visible());
    QCOMPARE(m_peek.type(),
             operation.kind() == Kind::toggleMute ? SneakPeekType::mute : SneakPeekType::volume);
    QCOMPARE(m_peek.value(), float(volume));
    QTRY_COMPARE_WITH_TIMEOUT(SoundServer::volume(), std::optional(volume), patience);
    QTRY_COMPARE_WITH_TIMEOUT(SoundServer::muted(), std::optional(muted), patience);
    if (operation.kind() == Kind::adjustVolume && operation.step() > 0 && muted == false) {
        // One more step before the server has answered the first starts from the first.
        QVERIFY(!m_volume->perform(operation));
        QTRY_COMPARE_WITH_TIMEOUT(SoundServer::volume(),
                                  std::optional(std::min(1.0, volume + operation.step())), patience);
    }
    // The server's echo of our own change is ours: the peek still says so.
    QTRY_COMPARE_WITH_TIMEOUT(m_hardware->volume(), float(*SoundServer::volume()), patience);
    QCOMPARE(m_hardware->isMuted(), muted);
    QCOMPARE(m_hardware->lastChangeSource(), HUDEventSource::internalControl);
    QCOMPARE(m_peek.lastEventSource(), HUDEventSource::internalControl);
}

void tst_HUDVolumeManager::aNewDefaultSinkIsANewOutput() {
    QVERIFY(SoundServer::pactl(
        {"load-module", "module-null-sink", "sink_name=desk", "sink_properties=device.description=Desk"}));
    QVERIFY(SoundServer::pactl({"set-default-sink", "desk"}));
    QTRY_COMPARE_WITH_TIMEOUT(m_hardware->outputUID(), QStringLiteral("desk"), patience);
    QCOMPARE(m_hardware->outputName(), QStringLiteral("Desk"));
    QTRY_COMPARE_WITH_TIMEOUT(m_volume->targetName(), QStringLiteral("Desk"), patience);
    // A new output is no change of level: nothing is shown for it.
    QVERIFY(!m_peek.visible());
    QVERIFY(SoundServer::pactl({"set-default-sink", "speakers"}));
    QTRY_COMPARE_WITH_TIMEOUT(m_hardware->outputUID(), QStringLiteral("speakers"), patience);
}

void tst_HUDVolumeManager::theServerMayGoAndComeBack() {
    m_server.stop();
    QTRY_VERIFY_WITH_TIMEOUT(!m_hardware->hasOutputDevice(), patience);
    QVERIFY(!m_volume->available());
    QVERIFY(m_server.start());
    QTRY_VERIFY_WITH_TIMEOUT(m_hardware->hasOutputDevice(), patience);
    QCOMPARE(m_hardware->outputUID(), QStringLiteral("speakers"));
    m_peek.hide();
    QVERIFY(SoundServer::setVolume(0.75));
    QTRY_COMPARE_WITH_TIMEOUT(m_hardware->volume(), 0.75f, patience);
    QVERIFY(m_peek.visible());
}

void tst_HUDVolumeManager::softwareMute_data() {
    QTest::addColumn<QString>("between");
    QTest::addColumn<float>("volume");

    QTest::addRow("unmute restores the level") << QString() << 0.4f;
    QTest::addRow("a new output remembers nothing: unmute goes to half")
        << QStringLiteral("new output") << 0.5f;
    QTest::addRow("raised elsewhere is unmuted") << QStringLiteral("raised elsewhere") << 0.3f;
}

void tst_HUDVolumeManager::softwareMute() {
    QFETCH(QString, between);
    QFETCH(float, volume);

    SneakPeekCoordinator peek{nullptr};
    auto* output = new OutputWithoutMute;
    HUDVolumeManager hardware(output, m_settings.get(), &peek);
    hardware.start();
    QVERIFY(!hardware.canMute());
    QCOMPARE(hardware.volume(), 0.4f);

    // Muted by someone else's hand, so that what follows is not taken for our own echo.
    const bool elsewhere = between == u"raised elsewhere";
    hardware.setMuted(true, elsewhere ? HUDEventSource::external : HUDEventSource::internalControl);
    QVERIFY(hardware.isMuted());
    QCOMPARE(output->state.volume, std::optional(0.0f));
    if (elsewhere) {
        output->change(volume);
    } else {
        if (!between.isEmpty()) {
            output->state.uid = QStringLiteral("hdmi-2");
            emit output->readingChanged();
            QCOMPARE(hardware.outputUID(), QStringLiteral("hdmi-2"));
            QVERIFY(hardware.isMuted());
        }
        hardware.setMuted(false, HUDEventSource::internalControl);
    }
    QVERIFY(!hardware.isMuted());
    QCOMPARE(output->state.volume, std::optional(volume));
    QCOMPARE(hardware.volume(), volume);
}

QTEST_MAIN(tst_HUDVolumeManager)
#include "tst_HUDVolumeManager.moc"
