#include "OstaVell/Support/VellAppearance.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <algorithm>
#include <cmath>

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

// QJsonObject sorts its keys, so an object whose key order matters is written by hand and
// each value goes through the JSON writer alone.
QByteArray scalarJson(const QJsonValue& value) {
    QByteArray text = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return text.mid(1, text.size() - 2);
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

std::optional<QByteArray> VellAppearance::encodedJson() const {
    for (const double number : {opacity, startOpacity, endOpacity, width, height, cornerRadius}) {
        if (!std::isfinite(number))
            return std::nullopt;
    }
    const std::pair<const char*, QJsonValue> fields[] = {
        {"backgroundStyle", backgroundStyle},
        {"startHex", startHex},
        {"endHex", endHex},
        {"accentHex", accentHex},
        {"opacity", opacity},
        {"fades", fades},
        {"startOpacity", startOpacity},
        {"endOpacity", endOpacity},
        {"direction", direction},
        {"borderGlow", borderGlow},
        {"width", width},
        {"height", height},
        {"cornerRadius", cornerRadius},
    };
    QByteArray text = "{";
    for (const auto& [key, value] : fields) {
        if (text.size() > 1)
            text += ',';
        text += '"' + QByteArray(key) + "\":" + scalarJson(value);
    }
    text += '}';
    return text;
}

std::optional<VellAppearance> VellAppearance::fromJson(const QJsonValue& json) {
    if (!json.isObject())
        return std::nullopt;
    const QJsonObject object = json.toObject();
    bool complete = true;
    auto text = [&](const char* key) {
        const QJsonValue value = object.value(QLatin1StringView(key));
        complete = complete && value.isString();
        return value.toString();
    };
    auto number = [&](const char* key) {
        const QJsonValue value = object.value(QLatin1StringView(key));
        complete = complete && value.isDouble();
        return value.toDouble();
    };
    auto flag = [&](const char* key) {
        const QJsonValue value = object.value(QLatin1StringView(key));
        complete = complete && value.isBool();
        return value.toBool();
    };

    VellAppearance appearance;
    appearance.backgroundStyle = text("backgroundStyle");
    appearance.startHex = text("startHex");
    appearance.endHex = text("endHex");
    appearance.accentHex = text("accentHex");
    appearance.opacity = number("opacity");
    appearance.fades = flag("fades");
    appearance.startOpacity = number("startOpacity");
    appearance.endOpacity = number("endOpacity");
    appearance.direction = text("direction");
    appearance.borderGlow = flag("borderGlow");
    appearance.width = number("width");
    appearance.height = number("height");
    appearance.cornerRadius = number("cornerRadius");
    if (!complete)
        return std::nullopt;
    return appearance;
}

QVariantMap VellAppearance::toVariantMap() const {
    return {
        {QStringLiteral("backgroundStyle"), backgroundStyle},
        {QStringLiteral("startHex"), startHex},
        {QStringLiteral("endHex"), endHex},
        {QStringLiteral("accentHex"), accentHex},
        {QStringLiteral("opacity"), opacity},
        {QStringLiteral("fades"), fades},
        {QStringLiteral("startOpacity"), startOpacity},
        {QStringLiteral("endOpacity"), endOpacity},
        {QStringLiteral("direction"), direction},
        {QStringLiteral("borderGlow"), borderGlow},
        {QStringLiteral("width"), width},
        {QStringLiteral("height"), height},
        {QStringLiteral("cornerRadius"), cornerRadius},
    };
}

VellAppearance VellAppearance::fromVariantMap(const QVariantMap& map) {
    VellAppearance appearance;
    auto read = [&map](const char* key, auto& field) {
        const auto found = map.constFind(QLatin1StringView(key));
        if (found == map.cend())
            return;
        using Field = std::remove_reference_t<decltype(field)>;
        if constexpr (std::is_same_v<Field, QString>)
            field = found->toString();
        else if constexpr (std::is_same_v<Field, bool>)
            field = found->toBool();
        else
            field = found->toDouble();
    };
    read("backgroundStyle", appearance.backgroundStyle);
    read("startHex", appearance.startHex);
    read("endHex", appearance.endHex);
    read("accentHex", appearance.accentHex);
    read("opacity", appearance.opacity);
    read("fades", appearance.fades);
    read("startOpacity", appearance.startOpacity);
    read("endOpacity", appearance.endOpacity);
    read("direction", appearance.direction);
    read("borderGlow", appearance.borderGlow);
    read("width", appearance.width);
    read("height", appearance.height);
    read("cornerRadius", appearance.cornerRadius);
    return appearance;
}

} // namespace vell
