#pragma once

#include <QObject>
#include <QPointer>

class QQmlEngine;
class QQuickWindow;

namespace vell {

class ShelfController;
class VellMenu;

// Brings the services up in one fixed order after the one-time migrations, and takes them
// down in another. Nothing else starts a service.
class AppDelegate final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(AppDelegate)

public:
    explicit AppDelegate(QObject* parent = nullptr);
    ~AppDelegate() override;

    ShelfController* shelf() const { return m_shelf; }

    void applicationDidFinishLaunching();
    void applicationWillTerminate();

    // The "workbench" window: made on first use, then raised.
    void showSettings(const QString& pane = QString());

private:
    void offerViews();

    ShelfController* m_shelf;
    QQmlEngine* m_engine = nullptr;
    VellMenu* m_menu = nullptr;
    QPointer<QQuickWindow> m_settingsWindow;
    bool m_launched = false;
    bool m_terminated = false;
};

} // namespace vell
