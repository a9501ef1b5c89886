#pragma once

#include <QColor>
#include <QImage>

#include <optional>

namespace vell {

// The artwork's average colour, for the panel's tint: the image drawn into 12 x 12 pixels, and
// the mean of those that are not nearly transparent (alpha at least 26 of 255).
class MediaArtworkColor final {
public:
    static std::optional<QColor> tint(const QImage& artwork);
};

} // namespace vell
