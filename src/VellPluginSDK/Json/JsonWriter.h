#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

namespace vell {

// Writes one compact JSON object with its keys in the order they are added. Records are
// written in their declared field order, which QJsonObject, always sorted, cannot keep.
// Scalars and string maps go through QJsonDocument, so escaping is Qt's own.
class JsonWriter final {
public:
    JsonWriter& add(QStringView key, const QJsonValue& value);
    JsonWriter& add(QStringView key, const QStringList& values);
    JsonWriter& add(QStringView key, const QMap<QString, QString>& values);

    template <typename T> JsonWriter& addIfPresent(QStringView key, const std::optional<T>& value) {
        if (value)
            add(key, *value);
        return *this;
    }

    // A nested record, written by its own encoded().
    template <typename T> JsonWriter& addRecord(QStringView key, const T& record) {
        return addEncoded(key, record.encoded());
    }

    template <typename T> JsonWriter& addRecords(QStringView key, const QList<T>& records) {
        QList<QByteArray> items;
        items.reserve(records.size());
        for (const T& record : records)
            items.append(record.encoded());
        return addEncoded(key, encodeArray(items));
    }

    // An object of records keyed by name, in the map's key order.
    template <typename T> JsonWriter& addRecordMap(QStringView key, const QMap<QString, T>& records) {
        JsonWriter members;
        for (auto it = records.begin(); it != records.end(); ++it)
            members.addRecord(it.key(), it.value());
        return addEncoded(key, members.bytes());
    }

    template <typename T> JsonWriter& addRecordIfPresent(QStringView key, const std::optional<T>& record) {
        return record ? addRecord(key, *record) : *this;
    }

    template <typename T>
    JsonWriter& addRecordsIfPresent(QStringView key, const std::optional<QList<T>>& records) {
        return records ? addRecords(key, *records) : *this;
    }

    // The finished object.
    QByteArray bytes() const;

    static QByteArray encodeValue(const QJsonValue& value);
    static QByteArray encodeArray(const QList<QByteArray>& encodedItems);
    static QByteArray encodeMap(const QMap<QString, QString>& values);

private:
    JsonWriter& addEncoded(QStringView key, const QByteArray& json);

    QByteArray m_body;
};

} // namespace vell
