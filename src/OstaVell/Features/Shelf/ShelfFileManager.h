#pragma once

#include <QList>
#include <QUrl>

namespace vell {

// The desktop's file manager, over the session bus and without waiting for it: a file is shown
// selected in its folder, or previewed by the file manager's previewer. Where no file manager
// answers, the folder, or the file, is opened with the user's default program instead.
class ShelfFileManager final {
public:
    ShelfFileManager() = delete;

    static constexpr int callTimeoutMs = 10000;

    // org.freedesktop.FileManager1.ShowItems with the files' URIs.
    static void reveal(const QList<QUrl>& files);
    // The previewer shows one file: the first. Without one, each file is opened.
    static void preview(const QList<QUrl>& files);
    static void open(const QList<QUrl>& urls);
};

} // namespace vell
