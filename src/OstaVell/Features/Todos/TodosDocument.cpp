#include "OstaVell/Features/Todos/TodosDocument.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace vell {

namespace {

const QString activeKey = QStringLiteral("active");
const QString archivedKey = QStringLiteral("archived");

QJsonArray toArray(const QList<TodoItem>& items) {
    QJsonArray array;
    for (const TodoItem& item : items)
        array.append(item.toJson());
    return array;
}

std::optional<QList<TodoItem>> fromArray(const QJsonValue& json, const QString& key, QString* error) {
    if (!json.isArray()) {
        if (error)
            *error = QStringLiteral("\"%1\" is not a list").arg(key);
        return std::nullopt;
    }
    QList<TodoItem> items;
    const QJsonArray array = json.toArray();
    for (qsizetype i = 0; i < array.size(); ++i) {
        std::optional<TodoItem> item = TodoItem::fromJson(array.at(i));
        if (!item) {
            if (error)
                *error = QStringLiteral("item %1 of \"%2\" is not a to-do").arg(i).arg(key);
            return std::nullopt;
        }
        items.append(*item);
    }
    return items;
}

} // namespace

QByteArray TodosDocument::toData() const {
    // QJsonObject keeps its keys sorted, so the indented form is the sorted one.
    const QJsonObject object{{activeKey, toArray(active)}, {archivedKey, toArray(archived)}};
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

std::optional<TodosDocument> TodosDocument::fromData(const QByteArray& data, QString* error) {
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(data, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        if (error)
            *error = parseError.errorString();
        return std::nullopt;
    }
    if (!document.isObject()) {
        if (error)
            *error = QStringLiteral("the data is not an object");
        return std::nullopt;
    }
    const QJsonObject object = document.object();
    std::optional<QList<TodoItem>> active = fromArray(object.value(activeKey), activeKey, error);
    if (!active)
        return std::nullopt;
    std::optional<QList<TodoItem>> archived = fromArray(object.value(archivedKey), archivedKey, error);
    if (!archived)
        return std::nullopt;
    return TodosDocument{*active, *archived};
}

} // namespace vell
