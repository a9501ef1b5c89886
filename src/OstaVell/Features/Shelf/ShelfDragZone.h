#pragma once

#include "VellCore/NotchGeometry.h"

#include <QList>
#include <QPointF>
#include <QRectF>

namespace vell {

// Where a drag of content counts as "near the notch": the notch of each screen, centred at its
// top, grown by 100 to each side and 24 downwards.
class ShelfDragZone final {
public:
    ShelfDragZone() = delete;

    static constexpr double sideGrowth = 100;
    static constexpr double downGrowth = 24;
    // Without auxiliary areas to measure: a screen with a camera housing, one without.
    static constexpr double notchedWidth = 196;
    static constexpr double plainWidth = 200;

    static QRectF forScreen(const NotchGeometry::ScreenReading& screen);
    static bool contains(const QList<NotchGeometry::ScreenReading>& screens, const QPointF& point);
};

} // namespace vell
