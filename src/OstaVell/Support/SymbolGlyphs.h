#pragma once

#include <QObject>
#include <QString>
#include <QStringView>
#include <QtQml/qqmlregistration.h>

#include <span>
#include <string_view>

namespace vell {

// A symbol name and the Material Icons glyph that draws it.
struct SymbolGlyph {
    std::u16string_view name;
    char32_t codePoint;
};

// Symbols keep the names plugins, modules and our own views give them ("music.note",
// "lightbulb.fill", the SF Symbols vocabulary of the protocol) and are drawn with the Material
// Icons font through one table. A name the table doesn't know draws as a neutral dot, never as
// its text: the name comes from a plugin and is no label.
class SymbolGlyphs final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(QString fontFamily READ fontFamily CONSTANT)
    Q_DISABLE_COPY_MOVE(SymbolGlyphs)

public:
    explicit SymbolGlyphs(QObject* parent = nullptr);

    // Every mapped name, sorted by UTF-16 code units, each once.
    static std::span<const SymbolGlyph> table();

    // Where Debian's fonts-material-design-icons-iconfont puts the font.
    static QString fontPath();
    // The font's family, loaded into the application on first use (so under a QGuiApplication).
    static QString fontFamily();

    // The glyph for name: its own entry, else the name less a trailing ".fill", ".circle" or
    // ".square", one at a time, so "x.circle.fill" tries "x.circle" and then "x". Never less
    // ".slash" or anything else that changes what the symbol says. 0 when nothing matches.
    static char32_t codePoint(QStringView name);
    // That glyph as one character, or empty when the name has none.
    Q_INVOKABLE static QString glyph(const QString& name);
};

} // namespace vell
