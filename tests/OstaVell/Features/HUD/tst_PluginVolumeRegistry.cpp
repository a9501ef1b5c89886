// The registry of plugins' volume controls on a clock of the test's own: every limit from both
// sides (age, lead, list length, busy), every way a wait ends, and answers that must change
// nothing (late, forged, about another control). The saved routes' form beside it.
#include "OstaVell/Features/HUD/PluginVolumeRegistry.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QTemporaryDir>
#include <QTest>

#include "TestSupport.h"

using namespace vell;
using namespace vell::test;
using Outcome = PluginVolumeRegistry::Outcome;

namespace {

const QString plugin = QStringLiteral("app.example.speakers");
const QUuid session = QUuid::createUuid();
const PluginVolumeTarget desk{plugin, QStringLiteral("desk")};
constexpr double start = 1'800'000'000;

PluginVolumeEndpoint endpoint(const QString& id, double observedAt, double volume = 0.5) {
    return {id, QStringLiteral("Desk speakers"), true, volume, false, true, true, observedAt};
}

QString outcomeText(const std::optional<Outcome>& outcome) {
    if (!outcome)
        return QStringLiteral("(waiting)");
    if (const auto* error = std::get_if<QString>(&outcome.value()))
        return *error;
    return QStringLiteral("confirmed %1").arg(std::get<PluginVolumeEndpoint>(*outcome).volume.value_or(-1));
}

} // namespace

class tst_PluginVolumeRegistry;
using EndpointChange = std::function<void(PluginVolumeEndpoint&)>;
using WaitEnd = std::function<void(tst_PluginVolumeRegistry*)>;
Q_DECLARE_METATYPE(EndpointChange)
Q_DECLARE_METATYPE(WaitEnd)
Q_DECLARE_METATYPE(PluginVolumeOperation)

class tst_PluginVolumeRegistry final : public QObject {
    Q_OBJECT

private slots:
    void init();
    void aControlIsUsedOnlyWhileFresh_data();
    void aControlIsUsedOnlyWhileFresh();
    void eightControlsAndNoMore_data();
    void eightControlsAndNoMore();
    void aBusyPluginGetsNothingMore();
    void everyWaitEndsOnce_data();
    void everyWaitEndsOnce();
    void answersThatChangeNothing_data();
    void answersThatChangeNothing();
    void anOlderReadingReplacesNothing();
    void routesAreSavedByOutput();

private:
    // A step sent to the desk speakers; the outcome lands in m_outcome.
    bool step(double by = 0.0625);
    PluginVolumeResult confirmation(double observedAt, double volume = 0.5625) const;

    std::unique_ptr<PluginVolumeRegistry> m_registry;
    double m_now = start;
    QList<PluginVolumeCommand> m_sent;
    std::optional<Outcome> m_outcome;
    int m_outcomes = 0;
};

void tst_PluginVolumeRegistry::init() {
    m_now = start;
    m_sent.clear();
    m_outcome.reset();
    m_outcomes = 0;
    m_registry = std::make_unique<PluginVolumeRegistry>(std::chrono::milliseconds(200));
    m_registry->now = [this] { return m_now; };
    m_registry->deliver = [this](const QString& to, const QUuid& in, const PluginVolumeCommand& command) {
        QCOMPARE(to, plugin);
        QCOMPARE(in, session);
        m_sent.append(command);
    };
    m_registry->update(plugin, session, {endpoint("desk", start)});
}

bool tst_PluginVolumeRegistry::step(double by) {
    return m_registry->request(desk, PluginVolumeOperation::adjustVolume(by), [this](const Outcome& outcome) {
        m_outcome = outcome;
        ++m_outcomes;
    });
}

PluginVolumeResult tst_PluginVolumeRegistry::confirmation(double observedAt, double volume) const {
    return {m_sent.last().requestID, QStringLiteral("desk"), endpoint("desk", observedAt, volume),
            std::nullopt};
}

