#pragma once

#include <QQuickWindow>

namespace vell {

// The borderless window of one display's panel. It reports what the panel needs as plain
// signals (pointer in and out, a scroll in its top strip, Escape) and keeps its input and
// drawing shape to the panel's outline, so clicks beside the notch reach the windows below.
class ShelfPanel final : public QQuickWindow {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ShelfPanel)

public:
    // The scroll strip at the top of the panel, in logical pixels.
    static constexpr double scrollStripHeight = 38;

    explicit ShelfPanel(const QString& title);

    // Closed panels float above other windows; an open one sits at the normal level.
    void setFloating(bool floating);
    // The visible outline inside the window: a rectangle rounded at its two bottom corners.
    void setOutline(const QRectF& rect, double radius);
    // Gives the keyboard back: the focus follows the pointer to whatever lies under it.
    // Takes the keyboard, remembering the window that had it.
    void takeKey();
    // Gives the keyboard back to the window that had it before takeKey, when it still exists.
    void resignKey();

signals:
    void hoverChanged(bool inside);
    void scrolled(double delta);
    void escapePressed();
    void openHereRequested();
    void quitRequested();

protected:
    bool event(QEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    QRegion m_outline;
    // The X window that had the keyboard when this panel took it; 0 for none.
    quint32 m_previousFocus = 0;
};

} // namespace vell
