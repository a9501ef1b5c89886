// The system output's volume on a real pulseaudio: changes made by another program are
// followed and shown, and the server may go and come back. An output without a mute of its own
// is muted in software. Our own changes are the keys', in tst_HUDKeys.
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

class tst_HUDVolumeManager final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void externalChanges_data();
    void externalChanges();
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

void tst_HUDVolumeManager::externalChanges_data() {
    QTest::addColumn<QStringList>("change");
    QTest::addColumn<bool>("showOnExternalChange");
    QTest::addColumn<bool>("routed");
    QTest::addColumn<float>("volume");
    QTest::addColumn<bool>("muted");

    // 37.5%: a level the server's integer scale holds exactly.
    const QStringList level{"set-sink-volume", "@DEFAULT_SINK@", "37.5%"};
    QTest::addRow("a level") << level << true << false << 0.375f << false;
    QTest::addRow("a mute") << QStringList{"set-sink-mute", "@DEFAULT_SINK@", "1"} << true << false << 0.5f
                            << true;
    QTest::addRow("switched off") << level << false << false << 0.375f << false;
    QTest::addRow("routed: not what is heard") << level << true << true << 0.375f << false;
}

void tst_HUDVolumeManager::externalChanges() {
    QFETCH(QStringList, change);
    QFETCH(bool, showOnExternalChange);
    QFETCH(bool, routed);
    QFETCH(float, volume);
    QFETCH(bool, muted);
    m_settings->setShowOnExternalChange(showOnExternalChange);
    if (routed)
        m_hardware->isRouted = [](const QString& output) { return output == QStringLiteral("speakers"); };
    QVERIFY(SoundServer::pactl(change));
    // The peek is decided with the change itself: once the change is followed, it is decided.
    QTRY_VERIFY_WITH_TIMEOUT(m_hardware->volume() == volume && m_hardware->isMuted() == muted, patience);
    QCOMPARE(m_hardware->lastChangeSource(), HUDEventSource::external);
    QCOMPARE(m_volume->volume(), volume);
    QCOMPARE(m_peek.visible(), showOnExternalChange && !routed);
    if (!m_peek.visible())
        return;
    QCOMPARE(m_peek.type(), muted ? SneakPeekType::mute : SneakPeekType::volume);
    QCOMPARE(m_peek.value(), volume);
    QCOMPARE(m_peek.lastEventSource(), HUDEventSource::external);
    QCOMPARE(m_volume->hudLabel(), muted ? QStringLiteral("Muted") : QStringLiteral("Volume"));
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
    QTest::addRow("a new output remembers nothing: unmute goes to half") << "new output" << 0.5f;
    QTest::addRow("raised elsewhere is unmuted") << "raised elsewhere" << 0.3f;
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

QTEST_MAIN(tst_HUDVolumeManager)
#include "tst_HUDVolumeManager.moc"
