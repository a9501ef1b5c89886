#include "VellCore/ModuleStageGeometry.h"

#include "VellCore/ShelfGeometry.h"

#include <algorithm>

namespace vell {

QSizeF ModuleStageGeometry::size(const QSizeF& screen, double safeTop, double preferredWidth) {
    const double maxWidth = std::min(std::max(preferredWidth, minimumPreferredWidth),
                                     std::max(screen.width() - 2 * ShelfGeometry::sideMargin, 1.0));
    const double usableHeight = screen.height() - ShelfGeometry::bottomMargin - std::max(safeTop, 0.0);
    const double stageHeight = std::max(usableHeight - verticalChrome, 1.0);
    const double stageWidth = std::min(std::max(maxWidth - horizontalChrome, 1.0), stageHeight * ratio);
    return QSizeF(std::min(stageWidth + horizontalChrome, maxWidth),
                  std::min(stageWidth / ratio + verticalChrome, std::max(usableHeight, 1.0)));
}

} // namespace vell
