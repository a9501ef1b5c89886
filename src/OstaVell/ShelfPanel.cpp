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

void ShelfPanel::resignKey() {
    if (!isActive())
        return;
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11)
        return;
    xcb_set_input_focus(x11->connection(), XCB_INPUT_FOCUS_POINTER_ROOT, XCB_INPUT_FOCUS_POINTER_ROOT,
                        XCB_CURRENT_TIME);
    xcb_flush(x11->connection());
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
