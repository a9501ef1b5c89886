#include "VellPluginSDK/Json/JsonReader.h"

#include <QJsonParseError>

#include <limits>

namespace vell {

JsonReader::JsonReader(const JsonNode& value)
    : m_object(value) {
    if (!value.isObject())
        throw ModuleProblem(QStringLiteral("must be a JSON object"));
}

QString JsonReader::string(QStringView key) const {
    const JsonTree::Index value = required(key);
    if (tree().kind(value) != JsonTree::Kind::string)
        fail(key.toString(), u"must be a string");
    return tree().string(value);
}

double JsonReader::number(QStringView key) const {
    const JsonTree::Index value = required(key);
    const JsonTree::Kind kind = tree().kind(value);
    if (kind != JsonTree::Kind::integer && kind != JsonTree::Kind::real)
        fail(key.toString(), u"must be a number");
    return tree().number(value);
}

qint64 JsonReader::integer(QStringView key) const {
    const JsonTree::Index index = required(key);
    if (tree().kind(index) == JsonTree::Kind::integer)
        return tree().integer(index);
    const QJsonValue value = numberValue(index);
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
    const JsonTree::Index index = required(key);
    const QJsonValue value = numberValue(index);
    const qint64 number = value.toInteger(-1);
    if (!value.isDouble() || number < 0 || number > std::numeric_limits<quint32>::max())
        fail(key.toString(), u"must be a whole number from 0 to 4294967295");
    return static_cast<quint32>(number);
}

bool JsonReader::boolean(QStringView key) const {
    const JsonTree::Index value = required(key);
    if (tree().kind(value) != JsonTree::Kind::boolean)
        fail(key.toString(), u"must be true or false");
    return tree().boolean(value);
}

QUuid JsonReader::uuid(QStringView key) const {
    const std::optional<QUuid> id = parseUuid(m_object.node(required(key)));
    if (!id)
        fail(key.toString(), u"must be a UUID");
    return *id;
}

QByteArray JsonReader::base64(QStringView key) const {
    const JsonTree::Index value = required(key);
    if (tree().kind(value) != JsonTree::Kind::string)
        fail(key.toString(), u"must be a string");
    // Base64 is ASCII: any other character fails, as its Latin-1 form would.
    const QByteArrayView raw = tree().rawString(value);
    const QByteArray text =
        raw.isNull() ? tree().string(value).toLatin1() : QByteArray::fromRawData(raw.data(), raw.size());
    const QByteArray::FromBase64Result decoded = QByteArray::fromBase64Encoding(
        text, QByteArray::Base64Encoding | QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        fail(key.toString(), u"must be base64");
    return decoded.decoded;
}

QStringList JsonReader::strings(QStringView key) const {
    const JsonTree::Index items = array(required(key), key);
    const JsonTree& document = tree();
    QStringList result;
    result.reserve(document.childCount(items));
    JsonTree::Index item = document.firstChild(items);
    for (qsizetype i = 0; i < document.childCount(items); ++i, item = document.nextSibling(item)) {
        if (document.kind(item) != JsonTree::Kind::string)
            fail(elementPath(key, i), u"must be a string");
        result.append(document.string(item));
    }
    return result;
}

QMap<QString, QString> JsonReader::stringMap(QStringView key) const {
    const JsonNode value = m_object.node(required(key));
    if (!value.isObject())
        fail(key.toString(), u"must be a JSON object of strings");
    QMap<QString, QString> result;
    for (const JsonMember& member : value.members()) {
        if (!member.value.isString())
            fail(key.toString() + u'.' + member.key, u"must be a string");
        result.insert(member.key, member.value.toString());
    }
    return result;
}

PluginValueMap JsonReader::values(QStringView key) const {
    const JsonTree::Index value = required(key);
    return within(key, [&] { return PluginValue::mapFromJson(m_object.node(value)); });
}

ModuleProblem JsonReader::inside(const ModuleProblem& problem, const QString& path) {
    const QString& message = problem.message();
    if (message.startsWith(u'"'))
        return ModuleProblem(u'"' + path + u'.' + message.mid(1));
    return ModuleProblem(u'"' + path + QStringLiteral("\" ") + message);
}

JsonNode JsonReader::parse(QByteArrayView data) {
    QJsonParseError error;
    const JsonNode document = JsonTree::parse(data, &error);
    if (error.error != QJsonParseError::NoError)
        throw ModuleProblem(error.errorString());
    return document;
}

std::optional<QUuid> JsonReader::parseUuid(const JsonNode& value) {
    if (!value.isString())
        return std::nullopt;
    // Only the canonical 8-4-4-4-12 form: QUuid would also take braces, and answers the nil
    // UUID for text it cannot read, which is itself a valid identity.
    const auto canonical = [](const auto* text, qsizetype size) {
        if (size != 36)
            return false;
        for (qsizetype i = 0; i < size; ++i) {
            const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
            const auto c = static_cast<char16_t>(text[i]);
            const bool hex = (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
            if (dash ? c != u'-' : !hex)
                return false;
        }
        return true;
    };
    // Written plainly, the text is its bytes, and a canonical UUID is 36 ASCII bytes.
    const QByteArrayView raw = value.tree()->rawString(value.index());
    if (!raw.isNull())
        return canonical(reinterpret_cast<const uchar*>(raw.data()), raw.size())
                   ? std::optional(QUuid::fromString(QLatin1StringView(raw)))
                   : std::nullopt;
    const QStringView decoded = value.tree()->decodedString(value.index());
    return canonical(decoded.utf16(), decoded.size()) ? std::optional(QUuid::fromString(decoded))
                                                      : std::nullopt;
}

JsonTree::Index JsonReader::required(QStringView key) const {
    const JsonTree::Index value = optional(key);
    if (value == JsonTree::none)
        fail(key.toString(), u"is missing");
    return value;
}

JsonTree::Index JsonReader::optional(QStringView key) const {
    const JsonTree::Index value = tree().member(m_object.index(), key);
    return value != JsonTree::none && tree().kind(value) == JsonTree::Kind::null ? JsonTree::none : value;
}

JsonTree::Index JsonReader::array(JsonTree::Index value, QStringView key) const {
    if (tree().kind(value) != JsonTree::Kind::array)
        fail(key.toString(), u"must be an array");
    return value;
}

QJsonValue JsonReader::numberValue(JsonTree::Index value) const {
    switch (tree().kind(value)) {
    case JsonTree::Kind::integer:
        return tree().integer(value);
    case JsonTree::Kind::real:
        return tree().number(value);
    default:
        return QJsonValue::Undefined;
    }
}

void JsonReader::fail(const QString& path, QStringView what) {
    throw ModuleProblem(u'"' + path + QStringLiteral("\" ") + what.toString());
}

QString JsonReader::elementPath(QStringView key, qsizetype index) {
    return key.toString() + u'[' + QString::number(index) + u']';
}

} // namespace vell
