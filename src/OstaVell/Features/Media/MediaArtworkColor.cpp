#include "OstaVell/Features/Media/MediaArtworkColor.h"

#include <QPainter>

namespace vell {

std::optional<QColor> MediaArtworkColor::tint(const QImage& artwork) {
    if (artwork.isNull())
        return std::nullopt;
    QImage small(12, 12, QImage::Format_RGBA8888);
    small.fill(Qt::transparent);
    {
        QPainter painter(&small);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(QRect(0, 0, 12, 12), artwork);
    }
    quint64 red = 0;
    quint64 green = 0;
    quint64 blue = 0;
    quint64 count = 0;
    for (int y = 0; y < 12; ++y) {
        const uchar* row = small.constScanLine(y);
        for (int x = 0; x < 12; ++x) {
            const uchar* pixel = row + x * 4;
            if (pixel[3] < 26)
                continue;
            red += pixel[0];
            green += pixel[1];
            blue += pixel[2];
            ++count;
        }
    }
    if (count == 0)
        return std::nullopt;
    return QColor::fromRgbF(float(red) / count / 255, float(green) / count / 255, float(blue) / count / 255);
}

} // namespace vell
