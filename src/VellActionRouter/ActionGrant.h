#pragma once

#include "VellPluginSDK/Actions/PluginActionAddress.h"
#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace vell {

// A person's consent that one caller may use one action or channel of one provider. It holds
// only while both fingerprints and the definition are exactly those it was given for; it
// lapses silently otherwise, and comes back if they return.
struct ActionGrant {
    QString caller;
    QString callerFingerprint;
    PluginActionAddress address;
    QString providerFingerprint;
    // True for a channel, false for an action.
    bool channel = false;
    // The canonical encoding of the catalogue entry that was allowed.
    QByteArray definition;

    // caller:plugin/name:action or :channel; at most one grant exists per id.
    QString id() const;

    static ActionGrant fromJson(const JsonNode& json);
    // Declared field order.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    friend bool operator==(const ActionGrant&, const ActionGrant&) = default;
};

} // namespace vell
