#pragma once
// Placeholder until the bundle branch lands.
#include "VellPluginSDK/Protocol/PluginManifest.h"
namespace vell {
struct NativePluginInspection { PluginManifest manifest; QString fingerprint; QString executable; QString root; };
class NativePluginBundle final {
public:
    static NativePluginInspection inspect(const QString& path);
};
}
