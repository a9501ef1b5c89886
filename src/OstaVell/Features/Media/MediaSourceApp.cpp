#include "OstaVell/Features/Media/MediaSourceApp.h"

#include <QFile>
#include <QIcon>
#include <QStandardPaths>

namespace vell {

MediaSourceApp MediaSourceApp::lookup(const QString& desktopEntry) {
    MediaSourceApp app;
    // An id is a file name, never a path.
    if (desktopEntry.isEmpty() || desktopEntry.contains(u'/'))
        return app;
    const QString path = QStandardPaths::locate(QStandardPaths::ApplicationsLocation,
                                                desktopEntry + QStringLiteral(".desktop"));
    QFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly) || file.size() > 256 * 1024)
        return app;
    QString iconName;
    bool inEntry = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(u'[')) {
            inEntry = line == u"[Desktop Entry]";
            continue;
        }
        if (!inEntry)
            continue;
        if (line.startsWith(u"Name=") && app.name.isEmpty())
            app.name = line.mid(5);
        else if (line.startsWith(u"Icon=") && iconName.isEmpty())
            iconName = line.mid(5);
    }
    if (iconName.startsWith(u'/'))
        app.icon = QImage(iconName);
    else if (!iconName.isEmpty())
        app.icon = QIcon::fromTheme(iconName).pixmap(64, 64).toImage();
    return app;
}

} // namespace vell
