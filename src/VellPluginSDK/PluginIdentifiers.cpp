#include "VellPluginSDK/PluginIdentifiers.h"

#include <QRegularExpression>

namespace vell::PluginIdentifiers {

namespace {

// \z rather than $: a trailing newline must not pass as part of an identifier.
const QRegularExpression& namePattern() {
    static const QRegularExpression pattern(QStringLiteral("\\A[A-Za-z][A-Za-z0-9_]{0,63}\\z"));
    return pattern;
}

const QRegularExpression& peerPattern() {
    static const QRegularExpression pattern(QStringLiteral("\\A[a-z][a-z0-9]*(\\.[a-z][a-z0-9-]*)+\\z"));
    return pattern;
}

} // namespace

bool isName(QStringView text) {
    return namePattern().match(text).hasMatch();
}

bool isPeer(QStringView text) {
    return peerPattern().match(text).hasMatch();
}

} // namespace vell::PluginIdentifiers
