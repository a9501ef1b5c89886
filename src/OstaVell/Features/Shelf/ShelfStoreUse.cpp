// What a person does with the tray beyond adding and removing: drops and the clipboard coming
// in; copies, drags, opening, the file manager and other devices going out.
#include "OstaVell/Features/Shelf/ShelfDeviceSender.h"
#include "OstaVell/Features/Shelf/ShelfFileManager.h"
#include "OstaVell/Features/Shelf/ShelfStore.h"
#include "OstaVell/Support/MenuTracking.h"
#include "OstaVell/Support/UserDefaults.h"
#include "VellPluginSDK/Json/JsonFile.h"

#include <QBuffer>
#include <QClipboard>
#include <QDrag>
#include <QGuiApplication>
#include <QImage>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QPointer>
#include <QQuickItem>
#include <QQuickWindow>
#include <QStandardPaths>

namespace vell {

namespace {

// The types a drop may carry as data of its own. Qt's private formats and the X11 selection's
// bookkeeping targets are no content.
bool isContentType(const QString& format) {
    return format.contains(QLatin1Char('/')) && !format.startsWith(u"application/x-qt");
}

// A small tile under the pointer during a drag: the count when there are several.
QPixmap dragPreview(qsizetype count, qreal ratio) {
    const QSize size(56, 56);
    QPixmap pixmap(size * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath tile;
    tile.addRoundedRect(QRectF(QPointF(), size).adjusted(2, 2, -2, -2), 12, 12);
    painter.fillPath(tile, QColor(255, 255, 255, 46));
    painter.setPen(QColor(255, 255, 255, 220));
    QFont font = painter.font();
    font.setPixelSize(17);
    font.setBold(true);
    painter.setFont(font);
    painter.drawText(QRectF(QPointF(), size), Qt::AlignCenter,
                     count > 1 ? QString::number(count) : QStringLiteral("\u2022"));
    return pixmap;
}

} // namespace

bool ShelfStore::ingest(const QMimeData& data) {
    if (data.hasUrls()) {
        QList<ShelfItem> additions;
        const QList<QUrl> urls = data.urls();
        for (const QUrl& url : urls) {
            if (url.isLocalFile()) {
                if (std::optional<ShelfItem> file = fileItem(url.toLocalFile()))
                    additions.append(*file);
            } else if (url.isValid() && !url.isEmpty()) {
                additions.append(ShelfItem::link(newId ? newId() : QUuid::createUuid(), url, now()));
            }
        }
        if (!additions.isEmpty())
            return insert(additions);
    }
    if (data.hasText() && !data.text().trimmed().isEmpty())
        return addTextOrLink(data.text());
    const QStringList formats = data.formats();
    for (const QString& format : formats)
        if (isContentType(format))
            return addData(data.data(format), format, {});
    return false;
}

bool ShelfStore::pasteFromClipboard() {
    const QMimeData* data = QGuiApplication::clipboard()->mimeData();
    if (!data)
        return false;
    const QList<QUrl> urls = data->hasUrls() ? data->urls() : QList<QUrl>();
    QList<QUrl> files;
    QList<QUrl> links;
    for (const QUrl& url : urls)
        (url.isLocalFile() ? files : links).append(url);
    if (addFiles(files))
        return true;
    if (data->hasImage()) {
        const QImage image = qvariant_cast<QImage>(data->imageData());
        QByteArray png;
        QBuffer buffer(&png);
        if (!image.isNull() && buffer.open(QIODevice::WriteOnly) && image.save(&buffer, "PNG"))
            return storeData(
                png, QStringLiteral("Pasted Image ") + ShelfStorage::timestamp(QDateTime::currentDateTime()),
                QStringLiteral("png"));
    }
    QList<ShelfItem> additions;
    for (const QUrl& link : std::as_const(links))
        if (link.isValid() && !link.isEmpty())
            additions.append(ShelfItem::link(newId ? newId() : QUuid::createUuid(), link, now()));
    if (!additions.isEmpty())
        return insert(additions);
    return data->hasText() && addTextOrLink(data->text());
}

QMimeData* ShelfStore::mimeData(const QStringList& ids) const {
    QList<QUrl> urls;
    QStringList texts;
    for (const ShelfItem& item : selected(ids)) {
        switch (item.kind) {
        case ShelfItem::Kind::file:
            if (const std::optional<QString> path = resolvePath(item))
                urls.append(QUrl::fromLocalFile(*path));
            break;
        case ShelfItem::Kind::link:
            urls.append(item.url);
            texts.append(item.url.toString());
            break;
        case ShelfItem::Kind::text:
            texts.append(item.string);
            break;
        }
    }
    auto* data = new QMimeData;
    if (!urls.isEmpty())
        data->setUrls(urls);
    if (!texts.isEmpty())
        data->setText(texts.join(QLatin1Char('\n')));
    return data;
}

void ShelfStore::copyToPasteboard(const QStringList& ids) const {
    QGuiApplication::clipboard()->setMimeData(mimeData(ids));
}

QList<QUrl> ShelfStore::fileUrls(const QList<ShelfItem>& items, bool withText) const {
    QList<QUrl> urls;
    const QString folder =
        QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation) + QStringLiteral("/OstaVell/Tray/");
    for (const ShelfItem& item : items) {
        if (item.kind == ShelfItem::Kind::file) {
            if (const std::optional<QString> path = resolvePath(item))
                urls.append(QUrl::fromLocalFile(*path));
        } else if (item.kind == ShelfItem::Kind::text && withText) {
            // A folder per item, so that two texts with the same first line never share a file.
            const QString path = folder + ShelfItem::idText(item.id) + QLatin1Char('/') +
                                 ShelfStorage::cleanBaseName(item.displayName) + QStringLiteral(".txt");
            if (JsonFile::write(path, item.string.toUtf8(), JsonFile::privateFolder))
                urls.append(QUrl::fromLocalFile(path));
        }
    }
    return urls;
}

void ShelfStore::open(const QStringList& ids) const {
    const QList<ShelfItem> items = selected(ids);
    QList<QUrl> urls = fileUrls(items, true);
    for (const ShelfItem& item : items)
        if (item.kind == ShelfItem::Kind::link)
            urls.append(item.url);
    ShelfFileManager::open(urls);
}

void ShelfStore::revealInFinder(const QStringList& ids) const {
    ShelfFileManager::reveal(fileUrls(selected(ids), false));
}

void ShelfStore::quickLook(const QStringList& ids) const {
    ShelfFileManager::preview(fileUrls(selected(ids), true));
}

bool ShelfStore::canSendToDevice() const {
    return !ShelfDeviceSender::program().isEmpty();
}

void ShelfStore::sendToDevice(const QStringList& ids) const {
    QStringList shares;
    QStringList texts;
    for (const ShelfItem& item : selected(ids)) {
        if (item.kind == ShelfItem::Kind::file) {
            if (const std::optional<QString> path = resolvePath(item))
                shares.append(*path);
        } else if (item.kind == ShelfItem::Kind::link) {
            shares.append(item.url.toString(QUrl::FullyEncoded));
        } else {
            texts.append(item.string);
        }
    }
    ShelfDeviceSender::send(shares, texts);
}

void ShelfStore::drag(const QStringList& ids, QQuickItem* source) {
    if (selected(ids).isEmpty())
        return;
    // Its source is the store, not the tile: the drop may rebuild the tiles while the drag
    // runs. Qt deletes it when the drag is over, which for X11 can be after exec() returns: the
    // target asks for the data once the drop is made.
    auto* drag = new QDrag(this);
    drag->setMimeData(mimeData(ids));
    const qreal ratio = source && source->window() ? source->window()->devicePixelRatio() : 1.0;
    drag->setPixmap(dragPreview(ids.size(), ratio));
    drag->setHotSpot(QPoint(28, 28));
    // Copy only: a file manager offered a move would take a referenced file from its place.
    const Qt::DropAction done = drag->exec(Qt::CopyAction, Qt::CopyAction);
    if (done != Qt::IgnoreAction && setting(autoRemoveAfterDragKey, autoRemoveAfterDragDefault))
        remove(ids);
}

void ShelfStore::holdPanelOpen(bool held) const {
    if (held)
        MenuTracking::instance()->popoverWillShow();
    else
        MenuTracking::instance()->popoverDidClose();
}

} // namespace vell
