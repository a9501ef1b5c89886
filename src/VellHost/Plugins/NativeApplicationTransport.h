#pragma once

#include "VellHost/ChildProcess.h"
#include "VellHost/Plugins/PluginStream.h"

#include <QByteArray>
#include <QHash>
#include <QPointer>
#include <QUuid>

#include <chrono>
#include <memory>

class QTcpServer;
class QTcpSocket;

namespace vell {

// The host's side of an application plugin, on the transport thread. It listens on the IPv4
// loopback address, starts the application with the port and a one-time token in its
// environment, and takes exactly one connection: the first that sends the token as its first
// line. Until then every connection is a stranger with a tight budget: at most four at a time,
// 256 bytes and 3 seconds each. Afterwards there is no way in for another.
struct PluginSendState;

class NativeApplicationTransport final : public PluginStream {
    Q_OBJECT

public:
    static constexpr int maximumPendingConnections = 4;
    static constexpr std::chrono::milliseconds authenticationTime{3000};
    static constexpr qsizetype maximumTokenLineBytes = 256;
    // The largest single read once authenticated: one line at most.
    static constexpr qsizetype largestRead = 131072;
    static constexpr QStringView portVariable = u"OSTAVELL_PLUGIN_PORT";
    static constexpr QStringView tokenVariable = u"OSTAVELL_PLUGIN_TOKEN";

    // application is how to start the plugin; the port and token are added to its environment.
    // The main thread reserves each message in sendState before handing it over, so that a full
    // or ended connection is refused at once, before anything is queued.
    NativeApplicationTransport(QString token, ChildProcessOptions application,
                               std::shared_ptr<PluginSendState> sendState);
    ~NativeApplicationTransport() override;
    Q_DISABLE_COPY_MOVE(NativeApplicationTransport)

    // Two random UUIDs' text joined: 72 characters.
    static QString makeToken();

signals:
    // The application was spawned with this process id, or could not be (0), for this reason.
    void launched(qint64 processID, const QString& error);

public:
    // All of these run on the transport thread.
    // Listens, starts the application, and sends hello to the peer once it has proved itself.
    void listen(const QByteArray& hello);
    // One encoded message; a full queue, or no peer yet, fails the transport.
    void send(const QByteArray& data);
    // Closes everything, terminates the application, and lets the transport go.
    void stop();

protected:
    void resume() override;

private:
    struct Stranger {
        QTcpSocket* socket = nullptr;
        QByteArray gathered;
    };

    void accept(QTcpSocket* socket);
    void authenticate(const QUuid& id);
    void cancel(const QUuid& id);
    void becomePeer(const QUuid& id, qsizetype lineEnd);
    void receive();
    void peerClosed();
    void fail(const QString& reason);

    QString m_token;
    ChildProcessOptions m_applicationOptions;
    std::unique_ptr<ChildProcess> m_application;
    QTcpServer* m_listener = nullptr;
    QTcpSocket* m_connection = nullptr;
    QHash<QUuid, Stranger> m_pending;
    QByteArray m_hello;
    std::shared_ptr<PluginSendState> m_sendState;
    bool m_stopped = false;
};

} // namespace vell
