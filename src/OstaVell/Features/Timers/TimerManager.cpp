#include "OstaVell/Features/Timers/TimerManager.h"

#include "OstaVell/Features/Timers/DesktopNotification.h"
#include "OstaVell/Features/Timers/TimersFormatting.h"
#include "OstaVell/Features/Timers/TimersLogging.h"
#include "OstaVell/Support/ShellContributions.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QQmlEngine>

#include <algorithm>
#include <cmath>
#include <limits>

Q_LOGGING_CATEGORY(lcTimers, "OstaVell Timers", QtInfoMsg)

namespace vell {

const QString TimerManager::completionSoundKey = QStringLiteral("timers.completionSound");
const QString TimerManager::autoOpenOnCompleteKey = QStringLiteral("timers.autoOpenOnComplete");
const QString TimerManager::pomodoroFocusMinutesKey = QStringLiteral("timers.pomodoroFocusMinutes");
const QString TimerManager::pomodoroShortBreakMinutesKey = QStringLiteral("timers.pomodoroShortBreakMinutes");
const QString TimerManager::pomodoroLongBreakMinutesKey = QStringLiteral("timers.pomodoroLongBreakMinutes");
const QString TimerManager::pomodoroSessionsPerCycleKey = QStringLiteral("timers.pomodoroSessionsPerCycle");
const QString TimerManager::pomodoroAutoAdvanceKey = QStringLiteral("timers.pomodoroAutoAdvance");
const QString TimerManager::endDateEpochKey = QStringLiteral("timers.endDateEpoch");
const QString TimerManager::runningTotalKey = QStringLiteral("timers.runningTotal");
const QString TimerManager::pausedRemainingKey = QStringLiteral("timers.pausedRemaining");
const QString TimerManager::configuredDurationKey = QStringLiteral("timers.configuredDuration");
const QString TimerManager::pomodoroPhaseKey = QStringLiteral("timers.pomodoroPhase");
const QString TimerManager::pomodoroEndEpochKey = QStringLiteral("timers.pomodoroEndEpoch");
const QString TimerManager::pomodoroPausedRemainingKey = QStringLiteral("timers.pomodoroPausedRemaining");
const QString TimerManager::pomodoroTotalKey = QStringLiteral("timers.pomodoroTotal");
const QString TimerManager::pomodoroCompletedFocusKey = QStringLiteral("timers.pomodoroCompletedFocus");
const QString TimerManager::selectedModeKey = QStringLiteral("timers.selectedMode");
const QString TimerManager::countdownBannerIdentifier = QStringLiteral("ostavell.timers.countdown");
const QString TimerManager::pomodoroBannerIdentifier = QStringLiteral("ostavell.timers.pomodoro");

namespace {

constexpr int kTickMilliseconds = 500;
constexpr int kFinishedMilliseconds = 3000;
// A tick that finds this little left completes: the one-shot timer may still be a moment away.
constexpr double kCompletionSlack = 0.01;
// What a restart needs left of a timer to pick it up again; less counts as ended.
constexpr double kRestoreSlack = 0.5;

const QString kDefaultSound = QStringLiteral("complete");
const QString kSilent = QStringLiteral("None");
const QString kNotSaved =
    QStringLiteral("The timer was not changed: it could not be saved to the settings file.");
const QString kUnavailable =
    QStringLiteral("Timers can't be changed: the settings file could not be read, and saving now could "
                   "overwrite it.");

} // namespace

TimerManager::TimerManager(UserDefaults& defaults, Clock clock, const TimerBanner::Programs& programs,
                           QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_clock(clock ? std::move(clock) : Clock([] { return QDateTime::currentDateTimeUtc(); }))
    , m_storageUnavailable(defaults.readFailed()) {
    const auto seconds = [this] { return now(); };
    m_countdownBanner = new TimerBanner(countdownBannerIdentifier, programs, seconds, this);
    m_pomodoroBanner = new TimerBanner(pomodoroBannerIdentifier, programs, seconds, this);
    for (TimerBanner* banner : {m_countdownBanner, m_pomodoroBanner})
        connect(banner, &TimerBanner::userManagerReachableChanged, this, [this, banner] {
            m_userManagerAnswers = banner->userManagerReachable();
            updateNotificationStatus();
        });

    m_tick.setInterval(kTickMilliseconds);
    connect(&m_tick, &QTimer::timeout, this, &TimerManager::tick);
    // Never early: a completion that came before its end date would be taken back by the next tick.
    for (QTimer* timer : {&m_completion, &m_pomodoroCompletion, &m_finishReset}) {
        timer->setSingleShot(true);
        timer->setTimerType(Qt::PreciseTimer);
    }
    connect(&m_completion, &QTimer::timeout, this, &TimerManager::completionDue);
    connect(&m_pomodoroCompletion, &QTimer::timeout, this, &TimerManager::pomodoroCompletionDue);
    connect(&m_finishReset, &QTimer::timeout, this, &TimerManager::finishReset);
    connect(&m_defaults, &UserDefaults::changed, this, [this](const QString& key) {
        if (key.isEmpty() || key.startsWith(u"timers."))
            emit settingsChanged();
    });

    if (m_storageUnavailable) {
        qCWarning(lcTimers).noquote() << "settings file could not be read: " + m_defaults.filePath();
        m_notice = kUnavailable;
        return;
    }
    restoreCountdown();
    restorePomodoro();
}

TimerManager::~TimerManager() = default;

TimerManager* TimerManager::instance() {
    static TimerManager* p =
        new TimerManager(*UserDefaults::instance(), {}, TimerBanner::Programs::installed());
    return p;
}

TimerManager* TimerManager::create(QQmlEngine*, QJSEngine*) {
    TimerManager* manager = instance();
    QQmlEngine::setObjectOwnership(manager, QQmlEngine::CppOwnership);
    return manager;
}

void TimerManager::offerViews(ShellContributions& shell) {
    const auto view = [](const char* file) {
        return QUrl(QStringLiteral("qrc:/qt/qml/OstaVell/Timers/qml/") + QLatin1String(file));
    };
    shell.offerTab(NotchTab::tools, QStringLiteral("Timers"), view("TimersWidgetView.qml"));
    shell.offerWing(QStringLiteral("timer"), view("TimerClosedWing.qml"));
    shell.offerSettingsPane(QStringLiteral("Timers"), view("TimersSettingsPane.qml"));
}

void TimerManager::start() {
    refreshNotificationStatus();
}

double TimerManager::now() const {
    return secondsAt(m_clock());
}

double TimerManager::secondsAt(const QDateTime& at) const {
    return double(at.toMSecsSinceEpoch()) / 1000.0;
}

bool TimerManager::store(const QVariantMap& values) {
    if (m_storageUnavailable) {
        setNotice(kUnavailable);
        return false;
    }
    if (!m_defaults.setValues(values)) {
        qCWarning(lcTimers).noquote() << "save failed: " + m_defaults.filePath();
        setNotice(kNotSaved);
        return false;
    }
    setNotice({});
    return true;
}

void TimerManager::setNotice(const QString& notice) {
    if (m_notice == notice)
        return;
    m_notice = notice;
    emit noticeChanged();
}

// ---- Settings, read at the moment of use ----

double TimerManager::configuredDuration() const {
    return std::clamp(m_defaults.doubleValue(configuredDurationKey, 300), 0.0, longestDuration);
}

QString TimerManager::completionSound() const {
    return m_defaults.stringValue(completionSoundKey, kDefaultSound);
}

bool TimerManager::autoOpenOnComplete() const {
    return m_defaults.boolValue(autoOpenOnCompleteKey, true);
}

int TimerManager::pomodoroFocusMinutes() const {
    return int(m_defaults.doubleValue(pomodoroFocusMinutesKey, 25));
}

int TimerManager::pomodoroShortBreakMinutes() const {
    return int(m_defaults.doubleValue(pomodoroShortBreakMinutesKey, 5));
}

int TimerManager::pomodoroLongBreakMinutes() const {
    return int(m_defaults.doubleValue(pomodoroLongBreakMinutesKey, 15));
}

int TimerManager::pomodoroSessionsPerCycle() const {
    return int(m_defaults.doubleValue(pomodoroSessionsPerCycleKey, 4));
}

bool TimerManager::pomodoroAutoAdvance() const {
    return m_defaults.boolValue(pomodoroAutoAdvanceKey, true);
}

QString TimerManager::selectedMode() const {
    const QString mode = m_defaults.stringValue(selectedModeKey, QStringLiteral("timer"));
    return mode == u"stopwatch" || mode == u"pomodoro" ? mode : QStringLiteral("timer");
}

void TimerManager::storeSetting(const QString& key, const QVariant& value) {
    if (store({{key, value}}))
        emit settingsChanged();
}

void TimerManager::setConfiguredDuration(double seconds) {
    if (!std::isfinite(seconds))
        return;
    storeSetting(configuredDurationKey, std::clamp(seconds, 0.0, longestDuration));
}

void TimerManager::setCompletionSound(const QString& name) {
    storeSetting(completionSoundKey, name);
}

void TimerManager::setAutoOpenOnComplete(bool on) {
    storeSetting(autoOpenOnCompleteKey, on);
}

void TimerManager::setPomodoroFocusMinutes(int minutes) {
    storeSetting(pomodoroFocusMinutesKey, std::max(1, minutes));
}

void TimerManager::setPomodoroShortBreakMinutes(int minutes) {
    storeSetting(pomodoroShortBreakMinutesKey, std::max(1, minutes));
}

void TimerManager::setPomodoroLongBreakMinutes(int minutes) {
    storeSetting(pomodoroLongBreakMinutesKey, std::max(1, minutes));
}

void TimerManager::setPomodoroSessionsPerCycle(int sessions) {
    storeSetting(pomodoroSessionsPerCycleKey, std::max(0, sessions));
}

void TimerManager::setPomodoroAutoAdvance(bool on) {
    storeSetting(pomodoroAutoAdvanceKey, on);
}

void TimerManager::setSelectedMode(const QString& mode) {
    if (mode == u"timer" || mode == u"stopwatch" || mode == u"pomodoro")
        storeSetting(selectedModeKey, mode);
}

QStringList TimerManager::soundChoices() const {
    return QStringList{kSilent} + ThemeSound::names();
}

void TimerManager::playCompletionSound() {
    const QString name = completionSound();
    if (name == kSilent)
        return;
    QString reason;
    const ThemeSound::Result result = m_sound.play(name, &reason);
    if (result != ThemeSound::Result::started && result != ThemeSound::Result::alreadyPlaying)
        qCInfo(lcTimers).noquote() << "no completion sound: " + reason;
}

// ---- The countdown ----

QString TimerManager::countdownPhaseName() const {
    switch (m_countdownPhase) {
    case CountdownPhase::idle:
        return QStringLiteral("idle");
    case CountdownPhase::running:
        return QStringLiteral("running");
    case CountdownPhase::paused:
        return QStringLiteral("paused");
    case CountdownPhase::finished:
        return QStringLiteral("finished");
    }
    return QStringLiteral("idle");
}

double TimerManager::countdownProgress() const {
    if (m_countdownTotal <= 0)
        return 0;
    return std::clamp(m_countdownRemaining / m_countdownTotal, 0.0, 1.0);
}

std::optional<QDateTime> TimerManager::countdownEndDate() const {
    if (!m_countdownEnd)
        return std::nullopt;
    return QDateTime::fromMSecsSinceEpoch(qint64(std::llround(*m_countdownEnd * 1000)), Qt::UTC);
}

double TimerManager::countdownRemainingAt(const QDateTime& at) const {
    if (m_countdownPhase == CountdownPhase::running && m_countdownEnd)
        return std::max(0.0, *m_countdownEnd - secondsAt(at));
    return m_countdownRemaining;
}

void TimerManager::restoreCountdown() {
    const double end = m_defaults.doubleValue(endDateEpochKey, 0);
    const double total = m_defaults.doubleValue(runningTotalKey, 0);
    const double paused = m_defaults.doubleValue(pausedRemainingKey, 0);
    if (end > 0) {
        const double remaining = end - now();
        if (remaining > kRestoreSlack) {
            m_countdownEnd = end;
            m_countdownTotal = total > 0 ? total : remaining;
            m_countdownRemaining = remaining;
            m_countdownPhase = CountdownPhase::running;
            m_countdownBanner->restored(end);
            armCompletion(m_completion, end);
            updateTickTimer();
            return;
        }
        // It ended while the app wasn't running; its banner has told the user, and no sound
        // plays this late. The next launch would find the same, so a failed write is no harm.
        store({{endDateEpochKey, 0.0}, {runningTotalKey, 0.0}, {pausedRemainingKey, 0.0}});
        return;
    }
    if (paused > 0) {
        m_countdownRemaining = paused;
        m_countdownTotal = std::max(paused, total);
        m_countdownPhase = CountdownPhase::paused;
    }
}

void TimerManager::startCountdown() {
    const double duration = configuredDuration();
    if (duration < 1)
        return;
    if (m_countdownPhase != CountdownPhase::idle && m_countdownPhase != CountdownPhase::finished)
        return;
    const double end = now() + duration;
    if (!store({{endDateEpochKey, end}, {runningTotalKey, duration}, {pausedRemainingKey, 0.0}}))
        return;
    m_finishReset.stop();
    m_countdownEnd = end;
    m_countdownRemaining = m_countdownTotal = duration;
    m_countdownPhase = CountdownPhase::running;
    emit countdownChanged();
    armCompletion(m_completion, end);
    scheduleCountdownBanner();
    updateTickTimer();
}

void TimerManager::pauseCountdown() {
    if (m_countdownPhase != CountdownPhase::running || !m_countdownEnd)
        return;
    const double remaining = std::max(0.0, *m_countdownEnd - now());
    if (!store(
            {{endDateEpochKey, 0.0}, {runningTotalKey, m_countdownTotal}, {pausedRemainingKey, remaining}}))
        return;
    m_countdownEnd.reset();
    m_countdownRemaining = remaining;
    m_countdownPhase = CountdownPhase::paused;
    emit countdownChanged();
    m_completion.stop();
    m_countdownBanner->remove();
    updateTickTimer();
}

void TimerManager::resumeCountdown() {
    if (m_countdownPhase != CountdownPhase::paused || m_countdownRemaining <= 0)
        return;
    const double end = now() + m_countdownRemaining;
    if (!store({{endDateEpochKey, end}, {runningTotalKey, m_countdownTotal}, {pausedRemainingKey, 0.0}}))
        return;
    m_countdownEnd = end;
    m_countdownPhase = CountdownPhase::running;
    emit countdownChanged();
    armCompletion(m_completion, end);
    scheduleCountdownBanner();
    updateTickTimer();
}

void TimerManager::cancelCountdown() {
    if (m_countdownPhase == CountdownPhase::idle)
        return;
    if (!store({{endDateEpochKey, 0.0}, {runningTotalKey, 0.0}, {pausedRemainingKey, 0.0}}))
        return;
    m_finishReset.stop();
    m_countdownEnd.reset();
    m_countdownPhase = CountdownPhase::idle;
    m_countdownRemaining = m_countdownTotal = 0;
    emit countdownChanged();
    m_completion.stop();
    m_countdownBanner->remove();
    updateTickTimer();
}

void TimerManager::completionDue() {
    if (m_countdownPhase != CountdownPhase::running || !m_countdownEnd)
        return;
    // The end date is the clock's, the timer the system's: if they disagree, the clock wins.
    if (*m_countdownEnd - now() > kCompletionSlack)
        armCompletion(m_completion, *m_countdownEnd);
    else
        completeCountdown();
}

void TimerManager::completeCountdown() {
    if (m_countdownPhase != CountdownPhase::running)
        return;
    // Time has ended it whatever the disk says: a stored end date in the past reads as ended at
    // the next launch too, so the phase moves on even if clearing the keys fails.
    store({{endDateEpochKey, 0.0}, {runningTotalKey, 0.0}, {pausedRemainingKey, 0.0}});
    m_countdownPhase = CountdownPhase::finished;
    m_countdownRemaining = 0;
    m_countdownEnd.reset();
    emit countdownChanged();
    m_completion.stop();
    updateTickTimer();
    m_countdownBanner->timerEnded();
    playCompletionSound();
    if (autoOpenOnComplete() && onCountdownFinished)
        onCountdownFinished();
    m_finishReset.start(kFinishedMilliseconds);
}

void TimerManager::finishReset() {
    if (m_countdownPhase != CountdownPhase::finished)
        return;
    m_countdownPhase = CountdownPhase::idle;
    m_countdownRemaining = m_countdownTotal = 0;
    emit countdownChanged();
}

void TimerManager::scheduleCountdownBanner() {
    if (!m_countdownEnd)
        return;
    m_countdownBanner->schedule({*m_countdownEnd, QStringLiteral("Timer Done"),
                                 QStringLiteral("Your ") + TimersFormatting::spoken(m_countdownTotal) +
                                     QStringLiteral(" timer finished.")});
}

// ---- The tick and the end dates ----

void TimerManager::tick() {
    const double at = now();
    if (m_countdownPhase == CountdownPhase::running && m_countdownEnd) {
        m_countdownRemaining = std::max(0.0, *m_countdownEnd - at);
        emit countdownChanged();
        if (m_countdownRemaining <= kCompletionSlack)
            completeCountdown();
    }
    if (m_stopwatchStart) {
        m_stopwatchElapsed = std::max(0.0, m_stopwatchAccumulated + at - *m_stopwatchStart);
        emit stopwatchChanged();
    }
    if (isPomodoroRunning() && m_pomodoroEnd) {
        m_pomodoroRemaining = std::max(0.0, *m_pomodoroEnd - at);
        emit pomodoroChanged();
        if (m_pomodoroRemaining <= kCompletionSlack && isPomodoroRunning())
            advancePomodoro(true);
    }
}

void TimerManager::updateTickTimer() {
    const bool wanted =
        m_countdownPhase == CountdownPhase::running || m_stopwatchStart.has_value() || isPomodoroRunning();
    if (wanted == m_tick.isActive())
        return;
    if (wanted)
        m_tick.start();
    else
        m_tick.stop();
    emit tickingChanged();
}

void TimerManager::armCompletion(QTimer& timer, double end) {
    const double milliseconds = std::ceil((end - now()) * 1000);
    timer.start(int(std::clamp(milliseconds, 0.0, double(std::numeric_limits<int>::max()))));
}

// ---- The stopwatch, never stored ----

double TimerManager::stopwatchElapsedAt(const QDateTime& at) const {
    if (!m_stopwatchStart)
        return m_stopwatchAccumulated;
    return std::max(0.0, m_stopwatchAccumulated + secondsAt(at) - *m_stopwatchStart);
}

QVariantList TimerManager::lapList() const {
    QVariantList list;
    for (const Lap& lap : m_laps)
        list.append(QVariantMap{{QStringLiteral("id"), lap.id.toString(QUuid::WithoutBraces).toUpper()},
                                {QStringLiteral("index"), lap.index},
                                {QStringLiteral("total"), lap.total},
                                {QStringLiteral("delta"), lap.delta}});
    return list;
}

void TimerManager::startStopwatch() {
    if (m_stopwatchStart)
        return;
    m_stopwatchStart = now();
    emit stopwatchChanged();
    updateTickTimer();
}

void TimerManager::pauseStopwatch() {
    if (!m_stopwatchStart)
        return;
    m_stopwatchAccumulated = stopwatchElapsedAt(m_clock());
    m_stopwatchStart.reset();
    m_stopwatchElapsed = m_stopwatchAccumulated;
    emit stopwatchChanged();
    updateTickTimer();
}

void TimerManager::resetStopwatch() {
    m_stopwatchStart.reset();
    m_stopwatchAccumulated = m_stopwatchElapsed = 0;
    m_laps.clear();
    emit stopwatchChanged();
    updateTickTimer();
}

void TimerManager::recordLap() {
    if (!m_stopwatchStart)
        return;
    const double total = stopwatchElapsedAt(m_clock());
    const double delta = m_laps.isEmpty() ? total : total - m_laps.first().total;
    m_laps.prepend({QUuid::createUuid(), int(m_laps.size()) + 1, total, delta});
    emit stopwatchChanged();
}

// ---- What banners can be shown ----

QString TimerManager::notificationStatusName() const {
    switch (m_notificationStatus) {
    case NotificationStatus::notDetermined:
        return QStringLiteral("notDetermined");
    case NotificationStatus::authorized:
        return QStringLiteral("authorized");
    case NotificationStatus::appOnly:
        return QStringLiteral("appOnly");
    case NotificationStatus::denied:
        return QStringLiteral("denied");
    }
    return QStringLiteral("notDetermined");
}

void TimerManager::refreshNotificationStatus() {
    DesktopNotification::probe(this, [this](bool answers) {
        m_serviceAnswers = answers;
        updateNotificationStatus();
    });
    TimerBanner::probeUserManager(m_countdownBanner->programs(), this, [this](bool answers) {
        m_userManagerAnswers = answers;
        updateNotificationStatus();
    });
}

void TimerManager::updateNotificationStatus() {
    NotificationStatus status = NotificationStatus::notDetermined;
    if (m_serviceAnswers == false)
        status = NotificationStatus::denied;
    else if (m_serviceAnswers == true && m_userManagerAnswers.has_value())
        status = *m_userManagerAnswers ? NotificationStatus::authorized : NotificationStatus::appOnly;
    if (status == m_notificationStatus)
        return;
    m_notificationStatus = status;
    emit notificationStatusChanged();
}

} // namespace vell
