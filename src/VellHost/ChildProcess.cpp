#include "VellHost/ChildProcess.h"

#include "VellHost/FileDescriptor.h"

#include <QFile>
#include <QThreadPool>

#include <cerrno>
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

// A write into a pipe whose reader has gone raises SIGPIPE for the writing thread, which
// would end the whole application. Blocked for the exchanging thread only, and any such
// signal left pending is taken before the mask is restored.
class BrokenPipeGuard final {
public:
    BrokenPipeGuard() {
        sigemptyset(&m_pipeOnly);
        sigaddset(&m_pipeOnly, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_pipeOnly, &m_previous);
    }
    ~BrokenPipeGuard() {
        const timespec immediately{0, 0};
        while (sigtimedwait(&m_pipeOnly, nullptr, &immediately) == SIGPIPE) {
        }
        pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
    }
    Q_DISABLE_COPY_MOVE(BrokenPipeGuard)

private:
    sigset_t m_pipeOnly;
    sigset_t m_previous;
};

struct SpawnFileActions {
    posix_spawn_file_actions_t actions;
    SpawnFileActions() { posix_spawn_file_actions_init(&actions); }
    ~SpawnFileActions() { posix_spawn_file_actions_destroy(&actions); }
    Q_DISABLE_COPY_MOVE(SpawnFileActions)
};

struct SpawnAttributes {
    posix_spawnattr_t attributes;
    SpawnAttributes() { posix_spawnattr_init(&attributes); }
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes); }
    Q_DISABLE_COPY_MOVE(SpawnAttributes)
};

// Descriptors of a start, closed unless handed over.
struct Pipes {
    int fds[6] = {-1, -1, -1, -1, -1, -1}; // input r/w, output r/w, error r/w
    ~Pipes() {
        for (int& fd : fds)
            closeQuietly(fd);
    }
    Q_DISABLE_COPY_MOVE(Pipes)
    Pipes() = default;
    int take(int index) {
        const int fd = fds[index];
        fds[index] = -1;
        return fd;
    }
};

} // namespace

QThreadPool* ChildProcess::blockingPool() {
    static QThreadPool* pool = [] {
        auto* created = new QThreadPool;
        created->setMaxThreadCount(16);
        return created;
    }();
    return pool;
}

