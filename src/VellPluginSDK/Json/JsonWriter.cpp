#include "VellPluginSDK/Json/JsonWriter.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace vell {

JsonWriter& JsonWriter::add(QStringView key, const QJsonValue& value) {
    return addEncoded(key, encodeValue(value));
}

JsonWriter& JsonWriter::add(QStringView key, const QStringList& values) {
    return addEncoded(key, encodeValue(QJsonArray::fromStringList(values)));
}

JsonWriter& JsonWriter::add(QStringView key, const QMap<QString, QString>& values) {
    return addEncoded(key, encodeMap(values));
}

QByteArray JsonWriter::bytes() const {
    return '{' + m_body + '}';
}

namespace {
// Text that needs no escaping and is the same in Latin-1 and UTF-8: printable ASCII without a
// quote or a backslash. Most keys and identifiers are, and they are written directly, byte for
// byte what Qt would write, without the detour through a document.
bool isPlainText(const QString& text) {
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u < 0x20 || u > 0x7E || u == u'"' || u == u'\\')
            return false;
    }
    return true;
}
} // namespace

QByteArray JsonWriter::encodeValue(const QJsonValue& value) {
    if (value.isBool())
        return value.toBool() ? QByteArrayLiteral("true") : QByteArrayLiteral("false");
    if (value.isNull())
        return QByteArrayLiteral("null");
    if (value.isString()) {
        const QString text = value.toString();
        if (isPlainText(text))
            return '"' + text.toLatin1() + '"';
    }
    // QJsonDocument only writes arrays and objects; a one-element array carries a scalar.
    const QByteArray wrapped = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return wrapped.mid(1, wrapped.size() - 2);
}

QByteArray JsonWriter::encodeArray(const QList<QByteArray>& encodedItems) {
    return '[' + encodedItems.join(',') + ']';
}

QByteArray JsonWriter::encodeMap(const QMap<QString, QString>& values) {
    QJsonObject object;
    for (auto it = values.begin(); it != values.end(); ++it)
        object.insert(it.key(), it.value());
    return encodeValue(object);
}

JsonWriter& JsonWriter::addEncoded(QStringView key, const QByteArray& json) {
    if (!m_body.isEmpty())
        m_body += ',';
    m_body += encodeValue(key.toString());
    m_body += ':';
    m_body += json;
    return *this;
}

} // namespace vell
