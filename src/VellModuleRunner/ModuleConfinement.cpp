#include "VellModuleRunner/ModuleConfinement.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/landlock.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vell {

namespace {

QString systemFailure(const char* step, int error) {
    return QStringLiteral("%1: %2").arg(QLatin1String(step), QString::fromLocal8Bit(std::strerror(error)));
}

// Rights newer than the installed kernel headers, by landlock ABI version.
constexpr std::uint64_t fsRightsABI1 = (1ull << 13) - 1;
constexpr std::uint64_t fsRefer = 1ull << 13;
constexpr std::uint64_t fsTruncate = 1ull << 14;
constexpr std::uint64_t fsIoctlDev = 1ull << 15;
constexpr std::uint64_t netBindTCP = 1ull << 0;
constexpr std::uint64_t netConnectTCP = 1ull << 1;
constexpr std::uint64_t scopeAbstractUnixSocket = 1ull << 0;
constexpr std::uint64_t scopeSignal = 1ull << 1;

// The kernel takes a prefix of this structure sized for the ABI it speaks.
struct RulesetAttributes {
    std::uint64_t handledAccessFs = 0;
    std::uint64_t handledAccessNet = 0;
    std::uint64_t scoped = 0;
};

// Loads the filter unless building it already failed, and frees it either way.
QString loadFilter(scmp_filter_ctx filter, int rc) {
    if (rc == 0)
        rc = seccomp_load(filter);
    seccomp_release(filter);
    if (rc != 0)
        return systemFailure("seccomp", -rc);
    return {};
}

} // namespace

ModuleConfinement::Result ModuleConfinement::apply() {
    Result result;
    // Without it the kernel refuses an unprivileged filter, and an exec (were one possible)
    // could regain privileges.
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        result.failure = systemFailure("no_new_privs", errno);
        return result;
    }
    result.failure = requireSingleThread();
    if (!result.ok())
        return result;
    result.failure = restrictFileSystem(&result.landlocked);
    if (!result.ok())
        return result;
    result.failure = restrictLimits();
    if (!result.ok())
        return result;
    result.failure = installSystemCallFilter();
    return result;
}

QString ModuleConfinement::forbidExecutableMemory() {
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        return systemFailure("no_new_privs", errno);
    // Everything else stays open until apply(): the runner still has to load and read.
    scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
    if (!filter)
        return QStringLiteral("seccomp: cannot create filter");
    int rc = seccomp_attr_set(filter, SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_KILL_PROCESS);
    if (rc == 0)
        rc = seccomp_attr_set(filter, SCMP_FLTATR_CTL_TSYNC, 1);
    for (const int call : {SCMP_SYS(mmap), SCMP_SYS(mprotect), SCMP_SYS(pkey_mprotect)}) {
        if (rc == 0)
            rc = seccomp_rule_add(filter, SCMP_ACT_ERRNO(EPERM), call, 1,
                                  SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_EXEC, PROT_EXEC));
    }
    return loadFilter(filter, rc);
}

int ModuleConfinement::threadCount() {
    const int fd = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return 0;
    char text[4096];
    qsizetype length = 0;
    for (;;) {
        const ssize_t count = read(fd, text + length, sizeof text - 1 - length);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        length += count;
    }
    close(fd);
    text[length] = '\0';
    const char* line = std::strstr(text, "\nThreads:");
    return line ? std::atoi(line + std::strlen("\nThreads:")) : 0;
}

QString ModuleConfinement::requireSingleThread() {
    // Landlock restricts the calling thread alone, so a second thread would run unwalled.
    // A process with one thread cannot gain another without this thread's doing, so the
    // count cannot go stale before the walls are up.
    const int threads = threadCount();
    if (threads != 1)
        return QStringLiteral("threads: %1 running").arg(threads);
    return {};
}

QString ModuleConfinement::restrictLimits() {
    struct Limit {
        int resource;
        rlimit value;
        const char* name;
    };
    // The processor limit counts the whole process, so the time already spent (loading, and
    // a runner started ahead of need) is added to the script's share, in whole seconds
    // rounded up.
    rusage usage{};
    if (getrusage(RUSAGE_SELF, &usage) != 0)
        return systemFailure("cpu usage", errno);
    const long long spentMicroseconds =
        (static_cast<long long>(usage.ru_utime.tv_sec) + usage.ru_stime.tv_sec) * 1000000 +
        usage.ru_utime.tv_usec + usage.ru_stime.tv_usec;
    const rlim_t cpuLimit = static_cast<rlim_t>((spentMicroseconds + 999999) / 1000000) + cpuSeconds;
    // A soft processor limit sends SIGXCPU, which ends the runner; the hard one a second
    // later is SIGKILL for a runner that somehow survived it. No core file: a killed runner
    // leaves nothing behind, and its memory held a user's state.
    const Limit limits[] = {
        {RLIMIT_CPU, {cpuLimit, cpuLimit + 1}, "cpu limit"},
        {RLIMIT_AS, {addressSpaceBytes, addressSpaceBytes}, "address space limit"},
        {RLIMIT_NOFILE, {0, 0}, "open files limit"},
        {RLIMIT_FSIZE, {fileSizeBytes, fileSizeBytes}, "file size limit"},
        {RLIMIT_CORE, {0, 0}, "core limit"},
    };
    for (const Limit& limit : limits) {
        if (setrlimit(limit.resource, &limit.value) != 0)
            return systemFailure(limit.name, errno);
    }
    return {};
}

