#include "VellHost/Media/MediaArtworkFetcher.h"

#include <QFile>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vell {

namespace {

// Regular files only, opened without waiting: a fifo or a device would block the stream or
// never end.
QByteArray readRegularFile(const QString& path) {
    const int descriptor = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0)
        return {};
    QFile file;
    struct stat status {};
    if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size > MediaArtworkFetcher::maximumBytes ||
        !file.open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(descriptor);
        return {};
    }
    return file.read(MediaArtworkFetcher::maximumBytes);
}

} // namespace

MediaArtworkFetcher::MediaArtworkFetcher(QObject* parent, int deadline)
    : QObject(parent) {
    m_deadline.setSingleShot(true);
    m_deadline.setInterval(deadline);
    connect(&m_deadline, &QTimer::timeout, this, [this] { finish({}); });
}

QByteArray MediaArtworkFetcher::artwork(const QString& url) {
    if (url == m_url)
        return m_done ? m_bytes : QByteArray();
    if (m_reply)
        m_reply->abort();
    m_deadline.stop();
    m_url = url;
    m_bytes.clear();
    m_done = false;
    const QUrl address(url);
    if (address.isLocalFile()) {
        m_bytes = readRegularFile(address.toLocalFile());
        m_done = true;
        return m_bytes;
    }
    if (address.scheme() != u"http" && address.scheme() != u"https") {
        m_done = true;
        return {};
    }
    QNetworkRequest request(address);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setMaximumRedirectsAllowed(3);
    QNetworkReply* reply = m_network.get(request);
    m_reply = reply;
    m_deadline.start();
    connect(reply, &QNetworkReply::downloadProgress, this, [this, reply](qint64 received, qint64 total) {
        if (received > maximumBytes || total > maximumBytes) {
            reply->abort();
        }
    });
    connect(reply, &QNetworkReply::finished, this, [this, reply] {
        reply->deleteLater();
        if (reply != m_reply)
            return;
        const bool good = reply->error() == QNetworkReply::NoError;
        finish(good ? reply->read(maximumBytes + 1) : QByteArray());
    });
    return {};
}

void MediaArtworkFetcher::finish(QByteArray bytes) {
    m_deadline.stop();
    if (m_reply) {
        QNetworkReply* reply = m_reply;
        m_reply = nullptr;
        reply->abort();
    }
    m_bytes = bytes.size() > maximumBytes ? QByteArray() : std::move(bytes);
    m_done = true;
    emit fetched();
}

} // namespace vell
