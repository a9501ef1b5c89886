#pragma once

#include <QAbstractNativeEventFilter>
#include <QObject>

#include <functional>

namespace vell {

// Super+Alt+N, grabbed on the X11 root window for every combination of NumLock and CapsLock
// so that the lock keys don't swallow it. A grab another client already holds fails the
// whole registration: `registered` stays false and the in-app shortcut remains.
class GlobalHotKey final : public QObject, public QAbstractNativeEventFilter {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(GlobalHotKey)

public:
    explicit GlobalHotKey(std::function<void()> action, QObject* parent = nullptr);
    ~GlobalHotKey() override;

    bool registered() const { return m_registered; }
    void unregister();

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

private:
    bool grab();

    std::function<void()> m_action;
    bool m_registered = false;
    bool m_filterInstalled = false;
    quint8 m_keycode = 0;
    quint32 m_root = 0;
};

} // namespace vell
