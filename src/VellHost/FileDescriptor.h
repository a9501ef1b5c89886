#pragma once

#include <QtGlobal>

#include <unistd.h>

namespace vell {

// Owns one descriptor and closes it when it goes out of scope, so that every early exit of a
// walk or a copy closes what it opened.
class FileDescriptor final {
public:
    explicit FileDescriptor(int fd)
        : m_fd(fd) {}
    ~FileDescriptor() {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Q_DISABLE_COPY_MOVE(FileDescriptor)

    int get() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }

private:
    int m_fd;
};

// Closes a descriptor held in a plain field and marks the field closed.
inline void closeQuietly(int& fd) {
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

} // namespace vell
