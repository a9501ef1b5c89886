#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <chrono>
#include <memory>
#include <mutex>
#include <sys/types.h>
#include <utility>

class QThreadPool;

namespace vell {

// How a child is started: exactly this program, these arguments and this environment.
struct ChildProcessOptions {
    QString program;
    QStringList arguments;
    // "NAME=value" entries; nothing else of ours reaches the child.
    QStringList environment;
    // Standard error goes to the null device unless the caller wants to read it.
    bool keepStandardError = false;
    // Without pipes, standard input and output are the null device too: a program that talks
    // to us some other way, or not at all.
    bool pipes = true;
    // Where the child starts; empty keeps ours.
    QString workingDirectory = {};
    // The child leads a process group of its own, and signals reach the whole group, so that
    // what it forks goes with it when it is stopped.
    bool ownProcessGroup = false;
};

// One child process and the host's ends of its pipes. The child gets its standard input and
// output on two new pipes, standard error on the null device (or a third pipe), no other
// descriptor of ours whatever its close-on-exec flag, and default signal dispositions.
//
// Signals reach the child through its process descriptor, so they can never hit a recycled
// process id; signal() and running() may come from any thread. Everything else belongs to
// one thread at a time. A child still running when its object goes is killed, and reaped
// off the calling thread.
class ChildProcess final {
public:
    using Clock = std::chrono::steady_clock;

    // How an exchange() ended.
    struct Exchange {
        enum class Ending {
            Finished,   // the child closed its output and exited
            TimedOut,   // the deadline came while the child still ran; it was killed
            Overflowed, // the output passed its limit; the child was killed
            ReadFailed, // reading failed; the child was killed
        };
        Ending ending = Ending::Finished;
        QByteArray output;
        int readError = 0; // errno, for ReadFailed
    };

    ~ChildProcess();
    Q_DISABLE_COPY_MOVE(ChildProcess)

    // The started child, or nothing with the reason in error. Never blocks for the child.
    static std::unique_ptr<ChildProcess> start(const ChildProcessOptions& options, QString* error = nullptr);

    pid_t pid() const { return m_pid; }
    int inputDescriptor() const { return m_input; }
    int outputDescriptor() const { return m_output; }
    int errorDescriptor() const { return m_error; }
    // Hands the write end of the child's input, or the read end of its output, to the caller,
    // who closes it from then on.
    int takeInputDescriptor() { return std::exchange(m_input, -1); }
    int takeOutputDescriptor() { return std::exchange(m_output, -1); }
    // Readable once the child has exited; -1 where the kernel has no process descriptors.
    // It stays the child's: duplicate it to keep it.
    int exitDescriptor() const { return m_processFd; }

    bool running() const;
    void signal(int signal) const;

    // Writes input and reads the output at once, so that neither side blocks the other on a
    // full pipe, until the output ends and the child has exited. At the deadline a child
    // that still runs is killed; one that has exited is drained first, so an answer written
    // just before its end is kept. More than maximumOutputBytes kills the child at once.
    // Blocking: for a worker thread.
    Exchange exchange(const QByteArray& input, qsizetype maximumOutputBytes, Clock::time_point deadline);

    // Blocks until the child has exited, reaps it, and answers its wait status.
    int wait();

    // For work that blocks on a child: a run waiting for its answer, a wait for an exit. Its
    // own pool, since the global one is sized to the processor count and a handful of such
    // waits would starve it.
    static QThreadPool* blockingPool();

    // SIGTERM now and SIGKILL after grace if it still runs; waits for nothing itself.
    static void terminate(std::unique_ptr<ChildProcess> child, std::chrono::milliseconds grace);

private:
    ChildProcess() = default;
    bool exitedWithin(int milliseconds) const;
    void closeInput();
    void closeOutput();

    pid_t m_pid = 0;
    int m_processFd = -1;
    int m_input = -1;
    int m_output = -1;
    int m_error = -1;
    // Guards the reaping against a signal sent from another thread, where the kernel has no
    // process descriptor to offer.
    mutable std::mutex m_lock;
    bool m_reaped = false;
    bool m_group = false;
};

} // namespace vell
