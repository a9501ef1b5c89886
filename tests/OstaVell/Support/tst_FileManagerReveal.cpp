// The reveal goes to whatever file manager holds org.freedesktop.FileManager1 on the session bus.
// Here that is a second connection of this process to the test session's private bus, so the
// call travels through the real bus daemon as it would to a file manager.

#include "OstaVell/Support/FileManagerReveal.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QSignalSpy>
#include <QTest>

using namespace vell;

namespace {

class FakeFileManager final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

public:
    QList<QStringList> shown;
    QStringList startupIds;

public slots:
    void ShowItems(const QStringList& uris, const QString& startupId) {
        shown.append(uris);
        startupIds.append(startupId);
        emit called();
    }

signals:
    void called();
};

} // namespace

class tst_FileManagerReveal final : public QObject {
    Q_OBJECT

    // The reveal's answer, once it came.
    struct Answer {
        bool came = false;
        QString error;
    };

private slots:
    void revealsThroughTheBusAsFileUris() {
        QDBusConnection other = QDBusConnection::connectToBus(QDBusConnection::SessionBus, "file-manager");
        QVERIFY(other.isConnected());
        FakeFileManager manager;
        QVERIFY(other.registerObject(FileManagerReveal::path, &manager, QDBusConnection::ExportAllSlots));
        QVERIFY(other.registerService(FileManagerReveal::service));

        auto answer = std::make_shared<Answer>();
        FileManagerReveal::showItems({"/tmp/Ost Vell/notes ü.json", "/tmp/a#b"},
                                     [answer](const QString& error) {
                                         answer->came = true;
                                         answer->error = error;
                                     });
        // Nothing was waited for: the call is on its way when showItems returns.
        QVERIFY(!answer->came);
        QTRY_VERIFY(answer->came);
        QCOMPARE(answer->error, QString());
        QCOMPARE(manager.shown.size(), 1);
        QCOMPARE(manager.shown.first(),
                 QStringList({"file:///tmp/Ost%20Vell/notes%20%C3%BC.json", "file:///tmp/a%23b"}));
        QCOMPARE(manager.startupIds.first(), QString());

        other.unregisterService(FileManagerReveal::service);
        QDBusConnection::disconnectFromBus("file-manager");
    }

    void noFileManagerAnswersWithTheBusError() {
        QVERIFY(!QDBusConnection::sessionBus().interface()->isServiceRegistered(FileManagerReveal::service));
        auto answer = std::make_shared<Answer>();
        FileManagerReveal::showItems({"/tmp/notes.json"}, [answer](const QString& error) {
            answer->came = true;
            answer->error = error;
        });
        QTRY_VERIFY(answer->came);
        QVERIFY2(!answer->error.isEmpty(), "a missing file manager must not look like success");
    }
};

QTEST_GUILESS_MAIN(tst_FileManagerReveal)
#include "tst_FileManagerReveal.moc"
