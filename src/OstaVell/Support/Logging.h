#pragma once

#include <QLoggingCategory>

// One category per subsystem. The category's name is the prefix a log line carries, so the
// message pattern set in main() prints "OstaVell Shelf: ..." and journald keeps it as is.
Q_DECLARE_LOGGING_CATEGORY(lcApp)
Q_DECLARE_LOGGING_CATEGORY(lcShelf)
Q_DECLARE_LOGGING_CATEGORY(lcHotKey)

namespace vell {
// The one pattern for every line this process writes to standard error.
void installLogPattern();
} // namespace vell
