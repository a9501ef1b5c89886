#include "OstaVell/Features/Shelf/ShelfThumbnailLoader.h"

#include <QCoreApplication>
#include <QImageReader>
#include <QPointer>

namespace vell {

namespace {

QString pathOf(const QString& key) {
    return key.left(key.lastIndexOf(QLatin1Char('@')));
}

} // namespace

ShelfThumbnailLoader* ShelfThumbnailLoader::instance() {
    static ShelfThumbnailLoader* p = new ShelfThumbnailLoader;
    return p;
}

ShelfThumbnailLoader::ShelfThumbnailLoader(QObject* parent)
    : QObject(parent) {
    // One decoder at a time: thumbnails are no hurry, and the machine has other work.
    m_pool.setMaxThreadCount(1);
}

ShelfThumbnailLoader::~ShelfThumbnailLoader() {
    m_pool.clear();
    m_pool.waitForDone();
}

QImage ShelfThumbnailLoader::read(const QString& path, int edge) {
    QImageReader reader(path);
    reader.setAutoTransform(true);
    if (!reader.canRead())
        return {};
    const QSize size = reader.size();
    if (size.isValid() && (size.width() > edge || size.height() > edge))
        reader.setScaledSize(size.scaled(edge, edge, Qt::KeepAspectRatio));
    QImage image = reader.read();
    // A format that can't scale while decoding still ends small.
    if (!image.isNull() && (image.width() > edge || image.height() > edge))
        image = image.scaled(edge, edge, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    return image;
}

void ShelfThumbnailLoader::request(const QString& path, int edge, Done done) {
    edge = std::clamp(edge, 16, maximumEdge);
    const QString key = path + QLatin1Char('@') + QString::number(edge);
    if (const auto cached = m_cache.constFind(key); cached != m_cache.constEnd()) {
        done(*cached);
        return;
    }
    QList<Done>& waiting = m_waiting[key];
    waiting.append(std::move(done));
    if (waiting.size() > 1)
        return;
    if (!m_generations.contains(path))
        m_generations.insert(path, m_nextGeneration++);
    const quint64 generation = m_generations.value(path);
    const QPointer<ShelfThumbnailLoader> self(this);
    m_pool.start([self, key, path, edge, generation] {
        const QImage image = read(path, edge);
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [self, key, image, generation] {
                if (self)
                    self->finished(key, image, generation);
            },
            Qt::QueuedConnection);
    });
}

void ShelfThumbnailLoader::finished(const QString& key, const QImage& image, quint64 generation) {
    const QString path = pathOf(key);
    if (m_generations.value(path) != generation)
        return;
    if (m_cache.size() >= cacheEntries)
        m_cache.clear();
    m_cache.insert(key, image);
    const QList<Done> waiting = m_waiting.take(key);
    for (const Done& done : waiting)
        done(image);
}

void ShelfThumbnailLoader::forget(const QString& path) {
    if (m_generations.contains(path))
        m_generations.insert(path, m_nextGeneration++);
    const QString prefix = path + QLatin1Char('@');
    m_cache.removeIf([&](const auto& entry) { return entry.key().startsWith(prefix); });
    QList<Done> answered;
    for (auto it = m_waiting.begin(); it != m_waiting.end();) {
        if (it.key().startsWith(prefix)) {
            answered.append(it.value());
            it = m_waiting.erase(it);
        } else {
            ++it;
        }
    }
    for (const Done& done : std::as_const(answered))
        done(QImage());
}

} // namespace vell
