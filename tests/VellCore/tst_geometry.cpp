#include "VellCore/ModuleStageGeometry.h"
#include "VellCore/NotchGeometry.h"
#include "VellCore/ShelfGeometry.h"

#include <QTest>

#include <optional>

using namespace vell;

using OptionalRect = std::optional<QRectF>;
Q_DECLARE_METATYPE(OptionalRect)

class tst_Geometry final : public QObject {
    Q_OBJECT

private slots:
    void notchForScreen_data();
    void notchForScreen();
    void expandedTopInset_data();
    void expandedTopInset();
    void layout_data();
    void layout();
    void keepsHoverOpen_data();
    void keepsHoverOpen();
    void stageSize_data();
    void stageSize();
    void stageAspectIsExact_data();
    void stageAspectIsExact();
};

void tst_Geometry::notchForScreen_data() {
    QTest::addColumn<QRectF>("frame");
    QTest::addColumn<QRectF>("visible");
    QTest::addColumn<double>("safeTop");
    QTest::addColumn<OptionalRect>("left");
    QTest::addColumn<OptionalRect>("right");
    QTest::addColumn<double>("width");
    QTest::addColumn<double>("height");
    QTest::addColumn<bool>("hasNotch");

    const QRectF laptop(0, 0, 1512, 982);
    const QRectF laptopVisible(0, 32, 1512, 950);
    QTest::addRow("notched, width between the auxiliary areas")
        << laptop << laptopVisible << 32.0 << OptionalRect(QRectF(0, 0, 660, 32))
        << OptionalRect(QRectF(852, 0, 660, 32)) << 192.0 << 32.0 << true;
    QTest::addRow("notched, one auxiliary area missing")
        << laptop << laptopVisible << 32.0 << OptionalRect() << OptionalRect(QRectF(852, 0, 660, 32)) << 200.0
        << 32.0 << true;

    const QRectF external(0, 0, 2560, 1440);
    QTest::addRow("short top bar rises to 24") << external << QRectF(0, 10, 2560, 1430) << 0.0
                                               << OptionalRect() << OptionalRect() << 196.0 << 24.0 << false;
    QTest::addRow("38-point bar kept") << external << QRectF(0, 38, 2560, 1402) << 0.0 << OptionalRect()
                                       << OptionalRect() << 196.0 << 38.0 << false;
    QTest::addRow("40-point bar capped at 38") << external << QRectF(0, 40, 2560, 1400) << 0.0
                                               << OptionalRect() << OptionalRect() << 196.0 << 38.0 << false;
    QTest::addRow("bar measured from the screen's own top")
        << QRectF(1920, -300, 2560, 1440) << QRectF(1920, -270, 2560, 1410) << 0.0 << OptionalRect()
        << OptionalRect() << 196.0 << 30.0 << false;
    QTest::addRow("a bar at the bottom reserves nothing at the top")
        << external << QRectF(0, 0, 2560, 1400) << 0.0 << OptionalRect() << OptionalRect() << 196.0 << 24.0
        << false;
}

void tst_Geometry::notchForScreen() {
    QFETCH(QRectF, frame);
    QFETCH(QRectF, visible);
    QFETCH(double, safeTop);
    QFETCH(OptionalRect, left);
    QFETCH(OptionalRect, right);

    const NotchGeometry notch = NotchGeometry::forScreen({frame, visible, safeTop, left, right});
    QCOMPARE(notch.screenFrame, frame);
    QTEST(notch.width, "width");
    QTEST(notch.height, "height");
    QTEST(notch.hasNotch, "hasNotch");
}

