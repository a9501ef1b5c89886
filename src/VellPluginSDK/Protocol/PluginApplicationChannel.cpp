#include "VellPluginSDK/Protocol/PluginApplicationChannel.h"

#include <QHostAddress>
#include <QTcpSocket>

#include <algorithm>

namespace vell {

std::unique_ptr<PluginApplicationChannel>
PluginApplicationChannel::create(const QProcessEnvironment& environment) {
    const QString portText = environment.value(portVariable.toString());
    const QString token = environment.value(tokenVariable.toString());
    const bool decimal = !portText.isEmpty() && std::all_of(portText.begin(), portText.end(),
                                                            [](QChar c) { return c >= u'0' && c <= u'9'; });
    bool parsed = false;
    const uint port = portText.toUInt(&parsed);
    const bool tokenValid =
        token.size() == tokenCharacters && std::all_of(token.begin(), token.end(), [](QChar c) {
            return c == u'-' || (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') ||
                   (c >= u'A' && c <= u'F');
        });
    if (!decimal || !parsed || port == 0 || port > 65535 || !tokenValid)
        return nullptr;
    return std::unique_ptr<PluginApplicationChannel>(
        new PluginApplicationChannel(static_cast<quint16>(port), token));
}

PluginApplicationChannel::PluginApplicationChannel(quint16 port, QString token)
    : m_port(port)
    , m_token(std::move(token)) {}

PluginApplicationChannel::~PluginApplicationChannel() {
    stop();
}

void PluginApplicationChannel::start(Receiver receiver) {
    if (m_connection || stopped())
        return;
    setReceiver(std::move(receiver));
    m_connection = new QTcpSocket(this);
    m_connection->setReadBufferSize(largestRead);
    connect(m_connection, &QTcpSocket::connected, this, [this] {
        const QByteArray line = (m_token + u'\n').toUtf8();
        queued(line.size());
        m_connection->write(line);
    });
    connect(m_connection, &QTcpSocket::readyRead, this, &PluginApplicationChannel::readAvailable);
    connect(m_connection, &QTcpSocket::bytesWritten, this, [this](qint64 bytes) { written(bytes); });
    connect(m_connection, &QTcpSocket::disconnected, this, [this] { end(); });
    connect(m_connection, &QTcpSocket::errorOccurred, this, [this] { end(); });
    m_connection->connectToHost(QHostAddress::LocalHost, m_port);
}

void PluginApplicationChannel::readAvailable() {
    while (m_connection && !stopped() && m_connection->bytesAvailable() > 0)
        received(m_connection->read(largestRead));
}

bool PluginApplicationChannel::write(const QByteArray& data) {
    return m_connection && m_connection->state() == QAbstractSocket::ConnectedState &&
           m_connection->write(data) >= 0;
}

void PluginApplicationChannel::close() {
    if (!m_connection)
        return;
    m_connection->disconnect(this);
    m_connection->abort();
    m_connection->deleteLater();
    m_connection = nullptr;
}

} // namespace vell
