#pragma once

#include "VellCore/ShelfLayout.h"

#include <QPointF>
#include <QRectF>

#include <optional>

namespace vell {

// Where a panel stands on its screen, closed or open, and when a pointer still counts as
// over it. Lengths are logical pixels with y growing downwards; a panel hangs from the top
// edge of its screen.
class ShelfGeometry final {
public:
    ShelfGeometry() = delete;

    static constexpr double sideMargin = 12;
    static constexpr double bottomMargin = 24;
    static constexpr double closedMinimumWidth = 210;
    static constexpr double closedMinimumHeight = 28;
    static constexpr double closedBelowNotch = 8;
    static constexpr double hoverSlop = 2;

    static double expandedTopInset(const QRectF& screen, const QRectF& visibleFrame, double safeTop,
                                   double menuBarHeight);

    static ShelfLayout layout(const QRectF& screen, double safeTop, double notchWidth, bool expanded,
                              double openWidth, double openHeight, double wingWidth,
                              const std::optional<QRectF>& visibleFrame = std::nullopt,
                              double menuBarHeight = 0);

    static bool keepsHoverOpen(bool reportedInside, const QPointF& pointer, const QRectF& expandedFrame,
                               const QRectF& closedHandle);
};

} // namespace vell
