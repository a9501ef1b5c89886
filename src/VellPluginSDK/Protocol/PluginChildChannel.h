#pragma once

#include "VellPluginSDK/Protocol/PluginConnection.h"

class QSocketNotifier;

namespace vell {

// The plugin's side of a child-mode plugin: messages come on standard input and go out on
// standard output. Nothing else may write to standard output, since every byte there is
// protocol. Writes block while the host's pipe is full: the host reads on its own thread, so
// that only ever waits for it to catch up. SIGPIPE is ignored once started, so that a host
// that has gone ends the connection rather than the process.
class PluginChildChannel final : public PluginConnection {
    Q_OBJECT

public:
    PluginChildChannel();
    ~PluginChildChannel() override;
    Q_DISABLE_COPY_MOVE(PluginChildChannel)

    void start(Receiver receiver) override;

protected:
    bool write(const QByteArray& data) override;
    void close() override;

private:
    void readAvailable();

    QSocketNotifier* m_readable = nullptr;
    bool m_closed = false;
};

} // namespace vell