void tst_Geometry::expandedTopInset_data() {
    QTest::addColumn<QRectF>("screen");
    QTest::addColumn<QRectF>("visible");
    QTest::addColumn<double>("safeTop");
    QTest::addColumn<double>("menuBar");
    QTest::addColumn<double>("inset");

    const QRectF screen(0, 0, 1440, 900);
    QTest::addRow("reserved space wins") << screen << QRectF(0, 30, 1440, 870) << 0.0 << 24.0 << 30.0;
    QTest::addRow("notch wins") << screen << QRectF(0, 30, 1440, 870) << 32.0 << 24.0 << 32.0;
    QTest::addRow("menu bar wins") << screen << QRectF(0, 30, 1440, 870) << 0.0 << 37.0 << 37.0;
    QTest::addRow("offset screen") << QRectF(-1440, 200, 1440, 900) << QRectF(-1440, 225, 1440, 875) << 0.0
                                   << 0.0 << 25.0;
    QTest::addRow("negatives floor at zero") << screen << QRectF(0, -5, 1440, 905) << -3.0 << -1.0 << 0.0;
    QTest::addRow("never taller than the screen")
        << QRectF(0, 0, 1440, 20) << QRectF(0, 30, 1440, 0) << 0.0 << 0.0 << 20.0;
    QTest::addRow("negative screen height gives zero")
        << QRectF(0, 0, 1440, -10) << QRectF(0, 30, 1440, 0) << 40.0 << 0.0 << 0.0;
}

void tst_Geometry::expandedTopInset() {
    QFETCH(QRectF, screen);
    QFETCH(QRectF, visible);
    QFETCH(double, safeTop);
    QFETCH(double, menuBar);
    QTEST(ShelfGeometry::expandedTopInset(screen, visible, safeTop, menuBar), "inset");
}

void tst_Geometry::layout_data() {
    QTest::addColumn<QRectF>("screen");
    QTest::addColumn<double>("safeTop");
    QTest::addColumn<double>("notchWidth");
    QTest::addColumn<bool>("expanded");
    QTest::addColumn<double>("openWidth");
    QTest::addColumn<double>("openHeight");
    QTest::addColumn<double>("wingWidth");
    QTest::addColumn<OptionalRect>("visible");
    QTest::addColumn<double>("menuBar");
    QTest::addColumn<QRectF>("frame");
    QTest::addColumn<double>("contentTopInset");

    const QRectF screen(0, 0, 1440, 900);
    const QRectF right(1440, 0, 1920, 1080);

    QTest::addRow("closed, no notch: 28 high, 210 wide")
        << screen << 0.0 << 100.0 << false << 760.0 << 400.0 << 20.0 << OptionalRect() << 0.0
        << QRectF(615, 0, 210, 28) << 0.0;
    QTest::addRow("closed, drawn notch with wings is 276 wide")
        << right << 0.0 << 196.0 << false << 760.0 << 400.0 << 40.0 << OptionalRect() << 0.0
        << QRectF(1440 + 960 - 138, 0, 276, 28) << 0.0;
    QTest::addRow("closed, notched screen clears the notch by 8")
        << QRectF(0, 0, 1512, 982) << 32.0 << 192.0 << false << 760.0 << 400.0 << 40.0 << OptionalRect()
        << 0.0 << QRectF(756 - 136, 0, 272, 40) << 0.0;
    QTest::addRow("closed ignores the visible frame and menu bar")
        << screen << 0.0 << 196.0 << false << 760.0 << 400.0 << 40.0 << OptionalRect(QRectF(0, 30, 1440, 870))
        << 37.0 << QRectF(582, 0, 276, 28) << 0.0;
    QTest::addRow("expanded, visible frame reserves 30")
        << screen << 0.0 << 196.0 << true << 760.0 << 400.0 << 40.0 << OptionalRect(QRectF(0, 30, 1440, 870))
        << 0.0 << QRectF(340, 0, 760, 430) << 30.0;
    QTest::addRow("expanded, no visible frame means no reserved space")
        << screen << 0.0 << 196.0 << true << 760.0 << 400.0 << 40.0 << OptionalRect() << 0.0
        << QRectF(340, 0, 760, 400) << 0.0;
    QTest::addRow("expanded, on a screen to the right")
        << right << 0.0 << 196.0 << true << 1000.0 << 400.0 << 40.0
        << OptionalRect(QRectF(1440, 28, 1920, 1052)) << 0.0 << QRectF(1440 + 460, 0, 1000, 428) << 28.0;
    QTest::addRow("expanded, too tall is cut to screen height - 24")
        << screen << 0.0 << 196.0 << true << 760.0 << 2000.0 << 40.0 << OptionalRect(QRectF(0, 30, 1440, 870))
        << 0.0 << QRectF(340, 0, 760, 876) << 30.0;
    QTest::addRow("expanded, width 3000 fits a 1440 screen as 1416")
        << screen << 0.0 << 196.0 << true << 3000.0 << 400.0 << 40.0 << OptionalRect() << 0.0
        << QRectF(12, 0, 1416, 400) << 0.0;
    QTest::addRow("expanded, inset never exceeds the frame")
        << QRectF(0, 0, 400, 30) << 0.0 << 196.0 << true << 300.0 << 400.0 << 40.0
        << OptionalRect(QRectF(0, 28, 400, 2)) << 0.0 << QRectF(50, 0, 300, 6) << 6.0;
    QTest::addRow("narrow screen gives width and height 1")
        << QRectF(0, 0, 20, 20) << 0.0 << 196.0 << false << 760.0 << 400.0 << 40.0 << OptionalRect() << 0.0
        << QRectF(9.5, 0, 1, 1) << 0.0;
}

