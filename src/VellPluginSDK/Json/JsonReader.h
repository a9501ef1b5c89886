#pragma once

#include "VellPluginSDK/Actions/PluginValue.h"
#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <array>
#include <optional>

namespace vell {

// Reads the fields of one JSON object for a record's fromJson: module packages, bus messages,
// grants and history alike. Missing and null keys are the same absence; unknown keys are never
// looked at; a mandatory key that is absent or of the wrong type fails the whole record. The
// failure names the key path from the outermost record down ("settings[2].label" is missing,
// "update.display.totalSteps" must be a whole number), so that an author can find the fault in
// a large package or a long bus line. Paths are only spelled out when something fails: reading a
// valid record builds no text but the values it returns.
class JsonReader final {
public:
    // Throws when value is not a JSON object.
    explicit JsonReader(const JsonNode& value);

    QString string(QStringView key) const;
    std::optional<QString> optionalString(QStringView key) const {
        return ifPresent(key, &JsonReader::string);
    }
    double number(QStringView key) const;
    std::optional<double> optionalNumber(QStringView key) const {
        return ifPresent(key, &JsonReader::number);
    }
    qint64 integer(QStringView key) const;
    // A whole number from 0 up; those beyond the signed 64-bit range are refused, since JSON
    // coders write them as inexact doubles.
    quint64 unsignedInteger(QStringView key) const;
    // A whole number from 0 to 4294967295.
    quint32 unsigned32(QStringView key) const;
    std::optional<quint32> optionalUnsigned32(QStringView key) const {
        return ifPresent(key, &JsonReader::unsigned32);
    }
    bool boolean(QStringView key) const;
    std::optional<bool> optionalBoolean(QStringView key) const {
        return ifPresent(key, &JsonReader::boolean);
    }
    // Canonical 36-character form in any case.
    QUuid uuid(QStringView key) const;
    std::optional<QUuid> optionalUuid(QStringView key) const { return ifPresent(key, &JsonReader::uuid); }
    QByteArray base64(QStringView key) const;
    std::optional<QByteArray> optionalBase64(QStringView key) const {
        return ifPresent(key, &JsonReader::base64);
    }
    QStringList strings(QStringView key) const;
    std::optional<QStringList> optionalStrings(QStringView key) const {
        return ifPresent(key, &JsonReader::strings);
    }
    QMap<QString, QString> stringMap(QStringView key) const;
    std::optional<QMap<QString, QString>> optionalStringMap(QStringView key) const {
        return ifPresent(key, &JsonReader::stringMap);
    }
    PluginValueMap values(QStringView key) const;
    std::optional<PluginValueMap> optionalValues(QStringView key) const {
        return ifPresent(key, &JsonReader::values);
    }

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

    // The same, for an enumeration that has its own lookup by name.
    template <typename E> E enumeration(QStringView key, std::optional<E> (*fromName)(QStringView)) const {
        if (const std::optional<E> value = fromName(string(key)))
            return *value;
        fail(key.toString(), u"has an unknown case");
    }

    template <typename T> T record(QStringView key) const {
        const JsonTree::Index index = required(key);
        return within(key, [&] { return T::fromJson(m_object.node(index)); });
    }

    template <typename T> std::optional<T> optionalRecord(QStringView key) const {
        return ifPresent(key, &JsonReader::record<T>);
    }

    template <typename T> QList<T> records(QStringView key) const {
        const JsonTree::Index items = array(required(key), key);
        const JsonTree& document = tree();
        QList<T> result;
        result.reserve(document.childCount(items));
        JsonTree::Index item = document.firstChild(items);
        for (qsizetype i = 0; i < document.childCount(items); ++i, item = document.nextSibling(item))
            result.append(within(key, i, [&] { return T::fromJson(m_object.node(item)); }));
        return result;
    }

    template <typename T> std::optional<QList<T>> optionalRecords(QStringView key) const {
        return ifPresent(key, &JsonReader::records<T>);
    }

    // An object of records keyed by name; a failure names the member ("arguments.text.value").
    template <typename T> QMap<QString, T> recordMap(QStringView key) const {
        const JsonNode value = m_object.node(required(key));
        if (!value.isObject())
            fail(key.toString(), u"must be a JSON object");
        QMap<QString, T> result;
        for (const JsonMember& member : value.members()) {
            const QString path = key.toString() + u'.' + member.key;
            result.insert(member.key, within(path, [&] { return T::fromJson(member.value); }));
        }
        return result;
    }

    // A file's whole document as an array of records; anything but an array fails with
    // notArray, an element with its index in the path.
    template <typename T> static QList<T> recordArray(const JsonNode& document, const QString& notArray) {
        if (!document.isArray())
            throw ModuleProblem(notArray);
        QList<T> result;
        result.reserve(document.size());
        for (qsizetype i = 0; i < document.size(); ++i) {
            try {
                result.append(T::fromJson(document.at(i)));
            } catch (const ModuleProblem& problem) {
                throw inside(problem, QStringLiteral("[%1]").arg(i));
            }
        }
        return result;
    }

    // The same failure seen from the record that holds the failed value at path.
    static ModuleProblem inside(const ModuleProblem& problem, const QString& path);
    // The JSON document in data; a text that does not parse fails with the parser's own reason.
    static JsonNode parse(QByteArrayView data);
    // Whole-value decoding of a UUID text, for records that are a bare UUID.
    static std::optional<QUuid> parseUuid(const JsonNode& value);

private:
    const JsonTree& tree() const { return *m_object.tree(); }
    JsonTree::Index required(QStringView key) const;
    // The member at key; none when missing or null.
    JsonTree::Index optional(QStringView key) const;
    JsonTree::Index array(JsonTree::Index value, QStringView key) const;
    // A number as QJsonValue holds it, for its rules on whole numbers.
    QJsonValue numberValue(JsonTree::Index value) const;
    [[noreturn]] static void fail(const QString& path, QStringView what);
    static QString elementPath(QStringView key, qsizetype index);

    template <typename T>
    std::optional<T> ifPresent(QStringView key, T (JsonReader::*read)(QStringView) const) const {
        if (optional(key) == JsonTree::none)
            return std::nullopt;
        return (this->*read)(key);
    }

    // decode's failure, seen from the record that holds the value at key, or at its element.
    template <typename F> static auto within(QStringView key, F decode) -> decltype(decode()) {
        try {
            return decode();
        } catch (const ModuleProblem& problem) {
            throw inside(problem, key.toString());
        }
    }
    template <typename F>
    static auto within(QStringView key, qsizetype index, F decode) -> decltype(decode()) {
        try {
            return decode();
        } catch (const ModuleProblem& problem) {
            throw inside(problem, elementPath(key, index));
        }
    }

    // Always an object of a tree.
    JsonNode m_object;
};

} // namespace vell
