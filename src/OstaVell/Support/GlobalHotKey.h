#pragma once

#include "OstaVell/Support/X11KeyGrab.h"

#include <QObject>

#include <functional>

namespace vell {

// Super+Alt+N, grabbed on the X11 root window with every lock-key variant. A grab another
// client already holds fails the whole registration: `registered` stays false and the in-app
// shortcut remains.
class GlobalHotKey final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(GlobalHotKey)

public:
    explicit GlobalHotKey(std::function<void()> action, QObject* parent = nullptr);

    bool registered() const { return m_grab.held(); }
    void unregister() { m_grab.release(); }

private:
    X11KeyGrab m_grab;
};

} // namespace vell
