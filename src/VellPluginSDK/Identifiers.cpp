#include "VellPluginSDK/Identifiers.h"

#include <QRegularExpression>

namespace vell::Identifiers {

// anchoredPattern rather than "^...$": a plain "$" would let a trailing newline through into
// an id or a key.

bool isKey(QStringView text) {
    static const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(QStringLiteral("[A-Za-z][A-Za-z0-9_]{0,63}")));
    return pattern.match(text).hasMatch();
}

bool isID(QStringView text) {
    static const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(QStringLiteral(R"([a-z][a-z0-9]*(\.[a-z][a-z0-9-]*)+)")));
    return pattern.match(text).hasMatch();
}

} // namespace vell::Identifiers
