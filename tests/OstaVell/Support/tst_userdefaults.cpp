#include "OstaVell/Support/UserDefaults.h"

#include <QDir>
#include <QFileSystemWatcher>
#include <QJsonArray>
#include <QSaveFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace vell;

class tst_UserDefaults final : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_path;

    void writeRaw(const QByteArray& text) {
        QDir().mkpath(QFileInfo(m_path).absolutePath());
        QSaveFile file(m_path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(text);
        QVERIFY(file.commit());
    }

private slots:
    void init() {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_path = m_dir->filePath("OstaVell/OstaVell.conf");
    }

    void typedReadsOfAHandWrittenFile_data() {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QVariant>("fallback");
        QTest::addColumn<QVariant>("expected");
        QTest::addRow("bool 1") << QByteArray("k=1") << QVariant(false) << QVariant(true);
        QTest::addRow("bool garbage falls back") << QByteArray("k=maybe") << QVariant(true) << QVariant(true);
        QTest::addRow("double garbage falls back")
            << QByteArray("k=wide") << QVariant(760.0) << QVariant(760.0);
        QTest::addRow("unquoted commas join back")
            << QByteArray("k=Vell,Tray,Tools") << QVariant(QString()) << QVariant("Vell,Tray,Tools");
        QTest::addRow("empty string is not absent") << QByteArray("k=") << QVariant("Vell") << QVariant("");
    }

    void typedReadsOfAHandWrittenFile() {
        QFETCH(QByteArray, line);
        QFETCH(QVariant, fallback);
        QFETCH(QVariant, expected);
        writeRaw("[General]\n" + line + "\n");
        UserDefaults defaults(m_path);
        const QString key = "k";
        if (fallback.typeId() == QMetaType::Bool)
            QCOMPARE(defaults.boolValue(key, fallback.toBool()), expected.toBool());
        else if (fallback.typeId() == QMetaType::Double)
            QCOMPARE(defaults.doubleValue(key, fallback.toDouble()), expected.toDouble());
        else
            QCOMPARE(defaults.stringValue(key, fallback.toString()), expected.toString());
    }

    void documentsAreStoredAsCompactJsonText_data() {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QByteArray>("text");
        QTest::addRow("bytes") << QVariant(QByteArray(R"({"a":1})")) << QByteArray(R"({"a":1})");
        QTest::addRow("json array") << QVariant(QJsonArray{"x", "y, z"}) << QByteArray(R"(["x","y, z"])");
        QTest::addRow("list of names")
            << QVariant(QStringList{"clock", "weather"}) << QByteArray(R"(["clock","weather"])");
    }

    void documentsAreStoredAsCompactJsonText() {
        QFETCH(QVariant, value);
        QFETCH(QByteArray, text);
        UserDefaults(m_path).setValue("workspace.order.v1", value);
        QCOMPARE(UserDefaults(m_path).dataValue("workspace.order.v1"), text);
    }

    void changeByAnotherWriterIsAnnouncedOnce() {
        UserDefaults defaults(m_path);
        QSignalSpy spy(&defaults, &UserDefaults::changed);

        // A second watcher on the folder tells when our own write has reached the disk and its
        // file events have been delivered; they must not come back as a change from outside.
        QFileSystemWatcher probe({QFileInfo(m_path).absolutePath()});
        QSignalSpy probed(&probe, &QFileSystemWatcher::directoryChanged);
        defaults.setValue("hoverDelay", 0.3);
        QVERIFY(probed.wait());
        for (int i = 0; i < 10; ++i)
            QCoreApplication::processEvents();
        QCOMPARE(spy.count(), 1);
        QCOMPARE(spy.at(0).at(0).toString(), "hoverDelay");

        // An atomic replace, as QSettings in another process does it.
        writeRaw("[General]\nhoverDelay=0.75\nopenOnHover=false\n");
        QVERIFY(spy.wait());
        QCOMPARE(spy.count(), 2);
        QCOMPARE(spy.at(1).at(0).toString(), QString());
        QCOMPARE(defaults.doubleValue("hoverDelay", 0.1), 0.75);

        // The replaced file is still watched.
        writeRaw("[General]\nhoverDelay=1.5\n");
        QVERIFY(spy.wait());
        QCOMPARE(spy.count(), 3);
        QCOMPARE(defaults.doubleValue("hoverDelay", 0.1), 1.5);
        QVERIFY(!defaults.contains("openOnHover"));
    }
};

QTEST_GUILESS_MAIN(tst_UserDefaults)
#include "tst_userdefaults.moc"
