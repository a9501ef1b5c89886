#include "VellPluginSDK/Protocol/PluginStorage.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonFile.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QStandardPaths>

namespace vell::PluginStorage {

void checkIdentity(const QString& id) {
    if (!Identifiers::isID(id) || TextMetrics::characterCount(id) > maximumIDCharacters)
        throw ModuleProblem(QStringLiteral("Invalid plugin storage identity."));
}

QString directory(const QString& id) {
    // The id pattern has no slash and no leading dot, so the folder can't lie outside its parent.
    checkIdentity(id);
    const QString path = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                         QStringLiteral("/OstaVellPlugins/") + id;
    const FileResult made = JsonFile::makeFolder(path, JsonFile::privateFolder);
    if (!made)
        throw ModuleProblem(made.error());
    return path;
}

} // namespace vell::PluginStorage
