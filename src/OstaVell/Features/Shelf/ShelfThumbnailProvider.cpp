#include "OstaVell/Features/Shelf/ShelfThumbnailProvider.h"

#include "OstaVell/Features/Shelf/ShelfThumbnailLoader.h"

#include <QImage>
#include <QMutex>
#include <QUrl>

#include <memory>

namespace vell {

namespace {

class Response;

// What the loader's answer and the response share. The engine may delete a response it no
// longer needs at any moment on its own thread: the response clears itself from here first,
// under the lock that an answer holds while it posts to the response.
struct Shared {
    QMutex lock;
    QImage image;
    Response* response = nullptr;
};

class Response final : public QQuickImageResponse {
public:
    Response()
        : m_shared(std::make_shared<Shared>()) {
        m_shared->response = this;
    }
    ~Response() override {
        QMutexLocker locker(&m_shared->lock);
        m_shared->response = nullptr;
    }

    std::shared_ptr<Shared> shared() const { return m_shared; }

    QQuickTextureFactory* textureFactory() const override {
        QMutexLocker locker(&m_shared->lock);
        return QQuickTextureFactory::textureFactoryForImage(m_shared->image);
    }

private:
    std::shared_ptr<Shared> m_shared;
};

} // namespace

QQuickImageResponse* ShelfThumbnailProvider::requestImageResponse(const QString& id,
                                                                  const QSize& requestedSize) {
    auto* response = new Response;
    const QString path = QUrl::fromPercentEncoding(id.toUtf8());
    const int edge =
        requestedSize.isValid() ? std::max(requestedSize.width(), requestedSize.height()) : defaultEdge;
    const std::shared_ptr<Shared> shared = response->shared();
    ShelfThumbnailLoader* loader = ShelfThumbnailLoader::instance();
    QMetaObject::invokeMethod(
        loader,
        [loader, shared, path, edge] {
            loader->request(path, edge, [shared](const QImage& image) {
                QMutexLocker locker(&shared->lock);
                shared->image = image;
                // Queued to the response's own thread: a response deleted before it runs
                // takes the posted call with it.
                if (Response* response = shared->response)
                    QMetaObject::invokeMethod(
                        response, [response] { emit response->finished(); }, Qt::QueuedConnection);
            });
        },
        Qt::QueuedConnection);
    return response;
}

} // namespace vell
