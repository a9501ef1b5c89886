#pragma once

#include <QColor>
#include <QQuickPaintedItem>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

class QPainterPath;

namespace vell {

// The panel's fill: black, a flat colour, a gradient or the artwork tint, inside an outline
// rounded at the bottom, with a second gradient applied as an opacity mask so the fill can
// fade while the content on top of it doesn't.
// Not final: the QML engine derives from every type it creates.
class VellBackground : public QQuickPaintedItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QVariantMap appearance READ appearance WRITE setAppearance NOTIFY appearanceChanged)
    Q_PROPERTY(double radius READ radius WRITE setRadius NOTIFY radiusChanged)
    Q_PROPERTY(bool reduceTransparency READ reduceTransparency WRITE setReduceTransparency NOTIFY
                   reduceTransparencyChanged)
    Q_PROPERTY(QColor artworkTint READ artworkTint WRITE setArtworkTint NOTIFY artworkTintChanged)
    Q_DISABLE_COPY_MOVE(VellBackground)

public:
    explicit VellBackground(QQuickItem* parent = nullptr);

    QVariantMap appearance() const { return m_appearance; }
    void setAppearance(const QVariantMap& appearance);
    double radius() const { return m_radius; }
    void setRadius(double radius);
    bool reduceTransparency() const { return m_reduceTransparency; }
    void setReduceTransparency(bool reduce);
    QColor artworkTint() const { return m_artworkTint; }
    void setArtworkTint(const QColor& tint);

    void paint(QPainter* painter) override;

    // The outline every panel is clipped to: square at the top, rounded at the bottom.
    static QPainterPath outlinePath(const QRectF& rect, double radius);
    // The two ends of the gradients for "vertical", "horizontal" and "diagonal".
    static std::pair<QPointF, QPointF> gradientEnds(const QRectF& rect, const QString& direction);
    // Opacity at the start and end of the mask.
    static std::pair<double, double> maskOpacities(const QVariantMap& appearance, bool reduceTransparency);

signals:
    void appearanceChanged();
    void radiusChanged();
    void reduceTransparencyChanged();
    void artworkTintChanged();

private:
    QVariantMap m_appearance;
    double m_radius = 0;
    bool m_reduceTransparency = false;
    QColor m_artworkTint = Qt::black;
};

} // namespace vell
