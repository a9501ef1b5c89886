#include "OstaVell/Modules/Plugins/PluginResourceUsage.h"

#include <QElapsedTimer>
#include <QFile>

#include <unistd.h>

namespace vell {

namespace {
// /proc files are small; this bounds a read of them.
constexpr qint64 maximumProcBytes = 4096;

QByteArray readProc(qint64 pid, const char* name) {
    QFile file(QStringLiteral("/proc/%1/%2").arg(pid).arg(QLatin1String(name)));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.read(maximumProcBytes);
}

qint64 monotonicMilliseconds() {
    QElapsedTimer clock;
    clock.start();
    return clock.msecsSinceReference();
}
} // namespace

std::optional<PluginResourceUsage::Reading> PluginResourceUsage::read(qint64 pid) {
    const QByteArray stat = readProc(pid, "stat");
    const QByteArray statm = readProc(pid, "statm");
    // The command name in parentheses may hold spaces: the fields are counted after its end.
    const qsizetype nameEnd = stat.lastIndexOf(')');
    if (nameEnd < 0 || statm.isEmpty())
        return std::nullopt;
    const QList<QByteArray> fields = stat.mid(nameEnd + 2).split(' ');
    const QList<QByteArray> pages = statm.split(' ');
    // utime and stime are fields 14 and 15 of the line, 12 and 13 after the name and state.
    if (fields.size() < 13 || pages.size() < 2)
        return std::nullopt;
    const double ticks = double(sysconf(_SC_CLK_TCK));
    Reading reading;
    reading.at = monotonicMilliseconds();
    reading.cpuSeconds = (fields.at(11).toDouble() + fields.at(12).toDouble()) / ticks;
    reading.residentBytes = pages.at(1).toLongLong() * sysconf(_SC_PAGESIZE);
    return reading;
}

void PluginResourceUsage::sample(qint64 pid) {
    const std::optional<Reading> reading = read(pid);
    if (!reading) {
        m_readings.remove(pid);
        return;
    }
    QList<Reading>& readings = m_readings[pid];
    readings.append(*reading);
    // Keep the newest reading older than the window as the baseline of the minute.
    while (readings.size() > 2 && reading->at - readings.at(1).at >= windowMilliseconds)
        readings.removeFirst();
}

void PluginResourceUsage::retain(const QSet<qint64>& pids) {
    m_readings.removeIf([&pids](const auto& entry) { return !pids.contains(entry.key()); });
}

std::optional<double> PluginResourceUsage::cpuSecondsLastMinute(qint64 pid) const {
    const auto found = m_readings.constFind(pid);
    if (found == m_readings.cend() || found->isEmpty())
        return std::nullopt;
    return found->constLast().cpuSeconds - found->constFirst().cpuSeconds;
}

std::optional<qint64> PluginResourceUsage::residentBytes(qint64 pid) const {
    const auto found = m_readings.constFind(pid);
    if (found == m_readings.cend() || found->isEmpty())
        return std::nullopt;
    return found->constLast().residentBytes;
}

} // namespace vell
