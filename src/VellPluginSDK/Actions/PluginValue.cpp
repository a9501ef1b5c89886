#include "VellPluginSDK/Actions/PluginValue.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <charconv>
#include <cmath>

namespace vell {

namespace {

QString shortest(double number, std::chars_format format) {
    // Room for the longest plain form of a double: 309 digits before the point, or 324
    // after it for the smallest subnormal.
    char buffer[400];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, number, format);
    return QString::fromLatin1(buffer, result.ptr - buffer);
}

} // namespace

std::optional<PluginValue> PluginValue::scalar(const JsonNode& json) {
    if (json.isBool())
        return boolean(json.toBool());
    if (json.isNumber() && std::isfinite(json.toDouble()))
        return number(json.toDouble());
    if (json.isString())
        return string(json.toString());
    return std::nullopt;
}

QString PluginValue::text() const {
    const QString* text = std::get_if<QString>(&m_value);
    return text ? *text : QString();
}

double PluginValue::numberValue() const {
    const double* number = std::get_if<double>(&m_value);
    return number ? *number : 0;
}

bool PluginValue::booleanValue() const {
    const bool* truth = std::get_if<bool>(&m_value);
    return truth && *truth;
}

QString PluginValue::display() const {
    switch (kind()) {
    case Kind::string:
        return text();
    case Kind::boolean:
        return booleanValue() ? QStringLiteral("Yes") : QStringLiteral("No");
    case Kind::number:
        break;
    }
    const double number = numberValue();
    if (!std::isfinite(number))
        return shortest(number, std::chars_format::general);
    // Always plain decimals, however large or small: the fewest digits that read back as the
    // same number, never an exponent.
    QString text = shortest(number, std::chars_format::fixed);
    if (!text.contains(u'.'))
        text += QStringLiteral(".0");
    return text;
}

PluginValue PluginValue::fromJson(const JsonNode& json) {
    if (const std::optional<PluginValue> value = scalar(json))
        return *value;
    throw ModuleProblem(QStringLiteral("must be a string"));
}

QJsonValue PluginValue::toJson() const {
    switch (kind()) {
    case Kind::string:
        return text();
    case Kind::number:
        return numberValue();
    case Kind::boolean:
        return booleanValue();
    }
    return {};
}

PluginValueMap PluginValue::mapFromJson(const JsonNode& json) {
    if (!json.isObject())
        throw ModuleProblem(QStringLiteral("must be a JSON object"));
    // In document order, a later duplicate replacing an earlier one as it does in the object.
    const JsonTree& tree = *json.tree();
    PluginValueMap values;
    JsonTree::Index member = tree.firstChild(json.index());
    for (JsonTree::Index i = 0; i < tree.childCount(json.index()); ++i, member = tree.nextSibling(member)) {
        const std::optional<PluginValue> value = scalar(json.node(member));
        if (!value)
            return mapFromMembers(json);
        values.insert(tree.key(member), *value);
    }
    return values;
}

PluginValueMap PluginValue::mapFromMembers(const JsonNode& json) {
    // A value failed: the object as it stands, duplicates resolved, names the first key that fails.
    PluginValueMap values;
    for (const JsonMember& member : json.members()) {
        try {
            values.insert(member.key, fromJson(member.value));
        } catch (const ModuleProblem& problem) {
            throw JsonReader::inside(problem, member.key);
        }
    }
    return values;
}

QJsonObject PluginValue::mapToJson(const PluginValueMap& values) {
    QJsonObject object;
    for (auto it = values.begin(); it != values.end(); ++it)
        object.insert(it.key(), it.value().toJson());
    return object;
}

size_t qHash(const PluginValue& value, size_t seed) noexcept {
    switch (value.kind()) {
    case PluginValue::Kind::string:
        return qHashMulti(seed, 0, value.text());
    case PluginValue::Kind::number:
        return qHashMulti(seed, 1, value.numberValue());
    case PluginValue::Kind::boolean:
        return qHashMulti(seed, 2, value.booleanValue());
    }
    return seed;
}

} // namespace vell
