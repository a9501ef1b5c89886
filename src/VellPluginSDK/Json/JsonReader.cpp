#include "VellPluginSDK/Json/JsonReader.h"

#include <QJsonDocument>
#include <QJsonParseError>

#include <limits>

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

double JsonReader::number(QStringView key) const {
    const QJsonValue value = required(key);
    if (!value.isDouble())
        fail(key.toString(), u"must be a number");
    return value.toDouble();
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

quint64 JsonReader::unsignedInteger(QStringView key) const {
    const qint64 number = integer(key);
    if (number < 0)
        fail(key.toString(), u"must not be negative");
    return static_cast<quint64>(number);
}

quint32 JsonReader::unsigned32(QStringView key) const {
    const QJsonValue value = required(key);
    const qint64 number = value.toInteger(-1);
    if (!value.isDouble() || number < 0 || number > std::numeric_limits<quint32>::max())
        fail(key.toString(), u"must be a whole number from 0 to 4294967295");
    return static_cast<quint32>(number);
}

bool JsonReader::boolean(QStringView key) const {
    const QJsonValue value = required(key);
    if (!value.isBool())
        fail(key.toString(), u"must be true or false");
    return value.toBool();
}

QUuid JsonReader::uuid(QStringView key) const {
    const std::optional<QUuid> id = parseUuid(required(key));
    if (!id)
        fail(key.toString(), u"must be a UUID");
    return *id;
}

QByteArray JsonReader::base64(QStringView key) const {
    const QByteArray::FromBase64Result decoded = QByteArray::fromBase64Encoding(
        string(key).toLatin1(), QByteArray::Base64Encoding | QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        fail(key.toString(), u"must be base64");
    return decoded.decoded;
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
    const QJsonValue value = required(key);
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

PluginValueMap JsonReader::values(QStringView key) const {
    const QJsonValue value = required(key);
    return within(key.toString(), [&] { return PluginValue::mapFromJson(value); });
}

ModuleProblem JsonReader::inside(const ModuleProblem& problem, const QString& path) {
    const QString& message = problem.message();
    if (message.startsWith(u'"'))
        return ModuleProblem(u'"' + path + u'.' + message.mid(1));
    return ModuleProblem(u'"' + path + QStringLiteral("\" ") + message);
}

QJsonValue JsonReader::parse(const QByteArray& data) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError)
        throw ModuleProblem(error.errorString());
    return document.isObject() ? QJsonValue(document.object()) : QJsonValue(document.array());
}

std::optional<QUuid> JsonReader::parseUuid(const QJsonValue& value) {
    // Only the canonical 8-4-4-4-12 form: QUuid would also take braces, and answers the nil
    // UUID for text it cannot read, which is itself a valid identity.
    const QString text = value.toString();
    if (!value.isString() || text.size() != 36)
        return std::nullopt;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        const char16_t c = text.at(i).unicode();
        const bool hex = (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
        if (dash ? c != u'-' : !hex)
            return std::nullopt;
    }
    return QUuid::fromString(text);
}

QJsonValue JsonReader::required(QStringView key) const {
    const QJsonValue value = optional(key);
    if (value.isUndefined())
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
