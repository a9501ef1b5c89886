#include "VellPluginSDK/Presentation/PluginViewResources.h"

#include "VellPluginSDK/Actions/PluginBusMessage.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>
#include <QRegularExpression>

namespace vell {

bool PluginViewResources::validPath(QStringView path) {
    static const QRegularExpression segmentPattern(
        QRegularExpression::anchoredPattern(QStringLiteral("[A-Za-z0-9_][A-Za-z0-9_.-]*")));
    if (TextMetrics::utf8Size(path) > maximumPathBytes)
        return false;
    // An empty path is one empty segment.
    for (const QStringView segment : path.split(u'/')) {
        if (!segmentPattern.match(segment).hasMatch())
            return false;
    }
    return true;
}

PluginViewEvent PluginViewEvent::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.string(u"panelID"), reader.string(u"revision"), reader.string(u"name"),
            reader.values(u"values")};
}

QByteArray PluginViewEvent::encoded() const {
    return JsonWriter()
        .add(u"panelID", panelID)
        .add(u"revision", revision)
        .add(u"name", name)
        .add(u"values", PluginValue::mapToJson(values))
        .bytes();
}

QJsonObject PluginViewEvent::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

PluginViewResourceRequest PluginViewResourceRequest::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.uuid(u"id"), reader.string(u"panelID"), reader.string(u"revision"),
            reader.string(u"path")};
}

QByteArray PluginViewResourceRequest::encoded() const {
    return JsonWriter()
        .add(u"id", uuidText(id))
        .add(u"panelID", panelID)
        .add(u"revision", revision)
        .add(u"path", path)
        .bytes();
}

QJsonObject PluginViewResourceRequest::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

PluginViewResourceResult PluginViewResourceResult::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.uuid(u"id"), reader.optionalString(u"mime"), reader.optionalBase64(u"data"),
            reader.optionalString(u"error")};
}

QByteArray PluginViewResourceResult::encoded() const {
    JsonWriter writer;
    writer.add(u"id", uuidText(id)).addIfPresent(u"mime", mime);
    if (data)
        writer.add(u"data", QString::fromLatin1(data->toBase64()));
    writer.addIfPresent(u"error", error);
    return writer.bytes();
}

QJsonObject PluginViewResourceResult::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginViewResourceResult::validate() const {
    // The restricted names of media types, with no parameters: the text goes into a response
    // header, so nothing that could end or extend a header line is allowed.
    static const QRegularExpression mimePattern(QRegularExpression::anchoredPattern(
        QStringLiteral("[A-Za-z0-9][A-Za-z0-9!#$&^_.+-]*/[A-Za-z0-9][A-Za-z0-9!#$&^_.+-]*")));
    bool valid = false;
    if (data && !error) {
        valid = data->size() <= maximumDataBytes && mime &&
                TextMetrics::characterCount(*mime) <= maximumMimeCharacters &&
                mimePattern.match(*mime).hasMatch();
    } else if (error && !data) {
        const int errorLength = TextMetrics::characterCount(*error);
        valid = !mime && errorLength > 0 && errorLength <= maximumErrorCharacters;
    }
    if (!valid)
        throw ModuleProblem(QStringLiteral("Invalid resource error."));
}

} // namespace vell
