#include "VellPluginSDK/Protocol/NativePluginVersion.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"

#include <QJsonDocument>

namespace vell {

NativePluginVersion NativePluginVersion::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.record<PluginManifest>(u"manifest"), reader.string(u"folder"),
            reader.string(u"fingerprint"), reader.number(u"savedAt")};
}

QByteArray NativePluginVersion::encoded() const {
    return JsonWriter()
        .addRecord(u"manifest", manifest)
        .add(u"folder", folder)
        .add(u"fingerprint", fingerprint)
        .add(u"savedAt", savedAt)
        .bytes();
}

QJsonObject NativePluginVersion::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

} // namespace vell