void tst_PluginVolumeRegistry::aControlIsUsedOnlyWhileFresh_data() {
    QTest::addColumn<double>("observedAt");
    QTest::addColumn<EndpointChange>("change");
    QTest::addColumn<PluginVolumeOperation>("operation");
    QTest::addColumn<QString>("problem");

    const EndpointChange same = [](PluginVolumeEndpoint&) {};
    const PluginVolumeOperation stepUp = PluginVolumeOperation::adjustVolume(0.0625);
    const QString unavailable = PluginVolumeRegistry::unavailableMessage.toString();
    QTest::addRow("44 seconds old") << start - 44 << same << stepUp << QString();
    QTest::addRow("45 seconds old") << start - 45 << same << stepUp << QString();
    QTest::addRow("46 seconds old") << start - 46 << same << stepUp << unavailable;
    QTest::addRow("5 seconds ahead") << start + 5 << same << stepUp << QString();
    QTest::addRow("6 seconds ahead") << start + 6 << same << stepUp << unavailable;
    QTest::addRow("not available") << start
                                   << EndpointChange([](PluginVolumeEndpoint& e) { e.available = false; })
                                   << stepUp << unavailable;
    QTest::addRow("no level to set") << start << EndpointChange([](PluginVolumeEndpoint& e) {
        e.canSetVolume = false;
    }) << PluginVolumeOperation::setVolume(0.2)
                                     << unavailable;
    QTest::addRow("no mute") << start << EndpointChange([](PluginVolumeEndpoint& e) { e.canMute = false; })
                             << PluginVolumeOperation::toggleMute() << unavailable;
    QTest::addRow("a step the keys send")
        << start << same << PluginVolumeOperation::adjustVolume(-0.015625) << QString();
    QTest::addRow("a step of nothing")
        << start << same << PluginVolumeOperation::adjustVolume(0) << "Invalid volume step.";
    QTest::addRow("a step too far") << start << same << PluginVolumeOperation::adjustVolume(0.3)
                                    << "Invalid volume step.";
}

void tst_PluginVolumeRegistry::aControlIsUsedOnlyWhileFresh() {
    QFETCH(double, observedAt);
    QFETCH(EndpointChange, change);
    QFETCH(PluginVolumeOperation, operation);
    QFETCH(QString, problem);
    PluginVolumeEndpoint state = endpoint("desk", observedAt);
    change(state);
    // A reading older than the one held would not replace it: this is the session's first.
    m_registry->disconnect(plugin, session);
    m_registry->update(plugin, session, {state});

    bool sent = false;
    QCOMPARE(problemOf([&] { sent = m_registry->request(desk, operation, [](const Outcome&) {}); }), problem);
    QCOMPARE(sent, problem.isEmpty());
    QCOMPARE(m_sent.size(), problem.isEmpty() ? 1 : 0);
    if (sent) {
        // It expires ten seconds after the press, by the same clock.
        QCOMPARE(m_sent.first().expiresAt, start + 10);
        QCOMPARE(m_sent.first().endpointID, QStringLiteral("desk"));
        QCOMPARE(m_sent.first().operation, operation);
    }
}

void tst_PluginVolumeRegistry::eightControlsAndNoMore_data() {
    QTest::addColumn<QList<PluginVolumeEndpoint>>("endpoints");
    QTest::addColumn<bool>("accepted");

    QList<PluginVolumeEndpoint> eight;
    for (int i = 0; i < 8; ++i)
        eight.append(endpoint(QStringLiteral("e%1").arg(i), start));
    QTest::addRow("eight") << eight << true;
    QTest::addRow("nine") << (eight + QList{endpoint("e8", start)}) << false;
    QTest::addRow("the same id twice") << QList{endpoint("a", start), endpoint("a", start)} << false;
    QTest::addRow("a bad entry") << QList{endpoint("a", start), endpoint("b", -1)} << false;
    QTest::addRow("none") << QList<PluginVolumeEndpoint>() << true;
}

void tst_PluginVolumeRegistry::eightControlsAndNoMore() {
    QFETCH(QList<PluginVolumeEndpoint>, endpoints);
    QFETCH(bool, accepted);
    QCOMPARE(problemOf([&] { m_registry->update(plugin, session, endpoints); }),
             accepted ? QString() : QStringLiteral("Invalid volume endpoints."));
    // A refused list changes nothing: the desk speakers stay.
    QCOMPARE(m_registry->endpoints().size(), accepted ? endpoints.size() : 1);
    QCOMPARE(m_registry->endpoint(desk).has_value(), !accepted);
}

