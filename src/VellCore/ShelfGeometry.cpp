#include "VellCore/ShelfGeometry.h"

#include <algorithm>

namespace vell {

namespace {

// Half-open like a pixel grid: the left and top edges belong to a rectangle, the right and
// bottom edges to its neighbour, so two panels that touch never both claim the pointer.
// QRectF::contains would count all four edges in.
bool containsPoint(const QRectF& rect, const QPointF& point) {
    return point.x() >= rect.left() && point.x() < rect.right() && point.y() >= rect.top() &&
           point.y() < rect.bottom();
}

} // namespace

double ShelfGeometry::expandedTopInset(const QRectF& screen, const QRectF& visibleFrame, double safeTop,
                                       double menuBarHeight) {
    const double screenHeight = std::max(screen.height(), 0.0);
    const double reserved = visibleFrame.top() - screen.top();
    return std::min(std::max({0.0, safeTop, reserved, menuBarHeight}), screenHeight);
}

ShelfLayout ShelfGeometry::layout(const QRectF& screen, double safeTop, double notchWidth, bool expanded,
                                  double openWidth, double openHeight, double wingWidth,
                                  const std::optional<QRectF>& visibleFrame, double menuBarHeight) {
    double inset = 0;
    double width = 0;
    double height = 0;
    if (expanded) {
        inset = expandedTopInset(screen, visibleFrame.value_or(screen), safeTop, menuBarHeight);
        width = openWidth;
        height = openHeight + inset;
    } else {
        inset = std::max(safeTop, 0.0);
        width = std::max(notchWidth + 2 * wingWidth, closedMinimumWidth);
        height = std::max(inset + closedBelowNotch, closedMinimumHeight);
    }

    // The clamps keep a panel on any screen, however small, and never below one pixel.
    height = std::min(height, std::max(screen.height() - bottomMargin, 1.0));
    const double contentTopInset = expanded ? std::min(height, inset) : 0;
    width = std::min(width, std::max(screen.width() - 2 * sideMargin, 1.0));

    ShelfLayout result;
    result.frame = QRectF(screen.center().x() - width / 2, screen.top(), width, height);
    result.contentTopInset = contentTopInset;
    return result;
}

bool ShelfGeometry::keepsHoverOpen(bool reportedInside, const QPointF& pointer, const QRectF& expandedFrame,
                                   const QRectF& closedHandle) {
    if (reportedInside || containsPoint(expandedFrame, pointer))
        return true;
    const QRectF grownHandle = closedHandle.adjusted(-hoverSlop, -hoverSlop, hoverSlop, hoverSlop);
    return containsPoint(grownHandle, pointer);
}

} // namespace vell
