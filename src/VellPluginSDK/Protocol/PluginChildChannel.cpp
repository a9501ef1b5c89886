#include "VellPluginSDK/Protocol/PluginChildChannel.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <unistd.h>

namespace vell {

namespace {

constexpr int input = STDIN_FILENO;
constexpr int output = STDOUT_FILENO;

} // namespace

PluginChildChannel::PluginChildChannel() = default;

PluginChildChannel::~PluginChildChannel() {
    stop();
}

void PluginChildChannel::start(Receiver receiver) {
    if (m_readable || stopped())
        return;
    std::signal(SIGPIPE, SIG_IGN);
    setReceiver(std::move(receiver));
    m_readable = new QSocketNotifier(input, QSocketNotifier::Read, this);
    connect(m_readable, &QSocketNotifier::activated, this, &PluginChildChannel::readAvailable);
}

void PluginChildChannel::readAvailable() {
    char chunk[65536];
    const ssize_t count = ::read(input, chunk, sizeof chunk);
    if (count < 0 && (errno == EINTR || errno == EAGAIN))
        return;
    if (count <= 0) {
        end();
        return;
    }
    received(QByteArrayView(chunk, count));
}

bool PluginChildChannel::write(const QByteArray& data) {
    if (m_closed)
        return false;
    qsizetype sent = 0;
    while (sent < data.size()) {
        const ssize_t count =
            ::write(output, data.constData() + sent, static_cast<size_t>(data.size() - sent));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        sent += count;
    }
    // A blocking write: nothing stays queued once it returns.
    written(data.size());
    return true;
}

void PluginChildChannel::close() {
    m_closed = true;
    delete m_readable;
    m_readable = nullptr;
}

} // namespace vell
