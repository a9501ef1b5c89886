#include "VellCore/ModuleStageGeometry.h"
#include "VellCore/NotchGeometry.h"
#include "VellCore/ShelfGeometry.h"

#include <QTest>

#include <optional>

using namespace vell;
using Stage = ModuleStageGeometry;

using Reading = NotchGeometry::ScreenReading;
Q_DECLARE_METATYPE(Reading)

namespace {

const std::optional<QRectF> none;

// What ShelfGeometry::layout reads, with the values most rows share.
struct Panel {
    QRectF screen;
    double safeTop = 0;
    double notchWidth = 196;
    bool expanded = false;
    QSizeF open{760, 400};
    double wingWidth = 40;
    std::optional<QRectF> visible = std::nullopt;
    double menuBar = 0;
};

template <typename... Values> void row(const char* name, const Values&... values) {
    (QTest::newRow(name) << ... << values);
}

} // namespace

Q_DECLARE_METATYPE(Panel)

class tst_Geometry final : public QObject {
    Q_OBJECT

private slots:
    void notchForScreen_data() {
        QTest::addColumn<Reading>("reading");
        QTest::addColumn<double>("width");
        QTest::addColumn<double>("height");
        QTest::addColumn<bool>("hasNotch");
        const QRectF laptop(0, 0, 1512, 982), laptopVisible(0, 32, 1512, 950), external(0, 0, 2560, 1440);
        const QRectF leftArea(0, 0, 660, 32), rightArea(852, 0, 660, 32);
        const auto drawn = [](QRectF frame, QRectF visible) {
            return Reading{frame, visible, 0, none, none};
        };
        row("notched, width between the auxiliary areas",
            Reading{laptop, laptopVisible, 32, leftArea, rightArea}, 192.0, 32.0, true);
        row("notched, one auxiliary area missing", Reading{laptop, laptopVisible, 32, none, rightArea}, 200.0,
            32.0, true);
        // The desktop also keeps 40 at the bottom, which reserves nothing at the top.
        row("short top bar rises to 24", drawn(external, QRectF(0, 10, 2560, 1390)), 196.0, 24.0, false);
        row("38-point bar kept", drawn(external, QRectF(0, 38, 2560, 1402)), 196.0, 38.0, false);
        row("40-point bar capped at 38", drawn(external, QRectF(0, 40, 2560, 1400)), 196.0, 38.0, false);
        row("bar measured from the screen's own top",
            drawn(QRectF(1920, -300, 2560, 1440), QRectF(1920, -270, 2560, 1410)), 196.0, 30.0, false);
    }

    void notchForScreen() {
        QFETCH(Reading, reading);
        const NotchGeometry notch = NotchGeometry::forScreen(reading);
        QCOMPARE(notch.screenFrame, reading.frame);
        QTEST(notch.width, "width");
        QTEST(notch.height, "height");
        QTEST(notch.hasNotch, "hasNotch");
    }

    void expandedTopInset_data() {
        QTest::addColumn<QRectF>("screen");
        QTest::addColumn<QRectF>("visible");
        QTest::addColumn<double>("safeTop");
        QTest::addColumn<double>("menuBar");
        QTest::addColumn<double>("inset");
        const QRectF screen(0, 0, 1440, 900), visible(0, 30, 1440, 870), empty(0, 30, 1440, 0);
        row("reserved space wins", screen, visible, 0.0, 24.0, 30.0);
        row("notch wins", screen, visible, 32.0, 24.0, 32.0);
        row("menu bar wins", screen, visible, 0.0, 37.0, 37.0);
        row("offset screen", QRectF(-1440, 200, 1440, 900), QRectF(-1440, 225, 1440, 875), 0.0, 0.0, 25.0);
        row("negatives floor at zero", screen, QRectF(0, -5, 1440, 905), -3.0, -1.0, 0.0);
        row("never taller than the screen", QRectF(0, 0, 1440, 20), empty, 0.0, 0.0, 20.0);
        row("negative screen height gives zero", QRectF(0, 0, 1440, -10), empty, 40.0, 0.0, 0.0);
    }

    void expandedTopInset() {
        QFETCH(QRectF, screen);
        QFETCH(QRectF, visible);
        QFETCH(double, safeTop);
        QFETCH(double, menuBar);
        QTEST(ShelfGeometry::expandedTopInset(screen, visible, safeTop, menuBar), "inset");
    }

