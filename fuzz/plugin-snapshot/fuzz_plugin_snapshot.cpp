// Any bytes as the payload of a "snapshot" message: decoding and validation either refuse them
// with a ModuleProblem or yield a snapshot that survives its own encoding unchanged, so that what
// the host validated is exactly what it draws and what a plugin author's SDK writes.

#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Presentation/PluginSnapshot.h"

#include <QJsonDocument>

#include <cstdint>
#include <cstdlib>

using namespace vell;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QJsonDocument document = QJsonDocument::fromJson(bytes);
    PluginSnapshot snapshot;
    try {
        snapshot = PluginSnapshot::fromJson(document.object());
        snapshot.validate();
    } catch (const ModuleProblem&) {
        return 0;
    }

    if (!(PluginSnapshot::fromJson(snapshot.toJson()) == snapshot))
        std::abort();
    // Every press the host would pass on names an action that is shown and enabled.
    for (const PluginAction& action : snapshot.displayActions()) {
        const std::optional<PluginAction> pressed = snapshot.enabledDisplayAction(action.id);
        if (pressed && (!pressed->enabled || pressed->id != action.id))
            std::abort();
    }
    return 0;
}
