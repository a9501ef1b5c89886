// The registry of plugins' volume controls on a clock of the test's own: every limit from both
// sides (age, lead, list length, busy), every way a wait ends, and answers that must change
// nothing (late, forged, about another control).
#include "OstaVell/Features/HUD/PluginVolumeRegistry.h"

#include <QTest>

#include "TestSupport.h"

using namespace vell;
using namespace vell::test;
using Outcome = PluginVolumeRegistry::Outcome;
using Operation = PluginVolumeOperation;

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
using WaitEnd = std::function<void(tst_PluginVolumeRegistry*)>;
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
    void everyWaitEndsOnce_data();
    void everyWaitEndsOnce();
    void aFailedHandOverEndsTheWait();
    void aSelectionSplitsAtItsFirstSlash();

private:
    // A step sent to the desk speakers; the outcome lands in m_outcome.
    bool step(double by = 0.0625);
    void confirm(double observedAt);

    std::unique_ptr<PluginVolumeRegistry> m_registry;
    QList<PluginVolumeCommand> m_sent;
    std::optional<Outcome> m_outcome;
    int m_outcomes = 0;
};

void tst_PluginVolumeRegistry::init() {
    m_sent.clear();
    m_outcome.reset();
    m_outcomes = 0;
    m_registry = std::make_unique<PluginVolumeRegistry>(std::chrono::milliseconds(200));
    m_registry->now = [] { return start; };
    m_registry->deliver = [this](const QString& to, const QUuid& in, const PluginVolumeCommand& command) {
        QCOMPARE(to, plugin);
        QCOMPARE(in, session);
        m_sent.append(command);
    };
    m_registry->update(plugin, session, {endpoint("desk", start)});
}

bool tst_PluginVolumeRegistry::step(double by) {
    return m_registry->request(desk, Operation::adjustVolume(by), [this](const Outcome& outcome) {
        m_outcome = outcome;
        ++m_outcomes;
    });
}

void tst_PluginVolumeRegistry::confirm(double observedAt) {
    m_registry->receive(
        plugin, session,
        {m_sent.last().requestID, "desk", endpoint("desk", observedAt, 0.5625), std::nullopt});
}

void tst_PluginVolumeRegistry::aControlIsUsedOnlyWhileFresh_data() {
    QTest::addColumn<double>("age");
    QTest::addColumn<QString>("without");
    QTest::addColumn<PluginVolumeOperation>("operation");
    QTest::addColumn<QString>("problem");

    const Operation up = Operation::adjustVolume(0.0625);
    const QString unavailable = PluginVolumeRegistry::unavailableMessage.toString();
    const QString badStep = QStringLiteral("Invalid volume step.");
    QTest::addRow("44 seconds old") << 44.0 << QString() << up << QString();
    QTest::addRow("45 seconds old") << 45.0 << QString() << up << QString();
    QTest::addRow("46 seconds old") << 46.0 << QString() << up << unavailable;
    QTest::addRow("5 seconds ahead") << -5.0 << QString() << up << QString();
    QTest::addRow("6 seconds ahead") << -6.0 << QString() << up << unavailable;
    QTest::addRow("not available") << 0.0 << "available" << up << unavailable;
    QTest::addRow("no level to set") << 0.0 << "canSetVolume" << Operation::setVolume(0.2) << unavailable;
    QTest::addRow("no mute") << 0.0 << "canMute" << Operation::toggleMute() << unavailable;
    QTest::addRow("a step the keys send")
        << 0.0 << QString() << Operation::adjustVolume(-0.015625) << QString();
    QTest::addRow("a step of nothing") << 0.0 << QString() << Operation::adjustVolume(0) << badStep;
    QTest::addRow("a step too far") << 0.0 << QString() << Operation::adjustVolume(0.3) << badStep;
    QTest::addRow("no way to send") << 0.0 << "deliver" << up
                                    << PluginVolumeRegistry::transportMessage.toString();
}

