#pragma once

#include "VellCore/NotchGeometry.h"

#include <QString>

class QScreen;

namespace vell {

// How a screen is named: `id` names a live panel (the connector, e.g. "DP-1"), while
// `appearanceID` survives reboots and reconnections and names everything saved per display.
class DisplayIdentity final {
public:
    DisplayIdentity() = delete;

    static QString id(const QScreen* screen);
    static QString name(const QScreen* screen);
    static QString appearanceID(const QScreen* screen);
    // The same derivation from EDID fields, for screens known only by their readings.
    static QString appearanceID(const QString& id, const QString& manufacturer, const QString& model,
                                const QString& serialNumber);

    // The space the desktop reserves at the top: what a menu bar is on other systems.
    static double menuBarHeight(const QScreen* screen);
    static NotchGeometry::ScreenReading reading(const QScreen* screen);
};

} // namespace vell
