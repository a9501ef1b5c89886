#include "VellActionRouter/ActionGrant.h"

#include "VellPluginSDK/Json/JsonReader.h"

namespace vell {

QString ActionGrant::id() const {
    return caller + u':' + address.key() + (channel ? QStringLiteral(":channel") : QStringLiteral(":action"));
}

ActionGrant ActionGrant::fromJson(const QJsonValue& json) {
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

QJsonObject ActionGrant::toJson() const {
    return {{"caller", caller},
            {"callerFingerprint", callerFingerprint},
            {"address", address.toJson()},
            {"providerFingerprint", providerFingerprint},
            {"channel", channel},
            {"definition", QString::fromLatin1(definition.toBase64())}};
}

} // namespace vell
