// What real processes cost: one that spins, one that sleeps, and one that is gone.
#include "OstaVell/Modules/Plugins/PluginResourceUsage.h"
#include "VellHost/ChildProcess.h"

#include <QFile>
#include <QTest>

#include <csignal>
#include <memory>

using namespace vell;
using namespace std::chrono_literals;

namespace {

constexpr int patience = 30000;

std::unique_ptr<ChildProcess> start(const QString& program, const QStringList& arguments) {
    ChildProcessOptions options{program, arguments, {QStringLiteral("PATH=/usr/bin:/bin")}};
    options.pipes = false;
    return ChildProcess::start(options);
}

std::unique_ptr<ChildProcess> spinning() {
    return start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QStringLiteral("while :; do :; done")});
}

// Once the sleeping child has become sleep, it has no more work to do.
std::unique_ptr<ChildProcess> sleeping() {
    return start(QStringLiteral("/bin/sleep"), {QStringLiteral("600")});
}

// The state letter of /proc/<pid>/stat: 'T' once a stop signal has taken hold.
char stateOf(pid_t pid) {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray line = stat.readAll();
    const qsizetype nameEnd = line.lastIndexOf(')');
    return nameEnd >= 0 && nameEnd + 2 < line.size() ? line[nameEnd + 2] : 0;
}

QByteArray commandOf(pid_t pid) {
    QFile comm(QStringLiteral("/proc/%1/comm").arg(pid));
    return comm.open(QIODevice::ReadOnly) ? comm.readAll().trimmed() : QByteArray();
}

} // namespace

class tst_PluginResourceUsage final : public QObject {
    Q_OBJECT

private slots:
    void spinningGrowsSleepingStaysNearZero();
    void samplesLeaveTheWindowAfterAMinute();
    void aGoneProcessAnswersNothing();
};

void tst_PluginResourceUsage::spinningGrowsSleepingStaysNearZero() {
    const std::unique_ptr<ChildProcess> busy = spinning();
    const std::unique_ptr<ChildProcess> idle = sleeping();
    QVERIFY(busy && idle);
    QTRY_COMPARE_WITH_TIMEOUT(commandOf(idle->pid()), QByteArray("sleep"), patience);
    PluginResourceUsage usage;
    QVERIFY(usage.sample(busy->pid()));
    QVERIFY(usage.sample(idle->pid()));
    QCOMPARE(usage.cpuSecondsLastMinute(busy->pid()).value(), 0.0); // one sample measures nothing yet

    QTRY_VERIFY_WITH_TIMEOUT(usage.sample(busy->pid()) && usage.cpuSecondsLastMinute(busy->pid()) >= 0.2,
                             patience);
    QVERIFY(usage.sample(idle->pid()));
    const double busySeconds = usage.cpuSecondsLastMinute(busy->pid()).value();
    const double idleSeconds = usage.cpuSecondsLastMinute(idle->pid()).value();
    QVERIFY2(idleSeconds < 0.05 && idleSeconds < busySeconds, qPrintable(QString::number(idleSeconds)));
    QVERIFY(usage.residentBytes(busy->pid()) > 0);
    QVERIFY(usage.residentBytes(idle->pid()) > 0);
}

// The samples are stamped with made-up times, so that a minute passes at once; the process is
// stopped before them, so that its counters stand still and every answer is exact.
void tst_PluginResourceUsage::samplesLeaveTheWindowAfterAMinute() {
    const std::unique_ptr<ChildProcess> busy = spinning();
    QVERIFY(busy);
    const pid_t pid = busy->pid();
    PluginResourceUsage usage;
    PluginResourceUsage probe;
    const auto start = PluginResourceUsage::Clock::now();
    QVERIFY(usage.sample(pid, start));
    QVERIFY(probe.sample(pid));
    QTRY_VERIFY_WITH_TIMEOUT(probe.sample(pid) && probe.cpuSecondsLastMinute(pid) >= 0.2, patience);
    busy->signal(SIGSTOP);
    QTRY_COMPARE_WITH_TIMEOUT(stateOf(pid), 'T', patience);

    QVERIFY(usage.sample(pid, start + 20s));
    QVERIFY(usage.sample(pid, start + 30s));
    // Measured from the oldest sample in the window, not from the one before the newest.
    QVERIFY(usage.cpuSecondsLastMinute(pid).value() >= 0.2);
    // The first sample has left the window; the two left saw the same stopped counters.
    QVERIFY(usage.sample(pid, start + 75s));
    QCOMPARE(usage.cpuSecondsLastMinute(pid).value(), 0.0);
}

void tst_PluginResourceUsage::aGoneProcessAnswersNothing() {
    PluginResourceUsage usage;
    QVERIFY(!usage.cpuSecondsLastMinute(12345)); // never sampled
    std::unique_ptr<ChildProcess> child = sleeping();
    QVERIFY(child);
    const pid_t pid = child->pid();
    QVERIFY(usage.sample(pid));
    QVERIFY(usage.residentBytes(pid) > 0);

    child->signal(SIGKILL);
    QTRY_VERIFY_WITH_TIMEOUT(!child->running(), patience);
    QVERIFY(!usage.sample(pid)); // exited, whether or not it has been reaped yet
    QVERIFY(!usage.cpuSecondsLastMinute(pid));
    QVERIFY(!usage.residentBytes(pid));
    child->wait();
    QVERIFY(!usage.sample(pid));
    QVERIFY(!usage.residentBytes(pid));

    QVERIFY(!usage.sample(0));
    QVERIFY(!usage.sample(-1));
}

QTEST_GUILESS_MAIN(tst_PluginResourceUsage)
#include "tst_PluginResourceUsage.moc"
