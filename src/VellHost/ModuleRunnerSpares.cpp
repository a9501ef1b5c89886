#include "VellHost/ModuleRunnerSpares.h"

#include <QThreadPool>

#include <map>
#include <mutex>

namespace vell {

namespace {

struct Slot {
    std::unique_ptr<ChildProcess> spare;
    bool starting = false;
    // Moves on with every discard(), so that a start under way at the time is not kept.
    quint64 generation = 0;
};

// Process-wide and never destroyed: runs of any owner on any thread share one spare per
// executable, and a spare left at exit ends with the application's end of its input.
struct Registry {
    std::mutex lock;
    std::map<QString, Slot> byExecutable;
};

Registry& registry() {
    static Registry* shared = new Registry;
    return *shared;
}

} // namespace

std::unique_ptr<ChildProcess> ModuleRunnerSpares::startFresh(const QString& executable, QString* error) {
    return ChildProcess::start({executable, {}, {QStringLiteral("PATH=/usr/bin:/bin")}}, error);
}

std::unique_ptr<ChildProcess> ModuleRunnerSpares::take(const QString& executable, QString* error) {
    std::unique_ptr<ChildProcess> spare;
    {
        std::lock_guard guard(registry().lock);
        const auto found = registry().byExecutable.find(executable);
        if (found != registry().byExecutable.end())
            spare = std::move(found->second.spare);
    }
    if (spare && spare->running())
        return spare;
    // Dropping a dead one reaps it off this thread.
    spare.reset();
    return startFresh(executable, error);
}

void ModuleRunnerSpares::prepare(const QString& executable) {
    std::unique_ptr<ChildProcess> dead;
    quint64 generation = 0;
    {
        std::lock_guard guard(registry().lock);
        Slot& slot = registry().byExecutable[executable];
        if (slot.starting || (slot.spare && slot.spare->running()))
            return;
        dead = std::move(slot.spare);
        slot.starting = true;
        generation = slot.generation;
    }
    QThreadPool::globalInstance()->start([executable, generation] {
        std::unique_ptr<ChildProcess> started = startFresh(executable);
        std::lock_guard guard(registry().lock);
        Slot& slot = registry().byExecutable[executable];
        if (slot.generation != generation)
            return; // discarded meanwhile: the new process is killed as it goes
        slot.starting = false;
        slot.spare = std::move(started);
    });
}

void ModuleRunnerSpares::discard(const QString& executable) {
    std::unique_ptr<ChildProcess> spare;
    std::lock_guard guard(registry().lock);
    const auto found = registry().byExecutable.find(executable);
    if (found == registry().byExecutable.end())
        return;
    spare = std::move(found->second.spare);
    found->second.starting = false;
    ++found->second.generation;
}

pid_t ModuleRunnerSpares::waitingPid(const QString& executable) {
    std::lock_guard guard(registry().lock);
    const auto found = registry().byExecutable.find(executable);
    if (found == registry().byExecutable.end() || !found->second.spare || !found->second.spare->running())
        return 0;
    return found->second.spare->pid();
}

} // namespace vell
