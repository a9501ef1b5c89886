#include "OstaVell/Features/Shelf/ShelfItem.h"

#include <QRegularExpression>
#include <QStringList>
#include <QTextBoundaryFinder>

namespace vell {

namespace {

constexpr quint64 fnvOffsetBasis = 0xcbf29ce484222325ULL;
constexpr quint64 fnvPrime = 0x100000001b3ULL;
constexpr qsizetype textNameLength = 40;

void fail(QString* error, const QString& sentence) {
    if (error)
        *error = sentence;
}

QString kindName(ShelfItem::Kind kind) {
    switch (kind) {
    case ShelfItem::Kind::file:
        return QStringLiteral("file");
    case ShelfItem::Kind::link:
        return QStringLiteral("link");
    case ShelfItem::Kind::text:
        return QStringLiteral("text");
    }
    return {};
}

std::optional<QDateTime> parseDate(const QJsonValue& json) {
    if (!json.isString())
        return std::nullopt;
    QDateTime date = QDateTime::fromString(json.toString(), Qt::ISODateWithMs);
    if (!date.isValid())
        return std::nullopt;
    return date.toUTC();
}

// The payload of "kind": {"file": {"bookmark": base64}}, {"link": {"url": text}} or
// {"text": {"string": text}}. Keys beside the one the payload needs are ignored.
bool decodeKind(const QJsonValue& json, ShelfItem& item, QString* error) {
    if (!json.isObject()) {
        fail(error, QStringLiteral("The kind of an item isn't an object."));
        return false;
    }
    const QJsonObject kind = json.toObject();
    if (kind.size() != 1) {
        fail(error, QStringLiteral("Invalid number of keys found, expected one."));
        return false;
    }
    const QString name = kind.begin().key();
    const QJsonObject payload = kind.begin().value().toObject();
    const auto field = [&](const char* key) -> std::optional<QString> {
        const QJsonValue value = payload.value(QLatin1StringView(key));
        if (!kind.begin().value().isObject() || !value.isString()) {
            fail(error, QStringLiteral("The %1 of a %2 item is missing.").arg(QLatin1StringView(key), name));
            return std::nullopt;
        }
        return value.toString();
    };
    if (name == u"file") {
        const std::optional<QString> text = field("bookmark");
        if (!text)
            return false;
        const auto decoded =
            QByteArray::fromBase64Encoding(text->toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
        if (!decoded) {
            fail(error, QStringLiteral("The bookmark of a file item isn't base64."));
            return false;
        }
        item.kind = ShelfItem::Kind::file;
        item.bookmark = *decoded;
        return true;
    }
    if (name == u"link") {
        const std::optional<QString> text = field("url");
        if (!text)
            return false;
        const QUrl url(*text, QUrl::StrictMode);
        if (text->isEmpty() || !url.isValid()) {
            fail(error, QStringLiteral("The url of a link item isn't a valid address."));
            return false;
        }
        item.kind = ShelfItem::Kind::link;
        item.url = url;
        return true;
    }
    if (name == u"text") {
        const std::optional<QString> text = field("string");
        if (!text)
            return false;
        item.kind = ShelfItem::Kind::text;
        item.string = *text;
        return true;
    }
    fail(error, QStringLiteral("Unknown kind of item \"%1\".").arg(name));
    return false;
}

} // namespace

ShelfItem ShelfItem::file(const QUuid& id, const QByteArray& bookmark, const QString& displayName,
                          const QDateTime& addedAt, const QString& filePath, bool isStoredCopy) {
    ShelfItem item;
    item.id = id;
    item.kind = Kind::file;
    item.bookmark = bookmark;
    item.displayName = displayName;
    item.addedAt = addedAt;
    item.filePath = filePath;
    item.isStoredCopy = isStoredCopy;
    return item;
}

ShelfItem ShelfItem::link(const QUuid& id, const QUrl& url, const QDateTime& addedAt) {
    ShelfItem item;
    item.id = id;
    item.kind = Kind::link;
    item.url = url;
    item.displayName = displayNameForLink(url);
    item.addedAt = addedAt;
    return item;
}

ShelfItem ShelfItem::text(const QUuid& id, const QString& string, const QDateTime& addedAt) {
    ShelfItem item;
    item.id = id;
    item.kind = Kind::text;
    item.string = string;
    item.displayName = displayNameForText(string);
    item.addedAt = addedAt;
    return item;
}

QString ShelfItem::identityKey() const {
    switch (kind) {
    case Kind::file:
        return filePath ? QStringLiteral("file:") + *filePath : idText(id);
    case Kind::link:
        return QStringLiteral("link:") + url.toString(QUrl::FullyEncoded);
    case Kind::text:
        return QStringLiteral("text:") + QString::number(stableHash(string), 16);
    }
    return idText(id);
}

quint64 ShelfItem::stableHash(const QString& text) {
    quint64 hash = fnvOffsetBasis;
    const QByteArray bytes = text.toUtf8();
    for (const char byte : bytes) {
        hash ^= quint8(byte);
        hash *= fnvPrime;
    }
    return hash;
}

QString ShelfItem::leadingCharacters(const QString& text, qsizetype count) {
    QTextBoundaryFinder boundaries(QTextBoundaryFinder::Grapheme, text);
    qsizetype taken = 0;
    while (taken < count && boundaries.toNextBoundary() >= 0)
        ++taken;
    return taken < count ? text : text.left(boundaries.position());
}

QString ShelfItem::displayNameForText(const QString& text) {
    static const QRegularExpression lineBreak(QStringLiteral("\r\n|[\n\r\v\f\u2028\u2029\u0085]"));
    const QStringList lines = text.split(lineBreak);
    for (const QString& line : lines) {
        const QString trimmed = line.trimmed();
        if (trimmed.isEmpty())
            continue;
        const QString head = leadingCharacters(trimmed, textNameLength);
        return head.size() < trimmed.size() ? head + QStringLiteral("…") : trimmed;
    }
    return QStringLiteral("Text Snippet");
}

QString ShelfItem::displayNameForLink(const QUrl& url) {
    const QString host = url.host();
    return host.isEmpty() ? url.toString(QUrl::FullyEncoded) : host;
}

QString ShelfItem::idText(const QUuid& id) {
    return id.toString(QUuid::WithoutBraces).toUpper();
}

QString ShelfItem::dateText(const QDateTime& date) {
    return date.toUTC().toString(Qt::ISODate);
}

QJsonObject ShelfItem::toJson() const {
    QJsonObject payload;
    switch (kind) {
    case Kind::file:
        payload.insert(QStringLiteral("bookmark"), QString::fromLatin1(bookmark.toBase64()));
        break;
    case Kind::link:
        payload.insert(QStringLiteral("url"), url.toString(QUrl::FullyEncoded));
        break;
    case Kind::text:
        payload.insert(QStringLiteral("string"), string);
        break;
    }
    QJsonObject object{
        {QStringLiteral("id"), idText(id)},
        {QStringLiteral("kind"), QJsonObject{{kindName(kind), payload}}},
        {QStringLiteral("displayName"), displayName},
        {QStringLiteral("addedAt"), dateText(addedAt)},
        {QStringLiteral("isStoredCopy"), isStoredCopy},
    };
    if (filePath)
        object.insert(QStringLiteral("filePath"), *filePath);
    return object;
}

std::optional<ShelfItem> ShelfItem::fromJson(const QJsonValue& json, QString* error) {
    if (!json.isObject()) {
        fail(error, QStringLiteral("An item isn't an object."));
        return std::nullopt;
    }
    const QJsonObject object = json.toObject();
    ShelfItem item;
    const QJsonValue id = object.value(QLatin1StringView("id"));
    item.id = id.isString() ? QUuid::fromString(id.toString()) : QUuid();
    if (item.id.isNull()) {
        fail(error, QStringLiteral("An item has no valid id."));
        return std::nullopt;
    }
    if (!decodeKind(object.value(QLatin1StringView("kind")), item, error))
        return std::nullopt;
    const QJsonValue name = object.value(QLatin1StringView("displayName"));
    const std::optional<QDateTime> addedAt = parseDate(object.value(QLatin1StringView("addedAt")));
    const QJsonValue path = object.value(QLatin1StringView("filePath"));
    const QJsonValue stored = object.value(QLatin1StringView("isStoredCopy"));
    if (!name.isString()) {
        fail(error, QStringLiteral("An item has no display name."));
        return std::nullopt;
    }
    if (!addedAt) {
        fail(error, QStringLiteral("An item has no valid date."));
        return std::nullopt;
    }
    if (!path.isUndefined() && !path.isNull() && !path.isString()) {
        fail(error, QStringLiteral("The file path of an item isn't text."));
        return std::nullopt;
    }
    if (!stored.isBool()) {
        fail(error, QStringLiteral("An item doesn't say whether it is a stored copy."));
        return std::nullopt;
    }
    item.displayName = name.toString();
    item.addedAt = *addedAt;
    if (path.isString())
        item.filePath = path.toString();
    item.isStoredCopy = stored.toBool();
    return item;
}

} // namespace vell
