#include "VellActionRouter/ActionRunSummary.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Actions/PluginBusMessage.h"

namespace vell {

ActionRunSummary ActionRunSummary::fromJson(const QJsonValue& json) {
    const JsonReader reader(json);
    ActionRunSummary summary;
    summary.id = reader.uuid(u"id");
    summary.caller = reader.string(u"caller");
    summary.address = reader.record<PluginActionAddress>(u"address");
    summary.title = reader.string(u"title");
    summary.phase = reader.enumeration(u"phase", pluginRunPhaseFromName);
    summary.date = reader.number(u"date");
    return summary;
}

QJsonObject ActionRunSummary::toJson() const {
    return {{"id", uuidText(id)},
            {"caller", caller},
            {"address", address.toJson()},
            {"title", title},
            {"phase", pluginRunPhaseName(phase)},
            {"date", date}};
}

} // namespace vell
