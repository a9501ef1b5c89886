#pragma once

#include <QObject>

namespace vell {

// Where menus and popovers announce themselves. A panel that sees one open keeps itself
// open until it closes, however long the pointer is away.
class MenuTracking final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MenuTracking)

public:
    static MenuTracking* instance();
    MenuTracking() = default;

public slots:
    void menuDidBeginTracking() { emit menuBegan(); }
    void menuDidEndTracking() { emit menuEnded(); }
    void popoverWillShow() { emit popoverShown(); }
    void popoverDidClose() { emit popoverClosed(); }

signals:
    void menuBegan();
    void menuEnded();
    void popoverShown();
    void popoverClosed();
};

} // namespace vell
