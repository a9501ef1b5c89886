#pragma once

#include <QString>
#include <QStringView>

// Lengths as the user sees them. Every character limit of the SDK counts user-perceived
// characters (extended grapheme clusters), so that "é" written with a combining accent or a
// family emoji counts once; byte limits count the UTF-8 form that is actually written.
namespace vell::TextMetrics {

// Number of grapheme clusters in text.
int characterCount(QStringView text);

// Length of text's UTF-8 form in bytes.
qsizetype utf8Size(QStringView text);

// At most the first count grapheme clusters of text; a cluster is never cut in half.
QString leftCharacters(const QString& text, int count);

} // namespace vell::TextMetrics
