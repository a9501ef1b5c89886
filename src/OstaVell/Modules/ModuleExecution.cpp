#include "OstaVell/Modules/ModuleExecution.h"

#include "VellPluginSDK/ModulePackage.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/ModuleResponse.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QMetaObject>
#include <QPointer>
#include <QThreadPool>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vell {

namespace {

const QString tooLargeMessage = QStringLiteral("Module request is too large.");
const QString cannotStartMessage =
    QStringLiteral("Module runner could not start. Reinstall the packaged OstaVell app.");
const QString outputLimitMessage = QStringLiteral("Module output exceeded its limit.");
const QString timedOutMessage =
    QStringLiteral("Module took too long and was stopped. Previous state was kept.");
const QString stoppedMessage = QStringLiteral("Module stopped unexpectedly. Previous state was kept.");
const QString unreadableMessage =
    QStringLiteral("Module returned an unreadable response. Previous state was kept.");
const QString noStateMessage = QStringLiteral("Module did not return state.");

// Its own pool: a run blocks its thread for up to the deadline, and the global pool is sized
// to the processor count, which a handful of runs would starve.
QThreadPool* runPool() {
    static QThreadPool* pool = [] {
        auto* created = new QThreadPool;
        created->setMaxThreadCount(16);
        return created;
    }();
    return pool;
}

void closeQuietly(int& fd) {
    if (fd >= 0)
        close(fd);
    fd = -1;
}

// Descriptors of one run, closed on every path out of it.
struct RunDescriptors {
    int inputRead = -1;
    int inputWrite = -1;
    int outputRead = -1;
    int outputWrite = -1;
    int processFd = -1;

    ~RunDescriptors() {
        closeQuietly(inputRead);
        closeQuietly(inputWrite);
        closeQuietly(outputRead);
        closeQuietly(outputWrite);
        closeQuietly(processFd);
    }
};

// A write into a pipe whose reader has gone raises SIGPIPE for the writing thread, which
// would end the whole application. Blocked for the run's thread only, and any such signal
// left pending is taken before the mask is restored.
class BrokenPipeGuard final {
public:
    BrokenPipeGuard() {
        sigset_t pipeOnly;
        sigemptyset(&pipeOnly);
        sigaddset(&pipeOnly, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipeOnly, &m_previous);
    }
    ~BrokenPipeGuard() {
        sigset_t pipeOnly;
        sigemptyset(&pipeOnly);
        sigaddset(&pipeOnly, SIGPIPE);
        const timespec immediately{0, 0};
        while (sigtimedwait(&pipeOnly, nullptr, &immediately) == SIGPIPE) {
        }
        pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
    }
    Q_DISABLE_COPY_MOVE(BrokenPipeGuard)

private:
    sigset_t m_previous;
};

bool stillRunning(pid_t process) {
    siginfo_t info{};
    if (waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT) != 0)
        return false;
    return info.si_pid == 0;
}

int spawnRunner(const QByteArray& executable, RunDescriptors& fds, pid_t* process) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds.inputRead, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fds.outputWrite, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    // No descriptor of the application reaches the runner, whatever its close-on-exec flag.
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);

    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    // Ignored dispositions survive exec; the runner starts with the defaults, so that its
    // limits' signals end it.
    sigset_t defaults;
    sigemptyset(&defaults);
    for (const int signal :
         {SIGPIPE, SIGXCPU, SIGXFSZ, SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGCHLD, SIGALRM, SIGUSR1, SIGUSR2})
        sigaddset(&defaults, signal);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    char* const arguments[] = {const_cast<char*>(executable.constData()), nullptr};
    char* const environment[] = {const_cast<char*>("PATH=/usr/bin:/bin"), nullptr};
    const int rc =
        posix_spawn(process, executable.constData(), &actions, &attributes, arguments, environment);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return rc;
}

} // namespace

ModuleExecution::ModuleExecution(QString executable, double timeout)
    : m_executable(std::move(executable))
    , m_timeout(timeout) {}

ModuleExecution::~ModuleExecution() = default;

QString ModuleExecution::defaultRunnerPath() {
    return QDir::cleanPath(QCoreApplication::applicationDirPath() +
                           QStringLiteral("/../libexec/ostavell/VellModuleRunner"));
}

void ModuleExecution::run(const ModuleRequest& request, QObject* context,
                          std::function<void(const ModuleRunResult&)> done) {
    QPointer<QObject> owner(context);
    std::shared_ptr<ModuleExecution> self = shared_from_this();
    runPool()->start([self, request, owner, done = std::move(done)] {
        const ModuleRunResult result = self->runBlocking(request);
        QCoreApplication* application = QCoreApplication::instance();
        if (!application)
            return;
        QMetaObject::invokeMethod(
            application,
            [owner, done, result] {
                if (owner)
                    done(result);
            },
            Qt::QueuedConnection);
    });
}

void ModuleExecution::cancel() {
    std::lock_guard guard(m_lock);
    m_cancelled = true;
    killLocked();
}

void ModuleExecution::killLocked() {
    if (m_process > 0)
        kill(m_process, SIGKILL);
}

