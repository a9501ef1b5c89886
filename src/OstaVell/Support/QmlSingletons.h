#pragma once

#include "OstaVell/Support/SettingsStore.h"

#include <QtQml/qqmlregistration.h>

namespace vell {

// The settings store lives in a library without QML; the views reach its shared instance
// through this declaration.
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

} // namespace vell
