#pragma once

#include "VellPluginSDK/Protocol/PluginConnection.h"

#include <QProcessEnvironment>

#include <memory>

class QTcpSocket;

namespace vell {

// The plugin's side of an application plugin: a loopback TCP connection back to the host,
// which the plugin proves with the one-time token the host put in its environment.
//
//     auto channel = PluginApplicationChannel::create();
//     if (!channel)
//         return 1; // not started by the host
//     channel->start([&](const std::optional<PluginMessage>& message) { ... });
class PluginApplicationChannel final : public PluginConnection {
    Q_OBJECT

public:
    static constexpr QStringView portVariable = u"OSTAVELL_PLUGIN_PORT";
    static constexpr QStringView tokenVariable = u"OSTAVELL_PLUGIN_TOKEN";
    static constexpr int tokenCharacters = 72;
    static constexpr qsizetype largestRead = 131072;

    // A channel, or nothing unless the environment holds a non-zero port and a 72-character
    // token of hexadecimal digits and hyphens.
    static std::unique_ptr<PluginApplicationChannel>
    create(const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment());

    ~PluginApplicationChannel() override;
    Q_DISABLE_COPY_MOVE(PluginApplicationChannel)

    // Connects, sends the token, and hands every message to receiver.
    void start(Receiver receiver) override;

protected:
    bool write(const QByteArray& data) override;
    void close() override;

private:
    PluginApplicationChannel(quint16 port, QString token);
    void readAvailable();

    quint16 m_port = 0;
    QString m_token;
    QTcpSocket* m_connection = nullptr;
};

} // namespace vell
