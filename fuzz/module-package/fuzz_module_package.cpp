// Any bytes as a ".ostavellmodule" file: decode either refuses them with a ModuleProblem or
// yields a package that passes validate, survives its own encoding unchanged, and renders
// every template of its views without fault.

#include "VellPluginSDK/Modules/ModulePackage.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>

#include <cstdint>
#include <cstdlib>

using namespace vell;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    ModulePackage package;
    try {
        package = ModulePackage::decode(bytes);
    } catch (const ModuleProblem&) {
        // Decoding without validating must never fail any other way either.
        try {
            ModulePackage::fromJson(QJsonDocument::fromJson(bytes).object()).validate();
        } catch (const ModuleProblem&) {
        }
        return 0;
    }

    package.validate();
    const ModulePackage again = ModulePackage::decode(package.encoded());
    if (!(again == package))
        std::abort();

    const ModuleState configuration = package.defaultSettings();
    for (const QList<ModuleComponent>* view : {&package.card, &package.page}) {
        for (const ModuleComponent& component : *view) {
            const QString shown = ModulePackage::text(component.text, package.initialState, configuration);
            if (TextMetrics::characterCount(shown) > 2048)
                std::abort();
            const double value = component.progress(package.initialState);
            if (!(value >= 0 && value <= 100))
                std::abort();
        }
    }
    if (package.activity)
        ModulePackage::text(*package.activity, package.initialState, configuration);
    return 0;
}
