#include "OstaVell/Support/GlobalHotKey.h"

#include "OstaVell/Support/Logging.h"

#include <xcb/xcb.h>

namespace vell {

namespace {
constexpr quint32 kKeysymN = 0x006e;
constexpr quint16 kModifiers = XCB_MOD_MASK_4 | XCB_MOD_MASK_1; // Super + Alt
} // namespace

GlobalHotKey::GlobalHotKey(std::function<void()> action, QObject* parent)
    : QObject(parent)
    , m_grab([action = std::move(action)](const X11KeyGrab::Press&) {
        if (action)
            action();
    }) {
    if (!m_grab.grab({{kKeysymN, kModifiers}}) || !m_grab.held())
        qCInfo(lcHotKey) << "Super+Alt+N is not available; Ctrl+Shift+N works inside OstaVell";
}

} // namespace vell
