#include "VellPluginSDK/Modules/ModulePackage.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace vell;

class tst_VellctlModuleRun final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void run_data();
    void run();

private:
    QString writePackage(const QString& name, const QString& script);

    QTemporaryDir m_dir;
};

QString tst_VellctlModuleRun::writePackage(const QString& name, const QString& script) {
    ModulePackage package;
    package.id = QStringLiteral("cafe.osta.") + name;
    package.name = name;
    package.version = QStringLiteral("1.0.0");
    package.author = QStringLiteral("Tests");
    package.permissions = {QStringLiteral("local.mqtt.read")};
    package.feeds = QList<ModuleFeed>{{QStringLiteral("sensor"), QStringLiteral("Sensor")}};
    package.initialState = {{QStringLiteral("count"), QStringLiteral("0")}};
    package.script = script;
    const QString path = m_dir.filePath(name + QStringLiteral(".ostavellmodule"));
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(package.encoded());
    return path;
}

void tst_VellctlModuleRun::initTestCase() {
    QVERIFY(m_dir.isValid());
}

void tst_VellctlModuleRun::run_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("output");
    QTest::addColumn<int>("status");

    const QString hello = qEnvironmentVariable("VELL_SOURCE_DIR") +
                          QStringLiteral("/examples/modules/hello-vell.ostavellmodule");
    const QString echo = writePackage(
        QStringLiteral("echo"),
        QStringLiteral(
            "function run(r) { return { count: r.state.count, event: r.event ? r.event.feedID + '=' + "
            "r.event.json : 'none' }; }"));
    const QString thrower = writePackage(QStringLiteral("thrower"),
                                         QStringLiteral("function run() { throw new Error('boom'); }"));

    QTest::addRow("initial state and default settings")
        << QStringList{hello, QStringLiteral("--action"), QStringLiteral("greet")}
        << QStringLiteral(R"({"count":"1","message":"Hello, friend!","progress":"10"})") << 0;
    QTest::addRow("given state and configuration")
        << QStringList{hello,
                       QStringLiteral("--state"),
                       QStringLiteral(R"({"count":"4"})"),
                       QStringLiteral("--configuration"),
                       QStringLiteral(R"({"greeting":"Hi","name":"Ada"})"),
                       QStringLiteral("--action"),
                       QStringLiteral("greet")}
        << QStringLiteral(R"({"count":"5","message":"Hi, Ada!","progress":"50"})") << 0;
    QTest::addRow("event") << QStringList{echo, QStringLiteral("--event-feed"), QStringLiteral("sensor"),
                                          QStringLiteral("--event-json"), QStringLiteral("{}")}
                           << QStringLiteral(R"({"count":"0","event":"sensor={}"})") << 0;
    QTest::addRow("undeclared action")
        << QStringList{hello, QStringLiteral("--action"), QStringLiteral("launch")}
        << QStringLiteral("This action is not available.") << 1;
    QTest::addRow("state that is not JSON")
        << QStringList{hello, QStringLiteral("--state"), QStringLiteral("count=4")}
        << QStringLiteral("--state needs a JSON object of text values.") << 1;
    QTest::addRow("script error") << QStringList{thrower} << QStringLiteral("boom") << 1;
}

void tst_VellctlModuleRun::run() {
    QFETCH(QStringList, arguments);
    QFETCH(QString, output);
    QFETCH(int, status);
    QProcess vellctl;
    vellctl.start(qEnvironmentVariable("VELL_BUILD_DIR") + QStringLiteral("/bin/vellctl"),
                  QStringList{QStringLiteral("module"), QStringLiteral("run")} + arguments);
    QVERIFY(vellctl.waitForFinished(60000));
    QCOMPARE(vellctl.exitStatus(), QProcess::NormalExit);
    QCOMPARE(vellctl.exitCode(), status);
    QCOMPARE(QString::fromUtf8(vellctl.readAllStandardOutput()).trimmed(), output);
}

QTEST_GUILESS_MAIN(tst_VellctlModuleRun)
#include "tst_VellctlModuleRun.moc"
