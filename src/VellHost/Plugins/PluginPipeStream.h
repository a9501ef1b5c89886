#pragma once

#include "VellHost/Plugins/PluginSendState.h"
#include "VellHost/Plugins/PluginStream.h"

#include <QByteArray>
#include <QList>

#include <deque>
#include <memory>

class QSocketNotifier;

namespace vell {

// A child-mode plugin's two pipes and its exit, on the transport thread. Reads are framed as
// they come; writes never block: what the pipe does not take waits here, within the limit of
// the shared send state, until the child reads. Created on the main thread and moved to the
// transport thread before open().
class PluginPipeStream final : public PluginStream {
    Q_OBJECT

public:
    // Takes the three descriptors: the write end of the child's input, the read end of its
    // output, and one that becomes readable when the child exits.
    PluginPipeStream(int input, int output, int exit, std::shared_ptr<PluginSendState> sendState);
    ~PluginPipeStream() override;
    Q_DISABLE_COPY_MOVE(PluginPipeStream)

    // All of these run on the transport thread.
    void open();
    // One encoded message, whose room was reserved in the send state.
    void write(const QByteArray& data);
    // No more reading; what is queued is written, then the input is closed and the stream
    // goes. A child that stops reading is killed by its owner, which ends the waiting too.
    void shutdown();

protected:
    void resume() override;

private:
    // Reads one chunk; false when there is nothing more to read now.
    bool readOutput();
    void flush();
    void childExited();
    void dropPending();
    void closeReading();
    void closeWriting();
    void finishIfDone();

    int m_input = -1;
    int m_output = -1;
    int m_exit = -1;
    std::shared_ptr<PluginSendState> m_sendState;
    QSocketNotifier* m_readable = nullptr;
    QSocketNotifier* m_writable = nullptr;
    QSocketNotifier* m_exited = nullptr;
    std::deque<QByteArray> m_pending;
    qsizetype m_written = 0; // of m_pending.front()
    bool m_shuttingDown = false;
};

} // namespace vell
