// Plugin credentials against a real Secret Service: gnome-keyring-daemon, its keyring unlocked with a
// password, on a private session bus in temporary folders. secret-tool plays the other program:
// QtKeychain files a text secret under "server" (the service), "user" (the account) and "type"
// "plaintext", so those are the attributes it writes and searches.
#include "VellPluginSDK/Protocol/PluginCredentials.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <qt6keychain/keychain.h>

#include <optional>

#include "TestSupport.h"

using namespace vell;
using vell::test::problemOf;
using vell::test::row;

namespace {

const QString unavailable = "Plugin credential unavailable. Open Plugin Settings to reconnect.";
const QString overLimit = "Credential exceeds its limit.";
const QString couldNotSave = "Could not save the plugin credential.";
constexpr int deadlineMs = 30000;

// No service folders: nothing is started on demand behind the test's back, so a store that is gone
// stays gone.
const char busConfig[] =
    "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-BUS Bus Configuration 1.0//EN\"\n"
    " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
    "<busconfig><type>session</type><listen>unix:path=%1</listen><auth>EXTERNAL</auth>\n"
    "  <policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
    "    <allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n";

// secret-tool with these arguments and input; its output, or nothing when it failed.
std::optional<QByteArray> secretTool(const QStringList& arguments, const QByteArray& input = {}) {
    QProcess tool;
    tool.start("secret-tool", arguments);
    if (!tool.waitForStarted(deadlineMs))
        return std::nullopt;
    tool.write(input);
    tool.closeWriteChannel();
    if (!tool.waitForFinished(deadlineMs)) {
        tool.kill();
        tool.waitForFinished(deadlineMs);
        return std::nullopt;
    }
    if (tool.exitStatus() != QProcess::NormalExit || tool.exitCode() != 0)
        return std::nullopt;
    return tool.readAllStandardOutput();
}

QStringList attributes(const PluginCredentials& credentials, const QString& account) {
    return {"server", credentials.service(), "user", account};
}

std::optional<QByteArray> lookup(const PluginCredentials& credentials, const QString& account) {
    return secretTool(QStringList{"lookup"} + attributes(credentials, account));
}

void stop(QProcess& process) {
    if (process.state() == QProcess::NotRunning)
        return;
    process.terminate();
    if (!process.waitForFinished(deadlineMs)) {
        process.kill();
        process.waitForFinished(deadlineMs);
    }
}

} // namespace

class tst_PluginCredentials final : public QObject {
    Q_OBJECT

    QTemporaryDir m_root;
    QProcess m_bus;
    QProcess m_keyring;

    // The bus answers its address once it listens.
    QString startBus() {
        QFile config(m_root.filePath("bus.conf"));
        if (!config.open(QIODevice::WriteOnly))
            return {};
        config.write(QString::fromLatin1(busConfig).arg(m_root.filePath("XDG_RUNTIME_DIR/bus")).toUtf8());
        config.close();
        m_bus.start("dbus-daemon",
                    {"--config-file=" + config.fileName(), "--nofork", "--nopidfile", "--print-address=1"});
        const QDeadlineTimer deadline(deadlineMs);
        while (!m_bus.canReadLine() && m_bus.waitForReadyRead(int(deadline.remainingTime()))) {
        }
        return QString::fromUtf8(m_bus.readLine()).trimmed();
    }

