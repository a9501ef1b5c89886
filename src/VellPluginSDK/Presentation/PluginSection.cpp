#include "VellPluginSDK/Presentation/PluginSection.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>

namespace vell {

PluginSection PluginSection::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.string(u"title"), reader.string(u"detail"), reader.optionalBase64(u"imagePNG")};
}

QByteArray PluginSection::encoded() const {
    JsonWriter writer;
    writer.add(u"title", title).add(u"detail", detail);
    if (imagePNG)
        writer.add(u"imagePNG", QString::fromLatin1(imagePNG->toBase64()));
    return writer.bytes();
}

QJsonObject PluginSection::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

bool PluginSection::hasValidText() const {
    return TextMetrics::characterCount(title) <= maximumTitleCharacters &&
           TextMetrics::characterCount(detail) <= maximumDetailCharacters;
}

} // namespace vell
