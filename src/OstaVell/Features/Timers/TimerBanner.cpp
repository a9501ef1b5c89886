#include "OstaVell/Features/Timers/TimerBanner.h"

#include "OstaVell/Features/Timers/DesktopNotification.h"
#include "OstaVell/Features/Timers/TimersLogging.h"
#include "VellHost/ChildProcess.h"

#include <QCoreApplication>
#include <QPointer>
#include <QStandardPaths>
#include <QThreadPool>

#include <chrono>
#include <cmath>
#include <memory>
#include <sys/wait.h>

namespace vell {

namespace {

using namespace std::chrono_literals;

// systemd-run and systemctl answer in moments; one that hangs on a stuck bus is given up.
constexpr auto kCommandDeadline = 15s;
constexpr qsizetype kOutputLimit = 64 * 1024;
// A unit whose end has come is left this long to show its banner before a stop: the manager may
// start it up to a second late (AccuracySec), and ostavell-notify takes a moment to deliver.
constexpr double kFiringGrace = 3;
// The app completes a timer at its end date or a tick that finds at most 0.01 s left.
constexpr double kDue = 0.02;

// What systemctl and systemd-run need to find the user manager (its private socket lies in the
// runtime folder, the bus is the fallback), and what ostavell-notify then runs with is the
// manager's own environment, not ours.
const char* const kManagerEnvironment[] = {"XDG_RUNTIME_DIR", "DBUS_SESSION_BUS_ADDRESS", "HOME", "LANG",
                                           "PATH"};

QStringList managerEnvironment() {
    QStringList environment;
    for (const char* variable : kManagerEnvironment)
        if (qEnvironmentVariableIsSet(variable))
            environment.append(QLatin1String(variable) + u'=' + qEnvironmentVariable(variable));
    return environment;
}

} // namespace

TimerBanner::Programs TimerBanner::Programs::installed() {
    return {QStandardPaths::findExecutable(QStringLiteral("systemd-run")),
            QStandardPaths::findExecutable(QStringLiteral("systemctl")),
            QCoreApplication::applicationDirPath() + QStringLiteral("/ostavell-notify")};
}

TimerBanner::TimerBanner(const QString& identifier, Programs programs, std::function<double()> now,
                         QObject* parent)
    : QObject(parent)
    , m_identifier(identifier)
    , m_programs(std::move(programs))
    , m_now(std::move(now)) {
    m_firing.setSingleShot(true);
    connect(&m_firing, &QTimer::timeout, this, [this] {
        m_busy = false;
        m_handedFireAt.reset();
        pump();
    });
}

// A command still running finishes on its own: a banner handed to the manager just before the
// app quits must still be scheduled.
TimerBanner::~TimerBanner() = default;

void TimerBanner::schedule(const Request& request) {
    m_desired = request;
    m_inApp = false;
    m_endedWhileBusy = false;
    ++m_generation;
    pump();
}

void TimerBanner::remove() {
    m_desired.reset();
    m_inApp = false;
    m_endedWhileBusy = false;
    ++m_generation;
    pump();
}

void TimerBanner::timerEnded() {
    if (!m_desired)
        return;
    if (m_inApp) {
        showInApp();
        return;
    }
    // The manager has it and shows it at the same moment; a stop now could cut it short.
    // Still on its way to the manager: the answer decides who shows it.
    if (settled())
        m_desired.reset();
    else
        m_endedWhileBusy = true;
}

void TimerBanner::restored(double fireAt) {
    m_mayHaveUnit = true;
    m_handedFireAt = fireAt;
}

void TimerBanner::pump() {
    if (m_busy || m_applied == m_generation)
        return;
    if (m_mayHaveUnit && !m_programs.systemctl.isEmpty()) {
        const double left = m_handedFireAt ? *m_handedFireAt - m_now() : 0;
        if (m_handedFireAt && left <= kDue && left + kFiringGrace > 0) {
            m_busy = true;
            m_firing.start(int(std::ceil((left + kFiringGrace) * 1000)));
            return;
        }
        runStop();
        return;
    }
    m_mayHaveUnit = false;
    if (m_desired && !m_inApp) {
        runSchedule();
        return;
    }
    m_applied = m_generation;
    emit settledChanged();
}

void TimerBanner::runStop() {
    const QString unit = m_identifier;
    run(m_programs.systemctl,
        {QStringLiteral("--user"), QStringLiteral("stop"), unit + QStringLiteral(".timer"),
         unit + QStringLiteral(".service")},
        [this](bool) {
            // Not loaded is the usual answer, and a manager that can't be reached holds nothing.
            m_mayHaveUnit = false;
            m_handedFireAt.reset();
            pump();
        });
}

void TimerBanner::runSchedule() {
    const quint64 generation = m_generation;
    const Request request = *m_desired;
    const double delay = request.fireAt - m_now();
    // A banner needs a second's notice; closer than that the app, which is running, shows it.
    if (m_programs.systemdRun.isEmpty() || delay < 1) {
        m_inApp = true;
        m_applied = generation;
        if (std::exchange(m_endedWhileBusy, false))
            showInApp();
        emit settledChanged();
        return;
    }
    const QString milliseconds = QString::number(std::llround(delay * 1000));
    run(m_programs.systemdRun,
        {QStringLiteral("--user"), QStringLiteral("--unit=") + m_identifier,
         // A run that failed (no notification service) would hold the name until reset.
         QStringLiteral("--collect"), QStringLiteral("--on-active=") + milliseconds + QStringLiteral("ms"),
         QStringLiteral("--timer-property=AccuracySec=1s"), m_programs.notify, request.title, request.body},
        [this, generation, request](bool scheduled) {
            // Even a refusal may have left a unit of that name behind.
            m_mayHaveUnit = true;
            if (scheduled)
                m_handedFireAt = request.fireAt;
            setReachable(scheduled);
            m_applied = generation;
            const bool ended = std::exchange(m_endedWhileBusy, false);
            if (generation == m_generation) {
                if (!scheduled) {
                    qCInfo(lcTimers).noquote() << "no user manager took the banner " + m_identifier +
                                                      "; the app shows it while it runs";
                    m_inApp = true;
                }
                if (ended && m_inApp)
                    showInApp();
                else if (ended)
                    m_desired.reset();
            }
            if (m_applied == m_generation)
                emit settledChanged();
            pump();
        });
}

void TimerBanner::run(const QString& program, const QStringList& arguments,
                      std::function<void(bool)> finished) {
    m_busy = true;
    runCommand(program, arguments, this, [this, finished = std::move(finished)](bool ok) {
        m_busy = false;
        finished(ok);
    });
}

void TimerBanner::runCommand(const QString& program, const QStringList& arguments, QObject* context,
                             std::function<void(bool)> finished) {
    ChildProcessOptions options;
    options.program = program;
    options.arguments = arguments;
    options.environment = managerEnvironment();
    QString error;
    std::shared_ptr<ChildProcess> child(ChildProcess::start(options, &error));
    QPointer<QObject> owner(context);
    const auto done = [owner, finished = std::move(finished)](bool ok) {
        if (owner)
            finished(ok);
    };
    if (!child) {
        qCInfo(lcTimers).noquote() << program + " could not start: " + error;
        QMetaObject::invokeMethod(
            context, [done] { done(false); }, Qt::QueuedConnection);
        return;
    }
    ChildProcess::blockingPool()->start([child, done] {
        const ChildProcess::Exchange exchange =
            child->exchange({}, kOutputLimit, ChildProcess::Clock::now() + kCommandDeadline);
        const int status = child->wait();
        const bool ok = exchange.ending == ChildProcess::Exchange::Ending::Finished && WIFEXITED(status) &&
                        WEXITSTATUS(status) == 0;
        if (QCoreApplication* application = QCoreApplication::instance())
            QMetaObject::invokeMethod(
                application, [done, ok] { done(ok); }, Qt::QueuedConnection);
    });
}

void TimerBanner::probeUserManager(const Programs& programs, QObject* context,
                                   std::function<void(bool)> done) {
    if (programs.systemctl.isEmpty() || programs.systemdRun.isEmpty()) {
        QMetaObject::invokeMethod(
            context, [done] { done(false); }, Qt::QueuedConnection);
        return;
    }
    runCommand(programs.systemctl,
               {QStringLiteral("--user"), QStringLiteral("show"), QStringLiteral("--property=Version"),
                QStringLiteral("--value")},
               context, std::move(done));
}

void TimerBanner::setReachable(bool reachable) {
    if (m_reachable == reachable)
        return;
    m_reachable = reachable;
    emit userManagerReachableChanged();
}

void TimerBanner::showInApp() {
    if (!m_desired)
        return;
    const Request request = *std::exchange(m_desired, std::nullopt);
    m_inApp = false;
    QPointer<TimerBanner> self(this);
    DesktopNotification::send(request.title, request.body, this,
                              [self, title = request.title](bool delivered) {
                                  if (self)
                                      emit self->shownInApp(title, delivered);
                              });
}

} // namespace vell
