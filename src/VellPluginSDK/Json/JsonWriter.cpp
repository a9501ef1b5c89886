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

QByteArray JsonWriter::encodeValue(const QJsonValue& value) {
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