void tst_Geometry::layout() {
    QFETCH(QRectF, screen);
    QFETCH(double, safeTop);
    QFETCH(double, notchWidth);
    QFETCH(bool, expanded);
    QFETCH(double, openWidth);
    QFETCH(double, openHeight);
    QFETCH(double, wingWidth);
    QFETCH(OptionalRect, visible);
    QFETCH(double, menuBar);
    QFETCH(QRectF, frame);
    QFETCH(double, contentTopInset);

    const ShelfLayout layout = ShelfGeometry::layout(screen, safeTop, notchWidth, expanded, openWidth,
                                                     openHeight, wingWidth, visible, menuBar);
    QCOMPARE(layout.frame, frame);
    QCOMPARE(layout.contentTopInset, contentTopInset);
    QVERIFY(layout.contentTopInset <= layout.frame.height());
}

void tst_Geometry::keepsHoverOpen_data() {
    QTest::addColumn<bool>("reportedInside");
    QTest::addColumn<QPointF>("pointer");
    QTest::addColumn<bool>("keeps");

    // The expanded frame and the closed handle are the ones of a panel on a 1440 screen.
    QTest::addRow("reported inside, pointer far away") << true << QPointF(5, 800) << true;
    QTest::addRow("inside the expanded frame") << false << QPointF(400, 300) << true;
    QTest::addRow("1 outside the expanded frame, away from the handle")
        << false << QPointF(1101, 300) << false;
    QTest::addRow("1.5 left of the handle") << false << QPointF(580.5, 10) << true;
    QTest::addRow("2.5 left of the handle") << false << QPointF(579.5, 10) << false;
    QTest::addRow("1.5 right of the handle") << false << QPointF(859.5, 10) << true;
    QTest::addRow("2.5 right of the handle") << false << QPointF(860.5, 10) << false;
    QTest::addRow("1.5 below the handle") << false << QPointF(700, 29.5) << true;
    QTest::addRow("2.5 below the handle") << false << QPointF(700, 30.5) << false;
    QTest::addRow("left edge of the grown handle is in") << false << QPointF(580, 10) << true;
    QTest::addRow("right edge of the grown handle is out") << false << QPointF(860, 10) << false;
    QTest::addRow("bottom edge of the grown handle is out") << false << QPointF(700, 30) << false;
}

