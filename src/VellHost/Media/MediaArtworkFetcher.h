#pragma once

#include <QByteArray>
#include <QNetworkAccessManager>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

class QNetworkReply;

namespace vell {

// A player's artwork URL turned into its bytes, off the stream's way: a local file or an
// http(s) address, at most maximumBytes and within the deadline, or nothing. Only the last
// URL asked for matters; an earlier fetch still under way is dropped.
class MediaArtworkFetcher final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MediaArtworkFetcher)

public:
    static constexpr qsizetype maximumBytes = 2 * 1024 * 1024;
    static constexpr int deadlineMilliseconds = 10000;

    explicit MediaArtworkFetcher(QObject* parent = nullptr, int deadline = deadlineMilliseconds);

    // The bytes for url when they are at hand; starts fetching them otherwise.
    QByteArray artwork(const QString& url);

signals:
    void fetched();

private:
    void finish(QByteArray bytes);

    QNetworkAccessManager m_network;
    QPointer<QNetworkReply> m_reply;
    QTimer m_deadline;
    QString m_url;
    QByteArray m_bytes;
    bool m_done = false;
};

} // namespace vell
