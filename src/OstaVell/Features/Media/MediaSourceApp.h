#pragma once

#include <QImage>
#include <QString>

namespace vell {

// The application behind a player, from its desktop entry: its name and its icon.
struct MediaSourceApp {
    QString name;
    QImage icon;

    // Looks for "<id>.desktop" among the applications folders; nothing found gives an empty
    // name and no icon.
    static MediaSourceApp lookup(const QString& desktopEntry);
};

} // namespace vell
