// The pomodoro cycle of TimerManager: focus and breaks, each phase an end date like a countdown.

#include "OstaVell/Features/Timers/TimerManager.h"
#include "OstaVell/Support/UserDefaults.h"

#include <algorithm>

namespace vell {

namespace {
// What a restart needs left of a phase to pick it up again; less counts as ended.
constexpr double kRestoreSlack = 0.5;
} // namespace

QString TimerManager::pomodoroPhaseName(PomodoroPhase phase) {
    switch (phase) {
    case PomodoroPhase::idle:
        return QStringLiteral("idle");
    case PomodoroPhase::focus:
        return QStringLiteral("focus");
    case PomodoroPhase::shortBreak:
        return QStringLiteral("shortBreak");
    case PomodoroPhase::longBreak:
        return QStringLiteral("longBreak");
    }
    return QStringLiteral("idle");
}

std::optional<TimerManager::PomodoroPhase> TimerManager::pomodoroPhaseFromName(const QString& name) {
    for (PomodoroPhase phase :
         {PomodoroPhase::idle, PomodoroPhase::focus, PomodoroPhase::shortBreak, PomodoroPhase::longBreak})
        if (pomodoroPhaseName(phase) == name)
            return phase;
    return std::nullopt;
}

QString TimerManager::pomodoroPhaseName() const {
    return pomodoroPhaseName(m_pomodoroPhase);
}

std::optional<QDateTime> TimerManager::pomodoroEndDate() const {
    if (!m_pomodoroEnd)
        return std::nullopt;
    return QDateTime::fromMSecsSinceEpoch(qint64(std::llround(*m_pomodoroEnd * 1000)), Qt::UTC);
}

double TimerManager::pomodoroRemainingAt(const QDateTime& at) const {
    if (isPomodoroRunning() && m_pomodoroEnd)
        return std::max(0.0, *m_pomodoroEnd - secondsAt(at));
    return m_pomodoroRemaining;
}

double TimerManager::pomodoroDuration(PomodoroPhase phase) const {
    switch (phase) {
    case PomodoroPhase::idle:
        return 0;
    case PomodoroPhase::focus:
        return std::max(1, pomodoroFocusMinutes()) * 60.0;
    case PomodoroPhase::shortBreak:
        return std::max(1, pomodoroShortBreakMinutes()) * 60.0;
    case PomodoroPhase::longBreak:
        return std::max(1, pomodoroLongBreakMinutes()) * 60.0;
    }
    return 0;
}

QVariantMap TimerManager::pomodoroValues(PomodoroPhase phase, std::optional<double> end,
                                         double pausedRemaining, double total, int completed) const {
    return {{pomodoroPhaseKey, pomodoroPhaseName(phase)},
            {pomodoroEndEpochKey, end.value_or(0.0)},
            {pomodoroPausedRemainingKey, pausedRemaining},
            {pomodoroTotalKey, total},
            {pomodoroCompletedFocusKey, completed}};
}

void TimerManager::restorePomodoro() {
    const std::optional<PomodoroPhase> phase =
        pomodoroPhaseFromName(m_defaults.stringValue(pomodoroPhaseKey, QStringLiteral("idle")));
    // An unknown name counts as idle, and is left as it is.
    if (!phase || *phase == PomodoroPhase::idle)
        return;
    const double end = m_defaults.doubleValue(pomodoroEndEpochKey, 0);
    const double paused = m_defaults.doubleValue(pomodoroPausedRemainingKey, 0);
    m_pomodoroPhase = *phase;
    m_pomodoroCompletedFocus = std::max(0, int(m_defaults.doubleValue(pomodoroCompletedFocusKey, 0)));
    m_pomodoroTotal = m_defaults.doubleValue(pomodoroTotalKey, 0);
    if (end > 0 && end - now() > kRestoreSlack) {
        m_pomodoroEnd = end;
        m_pomodoroRemaining = end - now();
        m_pomodoroPaused = false;
        m_pomodoroBanner->restored(end);
        armCompletion(m_pomodoroCompletion, end);
        updateTickTimer();
        return;
    }
    if (end > 0) {
        // It ended while the app wasn't running. The app never runs a phase by itself after a
        // restart, and only the one phase moves on, however long it was away.
        advancePomodoro(false, true);
        return;
    }
    if (paused > 0) {
        m_pomodoroRemaining = paused;
        m_pomodoroPaused = true;
        return;
    }
    resetPomodoro();
}

void TimerManager::startPomodoro() {
    if (m_pomodoroPhase == PomodoroPhase::idle) {
        beginPomodoroPhase(PomodoroPhase::focus, false, 0, EndingBanner::none);
        return;
    }
    if (m_pomodoroPaused)
        resumePomodoro();
}

bool TimerManager::beginPomodoroPhase(PomodoroPhase phase, bool paused, int completed, EndingBanner ending) {
    const double length = pomodoroDuration(phase);
    const std::optional<double> end = paused ? std::nullopt : std::optional(now() + length);
    if (!store(pomodoroValues(phase, end, paused ? length : 0.0, length, completed)))
        return false;
    // The banner of the phase before, before the next one's replaces it: one whose end the app
    // saw is the app's to show when no user manager took it, and is not stopped while the
    // manager shows it; one cut short is removed.
    if (ending == EndingBanner::ended)
        m_pomodoroBanner->timerEnded();
    else if (ending == EndingBanner::cutShort)
        m_pomodoroBanner->remove();
    m_pomodoroPhase = phase;
    m_pomodoroRemaining = m_pomodoroTotal = length;
    m_pomodoroPaused = paused;
    m_pomodoroCompletedFocus = completed;
    m_pomodoroEnd = end;
    emit pomodoroChanged();
    if (end) {
        armCompletion(m_pomodoroCompletion, *end);
        schedulePomodoroBanner(phase);
    } else {
        m_pomodoroCompletion.stop();
    }
    updateTickTimer();
    return true;
}

void TimerManager::advancePomodoro(bool announce, bool forcePaused) {
    const int perCycle = std::max(1, pomodoroSessionsPerCycle());
    int completed = m_pomodoroCompletedFocus;
    PomodoroPhase next = PomodoroPhase::focus;
    if (m_pomodoroPhase == PomodoroPhase::focus) {
        ++completed;
        next = completed % perCycle == 0 ? PomodoroPhase::longBreak : PomodoroPhase::shortBreak;
    } else if (completed >= perCycle) {
        completed = 0;
    }
    const bool paused = forcePaused || !pomodoroAutoAdvance();
    if (!beginPomodoroPhase(next, paused, completed, announce ? EndingBanner::ended : EndingBanner::cutShort))
        return;
    if (announce)
        playCompletionSound();
}

void TimerManager::skipPomodoroPhase() {
    if (m_pomodoroPhase == PomodoroPhase::idle)
        return;
    advancePomodoro(false);
}

void TimerManager::pausePomodoro() {
    if (!isPomodoroRunning() || !m_pomodoroEnd)
        return;
    const double remaining = std::max(0.0, *m_pomodoroEnd - now());
    if (!store(pomodoroValues(m_pomodoroPhase, std::nullopt, remaining, m_pomodoroTotal,
                              m_pomodoroCompletedFocus)))
        return;
    m_pomodoroEnd.reset();
    m_pomodoroRemaining = remaining;
    m_pomodoroPaused = true;
    emit pomodoroChanged();
    m_pomodoroCompletion.stop();
    m_pomodoroBanner->remove();
    updateTickTimer();
}

void TimerManager::resumePomodoro() {
    if (m_pomodoroPhase == PomodoroPhase::idle || !m_pomodoroPaused || m_pomodoroRemaining <= 0)
        return;
    const double end = now() + m_pomodoroRemaining;
    if (!store(pomodoroValues(m_pomodoroPhase, end, 0.0, m_pomodoroTotal, m_pomodoroCompletedFocus)))
        return;
    m_pomodoroEnd = end;
    m_pomodoroPaused = false;
    emit pomodoroChanged();
    armCompletion(m_pomodoroCompletion, end);
    schedulePomodoroBanner(m_pomodoroPhase);
    updateTickTimer();
}

void TimerManager::resetPomodoro() {
    if (!store(pomodoroValues(PomodoroPhase::idle, std::nullopt, 0.0, 0.0, 0)))
        return;
    m_pomodoroPhase = PomodoroPhase::idle;
    m_pomodoroPaused = false;
    m_pomodoroRemaining = m_pomodoroTotal = 0;
    m_pomodoroCompletedFocus = 0;
    m_pomodoroEnd.reset();
    emit pomodoroChanged();
    m_pomodoroCompletion.stop();
    m_pomodoroBanner->remove();
    updateTickTimer();
}

void TimerManager::pomodoroCompletionDue() {
    if (!isPomodoroRunning() || !m_pomodoroEnd)
        return;
    if (*m_pomodoroEnd - now() > 0.01)
        armCompletion(m_pomodoroCompletion, *m_pomodoroEnd);
    else
        advancePomodoro(true);
}

void TimerManager::schedulePomodoroBanner(PomodoroPhase ending) {
    if (!m_pomodoroEnd)
        return;
    const bool focus = ending == PomodoroPhase::focus;
    m_pomodoroBanner->schedule(
        {*m_pomodoroEnd, focus ? QStringLiteral("Focus session done") : QStringLiteral("Break's over"),
         focus ? QStringLiteral("Time for a break.") : QStringLiteral("Back to focus.")});
}

} // namespace vell
