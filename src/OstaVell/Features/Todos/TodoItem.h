#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QUuid>

#include <optional>

namespace vell {

// One to-do. Instants are kept in UTC to the whole second, the precision of the file, so that what
// is in memory is exactly what the next launch reads.
struct TodoItem final {
    QUuid id;
    QString title;
    bool done = false;
    bool favorite = false;
    QDateTime createdAt;
    std::optional<QDateTime> completedAt;

    QJsonObject toJson() const;
    // Nothing when a field is missing or of the wrong kind.
    static std::optional<TodoItem> fromJson(const QJsonValue& json);

    // An instant as the file holds it: "2024-05-01T09:30:00Z".
    static QString dateText(const QDateTime& date);
    static std::optional<QDateTime> dateFromText(const QJsonValue& json);
    // The instant cut to the whole second, in UTC.
    static QDateTime toFileResolution(const QDateTime& date);

    friend bool operator==(const TodoItem&, const TodoItem&) = default;
};

} // namespace vell
