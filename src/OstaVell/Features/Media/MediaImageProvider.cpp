#include "OstaVell/Features/Media/MediaImageProvider.h"

#include <QMutexLocker>

namespace vell {

QMutex MediaImageProvider::s_lock;
QImage MediaImageProvider::s_artwork;
QImage MediaImageProvider::s_icon;

MediaImageProvider::MediaImageProvider()
    : QQuickImageProvider(QQuickImageProvider::Image) {}

void MediaImageProvider::setArtwork(const QImage& image) {
    const QMutexLocker locker(&s_lock);
    s_artwork = image;
}

void MediaImageProvider::setIcon(const QImage& image) {
    const QMutexLocker locker(&s_lock);
    s_icon = image;
}

QImage MediaImageProvider::requestImage(const QString& id, QSize* size, const QSize& requestedSize) {
    QImage image;
    {
        const QMutexLocker locker(&s_lock);
        image = id.startsWith(u"artwork/") ? s_artwork : id.startsWith(u"icon/") ? s_icon : QImage();
    }
    if (!image.isNull() && requestedSize.isValid())
        image = image.scaled(requestedSize, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    if (size)
        *size = image.size();
    return image;
}

} // namespace vell
