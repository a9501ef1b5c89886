#include "VellActionRouter/ActionRunSummary.h"

#include "VellPluginSDK/Actions/PluginBusMessage.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"

#include <QJsonDocument>

namespace vell {

ActionRunSummary ActionRunSummary::fromJson(const JsonNode& json) {
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

QByteArray ActionRunSummary::encoded() const {
    return JsonWriter()
        .add(u"id", uuidText(id))
        .add(u"caller", caller)
        .addRecord(u"address", address)
        .add(u"title", title)
        .add(u"phase", pluginRunPhaseName(phase))
        .add(u"date", date)
        .bytes();
}

QJsonObject ActionRunSummary::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

} // namespace vell
