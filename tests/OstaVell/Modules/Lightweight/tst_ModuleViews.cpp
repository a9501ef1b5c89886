// The module views drawn in a real window: text that a module brings, whatever it holds, is
// shown as it is and never interpreted. Rich text would fetch an image from any address.
#include "OstaVell/Modules/Lightweight/ModuleStore.h"
#include "OstaVell/Support/ShellContributions.h"

#include <QFile>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

using namespace vell;

namespace {

// Counts the requests that reach it, each by the path it asked for.
class Listener final : public QTcpServer {
public:
    Listener() {
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    const QByteArray line = socket->readLine();
                    paths.append(QString::fromLatin1(line.split(' ').value(1)));
                    socket->disconnectFromHost();
                });
            }
        });
    }
    QStringList paths;
};

ModuleComponent component(const QString& id, ModuleComponent::Kind kind, const QString& text,
                          std::optional<QString> action = std::nullopt) {
    ModuleComponent component;
    component.id = id;
    component.kind = kind;
    component.text = text;
    component.action = std::move(action);
    return component;
}

} // namespace

class tst_ModuleViews final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void viewsReachTheSharedInstances();
    void hostileTextIsNeverFetched();

private:
    QQuickWindow* show(const QByteArray& qml);
    // A request for "/last" made after everything else has been drawn: once it arrives, any
    // earlier fetch would have arrived too.
    void waitForOneMore(const QString& path);

    QQmlEngine m_engine;
    Listener m_listener;
    std::vector<std::unique_ptr<QQuickWindow>> m_windows;
};

QQuickWindow* tst_ModuleViews::show(const QByteArray& qml) {
    QQmlComponent component(&m_engine);
    component.setData(qml, QUrl());
    auto* window = qobject_cast<QQuickWindow*>(component.create());
    if (!window)
        qWarning() << component.errorString();
    m_windows.emplace_back(window);
    return window;
}

void tst_ModuleViews::waitForOneMore(const QString& path) {
    const QString url = QStringLiteral("http://127.0.0.1:%1%2").arg(m_listener.serverPort()).arg(path);
    QQuickWindow* window =
        show(QStringLiteral("import QtQuick\nWindow { visible: true; width: 100; height: 40; "
                            "Text { text: '<img src=\"%1\">' } }")
                 .arg(url)
                 .toUtf8());
    QVERIFY(window);
    QTRY_VERIFY_WITH_TIMEOUT(m_listener.paths.contains(path), 20000);
}

void tst_ModuleViews::initTestCase() {
    m_engine.addImportPath(QStringLiteral("qrc:/qt/qml"));
    QVERIFY(m_listener.listen(QHostAddress::LocalHost));
}

// What C++ offers or holds is what the views see: QML must not make stores of its own.
void tst_ModuleViews::viewsReachTheSharedInstances() {
    ShellContributions::instance()->offerSettingsPane(QStringLiteral("Modules"),
                                                      ModuleStore::settingsPaneView());
    QQmlComponent component(&m_engine);
    component.setData("import QtQuick\nimport OstaVell.Support\nimport OstaVell.Lightweight\n"
                      "QtObject { property var panes: ShellContributions.settingsPanes; "
                      "property var store: ModuleStore }",
                      QUrl());
    std::unique_ptr<QObject> object(component.create());
    QVERIFY2(object, qPrintable(component.errorString()));
    QCOMPARE(object->property("panes").toList().size(), 1);
    QCOMPARE(object->property("store").value<QObject*>(), ModuleStore::instance());
}

void tst_ModuleViews::hostileTextIsNeverFetched() {
    // The listener hears a view that guesses the format: the check below can fail.
    waitForOneMore(QStringLiteral("/control"));

    const auto img = [this](const char* path) {
        return QStringLiteral("<img src=\"http://127.0.0.1:%1/%2\">").arg(m_listener.serverPort()).arg(path);
    };
    ModulePackage hostile;
    hostile.id = QStringLiteral("cafe.osta.hostile");
    hostile.name = img("name");
    hostile.version = QStringLiteral("1.0.0");
    hostile.author = img("author");
    hostile.summary = img("summary");
    hostile.initialState = {{QStringLiteral("text"), img("state")}};
    hostile.settings = {{QStringLiteral("where"), img("label"), img("default")}};
    hostile.actions = {{QStringLiteral("go"), img("action")}};
    hostile.card = {
        component(QStringLiteral("t"), ModuleComponent::Kind::text, QStringLiteral("{text}")),
        component(QStringLiteral("h"), ModuleComponent::Kind::heading, img("heading")),
        component(QStringLiteral("b"), ModuleComponent::Kind::badge, img("badge")),
        component(QStringLiteral("p"), ModuleComponent::Kind::progress, img("progress")),
        component(QStringLiteral("g"), ModuleComponent::Kind::button, img("button"), QStringLiteral("go"))};
    hostile.card[3].valueKey = QStringLiteral("text");
    hostile.activity = img("activity");
    // Its error is its setting's default, so that a failing run brings the hostile text too.
    hostile.script = QStringLiteral(
        "function run(r) { if (r.action) throw new Error(r.configuration.where); return r.state; }");
    hostile.validate();

    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("hostile.ostavellmodule"));
    QFile out(file);
    QVERIFY(out.open(QIODevice::WriteOnly));
    out.write(hostile.encoded());
    out.close();

    QQuickWindow* window = show("import QtQuick\nimport QtQuick.Controls\nimport OstaVell.Lightweight\n"
                                "ApplicationWindow { visible: true; width: 800; height: 1000; "
                                "ModulesPane { anchors.fill: parent } }");
    QVERIFY(window);
    ModuleStore* store = ModuleStore::instance();

    // The review screen, then the card with its state, then its error.
    QCOMPARE(store->review(QUrl::fromLocalFile(file)), QString());
    QSignalSpy frames(window, &QQuickWindow::frameSwapped);
    // One more frame drawn from what the store holds now.
    const auto drawn = [&] {
        const qsizetype before = frames.count();
        window->update();
        return QTest::qWaitFor([&] { return frames.count() > before; }, 20000);
    };
    QVERIFY(drawn());
    QCOMPARE(store->installReviewed(), QString());
    QTRY_VERIFY_WITH_TIMEOUT(
        !store->running().contains(hostile.id) && !store->module(hostile.id)->state.isEmpty(), 20000);
    QVERIFY(drawn());
    store->press(hostile.id, QStringLiteral("go"));
    QTRY_VERIFY_WITH_TIMEOUT(store->errors().contains(hostile.id), 20000);
    QCOMPARE(store->errors().value(hostile.id), img("default"));
    QVERIFY(drawn());

    waitForOneMore(QStringLiteral("/last"));
    QStringList fetched = m_listener.paths;
    fetched.removeAll(QStringLiteral("/control"));
    fetched.removeAll(QStringLiteral("/last"));
    QCOMPARE(fetched, QStringList());
}

QTEST_MAIN(tst_ModuleViews)
#include "tst_ModuleViews.moc"
