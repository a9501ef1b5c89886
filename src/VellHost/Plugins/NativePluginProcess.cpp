#include "VellHost/Plugins/NativePluginProcess.h"

#include "VellHost/ChildProcess.h"
#include "VellHost/Plugins/NativeApplicationTransport.h"
#include "VellHost/Plugins/PluginPipeStream.h"
#include "VellHost/Plugins/PluginSendState.h"
#include "VellHost/Plugins/PluginTransportThread.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Protocol/PluginCapabilities.h"

#include <QDir>
#include <QFileInfo>
#include <QProcessEnvironment>

#include <fcntl.h>

namespace vell {

NativePluginProcess::NativePluginProcess(QObject* parent)
    : QObject(parent) {}

NativePluginProcess::~NativePluginProcess() {
    stop();
}

PluginMessage NativePluginProcess::hello(const QString& id) const {
    PluginMessage message = PluginMessage::make(QStringLiteral("hello"), id, m_session);
    message.features = PluginCapabilities::offered();
    return message;
}

void NativePluginProcess::start(const QString& binary, const QString& id, const QString& workingDirectory,
                                LaunchMode mode) {
    if (m_pipes || m_applicationTransport || m_stopped)
        throw ModuleProblem(QStringLiteral("A plugin process is started once."));
    const PluginMessage greeting = hello(id);

    if (mode == LaunchMode::application) {
        // The application keeps the user's environment, as one the user opened would; only
        // the way back to us is added.
        ChildProcessOptions options{
            binary, {pluginArgument.toString()}, QProcessEnvironment::systemEnvironment().toStringList()};
        options.pipes = false;
        options.workingDirectory = QFileInfo(binary).absolutePath();
        options.ownProcessGroup = true;
        m_sendState = std::make_shared<PluginSendState>();
        m_applicationTransport =
            new NativeApplicationTransport(NativeApplicationTransport::makeToken(), options, m_sendState);
        m_applicationTransport->moveToThread(PluginTransportThread::instance());
        connectStream(m_applicationTransport);
        connect(m_applicationTransport, &NativeApplicationTransport::launched, this,
                [this](qint64 processID, const QString& error) {
                    m_processID = processID;
                    if (const auto callback = onStartFailure; callback && !processID && !m_stopped)
                        callback(error);
                });
        QMetaObject::invokeMethod(
            m_applicationTransport,
            [transport = m_applicationTransport, data = greeting.encoded()] { transport->listen(data); });
        return;
    }

    // Exactly this environment: nothing of ours, the user's session included, reaches a child.
    ChildProcessOptions options{binary,
                                {pluginArgument.toString()},
                                {QStringLiteral("PATH=") + childPath.toString(),
                                 QStringLiteral("HOME=") + QDir::homePath(),
                                 QStringLiteral("TMPDIR=") + QDir::tempPath()}};
    options.workingDirectory = workingDirectory;
    // What a plugin forks is stopped with it.
    options.ownProcessGroup = true;
    QString error;
    m_child = ChildProcess::start(options, &error);
    if (!m_child)
        throw ModuleProblem(error);
    m_processID = m_child->pid();
    m_sendState = std::make_shared<PluginSendState>();
    const int exit =
        m_child->exitDescriptor() >= 0 ? fcntl(m_child->exitDescriptor(), F_DUPFD_CLOEXEC, 0) : -1;
    m_pipes = new PluginPipeStream(m_child->takeInputDescriptor(), m_child->takeOutputDescriptor(), exit,
                                   m_sendState);
    m_pipes->moveToThread(PluginTransportThread::instance());
    connectStream(m_pipes);
    QMetaObject::invokeMethod(m_pipes, [pipes = m_pipes] { pipes->open(); });
    send(greeting);
}

void NativePluginProcess::connectStream(PluginStream* stream) {
    connect(stream, &PluginStream::framed, this, &NativePluginProcess::deliver);
    connect(stream, &PluginStream::failed, this, [this](const QString& reason) {
        // A copy, since the callback may clear its own field.
        if (const auto callback = onFailure; callback && !m_stopped)
            callback(reason);
    });
    connect(stream, &PluginStream::exited, this, [this] {
        if (const auto callback = onExit; callback && !m_stopped)
            callback();
    });
}

void NativePluginProcess::deliver(const QList<PluginMessage>& messages, qsizetype bytes) {
    const QPointer<NativePluginProcess> self(this);
    for (const PluginMessage& message : messages) {
        if (m_stopped || !onMessage)
            return;
        // The owner may stop or even delete this process from inside its callback.
        const auto callback = onMessage;
        callback(message);
        if (!self)
            return;
    }
    if (m_stopped)
        return;
    // Not stopped, so the stream is still there: it goes only after its stop.
    PluginStream* stream = m_pipes ? static_cast<PluginStream*>(m_pipes) : m_applicationTransport;
    stream->delivered(bytes, messages.size());
}

void NativePluginProcess::send(const PluginMessage& message) {
    const QByteArray data = message.encoded();
    if ((!m_pipes && !m_applicationTransport) || !m_sendState->reserve(data.size()))
        throw ModuleProblem(QStringLiteral("Plugin input queue is unavailable or full."));
    if (m_applicationTransport) {
        QMetaObject::invokeMethod(m_applicationTransport,
                                  [transport = m_applicationTransport, data] { transport->send(data); });
        return;
    }
    QMetaObject::invokeMethod(m_pipes, [pipes = m_pipes, data] { pipes->write(data); });
}

void NativePluginProcess::stop() {
    if (m_stopped)
        return;
    m_stopped = true;
    onMessage = nullptr;
    onExit = nullptr;
    onFailure = nullptr;
    onStartFailure = nullptr;
    if (m_applicationTransport) {
        m_applicationTransport->disconnect(this);
        m_sendState->stop();
        QMetaObject::invokeMethod(m_applicationTransport,
                                  [transport = m_applicationTransport] { transport->stop(); });
        m_applicationTransport = nullptr;
    }
    if (m_pipes) {
        m_pipes->disconnect(this);
        m_sendState->stop();
        QMetaObject::invokeMethod(m_pipes, [pipes = m_pipes] { pipes->shutdown(); });
        m_pipes = nullptr;
    }
    ChildProcess::terminate(std::move(m_child), terminationGrace);
}

} // namespace vell
