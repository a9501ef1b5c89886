#pragma once

#include "VellHost/ChildProcess.h"

#include <QString>

#include <memory>
#include <sys/types.h>

namespace vell {

// Runner processes started ahead of need, at most one per runner executable, so that a press
// does not wait for the dynamic loader to bind Qt into a fresh process. A spare has loaded,
// built its engine and blocks reading its standard input: it holds nothing of any module and
// costs no processor time while it waits. It is handed exactly one request and never reused;
// taking it leaves none until the next prepare().
//
// A spare never outlives the application, even one that crashed: its standard input ends
// with the application, and a runner whose request is empty answers and exits.
//
// Every function may be called from any thread. Only take() may start a process on the
// calling thread, and only when no spare waits; prepare() starts one on a background thread.
class ModuleRunnerSpares final {
public:
    // A fresh runner with the environment every runner gets: PATH alone.
    static std::unique_ptr<ChildProcess> startFresh(const QString& executable, QString* error = nullptr);

    // The spare of this executable if one waits, or else a fresh runner: either way a process
    // that has never been handed a request. A spare that died while it waited (killed,
    // crashed) is dropped for a fresh start, so its death never becomes a run's failure.
    // Nothing when no runner can be started, with the reason in error.
    static std::unique_ptr<ChildProcess> take(const QString& executable, QString* error = nullptr);

    // Starts a spare in the background unless one waits or is being started; returns at once.
    static void prepare(const QString& executable);

    // Kills the waiting spare and forgets one being started, which is killed as it arrives.
    // Waits for nothing.
    static void discard(const QString& executable);

    // The waiting spare's process id, 0 when none waits; for diagnostics and tests.
    static pid_t waitingPid(const QString& executable);
};

} // namespace vell
