#include "OstaVell/ShelfPanel.h"

#include "OstaVell/Support/VellBackground.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QPainterPath>
#include <QWheelEvent>

#include <xcb/xcb.h>

namespace vell {

namespace {
// QXcbWindow's private window-type bit for _NET_WM_WINDOW_TYPE_DOCK. Qt reads it from this
// dynamic property whenever the window's flags are applied.
constexpr int kXcbDockWindowType = 0x000004;
} // namespace

ShelfPanel::ShelfPanel(const QString& title) {
    setTitle(title);
    setProperty("_q_xcb_wm_window_type", kXcbDockWindowType);
    setFlags(Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::NoDropShadowWindowHint);
    setColor(Qt::transparent);
    QSurfaceFormat surface = format();
    surface.setAlphaBufferSize(8);
    setFormat(surface);
}

void ShelfPanel::setFloating(bool floating) {
    if (flags().testFlag(Qt::WindowStaysOnTopHint) != floating)
        setFlag(Qt::WindowStaysOnTopHint, floating);
}

void ShelfPanel::setOutline(const QRectF& rect, double radius) {
    const QPainterPath path = VellBackground::outlinePath(rect, radius);
    QRegion region(path.toFillPolygon().toPolygon());
    if (region == m_outline)
        return;
    m_outline = region;
    setMask(region);
}

void ShelfPanel::takeKey() {
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (x11 && !isActive()) {
        xcb_get_input_focus_reply_t* focus =
            xcb_get_input_focus_reply(x11->connection(), xcb_get_input_focus(x11->connection()), nullptr);
        // PointerRoot (1) and None (0) are no window to go back to.
        m_previousFocus = focus && focus->focus > XCB_INPUT_FOCUS_POINTER_ROOT ? focus->focus : 0;
        free(focus);
    }
    requestActivate();
}

void ShelfPanel::focusOutEvent(QFocusEvent* event) {
    // The keyboard went somewhere by the person's own doing: that is where it stays.
    m_previousFocus = 0;
    QQuickWindow::focusOutEvent(event);
}

void ShelfPanel::resignKey() {
    if (!isActive()) {
        m_previousFocus = 0;
        return;
    }
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11)
        return;
    xcb_connection_t* connection = x11->connection();
    const xcb_window_t previous = std::exchange(m_previousFocus, 0);
    // The window that had the keyboard gets it back, through the window manager so that it is
    // raised and marked active as well; without one, the keyboard follows the pointer.
    xcb_get_window_attributes_reply_t* attributes =
        previous ? xcb_get_window_attributes_reply(connection,
                                                   xcb_get_window_attributes(connection, previous), nullptr)
                 : nullptr;
    if (attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE) {
        xcb_intern_atom_reply_t* atom = xcb_intern_atom_reply(
            connection, xcb_intern_atom(connection, false, 18, "_NET_ACTIVE_WINDOW"), nullptr);
        xcb_client_message_event_t message{};
        message.response_type = XCB_CLIENT_MESSAGE;
        message.format = 32;
        message.window = previous;
        message.type = atom ? atom->atom : xcb_atom_t(XCB_ATOM_NONE);
        message.data.data32[0] = 2; // a request on the user's behalf
        message.data.data32[1] = XCB_CURRENT_TIME;
        message.data.data32[2] = static_cast<uint32_t>(winId());
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
        xcb_send_event(connection, false, root,
                       XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                       reinterpret_cast<const char*>(&message));
        // Without a window manager to hear it, the keyboard goes there directly.
        xcb_set_input_focus(connection, XCB_INPUT_FOCUS_PARENT, previous, XCB_CURRENT_TIME);
        free(atom);
    } else {
        xcb_set_input_focus(connection, XCB_INPUT_FOCUS_POINTER_ROOT, XCB_INPUT_FOCUS_POINTER_ROOT,
                            XCB_CURRENT_TIME);
    }
    free(attributes);
    xcb_flush(connection);
}

bool ShelfPanel::event(QEvent* event) {
    switch (event->type()) {
    case QEvent::Enter:
        emit hoverChanged(true);
        break;
    case QEvent::Leave:
        emit hoverChanged(false);
        break;
    default:
        break;
    }
    return QQuickWindow::event(event);
}

void ShelfPanel::wheelEvent(QWheelEvent* event) {
    if (event->position().y() < scrollStripHeight) {
        // A touchpad reports pixels; a wheel reports eighths of a degree, 15 degrees a notch,
        // so one notch is a clear gesture past the 12-point threshold.
        const double delta =
            !event->pixelDelta().isNull() ? event->pixelDelta().y() : event->angleDelta().y() / 8.0;
        emit scrolled(delta);
        event->accept();
        return;
    }
    QQuickWindow::wheelEvent(event);
}

void ShelfPanel::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        emit escapePressed();
        event->accept();
        return;
    }
    if (event->matches(QKeySequence::Quit) ||
        (event->key() == Qt::Key_Q && event->modifiers() == Qt::ControlModifier)) {
        emit quitRequested();
        event->accept();
        return;
    }
    if (event->key() == Qt::Key_N && event->modifiers() == (Qt::ControlModifier | Qt::ShiftModifier)) {
        emit openHereRequested();
        event->accept();
        return;
    }
    QQuickWindow::keyPressEvent(event);
}

} // namespace vell
