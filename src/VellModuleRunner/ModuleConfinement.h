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

    // Seconds of processor time left to the script once the walls are up, whatever the
    // runner spent before. A second more than the host's three-second deadline, so that the
    // host's clock always ends a runaway script first and says why; the limit only stands in
    // for a host that never stops it.
    static constexpr unsigned long cpuSeconds = 4;
    // Address space: the engine's reservations plus room for a generous state, no more.
    static constexpr unsigned long addressSpaceBytes = 512ul * 1024 * 1024;
    // An answer larger than the host reads is worthless, so no file may grow beyond it.
    static constexpr unsigned long fileSizeBytes = 65536;

    // Irreversible. Order matters: landlock needs a descriptor that the open-files limit
    // forbids, and both need system calls that the filter, installed last, no longer allows.
    // Landlock and the filter bind per thread, so the walls go up only around the one
    // thread of a process that has never had another.
    static Result apply();

    // Irreversible, and first thing in the runner, before any engine exists: no memory of
    // the process can ever become executable. The engine finds out when it is built and
    // never compiles scripts or regular expressions to machine code at all, instead of
    // trying once the filter is up and falling back. Empty on success, else the failure.
    static QString forbidExecutableMemory();

    // The threads of the calling process, from /proc; 0 when it cannot be read.
    static int threadCount();

private:
    static QString requireSingleThread();
    static QString restrictLimits();
    static QString restrictFileSystem(bool* landlocked);
    static QString installSystemCallFilter();
};

} // namespace vell
