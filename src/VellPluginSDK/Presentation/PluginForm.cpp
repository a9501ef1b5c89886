#include "VellPluginSDK/Presentation/PluginForm.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>
#include <QSet>

#include <cmath>

namespace vell {

namespace {

constexpr std::array<QStringView, 5> styleNames{u"text", u"number", u"slider", u"toggle", u"choice"};

[[noreturn]] void fail(const char* message) {
    throw ModuleProblem(QString::fromLatin1(message));
}

bool textWithin(const QString& text, int maximum) {
    const int length = TextMetrics::characterCount(text);
    return length > 0 && length <= maximum;
}

const PluginParameter* fieldNamed(const PluginValueSchema& schema, const QString& name) {
    for (const PluginParameter& field : schema.fields) {
        if (field.name == name)
            return &field;
    }
    return nullptr;
}

PluginParameter::Kind kindFor(PluginFormInput::Style style) {
    switch (style) {
    case PluginFormInput::Style::number:
    case PluginFormInput::Style::slider:
        return PluginParameter::Kind::number;
    case PluginFormInput::Style::toggle:
        return PluginParameter::Kind::boolean;
    case PluginFormInput::Style::text:
    case PluginFormInput::Style::choice:
        break;
    }
    return PluginParameter::Kind::string;
}

bool validChoices(const std::optional<QStringList>& choices) {
    if (!choices || choices->isEmpty() || choices->size() > PluginFormInput::maximumChoices)
        return false;
    for (const QString& choice : *choices) {
        if (!textWithin(choice, PluginFormInput::maximumChoiceCharacters))
            return false;
    }
    return QSet<QString>(choices->begin(), choices->end()).size() == choices->size();
}

// A slider runs between the field's bounds, so both must exist, in order, a finite distance apart.
bool hasSliderBounds(const PluginParameter& field) {
    return field.minimum && field.maximum && *field.minimum < *field.maximum &&
           std::isfinite(*field.maximum - *field.minimum);
}

void validateInput(const PluginFormInput& input, const PluginValueSchema& schema) {
    const PluginParameter* field = fieldNamed(schema, input.id);
    if (!textWithin(input.label, PluginFormInput::maximumLabelCharacters) || !field)
        fail("Invalid form input.");
    if (field->kind != kindFor(input.style))
        fail("Input style does not match the action schema.");
    switch (input.style) {
    case PluginFormInput::Style::slider:
        if (input.choices || !hasSliderBounds(*field))
            fail("Sliders require finite bounds.");
        break;
    case PluginFormInput::Style::choice:
        if (!validChoices(input.choices))
            fail("Invalid choices.");
        break;
    case PluginFormInput::Style::text:
    case PluginFormInput::Style::number:
    case PluginFormInput::Style::toggle:
        if (input.choices)
            fail("Unexpected choices.");
        break;
    }
}

} // namespace

PluginFormInput PluginFormInput::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginFormInput input;
    input.id = reader.string(u"id");
    input.label = reader.string(u"label");
    input.style = reader.enumeration<Style>(u"style", styleNames);
    input.value = reader.record<PluginValue>(u"value");
    input.choices = reader.optionalStrings(u"choices");
    return input;
}

QByteArray PluginFormInput::encoded() const {
    return JsonWriter()
        .add(u"id", id)
        .add(u"label", label)
        .add(u"style", styleNames[static_cast<int>(style)].toString())
        .add(u"value", value.toJson())
        .addIfPresent(u"choices", choices)
        .bytes();
}

QJsonObject PluginFormInput::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

PluginForm PluginForm::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginForm form;
    form.id = reader.string(u"id");
    form.title = reader.string(u"title");
    form.revision = reader.string(u"revision");
    form.action = reader.record<PluginRegisteredAction>(u"action");
    form.inputs = reader.records<PluginFormInput>(u"inputs");
    form.enabled = reader.boolean(u"enabled");
    return form;
}

QByteArray PluginForm::encoded() const {
    return JsonWriter()
        .add(u"id", id)
        .add(u"title", title)
        .add(u"revision", revision)
        .addRecord(u"action", action)
        .addRecords(u"inputs", inputs)
        .add(u"enabled", enabled)
        .bytes();
}

QJsonObject PluginForm::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginForm::validate() const {
    action.validate();
    // Every field of the schema gets exactly one input and no input stands for nothing.
    QSet<QString> fieldNames;
    for (const PluginParameter& field : action.input.fields)
        fieldNames.insert(field.name);
    QSet<QString> inputIDs;
    for (const PluginFormInput& input : inputs)
        inputIDs.insert(input.id);
    if (!Identifiers::isKey(id) || !textWithin(title, maximumTitleCharacters) ||
        !textWithin(revision, maximumRevisionCharacters) || inputs.isEmpty() ||
        inputs.size() > maximumInputs || inputIDs.size() != inputs.size() || inputIDs != fieldNames)
        fail("Invalid form identity or fields.");
    for (const PluginFormInput& input : inputs)
        validateInput(input, action.input);
    validateValues(defaults());
}

PluginValueMap PluginForm::defaults() const {
    PluginValueMap values;
    for (const PluginFormInput& input : inputs)
        values.insert(input.id, input.value);
    return values;
}

void PluginForm::validateValues(const PluginValueMap& values) const {
    action.input.validate(values);
    for (const PluginFormInput& input : inputs) {
        if (!values.contains(input.id))
            fail("Every displayed input needs a value.");
    }
    for (const PluginFormInput& input : inputs) {
        if (input.style != PluginFormInput::Style::choice)
            continue;
        const PluginValue value = values.value(input.id);
        if (value.kind() != PluginValue::Kind::string || !input.choices ||
            !input.choices->contains(value.text()))
            fail("Choose an available value.");
    }
}

} // namespace vell
