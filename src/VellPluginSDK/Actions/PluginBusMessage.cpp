#include "VellPluginSDK/Actions/PluginBusMessage.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <array>

namespace vell {

namespace {

constexpr std::array<QStringView, 12> operationNames{
    u"register", u"discover",  u"catalog",     u"invoke",  u"execute", u"cancel",
    u"update",   u"subscribe", u"unsubscribe", u"publish", u"event",   u"failure",
};

} // namespace

QString uuidText(const QUuid& id) {
    return id.toString(QUuid::WithoutBraces).toUpper();
}

QString PluginBusMessage::operationName(Operation operation) {
    return operationNames[static_cast<std::size_t>(operation)].toString();
}

std::optional<PluginBusMessage::Operation> PluginBusMessage::operationFromName(QStringView name) {
    for (std::size_t i = 0; i < operationNames.size(); ++i) {
        if (operationNames[i] == name)
            return static_cast<Operation>(i);
    }
    return std::nullopt;
}

PluginBusMessage PluginBusMessage::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginBusMessage message;
    message.operation = reader.enumeration<Operation>(u"operation", operationNames);
    message.requestID = reader.uuid(u"requestID");
    message.address = reader.optionalRecord<PluginActionAddress>(u"address");
    message.registration = reader.optionalRecord<PluginRegistration>(u"registration");
    message.catalog = reader.optionalRecords<PluginCatalogEntry>(u"catalog");
    message.values = reader.optionalValues(u"values");
    message.update = reader.optionalRecord<PluginRunUpdate>(u"update");
    message.lifetime = reader.optionalNumber(u"lifetime");
    message.error = reader.optionalString(u"error");
    message.complete = reader.optionalBoolean(u"complete");
    return message;
}

QByteArray PluginBusMessage::encoded() const {
    JsonWriter writer;
    writer.add(u"operation", operationName(operation)).add(u"requestID", uuidText(requestID));
    writer.addRecordIfPresent(u"address", address);
    writer.addRecordIfPresent(u"registration", registration);
    writer.addRecordsIfPresent(u"catalog", catalog);
    if (values)
        writer.add(u"values", PluginValue::mapToJson(*values));
    writer.addRecordIfPresent(u"update", update);
    writer.addIfPresent(u"lifetime", lifetime);
    writer.addIfPresent(u"error", error);
    writer.addIfPresent(u"complete", complete);
    return writer.bytes();
}

QJsonObject PluginBusMessage::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

} // namespace vell
