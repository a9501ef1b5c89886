#include "OstaVell/OstaVellApp.h"
#include "OstaVell/Support/Logging.h"

#include <QApplication>
#include <QQuickStyle>
#include <QQuickWindow>

int main(int argc, char* argv[]) {
    vell::installLogPattern();
    // Panels are X11 dock windows; in a Wayland session they go through XWayland.
    if (qEnvironmentVariableIsSet("WAYLAND_DISPLAY") && !qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication::setApplicationName(QStringLiteral("OstaVell"));
    QApplication::setDesktopFileName(QStringLiteral("app.ostavell.OstaVell"));
    QQuickWindow::setDefaultAlphaBuffer(true);
    QQuickStyle::setStyle(QStringLiteral("Material"));

    QApplication app(argc, argv);
    app.setQuitOnLastWindowClosed(false);

    vell::OstaVellApp ostavell;
    const int status = ostavell.launch(app.arguments());
    if (status >= 0)
        return status;
    return app.exec();
}
