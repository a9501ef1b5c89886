#include "OstaVell/Support/VellBackground.h"

#include "OstaVell/Support/ColorHex.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

namespace vell {

namespace {
QString text(const QVariantMap& map, const char* key, const char* fallback) {
    return map.value(QLatin1String(key), QLatin1String(fallback)).toString();
}

double number(const QVariantMap& map, const char* key, double fallback) {
    return map.value(QLatin1String(key), fallback).toDouble();
}
} // namespace

VellBackground::VellBackground(QQuickItem* parent)
    : QQuickPaintedItem(parent) {
    setAntialiasing(true);
}

void VellBackground::setAppearance(const QVariantMap& appearance) {
    if (m_appearance == appearance)
        return;
    m_appearance = appearance;
    emit appearanceChanged();
    update();
}

void VellBackground::setRadius(double radius) {
    if (qFuzzyCompare(m_radius, radius))
        return;
    m_radius = radius;
    emit radiusChanged();
    update();
}

void VellBackground::setReduceTransparency(bool reduce) {
    if (m_reduceTransparency == reduce)
        return;
    m_reduceTransparency = reduce;
    emit reduceTransparencyChanged();
    update();
}

void VellBackground::setArtworkTint(const QColor& tint) {
    if (m_artworkTint == tint)
        return;
    m_artworkTint = tint;
    emit artworkTintChanged();
    update();
}

QPainterPath VellBackground::outlinePath(const QRectF& rect, double radius) {
    const double r = std::clamp(radius, 0.0, std::min(rect.width(), rect.height()) / 2);
    QPainterPath path;
    path.moveTo(rect.topLeft());
    path.lineTo(rect.topRight());
    path.arcTo(QRectF(rect.right() - 2 * r, rect.bottom() - 2 * r, 2 * r, 2 * r), 0, -90);
    path.arcTo(QRectF(rect.left(), rect.bottom() - 2 * r, 2 * r, 2 * r), 270, -90);
    path.closeSubpath();
    return path;
}

std::pair<QPointF, QPointF> VellBackground::gradientEnds(const QRectF& rect, const QString& direction) {
    if (direction == QLatin1String("horizontal"))
        return {QPointF(rect.left(), rect.center().y()), QPointF(rect.right(), rect.center().y())};
    if (direction == QLatin1String("diagonal"))
        return {rect.topLeft(), rect.bottomRight()};
    return {QPointF(rect.center().x(), rect.top()), QPointF(rect.center().x(), rect.bottom())};
}

std::pair<double, double> VellBackground::maskOpacities(const QVariantMap& appearance,
                                                        bool reduceTransparency) {
    if (reduceTransparency)
        return {1, 1};
    const double opacity = number(appearance, "opacity", 1);
    const bool fades = appearance.value(QStringLiteral("fades"), false).toBool();
    const double start = opacity * (fades ? number(appearance, "startOpacity", 1) : 1);
    const double end = opacity * (fades ? number(appearance, "endOpacity", 0) : 1);
    return {start, end};
}

void VellBackground::paint(QPainter* painter) {
    const QRectF rect = boundingRect();
    if (rect.isEmpty())
        return;
    const QString style = text(m_appearance, "backgroundStyle", "black");
    const auto [from, to] = gradientEnds(rect, text(m_appearance, "direction", "vertical"));

    // Paint into a layer of our own so the mask multiplies the fill alone.
    QImage layer(rect.size().toSize() * painter->device()->devicePixelRatioF(),
                 QImage::Format_ARGB32_Premultiplied);
    layer.setDevicePixelRatio(painter->device()->devicePixelRatioF());
    layer.fill(Qt::transparent);
    QPainter fill(&layer);
    fill.setRenderHint(QPainter::Antialiasing);
    const QPainterPath path = outlinePath(QRectF(QPointF(0, 0), rect.size()), m_radius);
    if (style == QLatin1String("solid")) {
        fill.fillPath(path, colorFromHex(text(m_appearance, "startHex", "#101018")));
    } else if (style == QLatin1String("gradient")) {
        QLinearGradient gradient(from, to);
        gradient.setColorAt(0, colorFromHex(text(m_appearance, "startHex", "#101018")));
        gradient.setColorAt(1, colorFromHex(text(m_appearance, "endHex", "#000000")));
        fill.fillPath(path, gradient);
    } else if (style == QLatin1String("artwork")) {
        fill.fillPath(path, Qt::black);
        QColor tint = m_artworkTint;
        tint.setAlphaF(0.13);
        fill.fillPath(path, tint);
    } else {
        fill.fillPath(path, Qt::black);
    }

    const auto [startOpacity, endOpacity] = maskOpacities(m_appearance, m_reduceTransparency);
    if (startOpacity < 1 || endOpacity < 1) {
        QLinearGradient mask(from, to);
        mask.setColorAt(0, QColor::fromRgbF(1, 1, 1, std::clamp(startOpacity, 0.0, 1.0)));
        mask.setColorAt(1, QColor::fromRgbF(1, 1, 1, std::clamp(endOpacity, 0.0, 1.0)));
        fill.setCompositionMode(QPainter::CompositionMode_DestinationIn);
        fill.fillRect(QRectF(QPointF(0, 0), rect.size()), mask);
    }
    fill.end();
    painter->drawImage(QPointF(0, 0), layer);
}

} // namespace vell
