#pragma once

// What the tray's tests share: a store of their own on a temporary folder with a clock they
// move, files written and read as they are on disk, and a way for a test running as root to
// meet the permissions a user meets.

#include "OstaVell/Features/Shelf/ShelfStore.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <sys/fsuid.h>
#include <unistd.h>

namespace vell::test {

inline QByteArray readAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline bool writeAll(const QString& path, const QByteArray& bytes) {
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return false;
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

// The names in a folder, sorted.
inline QStringList namesIn(const QString& folder) {
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                                  QDir::Name);
}

// While it lives, the file system sees this thread as the user "nobody": root passes every
// permission check, and a test of what a read-only folder or an unreadable file does must not.
// Dropping the file system's user id also drops the capabilities that would override them.
class AsNobody final {
public:
    AsNobody() {
        if (::geteuid() == 0) {
            ::setfsgid(65534);
            ::setfsuid(65534);
        }
    }
    ~AsNobody() {
        if (::geteuid() == 0) {
            ::setfsuid(0);
            ::setfsgid(0);
        }
    }
    Q_DISABLE_COPY_MOVE(AsNobody)
};

// A tray on a temporary folder: the support folder "OstaVell" in it, the user defaults beside.
class TrayFolder final {
public:
    TrayFolder()
        : m_defaults(m_dir.filePath(QStringLiteral("OstaVell.conf"))) {
        // Open to others, so that a test can look at it as "nobody".
        QFile::setPermissions(m_dir.path(), QFile::permissions(m_dir.path()) | QFile::ReadOther |
                                                QFile::ExeOther | QFile::ReadGroup | QFile::ExeGroup);
    }

    QString path() const { return m_dir.path(); }
    QString support() const { return m_dir.filePath(QStringLiteral("OstaVell")); }
    QString storeFile() const { return support() + QStringLiteral("/shelf.json"); }
    QString storage() const { return support() + QStringLiteral("/ShelfStorage"); }
    UserDefaults& defaults() { return m_defaults; }

    std::unique_ptr<ShelfStore> open(qint64 maximumBytes = ShelfStore::defaultMaximumFileBytes) {
        auto store =
            std::make_unique<ShelfStore>(ShelfLocations(support()), m_defaults, nullptr, maximumBytes);
        store->clock = [this] { return now; };
        return store;
    }

    QDateTime now = QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC);

private:
    QTemporaryDir m_dir;
    UserDefaults m_defaults;
};

} // namespace vell::test
