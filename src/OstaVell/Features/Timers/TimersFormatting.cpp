#include "OstaVell/Features/Timers/TimersFormatting.h"

#include <QStringList>

#include <cmath>

namespace vell {

namespace {

// Far beyond any timer, and well inside what a long long holds once multiplied by 100.
constexpr double kLongest = 1e12;

double usable(double seconds) {
    if (!std::isfinite(seconds) || seconds < 0)
        return 0;
    return std::min(seconds, kLongest);
}

QString twoDigits(long long value) {
    return QStringLiteral("%1").arg(value, 2, 10, QLatin1Char('0'));
}

} // namespace

QString TimersFormatting::countdown(double seconds) {
    const long long whole = static_cast<long long>(std::ceil(usable(seconds)));
    const long long hours = whole / 3600;
    const QString minutesAndSeconds = twoDigits(whole / 60 % 60) + u':' + twoDigits(whole % 60);
    if (hours == 0)
        return minutesAndSeconds;
    return QString::number(hours) + u':' + minutesAndSeconds;
}

QString TimersFormatting::stopwatch(double seconds) {
    // A hair above the exact product, so that 0.29 s, which is 28.999... hundredths in binary,
    // reads as the 29 it was.
    const long long hundredths = static_cast<long long>(std::floor(usable(seconds) * 100 + 1e-7));
    const long long whole = hundredths / 100;
    const QString tail =
        twoDigits(whole / 60 % 60) + u':' + twoDigits(whole % 60) + u'.' + twoDigits(hundredths % 100);
    if (hundredths < 360000)
        return tail;
    return QString::number(whole / 3600) + u':' + tail;
}

QString TimersFormatting::spoken(double seconds) {
    const long long whole = std::llround(usable(seconds));
    const long long hours = whole / 3600;
    const long long minutes = whole / 60 % 60;
    QStringList parts;
    if (hours > 0) {
        parts.append(QString::number(hours) + QStringLiteral(" hr"));
        if (minutes > 0)
            parts.append(QString::number(minutes) + QStringLiteral(" min"));
    } else {
        if (minutes > 0)
            parts.append(QString::number(minutes) + QStringLiteral(" min"));
        if (whole % 60 > 0)
            parts.append(QString::number(whole % 60) + QStringLiteral(" sec"));
    }
    return parts.isEmpty() ? QStringLiteral("0 sec") : parts.join(u' ');
}

} // namespace vell
