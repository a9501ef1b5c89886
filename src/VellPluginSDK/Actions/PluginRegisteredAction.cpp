#include "VellPluginSDK/Actions/PluginRegisteredAction.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>

#include <cmath>

namespace vell {

namespace {

constexpr std::array<QStringView, 3> effectNames{u"readOnly", u"localChange", u"externalChange"};

} // namespace

PluginRegisteredAction PluginRegisteredAction::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginRegisteredAction action;
    action.id = reader.string(u"id");
    action.title = reader.string(u"title");
    action.input = reader.record<PluginValueSchema>(u"input");
    action.output = reader.record<PluginValueSchema>(u"output");
    action.effect = reader.enumeration<Effect>(u"effect", effectNames);
    action.cancellable = reader.boolean(u"cancellable");
    action.timeoutSeconds = reader.number(u"timeoutSeconds");
    action.completionTimeoutSeconds = reader.optionalNumber(u"completionTimeoutSeconds");
    return action;
}

QByteArray PluginRegisteredAction::encoded() const {
    return JsonWriter()
        .add(u"id", id)
        .add(u"title", title)
        .addRecord(u"input", input)
        .addRecord(u"output", output)
        .add(u"effect", effectNames[static_cast<int>(effect)].toString())
        .add(u"cancellable", cancellable)
        .add(u"timeoutSeconds", timeoutSeconds)
        .addIfPresent(u"completionTimeoutSeconds", completionTimeoutSeconds)
        .bytes();
}

QJsonObject PluginRegisteredAction::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginRegisteredAction::validate() const {
    const int titleLength = TextMetrics::characterCount(title);
    if (!Identifiers::isKey(id) || titleLength == 0 || titleLength > maximumTitleCharacters ||
        !std::isfinite(timeoutSeconds) || timeoutSeconds < minimumTimeoutSeconds ||
        timeoutSeconds > maximumTimeoutSeconds)
        throw ModuleProblem(QStringLiteral("Invalid registered action."));
    if (completionTimeoutSeconds) {
        const double completion = *completionTimeoutSeconds;
        if (!std::isfinite(completion) || completion > maximumCompletionTimeoutSeconds ||
            completion < timeoutSeconds)
            throw ModuleProblem(QStringLiteral("Invalid completion limit."));
    }
    input.validate();
    output.validate();
}

} // namespace vell
