// The peek: the symbol each level draws, and the time it stays: renewed by every event, held
// while a person drags the wing's slider, and gone by itself once the last event is old enough.
#include "OstaVell/Features/HUD/SneakPeekCoordinator.h"
#include "OstaVell/Support/SymbolGlyphs.h"

#include <QGuiApplication>
#include <QTest>

using namespace vell;

Q_DECLARE_METATYPE(SneakPeekType)

class tst_SneakPeek final : public QObject {
    Q_OBJECT

private slots:
    void symbols_data();
    void symbols();
    void theTimeIsRenewedHeldAndRunsOut();
};

void tst_SneakPeek::symbols_data() {
    QTest::addColumn<SneakPeekType>("type");
    QTest::addColumn<float>("value");
    QTest::addColumn<bool>("muted");
    QTest::addColumn<QString>("symbol");

    QTest::addRow("dim") << SneakPeekType::brightness << 0.34f << false << "sun.min.fill";
    QTest::addRow("bright") << SneakPeekType::brightness << 0.35f << false << "sun.max.fill";
    QTest::addRow("brightness is never muted") << SneakPeekType::brightness << 0.9f << true << "sun.max.fill";
    QTest::addRow("silent") << SneakPeekType::volume << 0.0099f << false << "speaker.fill";
    QTest::addRow("quiet") << SneakPeekType::volume << 0.01f << false << "speaker.wave.1.fill";
    QTest::addRow("quiet to the top") << SneakPeekType::volume << 0.3399f << false << "speaker.wave.1.fill";
    QTest::addRow("middle") << SneakPeekType::volume << 0.34f << false << "speaker.wave.2.fill";
    QTest::addRow("middle to the top") << SneakPeekType::volume << 0.6699f << false << "speaker.wave.2.fill";
    QTest::addRow("loud") << SneakPeekType::volume << 0.67f << false << "speaker.wave.3.fill";
    QTest::addRow("muted loud") << SneakPeekType::volume << 1.0f << true << "speaker.slash.fill";
    QTest::addRow("a mute peek") << SneakPeekType::mute << 0.5f << true << "speaker.slash.fill";
    QTest::addRow("an unmute peek") << SneakPeekType::mute << 0.5f << false << "speaker.wave.2.fill";
}

void tst_SneakPeek::symbols() {
    QFETCH(SneakPeekType, type);
    QFETCH(float, value);
    QFETCH(bool, muted);
    QFETCH(QString, symbol);
    QCOMPARE(SneakPeekCoordinator::symbolName(type, value, muted), symbol);
    // Every symbol the wing draws has a glyph of its own.
    QVERIFY(SymbolGlyphs::codePoint(symbol) != 0);
}

void tst_SneakPeek::theTimeIsRenewedHeldAndRunsOut() {
    SneakPeekCoordinator peek{nullptr};
    QCOMPARE(peek.hidesIn(), -1);
    peek.show(SneakPeekType::volume, 1.5f, HUDEventSource::external);
    QVERIFY(peek.visible());
    QCOMPARE(peek.value(), 1.0f);
    QVERIFY(peek.hidesIn() > SneakPeekCoordinator::autoHideMilliseconds / 2);

    // A drag holds it open however long it takes.
    peek.setInteracting(true);
    QCOMPARE(peek.hidesIn(), -1);
    peek.show(SneakPeekType::brightness, 0.2f, HUDEventSource::internalControl);
    QCOMPARE(peek.hidesIn(), -1);
    QCOMPARE(peek.type(), SneakPeekType::brightness);

    // Letting go starts the whole time again, and so does every event after it.
    peek.setInteracting(false);
    QVERIFY(peek.hidesIn() > SneakPeekCoordinator::autoHideMilliseconds / 2);
    QTRY_VERIFY(peek.hidesIn() < SneakPeekCoordinator::autoHideMilliseconds / 2);
    peek.show(SneakPeekType::volume, 0.5f, HUDEventSource::internalControl);
    QVERIFY(peek.hidesIn() > SneakPeekCoordinator::autoHideMilliseconds / 2);

    QTRY_VERIFY_WITH_TIMEOUT(!peek.visible(), SneakPeekCoordinator::autoHideMilliseconds * 10);
    QCOMPARE(peek.hidesIn(), -1);
}

QTEST_MAIN(tst_SneakPeek)
#include "tst_SneakPeek.moc"
