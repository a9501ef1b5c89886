#include "VellPluginSDK/Protocol/NativePluginRecord.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"

#include <QJsonDocument>

#include <algorithm>

namespace vell {

NativePluginRecord NativePluginRecord::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    NativePluginRecord record;
    record.manifest = reader.record<PluginManifest>(u"manifest");
    record.folder = reader.string(u"folder");
    record.fingerprint = reader.string(u"fingerprint");
    record.enabled = reader.boolean(u"enabled");
    record.hiddenDisplayIDs = reader.strings(u"hiddenDisplayIDs");
    std::sort(record.hiddenDisplayIDs.begin(), record.hiddenDisplayIDs.end());
    record.hiddenDisplayIDs.erase(std::unique(record.hiddenDisplayIDs.begin(), record.hiddenDisplayIDs.end()),
                                  record.hiddenDisplayIDs.end());
    record.compactActivity = reader.boolean(u"compactActivity");
    record.previousVersions = reader.optionalRecords<NativePluginVersion>(u"previousVersions");
    return record;
}

QByteArray NativePluginRecord::encoded() const {
    return JsonWriter()
        .addRecord(u"manifest", manifest)
        .add(u"folder", folder)
        .add(u"fingerprint", fingerprint)
        .add(u"enabled", enabled)
        .add(u"hiddenDisplayIDs", hiddenDisplayIDs)
        .add(u"compactActivity", compactActivity)
        .addRecordsIfPresent(u"previousVersions", previousVersions)
        .bytes();
}

QJsonObject NativePluginRecord::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

} // namespace vell
