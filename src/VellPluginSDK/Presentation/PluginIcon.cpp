#include "VellPluginSDK/Presentation/PluginIcon.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>
#include <QRegularExpression>

namespace vell {

PluginIcon PluginIcon::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.string(u"symbol"), reader.string(u"color"), reader.optionalString(u"badge")};
}

QByteArray PluginIcon::encoded() const {
    return JsonWriter().add(u"symbol", symbol).add(u"color", color).addIfPresent(u"badge", badge).bytes();
}

QJsonObject PluginIcon::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

bool PluginIcon::isSymbolName(QStringView text) {
    static const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(QStringLiteral("[a-z0-9]+([.][a-z0-9]+)*")));
    return !text.isEmpty() && TextMetrics::characterCount(text) <= maximumSymbolCharacters &&
           pattern.match(text).hasMatch();
}

void PluginIcon::validate() const {
    static const QRegularExpression hexColor(
        QRegularExpression::anchoredPattern(QStringLiteral("[0-9a-fA-F]{6}")));
    if (!isSymbolName(symbol) || (badge && !isSymbolName(*badge)) || !hexColor.match(color).hasMatch())
        throw ModuleProblem(
            QStringLiteral("Invalid module icon. Use an SF Symbol name and six-digit RGB color."));
}

} // namespace vell