ModuleRunResult ModuleExecution::runBlocking(const ModuleRequest& request) {
    const QByteArray input = request.encoded();
    if (input.size() > maximumRequestBytes)
        return ModuleRunResult::failed(tooLargeMessage);

    RunDescriptors fds;
    int inputPipe[2];
    int outputPipe[2];
    if (pipe2(inputPipe, O_CLOEXEC) != 0)
        return ModuleRunResult::failed(cannotStartMessage);
    fds.inputRead = inputPipe[0];
    fds.inputWrite = inputPipe[1];
    if (pipe2(outputPipe, O_CLOEXEC) != 0)
        return ModuleRunResult::failed(cannotStartMessage);
    fds.outputRead = outputPipe[0];
    fds.outputWrite = outputPipe[1];

    BrokenPipeGuard brokenPipeGuard;
    const QByteArray executable = QFile::encodeName(m_executable);
    pid_t process = 0;
    {
        std::lock_guard guard(m_lock);
        if (m_cancelled)
            return ModuleRunResult::cancelled();
        if (spawnRunner(executable, fds, &process) != 0)
            return ModuleRunResult::failed(cannotStartMessage);
        m_process = process;
    }
    closeQuietly(fds.inputRead);
    closeQuietly(fds.outputWrite);
    fcntl(fds.inputWrite, F_SETFL, O_NONBLOCK);
    fds.processFd = static_cast<int>(syscall(SYS_pidfd_open, process, 0));

    // One thread multiplexes writing, reading, the child's exit and the deadline: writing and
    // reading at once so that neither side blocks the other on a full pipe, and no second
    // thread that a busy pool could hold back past the deadline.
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(m_timeout));
    QByteArray output;
    qsizetype written = 0;
    bool exited = false;
    bool overflowed = false;
    int readError = 0;
    if (input.isEmpty())
        closeQuietly(fds.inputWrite);

    while (fds.outputRead >= 0 || !exited) {
        pollfd watched[3];
        nfds_t count = 0;
        int outputSlot = -1;
        int inputSlot = -1;
        int processSlot = -1;
        if (fds.outputRead >= 0) {
            outputSlot = static_cast<int>(count);
            watched[count++] = {fds.outputRead, POLLIN, 0};
        }
        if (fds.inputWrite >= 0) {
            inputSlot = static_cast<int>(count);
            watched[count++] = {fds.inputWrite, POLLOUT, 0};
        }
        if (!exited && fds.processFd >= 0) {
            processSlot = static_cast<int>(count);
            watched[count++] = {fds.processFd, POLLIN, 0};
        }
        const auto remaining = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        const int ready =
            remaining > 0 ? poll(watched, count, static_cast<int>(std::min<long long>(remaining, 1000))) : 0;
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready == 0 && Clock::now() >= deadline) {
            std::lock_guard guard(m_lock);
            if (stillRunning(process)) {
                m_timedOut = true;
                killLocked();
            }
            // Whatever still holds the output open past the deadline is not waited for.
            break;
        }
        if (ready <= 0) {
            if (fds.processFd < 0)
                exited = !stillRunning(process);
            continue;
        }

        if (inputSlot >= 0 && watched[inputSlot].revents != 0) {
            const ssize_t sent = write(fds.inputWrite, input.constData() + written, input.size() - written);
            if (sent > 0)
                written += sent;
            // A runner that stops reading early fails nothing by that alone.
            if ((sent < 0 && errno != EAGAIN && errno != EINTR) || written == input.size())
                closeQuietly(fds.inputWrite);
        }

        if (outputSlot >= 0 && watched[outputSlot].revents != 0) {
            char chunk[readSize];
            const ssize_t received = read(fds.outputRead, chunk, sizeof chunk);
            if (received == 0) {
                closeQuietly(fds.outputRead);
                closeQuietly(fds.inputWrite);
            } else if (received < 0 && errno != EINTR && errno != EAGAIN) {
                readError = errno;
                std::lock_guard guard(m_lock);
                killLocked();
                break;
            } else if (received > 0) {
                output.append(chunk, received);
                if (output.size() > maximumOutputBytes) {
                    std::lock_guard guard(m_lock);
                    m_cancelled = true;
                    killLocked();
                    overflowed = true;
                    break;
                }
            }
        }

        if (processSlot >= 0 && watched[processSlot].revents != 0)
            exited = true;
    }

    // Reap: first wait without reaping, so that the id stays reserved while cancel() might
    // still signal it, then reap under the lock and forget the id in the same step.
    siginfo_t info{};
    while (waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    bool cancelled = false;
    bool timedOut = false;
    int status = 0;
    {
        std::lock_guard guard(m_lock);
        cancelled = m_cancelled;
        timedOut = m_timedOut;
        while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
        }
        m_process = 0;
    }

    if (overflowed)
        return ModuleRunResult::failed(outputLimitMessage);
    if (readError != 0)
        return ModuleRunResult::failed(QString::fromLocal8Bit(std::strerror(readError)));
    if (cancelled)
        return ModuleRunResult::cancelled();
    if (timedOut)
        return ModuleRunResult::failed(timedOutMessage);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return ModuleRunResult::failed(stoppedMessage);

    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(output, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject())
        return ModuleRunResult::failed(unreadableMessage);
    ModuleResponse response;
    try {
        response = ModuleResponse::fromJson(document.object());
    } catch (const ModuleProblem&) {
        return ModuleRunResult::failed(unreadableMessage);
    }
    if (response.error)
        return ModuleRunResult::failed(*response.error);
    if (!response.state)
        return ModuleRunResult::failed(noStateMessage);
    try {
        ModulePackage::validateState(*response.state);
    } catch (const ModuleProblem& problem) {
        return ModuleRunResult::failed(problem.message());
    }
    return ModuleRunResult::succeeded(*response.state);
}

} // namespace vell
