#include "VellPluginSDK/Actions/PluginParameter.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QJsonDocument>

#include <cmath>

namespace vell {

namespace {

constexpr std::array<QStringView, 3> kindNames{u"string", u"number", u"boolean"};

} // namespace

PluginParameter PluginParameter::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginParameter parameter;
    parameter.name = reader.string(u"name");
    parameter.kind = reader.enumeration<Kind>(u"kind", kindNames);
    parameter.required = reader.boolean(u"required");
    parameter.minimum = reader.optionalNumber(u"minimum");
    parameter.maximum = reader.optionalNumber(u"maximum");
    return parameter;
}

QByteArray PluginParameter::encoded() const {
    return JsonWriter()
        .add(u"name", name)
        .add(u"kind", kindNames[static_cast<int>(kind)].toString())
        .add(u"required", required)
        .addIfPresent(u"minimum", minimum)
        .addIfPresent(u"maximum", maximum)
        .bytes();
}

QJsonObject PluginParameter::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginParameter::validate() const {
    const bool valid = Identifiers::isKey(name) && (!minimum || std::isfinite(*minimum)) &&
                       (!maximum || std::isfinite(*maximum)) &&
                       (kind == Kind::number || (!minimum && !maximum)) &&
                       (!minimum || !maximum || *minimum <= *maximum);
    if (!valid)
        throw ModuleProblem(QStringLiteral("Invalid parameter constraint."));
}

} // namespace vell
