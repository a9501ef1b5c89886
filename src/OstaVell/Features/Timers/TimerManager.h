#pragma once

#include "OstaVell/Features/Timers/TimerBanner.h"
#include "OstaVell/Support/ThemeSound.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QTimer>
#include <QUuid>
#include <QVariantList>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <optional>

class QJSEngine;
class QQmlEngine;

namespace vell {

class ShellContributions;
class UserDefaults;

// The one owner of the tools' three timers: a countdown, a stopwatch with laps and a pomodoro
// cycle. A countdown and a pomodoro phase are defined by a wall-clock end date, stored in the
// user defaults with a banner handed to the system at the start, so that a timer finishes even
// while the app isn't running. The stopwatch is never stored.
//
// Nothing here counts: a 0.5-second tick, which runs only while a timer runs, computes what is
// left from the dates, and a one-shot timer at the end date completes on time. Every change of
// state is stored, all its keys in one write, before it is published; a change that can't be
// stored changes nothing and says so in `notice`.
class TimerManager final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_DISABLE_COPY_MOVE(TimerManager)

    Q_PROPERTY(QString countdownPhase READ countdownPhaseName NOTIFY countdownChanged)
    Q_PROPERTY(double countdownRemaining READ countdownRemaining NOTIFY countdownChanged)
    Q_PROPERTY(double countdownTotal READ countdownTotal NOTIFY countdownChanged)
    Q_PROPERTY(double countdownProgress READ countdownProgress NOTIFY countdownChanged)
    Q_PROPERTY(bool stopwatchRunning READ stopwatchRunning NOTIFY stopwatchChanged)
    Q_PROPERTY(double stopwatchElapsed READ stopwatchElapsed NOTIFY stopwatchChanged)
    // [{id, index, total, delta}], newest first.
    Q_PROPERTY(QVariantList laps READ lapList NOTIFY stopwatchChanged)
    Q_PROPERTY(QString pomodoroPhase READ pomodoroPhaseName NOTIFY pomodoroChanged)
    Q_PROPERTY(bool pomodoroPaused READ pomodoroPaused NOTIFY pomodoroChanged)
    Q_PROPERTY(double pomodoroRemaining READ pomodoroRemaining NOTIFY pomodoroChanged)
    Q_PROPERTY(double pomodoroTotal READ pomodoroTotal NOTIFY pomodoroChanged)
    Q_PROPERTY(int pomodoroCompletedFocus READ pomodoroCompletedFocus NOTIFY pomodoroChanged)
    Q_PROPERTY(bool isPomodoroRunning READ isPomodoroRunning NOTIFY pomodoroChanged)
    // "notDetermined", "authorized" (banners even after a quit), "appOnly" (no user manager:
    // banners only while the app runs) or "denied" (no notification service answers).
    Q_PROPERTY(QString notificationAuthStatus READ notificationStatusName NOTIFY notificationStatusChanged)
    Q_PROPERTY(bool ticking READ ticking NOTIFY tickingChanged)
    Q_PROPERTY(QString notice READ notice NOTIFY noticeChanged)
    Q_PROPERTY(bool storageUnavailable READ storageUnavailable CONSTANT)

    Q_PROPERTY(
        double configuredDuration READ configuredDuration WRITE setConfiguredDuration NOTIFY settingsChanged)
    Q_PROPERTY(QString completionSound READ completionSound WRITE setCompletionSound NOTIFY settingsChanged)
    Q_PROPERTY(
        bool autoOpenOnComplete READ autoOpenOnComplete WRITE setAutoOpenOnComplete NOTIFY settingsChanged)
    Q_PROPERTY(int pomodoroFocusMinutes READ pomodoroFocusMinutes WRITE setPomodoroFocusMinutes NOTIFY
                   settingsChanged)
    Q_PROPERTY(int pomodoroShortBreakMinutes READ pomodoroShortBreakMinutes WRITE setPomodoroShortBreakMinutes
                   NOTIFY settingsChanged)
    Q_PROPERTY(int pomodoroLongBreakMinutes READ pomodoroLongBreakMinutes WRITE setPomodoroLongBreakMinutes
                   NOTIFY settingsChanged)
    Q_PROPERTY(int pomodoroSessionsPerCycle READ pomodoroSessionsPerCycle WRITE setPomodoroSessionsPerCycle
                   NOTIFY settingsChanged)
    Q_PROPERTY(
        bool pomodoroAutoAdvance READ pomodoroAutoAdvance WRITE setPomodoroAutoAdvance NOTIFY settingsChanged)
    // The widget's mode: "timer", "stopwatch" or "pomodoro".
    Q_PROPERTY(QString selectedMode READ selectedMode WRITE setSelectedMode NOTIFY settingsChanged)

public:
    enum class CountdownPhase { idle, running, paused, finished };
    Q_ENUM(CountdownPhase)
    enum class PomodoroPhase { idle, focus, shortBreak, longBreak };
    Q_ENUM(PomodoroPhase)
    enum class NotificationStatus { notDetermined, authorized, appOnly, denied };
    Q_ENUM(NotificationStatus)

