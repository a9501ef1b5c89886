#pragma once

#include <QLatin1StringView>
#include <QQuickAsyncImageProvider>

namespace vell {

// "image://shelf-thumbnail/<percent-encoded path>" for the tray's tiles, answered by the
// ShelfThumbnailLoader on the main thread while the engine's loader thread goes on.
class ShelfThumbnailProvider final : public QQuickAsyncImageProvider {
public:
    static constexpr QLatin1StringView name{"shelf-thumbnail"};
    static constexpr int defaultEdge = 160;

    QQuickImageResponse* requestImageResponse(const QString& id, const QSize& requestedSize) override;
};

} // namespace vell
