#include "OstaVell/Features/Shelf/ShelfStorage.h"

#include "OstaVell/Features/Shelf/ShelfItem.h"
#include "VellPluginSDK/Json/JsonFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QRegularExpression>
#include <QTextBoundaryFinder>

namespace vell {

ShelfStorage::ShelfStorage(const QString& directory)
    : m_directory(QDir::cleanPath(directory)) {}

QString ShelfStorage::cleanBaseName(const QString& name) {
    static const QRegularExpression forbidden(QStringLiteral("[/:\\\\?%*|\"<>]+"));
    QString cleaned = ShelfItem::leadingCharacters(QString(name).replace(forbidden, QStringLiteral("-")),
                                                   maximumNameCharacters);
    while (cleaned.toUtf8().size() > maximumNameBytes) {
        QTextBoundaryFinder characters(QTextBoundaryFinder::Grapheme, cleaned);
        characters.toEnd();
        cleaned.truncate(characters.toPreviousBoundary());
    }
    return cleaned.isEmpty() ? QStringLiteral("Item") : cleaned;
}

QString ShelfStorage::timestamp(const QDateTime& when) {
    return when.toLocalTime().toString(QStringLiteral("yyyy-MM-dd 'at' HH.mm.ss"));
}

QString ShelfStorage::extensionForType(const QString& mimeType) {
    const QMimeType type = QMimeDatabase().mimeTypeForName(mimeType);
    return type.isValid() ? type.preferredSuffix() : QString();
}

std::optional<QString> ShelfStorage::write(const QByteArray& data, const QString& baseName,
                                           const QString& extension, QString* error) const {
    const FileResult folder = JsonFile::makeFolder(m_directory, JsonFile::privateFolder);
    if (!folder) {
        if (error)
            *error = folder.error();
        return std::nullopt;
    }
    const QString base = cleanBaseName(baseName);
    const QString suffix = extension.isEmpty() ? QString() : QLatin1Char('.') + extension;
    QString path = m_directory + QLatin1Char('/') + base + suffix;
    // A dangling link counts as taken too: writing there would replace someone's link.
    const auto taken = [](const QString& candidate) {
        const QFileInfo info(candidate);
        return info.exists() || info.isSymLink();
    };
    for (int counter = 2; taken(path); ++counter)
        path = m_directory + QLatin1Char('/') + base + QLatin1Char(' ') + QString::number(counter) + suffix;
    const FileResult written = JsonFile::write(path, data);
    if (!written) {
        if (error)
            *error = written.error();
        return std::nullopt;
    }
    return path;
}

bool ShelfStorage::removeOwned(const QString& path) const {
    const QString folder = QFileInfo(m_directory).canonicalFilePath();
    const QString file = QFileInfo(path).canonicalFilePath();
    if (folder.isEmpty() || file.isEmpty() || !file.startsWith(folder + QLatin1Char('/')))
        return false;
    return QFile::remove(file);
}

} // namespace vell
