#pragma once

#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/Modules/ModuleAction.h"
#include "VellPluginSDK/Modules/ModuleState.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>

namespace vell {

// One element of a module's card or page. The host draws it; the module only supplies the
// template text and, for a progress bar or a button, the state key or action it refers to.
struct ModuleComponent final {
    // Written as the case name; any other string fails decoding.
    enum class Kind { text, heading, badge, progress, button };

    QString id;
    Kind kind = Kind::text;
    QString text;
    std::optional<QString> valueKey;
    std::optional<QString> action;

    static ModuleComponent fromJson(const JsonNode& json);
    QByteArray encoded() const;
    QJsonObject toJson() const;

    // Throws, in this order: "Invalid view component.", "Progress requires a state key.",
    // "A button refers to an undeclared action."
    void validate(const QList<ModuleAction>& declaredActions) const;

    // The bar value of a progress component: state[valueKey] ("0" when missing) read by
    // progressValue().
    double progress(const ModuleState& state) const;

    // A decimal text as a bar value out of 100. No number, NaN, an infinity and negatives
    // are 0; anything from 100 up is 100.
    static double progressValue(QStringView text);

    static QString kindName(Kind kind);
    static std::optional<Kind> kindFromName(QStringView name);

    bool operator==(const ModuleComponent&) const = default;
};

} // namespace vell
