// The symbol table against the real icon font, its fallbacks, and the QML item that draws it.
#include "OstaVell/Support/SymbolGlyphs.h"

#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QRawFont>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

#include <memory>

Q_IMPORT_QML_PLUGIN(OstaVell_SupportPlugin)

using namespace vell;

namespace {

QString nameOf(const SymbolGlyph& entry) {
    return QString::fromUtf16(entry.name.data(), qsizetype(entry.name.size()));
}

// The code point of the table's own entry for name, 0 when it has none.
char32_t entryOf(const QString& name) {
    for (const SymbolGlyph& entry : SymbolGlyphs::table()) {
        if (nameOf(entry) == name)
            return entry.codePoint;
    }
    return 0;
}

} // namespace

class tst_SymbolGlyphs final : public QObject {
    Q_OBJECT

private slots:
    void everyGlyphIsInTheFont() {
        const QRawFont font(SymbolGlyphs::fontPath(), 24);
        QVERIFY2(font.isValid(), qPrintable(SymbolGlyphs::fontPath()));
        QCOMPARE(font.familyName(), SymbolGlyphs::fontFamily());
        QVERIFY(!font.supportsCharacter(char32_t(0xE005))); // a gap in the font: the check below can fail
        for (const SymbolGlyph& entry : SymbolGlyphs::table())
            QVERIFY2(font.supportsCharacter(entry.codePoint), qPrintable(nameOf(entry)));
    }

    // The names our views, the tabs and the bundled examples draw, each with an entry of its own.
    void namesWeUseAreMapped() {
        const QString names =
            "square.stack.3d.up square.grid.2x2 tray slider.horizontal.3 puzzlepiece.extension "
            "puzzlepiece.extension.fill pin.fill gearshape chevron.up point.3.connected.trianglepath.dotted "
            "pause.circle.fill checkmark.circle.fill exclamationmark.circle.fill stop.circle "
            "arrow.triangle.2.circlepath app.connected.to.app.below.fill music.note calendar play.rectangle "
            "sun.min.fill sun.max.fill speaker.slash.fill speaker.fill speaker.wave.1.fill "
            "speaker.wave.2.fill "
            "speaker.wave.3.fill clock plus.circle dice lightbulb.fill timer battery.100 bolt.fill play.fill "
            "pause.fill forward.fill backward.fill checkmark xmark trash folder doc link house bell wifi "
            "bluetooth";
        for (const QString& name : names.split(u' '))
            QVERIFY2(entryOf(name) != 0, qPrintable(name));
    }

    void fallbacks_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("drawnAs"); // the entry whose glyph it gets; empty for none
        const auto row = [](const char* name, const char* symbol, const char* drawnAs) {
            QTest::newRow(name) << QString(symbol) << QString(drawnAs);
        };
        row("own entry before any fallback", "lightbulb.fill", "lightbulb.fill");
        row("fill to plain", "timer.fill", "timer");
        row("circle.fill to circle", "person.circle.fill", "person.circle");
        row("circle.fill to circle to plain", "music.note.circle.fill", "music.note");
        row("square to plain", "trash.square", "trash");
        row("slash is kept: muted stays muted", "bolt.slash.fill", "bolt.slash");
        row("unknown", "no.such.symbol", "");
        row("unknown with a modifier", "no.such.symbol.fill", "");
        row("a modifier alone", "fill", "");
        row("nothing before the modifier", ".fill", "");
        row("empty", "", "");
        row("names are lower case", "Music.Note", "");
        row("a known name as a prefix is no match", "music.notes", "");
    }

    void fallbacks() {
        QFETCH(QString, name);
        QFETCH(QString, drawnAs);
        QVERIFY(drawnAs.isEmpty() || entryOf(drawnAs) != 0);
        if (name != drawnAs)
            QCOMPARE(entryOf(name), char32_t(0)); // the row really exercises a fallback
        QCOMPARE(SymbolGlyphs::codePoint(name), entryOf(drawnAs));
        const char32_t expected = entryOf(drawnAs);
        QCOMPARE(SymbolGlyphs::glyph(name), expected ? QString::fromUcs4(&expected, 1) : QString());
    }

    void iconDrawsGlyphOrDot_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("known");
        QTest::addRow("known") << "music.note" << true;
        QTest::addRow("unknown") << "no.such.symbol" << false;
        QTest::addRow("markup as a name") << "<b>music.note</b>" << false;
    }

    void iconDrawsGlyphOrDot() {
        QFETCH(QString, name);
        QFETCH(bool, known);
        QQmlEngine engine;
        engine.addImportPath(QStringLiteral("qrc:/qt/qml"));
        QQmlComponent component(&engine);
        component.setData("import OstaVell.Support\nSymbolIcon { size: 20; color: \"red\" }", QUrl());
        std::unique_ptr<QObject> icon(component.createWithInitialProperties({{"name", name}}));
        QVERIFY2(icon, qPrintable(component.errorString()));
        auto* glyph = icon->findChild<QQuickItem*>("glyph");
        auto* dot = icon->findChild<QQuickItem*>("dot");
        QVERIFY(glyph && dot);
        QCOMPARE(glyph->isVisible(), known);
        QCOMPARE(dot->isVisible(), !known);
        QCOMPARE(glyph->property("text").toString(), SymbolGlyphs::glyph(name));
        QCOMPARE(glyph->property("font").value<QFont>().family(), SymbolGlyphs::fontFamily());
        QCOMPARE(glyph->property("textFormat").toInt(), int(Qt::PlainText));
    }
};

QTEST_MAIN(tst_SymbolGlyphs)
#include "tst_SymbolGlyphs.moc"
