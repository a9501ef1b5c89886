#include "OstaVell/Support/DisplayAppearance.h"

#include "VellPluginSDK/Json/JsonWriter.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace vell {

std::optional<QByteArray> DisplayAppearance::encodedJson() const {
    const std::optional<QByteArray> inner = appearance.encodedJson();
    if (!inner)
        return std::nullopt;
    return "{\"name\":" + JsonWriter::encodeValue(name) + ",\"appearance\":" + *inner + '}';
}

std::optional<DisplayAppearance> DisplayAppearance::fromJson(const QJsonValue& json) {
    const QJsonObject object = json.toObject();
    const QJsonValue name = object.value(QLatin1StringView("name"));
    if (!json.isObject() || !name.isString())
        return std::nullopt;
    std::optional<VellAppearance> appearance =
        VellAppearance::fromJson(object.value(QLatin1StringView("appearance")));
    if (!appearance)
        return std::nullopt;
    return DisplayAppearance{name.toString(), *appearance};
}

std::optional<QByteArray> DisplayAppearance::encodeMap(const Map& map) {
    QByteArray text = "{";
    for (auto entry = map.cbegin(); entry != map.cend(); ++entry) {
        const std::optional<QByteArray> value = entry->encodedJson();
        if (!value)
            return std::nullopt;
        if (text.size() > 1)
            text += ',';
        text += JsonWriter::encodeValue(entry.key()) + ':' + *value;
    }
    text += '}';
    return text;
}

std::optional<DisplayAppearance::Map> DisplayAppearance::decodeMap(const QByteArray& json) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();
    Map map;
    for (auto entry = object.begin(); entry != object.end(); ++entry) {
        std::optional<DisplayAppearance> value = fromJson(entry.value());
        if (!value)
            return std::nullopt;
        map.insert(entry.key(), *value);
    }
    return map;
}

} // namespace vell
