#include "OstaVell/Support/VellAppearance.h"

#include "VellPluginSDK/Json/JsonWriter.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <algorithm>
#include <cmath>
#include <variant>

namespace vell {

namespace {

double clampedOr(double value, double low, double high, double fallback) {
    if (!std::isfinite(value))
        return fallback;
    return std::clamp(value, low, high);
}

QString oneOf(const QString& value, const QStringList& allowed) {
    return allowed.contains(value) ? value : allowed.first();
}

} // namespace

VellAppearance VellAppearance::normalized() const {
    VellAppearance result = *this;
    result.backgroundStyle = oneOf(backgroundStyle, {QStringLiteral("black"), QStringLiteral("solid"),
                                                     QStringLiteral("gradient"), QStringLiteral("artwork")});
    result.opacity = clampedOr(opacity, 0, 1, 1);
    result.startOpacity = clampedOr(startOpacity, 0, 1, 1);
    result.endOpacity = clampedOr(endOpacity, 0, 1, 0);
    result.direction = oneOf(
        direction, {QStringLiteral("vertical"), QStringLiteral("horizontal"), QStringLiteral("diagonal")});
    result.width = clampedOr(width, 600, 3840, 760);
    result.height = clampedOr(height, 300, 560, 400);
    result.cornerRadius = clampedOr(cornerRadius, 10, 40, 24);
    return result;
}

namespace {
// Every field once, in the order the stored JSON writes them; each conversion below walks this.
using Member = std::variant<QString VellAppearance::*, double VellAppearance::*, bool VellAppearance::*>;
struct Field {
    const char* key;
    Member member;
};
const Field fields[] = {
    {"backgroundStyle", &VellAppearance::backgroundStyle},
    {"startHex", &VellAppearance::startHex},
    {"endHex", &VellAppearance::endHex},
    {"accentHex", &VellAppearance::accentHex},
    {"opacity", &VellAppearance::opacity},
    {"fades", &VellAppearance::fades},
    {"startOpacity", &VellAppearance::startOpacity},
    {"endOpacity", &VellAppearance::endOpacity},
    {"direction", &VellAppearance::direction},
    {"borderGlow", &VellAppearance::borderGlow},
    {"width", &VellAppearance::width},
    {"height", &VellAppearance::height},
    {"cornerRadius", &VellAppearance::cornerRadius},
};

template <typename T> bool hasType(const QJsonValue& value) {
    if constexpr (std::is_same_v<T, QString>)
        return value.isString();
    else if constexpr (std::is_same_v<T, bool>)
        return value.isBool();
    else
        return value.isDouble();
}
} // namespace

std::optional<QByteArray> VellAppearance::encodedJson() const {
    JsonWriter writer;
    for (const Field& field : fields) {
        const QJsonValue value =
            std::visit([this](auto member) { return QJsonValue(this->*member); }, field.member);
        if (value.isDouble() && !std::isfinite(value.toDouble()))
            return std::nullopt;
        writer.add(QString::fromLatin1(field.key), value);
    }
    return writer.bytes();
}

std::optional<VellAppearance> VellAppearance::fromJson(const QJsonValue& json) {
    if (!json.isObject())
        return std::nullopt;
    const QJsonObject object = json.toObject();
    VellAppearance appearance;
    for (const Field& field : fields) {
        const QJsonValue value = object.value(QLatin1StringView(field.key));
        const bool read = std::visit(
            [&](auto member) {
                using T = std::remove_reference_t<decltype(appearance.*member)>;
                if (!hasType<T>(value))
                    return false;
                appearance.*member = value.toVariant().value<T>();
                return true;
            },
            field.member);
        if (!read)
            return std::nullopt;
    }
    return appearance;
}

QVariantMap VellAppearance::toVariantMap() const {
    QVariantMap map;
    for (const Field& field : fields)
        map.insert(
            QLatin1StringView(field.key),
            std::visit([this](auto member) { return QVariant::fromValue(this->*member); }, field.member));
    return map;
}

VellAppearance VellAppearance::fromVariantMap(const QVariantMap& map) {
    VellAppearance appearance;
    for (const Field& field : fields) {
        const auto found = map.constFind(QLatin1StringView(field.key));
        if (found == map.cend())
            continue;
        std::visit(
            [&](auto member) {
                using T = std::remove_reference_t<decltype(appearance.*member)>;
                appearance.*member = found->value<T>();
            },
            field.member);
    }
    return appearance;
}

} // namespace vell
