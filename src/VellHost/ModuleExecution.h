#pragma once

#include "VellHost/ModuleRunResult.h"
#include "VellPluginSDK/Modules/ModuleRequest.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <mutex>

namespace vell {

class ChildProcess;

// One run of a module's script: a fresh VellModuleRunner process that gets the request on
// its standard input and answers on its standard output, within size and time limits. The
// process boundary is the module's sandbox as the host sees it; nothing of a run outlives it,
// and nothing is retried. Fresh means never handed another request: the process may be the
// spare started ahead of need (ModuleRunnerSpares), and its time counts from the hand-over.
//
// Created by make_shared, run once, and dropped by its owner. cancel() may come from any
// thread at any time.
class ModuleExecution final : public std::enable_shared_from_this<ModuleExecution> {
public:
    static constexpr qsizetype maximumRequestBytes = 458752;
    static constexpr qsizetype maximumOutputBytes = 65536;
    static constexpr qsizetype readSize = 8192;
    static constexpr double defaultTimeout = 3.0;

    enum class Launch {
        Fresh, // a runner started for this run alone
        Spare, // the runner's spare if one waits, else a fresh one
    };

    explicit ModuleExecution(QString executable, double timeout = defaultTimeout,
                             Launch launch = Launch::Fresh);
    ~ModuleExecution();
    Q_DISABLE_COPY_MOVE(ModuleExecution)

    // The runner installed beside the running executable: <dir>/../libexec/ostavell/.
    static QString defaultRunnerPath();

    // Performs the blocking run on a background thread. done is called once, on the main
    // thread, unless context has been destroyed by then.
    void run(const ModuleRequest& request, QObject* context,
             std::function<void(const ModuleRunResult&)> done);

    // The run itself, on the calling thread; for command-line tools and for run().
    ModuleRunResult runBlocking(const ModuleRequest& request);

    // Marks the run cancelled and kills its process, if one was launched.
    void cancel();

private:
    const QString m_executable;
    const double m_timeout;
    const Launch m_launch;

    // Guards the two fields below. Nothing blocking happens under it except the launch, so
    // that cancel() either finds no process or a launched one.
    std::mutex m_lock;
    std::shared_ptr<ChildProcess> m_process;
    bool m_cancelled = false;
};

} // namespace vell
