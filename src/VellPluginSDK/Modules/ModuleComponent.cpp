#include "VellPluginSDK/Modules/ModuleComponent.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Modules/ModulePackage.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>

#include <algorithm>
#include <array>
#include <cmath>

namespace vell {

namespace {

struct KindName {
    ModuleComponent::Kind kind;
    QStringView name;
};

constexpr std::array kindNames{
    KindName{ModuleComponent::Kind::text, u"text"},
    KindName{ModuleComponent::Kind::heading, u"heading"},
    KindName{ModuleComponent::Kind::badge, u"badge"},
    KindName{ModuleComponent::Kind::progress, u"progress"},
    KindName{ModuleComponent::Kind::button, u"button"},
};

} // namespace

ModuleComponent ModuleComponent::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    ModuleComponent component;
    component.id = reader.string(u"id");
    const std::optional<Kind> kind = kindFromName(reader.string(u"kind"));
    if (!kind)
        throw ModuleProblem(QStringLiteral(
            "\"kind\" must be one of \"text\", \"heading\", \"badge\", \"progress\", \"button\""));
    component.kind = *kind;
    component.text = reader.string(u"text");
    component.valueKey = reader.optionalString(u"valueKey");
    component.action = reader.optionalString(u"action");
    return component;
}

QByteArray ModuleComponent::encoded() const {
    return JsonWriter()
        .add(u"id", id)
        .add(u"kind", kindName(kind))
        .add(u"text", text)
        .addIfPresent(u"valueKey", valueKey)
        .addIfPresent(u"action", action)
        .bytes();
}

QJsonObject ModuleComponent::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void ModuleComponent::validate(const QList<ModuleAction>& declaredActions) const {
    if (!ModulePackage::validKey(id) || TextMetrics::characterCount(text) > 500)
        throw ModuleProblem(QStringLiteral("Invalid view component."));
    if (kind == Kind::progress && !(valueKey && ModulePackage::validKey(*valueKey)))
        throw ModuleProblem(QStringLiteral("Progress requires a state key."));
    if (kind == Kind::button) {
        const bool declared = action && std::any_of(declaredActions.begin(), declaredActions.end(),
                                                    [&](const ModuleAction& a) { return a.id == *action; });
        if (!declared)
            throw ModuleProblem(QStringLiteral("A button refers to an undeclared action."));
    }
}

double ModuleComponent::progress(const ModuleState& state) const {
    return progressValue(state.value(valueKey.value_or(QString()), QStringLiteral("0")));
}

double ModuleComponent::progressValue(QStringView text) {
    bool ok = false;
    const double value = text.toDouble(&ok);
    if (!ok || !std::isfinite(value) || !(value > 0))
        return 0;
    return std::min(value, 100.0);
}

QString ModuleComponent::kindName(Kind kind) {
    for (const KindName& entry : kindNames) {
        if (entry.kind == kind)
            return entry.name.toString();
    }
    Q_UNREACHABLE();
}

std::optional<ModuleComponent::Kind> ModuleComponent::kindFromName(QStringView name) {
    for (const KindName& entry : kindNames) {
        if (entry.name == name)
            return entry.kind;
    }
    return std::nullopt;
}

} // namespace vell
