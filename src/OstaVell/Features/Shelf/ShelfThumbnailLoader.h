#pragma once

#include <QHash>
#include <QImage>
#include <QList>
#include <QObject>
#include <QString>
#include <QThreadPool>

#include <functional>

namespace vell {

// Small pictures of the tray's image files, decoded off the main thread with a bound on their
// size, and kept for as long as their files are on the tray. Requests and answers happen on the
// main thread; a result that comes back after its file was forgotten is dropped.
class ShelfThumbnailLoader final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ShelfThumbnailLoader)

public:
    using Done = std::function<void(const QImage&)>;

    // The longest edge a thumbnail is decoded to, whatever is asked.
    static constexpr int maximumEdge = 512;
    static constexpr int cacheEntries = 96;

    static ShelfThumbnailLoader* instance();
    explicit ShelfThumbnailLoader(QObject* parent = nullptr);
    ~ShelfThumbnailLoader() override;

    // done gets the picture, or a null image for a file that is no picture; at once when it is
    // known, else once it is decoded.
    void request(const QString& path, int edge, Done done);
    // The file left the tray or changed: its pictures are dropped, and one on its way is
    // answered with nothing.
    void forget(const QString& path);

    // Reads the file as a picture no larger than edge on its longest side. Any thread.
    static QImage read(const QString& path, int edge);

private:
    void finished(const QString& key, const QImage& image, quint64 generation);

    QThreadPool m_pool;
    QHash<QString, QImage> m_cache;
    QHash<QString, QList<Done>> m_waiting;
    QHash<QString, quint64> m_generations; // per path
    quint64 m_nextGeneration = 1;
};

} // namespace vell
