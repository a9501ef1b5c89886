#include "OstaVell/Features/Shelf/ShelfBookmark.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QQueue>

#include <sys/stat.h>

namespace vell {

namespace {

struct Identity {
    quint64 device = 0;
    quint64 inode = 0;
    qint64 size = 0;
    bool regular = true;
};

// Through symbolic links for the path a bookmark was made for, so that a link dropped on the
// tray is its file; without them in a search, which looks for the file itself.
std::optional<Identity> identityOf(const QString& path, bool followLinks = true) {
    struct stat info {};
    const QByteArray name = QFile::encodeName(path);
    if (path.isEmpty() ||
        (followLinks ? ::stat(name.constData(), &info) : ::lstat(name.constData(), &info)) != 0)
        return std::nullopt;
    return Identity{quint64(info.st_dev), quint64(info.st_ino), qint64(info.st_size), S_ISREG(info.st_mode)};
}

// JSON numbers are doubles: device and inode numbers go as decimal text so that no bit of a
// 64-bit number is lost.
std::optional<quint64> number(const QJsonObject& object, const char* key) {
    bool ok = false;
    const quint64 value = object.value(QLatin1StringView(key)).toString().toULongLong(&ok);
    return ok ? std::optional<quint64>(value) : std::nullopt;
}

class Search {
public:
    Search(const Identity& wanted, int budget)
        : m_wanted(wanted)
        , m_budget(budget) {}

    // The first file in folder, and in its subfolders down to depth, with the wanted identity.
    std::optional<QString> in(const QString& folder, int depth) {
        QQueue<std::pair<QString, int>> pending;
        pending.enqueue({folder, 0});
        while (!pending.isEmpty() && m_budget > 0) {
            const auto [current, level] = pending.dequeue();
            const QFileInfoList entries = QDir(current).entryInfoList(QDir::AllEntries | QDir::Hidden |
                                                                      QDir::System | QDir::NoDotAndDotDot);
            for (const QFileInfo& entry : entries) {
                if (--m_budget < 0)
                    return std::nullopt;
                const std::optional<Identity> found = identityOf(entry.filePath(), false);
                if (!found)
                    continue;
                // A folder's size says nothing about it; a file's tells it from a newcomer.
                if (found->device == m_wanted.device && found->inode == m_wanted.inode &&
                    (!found->regular || found->size == m_wanted.size))
                    return entry.filePath();
                // A link to a folder could lead anywhere, or round in a circle.
                if (entry.isDir() && !entry.isSymLink() && level + 1 < depth)
                    pending.enqueue({entry.filePath(), level + 1});
            }
        }
        return std::nullopt;
    }

private:
    Identity m_wanted;
    int m_budget;
};

} // namespace

QByteArray ShelfBookmark::make(const QString& path) {
    const std::optional<Identity> identity = identityOf(path);
    if (!identity)
        return {};
    const QJsonObject object{
        {QStringLiteral("device"), QString::number(identity->device)},
        {QStringLiteral("inode"), QString::number(identity->inode)},
        {QStringLiteral("size"), QString::number(identity->size)},
        {QStringLiteral("path"), QFileInfo(path).absoluteFilePath()},
    };
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<ShelfBookmark::Resolved> ShelfBookmark::resolve(const QByteArray& bookmark,
                                                              const QString& home) {
    const QJsonObject object = QJsonDocument::fromJson(bookmark).object();
    const std::optional<quint64> device = number(object, "device");
    const std::optional<quint64> inode = number(object, "inode");
    const std::optional<quint64> size = number(object, "size");
    const QString path = object.value(QLatin1StringView("path")).toString();
    if (!device || !inode || !size || path.isEmpty())
        return std::nullopt;

    const std::optional<Identity> there = identityOf(path);
    if (there && there->device == *device && there->inode == *inode)
        return Resolved{path, false};

    Search search({*device, *inode, qint64(*size)}, maximumVisits);
    std::optional<QString> found = search.in(QFileInfo(path).absolutePath(), 1);
    if (!found && !home.isEmpty())
        found = search.in(home, searchDepth);
    if (!found)
        return std::nullopt;
    return Resolved{*found, true};
}

} // namespace vell
