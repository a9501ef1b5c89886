#include "OstaVell/Support/VellBorderGlow.h"

#include "OstaVell/Support/VellBackground.h"

#include <QPainter>
#include <QPainterPath>

namespace vell {

VellBorderGlow::VellBorderGlow(QQuickItem* parent)
    : QQuickPaintedItem(parent) {
    setAntialiasing(true);
}

void VellBorderGlow::setColor(const QColor& color) {
    if (m_color == color)
        return;
    m_color = color;
    emit colorChanged();
    update();
}

void VellBorderGlow::setRadius(double radius) {
    if (qFuzzyCompare(m_radius, radius))
        return;
    m_radius = radius;
    emit radiusChanged();
    update();
}

void VellBorderGlow::paint(QPainter* painter) {
    const QRectF rect = boundingRect();
    if (rect.isEmpty())
        return;
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setClipPath(VellBackground::outlinePath(rect, m_radius));
    // Wide faint strokes under narrow bright ones read as a blur along the inside edge.
    const struct {
        double width;
        double alpha;
    } passes[] = {{14, 0.06}, {9, 0.09}, {5, 0.14}, {2, 0.45}};
    for (const auto& pass : passes) {
        QColor color = m_color;
        color.setAlphaF(pass.alpha);
        painter->strokePath(VellBackground::outlinePath(rect, m_radius), QPen(color, pass.width));
    }
}

} // namespace vell
