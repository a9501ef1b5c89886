#include "OstaVell/Features/Shelf/ShelfDragZone.h"

namespace vell {

QRectF ShelfDragZone::forScreen(const NotchGeometry::ScreenReading& screen) {
    // The height is the notch's own; the width is measured differently from the panel's
    // notch: without auxiliary areas a screen without a notch gets the wider guess.
    const NotchGeometry notch = NotchGeometry::forScreen(screen);
    double width = screen.safeTop > 0 ? notchedWidth : plainWidth;
    if (screen.auxiliaryTopLeftArea && screen.auxiliaryTopRightArea) {
        const double between = screen.frame.width() - screen.auxiliaryTopLeftArea->width() -
                               screen.auxiliaryTopRightArea->width();
        if (between > 0)
            width = between;
    }
    const QRectF frame = screen.frame;
    const QRectF notchRect(frame.center().x() - width / 2, frame.top(), width, notch.height);
    return notchRect.adjusted(-sideGrowth, 0, sideGrowth, downGrowth);
}

bool ShelfDragZone::contains(const QList<NotchGeometry::ScreenReading>& screens, const QPointF& point) {
    for (const NotchGeometry::ScreenReading& screen : screens)
        if (forScreen(screen).contains(point))
            return true;
    return false;
}

} // namespace vell
