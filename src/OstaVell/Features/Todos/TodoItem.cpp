#include "OstaVell/Features/Todos/TodoItem.h"

namespace vell {

namespace {

const QString idKey = QStringLiteral("id");
const QString titleKey = QStringLiteral("title");
const QString doneKey = QStringLiteral("done");
const QString favoriteKey = QStringLiteral("favorite");
const QString createdAtKey = QStringLiteral("createdAt");
const QString completedAtKey = QStringLiteral("completedAt");

} // namespace

QString TodoItem::dateText(const QDateTime& date) {
    return date.toUTC().toString(Qt::ISODate);
}

std::optional<QDateTime> TodoItem::dateFromText(const QJsonValue& json) {
    if (!json.isString())
        return std::nullopt;
    const QString text = json.toString();
    QDateTime date = QDateTime::fromString(text, Qt::ISODateWithMs);
    if (!date.isValid())
        date = QDateTime::fromString(text, Qt::ISODate);
    if (!date.isValid())
        return std::nullopt;
    return toFileResolution(date);
}

QDateTime TodoItem::toFileResolution(const QDateTime& date) {
    return QDateTime::fromSecsSinceEpoch(date.toSecsSinceEpoch(), Qt::UTC);
}

QJsonObject TodoItem::toJson() const {
    QJsonObject object{
        {idKey, id.toString(QUuid::WithoutBraces).toUpper()},
        {titleKey, title},
        {doneKey, done},
        {favoriteKey, favorite},
        {createdAtKey, dateText(createdAt)},
    };
    if (completedAt)
        object.insert(completedAtKey, dateText(*completedAt));
    return object;
}

std::optional<TodoItem> TodoItem::fromJson(const QJsonValue& json) {
    if (!json.isObject())
        return std::nullopt;
    const QJsonObject object = json.toObject();
    const QJsonValue id = object.value(idKey);
    const QJsonValue title = object.value(titleKey);
    const QJsonValue done = object.value(doneKey);
    const QJsonValue favorite = object.value(favoriteKey);
    const std::optional<QDateTime> createdAt = dateFromText(object.value(createdAtKey));
    if (!id.isString() || !title.isString() || !done.isBool() || !favorite.isBool() || !createdAt)
        return std::nullopt;
    const QUuid uuid = QUuid::fromString(id.toString());
    if (uuid.isNull())
        return std::nullopt;
    TodoItem item{uuid, title.toString(), done.toBool(), favorite.toBool(), *createdAt, std::nullopt};
    // An absent optional is left out of the file; null stands for it too.
    const QJsonValue completed = object.value(completedAtKey);
    if (!completed.isUndefined() && !completed.isNull()) {
        item.completedAt = dateFromText(completed);
        if (!item.completedAt)
            return std::nullopt;
    }
    return item;
}

} // namespace vell
