#include "OstaVell/Support/ColorHex.h"

#include <QStringView>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace vell {

namespace {

int hexDigit(QChar c) {
    const char16_t u = c.unicode();
    if (u >= u'0' && u <= u'9')
        return u - u'0';
    if (u >= u'a' && u <= u'f')
        return u - u'a' + 10;
    if (u >= u'A' && u <= u'F')
        return u - u'A' + 10;
    return -1;
}

// Reads leading hex digits after an optional "0x"; stops at the first other character and
// saturates on overflow.
std::uint64_t scanHex(QStringView text) {
    if (text.size() > 2 && text[0] == u'0' && (text[1] == u'x' || text[1] == u'X') && hexDigit(text[2]) >= 0)
        text = text.mid(2);
    std::uint64_t value = 0;
    for (const QChar c : text) {
        const int digit = hexDigit(c);
        if (digit < 0)
            break;
        if (value > (std::numeric_limits<std::uint64_t>::max() >> 4))
            return std::numeric_limits<std::uint64_t>::max();
        value = (value << 4) | std::uint64_t(digit);
    }
    return value;
}

} // namespace

QColor colorFromHex(const QString& hex) {
    qsizetype begin = 0;
    qsizetype end = hex.size();
    while (begin < end && !hex.at(begin).isLetterOrNumber())
        ++begin;
    while (end > begin && !hex.at(end - 1).isLetterOrNumber())
        --end;
    const std::uint64_t value = scanHex(QStringView(hex).sliced(begin, end - begin));
    return QColor::fromRgbF(float((value >> 16) & 0xFF) / 255.0f, float((value >> 8) & 0xFF) / 255.0f,
                            float(value & 0xFF) / 255.0f, 1.0f);
}

QString hexString(const QColor& color) {
    const QColor rgb = color.isValid() ? color.toRgb() : QColor(Qt::black);
    auto component = [](float c) { return int(std::lround(std::clamp(double(c), 0.0, 1.0) * 255)); };
    return QString::asprintf("#%02X%02X%02X", component(rgb.redF()), component(rgb.greenF()),
                             component(rgb.blueF()));
}

} // namespace vell
