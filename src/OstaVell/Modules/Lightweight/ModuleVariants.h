#pragma once

#include "VellPluginSDK/Modules/InstalledModule.h"
#include "VellPluginSDK/Modules/ModulePackage.h"

#include <QVariantMap>

// Modules as the views read them: plain maps and lists, built fresh from the records, so that
// QML never holds a record it could mistake for the store's own.
namespace vell::ModuleVariants {

QVariantMap package(const ModulePackage& package);
QVariantMap installed(const InstalledModule& module);
QVariantMap state(const ModuleState& state);

} // namespace vell::ModuleVariants