    struct Lap {
        QUuid id;
        int index = 0;
        double total = 0;
        double delta = 0;
    };

    using Clock = std::function<QDateTime()>;

    // The stored keys.
    static const QString completionSoundKey;
    static const QString autoOpenOnCompleteKey;
    static const QString pomodoroFocusMinutesKey;
    static const QString pomodoroShortBreakMinutesKey;
    static const QString pomodoroLongBreakMinutesKey;
    static const QString pomodoroSessionsPerCycleKey;
    static const QString pomodoroAutoAdvanceKey;
    static const QString endDateEpochKey;
    static const QString runningTotalKey;
    static const QString pausedRemainingKey;
    static const QString configuredDurationKey;
    static const QString pomodoroPhaseKey;
    static const QString pomodoroEndEpochKey;
    static const QString pomodoroPausedRemainingKey;
    static const QString pomodoroTotalKey;
    static const QString pomodoroCompletedFocusKey;
    static const QString selectedModeKey;
    // The two banners, so that at most one of each kind is pending.
    static const QString countdownBannerIdentifier;
    static const QString pomodoroBannerIdentifier;
    // The longest countdown the widget sets: a second short of a day.
    static constexpr double longestDuration = 86399;

    // Reads the stored timers and restores them at once, as of the clock's now.
    TimerManager(UserDefaults& defaults, Clock clock, const TimerBanner::Programs& programs,
                 QObject* parent = nullptr);
    ~TimerManager() override;

    static TimerManager* instance();
    static TimerManager* create(QQmlEngine*, QJSEngine*);
    static void offerViews(ShellContributions& shell);

    // Asked when a countdown completes and "timers.autoOpenOnComplete" is on: the shell opens
    // the panel at the timers.
    std::function<void()> onCountdownFinished;

    // Learns what banners can be shown.
    void start();

    CountdownPhase countdownPhase() const { return m_countdownPhase; }
    QString countdownPhaseName() const;
    double countdownRemaining() const { return m_countdownRemaining; }
    double countdownTotal() const { return m_countdownTotal; }
    double countdownProgress() const;
    std::optional<QDateTime> countdownEndDate() const;
    bool stopwatchRunning() const { return m_stopwatchStart.has_value(); }
    double stopwatchElapsed() const { return m_stopwatchElapsed; }
    const QList<Lap>& laps() const { return m_laps; }
    QVariantList lapList() const;
    PomodoroPhase pomodoroPhase() const { return m_pomodoroPhase; }
    QString pomodoroPhaseName() const;
    bool pomodoroPaused() const { return m_pomodoroPaused; }
    double pomodoroRemaining() const { return m_pomodoroRemaining; }
    double pomodoroTotal() const { return m_pomodoroTotal; }
    int pomodoroCompletedFocus() const { return m_pomodoroCompletedFocus; }
    std::optional<QDateTime> pomodoroEndDate() const;
    bool isPomodoroRunning() const { return m_pomodoroPhase != PomodoroPhase::idle && !m_pomodoroPaused; }
    NotificationStatus notificationAuthStatus() const { return m_notificationStatus; }
    QString notificationStatusName() const;
    bool ticking() const { return m_tick.isActive(); }
    QString notice() const { return m_notice; }
    bool storageUnavailable() const { return m_storageUnavailable; }

    double configuredDuration() const;
    QString completionSound() const;
    bool autoOpenOnComplete() const;
    int pomodoroFocusMinutes() const;
    int pomodoroShortBreakMinutes() const;
    int pomodoroLongBreakMinutes() const;
    int pomodoroSessionsPerCycle() const;
    bool pomodoroAutoAdvance() const;
    QString selectedMode() const;
    void setConfiguredDuration(double seconds);
    void setCompletionSound(const QString& name);
    void setAutoOpenOnComplete(bool on);
    void setPomodoroFocusMinutes(int minutes);
    void setPomodoroShortBreakMinutes(int minutes);
    void setPomodoroLongBreakMinutes(int minutes);
    void setPomodoroSessionsPerCycle(int sessions);
    void setPomodoroAutoAdvance(bool on);
    void setSelectedMode(const QString& mode);
    // "None" and the sound theme's names, for the picker.
    Q_INVOKABLE QStringList soundChoices() const;

