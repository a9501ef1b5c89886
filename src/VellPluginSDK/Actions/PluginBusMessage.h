#pragma once

#include "VellPluginSDK/Actions/PluginActionAddress.h"
#include "VellPluginSDK/Actions/PluginCatalogEntry.h"
#include "VellPluginSDK/Actions/PluginRegistration.h"
#include "VellPluginSDK/Actions/PluginRunUpdate.h"
#include "VellPluginSDK/Actions/PluginValue.h"
#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QList>
#include <QUuid>

#include <optional>

namespace vell {

// The one message of the action bus. Only operation and requestID are always present; the
// operation decides which of the other fields carry meaning. It has no validate of its own:
// the router checks what each operation needs.
struct PluginBusMessage {
    // register_ is the case "register", renamed around the C++ keyword. catalog, execute,
    // event and failure are sent by the router alone.
    enum class Operation {
        register_,
        discover,
        catalog,
        invoke,
        execute,
        cancel,
        update,
        subscribe,
        unsubscribe,
        publish,
        event,
        failure,
    };

    Operation operation = Operation::register_;
    QUuid requestID;
    std::optional<PluginActionAddress> address;
    std::optional<PluginRegistration> registration;
    std::optional<QList<PluginCatalogEntry>> catalog;
    std::optional<PluginValueMap> values;
    std::optional<PluginRunUpdate> update;
    // Seconds a state value stays retained.
    std::optional<double> lifetime;
    std::optional<QString> error;
    // True on the last piece of a catalogue.
    std::optional<bool> complete;

    static QString operationName(Operation operation);
    static std::optional<Operation> operationFromName(QStringView name);

    static PluginBusMessage fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    friend bool operator==(const PluginBusMessage&, const PluginBusMessage&) = default;
};

// Upper case, as every identity is written on the bus and in files.
QString uuidText(const QUuid& id);

} // namespace vell
