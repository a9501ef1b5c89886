#include "OstaVell/Features/Shelf/ShelfDropArea.h"

#include "OstaVell/Features/Shelf/ShelfStore.h"

#include <QMimeData>

namespace vell {

ShelfDropArea::ShelfDropArea(QQuickItem* parent)
    : QQuickItem(parent) {
    setFlag(ItemAcceptsDrops, true);
}

bool ShelfDropArea::accepts(const QDropEvent* event) const {
    // A tile dragged back onto its own tray is no new content.
    if (event->source() == ShelfStore::instance())
        return false;
    const QMimeData* data = event->mimeData();
    if (!data)
        return false;
    if (data->hasUrls() || data->hasText())
        return true;
    const QStringList formats = data->formats();
    return std::any_of(formats.begin(), formats.end(), [](const QString& format) {
        return format.contains(QLatin1Char('/')) && !format.startsWith(u"application/x-qt");
    });
}

void ShelfDropArea::setContainsDrag(bool contains) {
    if (m_containsDrag == contains)
        return;
    m_containsDrag = contains;
    emit containsDragChanged();
}

void ShelfDropArea::dragEnterEvent(QDragEnterEvent* event) {
    if (!accepts(event)) {
        event->ignore();
        return;
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
    setContainsDrag(true);
}

void ShelfDropArea::dragMoveEvent(QDragMoveEvent* event) {
    if (!accepts(event)) {
        event->ignore();
        return;
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void ShelfDropArea::dragLeaveEvent(QDragLeaveEvent*) {
    setContainsDrag(false);
}

void ShelfDropArea::dropEvent(QDropEvent* event) {
    setContainsDrag(false);
    if (!accepts(event)) {
        event->ignore();
        return;
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
    emit dropped(ShelfStore::instance()->ingest(*event->mimeData()));
}

} // namespace vell
