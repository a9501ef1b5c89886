#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QJsonValue>
#include <QMetaType>
#include <QString>
#include <QUuid>

#include <optional>

namespace vell {

// One plain-text note. Dates are kept in UTC and written as ISO 8601 to the second.
struct NotesItem final {
    Q_GADGET
    Q_PROPERTY(QUuid id MEMBER id)
    Q_PROPERTY(QString text MEMBER text)
    Q_PROPERTY(QDateTime createdAt MEMBER createdAt)
    Q_PROPERTY(QDateTime updatedAt MEMBER updatedAt)
    Q_PROPERTY(QString firstLinePreview READ firstLinePreview)

public:
    QUuid id;
    QString text;
    QDateTime createdAt;
    QDateTime updatedAt;

    // The first line with something on it, trimmed; "New Note" when there is none.
    QString firstLinePreview() const;

    QJsonObject toJson() const;
    static std::optional<NotesItem> fromJson(const QJsonValue& json);

    friend bool operator==(const NotesItem&, const NotesItem&) = default;
};

} // namespace vell

Q_DECLARE_METATYPE(vell::NotesItem)
