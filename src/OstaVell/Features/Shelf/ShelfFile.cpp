#include "OstaVell/Features/Shelf/ShelfFile.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace vell {

QByteArray ShelfFile::encode(const QList<ShelfItem>& items) {
    QJsonArray array;
    for (const ShelfItem& item : items)
        array.append(item.toJson());
    // QJsonObject keeps its keys sorted, so the indented form is the sorted form.
    return QJsonDocument(array).toJson(QJsonDocument::Indented);
}

std::optional<QList<ShelfItem>> ShelfFile::decode(const QByteArray& bytes, QString* error) {
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        if (error)
            *error = parseError.errorString();
        return std::nullopt;
    }
    if (!document.isArray()) {
        if (error)
            *error = QStringLiteral("The file isn't a list of items.");
        return std::nullopt;
    }
    QList<ShelfItem> items;
    const QJsonArray array = document.array();
    items.reserve(array.size());
    for (const QJsonValue& element : array) {
        std::optional<ShelfItem> item = ShelfItem::fromJson(element, error);
        if (!item)
            return std::nullopt;
        items.append(std::move(*item));
    }
    return items;
}

} // namespace vell
