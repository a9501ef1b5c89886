#pragma once

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>

namespace vell {

// What the closed wings are decided from. Read afresh on every change of a source; nothing
// here is remembered between two readings.
struct WingState {
    enum class Transient { none, battery, bluetooth };

    // The wing views offered by the features. A rung whose source is not here never holds:
    // its feature is not part of this build, or not started.
    QSet<QString> sources;
    Transient transient = Transient::none;
    bool peekVisible = false;
    bool automationRun = false;
    bool batteryLiveActivity = true;
    bool mediaLiveActivity = true;
    bool timerLiveActivity = true;
    bool calendarLiveActivity = true;
    bool todosLiveActivity = true;
};

// One rule of a wing: the view it shows (also the name of its source) and when it holds.
struct WingRung {
    QString view;
    std::function<bool(const WingState&)> holds;
};

// Each closed wing is a fixed ladder: the first rung that holds takes the whole wing. There is
// no queue and no rotation, so what shows is a function of the sources' state alone.
class ClosedNotchLadder final {
public:
    // The right wing's last rung: a row where the standing activities share the wing.
    static const QString standing;
    // A rung that holds with nothing to show: the wing stays empty.
    static const QString blank;

    static const QList<WingRung>& left();
    static const QList<WingRung>& right();
    // The rung that takes the wing; empty when none holds.
    static QString leftWing(const WingState& state);
    static QString rightWing(const WingState& state);
    // The views of the standing row, left to right, each only when offered and switched on.
    static QStringList standingRow(const WingState& state);

private:
    static QString first(const QList<WingRung>& ladder, const WingState& state);
};

} // namespace vell
