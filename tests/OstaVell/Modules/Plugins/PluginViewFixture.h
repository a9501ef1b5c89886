#pragma once

// Plugin views in real windows against the real store and the real example plugins: what the
// view tests share. A test class derives from it beside QObject.

#include "OstaVell/Modules/Plugins/NativePluginStore.h"

#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QTest>

#include <memory>
#include <vector>

namespace vell::test {

inline QString bundle(const QString& name) {
    return qEnvironmentVariable("VELL_BUILD_DIR") + QStringLiteral("/examples/plugins/") + name +
           QStringLiteral(".app");
}

inline QVariantMap snapshotOf(const QString& id) {
    return NativePluginStore::instance()->property("snapshots").toMap().value(id).toMap();
}

class PluginViewFixture {
protected:
    // The store started, the views' style and modules found; call from initTestCase.
    void startViews() {
        QQuickStyle::setStyle(QStringLiteral("Material"));
        m_engine.addImportPath(QStringLiteral("qrc:/qt/qml"));
        NativePluginStore::instance()->start();
    }
    void stopViews() {
        m_windows.clear();
        NativePluginStore::instance()->stop();
    }

    // A window made from QML text, shown and exposed; nullptr with the reason logged.
    QQuickWindow* show(const QByteArray& qml, const QVariantMap& properties = {}) {
        QQmlComponent component(&m_engine);
        component.setData(qml, QUrl());
        // Creating from a component that failed to load crashes rather than answering nothing.
        if (!component.isReady()) {
            qWarning() << component.errorString();
            return nullptr;
        }
        auto* window = qobject_cast<QQuickWindow*>(component.createWithInitialProperties(properties));
        if (!window) {
            qWarning() << component.errorString();
            return nullptr;
        }
        m_windows.emplace_back(window);
        if (!QTest::qWaitForWindowExposed(window, 20000))
            return nullptr;
        return window;
    }

    // The example bundle of that name installed, once, and its first snapshot come.
    void install(const QString& name, const QString& id) {
        NativePluginStore* store = NativePluginStore::instance();
        if (store->plugin(id))
            return;
        QCOMPARE(store->review(QUrl::fromLocalFile(bundle(name))), QString());
        QCOMPARE(store->reviewed().value(QStringLiteral("id")).toString(), id);
        QCOMPARE(store->installReviewed(), QString());
        QTRY_VERIFY_WITH_TIMEOUT(!snapshotOf(id).isEmpty(), 30000);
    }

    QQmlEngine m_engine;
    std::vector<std::unique_ptr<QQuickWindow>> m_windows;
};

} // namespace vell::test
