#include "VellHost/Plugins/PluginPipeStream.h"

#include "VellHost/FileDescriptor.h"

#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace vell {

namespace {

// The largest read at a time: small enough that one read of short lines is a batch the main
// thread handles in a moment, well inside the framer's limits.
constexpr qsizetype readSize = 16384;

} // namespace

PluginPipeStream::PluginPipeStream(int input, int output, int exit,
                                   std::shared_ptr<PluginSendState> sendState)
    : m_input(input)
    , m_output(output)
    , m_exit(exit)
    , m_sendState(std::move(sendState)) {
    for (const int fd : {m_input, m_output})
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

PluginPipeStream::~PluginPipeStream() {
    dropPending();
    closeQuietly(m_input);
    closeQuietly(m_output);
    closeQuietly(m_exit);
}

void PluginPipeStream::open() {
    m_readable = new QSocketNotifier(m_output, QSocketNotifier::Read, this);
    connect(m_readable, &QSocketNotifier::activated, this, [this] { readOutput(); });
    m_writable = new QSocketNotifier(m_input, QSocketNotifier::Write, this);
    m_writable->setEnabled(false);
    connect(m_writable, &QSocketNotifier::activated, this, &PluginPipeStream::flush);
    if (m_exit >= 0) {
        m_exited = new QSocketNotifier(m_exit, QSocketNotifier::Read, this);
        connect(m_exited, &QSocketNotifier::activated, this, &PluginPipeStream::childExited);
    }
}

bool PluginPipeStream::readOutput() {
    QByteArray chunk(readSize, Qt::Uninitialized);
    const ssize_t received = ::read(m_output, chunk.data(), static_cast<size_t>(chunk.size()));
    if (received < 0 && errno == EINTR)
        return true;
    if (received < 0 && errno == EAGAIN)
        return false;
    if (received < 0) {
        const QString reason = QString::fromLocal8Bit(std::strerror(errno));
        closeReading();
        emit failed(reason);
        return false;
    }
    if (received == 0) {
        // A closed output alone ends nothing: the exit does, and a silent plugin is found by
        // the watchdog.
        closeReading();
        return false;
    }
    chunk.truncate(received);
    if (!take(chunk)) {
        closeReading();
        return false;
    }
    if (pauseReading())
        m_readable->setEnabled(false);
    return true;
}

void PluginPipeStream::resume() {
    if (m_readable)
        m_readable->setEnabled(true);
}

void PluginPipeStream::childExited() {
    m_exited->setEnabled(false);
    // What the child wrote before it ended comes first.
    while (m_readable && m_readable->isEnabled() && readOutput()) {
    }
    emit exited();
}

void PluginPipeStream::write(const QByteArray& data) {
    if (m_input < 0) {
        m_sendState->release(data.size());
        return;
    }
    m_pending.push_back(data);
    flush();
}

void PluginPipeStream::flush() {
    while (!m_pending.empty()) {
        const QByteArray& front = m_pending.front();
        const ssize_t sent =
            ::write(m_input, front.constData() + m_written, static_cast<size_t>(front.size() - m_written));
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent < 0 && errno == EAGAIN) {
            m_writable->setEnabled(true);
            return;
        }
        if (sent < 0) {
            const QString reason = QString::fromLocal8Bit(std::strerror(errno));
            dropPending();
            closeWriting();
            if (!m_shuttingDown)
                emit failed(reason);
            finishIfDone();
            return;
        }
        m_written += sent;
        if (m_written == front.size()) {
            m_sendState->release(front.size());
            m_pending.pop_front();
            m_written = 0;
        }
    }
    if (m_writable)
        m_writable->setEnabled(false);
    finishIfDone();
}

void PluginPipeStream::dropPending() {
    for (const QByteArray& data : m_pending)
        m_sendState->release(data.size());
    m_pending.clear();
    m_written = 0;
}

void PluginPipeStream::closeWriting() {
    delete m_writable;
    m_writable = nullptr;
    closeQuietly(m_input);
}

void PluginPipeStream::closeReading() {
    delete m_readable;
    m_readable = nullptr;
    closeQuietly(m_output);
}

void PluginPipeStream::shutdown() {
    m_shuttingDown = true;
    closeReading();
    delete m_exited;
    m_exited = nullptr;
    closeQuietly(m_exit);
    finishIfDone();
}

void PluginPipeStream::finishIfDone() {
    if (!m_shuttingDown || !m_pending.empty())
        return;
    closeWriting();
    deleteLater();
}

} // namespace vell
