#include "VellPluginSDK/Actions/PluginRunDisplay.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>

namespace vell {

PluginRunDisplay PluginRunDisplay::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginRunDisplay display;
    display.title = reader.string(u"title");
    display.step = reader.string(u"step");
    display.detail = reader.string(u"detail");
    display.completedSteps = reader.integer(u"completedSteps");
    display.totalSteps = reader.integer(u"totalSteps");
    display.needsReview = reader.boolean(u"needsReview");
    return display;
}

QByteArray PluginRunDisplay::encoded() const {
    return JsonWriter()
        .add(u"title", title)
        .add(u"step", step)
        .add(u"detail", detail)
        .add(u"completedSteps", completedSteps)
        .add(u"totalSteps", totalSteps)
        .add(u"needsReview", needsReview)
        .bytes();
}

QJsonObject PluginRunDisplay::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginRunDisplay::validate() const {
    if (TextMetrics::characterCount(title) > maximumTitleCharacters ||
        TextMetrics::characterCount(step) > maximumTitleCharacters ||
        TextMetrics::characterCount(detail) > maximumDetailCharacters || totalSteps < 0 ||
        totalSteps > maximumSteps || completedSteps < 0 || completedSteps > totalSteps)
        throw ModuleProblem(QStringLiteral("Invalid run display."));
}

} // namespace vell
