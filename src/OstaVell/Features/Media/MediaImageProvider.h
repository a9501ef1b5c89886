#pragma once

#include <QImage>
#include <QMutex>
#include <QQuickImageProvider>
#include <QStringView>

namespace vell {

// The artwork and the player's icon for the views, as "image://media/artwork/<n>" and
// "image://media/icon/<n>", n changing with each new image so that the views ask again.
// Images are set on the main thread and read on the engine's loader threads.
class MediaImageProvider final : public QQuickImageProvider {
public:
    static constexpr QStringView name = u"media";

    MediaImageProvider();

    static void setArtwork(const QImage& image);
    static void setIcon(const QImage& image);

    QImage requestImage(const QString& id, QSize* size, const QSize& requestedSize) override;

private:
    static QMutex s_lock;
    static QImage s_artwork;
    static QImage s_icon;
};

} // namespace vell
