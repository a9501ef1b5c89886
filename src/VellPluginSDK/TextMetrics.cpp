#include "VellPluginSDK/TextMetrics.h"

#include <QTextBoundaryFinder>

namespace vell::TextMetrics {

namespace {

// Position after the first count clusters, or -1 when text has fewer than count of them.
qsizetype positionAfter(QStringView text, int count) {
    if (count <= 0)
        return 0;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text.data(), text.size());
    int seen = 0;
    for (qsizetype at = finder.toNextBoundary(); at != -1; at = finder.toNextBoundary()) {
        if (++seen == count)
            return at;
    }
    return -1;
}

} // namespace

int characterCount(QStringView text) {
    if (text.isEmpty())
        return 0;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text.data(), text.size());
    int count = 0;
    while (finder.toNextBoundary() != -1)
        ++count;
    return count;
}

qsizetype utf8Size(QStringView text) {
    qsizetype bytes = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t unit = text[i].unicode();
        if (unit < 0x80) {
            bytes += 1;
        } else if (unit < 0x800) {
            bytes += 2;
        } else if (QChar::isHighSurrogate(unit) && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            bytes += 4;
            ++i;
        } else {
            // A lone surrogate, which a JSON escape can produce, counts as its replacement
            // character U+FFFD: three bytes.
            bytes += 3;
        }
    }
    return bytes;
}

QString leftCharacters(const QString& text, int count) {
    const qsizetype end = positionAfter(text, count);
    return end == -1 ? text : text.left(end);
}

} // namespace vell::TextMetrics
