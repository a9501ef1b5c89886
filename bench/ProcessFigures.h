#pragma once

// What the benches read about a running process from /proc: its memory, its CPU time and how
// often its threads woke.
#include <QDir>
#include <QFile>
#include <QString>
#include <QStringList>

namespace vell::bench {

inline qint64 residentKiB(qint64 pid) {
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    }
    return 0;
}

// User plus system time of a process, in clock ticks.
inline qint64 cpuTicks(qint64 pid) {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray text = stat.readAll();
    // Fields after the command name, which may itself hold spaces, start past the last ')'.
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    return fields.value(11).toLongLong() + fields.value(12).toLongLong();
}

// Context switches of every thread of a process: each is a wakeup, or a thread put aside.
inline qint64 contextSwitches(qint64 pid) {
    qint64 total = 0;
    const QStringList tasks =
        QDir(QStringLiteral("/proc/%1/task").arg(pid)).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& task : tasks) {
        QFile status(QStringLiteral("/proc/%1/task/%2/status").arg(pid).arg(task));
        if (!status.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray& line : status.readAll().split('\n'))
            if (line.startsWith("voluntary_ctxt_switches:") || line.startsWith("nonvoluntary_ctxt_switches:"))
                total += line.mid(line.indexOf(':') + 1).trimmed().toLongLong();
    }
    return total;
}

} // namespace vell::bench
