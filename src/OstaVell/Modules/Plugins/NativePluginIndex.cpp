#include "OstaVell/Modules/Plugins/NativePluginIndex.h"

#include "VellHost/FileDescriptor.h"
#include "VellHost/NativePluginBundle.h"
#include "VellPluginSDK/Actions/PluginBusMessage.h"
#include "VellPluginSDK/Json/JsonFile.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <QUuid>

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace vell {

namespace {

const QString invalidIndex = QStringLiteral("Invalid plugin index.");

// Only the permission bits travel: a copy the host makes has no reason to carry set-user-ID,
// set-group-ID or sticky bits.
constexpr mode_t permissionBits = 0777;
constexpr size_t copyChunkBytes = 65536;

bool isFingerprint(const QString& text) {
    static const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(QStringLiteral("[0-9A-Fa-f]{64}")));
    return pattern.match(text).hasMatch();
}

// The same failure for every retained version that is not what the index can restore.
void checkSavedVersion(const NativePluginVersion& version, const QString& id) {
    const QString invalid = QStringLiteral("Invalid retained plugin version.");
    try {
        version.manifest.validate();
    } catch (const ModuleProblem&) {
        throw ModuleProblem(invalid);
    }
    if (version.manifest.id != id || !NativePluginIndex::isFolderName(version.folder) ||
        !isFingerprint(version.fingerprint))
        throw ModuleProblem(invalid);
}

// What a decoded index must be, one check at a time over the whole list: its size and ids, each
// record's manifest and folder, the length of each history, then each saved version.
void checkRecords(const QList<NativePluginRecord>& records) {
    QSet<QString> ids;
    for (const NativePluginRecord& record : records)
        ids.insert(record.manifest.id);
    if (records.size() > NativePluginIndex::maximumPlugins || ids.size() != records.size())
        throw ModuleProblem(invalidIndex);
    for (const NativePluginRecord& record : records) {
        record.manifest.validate();
        if (!NativePluginIndex::isFolderName(record.folder))
            throw ModuleProblem(QStringLiteral("Invalid plugin storage path."));
    }
    for (const NativePluginRecord& record : records) {
        if (record.previousVersions &&
            record.previousVersions->size() > NativePluginIndex::maximumSavedVersions)
            throw ModuleProblem(QStringLiteral("Invalid plugin version history."));
    }
    for (const NativePluginRecord& record : records) {
        for (const NativePluginVersion& version :
             record.previousVersions.value_or(QList<NativePluginVersion>()))
            checkSavedVersion(version, record.manifest.id);
    }
}

[[noreturn]] void copyFailed(int error) {
    throw ModuleProblem(
        QStringLiteral("Could not copy the plugin: %1").arg(QString::fromLocal8Bit(std::strerror(error))));
}

struct DirectoryCloser {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

// Copies a regular file's bytes and permission bits. Opened without following a link and
// without blocking, and left out when it is no longer a regular file by then.
// What a copy may still take. The source was inspected just before, but it may change while it
// is copied; the copy never takes more than a bundle may hold.
struct CopyBudget {
    qint64 bytes = NativePluginBundle::maximumBundleBytes;
    qint64 files = NativePluginBundle::maximumFiles;
    qint64 directories = NativePluginBundle::maximumDirectories;

    static void spend(qint64& left, qint64 amount) {
        left -= amount;
        if (left < 0)
            throw ModuleProblem(QStringLiteral("Plugin bundle exceeds its size limit."));
    }
};

void copyFile(int sourceFolder, int targetFolder, const char* name, CopyBudget& budget) {
    const FileDescriptor source(
        ::openat(sourceFolder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (source.get() < 0)
        copyFailed(errno);
    struct stat info {};
    if (::fstat(source.get(), &info) != 0)
        copyFailed(errno);
    if (!S_ISREG(info.st_mode))
        return;
    const FileDescriptor target(::openat(targetFolder, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (target.get() < 0)
        copyFailed(errno);
    const auto buffer = std::make_unique<char[]>(copyChunkBytes);
    for (;;) {
        const ssize_t received = ::read(source.get(), buffer.get(), copyChunkBytes);
        if (received < 0 && errno == EINTR)
            continue;
        if (received < 0)
            copyFailed(errno);
        if (received == 0)
            break;
        CopyBudget::spend(budget.bytes, received);
        for (ssize_t written = 0; written < received;) {
            const ssize_t sent = ::write(target.get(), buffer.get() + written, size_t(received - written));
            if (sent < 0 && errno == EINTR)
                continue;
            if (sent < 0)
                copyFailed(errno);
            written += sent;
        }
    }
    if (::fchmod(target.get(), info.st_mode & permissionBits) != 0)
        copyFailed(errno);
}

// Makes name in targetParent as a copy of the directory source (taken), then its entries. The
// directory's own mode is set last, so that a read-only one can still be filled.
void copyDirectory(int source, mode_t mode, int targetParent, const char* name, CopyBudget& budget,
                   int depth) {
    std::unique_ptr<DIR, DirectoryCloser> listing(::fdopendir(source));
    if (!listing) {
        const int error = errno;
        ::close(source);
        copyFailed(error);
    }
    if (::mkdirat(targetParent, name, 0700) != 0)
        copyFailed(errno);
    const FileDescriptor target(
        ::openat(targetParent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (target.get() < 0)
        copyFailed(errno);
    const int sourceFd = ::dirfd(listing.get());
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(listing.get());
        if (!entry) {
            if (errno != 0)
                copyFailed(errno);
            break;
        }
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
            continue;
        struct stat info {};
        if (::fstatat(sourceFd, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0)
            copyFailed(errno);
        if (S_ISREG(info.st_mode)) {
            CopyBudget::spend(budget.files, 1);
            copyFile(sourceFd, target.get(), entry->d_name, budget);
        } else if (S_ISDIR(info.st_mode)) {
            if (depth >= NativePluginBundle::maximumDepth)
                CopyBudget::spend(budget.directories, budget.directories + 1);
            CopyBudget::spend(budget.directories, 1);
            const int child =
                ::openat(sourceFd, entry->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (child < 0)
                copyFailed(errno);
            copyDirectory(child, info.st_mode, target.get(), entry->d_name, budget, depth + 1);
        }
    }
    if (::fchmod(target.get(), mode & permissionBits) != 0)
        copyFailed(errno);
}

} // namespace

NativePluginIndex::NativePluginIndex(QString directory)
    : m_directory(std::move(directory)) {}

QString NativePluginIndex::path() const {
    return QDir(m_directory).filePath(indexFile.toString());
}

bool NativePluginIndex::isFolderName(const QString& text) {
    static const QRegularExpression pattern(QRegularExpression::anchoredPattern(
        QStringLiteral("[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}")));
    return pattern.match(text).hasMatch();
}

QList<NativePluginRecord> NativePluginIndex::load() const {
    const FileContents file = JsonFile::readBytes(path(), maximumFileBytes);
    if (file.missing())
        return {};
    if (file.status == FileContents::Status::Unusable)
        throw ModuleProblem(file.error);
    if (file.status == FileContents::Status::TooLarge)
        throw ModuleProblem(QStringLiteral("Plugin index exceeds its limit."));

    // It must parse as a whole: the text, the array, and every record in it.
    const QList<NativePluginRecord> records =
        JsonReader::recordArray<NativePluginRecord>(JsonReader::parse(file.bytes), invalidIndex);
    checkRecords(records);
    return records;
}

void NativePluginIndex::persist(const QList<NativePluginRecord>& records) const {
    const FileResult folder = JsonFile::makeFolder(m_directory, JsonFile::privateFolder);
    if (!folder)
        throw ModuleProblem(folder.error());
    QList<QByteArray> items;
    items.reserve(records.size());
    for (const NativePluginRecord& record : records)
        items.append(record.encoded());
    const QByteArray bytes = JsonWriter::encodeArray(items);
    if (bytes.size() > maximumFileBytes)
        throw ModuleProblem(QStringLiteral(
            "Plugin version history exceeds the storage limit. The current installation was kept."));
    const FileResult written = JsonFile::write(path(), bytes, JsonFile::privateFolder);
    if (!written)
        throw ModuleProblem(written.error());
}

NativePluginRecord NativePluginIndex::installed(const std::optional<NativePluginRecord>& previous,
                                                const PluginManifest& manifest, const QString& folder,
                                                const QString& fingerprint, double now) {
    NativePluginRecord record;
    record.manifest = manifest;
    record.folder = folder;
    record.fingerprint = fingerprint;
    if (!previous)
        return record;
    record.enabled = previous->enabled;
    record.hiddenDisplayIDs = previous->hiddenDisplayIDs;
    record.compactActivity = previous->compactActivity;

    QList<NativePluginVersion> candidates{{previous->manifest, previous->folder, previous->fingerprint, now}};
    candidates += previous->previousVersions.value_or(QList<NativePluginVersion>());
    // The version being installed is the current one, never a saved one; of two saved copies of
    // the same bytes the newer stays.
    QList<NativePluginVersion> history;
    QSet<QString> seen{fingerprint};
    for (const NativePluginVersion& version : std::as_const(candidates)) {
        if (seen.contains(version.fingerprint))
            continue;
        seen.insert(version.fingerprint);
        history.append(version);
        if (history.size() == maximumSavedVersions)
            break;
    }
    if (!history.isEmpty())
        record.previousVersions = history;
    return record;
}

QString NativePluginIndex::copyBundle(const QString& bundleRoot) const {
    const FileResult root = JsonFile::makeFolder(m_directory, JsonFile::privateFolder);
    if (!root)
        throw ModuleProblem(root.error());
    const QString folder = uuidText(QUuid::createUuid());
    const QByteArray folderPath = QFile::encodeName(QDir(m_directory).filePath(folder));
    if (::mkdir(folderPath.constData(), 0700) != 0)
        copyFailed(errno);
    try {
        const FileDescriptor target(
            ::open(folderPath.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (target.get() < 0)
            copyFailed(errno);
        const int source = ::open(QFile::encodeName(bundleRoot).constData(),
                                  O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (source < 0)
            copyFailed(errno);
        struct stat info {};
        if (::fstat(source, &info) != 0) {
            const int error = errno;
            ::close(source);
            copyFailed(error);
        }
        const QByteArray name = QFile::encodeName(bundleFolder.toString());
        CopyBudget budget;
        copyDirectory(source, info.st_mode, target.get(), name.constData(), budget, 0);
    } catch (const ModuleProblem&) {
        removeFolder(folder);
        throw;
    }
    return folder;
}

QString NativePluginIndex::bundlePath(const QString& folder) const {
    return QDir(m_directory).filePath(folder + u'/' + bundleFolder.toString());
}

void NativePluginIndex::removeFolder(const QString& folder) const {
    if (!isFolderName(folder))
        return;
    // Links inside are removed as links; nothing outside the folder is touched.
    QDir(QDir(m_directory).filePath(folder)).removeRecursively();
}

} // namespace vell