std::unique_ptr<ChildProcess> ChildProcess::start(const ChildProcessOptions& options, QString* error) {
    const auto fail = [error](int code) {
        if (error)
            *error = QString::fromLocal8Bit(std::strerror(code));
        return nullptr;
    };
    Pipes pipes;
    if (options.pipes && (pipe2(pipes.fds, O_CLOEXEC) != 0 || pipe2(pipes.fds + 2, O_CLOEXEC) != 0))
        return fail(errno);
    if (options.keepStandardError && pipe2(pipes.fds + 4, O_CLOEXEC) != 0)
        return fail(errno);

    SpawnFileActions files;
    if (options.pipes) {
        posix_spawn_file_actions_adddup2(&files.actions, pipes.fds[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&files.actions, pipes.fds[3], STDOUT_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&files.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&files.actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    }
    if (options.keepStandardError)
        posix_spawn_file_actions_adddup2(&files.actions, pipes.fds[5], STDERR_FILENO);
    else
        posix_spawn_file_actions_addopen(&files.actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    // No descriptor of the application reaches the child, whatever its close-on-exec flag.
    posix_spawn_file_actions_addclosefrom_np(&files.actions, STDERR_FILENO + 1);
    const QByteArray workingDirectory = QFile::encodeName(options.workingDirectory);
    if (!workingDirectory.isEmpty())
        posix_spawn_file_actions_addchdir_np(&files.actions, workingDirectory.constData());

    SpawnAttributes spawn;
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&spawn.attributes, &none);
    // Ignored dispositions survive exec; the child starts with the defaults, so that the
    // signals of its own limits end it.
    sigset_t defaults;
    sigemptyset(&defaults);
    for (const int signal :
         {SIGPIPE, SIGXCPU, SIGXFSZ, SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGCHLD, SIGALRM, SIGUSR1, SIGUSR2})
        sigaddset(&defaults, signal);
    posix_spawnattr_setsigdefault(&spawn.attributes, &defaults);
    short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    if (options.ownProcessGroup) {
        posix_spawnattr_setpgroup(&spawn.attributes, 0);
        flags |= POSIX_SPAWN_SETPGROUP;
    }
    posix_spawnattr_setflags(&spawn.attributes, flags);

    const QByteArray program = QFile::encodeName(options.program);
    QList<QByteArray> argumentBytes{program};
    for (const QString& argument : options.arguments)
        argumentBytes.append(argument.toLocal8Bit());
    QList<QByteArray> environmentBytes;
    for (const QString& entry : options.environment)
        environmentBytes.append(entry.toLocal8Bit());
    std::vector<char*> arguments;
    for (QByteArray& argument : argumentBytes)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    std::vector<char*> environment;
    for (QByteArray& entry : environmentBytes)
        environment.push_back(entry.data());
    environment.push_back(nullptr);

    pid_t pid = 0;
    const int rc = posix_spawn(&pid, program.constData(), &files.actions, &spawn.attributes, arguments.data(),
                               environment.data());
    if (rc != 0)
        return fail(rc);

    std::unique_ptr<ChildProcess> child(new ChildProcess);
    child->m_pid = pid;
    child->m_group = options.ownProcessGroup;
    child->m_processFd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    child->m_input = pipes.take(1);
    child->m_output = pipes.take(2);
    if (options.keepStandardError)
        child->m_error = pipes.take(4);
    return child;
}

ChildProcess::~ChildProcess() {
    closeInput();
    closeOutput();
    closeQuietly(m_error);
    bool reaped = false;
    {
        std::lock_guard guard(m_lock);
        reaped = m_reaped;
    }
    if (!reaped) {
        signal(SIGKILL);
        // The kernel takes a moment to tear a process down; nobody waits for that here.
        const pid_t pid = m_pid;
        blockingPool()->start([pid] {
            while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
            }
        });
    }
    closeQuietly(m_processFd);
}

bool ChildProcess::running() const {
    std::lock_guard guard(m_lock);
    if (m_reaped)
        return false;
    siginfo_t info{};
    if (waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0)
        return false;
    return info.si_pid == 0;
}

void ChildProcess::signal(int signal) const {
    std::lock_guard guard(m_lock);
    if (m_reaped)
        return;
    // Not yet reaped, so the id, and the group named after it, are still this child's.
    if (m_group)
        ::kill(-m_pid, signal);
    else if (m_processFd >= 0)
        syscall(SYS_pidfd_send_signal, m_processFd, signal, nullptr, 0);
    else
        ::kill(m_pid, signal);
}

bool ChildProcess::exitedWithin(int milliseconds) const {
    if (m_processFd < 0)
        return !running();
    pollfd watched{m_processFd, POLLIN, 0};
    return poll(&watched, 1, milliseconds) > 0;
}

void ChildProcess::closeInput() {
    closeQuietly(m_input);
}

void ChildProcess::closeOutput() {
    closeQuietly(m_output);
}

ChildProcess::Exchange ChildProcess::exchange(const QByteArray& input, qsizetype maximumOutputBytes,
                                              Clock::time_point deadline) {
    BrokenPipeGuard brokenPipeGuard;
    Exchange result;
    qsizetype written = 0;
    bool exited = false;
    if (m_input >= 0)
        fcntl(m_input, F_SETFL, fcntl(m_input, F_GETFL) | O_NONBLOCK);
    if (input.isEmpty())
        closeInput();

    // Takes what the output holds right now, without waiting for more.
    const auto drain = [&] {
        fcntl(m_output, F_SETFL, fcntl(m_output, F_GETFL) | O_NONBLOCK);
        char chunk[8192];
        while (m_output >= 0 && result.output.size() <= maximumOutputBytes) {
            const ssize_t received = ::read(m_output, chunk, sizeof chunk);
            if (received > 0)
                result.output.append(chunk, received);
            else if (received < 0 && errno == EINTR)
                continue;
            else
                break;
        }
    };

    while (m_output >= 0 || !exited) {
        pollfd watched[3];
        nfds_t count = 0;
        int outputSlot = -1;
        int inputSlot = -1;
        int processSlot = -1;
        if (m_output >= 0) {
            outputSlot = static_cast<int>(count);
            watched[count++] = {m_output, POLLIN, 0};
        }
        if (m_input >= 0) {
            inputSlot = static_cast<int>(count);
            watched[count++] = {m_input, POLLOUT, 0};
        }
        if (!exited && m_processFd >= 0) {
            processSlot = static_cast<int>(count);
            watched[count++] = {m_processFd, POLLIN, 0};
        }
        const auto remaining = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        const int ready =
            remaining > 0 ? poll(watched, count, static_cast<int>(std::min<long long>(remaining, 1000))) : 0;
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready == 0 && Clock::now() >= deadline) {
            if (running()) {
                signal(SIGKILL);
                result.ending = Exchange::Ending::TimedOut;
            } else if (m_output >= 0) {
                // It ended right at the deadline: what it wrote before its end counts.
                drain();
                if (result.output.size() > maximumOutputBytes)
                    result.ending = Exchange::Ending::Overflowed;
            }
            // Whatever still holds the output open past the deadline is not waited for.
            break;
        }
        if (ready <= 0) {
            if (m_processFd < 0)
                exited = !running();
            continue;
        }

        if (inputSlot >= 0 && watched[inputSlot].revents != 0) {
            const ssize_t sent = ::write(m_input, input.constData() + written, input.size() - written);
            if (sent > 0)
                written += sent;
            // A child that stops reading early fails nothing by that alone.
            if ((sent < 0 && errno != EAGAIN && errno != EINTR) || written == input.size())
                closeInput();
        }

        if (outputSlot >= 0 && watched[outputSlot].revents != 0) {
            char chunk[8192];
            const ssize_t received = ::read(m_output, chunk, sizeof chunk);
            if (received == 0) {
                closeOutput();
                closeInput();
            } else if (received < 0 && errno != EINTR && errno != EAGAIN) {
                result.ending = Exchange::Ending::ReadFailed;
                result.readError = errno;
                signal(SIGKILL);
                break;
            } else if (received > 0) {
                result.output.append(chunk, received);
                if (result.output.size() > maximumOutputBytes) {
                    signal(SIGKILL);
                    result.ending = Exchange::Ending::Overflowed;
                    break;
                }
            }
        }

        if (processSlot >= 0 && watched[processSlot].revents != 0)
            exited = true;
    }
    closeInput();
    closeOutput();
    return result;
}

int ChildProcess::wait() {
    // First wait without reaping, so that the id stays reserved while another thread might
    // still signal it, then reap under the lock and forget the id in the same step.
    siginfo_t info{};
    while (waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    std::lock_guard guard(m_lock);
    int status = 0;
    if (!m_reaped) {
        while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
        }
        m_reaped = true;
    }
    return status;
}

void ChildProcess::terminate(std::unique_ptr<ChildProcess> child, std::chrono::milliseconds grace) {
    if (!child)
        return;
    child->signal(SIGTERM);
    std::shared_ptr<ChildProcess> held(std::move(child));
    blockingPool()->start([held, grace] {
        // A group is killed whatever its leader did: what it forked may outlive it. The leader
        // is reaped only afterwards, so the group's id can't have gone to anybody else.
        if (!held->exitedWithin(static_cast<int>(grace.count())) || held->m_group)
            held->signal(SIGKILL);
        held->wait();
    });
}

} // namespace vell
