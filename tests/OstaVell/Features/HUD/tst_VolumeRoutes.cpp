// Volume keys routed to the real Speakers plugin's controls, beside a real pulseaudio: one that
// confirms, one that never answers, one that answers with an old reading, one that answers about
// another control. Each change goes out once, as Speakers' own log shows. A saved route outlives
// its plugin, an unreadable one is left alone until a person chooses.
#include "OstaVell/Features/HUD/HUDBrightnessManager.h"
#include "OstaVell/Features/HUD/HUDFeature.h"
#include "OstaVell/Features/HUD/HUDPulseOutput.h"
#include "OstaVell/Features/HUD/HUDSettings.h"
#include "OstaVell/Features/HUD/HUDVolumeManager.h"
#include "OstaVell/Features/HUD/MediaKeyInterceptor.h"
#include "OstaVell/Features/HUD/VolumeTargetManager.h"
#include "OstaVell/Modules/Plugins/NativePluginStore.h"
#include "OstaVell/Support/SettingsStore.h"
#include "OstaVell/Support/UserDefaults.h"
#include "VellHost/NativePluginBundle.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include "SoundServer.h"

using namespace vell;
using namespace vell::test;

namespace {

constexpr int patience = 30000;
// Short enough to wait for, long enough for a loaded machine's plugin to answer in.
constexpr std::chrono::milliseconds confirmationTimeout{4000};
const QString speakers = QStringLiteral("app.ostavell.example.speakers");

QString control(const QString& endpoint) {
    return speakers + u'/' + endpoint;
}

// Speakers writes one line for every command before it acts: request id, endpoint, operation.
QStringList commandsFor(const QString& endpoint) {
    QFile file(QDir::homePath() + QStringLiteral("/.local/share/OstaVellPlugins/") + speakers +
               QStringLiteral("/speakers.log"));
    QStringList lines;
    if (file.open(QIODevice::ReadOnly))
        for (const QByteArray& line : file.readAll().split('\n'))
            if (line.split(' ').value(1) == endpoint.toUtf8())
                lines.append(QString::fromUtf8(line));
    return lines;
}

} // namespace

class tst_VolumeRoutes final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void eachAnswerDecidesOnce_data();
    void eachAnswerDecidesOnce();
    void aNewOutputLeavesTheWaitBehind();
    void routesAreSavedAndUnreadableOnesLeftUntilChosen();
    void aRouteOutlivesItsPlugin();

private:
    PluginVolumeRegistry& registry() const { return m_volume->registry(); }

    QTemporaryDir m_data;
    SoundServer m_server;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<HUDSettings> m_settings;
    SneakPeekCoordinator m_peek{nullptr};
    std::unique_ptr<NativePluginStore> m_store;
    std::unique_ptr<VolumeTargetManager> m_volume;
};

void tst_VolumeRoutes::initTestCase() {
    QVERIFY(m_server.start());
    QVERIFY(SoundServer::setVolume(0.5));
    m_defaults = std::make_unique<UserDefaults>(m_data.filePath("OstaVell.conf"));
    m_settings = std::make_unique<HUDSettings>(m_defaults.get());
    auto* hardware = new HUDVolumeManager(new HUDPulseOutput, m_settings.get(), &m_peek);
    m_volume = std::make_unique<VolumeTargetManager>(hardware, new PluginVolumeRegistry(confirmationTimeout),
                                                     m_defaults.get(), m_settings.get(), &m_peek);
    hardware->setParent(m_volume.get());
    m_store = std::make_unique<NativePluginStore>(m_data.filePath("Plugins"));
    // Joined before the plugin starts, so that its first list is heard.
    HUDFeature::connectPlugins(registry(), m_store->sessions());
    const QString bundle =
        qEnvironmentVariable("VELL_BUILD_DIR") + QStringLiteral("/examples/plugins/Speakers.app");
    m_store->install(bundle, NativePluginBundle::inspect(bundle).fingerprint);
    hardware->start();
    m_volume->start();
    QTRY_COMPARE_WITH_TIMEOUT(registry().endpoints().size(), 4, patience);
    QTRY_COMPARE_WITH_TIMEOUT(hardware->outputUID(), QStringLiteral("speakers"), patience);
    // Every control is a choice; none is chosen yet.
    QVariantList names;
    for (const QVariant& choice : m_volume->choices())
        names.append(choice.toMap().value("name"));
    QCOMPARE(names, (QVariantList{"System audio output", "Desk speakers", "Silent amplifier", "Old receiver",
                                  "Crossed wires"}));
    QCOMPARE(m_volume->selectionID(), QStringLiteral("mac"));
    QCOMPARE(m_volume->targetName(), QStringLiteral("Speakers"));
}