    void layout_data() {
        QTest::addColumn<Panel>("panel");
        QTest::addColumn<QRectF>("frame");
        QTest::addColumn<double>("contentTopInset");
        const QRectF screen(0, 0, 1440, 900), reserved(0, 30, 1440, 870);
        row("closed, no notch: 28 high, 210 wide", Panel{screen, 0, 100, false, {760, 400}, 20},
            QRectF(615, 0, 210, 28), 0.0);
        row("closed, drawn notch with wings is 276 wide", Panel{QRectF(1440, 0, 1920, 1080)},
            QRectF(1440 + 960 - 138, 0, 276, 28), 0.0);
        row("closed, notched screen clears the notch by 8", Panel{QRectF(0, 0, 1512, 982), 32, 192},
            QRectF(756 - 136, 0, 272, 40), 0.0);
        row("closed ignores the visible frame and menu bar",
            Panel{.screen = screen, .visible = reserved, .menuBar = 37}, QRectF(582, 0, 276, 28), 0.0);
        row("expanded, visible frame reserves 30",
            Panel{.screen = screen, .expanded = true, .visible = reserved}, QRectF(340, 0, 760, 430), 30.0);
        row("expanded, no visible frame means no reserved space", Panel{.screen = screen, .expanded = true},
            QRectF(340, 0, 760, 400), 0.0);
        row("expanded, too tall is cut to screen height - 24",
            Panel{.screen = screen, .expanded = true, .open = {760, 2000}, .visible = reserved},
            QRectF(340, 0, 760, 876), 30.0);
        row("expanded, width 3000 fits a 1440 screen as 1416",
            Panel{.screen = screen, .expanded = true, .open = {3000, 400}}, QRectF(12, 0, 1416, 400), 0.0);
        row("expanded, inset never exceeds the frame",
            Panel{QRectF(0, 0, 400, 30), 0, 196, true, {300, 400}, 40, QRectF(0, 28, 400, 2)},
            QRectF(50, 0, 300, 6), 6.0);
        row("narrow screen gives width and height 1", Panel{QRectF(0, 0, 20, 20)}, QRectF(9.5, 0, 1, 1), 0.0);
    }

    void layout() {
        QFETCH(Panel, panel);
        const ShelfLayout layout = ShelfGeometry::layout(
            panel.screen, panel.safeTop, panel.notchWidth, panel.expanded, panel.open.width(),
            panel.open.height(), panel.wingWidth, panel.visible, panel.menuBar);
        QTEST(layout.frame, "frame");
        QTEST(layout.contentTopInset, "contentTopInset");
        QVERIFY(layout.contentTopInset <= layout.frame.height());
    }

    void keepsHoverOpen_data() {
        QTest::addColumn<bool>("reportedInside");
        QTest::addColumn<QPointF>("pointer");
        QTest::addColumn<bool>("keeps");
        // The expanded frame and the closed handle are the ones of a panel on a 1440 screen.
        row("reported inside, pointer far away", true, QPointF(5, 800), true);
        row("inside the expanded frame", false, QPointF(400, 300), true);
        row("1 outside the expanded frame, away from the handle", false, QPointF(1101, 300), false);
        row("left edge of the grown handle is in", false, QPointF(580, 10), true);
        row("2.5 left of the handle", false, QPointF(579.5, 10), false);
        row("1.5 right of the handle", false, QPointF(859.5, 10), true);
        row("right edge of the grown handle is out", false, QPointF(860, 10), false);
        row("1.5 below the handle", false, QPointF(700, 29.5), true);
        row("bottom edge of the grown handle is out", false, QPointF(700, 30), false);
    }

    void keepsHoverOpen() {
        QFETCH(bool, reportedInside);
        QFETCH(QPointF, pointer);
        // Tests of the handle use an expanded frame far from it; the others the open panel.
        const QRectF handle(582, 0, 276, 28);
        const QRectF expanded = pointer.y() < 40 ? QRectF(0, 600, 100, 100) : QRectF(340, 0, 760, 400);
        QTEST(ShelfGeometry::keepsHoverOpen(reportedInside, pointer, expanded, handle), "keeps");
    }

    void stageSize_data() {
        QTest::addColumn<QSizeF>("screen");
        QTest::addColumn<double>("safeTop");
        QTest::addColumn<double>("preferredWidth");
        QTest::addColumn<QSizeF>("size");
        const double r = Stage::ratio;
        row("preferred 760 is taken as 900", QSizeF(1920, 1080), 0.0, 760.0, QSizeF(900, 828 / r + 100));
        row("2560x1440, 1337.5", QSizeF(2560, 1440), 0.0, 1337.5, QSizeF(1337.5, 1265.5 / r + 100));
        row("screen width limits the floor of 900", QSizeF(800, 1080), 0.0, 760.0,
            QSizeF(776, 704 / r + 100));
        row("short screen shrinks the stage and the width with it", QSizeF(1440, 500), 32.0, 900.0,
            QSizeF(344 * r + 72, 444));
        row("screen too short for any stage", QSizeF(1440, 100), 0.0, 900.0, QSizeF(r + 72, 76));
        row("no usable height at all", QSizeF(1440, 20), 0.0, 900.0, QSizeF(r + 72, 1));
        row("very narrow screen gives width 1", QSizeF(20, 1080), 0.0, 900.0, QSizeF(1, 1 / r + 100));
        row("negative safe top counts as none", QSizeF(1440, 500), -30.0, 900.0, QSizeF(376 * r + 72, 476));
    }

    void stageSize() {
        QFETCH(QSizeF, screen);
        QFETCH(double, safeTop);
        QFETCH(double, preferredWidth);
        const QSizeF size = Stage::size(screen, safeTop, preferredWidth);
        QTEST(size, "size");
        // Wherever there is room for a stage beyond the chrome, it keeps 16:9 to the last bit, which
        // the fuzzy comparison above could not see.
        if (size.width() > Stage::horizontalChrome && size.height() > Stage::verticalChrome)
            QVERIFY2(size.height() - Stage::verticalChrome ==
                         (size.width() - Stage::horizontalChrome) / Stage::ratio,
                     qPrintable(QString::number(size.height(), 'g', 17)));
    }
};

QTEST_APPLESS_MAIN(tst_Geometry)
#include "tst_geometry.moc"
