#pragma once

#include <QDeadlineTimer>
#include <QHash>
#include <QList>
#include <QSet>

#include <optional>

namespace vell {

// What each plugin process costs: CPU time over the last minute and resident memory, read
// from /proc. It has no timer of its own: the owner samples when it looks anyway, so that
// nothing wakes up for this alone.
class PluginResourceUsage final {
public:
    static constexpr qint64 windowMilliseconds = 60000;

    // Takes one reading of the process; a process that is gone is forgotten.
    void sample(qint64 pid);
    // Forgets every process not in this set.
    void retain(const QSet<qint64>& pids);

    // CPU seconds spent between the oldest reading of the last minute and the newest.
    std::optional<double> cpuSecondsLastMinute(qint64 pid) const;
    std::optional<qint64> residentBytes(qint64 pid) const;

private:
    struct Reading {
        qint64 at = 0; // milliseconds on the monotonic clock
        double cpuSeconds = 0;
        qint64 residentBytes = 0;
    };
    static std::optional<Reading> read(qint64 pid);

    QHash<qint64, QList<Reading>> m_readings;
};

} // namespace vell
