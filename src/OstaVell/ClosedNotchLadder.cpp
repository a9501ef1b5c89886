#include "OstaVell/ClosedNotchLadder.h"

namespace vell {

const QString ClosedNotchLadder::standing = QStringLiteral("standing");
const QString ClosedNotchLadder::blank = QStringLiteral("blank");

namespace {

using Transient = WingState::Transient;

// A rung of a feature's view: it holds when the view is offered and the rule says so.
WingRung rung(const QString& view, std::function<bool(const WingState&)> rule) {
    return {view, [view, rule = std::move(rule)](const WingState& state) {
                return state.sources.contains(view) && rule(state);
            }};
}

bool batteryEvent(const WingState& state) {
    return state.transient == Transient::battery;
}

} // namespace

const QList<WingRung>& ClosedNotchLadder::left() {
    static const QList<WingRung> ladder{
        rung(QStringLiteral("hud.left"), [](const WingState& s) { return s.peekVisible; }),
        rung(QStringLiteral("battery.event"),
             [](const WingState& s) { return batteryEvent(s) && s.batteryLiveActivity; }),
        rung(QStringLiteral("automation.left"), [](const WingState& s) { return s.automationRun; }),
        rung(QStringLiteral("media.left"), [](const WingState& s) { return s.mediaLiveActivity; }),
    };
    return ladder;
}

const QList<WingRung>& ClosedNotchLadder::right() {
    static const QList<WingRung> ladder{
        rung(QStringLiteral("hud.right"), [](const WingState& s) { return s.peekVisible; }),
        rung(QStringLiteral("bluetooth.event"),
             [](const WingState& s) { return s.transient == Transient::bluetooth; }),
        rung(QStringLiteral("battery.status"),
             [](const WingState& s) { return batteryEvent(s) && s.batteryLiveActivity; }),
        // With the battery's live activity off an event still takes this wing, empty, for its
        // time: the left wing goes on down its ladder, this one does not.
        {blank,
         [](const WingState& s) {
             return batteryEvent(s) && s.sources.contains(QStringLiteral("battery.status"));
         }},
        rung(QStringLiteral("automation.right"), [](const WingState& s) { return s.automationRun; }),
        {standing, [](const WingState&) { return true; }},
    };
    return ladder;
}

QString ClosedNotchLadder::first(const QList<WingRung>& ladder, const WingState& state) {
    for (const WingRung& rung : ladder)
        if (rung.holds(state))
            return rung.view;
    return {};
}

QString ClosedNotchLadder::leftWing(const WingState& state) {
    return first(left(), state);
}

QString ClosedNotchLadder::rightWing(const WingState& state) {
    return first(right(), state);
}

QStringList ClosedNotchLadder::standingRow(const WingState& state) {
    const QList<std::pair<QString, bool>> row{
        {QStringLiteral("module.activity"), true},
        {QStringLiteral("media.right"), state.mediaLiveActivity},
        {QStringLiteral("timer"), state.timerLiveActivity},
        {QStringLiteral("calendar"), state.calendarLiveActivity},
        {QStringLiteral("todos"), state.todosLiveActivity},
    };
    QStringList views;
    for (const auto& [view, on] : row)
        if (on && state.sources.contains(view))
            views.append(view);
    return views;
}

} // namespace vell
