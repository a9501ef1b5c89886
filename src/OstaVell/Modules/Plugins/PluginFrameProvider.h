#pragma once

#include <QByteArray>
#include <QHash>
#include <QMutex>
#include <QQuickImageProvider>

namespace vell {

// The newest video frame of each plugin for the views, as "image://pluginframe/<id>/<n>" where n
// changes with every frame. The store hands over the bytes on the main thread; the scene graph
// may ask from its loader thread, so the frames are kept under a lock of their own and decoded
// only when asked for, never cached.
class PluginFrameProvider final : public QQuickImageProvider {
public:
    static constexpr QStringView name = u"pluginframe";

    PluginFrameProvider();

    void setFrames(QHash<QString, QByteArray> frames);
    QImage requestImage(const QString& id, QSize* size, const QSize& requestedSize) override;

private:
    QMutex m_lock;
    QHash<QString, QByteArray> m_frames;
};

} // namespace vell
