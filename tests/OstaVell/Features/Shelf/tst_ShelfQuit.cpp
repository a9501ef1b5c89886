// The real app quitting: with "shelf.clearOnQuit" on it clears the tray after the notes and
// before media, stored copies with it; off or absent, the tray is kept as it is.
#include "OstaVell/Features/Shelf/ShelfStore.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QProcess>
#include <QTest>

#include "ShelfTestSupport.h"

using namespace vell;
using namespace vell::test;
using namespace Qt::StringLiterals;

class tst_ShelfQuit final : public QObject {
    Q_OBJECT

private slots:
    void clearOnQuit_data();
    void clearOnQuit();
};

void tst_ShelfQuit::clearOnQuit_data() {
    QTest::addColumn<QString>("setting"); // empty: absent
    QTest::addColumn<bool>("cleared");
    QTest::addRow("absent keeps the tray") << u""_s << false;
    QTest::addRow("off keeps the tray") << u"false"_s << false;
    QTest::addRow("on clears it") << u"true"_s << true;
}

void tst_ShelfQuit::clearOnQuit() {
    QFETCH(QString, setting);
    QFETCH(bool, cleared);
    QTemporaryDir home;
    const QString data = home.filePath(u"data"_s);
    const QString config = home.filePath(u"config"_s);
    const QString referenced = home.filePath(u"kept.txt"_s);
    QVERIFY(writeAll(referenced, "kept"));
    {
        UserDefaults defaults(config + u"/OstaVell/OstaVell.conf"_s);
        if (!setting.isEmpty())
            defaults.setValue(QString(ShelfStore::clearOnQuitKey), setting == u"true");
        ShelfStore store(ShelfLocations(data + u"/OstaVell"_s), defaults);
        QVERIFY(store.addData("png", u"image/png"_s, u"shot.png"_s));
        QVERIFY(store.addFiles({QUrl::fromLocalFile(referenced)}));
        QVERIFY(store.addText(u"a note"_s));
    }
    const QByteArray before = readAll(data + u"/OstaVell/shelf.json"_s);

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"XDG_DATA_HOME"_s, data);
    environment.insert(u"XDG_CONFIG_HOME"_s, config);
    const QString program = qEnvironmentVariable("VELL_BUILD_DIR") + u"/bin/ostavell"_s;
    QProcess app;
    app.setProcessEnvironment(environment);
    app.setStandardErrorFile(home.filePath(u"ostavell.log"_s));
    app.start(program, {});
    QVERIFY(app.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(
        QDBusConnection::sessionBus().interface()->isServiceRegistered(u"app.ostavell.OstaVell"_s), 30000);
    QProcess quit;
    quit.setProcessEnvironment(environment);
    quit.start(program, {u"--quit"_s});
    QVERIFY(quit.waitForFinished(30000));
    QVERIFY(app.waitForFinished(30000));
    QCOMPARE(app.exitCode(), 0);

    const QString log = QString::fromUtf8(readAll(home.filePath(u"ostavell.log"_s)));
    const qsizetype clearing = log.indexOf(u"OstaVell: shutdown: clearing the tray"_s);
    QCOMPARE(clearing >= 0, cleared);
    if (cleared) {
        QVERIFY2(log.indexOf(u"shutdown: killing module runners"_s) < clearing, qPrintable(log));
        QVERIFY2(clearing < log.indexOf(u"shutdown: stopping media"_s), qPrintable(log));
        QCOMPARE(readAll(data + u"/OstaVell/shelf.json"_s).trimmed(), "[\n]");
        QCOMPARE(namesIn(data + u"/OstaVell/ShelfStorage"_s), QStringList());
    } else {
        QCOMPARE(readAll(data + u"/OstaVell/shelf.json"_s), before);
        QCOMPARE(namesIn(data + u"/OstaVell/ShelfStorage"_s), QStringList{u"shot.png"_s});
    }
    // A referenced file is never the tray's to delete.
    QCOMPARE(readAll(referenced), "kept");
}

QTEST_GUILESS_MAIN(tst_ShelfQuit)
#include "tst_ShelfQuit.moc"
