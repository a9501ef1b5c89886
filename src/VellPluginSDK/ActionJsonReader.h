#pragma once

#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/PluginValue.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QUuid>

#include <array>
#include <optional>

namespace vell {

// Reads the fields of one action-plane record for its fromJson. Missing and null keys are
// one and the same absence, unknown keys are never looked at, and a mandatory key that is
// absent or of the wrong type fails the whole record. The failure names the key path from
// the outermost record down ("update.display.totalSteps" must be a whole number), so that a
// peer's author can find the fault in a long bus line.
class ActionJsonReader final {
public:
    // Throws when value is not a JSON object.
    explicit ActionJsonReader(const QJsonValue& value);

    QString string(QStringView key) const;
    std::optional<QString> optionalString(QStringView key) const;
    double number(QStringView key) const;
    std::optional<double> optionalNumber(QStringView key) const;
    qint64 integer(QStringView key) const;
    bool boolean(QStringView key) const;
    std::optional<bool> optionalBoolean(QStringView key) const;
    // Canonical 36-character form in any case.
    QUuid uuid(QStringView key) const;
    QByteArray base64(QStringView key) const;
    PluginValueMap values(QStringView key) const;
    std::optional<PluginValueMap> optionalValues(QStringView key) const;

    // An enumeration written by its case name; names lists the cases in declared order.
    template <typename E, std::size_t N>
    E enumeration(QStringView key, const std::array<QStringView, N>& names) const {
        const QString name = string(key);
        for (std::size_t i = 0; i < N; ++i) {
            if (names[i] == name)
                return static_cast<E>(i);
        }
        fail(key.toString(), u"has an unknown case");
    }

    template <typename T> T record(QStringView key) const {
        return decodeInside<T>(required(key), key.toString());
    }

    template <typename T> std::optional<T> optionalRecord(QStringView key) const {
        const QJsonValue value = present(key);
        if (value.isUndefined())
            return std::nullopt;
        return decodeInside<T>(value, key.toString());
    }

    template <typename T> QList<T> records(QStringView key) const {
        return decodeList<T>(required(key), key);
    }

    template <typename T> std::optional<QList<T>> optionalRecords(QStringView key) const {
        const QJsonValue value = present(key);
        if (value.isUndefined())
            return std::nullopt;
        return decodeList<T>(value, key);
    }

    // The same failure seen from the record that holds the failed value at path.
    static ModuleProblem inside(const ModuleProblem& problem, const QString& path);
    // Whole-value decoding of a UUID text, for records that are a bare UUID.
    static std::optional<QUuid> parseUuid(const QJsonValue& value);

private:
    QJsonValue required(QStringView key) const;
    // The value at key, undefined when missing or null.
    QJsonValue present(QStringView key) const;
    [[noreturn]] static void fail(const QString& path, QStringView what);

    template <typename T> static T decodeInside(const QJsonValue& value, const QString& path) {
        try {
            return T::fromJson(value);
        } catch (const ModuleProblem& problem) {
            throw inside(problem, path);
        }
    }

    template <typename T> static QList<T> decodeList(const QJsonValue& value, QStringView key) {
        if (!value.isArray())
            fail(key.toString(), u"must be an array");
        const QJsonArray items = value.toArray();
        QList<T> result;
        result.reserve(items.size());
        for (qsizetype i = 0; i < items.size(); ++i)
            result.append(decodeInside<T>(items.at(i), key.toString() + u'[' + QString::number(i) + u']'));
        return result;
    }

    QJsonObject m_object;
};

} // namespace vell
