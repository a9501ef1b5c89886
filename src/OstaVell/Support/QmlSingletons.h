#pragma once

#include "OstaVell/Modules/ModuleStore.h"
#include "OstaVell/Support/SettingsStore.h"

#include <QtQml/qqmlregistration.h>

namespace vell {

// The stores live in libraries without QML; the views reach their shared instances through
// these declarations.
struct SettingsStoreForeign {
    Q_GADGET
    QML_FOREIGN(vell::SettingsStore)
    QML_NAMED_ELEMENT(SettingsStore)
    QML_SINGLETON

public:
    static SettingsStore* create(QQmlEngine* engine, QJSEngine* scriptEngine) {
        return SettingsStore::create(engine, scriptEngine);
    }
};

struct ModuleStoreForeign {
    Q_GADGET
    QML_FOREIGN(vell::ModuleStore)
    QML_NAMED_ELEMENT(ModuleStore)
    QML_SINGLETON

public:
    static ModuleStore* create(QQmlEngine* engine, QJSEngine* scriptEngine)
    {
        return ModuleStore::create(engine, scriptEngine);
    }
};

} // namespace vell
