#include "OstaVell/Support/GlobalHotKey.h"

#include "OstaVell/Support/Logging.h"

#include <QGuiApplication>
#include <QMetaObject>

#include <memory>
#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

namespace vell {

namespace {
constexpr xcb_keysym_t kKeysymN = 0x006e;
constexpr quint16 kModifiers = XCB_MOD_MASK_4 | XCB_MOD_MASK_1; // Super + Alt
// NumLock is Mod2 on every common keymap; CapsLock is Lock.
constexpr quint16 kLockMasks[] = {0, XCB_MOD_MASK_2, XCB_MOD_MASK_LOCK, XCB_MOD_MASK_2 | XCB_MOD_MASK_LOCK};

xcb_connection_t* x11Connection() {
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 ? x11->connection() : nullptr;
}
} // namespace

GlobalHotKey::GlobalHotKey(std::function<void()> action, QObject* parent)
    : QObject(parent)
    , m_action(std::move(action)) {
    m_registered = grab();
    if (m_registered) {
        qApp->installNativeEventFilter(this);
        m_filterInstalled = true;
    } else {
        qCInfo(lcHotKey) << "Super+Alt+N is not available; Ctrl+Shift+N works inside OstaVell";
    }
}

GlobalHotKey::~GlobalHotKey() {
    unregister();
}

bool GlobalHotKey::grab() {
    xcb_connection_t* connection = x11Connection();
    if (!connection)
        return false;
    const xcb_setup_t* setup = xcb_get_setup(connection);
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(setup);
    if (!screens.rem)
        return false;
    m_root = screens.data->root;

    std::unique_ptr<xcb_key_symbols_t, decltype(&xcb_key_symbols_free)> symbols(
        xcb_key_symbols_alloc(connection), &xcb_key_symbols_free);
    std::unique_ptr<xcb_keycode_t, decltype(&free)> codes(
        xcb_key_symbols_get_keycode(symbols.get(), kKeysymN), &free);
    if (!codes || *codes == XCB_NO_SYMBOL)
        return false;
    m_keycode = *codes;

    bool ok = true;
    for (quint16 locks : kLockMasks) {
        xcb_void_cookie_t cookie = xcb_grab_key_checked(connection, 1, m_root, kModifiers | locks, m_keycode,
                                                        XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        if (xcb_generic_error_t* error = xcb_request_check(connection, cookie)) {
            free(error);
            ok = false;
        }
    }
    if (!ok) {
        // Half a grab would fire only with some lock states: release what we did get.
        for (quint16 locks : kLockMasks)
            xcb_ungrab_key(connection, m_keycode, m_root, kModifiers | locks);
        xcb_flush(connection);
    }
    return ok;
}

void GlobalHotKey::unregister() {
    if (m_filterInstalled) {
        qApp->removeNativeEventFilter(this);
        m_filterInstalled = false;
    }
    if (m_registered) {
        if (xcb_connection_t* connection = x11Connection()) {
            for (quint16 locks : kLockMasks)
                xcb_ungrab_key(connection, m_keycode, m_root, kModifiers | locks);
            xcb_flush(connection);
        }
        m_registered = false;
    }
}

bool GlobalHotKey::nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) {
    if (eventType != "xcb_generic_event_t" || !m_registered)
        return false;
    auto* event = static_cast<xcb_generic_event_t*>(message);
    if ((event->response_type & ~0x80) != XCB_KEY_PRESS)
        return false;
    auto* press = reinterpret_cast<xcb_key_press_event_t*>(event);
    if (press->detail != m_keycode || press->event != m_root)
        return false;
    const quint16 state = press->state & ~(XCB_MOD_MASK_2 | XCB_MOD_MASK_LOCK);
    if ((state & 0xff) != kModifiers)
        return false;
    // Leave the event filter before acting: the action may create or show windows.
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (m_action)
                m_action();
        },
        Qt::QueuedConnection);
    return true;
}

} // namespace vell
