#include <QProcess>
#include <QDir>
#include <QTest>

// Runs the built vellctl as an author would and checks what it prints and how it exits.
class TestVellctl final : public QObject {
    Q_OBJECT

private slots:
    void run_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("errors");
        const QString data = qEnvironmentVariable("VELL_TEST_DATA");
        // A usage error in a group lists that group's commands; without a group, every group's.
        const QString usage = QStringLiteral(
            "usage: vellctl module validate FILE\n"
            "usage: vellctl module run FILE [--state JSON] [--configuration JSON] [--action ID] "
            "[--event-feed ID --event-json TEXT]\n");
        const QString everyUsage = usage + QStringLiteral("usage: vellctl router replay SCRIPT [--directory DIR]\n");
        const auto validate = [](const QString& file) {
            return QStringList{QStringLiteral("module"), QStringLiteral("validate"), file};
        };

        QTest::addRow("valid package") << validate(data + QStringLiteral("/valid.ostavellmodule")) << 0
                                       << QStringLiteral("OK\n") << QString();
        // Every example that ships must stay valid.
        const QDir examples(qEnvironmentVariable("VELL_SOURCE_DIR") + QStringLiteral("/examples/modules"));
        const QStringList packages = examples.entryList({QStringLiteral("*.ostavellmodule")}, QDir::Files);
        QVERIFY(packages.size() >= 3);
        for (const QString& package : packages)
            QTest::addRow("example %s", qPrintable(package))
                << validate(examples.filePath(package)) << 0 << QStringLiteral("OK\n") << QString();
        QTest::addRow("validation failure")
            << validate(data + QStringLiteral("/undeclared-action.ostavellmodule")) << 1
            << QStringLiteral("A button refers to an undeclared action.\n") << QString();
        QTest::addRow("decoding failure")
            << validate(data + QStringLiteral("/missing-script.ostavellmodule")) << 1
            << QStringLiteral("This is not a valid OstaVell module package: \"script\" is missing\n")
            << QString();
        QTest::addRow("unreadable file")
            << validate(data + QStringLiteral("/absent.ostavellmodule")) << 1 << QString()
            << QStringLiteral("vellctl: %1/absent.ostavellmodule: No such file or directory\n").arg(data);
        QTest::addRow("no arguments") << QStringList() << 2 << QString() << everyUsage;
        QTest::addRow("unknown group")
            << QStringList{QStringLiteral("frobnicate")} << 2 << QString() << everyUsage;
        QTest::addRow("unknown subcommand")
            << QStringList{QStringLiteral("module"), QStringLiteral("check")} << 2 << QString() << usage;
        QTest::addRow("missing file argument")
            << QStringList{QStringLiteral("module"), QStringLiteral("validate")} << 2 << QString() << usage;
        QTest::addRow("extra argument")
            << validate(data + QStringLiteral("/valid.ostavellmodule")) + QStringList{QStringLiteral("x")}
            << 2 << QString() << usage;
    }

    void run() {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        QFETCH(QString, errors);

        QProcess vellctl;
        vellctl.start(qEnvironmentVariable("VELL_BUILD_DIR") + QStringLiteral("/bin/vellctl"), arguments);
        QVERIFY(vellctl.waitForFinished());
        QCOMPARE(vellctl.exitStatus(), QProcess::NormalExit);
        QCOMPARE(QString::fromUtf8(vellctl.readAllStandardOutput()), output);
        QCOMPARE(QString::fromUtf8(vellctl.readAllStandardError()), errors);
        QCOMPARE(vellctl.exitCode(), exitCode);
    }
};

QTEST_GUILESS_MAIN(TestVellctl)
#include "tst_vellctl.moc"
