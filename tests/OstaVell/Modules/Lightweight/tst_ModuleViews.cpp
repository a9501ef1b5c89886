// The module views drawn in a real window: text that a module brings, whatever it holds, is
// shown as it is and never interpreted. Rich text would fetch an image from any address.
#include "OstaVell/Modules/Lightweight/ModuleStore.h"
#include "OstaVell/Support/ShellContributions.h"

#include <QFile>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QTemporaryDir>
#include <QTest>

#include "../../QuickTestSupport.h"
#include "../FetchListener.h"

using namespace vell;
using namespace vell::test;
using namespace Qt::StringLiterals;

namespace {

ModuleComponent component(const QString& id, ModuleComponent::Kind kind, const QString& text) {
    ModuleComponent component;
    component.id = id;
    component.kind = kind;
    component.text = text;
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
    // Shown last: once its fetch has come, any earlier fetch would have come too.
    void fence(const QString& path);

    QQmlEngine m_engine;
    FetchListener m_listener;
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

void tst_ModuleViews::fence(const QString& path) {
    QVERIFY(show(m_listener.fence(path)));
    QTRY_VERIFY_WITH_TIMEOUT(m_listener.heard(path), 20000);
}

void tst_ModuleViews::initTestCase() {
    m_engine.addImportPath(u"qrc:/qt/qml"_s);
    QVERIFY(m_listener.listen(QHostAddress::LocalHost));
}

// What C++ offers or holds is what the views see: QML must not make stores of its own.
void tst_ModuleViews::viewsReachTheSharedInstances() {
    ShellContributions::instance()->offerSettingsPane(u"Modules"_s, ModuleStore::settingsPaneView());
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
    fence(u"control"_s);
    const auto img = [this](const QString& path) { return m_listener.img(path); };
    ModulePackage hostile;
    hostile.id = u"cafe.osta.hostile"_s;
    hostile.name = img("name");
    hostile.version = u"1.0.0"_s;
    hostile.author = img("author");
    hostile.summary = img("summary");
    hostile.initialState = {{u"text"_s, img("state")}};
    hostile.settings = {{u"where"_s, img("label"), img("default")}};
    hostile.actions = {{u"go"_s, img("action")}};
    hostile.card = {component(u"t"_s, ModuleComponent::Kind::text, u"{text}"_s),
                    component(u"h"_s, ModuleComponent::Kind::heading, img("heading")),
                    component(u"b"_s, ModuleComponent::Kind::badge, img("badge")),
                    component(u"p"_s, ModuleComponent::Kind::progress, img("progress")),
                    component(u"g"_s, ModuleComponent::Kind::button, img("button"))};
    hostile.card[3].valueKey = u"text"_s;
    hostile.card[4].action = u"go"_s;
    hostile.activity = img("activity");
    // Its error is its setting's default, so that a failing run brings the hostile text too.
    hostile.script =
        u"function run(r) { if (r.action) throw new Error(r.configuration.where); return r.state; }"_s;
    hostile.validate();

    QTemporaryDir dir;
    const QString file = dir.filePath(u"hostile.ostavellmodule"_s);
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
    QVERIFY(drawn(window));
    QCOMPARE(store->installReviewed(), QString());
    QTRY_VERIFY_WITH_TIMEOUT(
        !store->running().contains(hostile.id) && !store->module(hostile.id)->state.isEmpty(), 20000);
    QVERIFY(drawn(window));
    store->press(hostile.id, u"go"_s);
    QTRY_VERIFY_WITH_TIMEOUT(store->errors().contains(hostile.id), 20000);
    QCOMPARE(store->errors().value(hostile.id), img("default"));
    QVERIFY(drawn(window));

    fence(u"last"_s);
    QCOMPARE(m_listener.fetched(), QStringList());
}

QTEST_MAIN(tst_ModuleViews)
#include "tst_ModuleViews.moc"
