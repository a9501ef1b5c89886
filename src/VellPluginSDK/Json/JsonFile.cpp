#include "VellPluginSDK/Json/JsonFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vell {

namespace {

QString systemError(int error) {
    return QString::fromLocal8Bit(std::strerror(error));
}

} // namespace

FileContents JsonFile::readBytes(const QString& path, qint64 maximumBytes) {
    FileContents contents;
    const QByteArray name = QFile::encodeName(path);
    // Non-blocking, so that opening a named pipe returns at once; the type is then judged on
    // what was opened, not on a path that could change in between.
    const int fd = ::open(name.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        contents.status = errno == ENOENT ? FileContents::Status::Missing : FileContents::Status::Unusable;
        contents.error = systemError(errno);
        return contents;
    }
    struct stat info {};
    const bool statted = ::fstat(fd, &info) == 0;
    if (!statted || !S_ISREG(info.st_mode)) {
        const int error = errno;
        ::close(fd);
        contents.status = FileContents::Status::Unusable;
        contents.error = statted ? QStringLiteral("Not a regular file.") : systemError(error);
        return contents;
    }
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);

    QFile file;
    if (!file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        contents.status = FileContents::Status::Unusable;
        contents.error = file.errorString();
        return contents;
    }
    // One byte beyond the bound tells a file over it from one exactly at it, without reading
    // a file of any size into memory.
    contents.bytes = file.read(maximumBytes + 1);
    if (file.error() != QFileDevice::NoError) {
        contents.status = FileContents::Status::Unusable;
        contents.error = file.errorString();
        contents.bytes.clear();
    } else {
        contents.status = contents.bytes.size() > maximumBytes ? FileContents::Status::TooLarge
                                                               : FileContents::Status::Read;
    }
    return contents;
}

JsonContents JsonFile::read(const QString& path, qint64 maximumBytes) {
    const FileContents raw = readBytes(path, maximumBytes);
    JsonContents contents;
    switch (raw.status) {
    case FileContents::Status::Missing:
        contents.status = JsonContents::Status::Missing;
        return contents;
    case FileContents::Status::TooLarge:
        contents.status = JsonContents::Status::TooLarge;
        return contents;
    case FileContents::Status::Unusable:
        contents.status = JsonContents::Status::Unusable;
        contents.error = raw.error;
        return contents;
    case FileContents::Status::Read:
        break;
    }
    QJsonParseError parseError;
    contents.document = QJsonDocument::fromJson(raw.bytes, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        contents.status = JsonContents::Status::Unusable;
        contents.error = parseError.errorString();
        contents.document = QJsonDocument();
    } else {
        contents.status = JsonContents::Status::Read;
    }
    return contents;
}

FileResult JsonFile::makeFolder(const QString& path, std::optional<QFileDevice::Permissions> mode) {
    if (QFileInfo(path).isDir())
        return FileResult::done();
    if (!QDir().mkpath(path))
        return FileResult::failed(QStringLiteral("Could not create the folder %1.").arg(path));
    if (mode && !QFile::setPermissions(path, *mode))
        return FileResult::failed(QStringLiteral("Could not protect the folder %1.").arg(path));
    return FileResult::done();
}

FileResult JsonFile::moveAside(const QString& path, const QString& suffix) {
    const QByteArray from = QFile::encodeName(path);
    const QByteArray to = QFile::encodeName(path + suffix);
    if (::rename(from.constData(), to.constData()) != 0)
        return FileResult::failed(systemError(errno));
    return FileResult::done();
}

FileResult JsonFile::write(const QString& path, const QByteArray& bytes,
                           std::optional<QFileDevice::Permissions> folderMode) {
    const FileResult folder = makeFolder(QFileInfo(path).absolutePath(), folderMode);
    if (!folder)
        return folder;
    QSaveFile file(path);
    file.setDirectWriteFallback(false);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit())
        return FileResult::failed(file.errorString());
    return FileResult::done();
}

} // namespace vell
