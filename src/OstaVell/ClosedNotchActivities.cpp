#include "OstaVell/ClosedNotchActivities.h"

#include "OstaVell/DisplayShelfController.h"
#include "OstaVell/Features/Automations/AutomationStore.h"
#include "OstaVell/Features/HUD/SneakPeekCoordinator.h"
#include "OstaVell/Support/SettingsStore.h"
#include "OstaVell/Support/ShellContributions.h"

namespace vell {

ClosedNotchActivities::ClosedNotchActivities(QObject* parent)
    : QObject(parent) {
    m_transientTask.setSingleShot(true);
    m_transientTask.setInterval(transientMilliseconds);
    connect(&m_transientTask, &QTimer::timeout, this, [this] {
        m_transient = WingState::Transient::none;
        update();
    });
    // The sources that exist so far; each says when it changed, and nothing is polled.
    connect(SettingsStore::instance(), &SettingsStore::changed, this, &ClosedNotchActivities::update);
    connect(ShellContributions::instance(), &ShellContributions::changed, this,
            &ClosedNotchActivities::update);
    if (AutomationStore* automations = AutomationStore::instance())
        connect(automations, &AutomationStore::historyChanged, this, &ClosedNotchActivities::update);
    connect(SneakPeekCoordinator::instance(), &SneakPeekCoordinator::changed, this,
            &ClosedNotchActivities::update);
    update();
}

void ClosedNotchActivities::setController(DisplayShelfController* controller) {
    if (m_controller == controller)
        return;
    if (m_controller)
        disconnect(m_controller, nullptr, this, nullptr);
    m_controller = controller;
    if (m_controller) {
        // An open panel has no closed view: what came while it was open is gone.
        connect(m_controller, &DisplayShelfController::isExpandedChanged, this, [this] {
            if (m_controller->isExpanded() && m_transient != WingState::Transient::none) {
                m_transientTask.stop();
                m_transient = WingState::Transient::none;
                update();
            }
        });
    }
    emit controllerChanged();
}

QString ClosedNotchActivities::transient() const {
    switch (m_transient) {
    case WingState::Transient::battery:
        return QStringLiteral("battery");
    case WingState::Transient::bluetooth:
        return QStringLiteral("bluetooth");
    case WingState::Transient::none:
        break;
    }
    return {};
}

void ClosedNotchActivities::showTransient(WingState::Transient event) {
    // An open panel shows no wings, and an event is not kept for later.
    if (m_controller && m_controller->isExpanded())
        return;
    m_transientTask.stop();
    m_transient = event;
    if (event != WingState::Transient::none)
        m_transientTask.start();
    update();
}

void ClosedNotchActivities::showTransient(const QString& event) {
    showTransient(event == u"battery"     ? WingState::Transient::battery
                  : event == u"bluetooth" ? WingState::Transient::bluetooth
                                          : WingState::Transient::none);
}

WingState ClosedNotchActivities::state() const {
    const SettingsStore* settings = SettingsStore::instance();
    WingState state;
    const QVariantList wings = ShellContributions::instance()->wings();
    for (const QVariant& wing : wings)
        state.sources.insert(wing.toMap().value(QStringLiteral("id")).toString());
    state.transient = m_transient;
    state.peekVisible = SneakPeekCoordinator::instance()->visible();
    const AutomationStore* automations = AutomationStore::instance();
    state.automationRun = automations && automations->activeRun().has_value();
    state.batteryLiveActivity = settings->batteryLiveActivity();
    state.mediaLiveActivity = settings->mediaLiveActivity();
    state.timerLiveActivity = settings->timerLiveActivity();
    state.calendarLiveActivity = settings->calendarLiveActivity();
    state.todosLiveActivity = settings->todosLiveActivity();
    return state;
}

void ClosedNotchActivities::update() {
    const WingState now = state();
    const QString left = ClosedNotchLadder::leftWing(now);
    const QString right = ClosedNotchLadder::rightWing(now);
    const QStringList standing =
        right == ClosedNotchLadder::standing ? ClosedNotchLadder::standingRow(now) : QStringList();
    if (left == m_left && right == m_right && standing == m_standing && m_transient == m_shownTransient)
        return;
    m_shownTransient = m_transient;
    m_left = left;
    m_right = right;
    m_standing = standing;
    emit wingsChanged();
}

} // namespace vell
