#include "OstaVell/Features/Shelf/ShelfLocations.h"

#include <QDir>
#include <QStandardPaths>

namespace vell {

ShelfLocations::ShelfLocations()
    : ShelfLocations(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                     QStringLiteral("/OstaVell")) {}

ShelfLocations::ShelfLocations(const QString& supportDirectory)
    : m_support(QDir::cleanPath(supportDirectory)) {}

QString ShelfLocations::storageDirectory() const {
    return m_support + QStringLiteral("/ShelfStorage");
}

QString ShelfLocations::storeFile() const {
    return m_support + QStringLiteral("/shelf.json");
}

} // namespace vell
