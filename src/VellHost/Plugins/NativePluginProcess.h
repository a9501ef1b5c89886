#pragma once

#include "VellPluginSDK/Protocol/PluginMessage.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QUuid>

#include <chrono>
#include <functional>
#include <memory>

namespace vell {

class ChildProcess;
class NativeApplicationTransport;
class PluginPipeStream;
class PluginStream;
struct PluginSendState;

// One running plugin, whichever way it runs: a child process on two pipes, or an application
// that connects back over loopback TCP. Above it are only send() and the three callbacks, all
// on the main thread; the bytes are framed and written on the transport thread. Used once: a
// restart makes a new one with a new session. Once stopped, nothing of it reaches its owner,
// not even a message framed just before.
class NativePluginProcess final : public QObject {
    Q_OBJECT

public:
    enum class LaunchMode { child, application };

    static constexpr QStringView pluginArgument = u"--ostavell-plugin";
    static constexpr QStringView childPath = u"/usr/bin:/bin:/usr/sbin:/sbin";
    static constexpr std::chrono::milliseconds terminationGrace{2000};

    explicit NativePluginProcess(QObject* parent = nullptr);
    ~NativePluginProcess() override;
    Q_DISABLE_COPY_MOVE(NativePluginProcess)

    std::function<void(const PluginMessage&)> onMessage;
    std::function<void()> onExit;
    // The stream broke or held bad data; the reason is for the log.
    std::function<void(const QString& reason)> onFailure;
    // An application plugin could not be started; start() itself throws this for a child.
    std::function<void(const QString& reason)> onStartFailure;

    const QUuid& session() const { return m_session; }
    // The plugin's process id once it was spawned, or 0.
    qint64 processID() const { return m_processID; }

    // Starts the plugin and sends it "hello". Throws the system's reason when it cannot start.
    void start(const QString& binary, const QString& id, const QString& workingDirectory, LaunchMode mode);
    // Throws "Plugin input queue is unavailable or full." when the plugin's queue would pass
    // its limit, or its connection has ended, or after stop; the message is then not queued.
    void send(const PluginMessage& message);
    void stop();

private:
    void connectStream(PluginStream* stream);
    void deliver(const QList<PluginMessage>& messages, qsizetype bytes);
    PluginMessage hello(const QString& id) const;

    QUuid m_session = QUuid::createUuid();
    qint64 m_processID = 0;
    bool m_stopped = false;
    std::unique_ptr<ChildProcess> m_child;
    std::shared_ptr<PluginSendState> m_sendState;
    // Both live on the transport thread and go away by themselves after their stop, which is
    // the last thing this object ever asks of them.
    PluginPipeStream* m_pipes = nullptr;
    NativeApplicationTransport* m_applicationTransport = nullptr;
};

} // namespace vell
