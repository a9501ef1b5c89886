#include "OstaVell/Support/Logging.h"

Q_LOGGING_CATEGORY(lcApp, "OstaVell", QtInfoMsg)
Q_LOGGING_CATEGORY(lcShelf, "OstaVell Shelf", QtInfoMsg)
Q_LOGGING_CATEGORY(lcHotKey, "OstaVell Hot Key", QtInfoMsg)

namespace vell {

void installLogPattern() {
    qSetMessagePattern(QStringLiteral("%{if-category}%{category}: %{endif}%{message}"));
}

} // namespace vell
