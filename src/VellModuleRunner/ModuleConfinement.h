#pragma once

#include <QString>

namespace vell {

// The walls around a module's script, raised inside the runner once the engine is built and
// the request is read, so that nothing the script does can reach beyond its own memory and
// the standard descriptors. Every layer stands alone: a hole in one is covered by the others.
class ModuleConfinement final {
public:
    struct Result {
        // Empty when every required layer is up; otherwise the layer that failed.
        QString failure;
        // Landlock exists only on kernels that have it; its absence is not a failure.
        bool landlocked = false;

        bool ok() const { return failure.isEmpty(); }
    };

    // Seconds of processor time for the whole runner, start-up included.
    static constexpr unsigned long cpuSeconds = 3;
    // Address space: the engine's reservations plus room for a generous state, no more.
    static constexpr unsigned long addressSpaceBytes = 512ul * 1024 * 1024;
    // An answer larger than the host reads is worthless, so no file may grow beyond it.
    static constexpr unsigned long fileSizeBytes = 65536;

    // Irreversible. Order matters: landlock needs a descriptor that the open-files limit
    // forbids, and both need system calls that the filter, installed last, no longer allows.
    static Result apply();

private:
    static QString restrictLimits();
    static QString restrictFileSystem(bool* landlocked);
    static QString installSystemCallFilter();
};

} // namespace vell
