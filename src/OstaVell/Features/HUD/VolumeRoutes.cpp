#include "OstaVell/Features/HUD/VolumeRoutes.h"

#include "OstaVell/Support/UserDefaults.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"

namespace vell {

PluginVolumeTarget PluginVolumeTarget::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.string(u"pluginID"), reader.string(u"endpointID")};
}

QByteArray PluginVolumeTarget::encoded() const {
    return JsonWriter().add(u"pluginID", pluginID).add(u"endpointID", endpointID).bytes();
}

std::optional<PluginVolumeTarget> PluginVolumeTarget::fromSelectionID(const QString& id) {
    const qsizetype slash = id.indexOf(u'/');
    if (slash <= 0 || slash == id.size() - 1)
        return std::nullopt;
    return PluginVolumeTarget{id.left(slash), id.mid(slash + 1)};
}

std::optional<PluginVolumeTarget> VolumeRoutes::target(const QString& outputUID) const {
    const auto found = outputs.constFind(outputUID);
    return found == outputs.cend() ? std::nullopt : std::optional(*found);
}

void VolumeRoutes::set(const QString& outputUID, const std::optional<PluginVolumeTarget>& target) {
    if (target)
        outputs.insert(outputUID, *target);
    else
        outputs.remove(outputUID);
}

VolumeRoutes VolumeRoutes::fromJson(const JsonNode& json) {
    return {JsonReader(json).recordMap<PluginVolumeTarget>(u"outputs")};
}

QByteArray VolumeRoutes::encoded() const {
    return JsonWriter().addRecordMap(u"outputs", outputs).bytes();
}

VolumeRoutes VolumeRoutes::load(const UserDefaults& defaults) {
    const QByteArray data = defaults.dataValue(key);
    if (data.isEmpty())
        return {};
    try {
        return fromJson(JsonReader::parse(data));
    } catch (const ModuleProblem&) {
        return {};
    }
}

void VolumeRoutes::save(UserDefaults& defaults) const {
    defaults.setValue(key, encoded());
}

} // namespace vell
