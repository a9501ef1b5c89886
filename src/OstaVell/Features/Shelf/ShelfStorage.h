#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <optional>

namespace vell {

// The folder whose files belong to the tray: data that exists nowhere else (a dropped image, a
// pasted picture) is written here and deleted with its item. Nothing outside it is ever
// deleted, whatever an item claims.
class ShelfStorage final {
public:
    static constexpr qsizetype maximumNameCharacters = 80;
    // The file system's limit is 255 bytes a name; this leaves room for the counter and the
    // extension after a name cut to 80 characters of up to four bytes each.
    static constexpr qsizetype maximumNameBytes = 200;

    explicit ShelfStorage(const QString& directory);

    QString directory() const { return m_directory; }

    // Each run of / : \ ? % * | " < > becomes one "-", the result is cut to 80 characters, and
    // an empty name becomes "Item".
    static QString cleanBaseName(const QString& name);
    // "2024-03-09 at 14.05.59" in the user's time zone: a name that sorts by date and has no
    // colon, which some file managers refuse.
    static QString timestamp(const QDateTime& when);
    // The preferred extension of a MIME type ("image/png" gives "png"); empty when it has none.
    static QString extensionForType(const QString& mimeType);

    // Writes data atomically under the cleaned name with the extension, or, while that is
    // taken, the name, a blank and 2, 3 ...; answers the path written, or nothing with the
    // reason in error.
    std::optional<QString> write(const QByteArray& data, const QString& baseName, const QString& extension,
                                 QString* error) const;

    // Deletes the file when, symbolic links resolved in its path and in the folder's, it lies
    // inside the folder. True when it did.
    bool removeOwned(const QString& path) const;

private:
    QString m_directory;
};

} // namespace vell
