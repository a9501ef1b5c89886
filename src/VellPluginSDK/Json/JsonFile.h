#pragma once

#include <QByteArray>
#include <QFileDevice>
#include <QJsonDocument>
#include <QString>

#include <optional>

namespace vell {

// What a file operation left behind: done, or the sentence that says why not. File functions
// answer this instead of throwing.
class FileResult final {
public:
    static FileResult done() { return FileResult(); }
    static FileResult failed(QString error) { return FileResult(std::move(error)); }

    bool ok() const { return !m_error; }
    explicit operator bool() const { return ok(); }
    QString error() const { return m_error.value_or(QString()); }

private:
    FileResult() = default;
    explicit FileResult(QString error)
        : m_error(std::move(error)) {}

    std::optional<QString> m_error;
};

// The bytes of a file read with a bound.
struct FileContents final {
    enum class Status {
        Read,     // bytes holds the whole file
        Missing,  // nothing exists at the path: a first start, not a fault
        TooLarge, // more than the bound; bytes holds the first bound + 1 bytes
        Unusable, // it exists and can't be read: not a regular file, no permission, an I/O error
    };

    Status status = Status::Missing;
    QByteArray bytes;
    QString error; // the system's words, for Missing and Unusable

    bool read() const { return status == Status::Read; }
    bool missing() const { return status == Status::Missing; }
};

// A JSON document read the same way, parsed as a whole.
struct JsonContents final {
    enum class Status { Read, Missing, TooLarge, Unusable };

    Status status = Status::Missing;
    QJsonDocument document;
    QString error; // for Unusable: why it couldn't be read or parsed

    bool read() const { return status == Status::Read; }
    bool missing() const { return status == Status::Missing; }
};

// The one way a store, the router or a tool reads and writes its files.
//
// Reads never block on something that is not a regular file (a named pipe or a device is
// refused before a byte is read) and never take more than the bound into memory. Writes
// replace the file atomically or leave it as it was, and create the folder first.
class JsonFile final {
public:
    JsonFile() = delete;

    // The mode of a folder made for the user's data alone.
    static constexpr QFileDevice::Permissions privateFolder =
        QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;

    static FileContents readBytes(const QString& path, qint64 maximumBytes);
    static JsonContents read(const QString& path, qint64 maximumBytes);

    // Atomic replacement through a temporary file in the same folder; nothing is ever written
    // in place. The folder is created with folderMode when it does not exist; an existing
    // folder keeps its mode.
    static FileResult write(const QString& path, const QByteArray& bytes,
                            std::optional<QFileDevice::Permissions> folderMode = std::nullopt);

    // Moves a file that can't be used out of the way, to its path with the suffix added, in one
    // step that replaces an earlier file of that name: the newest casualty is the one kept, and
    // a write to the path starts afresh without destroying what was there.
    static FileResult moveAside(const QString& path, const QString& suffix);

    // Creates the folder and its parents; the last one gets mode when given.
    static FileResult makeFolder(const QString& path,
                                 std::optional<QFileDevice::Permissions> mode = std::nullopt);
};

} // namespace vell
