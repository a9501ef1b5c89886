#pragma once

// A local server that hears any fetch a view makes. Text read as rich text loads the images it
// names; text shown as plain never fetches anything.

#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>

namespace vell::test {

class FetchListener final : public QTcpServer {
public:
    FetchListener() {
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    m_paths.append(QString::fromLatin1(socket->readLine().split(' ').value(1)).mid(1));
                    socket->disconnectFromHost();
                });
            }
        });
    }

    // Markup that fetches path from here if it is ever read as rich text.
    QString img(const QString& path) const {
        return QStringLiteral("<img src=\"http://127.0.0.1:%1/%2\">").arg(serverPort()).arg(path);
    }

    // A window that fetches path, to show after everything else: once its fetch has come, any
    // earlier fetch would have come too.
    QByteArray fence(const QString& path) {
        m_fences.append(path);
        return QStringLiteral("import QtQuick\nWindow { visible: true; width: 100; height: 40; "
                              "Text { text: '%1' } }")
            .arg(img(path))
            .toUtf8();
    }

    bool heard(const QString& path) const { return m_paths.contains(path); }

    // Every fetch but the fences'.
    QStringList fetched() const {
        QStringList paths = m_paths;
        for (const QString& fence : m_fences)
            paths.removeAll(fence);
        return paths;
    }

private:
    QStringList m_paths;
    QStringList m_fences;
};

} // namespace vell::test
