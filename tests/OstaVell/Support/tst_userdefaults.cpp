#include "OstaVell/Support/UserDefaults.h"

#include <QDir>
#include <QFile>
#include <QFileSystemWatcher>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace vell;

class tst_UserDefaults final : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void typedReadsOfAHandWrittenFile_data();
    void typedReadsOfAHandWrittenFile();
    void writesReachTheDiskAtOnce();
    void documentsAreStoredAsCompactJsonText_data();
    void documentsAreStoredAsCompactJsonText();
    void textWithCommasRoundTrips();
    void ownWritesAnnounceTheirKey();
    void changeByAnotherWriterIsAnnouncedOnce();
    void anotherQSettingsOnTheSameFileIsSeen();

private:
    void writeRaw(const QByteArray& text);

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_path;
};

void tst_UserDefaults::init() {
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_path = m_dir->filePath(QStringLiteral("OstaVell/OstaVell.conf"));
}

void tst_UserDefaults::cleanup() {
    m_dir.reset();
}

void tst_UserDefaults::writeRaw(const QByteArray& text) {
    QDir().mkpath(QFileInfo(m_path).absolutePath());
    QSaveFile file(m_path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(text);
    QVERIFY(file.commit());
}

void tst_UserDefaults::typedReadsOfAHandWrittenFile_data() {
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QVariant>("fallback");
    QTest::addColumn<QVariant>("expected");

    QTest::addRow("bool true") << QByteArray("k=true") << "bool" << QVariant(false) << QVariant(true);
    QTest::addRow("bool false") << QByteArray("k=false") << "bool" << QVariant(true) << QVariant(false);
    QTest::addRow("bool 1") << QByteArray("k=1") << "bool" << QVariant(false) << QVariant(true);
    QTest::addRow("bool garbage falls back")
        << QByteArray("k=maybe") << "bool" << QVariant(true) << QVariant(true);
    QTest::addRow("bool absent falls back")
        << QByteArray("other=1") << "bool" << QVariant(true) << QVariant(true);
    QTest::addRow("double") << QByteArray("k=0.25") << "double" << QVariant(1.0) << QVariant(0.25);
    QTest::addRow("double garbage falls back")
        << QByteArray("k=wide") << "double" << QVariant(760.0) << QVariant(760.0);
    QTest::addRow("double absent falls back")
        << QByteArray("") << "double" << QVariant(24.0) << QVariant(24.0);
    QTest::addRow("string") << QByteArray("k=left") << "string" << QVariant(QString()) << QVariant("left");
    QTest::addRow("unquoted commas join back")
        << QByteArray("k=Vell,Tray,Tools") << "string" << QVariant(QString()) << QVariant("Vell,Tray,Tools");
    QTest::addRow("quoted commas") << QByteArray("k=\"Vell,Tray\"") << "string" << QVariant(QString())
                                   << QVariant("Vell,Tray");
    QTest::addRow("string absent falls back")
        << QByteArray("") << "string" << QVariant("Vell") << QVariant("Vell");
    QTest::addRow("empty string is not absent")
        << QByteArray("k=") << "string" << QVariant("Vell") << QVariant(QString(""));
}

void tst_UserDefaults::typedReadsOfAHandWrittenFile() {
    QFETCH(QByteArray, line);
    QFETCH(QString, kind);
    QFETCH(QVariant, fallback);
    QFETCH(QVariant, expected);

    writeRaw("[General]\n" + line + "\n");
    UserDefaults defaults(m_path);
    const QString key = QStringLiteral("k");
    if (kind == u"bool")
        QCOMPARE(defaults.boolValue(key, fallback.toBool()), expected.toBool());
    else if (kind == u"double")
        QCOMPARE(defaults.doubleValue(key, fallback.toDouble()), expected.toDouble());
    else
        QCOMPARE(defaults.stringValue(key, fallback.toString()), expected.toString());
}

void tst_UserDefaults::writesReachTheDiskAtOnce() {
    {
        UserDefaults defaults(m_path);
        defaults.setValue(QStringLiteral("appearance.openWidth"), 3000.0);
        defaults.setValue(QStringLiteral("openOnHover"), false);
        defaults.setValue(QStringLiteral("scratchNote"), QStringLiteral("gone"));
        defaults.remove(QStringLiteral("scratchNote"));

        // Read beside the live object, as another process would.
        QSettings reader(m_path, QSettings::IniFormat);
        QCOMPARE(reader.value(QStringLiteral("appearance.openWidth")).toDouble(), 3000.0);
        QCOMPARE(reader.value(QStringLiteral("openOnHover")).toBool(), false);
        QVERIFY(!reader.contains(QStringLiteral("scratchNote")));
    }
    UserDefaults reopened(m_path);
    QCOMPARE(reopened.doubleValue(QStringLiteral("appearance.openWidth"), 760), 3000.0);
    QVERIFY(reopened.contains(QStringLiteral("openOnHover")));
    QCOMPARE(reopened.boolValue(QStringLiteral("openOnHover"), true), false);
    QVERIFY(!reopened.contains(QStringLiteral("scratchNote")));
}

void tst_UserDefaults::documentsAreStoredAsCompactJsonText_data() {
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("text");

    QTest::addRow("bytes") << QVariant(QByteArray(R"({"a":1})")) << QByteArray(R"({"a":1})");
    QTest::addRow("json array") << QVariant(QJsonArray{QStringLiteral("x"), QStringLiteral("y, z")})
                                << QByteArray(R"(["x","y, z"])");
    QTest::addRow("json object") << QVariant(QJsonObject{{QStringLiteral("id"), QStringLiteral("a=b;c")}})
                                 << QByteArray(R"({"id":"a=b;c"})");
    QTest::addRow("list of names") << QVariant(
                                          QStringList{QStringLiteral("clock"), QStringLiteral("weather")})
                                   << QByteArray(R"(["clock","weather"])");
}

void tst_UserDefaults::documentsAreStoredAsCompactJsonText() {
    QFETCH(QVariant, value);
    QFETCH(QByteArray, text);

    const QString key = QStringLiteral("workspace.order.v1");
    {
        UserDefaults defaults(m_path);
        defaults.setValue(key, value);
        QCOMPARE(defaults.dataValue(key), text);
    }
    UserDefaults reopened(m_path);
    QCOMPARE(reopened.dataValue(key), text);
    QCOMPARE(reopened.stringValue(key), QString::fromUtf8(text));
}

void tst_UserDefaults::textWithCommasRoundTrips() {
    const QString tabs = QStringLiteral("Vell,Tray,,Automations");
    {
        UserDefaults defaults(m_path);
        defaults.setValue(QStringLiteral("layout.visibleTabs"), tabs);
    }
    UserDefaults reopened(m_path);
    QCOMPARE(reopened.stringValue(QStringLiteral("layout.visibleTabs")), tabs);
}

void tst_UserDefaults::ownWritesAnnounceTheirKey() {
    UserDefaults defaults(m_path);
    QSignalSpy spy(&defaults, &UserDefaults::changed);
    defaults.setValue(QStringLiteral("hoverDelay"), 0.3);
    defaults.remove(QStringLiteral("hoverDelay"));
    QCOMPARE(spy.count(), 2);
    QCOMPARE(spy.at(0).at(0).toString(), QStringLiteral("hoverDelay"));
    QCOMPARE(spy.at(1).at(0).toString(), QStringLiteral("hoverDelay"));
}

void tst_UserDefaults::changeByAnotherWriterIsAnnouncedOnce() {
    UserDefaults defaults(m_path);
    QSignalSpy spy(&defaults, &UserDefaults::changed);

    // A second watcher on the folder tells when the file events of our own write have been
    // delivered; they must not come back as a change from outside.
    QFileSystemWatcher probe({QFileInfo(m_path).absolutePath()});
    QSignalSpy probed(&probe, &QFileSystemWatcher::directoryChanged);
    defaults.setValue(QStringLiteral("hoverDelay"), 0.3);
    QVERIFY(probed.wait());
    for (int i = 0; i < 10; ++i)
        QCoreApplication::processEvents();
    QCOMPARE(spy.count(), 1);

    // An atomic replace, as QSettings in another process does it.
    writeRaw("[General]\nhoverDelay=0.75\nopenOnHover=false\n");
    QVERIFY(spy.wait());
    QCOMPARE(spy.count(), 2);
    QCOMPARE(spy.at(1).at(0).toString(), QString());
    QCOMPARE(defaults.doubleValue(QStringLiteral("hoverDelay"), 0.1), 0.75);
    QCOMPARE(defaults.boolValue(QStringLiteral("openOnHover"), true), false);

    // The replaced file is still watched.
    writeRaw("[General]\nhoverDelay=1.5\n");
    QVERIFY(spy.wait());
    QCOMPARE(spy.count(), 3);
    QCOMPARE(defaults.doubleValue(QStringLiteral("hoverDelay"), 0.1), 1.5);
    QVERIFY(!defaults.contains(QStringLiteral("openOnHover")));
}

void tst_UserDefaults::anotherQSettingsOnTheSameFileIsSeen() {
    UserDefaults defaults(m_path);
    UserDefaults other(m_path);
    QSignalSpy spy(&defaults, &UserDefaults::changed);
    other.setValue(QStringLiteral("layout.defaultTab"), QStringLiteral("Tray"));
    QVERIFY(spy.wait());
    QCOMPARE(spy.first().at(0).toString(), QString());
    QCOMPARE(defaults.stringValue(QStringLiteral("layout.defaultTab")), QStringLiteral("Tray"));
}

QTEST_GUILESS_MAIN(tst_UserDefaults)
#include "tst_userdefaults.moc"
