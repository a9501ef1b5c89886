#include "OstaVell/Modules/Plugins/PluginResourceUsage.h"

#include <QByteArray>
#include <QFile>
#include <QList>

#include <unistd.h>

namespace vell {

namespace {

// Both files are a single short line; a read this size holds it whole.
constexpr qint64 procfsReadLimit = 4096;

struct Counters {
    quint64 cpuTicks = 0;
    quint64 startTicks = 0;
    qint64 residentBytes = 0;
};

std::optional<QByteArray> readProcfs(pid_t pid, const char* name) {
    QFile file(QStringLiteral("/proc/%1/%2").arg(pid).arg(QLatin1String(name)));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return std::nullopt;
    QByteArray text = file.read(procfsReadLimit);
    if (text.isEmpty())
        return std::nullopt;
    return text;
}

std::optional<Counters> readCounters(pid_t pid) {
    if (pid <= 0)
        return std::nullopt;
    const std::optional<QByteArray> stat = readProcfs(pid, "stat");
    const std::optional<QByteArray> statm = readProcfs(pid, "statm");
    if (!stat || !statm)
        return std::nullopt;
    // The command name, field 2, is in parentheses and may hold spaces and parentheses of its
    // own: the fields are counted from the last ")". After it come the state (field 3), and
    // utime, stime and starttime are fields 14, 15 and 22.
    const qsizetype nameEnd = stat->lastIndexOf(')');
    if (nameEnd < 0)
        return std::nullopt;
    const QList<QByteArray> fields = stat->mid(nameEnd + 2).trimmed().split(' ');
    if (fields.size() < 20 || fields[0] == "Z" || fields[0] == "X")
        return std::nullopt;
    bool userRead = false, systemRead = false, startRead = false, residentRead = false;
    Counters counters;
    counters.cpuTicks = fields[11].toULongLong(&userRead) + fields[12].toULongLong(&systemRead);
    counters.startTicks = fields[19].toULongLong(&startRead);
    // statm: size, resident, shared... in pages.
    counters.residentBytes = statm->split(' ').value(1).toLongLong(&residentRead) * sysconf(_SC_PAGESIZE);
    if (!userRead || !systemRead || !startRead || !residentRead)
        return std::nullopt;
    return counters;
}

} // namespace

bool PluginResourceUsage::sample(pid_t pid, Clock::time_point at) {
    const std::optional<Counters> counters = readCounters(pid);
    if (!counters) {
        m_processes.remove(pid);
        return false;
    }
    Process& process = m_processes[pid];
    if (process.startTicks != counters->startTicks) {
        process.startTicks = counters->startTicks;
        process.samples.clear();
    }
    process.samples.push_back({at, counters->cpuTicks, counters->residentBytes});
    while (process.samples.front().at < at - window)
        process.samples.pop_front();
    return true;
}

std::optional<double> PluginResourceUsage::cpuSecondsLastMinute(pid_t pid) const {
    const auto found = m_processes.constFind(pid);
    if (found == m_processes.cend())
        return std::nullopt;
    const std::deque<Sample>& samples = found->samples;
    // Counters only grow; a difference below zero can't come from one process.
    const quint64 ticks =
        samples.back().cpuTicks - std::min(samples.front().cpuTicks, samples.back().cpuTicks);
    return double(ticks) / double(sysconf(_SC_CLK_TCK));
}

std::optional<qint64> PluginResourceUsage::residentBytes(pid_t pid) const {
    const auto found = m_processes.constFind(pid);
    if (found == m_processes.cend())
        return std::nullopt;
    return found->samples.back().residentBytes;
}

void PluginResourceUsage::forget(pid_t pid) {
    m_processes.remove(pid);
}

} // namespace vell
