#include "VellPluginSDK/Protocol/PluginConnection.h"

#include "VellPluginSDK/ModuleProblem.h"

#include <QPointer>

namespace vell {

PluginConnection::PluginConnection(QObject* parent)
    : QObject(parent) {}

PluginConnection::~PluginConnection() = default;

void PluginConnection::send(const PluginMessage& message) {
    const QByteArray data = message.encoded();
    if (m_stopped)
        return;
    if (m_queuedBytes + data.size() > maximumQueuedBytes) {
        end();
        return;
    }
    // Counted before the write, which may report the bytes gone before it returns.
    m_queuedBytes += data.size();
    if (!write(data))
        end();
}

void PluginConnection::stop() {
    if (m_stopped)
        return;
    m_stopped = true;
    m_receiver = nullptr;
    close();
}

void PluginConnection::received(QByteArrayView chunk) {
    if (m_stopped)
        return;
    QList<PluginMessage> messages;
    try {
        messages = m_lines.append(chunk);
    } catch (const ModuleProblem&) {
        end();
        return;
    }
    const QPointer<PluginConnection> self(this);
    for (const PluginMessage& message : messages) {
        // The receiver may stop, or delete, the connection from inside.
        if (!self || m_stopped || !m_receiver)
            return;
        const Receiver receiver = m_receiver;
        receiver(message);
    }
}

void PluginConnection::end() {
    if (m_stopped)
        return;
    m_stopped = true;
    close();
    const Receiver receiver = std::exchange(m_receiver, nullptr);
    if (receiver)
        receiver(std::nullopt);
}

} // namespace vell