void tst_PluginVolumeRegistry::aBusyPluginGetsNothingMore() {
    QVERIFY(step());
    QVERIFY(m_registry->busyPlugins().contains(plugin));
    // A second press is dropped, not queued: nothing is sent, and nothing waits for it.
    QVERIFY(!step());
    QVERIFY(!step(-0.0625));
    QCOMPARE(m_sent.size(), 1);
    m_registry->receive(plugin, session, confirmation(start + 1));
    QCOMPARE(outcomeText(m_outcome), QStringLiteral("confirmed 0.5625"));
    QCOMPARE(m_outcomes, 1);
    QVERIFY(m_registry->busyPlugins().isEmpty());
    QVERIFY(step());
    QCOMPARE(m_sent.size(), 2);
}

void tst_PluginVolumeRegistry::everyWaitEndsOnce_data() {
    QTest::addColumn<WaitEnd>("end");
    QTest::addColumn<QString>("outcome");

    QTest::addRow("confirmed") << WaitEnd([](auto* t) {
        t->m_registry->receive(plugin, session, t->confirmation(start));
    }) << "confirmed 0.5625";
    QTest::addRow("confirmed 5 seconds ahead")
        << WaitEnd([](auto* t) { t->m_registry->receive(plugin, session, t->confirmation(start + 5)); })
        << "confirmed 0.5625";
    QTest::addRow("confirmed 6 seconds ahead")
        << WaitEnd([](auto* t) { t->m_registry->receive(plugin, session, t->confirmation(start + 6)); })
        << PluginVolumeRegistry::staleMessage.toString();
    QTest::addRow("confirmed with a reading 46 seconds old")
        << WaitEnd([](auto* t) { t->m_registry->receive(plugin, session, t->confirmation(start - 46)); })
        << PluginVolumeRegistry::staleMessage.toString();
    QTest::addRow("refused") << WaitEnd([](auto* t) {
        t->m_registry->receive(
            plugin, session,
            {t->m_sent.last().requestID, "desk", std::nullopt, QStringLiteral("Amplifier is off.")});
    }) << "Amplifier is off.";
    QTest::addRow("silent until the time-out") << WaitEnd([](auto* t) {
        QTRY_VERIFY(t->m_outcome.has_value());
        // Its answer, when it comes after all, finds nothing waiting.
        t->m_registry->receive(plugin, session, t->confirmation(start));
    }) << PluginVolumeRegistry::timedOutMessage.toString();
    QTest::addRow("the control went from the list")
        << WaitEnd([](auto* t) { t->m_registry->update(plugin, session, {endpoint("other", start)}); })
        << PluginVolumeRegistry::targetChangedMessage.toString();
    QTest::addRow("the session ended") << WaitEnd([](auto* t) { t->m_registry->disconnect(plugin, session); })
                                       << PluginVolumeRegistry::disconnectedMessage.toString();
}

void tst_PluginVolumeRegistry::everyWaitEndsOnce() {
    QFETCH(WaitEnd, end);
    QFETCH(QString, outcome);
    QVERIFY(step());
    QVERIFY(!m_outcome);
    end(this);
    QCOMPARE(outcomeText(m_outcome), outcome);
    QVERIFY(m_registry->busyPlugins().isEmpty());
    // Nothing was sent again, and the time-out, had it still been set, ends nothing more.
    QCOMPARE(m_sent.size(), 1);
    QCOMPARE(m_outcomes, 1);
    const bool confirmed = outcome.startsWith(u"confirmed");
    if (const std::optional<RegisteredVolumeEndpoint> held = m_registry->endpoint(desk))
        QCOMPARE(held->state.volume, std::optional(confirmed ? 0.5625 : 0.5));
}