void tst_VolumeRoutes::cleanupTestCase() {
    m_store.reset();
    m_volume.reset();
}

void tst_VolumeRoutes::eachAnswerDecidesOnce_data() {
    QTest::addColumn<QString>("endpoint");
    QTest::addColumn<QString>("status");
    QTest::addColumn<QString>("label");

    const QString timedOut = PluginVolumeRegistry::timedOutMessage.toString();
    QTest::addRow("confirmed") << "desk" << QStringLiteral("Confirmed by Desk speakers") << "Volume";
    QTest::addRow("never answered") << "silent" << timedOut << "Check volume";
    QTest::addRow("an old reading") << "stale" << PluginVolumeRegistry::staleMessage.toString()
                                    << "Check volume";
    QTest::addRow("about another control") << "crossed" << timedOut << "Check volume";
}

void tst_VolumeRoutes::eachAnswerDecidesOnce() {
    QFETCH(QString, endpoint);
    QFETCH(QString, status);
    QFETCH(QString, label);
    m_volume->select(control(endpoint));
    QVERIFY(m_volume->routed());
    QVERIFY(m_volume->refreshing());
    QCOMPARE(m_volume->selectionID(), control(endpoint));
    const double before = m_volume->volume();
    const double desk = registry().endpoint({speakers, "desk"})->state.volume.value();
    const std::optional<double> system = SoundServer::volume();
    const qsizetype sent = commandsFor(endpoint).size();

    // A key's step is the plugin's: the HUD shows what was asked for at once, and the feedback
    // sound, which speaks for the system's own output, stays silent.
    m_settings->setVolumeFeedback(true);
    MediaKeyInterceptor keys(m_volume.get(), HUDBrightnessManager::instance(), SettingsStore::instance(),
                             m_settings.get(), &m_peek);
    keys.perform(MediaKeyInterceptor::Key::volumeUp, false);
    QCOMPARE(keys.feedback().plays(), 0);
    QCOMPARE(m_volume->status(), QStringLiteral("Waiting for confirmation\u2026"));
    QVERIFY(m_peek.visible());
    QCOMPARE(m_peek.value(), float(before + 0.0625));
    // A second press while the first waits is dropped.
    QVERIFY(m_volume->perform(PluginVolumeOperation::adjustVolume(0.0625)));
    QVERIFY(m_volume->busy());

    QTRY_COMPARE_WITH_TIMEOUT(m_volume->status(), status, patience);
    QCOMPARE(m_volume->hudLabel(), label);
    QVERIFY(!m_volume->busy());
    QCOMPARE(commandsFor(endpoint).size(), sent + 1);
    QVERIFY(commandsFor(endpoint).last().endsWith(R"({"adjustVolume":{"_0":0.0625}})"));
    // The system's own output heard nothing of it.
    QCOMPARE(SoundServer::volume(), system);
    if (endpoint == u"desk") {
        QCOMPARE(m_volume->volume(), float(before + 0.0625));
        QCOMPARE(m_peek.value(), float(before + 0.0625));
    } else {
        // What the peek shows goes back to what is known; an answer about the desk moved nothing.
        QCOMPARE(registry().endpoint({speakers, "desk"})->state.volume, std::optional(desk));
        QCOMPARE(m_volume->volume(), float(before));
    }
}

