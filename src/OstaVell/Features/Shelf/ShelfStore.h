#pragma once

#include "OstaVell/Features/Shelf/ShelfItem.h"
#include "OstaVell/Features/Shelf/ShelfLocations.h"
#include "OstaVell/Features/Shelf/ShelfStorage.h"

#include <QDateTime>
#include <QLatin1StringView>
#include <QList>
#include <QObject>
#include <QStringList>
#include <QUrl>
#include <QUuid>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <optional>

class QJSEngine;
class QMimeData;
class QQmlEngine;
class QQuickItem;

namespace vell {

class ShellContributions;
class UserDefaults;

// The tray: the single owner of its items and of shelf.json. A file that exists on disk is
// only referenced; data that exists nowhere else is written into the storage folder and then
// belongs to the tray, which deletes it with its item. Links and text live in the file.
//
// Every change builds the new list, writes it, and only when the write succeeded takes it into
// memory and announces it: a failed write changes nothing and says so in `notice`. A shelf.json
// that can't be read at all is left as it is, never overwritten, and every change is refused.
class ShelfStore final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_DISABLE_COPY_MOVE(ShelfStore)

    // [{id, kind, displayName, filePath, isStoredCopy, url, isImage, icon}] newest first.
    Q_PROPERTY(QVariantList items READ itemMaps NOTIFY itemsChanged)
    Q_PROPERTY(int count READ count NOTIFY itemsChanged)
    Q_PROPERTY(QString notice READ notice NOTIFY noticeChanged)
    Q_PROPERTY(bool storageUnavailable READ storageUnavailable CONSTANT)

public:
    static constexpr QLatin1StringView autoOpenOnDragKey{"shelf.autoOpenOnDrag"};
    static constexpr QLatin1StringView autoRemoveAfterDragKey{"shelf.autoRemoveAfterDrag"};
    static constexpr QLatin1StringView clearOnQuitKey{"shelf.clearOnQuit"};
    static constexpr bool autoOpenOnDragDefault = true;
    static constexpr bool autoRemoveAfterDragDefault = false;
    static constexpr bool clearOnQuitDefault = false;
    // Far more than a tray of names, links and clippings grows to; a bound, so that a stray
    // huge file is never read whole. What would be larger is never written either.
    static constexpr qint64 defaultMaximumFileBytes = 64 * 1024 * 1024;

    static ShelfStore* instance();
    // The QML singleton: the shared instance, owned by C++. It also gives the engine the
    // tiles' thumbnail provider.
    static ShelfStore* create(QQmlEngine* engine, QJSEngine*);
    static void offerViews(ShellContributions& shell);

    ShelfStore(const ShelfLocations& locations, UserDefaults& defaults, QObject* parent = nullptr,
               qint64 maximumFileBytes = defaultMaximumFileBytes);

    const QList<ShelfItem>& items() const { return m_items; }
    QVariantList itemMaps() const { return m_itemMaps; }
    int count() const { return int(m_items.size()); }
    QString notice() const { return m_notice; }
    bool storageUnavailable() const { return m_storageUnavailable; }
    const ShelfLocations& locations() const { return m_locations; }
    std::optional<ShelfItem> item(const QUuid& id) const;

    // What "now" and a fresh id are; tests fix them.
    std::function<QDateTime()> clock;
    std::function<QUuid()> newId;

    // Each answers true when the tray changed and the change is on disk.
    Q_INVOKABLE bool addLink(const QUrl& url);
    Q_INVOKABLE bool addText(const QString& text);
    Q_INVOKABLE bool addTextOrLink(const QString& text);
    // Data that exists nowhere else, of a MIME type, kept in the storage folder.
    bool addData(const QByteArray& data, const QString& mimeType, const QString& suggestedName);
    // Files that exist, referenced where they are; the file dialog's choice.
    Q_INVOKABLE bool addFiles(const QList<QUrl>& urls);
    // A drop: file URLs, else other URLs, else text, else the data of its first type.
    bool ingest(const QMimeData& data);
    Q_INVOKABLE bool pasteFromClipboard();
    // Stored copies go with their items, and only from inside the storage folder.
    Q_INVOKABLE bool remove(const QStringList& ids);
    Q_INVOKABLE bool clear();

    // The file of an item as it is found now: the bookmark first, the last known path after.
    std::optional<QString> resolvePath(const ShelfItem& item) const;
    // What a drag or a copy of the items carries: file and link URLs, and the texts.
    QMimeData* mimeData(const QStringList& ids) const;

    Q_INVOKABLE void copyToPasteboard(const QStringList& ids) const;
    Q_INVOKABLE void open(const QStringList& ids) const;
    Q_INVOKABLE void revealInFinder(const QStringList& ids) const;
    Q_INVOKABLE void quickLook(const QStringList& ids) const;
    // "Send to device" is offered only where KDE Connect's command-line client is installed.
    Q_INVOKABLE bool canSendToDevice() const;
    Q_INVOKABLE void sendToDevice(const QStringList& ids) const;
    // Starts a drag of the items from the tile; after a drop that was taken, and with
    // "shelf.autoRemoveAfterDrag" on, they leave the tray.
    Q_INVOKABLE void drag(const QStringList& ids, QQuickItem* source);
    // A file dialog or a menu over the panel keeps it open while it shows.
    Q_INVOKABLE void holdPanelOpen(bool held) const;

signals:
    void itemsChanged();
    void noticeChanged();

private:
    struct Resolution {
        ShelfItem item;
        std::optional<QString> path;
    };

    void load();
    Resolution resolveAndRepair(const ShelfItem& item) const;
    bool commit(const QList<ShelfItem>& next);
    bool insert(const QList<ShelfItem>& additions);
    // Writes the data under the name into the storage folder and puts its item on the tray.
    bool storeData(const QByteArray& data, const QString& baseName, const QString& extension);
    std::optional<ShelfItem> fileItem(const QString& path) const;
    bool refuse(const QString& sentence);
    void setNotice(const QString& notice);
    void rebuildMaps();
    QDateTime now() const;
    QList<ShelfItem> selected(const QStringList& ids) const;
    // The files to hand to another program: resolved files, and texts written to temporary
    // files when withText; links are left out.
    QList<QUrl> fileUrls(const QList<ShelfItem>& items, bool withText) const;
    bool setting(QLatin1StringView key, bool fallback) const;

    ShelfLocations m_locations;
    ShelfStorage m_storage;
    UserDefaults& m_defaults;
    qint64 m_maximumFileBytes;
    QList<ShelfItem> m_items;
    QVariantList m_itemMaps;
    QString m_notice;
    bool m_storageUnavailable = false;
};

} // namespace vell