void tst_Geometry::keepsHoverOpen() {
    QFETCH(bool, reportedInside);
    QFETCH(QPointF, pointer);

    // Tests of the handle use an expanded frame far from it; the others the open panel.
    const QRectF handle(582, 0, 276, 28);
    const QRectF expanded = pointer.y() < 40 ? QRectF(0, 600, 100, 100) : QRectF(340, 0, 760, 400);
    QTEST(ShelfGeometry::keepsHoverOpen(reportedInside, pointer, expanded, handle), "keeps");
}

void tst_Geometry::stageSize_data() {
    QTest::addColumn<QSizeF>("screen");
    QTest::addColumn<double>("safeTop");
    QTest::addColumn<double>("preferredWidth");
    QTest::addColumn<QSizeF>("size");

    QTest::addRow("preferred 760 is taken as 900")
        << QSizeF(1920, 1080) << 0.0 << 760.0 << QSizeF(900, 828 / ModuleStageGeometry::ratio + 100);
    QTest::addRow("screen width limits the floor of 900")
        << QSizeF(800, 1080) << 0.0 << 760.0 << QSizeF(776, 704 / ModuleStageGeometry::ratio + 100);
    QTest::addRow("short screen shrinks the stage and the width with it")
        << QSizeF(1440, 500) << 32.0 << 900.0 << QSizeF(344 * ModuleStageGeometry::ratio + 72, 444);
    QTest::addRow("screen too short for any stage")
        << QSizeF(1440, 100) << 0.0 << 900.0 << QSizeF(ModuleStageGeometry::ratio + 72, 76);
    QTest::addRow("no usable height at all")
        << QSizeF(1440, 20) << 0.0 << 900.0 << QSizeF(ModuleStageGeometry::ratio + 72, 1);
    QTest::addRow("very narrow screen gives width 1")
        << QSizeF(20, 1080) << 0.0 << 900.0 << QSizeF(1, 1 / ModuleStageGeometry::ratio + 100);
    QTest::addRow("negative safe top counts as none")
        << QSizeF(1440, 500) << -30.0 << 900.0 << QSizeF(376 * ModuleStageGeometry::ratio + 72, 476);
}

void tst_Geometry::stageSize() {
    QFETCH(QSizeF, screen);
    QFETCH(double, safeTop);
    QFETCH(double, preferredWidth);
    QTEST(ModuleStageGeometry::size(screen, safeTop, preferredWidth), "size");
}

void tst_Geometry::stageAspectIsExact_data() {
    QTest::addColumn<QSizeF>("screen");
    QTest::addColumn<double>("safeTop");
    QTest::addColumn<double>("preferredWidth");

    QTest::addRow("1920x1080, 760") << QSizeF(1920, 1080) << 0.0 << 760.0;
    QTest::addRow("1512x982 notched, 1100") << QSizeF(1512, 982) << 32.0 << 1100.0;
    QTest::addRow("2560x1440, 1337.5") << QSizeF(2560, 1440) << 0.0 << 1337.5;
    QTest::addRow("3840x2160, 3000") << QSizeF(3840, 2160) << 0.0 << 3000.0;
}

void tst_Geometry::stageAspectIsExact() {
    QFETCH(QSizeF, screen);
    QFETCH(double, safeTop);
    QFETCH(double, preferredWidth);

    const QSizeF size = ModuleStageGeometry::size(screen, safeTop, preferredWidth);
    QCOMPARE(size.width(), std::max(preferredWidth, 900.0));
    // Exact, not fuzzy: the stage must keep 16:9 to the last bit.
    QVERIFY2(size.height() - ModuleStageGeometry::verticalChrome ==
                 (size.width() - ModuleStageGeometry::horizontalChrome) / ModuleStageGeometry::ratio,
             qPrintable(QString::number(size.height(), 'g', 17)));
}

QTEST_APPLESS_MAIN(tst_Geometry)
#include "tst_geometry.moc"
