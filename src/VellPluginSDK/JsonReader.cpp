#include "VellPluginSDK/JsonReader.h"

#include <QJsonArray>

namespace vell {

JsonReader::JsonReader(const QJsonValue& value) {
    if (!value.isObject())
        throw ModuleProblem(QStringLiteral("must be a JSON object"));
    m_object = value.toObject();
}

QString JsonReader::string(QStringView key) const {
    const QJsonValue value = required(key);
    if (!value.isString())
        fail(key.toString(), u"must be a string");
    return value.toString();
}

std::optional<QString> JsonReader::optionalString(QStringView key) const {
    const QJsonValue value = optional(key);
    if (value.isUndefined())
        return std::nullopt;
    if (!value.isString())
        fail(key.toString(), u"must be a string");
    return value.toString();
}

qint64 JsonReader::integer(QStringView key) const {
    const QJsonValue value = required(key);
    // toInteger() answers its fallback for fractions and out-of-range numbers; two different
    // fallbacks tell those apart from a stored number that happens to equal one of them.
    const qint64 number = value.toInteger(0);
    if (!value.isDouble() || (number == 0 && value.toInteger(1) != 0))
        fail(key.toString(), u"must be a whole number");
    return number;
}

bool JsonReader::boolean(QStringView key) const {
    const QJsonValue value = required(key);
    if (!value.isBool())
        fail(key.toString(), u"must be true or false");
    return value.toBool();
}

QStringList JsonReader::strings(QStringView key) const {
    const QJsonArray items = array(required(key), key);
    QStringList result;
    result.reserve(items.size());
    for (qsizetype i = 0; i < items.size(); ++i) {
        if (!items.at(i).isString())
            fail(elementPath(key, i), u"must be a string");
        result.append(items.at(i).toString());
    }
    return result;
}

QMap<QString, QString> JsonReader::stringMap(QStringView key) const {
    return stringMap(required(key), key);
}

std::optional<QMap<QString, QString>> JsonReader::optionalStringMap(QStringView key) const {
    const QJsonValue value = optional(key);
    if (value.isUndefined())
        return std::nullopt;
    return stringMap(value, key);
}

QMap<QString, QString> JsonReader::stringMap(const QJsonValue& value, QStringView key) {
    if (!value.isObject())
        fail(key.toString(), u"must be a JSON object of strings");
    const QJsonObject object = value.toObject();
    QMap<QString, QString> result;
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (!it.value().isString())
            fail(key.toString() + u'.' + it.key(), u"must be a string");
        result.insert(it.key(), it.value().toString());
    }
    return result;
}

ModuleProblem JsonReader::inside(const ModuleProblem& problem, const QString& path) {
    const QString& message = problem.message();
    if (message.startsWith(u'"'))
        return ModuleProblem(u'"' + path + u'.' + message.mid(1));
    return ModuleProblem(u'"' + path + QStringLiteral("\" ") + message);
}

QJsonValue JsonReader::required(QStringView key) const {
    const QJsonValue value = m_object.value(key);
    if (value.isUndefined() || value.isNull())
        fail(key.toString(), u"is missing");
    return value;
}

QJsonValue JsonReader::optional(QStringView key) const {
    const QJsonValue value = m_object.value(key);
    return value.isNull() ? QJsonValue(QJsonValue::Undefined) : value;
}

QJsonArray JsonReader::array(const QJsonValue& value, QStringView key) {
    if (!value.isArray())
        fail(key.toString(), u"must be an array");
    return value.toArray();
}

void JsonReader::fail(const QString& path, QStringView what) {
    throw ModuleProblem(u'"' + path + QStringLiteral("\" ") + what.toString());
}

QString JsonReader::elementPath(QStringView key, qsizetype index) {
    return key.toString() + u'[' + QString::number(index) + u']';
}

} // namespace vell
