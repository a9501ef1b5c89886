#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <optional>

namespace vell {

// One pending banner of the timers under a fixed identifier, so that at most one of its kind
// waits. The banner must appear even if the app has quit, so it is left with the systemd user
// manager: a transient timer unit named after the identifier that runs ostavell-notify at the
// end date. Replacing it stops the old unit first; removing it stops the timer and its service.
//
// Where no user manager takes the banner (systemd-run fails), the running app shows it itself
// when it sees its timer end; after a quit there is then no banner.
//
// Every command runs as a child process off the main thread, one at a time. Requests that come
// while one runs are not queued one by one: when it ends, the next command brings the manager
// to the latest request, and a timer's end date decides its delay at that moment.
class TimerBanner final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TimerBanner)

public:
    struct Programs {
        QString systemdRun; // empty: no user manager is asked, the app shows the banner
        QString systemctl;
        QString notify;
        // systemd-run and systemctl from PATH, ostavell-notify beside the app.
        static Programs installed();
    };
    struct Request {
        double fireAt = 0; // seconds since 1970
        QString title;
        QString body;
    };

    // now gives seconds since 1970, the manager's own clock.
    TimerBanner(const QString& identifier, Programs programs, std::function<double()> now,
                QObject* parent = nullptr);
    ~TimerBanner() override;

    QString identifier() const { return m_identifier; }
    const Programs& programs() const { return m_programs; }

    void schedule(const Request& request);
    void remove();
    // The app saw the timer end. If no user manager took the banner, the app shows it now.
    void timerEnded();
    // A timer restored at launch: its banner was handed to the manager by an earlier run of the
    // app, for that end date, and is not stopped while it is being shown.
    void restored(double fireAt);

    // No command runs and none is due: the user manager has what was last asked.
    bool settled() const { return !m_busy && m_applied == m_generation; }
    // The pending banner is the app's to show, since no user manager took it.
    bool inApp() const { return m_desired.has_value() && m_inApp; }
    // What the last systemd-run showed of the user manager; nothing before the first.
    std::optional<bool> userManagerReachable() const { return m_reachable; }

    // Whether a systemd user manager answers, asked without waiting; done runs on this thread
    // while context lives.
    static void probeUserManager(const Programs& programs, QObject* context, std::function<void(bool)> done);

signals:
    void settledChanged();
    void userManagerReachableChanged();
    // The app showed the banner itself (or tried to: delivered is whether the service took it).
    void shownInApp(const QString& title, bool delivered);

private:
    void pump();
    void runStop();
    void runSchedule();
    void run(const QString& program, const QStringList& arguments, std::function<void(bool)> finished);
    static void runCommand(const QString& program, const QStringList& arguments, QObject* context,
                           std::function<void(bool)> finished);
    void setReachable(bool reachable);
    void showInApp();

    const QString m_identifier;
    const Programs m_programs;
    const std::function<double()> m_now;

    std::optional<Request> m_desired;
    // The app shows m_desired itself: systemd-run refused it.
    bool m_inApp = false;
    // Bumped by every schedule and remove; m_applied is the one the manager has.
    quint64 m_generation = 0;
    quint64 m_applied = 0;
    // A unit of ours may wait with the manager: one we made, or one an earlier run of the app
    // left, which a restored timer still counts on.
    bool m_mayHaveUnit = true;
    bool m_busy = false;
    // The end date of the unit the manager took last, and the wait that lets it fire before a
    // stop would cut it short.
    std::optional<double> m_handedFireAt;
    QTimer m_firing;
    // The timer ended before the manager's answer came: the answer decides who shows it.
    bool m_endedWhileBusy = false;
    std::optional<bool> m_reachable;
};

} // namespace vell