void tst_PluginVolumeRegistry::answersThatChangeNothing_data() {
    QTest::addColumn<QString>("plugin");
    QTest::addColumn<QUuid>("session");
    QTest::addColumn<QString>("endpoint");
    QTest::addColumn<bool>("sameRequest");

    QTest::addRow("another session") << plugin << QUuid::createUuid() << "desk" << true;
    QTest::addRow("another plugin") << "app.example.other" << session << "desk" << true;
    QTest::addRow("another control") << plugin << session << "shelf" << true;
    QTest::addRow("another request") << plugin << session << "desk" << false;
}

void tst_PluginVolumeRegistry::answersThatChangeNothing() {
    QFETCH(QString, plugin);
    QFETCH(QUuid, session);
    QFETCH(QString, endpoint);
    QFETCH(bool, sameRequest);
    m_registry->update(::plugin, ::session, {::endpoint("desk", start), ::endpoint("shelf", start)});
    QVERIFY(step());
    const QUuid request = sameRequest ? m_sent.last().requestID : QUuid::createUuid();
    m_registry->receive(plugin, session, {request, endpoint, ::endpoint(endpoint, start, 1.0), std::nullopt});
    QVERIFY(!m_outcome);
    QVERIFY(m_registry->busyPlugins().contains(::plugin));
    for (const RegisteredVolumeEndpoint& held : m_registry->endpoints())
        QCOMPARE(held.state.volume, std::optional(0.5));
    // A result that contradicts itself is refused outright.
    QCOMPARE(problemOf([&] {
                 m_registry->receive(
                     ::plugin, ::session,
                     {m_sent.last().requestID, "desk", ::endpoint("shelf", start), std::nullopt});
             }),
             QStringLiteral("Invalid volume result."));
    QVERIFY(!m_outcome);
}

void tst_PluginVolumeRegistry::anOlderReadingReplacesNothing() {
    QVERIFY(step());
    m_registry->receive(plugin, session, confirmation(start + 2, 0.5625));
    // A snapshot taken before the confirmation arrives after it.
    m_registry->update(plugin, session, {endpoint("desk", start + 1, 0.5)});
    QCOMPARE(m_registry->endpoint(desk)->state.volume, std::optional(0.5625));
    m_registry->update(plugin, session, {endpoint("desk", start + 3, 0.75)});
    QCOMPARE(m_registry->endpoint(desk)->state.volume, std::optional(0.75));
    // Without a way to send, nothing is sent; a way that fails ends the wait at once.
    m_registry->deliver = nullptr;
    QCOMPARE(problemOf([&] { step(); }), PluginVolumeRegistry::transportMessage.toString());
    m_registry->deliver = [](const QString&, const QUuid&, const PluginVolumeCommand&) {
        throw ModuleProblem(QStringLiteral("Volume plugin is unavailable."));
    };
    QVERIFY(step());
    QCOMPARE(outcomeText(m_outcome), PluginVolumeRegistry::transportMessage.toString());
    QVERIFY(m_registry->busyPlugins().isEmpty());
}

void tst_PluginVolumeRegistry::routesAreSavedByOutput() {
    QTemporaryDir folder;
    UserDefaults defaults(folder.filePath("OstaVell.conf"));
    VolumeRoutes routes;
    routes.set("speakers", desk);
    routes.set("hdmi", PluginVolumeTarget{plugin, "shelf/left"});
    routes.save(defaults);
    QCOMPARE(defaults.dataValue(VolumeRoutes::key),
             QByteArray(R"({"outputs":{"hdmi":{"pluginID":"app.example.speakers","endpointID":"shelf/left"},)"
                        R"("speakers":{"pluginID":"app.example.speakers","endpointID":"desk"}}})"));
    const VolumeRoutes loaded = VolumeRoutes::load(defaults);
    QCOMPARE(loaded.target("speakers"), std::optional(desk));
    QCOMPARE(PluginVolumeTarget::fromSelectionID(loaded.target("hdmi")->selectionID()),
             std::optional(PluginVolumeTarget{plugin, "shelf/left"}));
    routes.set("hdmi", std::nullopt);
    QVERIFY(!routes.target("hdmi"));
}

QTEST_MAIN(tst_PluginVolumeRegistry)
#include "tst_PluginVolumeRegistry.moc"
