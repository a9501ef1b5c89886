#pragma once

#include <QLoggingCategory>

// "OstaVell Timers: ..." on standard error.
Q_DECLARE_LOGGING_CATEGORY(lcTimers)
