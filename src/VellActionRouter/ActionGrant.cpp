#include "VellActionRouter/ActionGrant.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"

#include <QJsonDocument>

namespace vell {

QString ActionGrant::id() const {
    return caller + u':' + address.key() + (channel ? QStringLiteral(":channel") : QStringLiteral(":action"));
}

ActionGrant ActionGrant::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    ActionGrant grant;
    grant.caller = reader.string(u"caller");
    grant.callerFingerprint = reader.string(u"callerFingerprint");
    grant.address = reader.record<PluginActionAddress>(u"address");
    grant.providerFingerprint = reader.string(u"providerFingerprint");
    grant.channel = reader.boolean(u"channel");
    grant.definition = reader.base64(u"definition");
    return grant;
}

QByteArray ActionGrant::encoded() const {
    return JsonWriter()
        .add(u"caller", caller)
        .add(u"callerFingerprint", callerFingerprint)
        .addRecord(u"address", address)
        .add(u"providerFingerprint", providerFingerprint)
        .add(u"channel", channel)
        .add(u"definition", QString::fromLatin1(definition.toBase64()))
        .bytes();
}

QJsonObject ActionGrant::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

} // namespace vell