QString ModuleConfinement::restrictFileSystem(bool* landlocked) {
    *landlocked = false;
    const long abi = syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (abi < 1) {
        // Kernels built without landlock, or with it disabled at boot: the filter still
        // refuses every call that could name a file.
        if (errno == ENOSYS || errno == EOPNOTSUPP)
            return {};
        return systemFailure("landlock", errno);
    }
    // Handling every right the kernel knows, with no rule granting any, forbids them all.
    RulesetAttributes attributes;
    attributes.handledAccessFs = fsRightsABI1;
    std::size_t size = sizeof(std::uint64_t);
    if (abi >= 2)
        attributes.handledAccessFs |= fsRefer;
    if (abi >= 3)
        attributes.handledAccessFs |= fsTruncate;
    if (abi >= 4) {
        attributes.handledAccessNet = netBindTCP | netConnectTCP;
        size = 2 * sizeof(std::uint64_t);
    }
    if (abi >= 5)
        attributes.handledAccessFs |= fsIoctlDev;
    if (abi >= 6) {
        attributes.scoped = scopeAbstractUnixSocket | scopeSignal;
        size = sizeof(RulesetAttributes);
    }
    const long ruleset = syscall(SYS_landlock_create_ruleset, &attributes, size, 0);
    if (ruleset < 0)
        return systemFailure("landlock ruleset", errno);
    const long restricted = syscall(SYS_landlock_restrict_self, ruleset, 0);
    const int restrictError = errno;
    close(static_cast<int>(ruleset));
    if (restricted != 0)
        return systemFailure("landlock restrict", restrictError);
    *landlocked = true;
    return {};
}

QString ModuleConfinement::installSystemCallFilter() {
    // Anything not listed fails with EPERM rather than killing the runner: the engine then
    // reports a failed allocation or a missing facility as a script error, which tells the
    // author more than a dead process would.
    scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ERRNO(EPERM));
    if (!filter)
        return QStringLiteral("seccomp: cannot create filter");
    int rc = seccomp_attr_set(filter, SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_KILL_PROCESS);
    // Every thread or none: the kernel refuses the whole filter if one cannot take it.
    if (rc == 0)
        rc = seccomp_attr_set(filter, SCMP_FLTATR_CTL_TSYNC, 1);

    const auto allow = [&](int call) {
        if (rc == 0)
            rc = seccomp_rule_add(filter, SCMP_ACT_ALLOW, call, 0);
    };
    const auto allowIf = [&](int call, scmp_arg_cmp condition) {
        if (rc == 0)
            rc = seccomp_rule_add(filter, SCMP_ACT_ALLOW, call, 1, condition);
    };

    // The request is already in memory; standard input stays readable only so that a
    // runner reading to its end never sees a surprise.
    allowIf(SCMP_SYS(read), SCMP_A0(SCMP_CMP_EQ, STDIN_FILENO));
    allowIf(SCMP_SYS(write), SCMP_A0(SCMP_CMP_EQ, STDOUT_FILENO));
    allowIf(SCMP_SYS(write), SCMP_A0(SCMP_CMP_EQ, STDERR_FILENO));

    // The engine's heap and stacks grow and shrink while the script runs. No new memory may
    // be executable: the engine runs interpreted, so only an exploit would ask.
    allowIf(SCMP_SYS(mmap), SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_EXEC, 0));
    allowIf(SCMP_SYS(mprotect), SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_EXEC, 0));
    allow(SCMP_SYS(munmap));
    allow(SCMP_SYS(mremap));
    allow(SCMP_SYS(madvise));
    allow(SCMP_SYS(brk));

    // Qt's locks fall back to futexes even in a single thread.
    allow(SCMP_SYS(futex));

    // Date and performance clocks, where the vDSO falls back to the kernel.
    allow(SCMP_SYS(clock_gettime));
    allow(SCMP_SYS(gettimeofday));

    // No rt_sigreturn: the runner installs no signal handler, and that call is the lever of
    // sigreturn-oriented exploits.
    allow(SCMP_SYS(exit));
    allow(SCMP_SYS(exit_group));

    return loadFilter(filter, rc);
}

} // namespace vell
