#pragma once

#include "VellPluginSDK/Actions/PluginRegisteredAction.h"
#include "VellPluginSDK/Actions/PluginValue.h"
#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace vell {

// One input of a form, bound to the field of the same name in the action's input schema.
struct PluginFormInput {
    // text and choice edit a string field, number and slider a number field, toggle a boolean.
    enum class Style { text, number, slider, toggle, choice };

    static constexpr int maximumLabelCharacters = 80;
    static constexpr int maximumChoices = 24;
    static constexpr int maximumChoiceCharacters = 80;

    QString id;
    QString label;
    Style style = Style::text;
    // The initial value.
    PluginValue value;
    // For a choice input only.
    std::optional<QStringList> choices;

    static PluginFormInput fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    friend bool operator==(const PluginFormInput&, const PluginFormInput&) = default;
};

// A small set of inputs that, on submit, invokes one of the plugin's own actions through the
// router, under the same reviews and grants as any other caller. The revision lets a run that
// waits for review notice that the form changed under it.
struct PluginForm {
    static constexpr int maximumTitleCharacters = 80;
    static constexpr int maximumRevisionCharacters = 128;
    static constexpr int maximumInputs = 6;

    QString id;
    QString title;
    QString revision;
    PluginRegisteredAction action;
    QList<PluginFormInput> inputs;
    // Whether it can be submitted now.
    bool enabled = false;

    static PluginForm fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    // The action, the form's identity and inputs against the action's input schema, and the
    // initial values: a form is valid only if it can be submitted as it first appears.
    void validate() const;
    // Each input's id to its initial value.
    PluginValueMap defaults() const;
    // Values as submitted: the schema's own test and message first, then what the inputs add.
    void validateValues(const PluginValueMap& values) const;

    friend bool operator==(const PluginForm&, const PluginForm&) = default;
};

} // namespace vell
