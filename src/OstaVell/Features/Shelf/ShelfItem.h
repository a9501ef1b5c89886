#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <optional>

namespace vell {

// One thing on the tray: a file it references (or owns, when isStoredCopy), a link, or a text.
// Only the payload of the item's kind is meaningful; the others stay empty.
struct ShelfItem final {
    enum class Kind { file, link, text };

    QUuid id;
    Kind kind = Kind::text;
    QByteArray bookmark; // file: ShelfBookmark bytes, possibly empty
    QUrl url;            // link
    QString string;      // text
    QString displayName;
    QDateTime addedAt; // UTC, whole seconds, so that what is kept is what the file says
    std::optional<QString> filePath;
    bool isStoredCopy = false;

    static ShelfItem file(const QUuid& id, const QByteArray& bookmark, const QString& displayName,
                          const QDateTime& addedAt, const QString& filePath, bool isStoredCopy);
    static ShelfItem link(const QUuid& id, const QUrl& url, const QDateTime& addedAt);
    static ShelfItem text(const QUuid& id, const QString& string, const QDateTime& addedAt);

    // Two items with the same key are the same thing on the tray.
    QString identityKey() const;

    // 64-bit FNV-1a over the UTF-8 bytes: the same on every run and every machine, unlike
    // QHash's seeded hash.
    static quint64 stableHash(const QString& text);
    // The first line with something on it, trimmed; cut to 40 characters and "…" from 41 on;
    // "Text Snippet" when there is no such line.
    static QString displayNameForText(const QString& text);
    // At most count user-perceived characters from the start: a letter with its accents, an
    // emoji with its modifiers, a CR LF pair each count once and are never split.
    static QString leadingCharacters(const QString& text, qsizetype count);
    // A link is called by its host, or by the whole address when it has none.
    static QString displayNameForLink(const QUrl& url);
    // The text of an id as the file keeps it: upper case, no braces.
    static QString idText(const QUuid& id);
    static QString dateText(const QDateTime& date);

    QJsonObject toJson() const;
    // Nothing when the value is no item; error then says why in one sentence.
    static std::optional<ShelfItem> fromJson(const QJsonValue& json, QString* error = nullptr);

    friend bool operator==(const ShelfItem&, const ShelfItem&) = default;
};

} // namespace vell
