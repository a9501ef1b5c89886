#include "OstaVell/Support/X11KeyGrab.h"

#include <QGuiApplication>
#include <QMetaObject>

#include <memory>
#include <utility>
#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

namespace vell {

namespace {

// NumLock is Mod2 on every common keymap; CapsLock is Lock.
constexpr quint16 kLockMasks[] = {0, XCB_MOD_MASK_2, XCB_MOD_MASK_LOCK, XCB_MOD_MASK_2 | XCB_MOD_MASK_LOCK};
constexpr quint16 kLockBits = XCB_MOD_MASK_2 | XCB_MOD_MASK_LOCK;

xcb_connection_t* x11Connection() {
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 ? x11->connection() : nullptr;
}

} // namespace

X11KeyGrab::X11KeyGrab(std::function<void(const Press&)> onPress, QObject* parent)
    : QObject(parent)
    , m_onPress(std::move(onPress)) {}

X11KeyGrab::~X11KeyGrab() {
    release();
}

bool X11KeyGrab::available() {
    return x11Connection() != nullptr;
}

bool X11KeyGrab::grab(const QList<Key>& keys) {
    release();
    xcb_connection_t* connection = x11Connection();
    if (!connection)
        return false;
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    if (!screens.rem)
        return false;
    m_root = screens.data->root;

    std::unique_ptr<xcb_key_symbols_t, decltype(&xcb_key_symbols_free)> symbols(
        xcb_key_symbols_alloc(connection), &xcb_key_symbols_free);
    QList<Grabbed> wanted;
    for (const Key& key : keys) {
        std::unique_ptr<xcb_keycode_t, decltype(&free)> codes(
            xcb_key_symbols_get_keycode(symbols.get(), key.keysym), &free);
        // A keysym may sit on several keys; the list ends with XCB_NO_SYMBOL.
        for (const xcb_keycode_t* code = codes.get(); code && *code != XCB_NO_SYMBOL; ++code)
            wanted.append({*code, key.modifiers, key.keysym});
    }

    bool ok = true;
    QList<xcb_void_cookie_t> cookies;
    for (const Grabbed& grab : std::as_const(wanted))
        for (quint16 locks : kLockMasks)
            cookies.append(xcb_grab_key_checked(connection, 1, m_root, grab.modifiers | locks, grab.keycode,
                                                XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    for (const xcb_void_cookie_t& cookie : std::as_const(cookies)) {
        if (xcb_generic_error_t* error = xcb_request_check(connection, cookie)) {
            free(error);
            ok = false;
        }
    }
    if (!ok) {
        // Half a grab would fire only for some keys or lock states: let go of what we did get.
        ungrab(wanted);
        return false;
    }
    m_grabbed = wanted;
    if (!m_grabbed.isEmpty() && !m_filterInstalled) {
        qApp->installNativeEventFilter(this);
        m_filterInstalled = true;
    }
    return true;
}

void X11KeyGrab::ungrab(const QList<Grabbed>& grabs) {
    xcb_connection_t* connection = x11Connection();
    if (!connection || grabs.isEmpty())
        return;
    for (const Grabbed& grab : grabs)
        for (quint16 locks : kLockMasks)
            xcb_ungrab_key(connection, grab.keycode, m_root, grab.modifiers | locks);
    xcb_flush(connection);
}

void X11KeyGrab::release() {
    if (m_filterInstalled) {
        qApp->removeNativeEventFilter(this);
        m_filterInstalled = false;
    }
    ungrab(std::exchange(m_grabbed, {}));
}

bool X11KeyGrab::nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) {
    if (eventType != "xcb_generic_event_t" || m_grabbed.isEmpty())
        return false;
    auto* event = static_cast<xcb_generic_event_t*>(message);
    const quint8 type = event->response_type & ~0x80;
    if (type != XCB_KEY_PRESS && type != XCB_KEY_RELEASE)
        return false;
    // Press and release share one layout.
    auto* key = reinterpret_cast<xcb_key_press_event_t*>(event);
    if (key->event != m_root)
        return false;
    const quint16 modifiers = key->state & 0xff & ~kLockBits;
    for (const Grabbed& grab : std::as_const(m_grabbed)) {
        if (grab.keycode != key->detail || grab.modifiers != modifiers)
            continue;
        // A held key repeats as further presses; each release is ours too and means nothing.
        if (type == XCB_KEY_PRESS) {
            const Press press{grab.keysym, modifiers};
            QMetaObject::invokeMethod(
                this,
                [this, press] {
                    if (m_onPress)
                        m_onPress(press);
                },
                Qt::QueuedConnection);
        }
        return true;
    }
    return false;
}

} // namespace vell
