#include "OstaVell/Features/Notes/NotesItem.h"

#include <QRegularExpression>
#include <QStringList>

namespace vell {

namespace {

QString isoDate(const QDateTime& date) {
    return date.toUTC().toString(Qt::ISODate);
}

std::optional<QDateTime> parseDate(const QJsonValue& json) {
    if (!json.isString())
        return std::nullopt;
    const QString text = json.toString();
    QDateTime date = QDateTime::fromString(text, Qt::ISODateWithMs);
    if (!date.isValid())
        date = QDateTime::fromString(text, Qt::ISODate);
    if (!date.isValid())
        return std::nullopt;
    return date.toUTC();
}

} // namespace

QString NotesItem::firstLinePreview() const {
    static const QRegularExpression lineBreak(QStringLiteral("\r\n|[\n\r\u2028\u2029\u0085]"));
    const QStringList lines = text.split(lineBreak);
    for (const QString& line : lines) {
        const QString trimmed = line.trimmed();
        if (!trimmed.isEmpty())
            return trimmed;
    }
    return QStringLiteral("New Note");
}

QJsonObject NotesItem::toJson() const {
    return {
        {QStringLiteral("id"), id.toString(QUuid::WithoutBraces).toUpper()},
        {QStringLiteral("text"), text},
        {QStringLiteral("createdAt"), isoDate(createdAt)},
        {QStringLiteral("updatedAt"), isoDate(updatedAt)},
    };
}

std::optional<NotesItem> NotesItem::fromJson(const QJsonValue& json) {
    if (!json.isObject())
        return std::nullopt;
    const QJsonObject object = json.toObject();
    const QJsonValue id = object.value(QLatin1StringView("id"));
    const QJsonValue text = object.value(QLatin1StringView("text"));
    const std::optional<QDateTime> createdAt = parseDate(object.value(QLatin1StringView("createdAt")));
    const std::optional<QDateTime> updatedAt = parseDate(object.value(QLatin1StringView("updatedAt")));
    if (!id.isString() || !text.isString() || !createdAt || !updatedAt)
        return std::nullopt;
    const QUuid uuid = QUuid::fromString(id.toString());
    if (uuid.isNull())
        return std::nullopt;
    return NotesItem{uuid, text.toString(), *createdAt, *updatedAt};
}

} // namespace vell
