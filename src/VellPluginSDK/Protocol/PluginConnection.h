#pragma once

#include "VellPluginSDK/Protocol/PluginLines.h"
#include "VellPluginSDK/Protocol/PluginMessage.h"

#include <QObject>

#include <functional>
#include <optional>

namespace vell {

// A plugin's side of its connection to the host, whichever way the plugin was launched. The
// receiver hears every message in order, on the thread that started the connection, and at
// the end exactly once with nothing: the host went away, sent bad data, or the plugin's own
// output queue overflowed. After that the connection is spent.
class PluginConnection : public QObject {
    Q_OBJECT

public:
    using Receiver = std::function<void(const std::optional<PluginMessage>& message)>;

    // What may wait to be written before the connection gives up on the host.
    static constexpr qsizetype maximumQueuedBytes = 8388608;

    ~PluginConnection() override;
    Q_DISABLE_COPY_MOVE(PluginConnection)

    virtual void start(Receiver receiver) = 0;
    // Encodes and queues message; a message over the protocol's limit throws, a full queue
    // ends the connection.
    void send(const PluginMessage& message);
    // Ends the connection without calling the receiver.
    void stop();
    bool stopped() const { return m_stopped; }

protected:
    explicit PluginConnection(QObject* parent = nullptr);

    void setReceiver(Receiver receiver) { m_receiver = std::move(receiver); }
    // Frames bytes from the host and hands on the messages; bad data ends the connection.
    void received(QByteArrayView chunk);
    // Called once, on the first failure or at the end of the stream.
    void end();
    // Bytes written by the transport itself, counted like a message's.
    void queued(qsizetype bytes) { m_queuedBytes += bytes; }
    // Some queued bytes have left.
    void written(qsizetype bytes) { m_queuedBytes -= bytes; }

    // Queues data for the host; false when that is no longer possible.
    virtual bool write(const QByteArray& data) = 0;
    // Releases the transport; no more reading or writing.
    virtual void close() = 0;

private:
    Receiver m_receiver;
    PluginLines m_lines;
    qsizetype m_queuedBytes = 0;
    bool m_stopped = false;
};

} // namespace vell
