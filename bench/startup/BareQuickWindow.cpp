// The baseline of the start-up bench: the smallest Qt Quick program with a window the size
// of a closed panel, loaded through a QML engine as the app's panels are.
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQuickWindow>

#include <chrono>
#include <cstdio>

int main(int argc, char* argv[]) {
    QQuickWindow::setDefaultAlphaBuffer(true);
    QGuiApplication app(argc, argv);
    QQmlApplicationEngine engine;
    engine.loadData("import QtQuick\n"
                    "Window { width: 336; height: 28; visible: true; color: 'transparent'\n"
                    "  Rectangle { anchors.fill: parent; radius: 14; color: 'black' } }\n");
    auto* window = qobject_cast<QQuickWindow*>(engine.rootObjects().value(0));
    if (!window)
        return 1;
    QObject::connect(
        window, &QQuickWindow::frameSwapped, window,
        [] {
            // The same line, on the same clock, as the app's first frame.
            const auto now = std::chrono::steady_clock::now().time_since_epoch();
            std::fprintf(
                stderr, "first frame at %lld us on the monotonic clock\n",
                static_cast<long long>(std::chrono::duration_cast<std::chrono::microseconds>(now).count()));
            std::fflush(stderr);
        },
        Qt::SingleShotConnection);
    return app.exec();
}
