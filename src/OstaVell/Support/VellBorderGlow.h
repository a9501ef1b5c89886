#pragma once

#include <QColor>
#include <QQuickPaintedItem>
#include <QtQml/qqmlregistration.h>

namespace vell {

// A soft stroke in the accent colour along the open panel's edge.
// Not final: the QML engine derives from every type it creates.
class VellBorderGlow : public QQuickPaintedItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QColor color READ color WRITE setColor NOTIFY colorChanged)
    Q_PROPERTY(double radius READ radius WRITE setRadius NOTIFY radiusChanged)
    Q_DISABLE_COPY_MOVE(VellBorderGlow)

public:
    explicit VellBorderGlow(QQuickItem* parent = nullptr);

    QColor color() const { return m_color; }
    void setColor(const QColor& color);
    double radius() const { return m_radius; }
    void setRadius(double radius);

    void paint(QPainter* painter) override;

signals:
    void colorChanged();
    void radiusChanged();

private:
    QColor m_color;
    double m_radius = 0;
};

} // namespace vell
