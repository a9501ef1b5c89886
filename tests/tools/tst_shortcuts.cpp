#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

// Runs the built ostavell-shortcuts against a private shortcuts folder, as the app and exported
// scripts call it: what it lists, what a run passes through, and the names it refuses.
class TestShortcuts final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        QVERIFY(m_data.isValid());
        QVERIFY(QDir().mkpath(folder() + u"/a"_s));
        QVERIFY(QDir().mkpath(folder() + u"/Folder"_s));
        // Every file a name could wrongly reach leaves the marker behind when it runs.
        const QByteArray leaveMarker = "#!/bin/sh\ntouch \"$XDG_DATA_HOME/marker\"\n";
        write(u"Back up"_s, "#!/bin/sh\necho \"backed up $0\" | sed \"s|$XDG_DATA_HOME||\"\n", true);
        write(u"Fail"_s, "#!/bin/sh\necho failing\nexit 3\n", true);
        write(u"It's me"_s, "#!/bin/sh\necho $$\nread line\n", true);
        write(u"a/b"_s, leaveMarker, true);
        write(u".hidden"_s, leaveMarker, true);
        write(u"Plain"_s, leaveMarker, false);
        // Executable by its mode, but no program: the kernel refuses it, and no shell may take it.
        write(u"No interpreter"_s, "touch \"$XDG_DATA_HOME/marker\"\n", true);
    }

    void run_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("errors");
        const QString usage = u"usage: ostavell-shortcuts list\nusage: ostavell-shortcuts run NAME\n"_s;
        const auto run = [](const QString& name) { return QStringList{u"run"_s, name}; };
        const auto none = [](const QString& name) { return u"No shortcut named %1.\n"_s.arg(name); };

        // Sorted by code point; no folder, no hidden file, no file without the executable bit.
        QTest::addRow("list") << QStringList{u"list"_s} << 0 << u"Back up\nFail\nIt's me\nNo interpreter\n"_s
                              << QString();
        QTest::addRow("run: success")
            << run(u"Back up"_s) << 0 << u"backed up /OstaVell/Shortcuts/Back up\n"_s << QString();
        QTest::addRow("run: failure status") << run(u"Fail"_s) << 3 << u"failing\n"_s << QString();

        QTest::addRow("refused: empty")
            << run(QString()) << 2 << QString() << u"A shortcut needs a name.\n"_s;
        for (const char* name : {"a/b", "..", ".", ".hidden", "Missing", "Plain", "Folder", "a", "Back up/"})
            QTest::addRow("refused: %s", name)
                << run(QLatin1String(name)) << 2 << QString() << none(QLatin1String(name));
        QTest::addRow("refused: outside the folder")
            << run(u"../Shortcuts/Fail"_s) << 2 << QString() << none(u"../Shortcuts/Fail"_s);
        QTest::addRow("not a program")
            << run(u"No interpreter"_s) << 126 << QString()
            << u"The shortcut No interpreter could not start: Exec format error.\n"_s;

        QTest::addRow("usage: nothing") << QStringList() << 2 << QString() << usage;
        QTest::addRow("usage: run without a name") << QStringList{u"run"_s} << 2 << QString() << usage;
        QTest::addRow("usage: two names")
            << QStringList{u"run"_s, u"Fail"_s, u"Fail"_s} << 2 << QString() << usage;
        QTest::addRow("usage: list with a name")
            << QStringList{u"list"_s, u"Fail"_s} << 2 << QString() << usage;
        QTest::addRow("usage: unknown command") << QStringList{u"show"_s} << 2 << QString() << usage;
    }

    void run() {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        QFETCH(QString, errors);
        QFile::remove(marker());

        QProcess shortcuts;
        start(shortcuts, arguments);
        QVERIFY(shortcuts.waitForFinished(60000));
        QCOMPARE(shortcuts.exitStatus(), QProcess::NormalExit);
        QCOMPARE(QString::fromUtf8(shortcuts.readAllStandardOutput()), output);
        QCOMPARE(QString::fromUtf8(shortcuts.readAllStandardError()), errors);
        QCOMPARE(shortcuts.exitCode(), exitCode);
        QVERIFY(!QFile::exists(marker()));
    }

    // The runner becomes the shortcut: the process the caller started is the one it stops, and a
    // signal ends the shortcut itself rather than a runner that would leave it behind.
    void runBecomesTheShortcut() {
        QProcess shortcuts;
        start(shortcuts, {u"run"_s, u"It's me"_s});
        QVERIFY(shortcuts.waitForStarted(60000));
        QByteArray output;
        QTRY_VERIFY_WITH_TIMEOUT((output += shortcuts.readAllStandardOutput()).endsWith('\n'), 60000);
        QCOMPARE(output.trimmed().toLongLong(), shortcuts.processId());
        shortcuts.terminate();
        QVERIFY(shortcuts.waitForFinished(60000));
        QCOMPARE(shortcuts.exitStatus(), QProcess::CrashExit);
    }

    // Without a shortcuts folder there is nothing to list, and that is not an error.
    void listWithoutAFolder() {
        QTemporaryDir empty;
        QProcess shortcuts;
        start(shortcuts, {u"list"_s}, empty.path());
        QVERIFY(shortcuts.waitForFinished(60000));
        QCOMPARE(shortcuts.readAll(), QByteArray());
        QCOMPARE(shortcuts.exitCode(), 0);
    }

private:
    QString folder() const { return m_data.path() + u"/OstaVell/Shortcuts"_s; }
    QString marker() const { return m_data.path() + u"/marker"_s; }

    void write(const QString& name, const QByteArray& text, bool executable) {
        QFile file(folder() + u'/' + name);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(text), text.size());
        const QFile::Permissions readable = QFile::ReadOwner | QFile::WriteOwner;
        QVERIFY(file.setPermissions(executable ? readable | QFile::ExeOwner : readable));
    }

    void start(QProcess& process, const QStringList& arguments, const QString& dataHome = {}) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"XDG_DATA_HOME"_s, dataHome.isEmpty() ? m_data.path() : dataHome);
        process.setProcessEnvironment(environment);
        process.start(qEnvironmentVariable("VELL_BUILD_DIR") + u"/bin/ostavell-shortcuts"_s, arguments);
    }

    QTemporaryDir m_data;
};

QTEST_GUILESS_MAIN(TestShortcuts)
#include "tst_shortcuts.moc"
