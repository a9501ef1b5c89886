#include "VellPluginSDK/Actions/PluginValueSchema.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <cmath>

namespace vell {

namespace {

[[noreturn]] void fail(const char* message) {
    throw ModuleProblem(QString::fromLatin1(message));
}

PluginValue::Kind valueKind(PluginParameter::Kind kind) {
    switch (kind) {
    case PluginParameter::Kind::string:
        return PluginValue::Kind::string;
    case PluginParameter::Kind::number:
        return PluginValue::Kind::number;
    case PluginParameter::Kind::boolean:
        break;
    }
    return PluginValue::Kind::boolean;
}

} // namespace

PluginValueSchema PluginValueSchema::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.records<PluginParameter>(u"fields")};
}

QByteArray PluginValueSchema::encoded() const {
    return JsonWriter().addRecords(u"fields", fields).bytes();
}

QJsonObject PluginValueSchema::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginValueSchema::validate() const {
    if (fields.size() > maximumFields || !Identifiers::distinct(fields, &PluginParameter::name))
        fail("Invalid value schema.");
    for (const PluginParameter& field : fields)
        field.validate();
}

void PluginValueSchema::validate(const PluginValueMap& values) const {
    validate();
    // The count comes before the unknown-key test, and both before any field, so that a
    // flood of keys is refused without looking at any of them.
    if (values.size() > maximumEntries)
        fail("Unexpected action arguments.");
    for (auto it = values.keyBegin(); it != values.keyEnd(); ++it) {
        const bool known = std::any_of(fields.begin(), fields.end(),
                                       [&](const PluginParameter& field) { return field.name == *it; });
        if (!known)
            fail("Unexpected action arguments.");
    }
    for (const PluginParameter& field : fields) {
        const auto found = values.constFind(field.name);
        if (found == values.constEnd()) {
            if (field.required)
                throw ModuleProblem(QStringLiteral("Missing argument: ") + field.name);
            continue;
        }
        const PluginValue& value = *found;
        if (value.kind() != valueKind(field.kind))
            fail("Argument type does not match its schema.");
        if (field.kind == PluginParameter::Kind::string &&
            TextMetrics::utf8Size(value.text()) > maximumTextBytes)
            fail("Text argument is too long.");
        if (field.kind == PluginParameter::Kind::number) {
            const double number = value.numberValue();
            if (!std::isfinite(number) || (field.minimum && number < *field.minimum) ||
                (field.maximum && number > *field.maximum))
                fail("Number is outside its limits.");
        }
    }
}

} // namespace vell
