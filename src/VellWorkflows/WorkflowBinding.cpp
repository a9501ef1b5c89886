#include "VellWorkflows/WorkflowBinding.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QJsonDocument>

namespace vell {

WorkflowBinding WorkflowBinding::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    WorkflowBinding binding;
    binding.value = reader.optionalRecord<PluginValue>(u"value");
    binding.source = reader.optionalString(u"source");
    binding.field = reader.optionalString(u"field");
    return binding;
}

QByteArray WorkflowBinding::encoded() const {
    JsonWriter writer;
    if (value)
        writer.add(u"value", value->toJson());
    return writer.addIfPresent(u"source", source).addIfPresent(u"field", field).bytes();
}

QJsonObject WorkflowBinding::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

PluginValue WorkflowBinding::resolve(const Results& results) const {
    if (isLiteral())
        return *value;
    if (isReference()) {
        const auto outputs = results.constFind(*source);
        if (outputs != results.constEnd()) {
            const auto found = outputs->constFind(*field);
            if (found != outputs->constEnd())
                return *found;
        }
    }
    throw ModuleProblem(QStringLiteral("A required input is unavailable."));
}

} // namespace vell
