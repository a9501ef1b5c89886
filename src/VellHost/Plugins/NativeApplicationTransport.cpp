#include "VellHost/Plugins/NativeApplicationTransport.h"

#include "VellHost/Plugins/PluginSendState.h"
#include "VellPluginSDK/Actions/PluginBusMessage.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

namespace vell {

namespace {

constexpr std::chrono::milliseconds terminationGrace{2000};

} // namespace

NativeApplicationTransport::NativeApplicationTransport(QString token, ChildProcessOptions application,
                                                       std::shared_ptr<PluginSendState> sendState)
    : m_token(std::move(token))
    , m_applicationOptions(std::move(application))
    , m_sendState(std::move(sendState)) {}

NativeApplicationTransport::~NativeApplicationTransport() {
    ChildProcess::terminate(std::move(m_application), terminationGrace);
}

QString NativeApplicationTransport::makeToken() {
    return uuidText(QUuid::createUuid()) + uuidText(QUuid::createUuid());
}

void NativeApplicationTransport::listen(const QByteArray& hello) {
    if (m_stopped)
        return;
    m_hello = hello;
    m_listener = new QTcpServer(this);
    connect(m_listener, &QTcpServer::newConnection, this, [this] {
        while (m_listener && m_listener->hasPendingConnections())
            accept(m_listener->nextPendingConnection());
    });
    if (!m_listener->listen(QHostAddress::LocalHost, 0)) {
        m_sendState->stop();
        emit launched(0, m_listener->errorString());
        return;
    }
    ChildProcessOptions options = m_applicationOptions;
    // Ours replace any the environment already had: the first of two entries would win.
    options.environment.removeIf([](const QString& entry) {
        return entry.startsWith(portVariable.toString() + u'=') ||
               entry.startsWith(tokenVariable.toString() + u'=');
    });
    options.environment.append(portVariable.toString() + u'=' + QString::number(m_listener->serverPort()));
    options.environment.append(tokenVariable.toString() + u'=' + m_token);
    QString error;
    m_application = ChildProcess::start(options, &error);
    if (!m_application)
        m_sendState->stop();
    emit launched(m_application ? m_application->pid() : 0, error);
}

void NativeApplicationTransport::accept(QTcpSocket* socket) {
    // Ours, not the listener's: the listener goes once a peer is found, and the peer stays.
    socket->setParent(this);
    if (m_stopped || m_connection || m_pending.size() >= maximumPendingConnections) {
        socket->abort();
        socket->deleteLater();
        return;
    }
    const QUuid id = QUuid::createUuid();
    // One byte over the budget is enough to know it was passed; more stays in the kernel.
    socket->setReadBufferSize(maximumTokenLineBytes + 1);
    m_pending.insert(id, {socket, {}});
    connect(socket, &QTcpSocket::readyRead, this, [this, id] { authenticate(id); });
    connect(socket, &QTcpSocket::disconnected, this, [this, id] { cancel(id); });
    QTimer::singleShot(authenticationTime, this, [this, id] { cancel(id); });
    authenticate(id);
}

void NativeApplicationTransport::authenticate(const QUuid& id) {
    const auto found = m_pending.find(id);
    if (found == m_pending.end() || m_stopped)
        return;
    Stranger& stranger = *found;
    stranger.gathered += stranger.socket->read(maximumTokenLineBytes + 1 - stranger.gathered.size());
    if (stranger.gathered.size() > maximumTokenLineBytes) {
        cancel(id);
        return;
    }
    const qsizetype lineEnd = stranger.gathered.indexOf('\n');
    if (lineEnd < 0)
        return;
    if (m_connection || QString::fromUtf8(stranger.gathered.left(lineEnd)) != m_token) {
        cancel(id);
        return;
    }
    becomePeer(id, lineEnd);
}

void NativeApplicationTransport::cancel(const QUuid& id) {
    const Stranger stranger = m_pending.take(id);
    if (!stranger.socket)
        return;
    stranger.socket->disconnect(this);
    stranger.socket->abort();
    stranger.socket->deleteLater();
}

void NativeApplicationTransport::becomePeer(const QUuid& id, qsizetype lineEnd) {
    const Stranger peer = m_pending.take(id);
    for (const QUuid& other : m_pending.keys())
        cancel(other);
    m_listener->close();
    m_listener->deleteLater();
    m_listener = nullptr;

    m_connection = peer.socket;
    m_connection->disconnect(this);
    m_connection->setReadBufferSize(largestRead);
    connect(m_connection, &QTcpSocket::readyRead, this, &NativeApplicationTransport::receive);
    connect(m_connection, &QTcpSocket::disconnected, this, &NativeApplicationTransport::peerClosed);
    connect(m_connection, &QTcpSocket::errorOccurred, this, [this](QAbstractSocket::SocketError error) {
        if (error != QAbstractSocket::RemoteHostClosedError)
            fail(m_connection->errorString());
    });
    connect(m_connection, &QTcpSocket::bytesWritten, this,
            [this](qint64 bytes) { m_sendState->release(qsizetype(bytes)); });
    if (!m_sendState->reserve(m_hello.size())) {
        fail(QStringLiteral("Plugin input queue is unavailable or full."));
        return;
    }
    send(m_hello);
    if (take(QByteArrayView(peer.gathered).sliced(lineEnd + 1)))
        receive();
}

void NativeApplicationTransport::receive() {
    while (m_connection && !m_stopped && m_connection->bytesAvailable() > 0) {
        if (pauseReading())
            return;
        if (!take(m_connection->read(largestRead))) {
            m_connection->disconnect(this);
            m_connection->abort();
            return;
        }
    }
}

void NativeApplicationTransport::resume() {
    receive();
}

void NativeApplicationTransport::peerClosed() {
    if (m_stopped)
        return;
    receive();
    emit exited();
}

void NativeApplicationTransport::send(const QByteArray& data) {
    // Room for data was reserved by whoever sent it.
    if (m_stopped || !m_connection) {
        fail(QStringLiteral("Plugin input queue is unavailable or full."));
        return;
    }
    m_connection->write(data);
}

void NativeApplicationTransport::fail(const QString& reason) {
    // From here on the main thread's sends are refused at once.
    m_sendState->stop();
    if (!m_stopped)
        emit failed(reason);
}

void NativeApplicationTransport::stop() {
    m_stopped = true;
    m_sendState->stop();
    for (const QUuid& id : m_pending.keys())
        cancel(id);
    if (m_listener)
        m_listener->close();
    if (m_connection) {
        m_connection->disconnect(this);
        m_connection->abort();
    }
    ChildProcess::terminate(std::move(m_application), terminationGrace);
    deleteLater();
}

} // namespace vell
