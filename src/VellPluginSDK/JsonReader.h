#pragma once

#include "VellPluginSDK/ModuleProblem.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

namespace vell {

// Reads the fields of one JSON object for a record's fromJson. Missing and null keys are the
// same absence; unknown keys are never looked at. A failure is a ModuleProblem whose text
// names the key path from the outermost record down ("settings[2].label" is missing), so an
// author can find the fault in a large package.
class JsonReader final {
public:
    // Throws when value is not a JSON object.
    explicit JsonReader(const QJsonValue& value);

    QString string(QStringView key) const;
    std::optional<QString> optionalString(QStringView key) const;
    qint64 integer(QStringView key) const;
    bool boolean(QStringView key) const;
    QStringList strings(QStringView key) const;
    QMap<QString, QString> stringMap(QStringView key) const;
    std::optional<QMap<QString, QString>> optionalStringMap(QStringView key) const;

    template <typename T> T record(QStringView key) const {
        return decodeInside<T>(required(key), key.toString());
    }

    template <typename T> std::optional<T> optionalRecord(QStringView key) const {
        const QJsonValue value = optional(key);
        if (value.isUndefined())
            return std::nullopt;
        return decodeInside<T>(value, key.toString());
    }

    template <typename T> QList<T> records(QStringView key) const {
        return decodeList<T>(required(key), key);
    }

    template <typename T> std::optional<QList<T>> optionalRecords(QStringView key) const {
        const QJsonValue value = optional(key);
        if (value.isUndefined())
            return std::nullopt;
        return decodeList<T>(value, key);
    }

    // The same failure seen from the record that holds the failed value at path.
    static ModuleProblem inside(const ModuleProblem& problem, const QString& path);

private:
    QJsonValue required(QStringView key) const;
    QJsonValue optional(QStringView key) const;
    static QMap<QString, QString> stringMap(const QJsonValue& value, QStringView key);
    static QJsonArray array(const QJsonValue& value, QStringView key);
    [[noreturn]] static void fail(const QString& path, QStringView what);
    static QString elementPath(QStringView key, qsizetype index);

    template <typename T> static T decodeInside(const QJsonValue& value, const QString& path) {
        try {
            return T::fromJson(value);
        } catch (const ModuleProblem& problem) {
            throw inside(problem, path);
        }
    }

    template <typename T> static QList<T> decodeList(const QJsonValue& value, QStringView key) {
        const QJsonArray items = array(value, key);
        QList<T> result;
        result.reserve(items.size());
        for (qsizetype i = 0; i < items.size(); ++i)
            result.append(decodeInside<T>(items.at(i), elementPath(key, i)));
        return result;
    }

    QJsonObject m_object;
};

} // namespace vell
