#include "VellPluginSDK/Modules/InstalledModule.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"

#include <QJsonDocument>

#include <algorithm>

namespace vell {

InstalledModule::InstalledModule(ModulePackage package)
    : package(std::move(package))
    , state(this->package.initialState)
    , configuration(this->package.defaultSettings()) {}

InstalledModule InstalledModule::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    InstalledModule installed;
    installed.package = reader.record<ModulePackage>(u"package");
    installed.state = reader.stringMap(u"state");
    installed.configuration = reader.stringMap(u"configuration");
    installed.enabled = reader.boolean(u"enabled");
    const QStringList hidden = reader.strings(u"hiddenDisplayIDs");
    installed.hiddenDisplayIDs = QSet<QString>(hidden.begin(), hidden.end());
    installed.compactActivity = reader.boolean(u"compactActivity");
    return installed;
}

QByteArray InstalledModule::encoded() const {
    QStringList hidden(hiddenDisplayIDs.begin(), hiddenDisplayIDs.end());
    std::sort(hidden.begin(), hidden.end());
    return JsonWriter()
        .addRecord(u"package", package)
        .add(u"state", state)
        .add(u"configuration", configuration)
        .add(u"enabled", enabled)
        .add(u"hiddenDisplayIDs", hidden)
        .add(u"compactActivity", compactActivity)
        .bytes();
}

QJsonObject InstalledModule::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

bool InstalledModule::isVisible(const QString& displayID) const {
    return enabled && !hiddenDisplayIDs.contains(displayID);
}

} // namespace vell
