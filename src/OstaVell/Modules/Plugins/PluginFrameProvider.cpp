#include "OstaVell/Modules/Plugins/PluginFrameProvider.h"

#include <QImage>

namespace vell {

PluginFrameProvider::PluginFrameProvider()
    : QQuickImageProvider(QQuickImageProvider::Image) {}

void PluginFrameProvider::setFrames(QHash<QString, QByteArray> frames) {
    const QMutexLocker locker(&m_lock);
    m_frames = std::move(frames);
}

QImage PluginFrameProvider::requestImage(const QString& id, QSize* size, const QSize& requestedSize) {
    QByteArray jpeg;
    {
        const QMutexLocker locker(&m_lock);
        jpeg = m_frames.value(id.section(u'/', 0, 0));
    }
    // A frame that does not decode is simply not drawn.
    QImage image = QImage::fromData(jpeg, "JPEG");
    if (size)
        *size = image.size();
    if (!image.isNull() && requestedSize.isValid())
        image = image.scaled(requestedSize, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    return image;
}

} // namespace vell
