#pragma once

// Tests here run as root, and root passes every permission check by its capabilities: a folder
// made read-only, or a file made unreadable, is no obstacle to it. While this guard lives, the
// calling thread gives up the capabilities that override a file's mode, so the owner's bits
// decide as they would for the user. Capabilities belong to a thread: the work under test has to
// happen on the thread that holds the guard. Without those capabilities it does nothing.

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vell::test {

class OwnerPermissions final {
public:
    OwnerPermissions() {
        m_header.version = _LINUX_CAPABILITY_VERSION_3;
        m_header.pid = 0;
        if (::syscall(SYS_capget, &m_header, m_saved) != 0)
            return;
        __user_cap_data_struct reduced[2] = {m_saved[0], m_saved[1]};
        for (const int capability : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER})
            reduced[capability / 32].effective &= ~(1u << (capability % 32));
        m_applied = ::syscall(SYS_capset, &m_header, reduced) == 0;
    }
    ~OwnerPermissions() {
        if (m_applied)
            ::syscall(SYS_capset, &m_header, m_saved);
    }
    OwnerPermissions(const OwnerPermissions&) = delete;
    OwnerPermissions& operator=(const OwnerPermissions&) = delete;

private:
    __user_cap_header_struct m_header{};
    __user_cap_data_struct m_saved[2]{};
    bool m_applied = false;
};

} // namespace vell::test
