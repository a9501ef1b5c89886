#pragma once

// The promise that nothing acknowledged is lost, put under SIGKILL. The test binary runs itself
// again as the app: a child that makes a fixed sequence of changes to a store on a temporary
// folder and acknowledges each once it has returned. The parent kills the child at random
// moments and, after each kill, loads the store afresh as the next launch would.

#include <QCoreApplication>
#include <QProcess>
#include <QRandomGenerator>
#include <QStringList>
#include <QTest>

#include <csignal>
#include <cstdio>
#include <functional>
#include <unistd.h>

namespace vell::test {

// The child's side: change `change` of the sequence has returned.
inline void acknowledge(int change) {
    char line[32];
    const int length = std::snprintf(line, sizeof line, "ack %d\n", change);
    // Straight to the descriptor: a buffered line would die with the process.
    [[maybe_unused]] const ssize_t written = ::write(STDOUT_FILENO, line, size_t(length));
}

struct KillLoopResult {
    int kills = 0;
    int held = 0;
    QString failure; // empty when every look after a kill found what it had to
};

inline void readAcknowledgements(QByteArray& pending, int& acknowledged) {
    qsizetype end;
    while ((end = pending.indexOf('\n')) >= 0) {
        const QByteArray line = pending.left(end);
        pending.remove(0, end + 1);
        if (line.startsWith("ack "))
            acknowledged = line.mid(4).toInt() + 1;
    }
}

// Starts `<this binary> childArguments... <from>` again and again until `total` changes are
// held. `held` loads the store from its folder, checks that it holds exactly the first N changes
// of the sequence and returns N, or -1 when what it found is no such prefix. After a kill N must
// be at least the number acknowledged and at most one more: a change that was on its way to disk
// may have landed without its acknowledgement.
inline KillLoopResult runKillLoop(const QStringList& childArguments, int total,
                                  const std::function<int()>& held) {
    KillLoopResult result;
    QRandomGenerator* random = QRandomGenerator::global();
    while (result.held < total) {
        QProcess app;
        app.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        app.start(QCoreApplication::applicationFilePath(),
                  QStringList(childArguments) << QString::number(result.held));
        if (!app.waitForStarted()) {
            result.failure = QStringLiteral("the child did not start");
            return result;
        }
        // Often enough (about a hundred kills in 500 changes) that a write which isn't atomic is
        // caught in a run.
        const int killAfter = random->bounded(1, 12);
        int acknowledged = result.held;
        QByteArray pending;
        while (acknowledged - result.held < killAfter && acknowledged < total &&
               app.state() == QProcess::Running) {
            if (!app.waitForReadyRead(30000) && app.state() == QProcess::Running) {
                result.failure = QStringLiteral("the child went silent");
                app.kill();
                app.waitForFinished();
                return result;
            }
            pending += app.readAllStandardOutput();
            readAcknowledgements(pending, acknowledged);
        }
        // Not a wait for anything: this picks the kill's moment within the next change, so that
        // the kills of a run spread over the whole change and some land inside a write.
        ::usleep(useconds_t(random->bounded(0, 800)));
        if (const qint64 pid = app.processId(); pid > 0 && app.state() == QProcess::Running) {
            ::kill(pid_t(pid), SIGKILL);
            ++result.kills;
            app.waitForFinished();
        } else if (app.exitStatus() != QProcess::NormalExit || app.exitCode() != 0) {
            result.failure = QStringLiteral("the child stopped by itself: %1").arg(app.exitCode());
            return result;
        }
        // What the child acknowledged before it died, read or not: a fast store gets several
        // changes done between our last read and the kill.
        pending += app.readAllStandardOutput();
        readAcknowledgements(pending, acknowledged);
        const int found = held();
        if (found < acknowledged || found > acknowledged + 1) {
            result.failure = QStringLiteral("after a kill with %1 changes acknowledged the store held %2")
                                 .arg(acknowledged)
                                 .arg(found);
            return result;
        }
        result.held = found;
    }
    return result;
}

} // namespace vell::test
