#pragma once

#include <QObject>

#include <functional>

class QMenu;
class QSystemTrayIcon;
class QAction;

namespace vell {

class ShelfController;

// The menu behind the tray icon: open here, on all displays or on one, collapse, the
// "Show Vells" switch, settings and quit. Rebuilt whenever the displays change.
class VellMenu final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(VellMenu)

public:
    VellMenu(ShelfController* shelf, std::function<void()> showSettings, QObject* parent = nullptr);
    ~VellMenu() override;

    QMenu* menu() const { return m_menu; }
    static QIcon icon();

private:
    void rebuild();

    ShelfController* m_shelf;
    std::function<void()> m_showSettings;
    QMenu* m_menu;
    QSystemTrayIcon* m_tray;
};

} // namespace vell
