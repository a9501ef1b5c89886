#include "OstaVell/Support/DisplayIdentity.h"

#include <QScreen>
#include <QUuid>

namespace vell {

namespace {
// Fixed forever: changing it would orphan every saved per-display appearance and tab.
const QUuid kAppearanceNamespace(QStringLiteral("{5b0e7c52-3c1f-4d8e-9a57-0c1f6e2d4a11}"));
} // namespace

QString DisplayIdentity::id(const QScreen* screen) {
    return screen->name();
}

QString DisplayIdentity::name(const QScreen* screen) {
    const QString model = screen->model().trimmed();
    const QString manufacturer = screen->manufacturer().trimmed();
    if (model.isEmpty())
        return screen->name();
    if (manufacturer.isEmpty() || model.startsWith(manufacturer, Qt::CaseInsensitive))
        return model;
    return manufacturer + QLatin1Char(' ') + model;
}

QString DisplayIdentity::appearanceID(const QScreen* screen) {
    return appearanceID(id(screen), screen->manufacturer(), screen->model(), screen->serialNumber());
}

QString DisplayIdentity::appearanceID(const QString& id, const QString& manufacturer, const QString& model,
                                      const QString& serialNumber) {
    if (manufacturer.isEmpty() && model.isEmpty() && serialNumber.isEmpty())
        return QStringLiteral("display-") + id;
    // A unit separator keeps ("AB","C") and ("A","BC") apart.
    const QString key = manufacturer + QChar(0x1f) + model + QChar(0x1f) + serialNumber;
    return QUuid::createUuidV5(kAppearanceNamespace, key.toUtf8()).toString(QUuid::WithoutBraces).toUpper();
}

double DisplayIdentity::menuBarHeight(const QScreen* screen) {
    return std::max(0, screen->availableGeometry().top() - screen->geometry().top());
}

NotchGeometry::ScreenReading DisplayIdentity::reading(const QScreen* screen) {
    NotchGeometry::ScreenReading reading;
    reading.frame = QRectF(screen->geometry());
    reading.visibleFrame = QRectF(screen->availableGeometry());
    // No Linux screen reports a camera housing: every panel stands around a drawn notch.
    reading.safeTop = 0;
    return reading;
}

} // namespace vell
