// The real `ostavell` on a private X server with a window manager: where its panels stand,
// how they follow screens, a real pointer and real keys, and how it quits.
#include "VellCore/ModuleStageGeometry.h"
#include "VellCore/ShelfGeometry.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRasterWindow>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace vell;

namespace {

const QRect wholeScreen(0, 0, 1920, 1080);
// Longer than the panel's close wait (0.65 s) and its closing animation (0.18 s) together: a
// panel still open after this was not going to close. Only for proving that nothing happens.
constexpr int pastTheCloseWait = 1000;
const QString onScreen = QString::fromUtf8("OstaVell — screen");

QString app() {
    return qEnvironmentVariable("VELL_BUILD_DIR") + QStringLiteral("/bin/ostavell");
}

QString run(const QString& program, const QStringList& arguments, int* exitCode = nullptr) {
    QProcess process;
    QElapsedTimer clock;
    clock.start();
    process.start(program, arguments);
    // A query that hangs would look like a panel that never came: say which it was.
    if (!process.waitForFinished(30000))
        qWarning() << program << "did not finish within" << clock.elapsed() << "ms:" << process.error();
    if (exitCode)
        *exitCode = process.exitCode();
    return QString::fromUtf8(process.readAllStandardOutput());
}

// Visible panels by display name ("OstaVell — left") with their geometry.
QMap<QString, QRect> panels() {
    // One query of the whole window tree: a search that visits windows one by one fails
    // outright when a panel is destroyed half-way through it.
    static const QRegularExpression line(
        QString::fromUtf8(R"re("(OstaVell — [^"]*)":.*\s(\d+)x(\d+)[+-]\d+[+-]\d+\s+\+(-?\d+)\+(-?\d+))re"));
    QMap<QString, QRect> result;
    const QString tree = run(QStringLiteral("xwininfo"), {"-root", "-tree"});
    for (const QString& text : tree.split(QLatin1Char('\n'))) {
        const auto match = line.match(text);
        if (match.hasMatch())
            result.insert(match.captured(1), QRect(match.captured(4).toInt(), match.captured(5).toInt(),
                                                   match.captured(2).toInt(), match.captured(3).toInt()));
    }
    return result;
}

QString windowId(const QString& name) {
    const QString tree = run(QStringLiteral("xwininfo"), {"-root", "-tree"});
    return QRegularExpression(QStringLiteral("(0x[0-9a-f]+) \"%1\"").arg(QRegularExpression::escape(name)))
        .match(tree)
        .captured(1);
}

// The window manager's view of a panel: its window type and state atoms.
QString windowProperties(const QString& name) {
    const QString id = windowId(name);
    if (id.isEmpty())
        return {};
    return run(QStringLiteral("xprop"), {"-id", id, "_NET_WM_WINDOW_TYPE", "_NET_WM_STATE"});
}

bool hasFocus(const QString& name) {
    bool ok = false;
    const qulonglong panel = windowId(name).toULongLong(&ok, 16);
    return ok && run(QStringLiteral("xdotool"), {"getwindowfocus"}).trimmed().toULongLong() == panel;
}

// With nothing in its wings a closed panel is the drawn notch and the narrowest wings.
QRect closedFrame(const QRect& screen) {
    return ShelfGeometry::layout(QRectF(screen), 0, 196, false, 0, 0, 40).frame.toAlignedRect();
}

QRect openStageFrame(const QRect& screen) {
    const QSizeF stage = ModuleStageGeometry::size(QSizeF(screen.size()), 0, 760);
    return ShelfGeometry::layout(QRectF(screen), 0, 196, true, stage.width(), stage.height(), 40,
                                 QRectF(screen))
        .frame.toAlignedRect();
}

} // namespace

class TestOstaVell final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void closedPanelStandsAtTheTopCentre();
    void addingAndRemovingAScreenAddsAndRemovesAPanel();
    void hoverOpensAndLeavingCloses();
    void escapeCollapsesAPanelOpenedWithFocus();
    void hotKeyOpensAndCloses();
    void keyboardGoesBackWhereItWas();
    void secondLaunchForwardsAndQuitEndsTheProcess();

private:
    QProcess m_app;
    QTemporaryDir m_log;
};

void TestOstaVell::initTestCase() {
    QVERIFY(qEnvironmentVariableIsSet("DISPLAY"));
    run(QStringLiteral("xdotool"), {"mousemove", "960", "1000"});
    m_app.setStandardErrorFile(m_log.filePath(QStringLiteral("ostavell.log")));
    m_app.start(app(), {});
    QVERIFY(m_app.waitForStarted());
    QTRY_COMPARE_WITH_TIMEOUT(panels().size(), 1, 20000);
}

void TestOstaVell::cleanupTestCase() {
    if (m_app.state() != QProcess::NotRunning) {
        m_app.terminate();
        m_app.waitForFinished(5000);
    }
}

void TestOstaVell::closedPanelStandsAtTheTopCentre() {
    QTRY_COMPARE(panels().value(onScreen), closedFrame(wholeScreen));
    QCOMPARE(closedFrame(wholeScreen), QRect(822, 0, 276, 28));
    // A dock window that floats above the others while closed.
    const QString properties = windowProperties(onScreen);
    QVERIFY2(properties.contains(QStringLiteral("_NET_WM_WINDOW_TYPE_DOCK")), qPrintable(properties));
    QVERIFY2(properties.contains(QStringLiteral("_NET_WM_STATE_ABOVE")), qPrintable(properties));
}

void TestOstaVell::addingAndRemovingAScreenAddsAndRemovesAPanel() {
    const QRect left(0, 0, 960, 1080);
    const QRect right(960, 0, 960, 1080);
    QCOMPARE(QProcess::execute("xrandr", {"--setmonitor", "left", "960/254x1080/286+0+0", "screen"}), 0);
    QCOMPARE(QProcess::execute("xrandr", {"--setmonitor", "right", "960/254x1080/286+960+0", "none"}), 0);
    const QMap<QString, QRect> two{{QStringLiteral("OstaVell — left"), closedFrame(left)},
                                   {QStringLiteral("OstaVell — right"), closedFrame(right)}};
    // Under heavy load this wait has been seen to run out while the server already held both
    // panels in place (read from outside with xwininfo at the time) and the app sat idle in its
    // event loop: what fails then is this side's reading, not yet understood. The wait is wide
    // enough to get past it; a query that hangs says so above.
    QTRY_COMPARE_WITH_TIMEOUT(panels(), two, 90000);

    QCOMPARE(QProcess::execute("xrandr", {"--delmonitor", "right"}), 0);
    const QMap<QString, QRect> one{{QStringLiteral("OstaVell — left"), closedFrame(left)}};
    QTRY_COMPARE_WITH_TIMEOUT(panels(), one, 30000);

    // A panel may take the new screen's name before it has moved there: the test after this
    // one needs it in place, so its frame is waited for too.
    QCOMPARE(QProcess::execute("xrandr", {"--delmonitor", "left"}), 0);
    const QMap<QString, QRect> whole{{onScreen, closedFrame(wholeScreen)}};
    QTRY_COMPARE_WITH_TIMEOUT(panels(), whole, 30000);
}

void TestOstaVell::hoverOpensAndLeavingCloses() {
    run(QStringLiteral("xdotool"), {"mousemove", "960", "10"});
    QTRY_COMPARE_WITH_TIMEOUT(panels().value(onScreen), openStageFrame(wholeScreen), 10000);
    // Open, it sits at the normal level; only the closed notch floats.
    QTRY_VERIFY(!windowProperties(onScreen).contains(QStringLiteral("_NET_WM_STATE_ABOVE")));
    // Moving inside the open panel keeps it open; leaving closes it after the close wait.
    run(QStringLiteral("xdotool"), {"mousemove", "700", "300"});
    // Proves that something does not happen: past the close wait, the panel is still open.
    QTest::qWait(pastTheCloseWait);
    QCOMPARE(panels().value(onScreen), openStageFrame(wholeScreen));
    run(QStringLiteral("xdotool"), {"mousemove", "960", "1000"});
    QTRY_COMPARE_WITH_TIMEOUT(panels().value(onScreen), closedFrame(wholeScreen), 10000);
    QTRY_VERIFY(windowProperties(onScreen).contains(QStringLiteral("_NET_WM_STATE_ABOVE")));
}

void TestOstaVell::escapeCollapsesAPanelOpenedWithFocus() {
    int status = -1;
    run(app(), {"--open"}, &status);
    QCOMPARE(status, 0);
    QTRY_COMPARE_WITH_TIMEOUT(panels().value(onScreen), openStageFrame(wholeScreen), 10000);
    // Opened with focus, it stays open although the pointer is away; Escape reaches it only
    // once the window manager has handed it the keyboard.
    QTRY_VERIFY_WITH_TIMEOUT(hasFocus(onScreen), 10000);
    // Proves that something does not happen: past the close wait, the panel is still open.
    QTest::qWait(pastTheCloseWait);
    QCOMPARE(panels().value(onScreen), openStageFrame(wholeScreen));
    run(QStringLiteral("xdotool"), {"key", "Escape"});
    QTRY_COMPARE_WITH_TIMEOUT(panels().value(onScreen), closedFrame(wholeScreen), 10000);
}

void TestOstaVell::hotKeyOpensAndCloses() {
    run(QStringLiteral("xdotool"), {"key", "super+alt+n"});
    QTRY_COMPARE_WITH_TIMEOUT(panels().value(onScreen), openStageFrame(wholeScreen), 10000);
    run(QStringLiteral("xdotool"), {"key", "super+alt+n"});
    QTRY_COMPARE_WITH_TIMEOUT(panels().value(onScreen), closedFrame(wholeScreen), 10000);
}

void TestOstaVell::keyboardGoesBackWhereItWas() {
    // Someone is typing in one window, with the pointer resting on another, and calls the
    // panel up with the hot key.
    QRasterWindow under;
    under.setTitle(QStringLiteral("Under the pointer"));
    under.setGeometry(1200, 400, 300, 200);
    under.show();
    QRasterWindow typing;
    typing.setTitle(QStringLiteral("Typing here"));
    typing.setGeometry(200, 400, 300, 200);
    typing.show();
    QVERIFY(QTest::qWaitForWindowExposed(&under) && QTest::qWaitForWindowExposed(&typing));
    typing.requestActivate();
    QTRY_VERIFY_WITH_TIMEOUT(hasFocus(QStringLiteral("Typing here")), 10000);
    run(QStringLiteral("xdotool"), {"mousemove", "1350", "500"});
    run(QStringLiteral("xdotool"), {"key", "super+alt+n"});
    QTRY_VERIFY_WITH_TIMEOUT(hasFocus(onScreen), 10000);
    run(QStringLiteral("xdotool"), {"key", "Escape"});
    QTRY_COMPARE_WITH_TIMEOUT(panels().value(onScreen), closedFrame(wholeScreen), 10000);
    // Not to whatever is under the pointer: to the window that had it.
    QTRY_VERIFY_WITH_TIMEOUT(hasFocus(QStringLiteral("Typing here")), 10000);
}

void TestOstaVell::secondLaunchForwardsAndQuitEndsTheProcess() {
    int status = -1;
    QElapsedTimer timer;
    timer.start();
    run(app(), {"--quit"}, &status);
    QCOMPARE(status, 0);
    // A hang is a failure; how quickly it ends is measured, not asserted.
    QVERIFY(m_app.waitForFinished(15000));
    qInfo("quit took %lld ms from the request to the end of the process", timer.elapsed());
    QCOMPARE(m_app.exitStatus(), QProcess::NormalExit);
    QCOMPARE(m_app.exitCode(), 0);
    QFile logFile(m_log.filePath(QStringLiteral("ostavell.log")));
    QVERIFY(logFile.open(QIODevice::ReadOnly));
    const QString log = QString::fromUtf8(logFile.readAll());
    QVERIFY2(log.contains(QStringLiteral("OstaVell: shutdown: stopping panels")), qPrintable(log));

    // With nothing running, --quit has nothing to do and says so by succeeding.
    run(app(), {"--quit"}, &status);
    QCOMPARE(status, 0);
}

QTEST_MAIN(TestOstaVell)
#include "tst_ostavell.moc"