void tst_VolumeRoutes::aNewOutputLeavesTheWaitBehind() {
    m_volume->select(control("silent"));
    QVERIFY(m_volume->perform(PluginVolumeOperation::toggleMute()));
    QVERIFY(m_volume->showsMutedState());
    QVERIFY(SoundServer::pactl(
        {"load-module", "module-null-sink", "sink_name=desk", "sink_properties=device.description=Desk"}));
    QVERIFY(SoundServer::pactl({"set-default-sink", "desk"}));
    // The new output has no route: the peek of the old one goes at once, and none is shown for it.
    QTRY_COMPARE_WITH_TIMEOUT(m_volume->selectionID(), QStringLiteral("mac"), patience);
    QCOMPARE(m_volume->targetName(), QStringLiteral("Desk"));
    QVERIFY(!m_peek.visible());
    // The wait still ends, and its end touches neither the status nor the peek.
    QTRY_VERIFY_WITH_TIMEOUT(registry().busyPlugins().isEmpty(), patience);
    QCOMPARE(m_volume->status(), QString());
    QVERIFY(!m_peek.visible());
    QVERIFY(SoundServer::pactl({"set-default-sink", "speakers"}));
    QTRY_COMPARE_WITH_TIMEOUT(m_volume->selectionID(), control("silent"), patience);
}

void tst_VolumeRoutes::routesAreSavedAndUnreadableOnesLeftUntilChosen() {
    // The system's own output needs no route, and without one nothing keeps waking up.
    m_volume->select("mac");
    QVERIFY(!m_volume->routed());
    QVERIFY(!m_volume->refreshing());
    QCOMPARE(m_defaults->dataValue(VolumeRoutes::key), QByteArray(R"({"outputs":{}})"));
    for (const QByteArray& unreadable :
         {QByteArray(R"({"outputs":{"speakers":)"), QByteArray(R"({"outputs":[1]})")}) {
        m_defaults->setValue(VolumeRoutes::key, unreadable);
        QCOMPARE(m_volume->selectionID(), QStringLiteral("mac"));
        QVERIFY(!m_volume->perform(PluginVolumeOperation::adjustVolume(0.0625)));
        QCOMPARE(m_defaults->dataValue(VolumeRoutes::key), unreadable);
    }
    m_volume->select(control("desk"));
    QCOMPARE(m_defaults->dataValue(VolumeRoutes::key),
             QByteArray(R"({"outputs":{"speakers":{"pluginID":"app.ostavell.example.speakers",)"
                        R"("endpointID":"desk"}}})"));
}

void tst_VolumeRoutes::aRouteOutlivesItsPlugin() {
    // A wait of a session that ends ends with it.
    m_volume->select(control("silent"));
    QVERIFY(m_volume->perform(PluginVolumeOperation::adjustVolume(0.0625)));
    m_store->setEnabled(speakers, false);
    QTRY_COMPARE_WITH_TIMEOUT(m_volume->status(), PluginVolumeRegistry::disconnectedMessage.toString(),
                              patience);

    QTRY_VERIFY_WITH_TIMEOUT(registry().endpoints().isEmpty(), patience);
    QVERIFY(m_volume->routed());
    QVERIFY(!m_volume->available());
    QCOMPARE(m_volume->targetName(), QStringLiteral("Saved volume control"));
    // Nothing left that could go stale: nothing wakes, and the status keeps saying what ended.
    QVERIFY(!m_volume->refreshing());
    QCOMPARE(m_volume->status(), PluginVolumeRegistry::disconnectedMessage.toString());
    QCOMPARE(m_volume->hudLabel(), QStringLiteral("Unavailable"));
    QCOMPARE(m_volume->choices().last().toMap(),
             (QVariantMap{{"id", control("silent")}, {"name", "Saved volume control"}}));
    const qsizetype sent = commandsFor("silent").size();
    QVERIFY(m_volume->perform(PluginVolumeOperation::adjustVolume(0.0625)));
    QCOMPARE(m_volume->status(), QStringLiteral("Selected volume control is unavailable. No change sent."));
    QCOMPARE(commandsFor("silent").size(), sent);

    // Back again, its control is the route again.
    m_store->setEnabled(speakers, true);
    QTRY_VERIFY_WITH_TIMEOUT(m_volume->available(), patience);
    QCOMPARE(m_volume->targetName(), QStringLiteral("Silent amplifier"));
    QCOMPARE(m_volume->status(), QString());

    // Gone with nothing in flight, it says why nothing can be sent.
    m_store->setEnabled(speakers, false);
    QTRY_COMPARE_WITH_TIMEOUT(m_volume->status(),
                              QStringLiteral("Selected control is unavailable. No change will be sent."),
                              patience);
    m_store->setEnabled(speakers, true);
    QTRY_VERIFY_WITH_TIMEOUT(m_volume->available(), patience);
}

QTEST_MAIN(tst_VolumeRoutes)
#include "tst_VolumeRoutes.moc"
