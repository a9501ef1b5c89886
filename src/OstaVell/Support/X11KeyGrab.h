#pragma once

#include <QAbstractNativeEventFilter>
#include <QHash>
#include <QList>
#include <QObject>

#include <functional>

namespace vell {

// Keys grabbed on the X11 root window, each for every combination of NumLock and CapsLock so
// that the lock keys don't swallow them, and the presses of those keys. The grabs are all or
// nothing: when the server refuses any of them (another client holds it) none is kept.
//
// Only under Qt's xcb platform; elsewhere nothing can be grabbed. Main thread only.
class X11KeyGrab final : public QObject, public QAbstractNativeEventFilter {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(X11KeyGrab)

public:
    struct Key {
        quint32 keysym = 0;
        // Core modifier bits (Shift, Control, Mod1 ...) without the lock bits.
        quint16 modifiers = 0;
    };
    struct Press {
        quint32 keysym = 0;
        quint16 modifiers = 0;
    };

    // onPress runs after the event filter has returned, so it may create or show windows.
    explicit X11KeyGrab(std::function<void(const Press&)> onPress, QObject* parent = nullptr);
    ~X11KeyGrab() override;

    // An X11 connection exists to grab on.
    static bool available();

    // Replaces what is held with these keys. A key the keymap has no keycode for can't be
    // pressed and is left out. False when the server refused a grab: nothing is held then.
    bool grab(const QList<Key>& keys);
    void release();
    // At least one key is grabbed.
    bool held() const { return !m_grabbed.isEmpty(); }

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

private:
    struct Grabbed {
        quint8 keycode = 0;
        quint16 modifiers = 0;
        quint32 keysym = 0;
    };

    void ungrab(const QList<Grabbed>& grabs);

    std::function<void(const Press&)> m_onPress;
    QList<Grabbed> m_grabbed;
    quint32 m_root = 0;
    bool m_filterInstalled = false;
};

} // namespace vell
