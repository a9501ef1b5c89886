#pragma once

#include <QColor>
#include <QString>

namespace vell {

// Colours as the settings store them. Parsing is lenient on purpose: whatever surrounds the
// digits is trimmed and the digits are read as one number, so "#FFF" is 0x000FFF rather
// than white, and text without digits is black.
QColor colorFromHex(const QString& hex);
QString hexString(const QColor& color);

} // namespace vell
