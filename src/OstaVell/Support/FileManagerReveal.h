#pragma once

#include <QString>
#include <QStringList>

#include <functional>

namespace vell {

// Shows files selected in their folders, in whatever file manager the desktop offers through
// org.freedesktop.FileManager1 on the session bus. The call is asynchronous: the file manager
// may have to be started by the bus first, and nothing of ours waits for it.
class FileManagerReveal final {
public:
    FileManagerReveal() = delete;

    static constexpr const char* service = "org.freedesktop.FileManager1";
    static constexpr const char* path = "/org/freedesktop/FileManager1";
    static constexpr const char* interface = "org.freedesktop.FileManager1";

    // Paths are made absolute and sent as file URIs. `finished` gets an empty text when the file
    // manager took the request, or the bus's words when it did not; it runs on this thread, later.
    static void showItems(const QStringList& paths,
                          const std::function<void(const QString& error)>& finished = {});
};

} // namespace vell
