#pragma once

#include <QRectF>

#include <optional>

namespace vell {

// The notch a panel stands around: the physical one when the screen has it, otherwise a
// drawn one that follows the height of the desktop's top bar.
struct NotchGeometry final {
    // What a caller reads from its screen. Kept free of QtGui so the arithmetic can be
    // tested and reused without a display.
    struct ScreenReading final {
        QRectF frame;
        QRectF visibleFrame;
        double safeTop = 0;
        std::optional<QRectF> auxiliaryTopLeftArea;
        std::optional<QRectF> auxiliaryTopRightArea;
    };

    static constexpr double drawnWidth = 196;
    static constexpr double fallbackNotchedWidth = 200;
    static constexpr double drawnMinimumHeight = 24;
    static constexpr double drawnMaximumHeight = 38;

    QRectF screenFrame;
    double width = 0;
    double height = 0;
    bool hasNotch = false;

    static NotchGeometry forScreen(const ScreenReading& screen);

    friend bool operator==(const NotchGeometry&, const NotchGeometry&) = default;
};

} // namespace vell