    // The daemon unlocks (and on first use creates) the login keyring with the password on its
    // input; it is ready once it owns the Secret Service's name.
    QString startKeyring(const QString& address) {
        m_keyring.start("gnome-keyring-daemon", {"--foreground", "--unlock", "--components=secrets"});
        if (!m_keyring.waitForStarted(deadlineMs))
            return "gnome-keyring-daemon did not start: " + m_keyring.errorString();
        m_keyring.write("keyring password");
        m_keyring.closeWriteChannel();
        QDBusConnection probe = QDBusConnection::connectToBus(address, "probe");
        if (!probe.isConnected())
            return "The private session bus refused a connection: " + probe.lastError().message();
        const QDeadlineTimer deadline(deadlineMs);
        while (!probe.interface()->isServiceRegistered("org.freedesktop.secrets")) {
            if (m_keyring.state() == QProcess::NotRunning || deadline.hasExpired()) {
                return "gnome-keyring-daemon did not take the Secret Service's name: " +
                       QString::fromLocal8Bit(m_keyring.readAllStandardError());
            }
            m_keyring.waitForFinished(50); // a pause that also notices the daemon's end
        }
        QDBusConnection::disconnectFromBus("probe");
        return {};
    }

private slots:
    void initTestCase() {
        QVERIFY(m_root.isValid());
        // Each variable's folder is named after it.
        for (const char* name :
             {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"}) {
            QVERIFY(QDir(m_root.path()).mkdir(name));
            qputenv(name, QFile::encodeName(m_root.filePath(name)));
        }
        const QString runtime = m_root.filePath("XDG_RUNTIME_DIR");
        QVERIFY(QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        // A KDE session would steer QtKeychain to KWallet; the Secret Service is the one under test.
        for (const char* name : {"XDG_CURRENT_DESKTOP", "DESKTOP_SESSION", "KDE_FULL_SESSION"})
            qunsetenv(name);
        for (const char* program : {"dbus-daemon", "gnome-keyring-daemon", "secret-tool"}) {
            if (QStandardPaths::findExecutable(program).isEmpty())
                QSKIP(qPrintable(QStringLiteral("%1 is not installed (scripts/install-deps).").arg(program)));
        }
        const QString address = startBus();
        if (address.isEmpty())
            QSKIP("The private session bus did not start.");
        // Before anything of ours opens the bus: the keyring library connects once, to this one.
        qputenv("DBUS_SESSION_BUS_ADDRESS", address.toUtf8());
        const QString failure = startKeyring(address);
        if (!failure.isEmpty())
            QSKIP(qPrintable(failure));
    }

    void cleanupTestCase() {
        stop(m_keyring);
        stop(m_bus);
    }

    // The id's own rules are the plugin folder's, tested with it.
    void identity() {
        QCOMPARE(PluginCredentials("cafe.x").service(), "OstaVell.plugin.cafe.x");
        QCOMPARE(problemOf([] { PluginCredentials("../x"); }), "Invalid plugin storage identity.");
    }

    void saveLimit_data() {
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("message");
        row("8192 bytes", QString(8192, 'a'), QString());
        row("8192 bytes ending in a two-byte character", QString(8190, 'a') + QChar(0xE9), QString());
        row("8193 bytes", QString(8193, 'a'), overLimit);
        row("8191 characters in 8193 bytes", QString(8190, 'a') + QChar(0x20AC), overLimit);
        row("a NUL would cut the secret short", "ab" + QString(QChar(0)) + "cd", couldNotSave);
    }

    void saveLimit() {
        QFETCH(QString, value);
        QFETCH(QString, message);
        const PluginCredentials credentials("cafe.x");
        const QString account = QTest::currentDataTag();
        QCOMPARE(problemOf([&] { credentials.save(value, account); }), message);
        if (!message.isEmpty()) {
            QCOMPARE(lookup(credentials, account), std::nullopt); // refused before the store was asked
            QCOMPARE(problemOf([&] { credentials.read(account); }), unavailable);
            return;
        }
        QCOMPARE(lookup(credentials, account), value.toUtf8());
        QCOMPARE(credentials.read(account), value);
    }

    void saveTwiceOverwrites() {
        const PluginCredentials credentials("cafe.x");
        credentials.save("first", "twice");
        credentials.save("second", "twice");
        QCOMPARE(credentials.read("twice"), QString("second"));
        const auto found = secretTool(QStringList{"search", "--all"} + attributes(credentials, "twice"));
        QCOMPARE(("\n" + found.value_or(QByteArray())).count("\n[/"), 1); // one item in the store
    }

    void readsWhatAnotherProgramStored_data() {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QString>("read");
        QTest::addColumn<QString>("message");
        row("8192 bytes", QByteArray(8192, 'k'), QString(8192, 'k'), QString());
        row("a leading byte-order mark is part of it", QByteArray("\xEF\xBB\xBFkey"),
            QChar(0xFEFF) + QString("key"), QString());
        row("not UTF-8", QByteArray("a\xFF"), QString(), unavailable);
    }

    void readsWhatAnotherProgramStored() {
        QFETCH(QByteArray, stored);
        QFETCH(QString, message);
        const PluginCredentials credentials("cafe.x");
        const QString account = QStringLiteral("other: ") + QTest::currentDataTag();
        const QStringList store = QStringList{"store", "--label=t"} + attributes(credentials, account);
        QVERIFY(secretTool(store + QStringList{"type", "plaintext"}, stored));
        QString answer;
        QCOMPARE(problemOf([&] { answer = credentials.read(account); }), message);
        QTEST(answer, "read");
    }

    // secret-tool stores no more than 8192 bytes, so QtKeychain itself writes the larger item.
    void readRefusesAnOversizedItem() {
        const PluginCredentials credentials("cafe.x");
        auto* job = new QKeychain::WritePasswordJob(credentials.service());
        job->setKey("oversized");
        job->setTextData(QString(8193, 'k'));
        QSignalSpy finished(job, &QKeychain::Job::finished);
        job->start();
        QVERIFY(finished.wait(deadlineMs));
        QCOMPARE(lookup(credentials, "oversized")->size(), 8193);
        QCOMPARE(problemOf([&] { credentials.read("oversized"); }), unavailable);
    }

    void removeAndUnknownAccounts() {
        const PluginCredentials credentials("cafe.x");
        QCOMPARE(problemOf([&] { credentials.read("never saved"); }), unavailable);
        QCOMPARE(problemOf([&] { credentials.remove("never saved"); }), QString());
        credentials.save("token", "removed");
        QCOMPARE(problemOf([&] { credentials.remove("removed"); }), QString());
        QCOMPARE(lookup(credentials, "removed"), std::nullopt);
        QCOMPARE(problemOf([&] { credentials.read("removed"); }), unavailable);
    }

    void pluginsDontSeeEachOther() {
        const PluginCredentials mine("cafe.x"), theirs("cafe.xy");
        mine.save("mine", "shared name");
        QCOMPARE(problemOf([&] { theirs.read("shared name"); }), unavailable);
        theirs.remove("shared name");
        QCOMPARE(mine.read("shared name"), QString("mine"));
        theirs.save("theirs", "shared name");
        QCOMPARE(mine.read("shared name"), QString("mine"));
        QCOMPARE(theirs.read("shared name"), QString("theirs"));
    }

    // Last: it stops the store.
    void storeGone() {
        const PluginCredentials credentials("cafe.x");
        credentials.save("kept", "before");
        stop(m_keyring);
        QCOMPARE(problemOf([&] { credentials.read("before"); }), unavailable);
        QCOMPARE(problemOf([&] { credentials.save("new", "after"); }), couldNotSave);
        QCOMPARE(problemOf([&] { credentials.remove("before"); }), "Could not remove the plugin credential.");
    }
};

QTEST_GUILESS_MAIN(tst_PluginCredentials)
#include "tst_PluginCredentials.moc"