void tst_PluginVolumeRegistry::aControlIsUsedOnlyWhileFresh() {
    QFETCH(double, age);
    QFETCH(QString, without);
    QFETCH(PluginVolumeOperation, operation);
    QFETCH(QString, problem);
    PluginVolumeEndpoint state = endpoint("desk", start - age);
    state.available = without != u"available";
    state.canSetVolume = without != u"canSetVolume";
    state.canMute = without != u"canMute";
    if (without == u"deliver")
        m_registry->deliver = nullptr;
    // A reading older than the one held would not replace it: this is the session's first.
    m_registry->disconnect(plugin, session);
    m_registry->update(plugin, session, {state});

    bool sent = false;
    QCOMPARE(problemOf([&] { sent = m_registry->request(desk, operation, [](const Outcome&) {}); }), problem);
    QCOMPARE(sent, problem.isEmpty());
    QCOMPARE(m_sent.size(), problem.isEmpty() ? 1 : 0);
    QCOMPARE(m_registry->busyPlugins().isEmpty(), !sent);
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

void tst_PluginVolumeRegistry::everyWaitEndsOnce_data() {
    QTest::addColumn<WaitEnd>("end");
    QTest::addColumn<QString>("outcome");
    QTest::addColumn<double>("held");

    const auto confirmedAt = [](double at) { return WaitEnd([at](auto* t) { t->confirm(at); }); };
    // Answers that change nothing: this one, one that contradicts itself, and, once the wait has
    // timed out, the true one.
    const auto forged = [](const QString& from, const QUuid& in, const QString& about, bool sameRequest) {
        return WaitEnd([=](auto* t) {
            const QUuid request = sameRequest ? t->m_sent.last().requestID : QUuid::createUuid();
            t->m_registry->receive(from, in, {request, about, endpoint(about, start, 1.0), std::nullopt});
            const PluginVolumeResult crossed{request, "desk", endpoint("shelf", start), std::nullopt};
            QCOMPARE(problemOf([&] { t->m_registry->receive(plugin, session, crossed); }),
                     QStringLiteral("Invalid volume result."));
            QVERIFY(!t->m_outcome);
            QTRY_VERIFY(t->m_outcome.has_value());
            t->confirm(start);
        });
    };
    const QString stale = PluginVolumeRegistry::staleMessage.toString();
    const QString timedOut = PluginVolumeRegistry::timedOutMessage.toString();
    QTest::addRow("confirmed") << confirmedAt(start) << "confirmed 0.5625" << 0.5625;
    QTest::addRow("confirmed 5 seconds ahead") << confirmedAt(start + 5) << "confirmed 0.5625" << 0.5625;
    QTest::addRow("confirmed 6 seconds ahead") << confirmedAt(start + 6) << stale << 0.5;
    QTest::addRow("confirmed with a reading 46 seconds old") << confirmedAt(start - 46) << stale << 0.5;
    QTest::addRow("an older reading after the answer") << WaitEnd([](auto* t) {
        t->confirm(start + 2);
        t->m_registry->update(plugin, session, {endpoint("desk", start + 1)});
    }) << "confirmed 0.5625" << 0.5625;
    QTest::addRow("a newer reading before the answer") << WaitEnd([](auto* t) {
        t->m_registry->update(plugin, session, {endpoint("desk", start + 3, 0.75)});
        t->confirm(start + 2);
    }) << "confirmed 0.5625" << 0.75;
    QTest::addRow("refused") << WaitEnd([](auto* t) {
        t->m_registry->receive(plugin, session,
                               {t->m_sent.last().requestID, "desk", std::nullopt, "Amplifier is off."});
    }) << "Amplifier is off." << 0.5;
    QTest::addRow("another session") << forged(plugin, QUuid::createUuid(), "desk", true) << timedOut << 0.5;
    QTest::addRow("another plugin") << forged("app.example.other", session, "desk", true) << timedOut << 0.5;
    QTest::addRow("another control") << forged(plugin, session, "shelf", true) << timedOut << 0.5;
    QTest::addRow("another request") << forged(plugin, session, "desk", false) << timedOut << 0.5;
    QTest::addRow("the control went from the list")
        << WaitEnd([](auto* t) { t->m_registry->update(plugin, session, {endpoint("other", start)}); })
        << PluginVolumeRegistry::targetChangedMessage.toString() << 0.5;
    QTest::addRow("the session ended") << WaitEnd([](auto* t) { t->m_registry->disconnect(plugin, session); })
                                       << PluginVolumeRegistry::disconnectedMessage.toString() << 0.5;
}

void tst_PluginVolumeRegistry::everyWaitEndsOnce() {
    QFETCH(WaitEnd, end);
    QFETCH(QString, outcome);
    QFETCH(double, held);
    QVERIFY(step());
    QVERIFY(m_registry->busyPlugins().contains(plugin));
    // A second press while the plugin is busy is dropped, not queued.
    QVERIFY(!step(-0.0625));
    QVERIFY(!m_outcome);
    end(this);
    QTRY_COMPARE(outcomeText(m_outcome), outcome);
    QVERIFY(m_registry->busyPlugins().isEmpty());
    // Nothing was sent again, and the time-out, had it still been set, ends nothing more.
    QCOMPARE(m_sent.size(), 1);
    QCOMPARE(m_outcomes, 1);
    if (const std::optional<RegisteredVolumeEndpoint> desk = m_registry->endpoint(::desk))
        QCOMPARE(desk->state.volume, std::optional(held));
}

void tst_PluginVolumeRegistry::aFailedHandOverEndsTheWait() {
    m_registry->deliver = [](const QString&, const QUuid&, const PluginVolumeCommand&) {
        throw ModuleProblem(QStringLiteral("Volume plugin is unavailable."));
    };
    QVERIFY(step());
    QCOMPARE(outcomeText(m_outcome), PluginVolumeRegistry::transportMessage.toString());
    QVERIFY(m_registry->busyPlugins().isEmpty());
}

void tst_PluginVolumeRegistry::aSelectionSplitsAtItsFirstSlash() {
    const PluginVolumeTarget shelf{plugin, "shelf/left"};
    QCOMPARE(PluginVolumeTarget::fromSelectionID(shelf.selectionID()), std::optional(shelf));
}

QTEST_MAIN(tst_PluginVolumeRegistry)
#include "tst_PluginVolumeRegistry.moc"
