#include "OstaVell/Features/Shelf/ShelfStore.h"

#include "OstaVell/Features/Shelf/ShelfBookmark.h"
#include "OstaVell/Features/Shelf/ShelfFile.h"
#include "OstaVell/Features/Shelf/ShelfLogging.h"
#include "OstaVell/Features/Shelf/ShelfThumbnailLoader.h"
#include "OstaVell/Features/Shelf/ShelfThumbnailProvider.h"
#include "OstaVell/Support/ShellContributions.h"
#include "OstaVell/Support/UserDefaults.h"
#include "VellPluginSDK/Json/JsonFile.h"

#include <QDir>
#include <QFileInfo>
#include <QJSEngine>
#include <QMimeDatabase>
#include <QQmlEngine>
#include <QSet>

Q_LOGGING_CATEGORY(lcShelfStore, "OstaVell shelf", QtInfoMsg)

namespace vell {

namespace {

QString symbolFor(const ShelfItem& item, const QMimeType& type) {
    if (item.kind == ShelfItem::Kind::link)
        return QStringLiteral("link");
    if (item.kind == ShelfItem::Kind::text)
        return QStringLiteral("text.alignleft");
    const QString name = type.name();
    if (name == u"inode/directory")
        return QStringLiteral("folder");
    if (name.startsWith(u"image/"))
        return QStringLiteral("photo");
    if (name.startsWith(u"video/"))
        return QStringLiteral("film");
    if (name.startsWith(u"audio/"))
        return QStringLiteral("music.note");
    if (name == u"application/pdf")
        return QStringLiteral("doc.richtext");
    if (type.inherits(QStringLiteral("application/zip")) ||
        type.inherits(QStringLiteral("application/x-tar")) || name.contains(u"compressed") ||
        name.contains(u"archive"))
        return QStringLiteral("doc.zipper");
    if (type.inherits(QStringLiteral("text/plain")))
        return QStringLiteral("doc.text");
    return QStringLiteral("doc");
}

QString kindName(ShelfItem::Kind kind) {
    switch (kind) {
    case ShelfItem::Kind::file:
        return QStringLiteral("file");
    case ShelfItem::Kind::link:
        return QStringLiteral("link");
    case ShelfItem::Kind::text:
        return QStringLiteral("text");
    }
    return {};
}

// The part of a suggested name before its extension: "photo.png" is "photo"; a name that
// starts with its only dot (".png") has none.
QString withoutExtension(const QString& name) {
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    return dot > 0 ? name.left(dot) : name;
}

QString extensionOf(const QString& name) {
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    return dot > 0 ? name.mid(dot + 1) : QString();
}

} // namespace

ShelfStore* ShelfStore::instance() {
    static ShelfStore* p = new ShelfStore(ShelfLocations(), *UserDefaults::instance());
    return p;
}

ShelfStore* ShelfStore::create(QQmlEngine* engine, QJSEngine*) {
    ShelfStore* store = instance();
    QJSEngine::setObjectOwnership(store, QJSEngine::CppOwnership);
    if (engine && !engine->imageProvider(ShelfThumbnailProvider::name.toString()))
        engine->addImageProvider(ShelfThumbnailProvider::name.toString(), new ShelfThumbnailProvider);
    return store;
}

void ShelfStore::offerViews(ShellContributions& shell) {
    shell.offerTab(NotchTab::shelf, {}, QUrl(QStringLiteral("qrc:/qt/qml/OstaVell/Shelf/qml/ShelfView.qml")));
}

ShelfStore::ShelfStore(const ShelfLocations& locations, UserDefaults& defaults, QObject* parent,
                       qint64 maximumFileBytes)
    : QObject(parent)
    , m_locations(locations)
    , m_storage(locations.storageDirectory())
    , m_defaults(defaults)
    , m_maximumFileBytes(maximumFileBytes) {
    load();
    rebuildMaps();
}

std::optional<ShelfItem> ShelfStore::item(const QUuid& id) const {
    for (const ShelfItem& item : m_items)
        if (item.id == id)
            return item;
    return std::nullopt;
}

QDateTime ShelfStore::now() const {
    // Whole seconds: the file keeps no more, and what is in memory is what the file says.
    const QDateTime moment = clock ? clock() : QDateTime::currentDateTimeUtc();
    return QDateTime::fromSecsSinceEpoch(moment.toSecsSinceEpoch(), Qt::UTC);
}

bool ShelfStore::setting(QLatin1StringView key, bool fallback) const {
    return m_defaults.boolValue(QString(key), fallback);
}

void ShelfStore::load() {
    const QString path = m_locations.storeFile();
    const FileContents file = JsonFile::readBytes(path, m_maximumFileBytes);
    if (file.missing())
        return;
    if (!file.read()) {
        const QString reason = file.status == FileContents::Status::TooLarge
                                   ? QStringLiteral("it is larger than the tray's file ever grows")
                                   : file.error;
        qCWarning(lcShelfStore, "can't read shelf.json (%s); leaving it as it is", qUtf8Printable(reason));
        m_storageUnavailable = true;
        m_notice = QStringLiteral("The tray's file can't be read (%1). It is left as it is, and nothing on "
                                  "the tray can be changed until it can be read.")
                       .arg(reason);
        return;
    }

    QString error;
    const std::optional<QList<ShelfItem>> decoded = ShelfFile::decode(file.bytes, &error);
    if (!decoded) {
        qCWarning(lcShelfStore, "failed to decode shelf.json (%s); backing it up", qUtf8Printable(error));
        const QString suffix =
            QStringLiteral(".corrupt-") + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
        if (!JsonFile::moveAside(path, suffix)) {
            // Where it can't be moved aside it would be overwritten by the next save.
            m_storageUnavailable = true;
            m_notice = QStringLiteral("The tray's file is damaged and can't be moved aside. It is left as it "
                                      "is, and nothing on the tray can be changed.");
        }
        return;
    }

    QList<ShelfItem> repaired;
    repaired.reserve(decoded->size());
    for (const ShelfItem& item : *decoded)
        repaired.append(item.kind == ShelfItem::Kind::file ? resolveAndRepair(item).item : item);
    const QByteArray bytes = ShelfFile::encode(repaired);
    if (bytes == file.bytes) {
        m_items = repaired;
        return;
    }
    // The repairs are worth keeping only once they are on disk; until then the items stay as
    // the file has them, and each is resolved again when it is used.
    const FileResult saved = bytes.size() <= m_maximumFileBytes
                                 ? JsonFile::write(path, bytes)
                                 : FileResult::failed(QStringLiteral("the repaired list is too large"));
    if (!saved) {
        qCWarning(lcShelfStore, "save failed: %s", qUtf8Printable(saved.error()));
        m_notice = QStringLiteral("The tray could not be saved (%1).").arg(saved.error());
        m_items = *decoded;
        return;
    }
    m_items = repaired;
}

ShelfStore::Resolution ShelfStore::resolveAndRepair(const ShelfItem& item) const {
    Resolution resolution{item, std::nullopt};
    if (item.kind != ShelfItem::Kind::file)
        return resolution;
    if (!item.bookmark.isEmpty()) {
        if (const auto found = ShelfBookmark::resolve(item.bookmark, QDir::homePath())) {
            if (found->stale) {
                const QByteArray fresh = ShelfBookmark::make(found->path);
                if (!fresh.isEmpty())
                    resolution.item.bookmark = fresh;
            }
            resolution.item.filePath = found->path;
            resolution.path = found->path;
            return resolution;
        }
    }
    if (item.filePath && QFileInfo::exists(*item.filePath)) {
        const QByteArray fresh = ShelfBookmark::make(*item.filePath);
        if (!fresh.isEmpty())
            resolution.item.bookmark = fresh;
        resolution.path = *item.filePath;
    }
    return resolution;
}

std::optional<QString> ShelfStore::resolvePath(const ShelfItem& item) const {
    return resolveAndRepair(item).path;
}

bool ShelfStore::refuse(const QString& sentence) {
    setNotice(sentence);
    return false;
}

void ShelfStore::setNotice(const QString& notice) {
    if (m_notice == notice)
        return;
    m_notice = notice;
    emit noticeChanged();
}

bool ShelfStore::commit(const QList<ShelfItem>& next) {
    if (m_storageUnavailable)
        return refuse(m_notice);
    const QByteArray bytes = ShelfFile::encode(next);
    if (bytes.size() > m_maximumFileBytes)
        return refuse(QStringLiteral("The tray would grow larger than its file may be, so the change was not "
                                     "kept."));
    const FileResult saved = JsonFile::write(m_locations.storeFile(), bytes);
    if (!saved) {
        qCWarning(lcShelfStore, "save failed: %s", qUtf8Printable(saved.error()));
        return refuse(QStringLiteral("The tray could not be saved (%1), so the change was not kept.")
                          .arg(saved.error()));
    }
    m_items = next;
    rebuildMaps();
    setNotice({});
    emit itemsChanged();
    return true;
}

bool ShelfStore::insert(const QList<ShelfItem>& additions) {
    if (additions.isEmpty())
        return false;
    QList<ShelfItem> next = m_items;
    for (const ShelfItem& addition : additions) {
        const QString key = addition.identityKey();
        const auto same = std::find_if(next.begin(), next.end(),
                                       [&](const ShelfItem& item) { return item.identityKey() == key; });
        if (same == next.end()) {
            next.prepend(addition);
            continue;
        }
        ShelfItem existing = *same;
        next.erase(same);
        existing.addedAt = now();
        next.prepend(existing);
    }
    return commit(next);
}

std::optional<ShelfItem> ShelfStore::fileItem(const QString& path) const {
    const QFileInfo info(path);
    if (path.isEmpty() || !info.exists())
        return std::nullopt;
    const QString standard = QDir::cleanPath(info.absoluteFilePath());
    return ShelfItem::file(newId ? newId() : QUuid::createUuid(), ShelfBookmark::make(standard),
                           QFileInfo(standard).fileName(), now(), standard, false);
}

bool ShelfStore::addLink(const QUrl& url) {
    if (!url.isValid() || url.isEmpty())
        return false;
    return insert({ShelfItem::link(newId ? newId() : QUuid::createUuid(), url, now())});
}

bool ShelfStore::addText(const QString& text) {
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return false;
    return insert({ShelfItem::text(newId ? newId() : QUuid::createUuid(), trimmed, now())});
}

bool ShelfStore::addTextOrLink(const QString& text) {
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return false;
    // A web address after a word is part of a sentence, not a link.
    if (std::any_of(trimmed.begin(), trimmed.end(), [](QChar c) { return c.isSpace(); }))
        return addText(trimmed);
    const QUrl url(trimmed, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (url.isValid() && (scheme == u"http" || scheme == u"https"))
        return addLink(url);
    return addText(trimmed);
}

bool ShelfStore::addData(const QByteArray& data, const QString& mimeType, const QString& suggestedName) {
    if (data.isEmpty())
        return false;
    QString extension = ShelfStorage::extensionForType(mimeType);
    if (extension.isEmpty())
        extension = extensionOf(suggestedName);
    const QString base = suggestedName.isEmpty() ? QStringLiteral("Dropped ") +
                                                       ShelfStorage::timestamp(QDateTime::currentDateTime())
                                                 : withoutExtension(suggestedName);
    return storeData(data, base, extension);
}

bool ShelfStore::storeData(const QByteArray& data, const QString& baseName, const QString& extension) {
    // Nothing is written for a tray that can't keep it.
    if (m_storageUnavailable)
        return refuse(m_notice);
    QString error;
    const std::optional<QString> path = m_storage.write(data, baseName, extension, &error);
    if (!path) {
        qCWarning(lcShelfStore, "failed to store dropped data: %s", qUtf8Printable(error));
        return refuse(QStringLiteral("The dropped data could not be stored (%1).").arg(error));
    }
    const QString standard = QDir::cleanPath(*path);
    const ShelfItem item =
        ShelfItem::file(newId ? newId() : QUuid::createUuid(), ShelfBookmark::make(standard),
                        QFileInfo(standard).fileName(), now(), standard, true);
    if (insert({item}))
        return true;
    // The tray didn't take it, so nothing owns the copy.
    m_storage.removeOwned(standard);
    return false;
}

bool ShelfStore::addFiles(const QList<QUrl>& urls) {
    QList<ShelfItem> additions;
    for (const QUrl& url : urls)
        if (url.isLocalFile())
            if (std::optional<ShelfItem> item = fileItem(url.toLocalFile()))
                additions.append(*item);
    return insert(additions);
}

bool ShelfStore::remove(const QStringList& ids) {
    QSet<QUuid> wanted;
    for (const QString& id : ids)
        wanted.insert(QUuid::fromString(id));
    QList<ShelfItem> next;
    QList<ShelfItem> removed;
    for (const ShelfItem& item : std::as_const(m_items))
        (wanted.contains(item.id) ? removed : next).append(item);
    if (removed.isEmpty() || !commit(next))
        return false;
    // After the save: a copy left behind by a crash in between costs some space, while a
    // copy deleted before a failed save would leave its item pointing at nothing.
    for (const ShelfItem& item : std::as_const(removed)) {
        if (item.isStoredCopy && item.filePath)
            m_storage.removeOwned(*item.filePath);
        if (item.filePath)
            ShelfThumbnailLoader::instance()->forget(*item.filePath);
    }
    return true;
}

bool ShelfStore::clear() {
    QStringList ids;
    for (const ShelfItem& item : std::as_const(m_items))
        ids.append(ShelfItem::idText(item.id));
    return remove(ids);
}

QList<ShelfItem> ShelfStore::selected(const QStringList& ids) const {
    QSet<QUuid> wanted;
    for (const QString& id : ids)
        wanted.insert(QUuid::fromString(id));
    QList<ShelfItem> found;
    for (const ShelfItem& item : m_items)
        if (wanted.contains(item.id))
            found.append(item);
    return found;
}

void ShelfStore::rebuildMaps() {
    QMimeDatabase mimes;
    m_itemMaps.clear();
    m_itemMaps.reserve(m_items.size());
    for (const ShelfItem& item : std::as_const(m_items)) {
        const QString path = item.filePath.value_or(QString());
        // By name only: reading every file to sniff its type would wait on the disk.
        const QMimeType type = item.kind == ShelfItem::Kind::file
                                   ? mimes.mimeTypeForFile(path, QMimeDatabase::MatchExtension)
                                   : QMimeType();
        m_itemMaps.append(QVariantMap{
            {QStringLiteral("id"), ShelfItem::idText(item.id)},
            {QStringLiteral("kind"), kindName(item.kind)},
            {QStringLiteral("displayName"), item.displayName},
            {QStringLiteral("filePath"), path},
            {QStringLiteral("isStoredCopy"), item.isStoredCopy},
            {QStringLiteral("url"), item.kind == ShelfItem::Kind::link ? item.url.toString() : QString()},
            {QStringLiteral("isImage"),
             item.kind == ShelfItem::Kind::file && type.name().startsWith(u"image/")},
            {QStringLiteral("icon"), symbolFor(item, type)},
        });
    }
}

} // namespace vell
