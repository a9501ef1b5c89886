#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace vell {

// What stands in for a file's security-scoped bookmark: the device, inode and size the file had
// when it was added, and the path it had then, as compact JSON. A file keeps its device and
// inode when it is renamed or moved within its file system, so the bookmark finds it again
// where a plain path would not.
//
// Resolving first asks the recorded path. When something else, or nothing, is there now, it
// looks for the same device and inode, with the same size, among the files of the folder the
// file was in and in the home folder to a depth of three folders, visiting at most
// maximumVisits entries: a rename or a move nearby is found, a full search of the disk is never
// made. The size is asked for there because an inode number freed by a deleted file is soon
// given to a new one; at the recorded path the size may differ (the file was edited).
class ShelfBookmark final {
public:
    ShelfBookmark() = delete;

    static constexpr int searchDepth = 3;
    static constexpr int maximumVisits = 20000;

    struct Resolved {
        QString path;
        // Found elsewhere than the recorded path: a new bookmark should be made.
        bool stale = false;
    };

    // Empty when the path names no file that can be looked at.
    static QByteArray make(const QString& path);
    // Nothing when the bytes are no bookmark or the file is gone from where it can be found.
    static std::optional<Resolved> resolve(const QByteArray& bookmark, const QString& home);
};

} // namespace vell
