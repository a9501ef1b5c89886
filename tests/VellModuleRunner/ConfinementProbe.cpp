// Attempts everything a module must never do, once before and once after the runner's own
// confinement, and reports each attempt as a line "phase name result". The test reads the
// "before" lines to know the attempts can succeed at all on this machine. The mode "threaded"
// raises the walls beside a second thread instead.

#include "VellModuleRunner/ModuleConfinement.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <future>
#include <netinet/in.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

void report(const char* phase, const char* name, bool succeeded, int error) {
    char line[160];
    const int length = std::snprintf(line, sizeof line, "%s %s %s\n", phase, name,
                                     succeeded ? "allowed" : (error == EPERM ? "denied" : "failed"));
    (void)!write(STDOUT_FILENO, line, static_cast<size_t>(length));
}

// Reports whether a descriptor came back, and closes it.
void reportOpened(const char* phase, const char* name, int fd) {
    report(phase, name, fd >= 0, errno);
    if (fd >= 0)
        close(fd);
}

// Reports whether a mapping came back, and unmaps it.
void reportMapped(const char* phase, const char* name, size_t size, int protection) {
    void* mapped = mmap(nullptr, size, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    report(phase, name, mapped != MAP_FAILED, errno);
    if (mapped != MAP_FAILED)
        munmap(mapped, size);
}

void attemptAll(const char* phase, int heldFile, const char* scratchDir) {
    reportOpened(phase, "open-read", open("/etc/passwd", O_RDONLY | O_CLOEXEC));
    char path[512];
    std::snprintf(path, sizeof path, "%s/%s-created", scratchDir, phase);
    reportOpened(phase, "open-create", open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    char byte;
    report(phase, "read-held-file", read(heldFile, &byte, 1) == 1, errno);
    reportOpened(phase, "socket-inet", socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    reportOpened(phase, "socket-unix", socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));

    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    report(phase, "fork", child > 0, errno);
    if (child > 0)
        waitpid(child, nullptr, 0);

    report(phase, "signal-parent", kill(getppid(), 0) == 0, errno);

    reportMapped(phase, "mmap-exec", 4096, PROT_READ | PROT_WRITE | PROT_EXEC);
    // 600 MiB is beyond the address-space limit, not beyond the machine.
    reportMapped(phase, "reserve-600MiB", 600ul << 20, PROT_READ | PROT_WRITE);
}

// A thread that exists before the early filter goes up must be bound by it as well, and the
// full confinement must refuse to go up at all while it lives.
int raiseBesideASecondThread() {
    std::promise<void> filtered;
    std::promise<void> done;
    std::thread other([&filtered, &done] {
        filtered.get_future().wait();
        reportMapped("threaded", "mmap-exec-other-thread", 4096, PROT_READ | PROT_WRITE | PROT_EXEC);
        done.get_future().wait();
    });
    const QString early = vell::ModuleConfinement::forbidExecutableMemory();
    report("threaded", "early-filter", early.isEmpty(), 0);
    filtered.set_value();
    const vell::ModuleConfinement::Result result = vell::ModuleConfinement::apply();
    report("threaded", "confinement", result.ok(), EPERM);
    if (!result.ok())
        std::fprintf(stderr, "%s\n", qPrintable(result.failure));
    done.set_value();
    other.join();
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3)
        return 2;
    const char* mode = argv[1];
    const char* scratchDir = argv[2];
    const int heldFile = open("/etc/hostname", O_RDONLY | O_CLOEXEC);

    if (std::strcmp(mode, "threaded") == 0)
        return raiseBesideASecondThread();

    attemptAll("before", heldFile, scratchDir);
    char* const arguments[] = {const_cast<char*>("/bin/true"), nullptr};
    const pid_t execChild = fork();
    if (execChild == 0) {
        execv("/bin/true", arguments);
        _exit(127);
    }
    int execStatus = 0;
    waitpid(execChild, &execStatus, 0);
    report("before", "exec", WIFEXITED(execStatus) && WEXITSTATUS(execStatus) == 0, 0);
    lseek(heldFile, 0, SEEK_SET);
    const vell::ModuleConfinement::Result result = vell::ModuleConfinement::apply();
    if (!result.ok()) {
        std::fprintf(stderr, "%s\n", qPrintable(result.failure));
        return 3;
    }
    report("after", "landlock", result.landlocked, 0);
    attemptAll("after", heldFile, scratchDir);

    // Last, since an exec that got through would replace the probe and its report would
    // be missing.
    execv("/bin/true", arguments);
    report("after", "exec", false, errno);
    return 0;
}
