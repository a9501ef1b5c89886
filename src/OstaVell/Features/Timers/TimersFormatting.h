#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

namespace vell {

// How the timers write a number of seconds: as a clock that counts down, as a stopwatch, and
// in words for a banner. Pure functions; the QML singleton only lends them to the views.
class TimersFormatting final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

public:
    explicit TimersFormatting(QObject* parent = nullptr)
        : QObject(parent) {}

    // Whole seconds rounded up, so "00:01" stays until the very end: "04:59", "1:02:03".
    Q_INVOKABLE static QString countdown(double seconds);
    // Hundredths rounded down: "00:04.25", "1:00:00.00".
    Q_INVOKABLE static QString stopwatch(double seconds);
    // The nearest second in words: "5 min 30 sec", "1 hr 5 min" (no seconds past an hour), "0 sec".
    Q_INVOKABLE static QString spoken(double seconds);
};

} // namespace vell
