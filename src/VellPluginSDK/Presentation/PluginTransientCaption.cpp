#include "VellPluginSDK/Presentation/PluginTransientCaption.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>

namespace vell {

namespace {

constexpr std::array<QStringView, 3> phaseNames{u"active", u"result", u"dismiss"};

} // namespace

PluginTransientCaption PluginTransientCaption::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginTransientCaption caption;
    caption.phase = reader.enumeration<Phase>(u"phase", phaseNames);
    caption.title = reader.string(u"title");
    caption.text = reader.string(u"text");
    caption.detail = reader.string(u"detail");
    caption.symbol = reader.string(u"symbol");
    caption.displayNumber = reader.optionalUnsigned32(u"displayNumber");
    return caption;
}

QByteArray PluginTransientCaption::encoded() const {
    JsonWriter writer;
    writer.add(u"phase", phaseNames[static_cast<int>(phase)].toString())
        .add(u"title", title)
        .add(u"text", text)
        .add(u"detail", detail)
        .add(u"symbol", symbol);
    if (displayNumber)
        writer.add(u"displayNumber", qint64(*displayNumber));
    return writer.bytes();
}

QJsonObject PluginTransientCaption::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginTransientCaption::validate() const {
    const int titleLength = TextMetrics::characterCount(title);
    if ((titleLength == 0 && phase != Phase::dismiss) || titleLength > maximumTitleCharacters ||
        TextMetrics::utf8Size(text) > maximumTextBytes ||
        TextMetrics::characterCount(detail) > maximumDetailCharacters ||
        TextMetrics::characterCount(symbol) > maximumSymbolCharacters || displayNumber == 0u)
        throw ModuleProblem(QStringLiteral("Invalid transient caption."));
}

} // namespace vell
