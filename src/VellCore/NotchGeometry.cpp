#include "VellCore/NotchGeometry.h"

#include <algorithm>

namespace vell {

NotchGeometry NotchGeometry::forScreen(const ScreenReading& screen) {
    NotchGeometry geometry;
    geometry.screenFrame = screen.frame;

    if (screen.safeTop > 0) {
        geometry.hasNotch = true;
        geometry.height = screen.safeTop;
        if (screen.auxiliaryTopLeftArea && screen.auxiliaryTopRightArea) {
            geometry.width = screen.frame.width() - screen.auxiliaryTopLeftArea->width() -
                             screen.auxiliaryTopRightArea->width();
        } else {
            geometry.width = fallbackNotchedWidth;
        }
        return geometry;
    }

    // y grows downwards, so the space the desktop keeps at the top is the distance between
    // the two top edges.
    const double menuBar = screen.visibleFrame.top() - screen.frame.top();
    geometry.hasNotch = false;
    geometry.width = drawnWidth;
    geometry.height =
        menuBar > drawnMaximumHeight ? drawnMaximumHeight : std::max(menuBar, drawnMinimumHeight);
    return geometry;
}

} // namespace vell
