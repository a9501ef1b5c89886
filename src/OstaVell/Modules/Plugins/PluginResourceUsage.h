#pragma once

#include <QHash>
#include <QtGlobal>

#include <chrono>
#include <deque>
#include <optional>
#include <sys/types.h>

namespace vell {

// What plugin processes cost: CPU time over the last minute and resident memory, read from
// procfs. It keeps the samples its caller takes, per process, and has no timer of its own: the
// plugin store's health tick samples each running plugin and then asks. Answers are as of the
// last sample. A process that is gone, or whose pid has come to name another process, answers
// nothing.
class PluginResourceUsage final {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds window{60};

    // Reads pid's counters, as taken at the given time. False, and its samples dropped, when
    // the process is gone or has exited and waits to be reaped.
    bool sample(pid_t pid, Clock::time_point at = Clock::now());
    // User and system CPU seconds between the oldest sample within the window and the newest;
    // 0 with a single sample.
    std::optional<double> cpuSecondsLastMinute(pid_t pid) const;
    std::optional<qint64> residentBytes(pid_t pid) const;
    // Drops pid's samples, for a process its owner has stopped.
    void forget(pid_t pid);

private:
    struct Sample {
        Clock::time_point at;
        quint64 cpuTicks = 0;
        qint64 residentBytes = 0;
    };
    struct Process {
        // The process's start in clock ticks since boot: a pid whose start changes is another process.
        quint64 startTicks = 0;
        std::deque<Sample> samples; // oldest first, none older than the window before the newest
    };

    QHash<pid_t, Process> m_processes;
};

} // namespace vell
