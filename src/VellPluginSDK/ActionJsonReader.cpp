#include "VellPluginSDK/ActionJsonReader.h"

namespace vell {

namespace {

struct PluginValueMapJson {
    static PluginValueMapJson fromJson(const QJsonValue& json) { return {PluginValue::mapFromJson(json)}; }
    PluginValueMap values;
};

} // namespace

ActionJsonReader::ActionJsonReader(const QJsonValue& value) {
    if (!value.isObject())
        throw ModuleProblem(QStringLiteral("must be a JSON object"));
    m_object = value.toObject();
}

QString ActionJsonReader::string(QStringView key) const {
    const QJsonValue value = required(key);
    if (!value.isString())
        fail(key.toString(), u"must be a string");
    return value.toString();
}

std::optional<QString> ActionJsonReader::optionalString(QStringView key) const {
    if (present(key).isUndefined())
        return std::nullopt;
    return string(key);
}

double ActionJsonReader::number(QStringView key) const {
    const QJsonValue value = required(key);
    if (!value.isDouble())
        fail(key.toString(), u"must be a number");
    return value.toDouble();
}

std::optional<double> ActionJsonReader::optionalNumber(QStringView key) const {
    if (present(key).isUndefined())
        return std::nullopt;
    return number(key);
}

qint64 ActionJsonReader::integer(QStringView key) const {
    const QJsonValue value = required(key);
    // toInteger() answers its fallback for fractions and out-of-range numbers; two different
    // fallbacks tell those apart from a stored number that happens to equal one of them.
    const qint64 whole = value.toInteger(0);
    if (!value.isDouble() || (whole == 0 && value.toInteger(1) != 0))
        fail(key.toString(), u"must be a whole number");
    return whole;
}

bool ActionJsonReader::boolean(QStringView key) const {
    const QJsonValue value = required(key);
    if (!value.isBool())
        fail(key.toString(), u"must be true or false");
    return value.toBool();
}

std::optional<bool> ActionJsonReader::optionalBoolean(QStringView key) const {
    if (present(key).isUndefined())
        return std::nullopt;
    return boolean(key);
}

QUuid ActionJsonReader::uuid(QStringView key) const {
    const std::optional<QUuid> id = parseUuid(required(key));
    if (!id)
        fail(key.toString(), u"must be a UUID");
    return *id;
}

QByteArray ActionJsonReader::base64(QStringView key) const {
    const QByteArray::FromBase64Result decoded = QByteArray::fromBase64Encoding(
        string(key).toLatin1(), QByteArray::Base64Encoding | QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        fail(key.toString(), u"must be base64");
    return decoded.decoded;
}

PluginValueMap ActionJsonReader::values(QStringView key) const {
    return decodeInside<PluginValueMapJson>(required(key), key.toString()).values;
}

std::optional<PluginValueMap> ActionJsonReader::optionalValues(QStringView key) const {
    if (present(key).isUndefined())
        return std::nullopt;
    return values(key);
}

ModuleProblem ActionJsonReader::inside(const ModuleProblem& problem, const QString& path) {
    const QString& message = problem.message();
    if (message.startsWith(u'"'))
        return ModuleProblem(u'"' + path + u'.' + message.mid(1));
    return ModuleProblem(u'"' + path + QStringLiteral("\" ") + message);
}

std::optional<QUuid> ActionJsonReader::parseUuid(const QJsonValue& value) {
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

QJsonValue ActionJsonReader::required(QStringView key) const {
    const QJsonValue value = present(key);
    if (value.isUndefined())
        fail(key.toString(), u"is missing");
    return value;
}

QJsonValue ActionJsonReader::present(QStringView key) const {
    const QJsonValue value = m_object.value(key);
    return value.isNull() ? QJsonValue(QJsonValue::Undefined) : value;
}

void ActionJsonReader::fail(const QString& path, QStringView what) {
    throw ModuleProblem(u'"' + path + QStringLiteral("\" ") + what.toString());
}

} // namespace vell
