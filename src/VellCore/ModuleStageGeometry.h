#pragma once

#include <QSizeF>

namespace vell {

// Sizes the open panel around the 16:9 workspace stage: the stage takes what the chrome
// leaves, keeping its aspect, and the panel follows it.
class ModuleStageGeometry final {
public:
    ModuleStageGeometry() = delete;

    static constexpr double ratio = 16.0 / 9.0;
    static constexpr double railWidth = 156;
    static constexpr double collapsedRailWidth = 24;
    static constexpr double gap = 12;
    static constexpr double horizontalChrome = 72;
    static constexpr double statusHeight = 30;
    static constexpr double verticalChrome = 100;
    static constexpr double minimumPreferredWidth = 900;

    static QSizeF size(const QSizeF& screen, double safeTop, double preferredWidth);
};

} // namespace vell
