#include "VellHost/ChildProcess.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace vell;
using namespace Qt::StringLiterals;
using Ending = ChildProcess::Exchange::Ending;

Q_DECLARE_METATYPE(Ending)

namespace {

const QStringList path{u"PATH=/usr/bin:/bin"_s};
// Open in the test without close-on-exec: the helper must keep it from every child.
const int leaky = open("/dev/null", O_RDONLY);

QStringList shell(const QString& script) {
    return {u"/bin/sh"_s, u"-c"_s, script};
}

} // namespace

class tst_ChildProcess final : public QObject {
    Q_OBJECT

private slots:
    void exchange_data() {
        QTest::addColumn<QStringList>("command");
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<int>("limit");
        // From the exchange's start. Negative: the child has exited and the deadline is past.
        QTest::addColumn<int>("deadlineMs");
        QTest::addColumn<Ending>("ending");
        QTest::addColumn<QByteArray>("output"); // for Overflowed, only its size is looked at
        QTest::addColumn<int>("killedBy");      // 0: exited with status 0; -1: either way

        QVERIFY(leaky > STDERR_FILENO);
        const QByteArray large = QByteArray("0123456789abcdef").repeated(65536);
        QTest::addRow("answer written just before the deadline is kept")
            << shell(u"printf answer"_s) << QByteArray() << 64 << -1000 << Ending::Finished
            << QByteArray("answer") << 0;
        QTest::addRow("input and output at once, each past a full pipe")
            << QStringList{u"/bin/cat"_s} << large << 2 * int(large.size()) << 30000 << Ending::Finished
            << large << 0;
        QTest::addRow("a flood is killed as it passes the limit")
            << QStringList{u"/bin/cat"_s, u"/dev/zero"_s} << QByteArray() << 4096 << 30000
            << Ending::Overflowed << QByteArray() << SIGKILL;
        QTest::addRow("still running at the deadline is killed")
            << shell(u"exec sleep 60"_s) << QByteArray() << 64 << 300 << Ending::TimedOut << QByteArray()
            << SIGKILL;
        QTest::addRow("no descriptor beyond the standard three")
            << shell(u"for fd in 0 1 2 %1; do [ -e /proc/$$/fd/$fd ] && printf \"$fd \"; done; true"_s.arg(
                   leaky))
            << QByteArray() << 64 << 30000 << Ending::Finished << QByteArray("0 1 2 ") << 0;
    }

    void exchange() {
        QFETCH(QStringList, command);
        QFETCH(QByteArray, input);
        QFETCH(int, limit);
        QFETCH(int, deadlineMs);
        QFETCH(Ending, ending);
        QFETCH(QByteArray, output);
        QFETCH(int, killedBy);

        QString error;
        const std::unique_ptr<ChildProcess> child =
            ChildProcess::start({command.takeFirst(), command, path}, &error);
        QVERIFY2(child, qPrintable(error));
        if (deadlineMs < 0)
            QTRY_VERIFY_WITH_TIMEOUT(!child->running(), 30000);

        const ChildProcess::Exchange result =
            child->exchange(input, limit, ChildProcess::Clock::now() + std::chrono::milliseconds(deadlineMs));
        QCOMPARE(result.ending, ending);
        if (ending == Ending::Overflowed) {
            // Reading stops within one read of passing the limit.
            QVERIFY2(result.output.size() > limit && result.output.size() <= limit + 8192,
                     qPrintable(QString::number(result.output.size())));
        } else {
            QCOMPARE(result.output, output);
        }

        const int status = child->wait();
        if (killedBy == 0)
            QVERIFY(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        else if (killedBy > 0)
            QVERIFY(WIFSIGNALED(status) && WTERMSIG(status) == killedBy);
    }

    void terminateEscalatesToKillWithoutBlocking() {
        QTemporaryDir dir;
        // Notes SIGTERM and carries on, so only SIGKILL can end it.
        QStringList command = shell(
            u"trap 'touch %1/term' TERM; touch %1/ready; while :; do sleep 0.05; done"_s.arg(dir.path()));
        std::unique_ptr<ChildProcess> child = ChildProcess::start({command.takeFirst(), command, path});
        QVERIFY(child);
        const pid_t pid = child->pid();
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(dir.filePath(u"ready"_s)), 30000);

        ChildProcess::terminate(std::move(child), std::chrono::milliseconds(2000));
        // Back before the grace is over, with the child still there: nothing waited for it.
        QCOMPARE(kill(pid, 0), 0);
        QTRY_VERIFY_WITH_TIMEOUT(kill(pid, 0) != 0, 30000);
        // SIGTERM came first, and the child outlived it.
        QVERIFY(QFile::exists(dir.filePath(u"term"_s)));
    }

    // What a child of its own group forks, even something that ignores SIGTERM and outlives
    // its parent, is stopped with it; without a group of its own it would stay.
    void aGroupGoesWhole() {
        QTemporaryDir dir;
        QStringList command = shell(u"(trap '' TERM; while :; do sleep 0.05; done) & echo $! > %1/helper; "
                                    u"touch %1/ready; exec sleep 300"_s.arg(dir.path()));
        ChildProcessOptions options{command.takeFirst(), command, path};
        options.ownProcessGroup = true;
        std::unique_ptr<ChildProcess> child = ChildProcess::start(options);
        QVERIFY(child);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(dir.filePath(u"ready"_s)), 30000);
        QFile helperFile(dir.filePath(u"helper"_s));
        QVERIFY(helperFile.open(QIODevice::ReadOnly));
        const pid_t helper = pid_t(helperFile.readAll().trimmed().toInt());
        QVERIFY(helper > 0 && kill(helper, 0) == 0);

        ChildProcess::terminate(std::move(child), std::chrono::milliseconds(2000));
        // The helper is a child of the shell, reparented when the shell goes; gone means killed
        // and reaped by whoever adopted it, or a zombie of ours at worst.
        QTRY_VERIFY_WITH_TIMEOUT(kill(helper, 0) != 0 || isZombie(helper), 30000);
    }

private:
    static bool isZombie(pid_t pid) {
        QFile stat(u"/proc/%1/stat"_s.arg(pid));
        if (!stat.open(QIODevice::ReadOnly))
            return false;
        const QByteArray text = stat.readAll();
        return text.mid(text.lastIndexOf(')') + 2, 1) == "Z";
    }
};

QTEST_GUILESS_MAIN(tst_ChildProcess)
#include "tst_ChildProcess.moc"
