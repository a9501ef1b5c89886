#include "VellPluginSDK/Protocol/PluginMessage.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"

namespace vell {

PluginFrame PluginFrame::fromJson(const JsonNode& json) {
    return {JsonReader(json).base64(u"jpeg")};
}

QByteArray PluginFrame::encoded() const {
    return JsonWriter().add(u"jpeg", QString::fromLatin1(jpeg.toBase64())).bytes();
}

PluginMessage PluginMessage::make(QString type, QString pluginID, const QUuid& session, quint64 sequence) {
    PluginMessage message;
    message.type = std::move(type);
    message.pluginID = std::move(pluginID);
    message.session = session;
    message.sequence = sequence;
    return message;
}

PluginMessage PluginMessage::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginMessage message;
    message.apiVersion = reader.integer(u"apiVersion");
    message.type = reader.string(u"type");
    message.pluginID = reader.string(u"pluginID");
    message.session = reader.uuid(u"session");
    message.sequence = reader.unsignedInteger(u"sequence");
    message.action = reader.optionalString(u"action");
    message.snapshot = reader.optionalRecord<PluginSnapshot>(u"snapshot");
    message.features = reader.optionalStrings(u"features");
    message.visible = reader.optionalBoolean(u"visible");
    message.frame = reader.optionalRecord<PluginFrame>(u"frame");
    message.bus = reader.optionalRecord<PluginBusMessage>(u"bus");
    message.agenda = reader.optionalRecord<PluginAgenda>(u"agenda");
    message.agendaDate = reader.optionalNumber(u"agendaDate");
    message.viewEvent = reader.optionalRecord<PluginViewEvent>(u"viewEvent");
    message.volumeCommand = reader.optionalRecord<PluginVolumeCommand>(u"volumeCommand");
    message.volumeResult = reader.optionalRecord<PluginVolumeResult>(u"volumeResult");
    message.viewResource = reader.optionalRecord<PluginViewResourceRequest>(u"viewResource");
    message.viewResourceResult = reader.optionalRecord<PluginViewResourceResult>(u"viewResourceResult");
    message.viewResourceCancel = reader.optionalUuid(u"viewResourceCancel");
    message.caption = reader.optionalRecord<PluginTransientCaption>(u"caption");
    return message;
}

PluginMessage PluginMessage::decode(const QByteArray& json) {
    return fromJson(JsonReader::parse(json));
}

QByteArray PluginMessage::json() const {
    JsonWriter writer;
    writer.add(u"apiVersion", apiVersion)
        .add(u"type", type)
        .add(u"pluginID", pluginID)
        .add(u"session", uuidText(session))
        .add(u"sequence", static_cast<qint64>(sequence))
        .addIfPresent(u"action", action)
        .addRecordIfPresent(u"snapshot", snapshot)
        .addIfPresent(u"features", features)
        .addIfPresent(u"visible", visible)
        .addRecordIfPresent(u"frame", frame)
        .addRecordIfPresent(u"bus", bus)
        .addRecordIfPresent(u"agenda", agenda)
        .addIfPresent(u"agendaDate", agendaDate)
        .addRecordIfPresent(u"viewEvent", viewEvent)
        .addRecordIfPresent(u"volumeCommand", volumeCommand)
        .addRecordIfPresent(u"volumeResult", volumeResult)
        .addRecordIfPresent(u"viewResource", viewResource)
        .addRecordIfPresent(u"viewResourceResult", viewResourceResult);
    if (viewResourceCancel)
        writer.add(u"viewResourceCancel", uuidText(*viewResourceCancel));
    writer.addRecordIfPresent(u"caption", caption);
    return writer.bytes();
}

QByteArray PluginMessage::encoded() const {
    QByteArray line = json();
    if (line.size() > maximumEncodedBytes)
        throw ModuleProblem(QStringLiteral("Plugin message exceeds its limit."));
    line.append('\n');
    return line;
}

} // namespace vell