    Q_INVOKABLE void startCountdown();
    Q_INVOKABLE void pauseCountdown();
    Q_INVOKABLE void resumeCountdown();
    Q_INVOKABLE void cancelCountdown();
    double countdownRemainingAt(const QDateTime& at) const;

    Q_INVOKABLE void startStopwatch();
    Q_INVOKABLE void pauseStopwatch();
    Q_INVOKABLE void resetStopwatch();
    Q_INVOKABLE void recordLap();
    double stopwatchElapsedAt(const QDateTime& at) const;

    Q_INVOKABLE void startPomodoro();
    Q_INVOKABLE void pausePomodoro();
    Q_INVOKABLE void resumePomodoro();
    Q_INVOKABLE void skipPomodoroPhase();
    Q_INVOKABLE void resetPomodoro();
    double pomodoroRemainingAt(const QDateTime& at) const;
    // A phase's length in seconds: its stored minutes, at least one; 0 for idle.
    double pomodoroDuration(PomodoroPhase phase) const;

    Q_INVOKABLE void refreshNotificationStatus();

    TimerBanner& countdownBanner() { return *m_countdownBanner; }
    TimerBanner& pomodoroBanner() { return *m_pomodoroBanner; }
    ThemeSound& sound() { return m_sound; }

    static QString pomodoroPhaseName(PomodoroPhase phase);
    static std::optional<PomodoroPhase> pomodoroPhaseFromName(const QString& name);

signals:
    void countdownChanged();
    void stopwatchChanged();
    void pomodoroChanged();
    void notificationStatusChanged();
    void tickingChanged();
    void noticeChanged();
    void settingsChanged();

private:
    double now() const;
    double secondsAt(const QDateTime& at) const;
    // Writes the keys in one go; false, with the notice set, when they are not on disk.
    bool store(const QVariantMap& values);
    void setNotice(const QString& notice);
    void storeSetting(const QString& key, const QVariant& value);

    void restoreCountdown();
    void restorePomodoro();
    void tick();
    void updateTickTimer();
    void armCompletion(QTimer& timer, double end);
    void completionDue();
    void completeCountdown();
    void finishReset();
    void scheduleCountdownBanner();

    void pomodoroCompletionDue();
    QVariantMap pomodoroValues(PomodoroPhase phase, std::optional<double> end, double pausedRemaining,
                               double total, int completed) const;
    // What becomes of the banner of the phase a new one follows.
    enum class EndingBanner { none, ended, cutShort };
    bool beginPomodoroPhase(PomodoroPhase phase, bool paused, int completed, EndingBanner ending);
    void advancePomodoro(bool announce, bool forcePaused = false);
    void schedulePomodoroBanner(PomodoroPhase ending);
    void playCompletionSound();
    void updateNotificationStatus();

    UserDefaults& m_defaults;
    const Clock m_clock;
    const bool m_storageUnavailable;
    QString m_notice;

    CountdownPhase m_countdownPhase = CountdownPhase::idle;
    double m_countdownRemaining = 0;
    double m_countdownTotal = 0;
    std::optional<double> m_countdownEnd;

    std::optional<double> m_stopwatchStart;
    double m_stopwatchAccumulated = 0;
    double m_stopwatchElapsed = 0;
    QList<Lap> m_laps;

    PomodoroPhase m_pomodoroPhase = PomodoroPhase::idle;
    bool m_pomodoroPaused = false;
    double m_pomodoroRemaining = 0;
    double m_pomodoroTotal = 0;
    int m_pomodoroCompletedFocus = 0;
    std::optional<double> m_pomodoroEnd;

    QTimer m_tick;
    QTimer m_completion;
    QTimer m_pomodoroCompletion;
    QTimer m_finishReset;
    ThemeSound m_sound;
    TimerBanner* m_countdownBanner;
    TimerBanner* m_pomodoroBanner;
    std::optional<bool> m_serviceAnswers;
    std::optional<bool> m_userManagerAnswers;
    NotificationStatus m_notificationStatus = NotificationStatus::notDetermined;
};

} // namespace vell
