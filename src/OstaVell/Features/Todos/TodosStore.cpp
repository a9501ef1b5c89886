#include "OstaVell/Features/Todos/TodosStore.h"

#include "OstaVell/Support/ShellContributions.h"
#include "OstaVell/Support/UserDefaults.h"
#include "VellPluginSDK/Json/JsonFile.h"

#include <QFileInfo>
#include <QJSEngine>
#include <QLoggingCategory>
#include <QStandardPaths>

#include <algorithm>

namespace vell {

Q_LOGGING_CATEGORY(lcTodos, "OstaVell Todos", QtInfoMsg)

namespace {

qsizetype indexOf(const QList<TodoItem>& items, const QString& id) {
    const QUuid uuid = QUuid::fromString(id);
    if (uuid.isNull())
        return -1;
    const auto found =
        std::find_if(items.cbegin(), items.cend(), [&uuid](const TodoItem& item) { return item.id == uuid; });
    return found == items.cend() ? -1 : found - items.cbegin();
}

QVariantMap describe(const TodoItem& item) {
    return {
        {QStringLiteral("id"), item.id.toString(QUuid::WithoutBraces).toUpper()},
        {QStringLiteral("title"), item.title},
        {QStringLiteral("done"), item.done},
        {QStringLiteral("favorite"), item.favorite},
        {QStringLiteral("createdAt"), item.createdAt},
        {QStringLiteral("completedAt"), item.completedAt ? QVariant(*item.completedAt) : QVariant()},
    };
}

QVariantList describe(const QList<TodoItem>& items) {
    QVariantList list;
    list.reserve(items.size());
    for (const TodoItem& item : items)
        list.append(describe(item));
    return list;
}

} // namespace

TodosStore* TodosStore::instance() {
    static TodosStore* p = new TodosStore(defaultFilePath());
    return p;
}

TodosStore* TodosStore::create(QQmlEngine*, QJSEngine*) {
    TodosStore* store = instance();
    QJSEngine::setObjectOwnership(store, QJSEngine::CppOwnership);
    return store;
}

QString TodosStore::defaultFilePath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/OstaVell/todos.json");
}

void TodosStore::offerViews(ShellContributions& shell) {
    const auto view = [](const char* file) {
        return QUrl(QStringLiteral("qrc:/qt/qml/OstaVell/Todos/qml/") + QLatin1String(file));
    };
    shell.offerTab(NotchTab::tools, QStringLiteral("To-dos"), view("TodosView.qml"));
    shell.offerWing(QStringLiteral("todos"), view("TodoCountWing.qml"));
    shell.offerSettingsPane(QStringLiteral("To-dos"), view("TodosSettingsPane.qml"));
}

TodosStore::TodosStore(const QString& filePath, Clock clock, UserDefaults* defaults, QObject* parent)
    : QObject(parent)
    , m_filePath(filePath)
    , m_clock(clock ? std::move(clock) : Clock([] { return QDateTime::currentDateTimeUtc(); }))
    , m_defaults(defaults ? defaults : UserDefaults::instance()) {
    connect(m_defaults, &UserDefaults::changed, this, [this](const QString& key) {
        if (key.isEmpty() || key == autoArchiveHoursKey || key == showArchivedKey)
            emit settingsChanged();
    });
    // A folder that can't be made shows up as the first save's failure.
    JsonFile::makeFolder(QFileInfo(m_filePath).absolutePath());
    load();
    m_sweepTimer.setInterval(sweepIntervalMs);
    m_sweepTimer.setTimerType(Qt::CoarseTimer);
    connect(&m_sweepTimer, &QTimer::timeout, this, [this] { archiveSweep(now()); });
    m_sweepTimer.start();
}

void TodosStore::load() {
    const FileContents file = JsonFile::readBytes(m_filePath, maximumFileBytes);
    switch (file.status) {
    case FileContents::Status::Missing:
        return;
    case FileContents::Status::TooLarge:
        return refuseChanges(QStringLiteral("it is larger than a to-do list ever grows"));
    case FileContents::Status::Unusable:
        return refuseChanges(file.error);
    case FileContents::Status::Read:
        break;
    }
    QString error;
    if (std::optional<TodosDocument> document = TodosDocument::fromData(file.bytes, &error)) {
        m_document = std::move(*document);
        return;
    }
    const QString name = QFileInfo(m_filePath).fileName();
    qCWarning(lcTodos, "failed to decode %s (%s); backing it up and starting fresh", qUtf8Printable(name),
              qUtf8Printable(error));
    // Starting fresh writes over the path, so a file that could not be put aside must stop that.
    if (const FileResult aside = JsonFile::moveAside(m_filePath, QStringLiteral(".corrupt")); !aside) {
        qCWarning(lcTodos, "could not back up %s: %s", qUtf8Printable(name), qUtf8Printable(aside.error()));
        refuseChanges(aside.error());
    }
}

void TodosStore::refuseChanges(const QString& reason) {
    m_storageUnavailable = true;
    m_notice = QStringLiteral("The to-do list at %1 can't be read (%2). It is left as it is, and no change "
                              "can be saved until it can be read.")
                   .arg(m_filePath, reason);
}

bool TodosStore::commit(TodosDocument next) {
    if (m_storageUnavailable) {
        // The notice already says why; it stays.
        return false;
    }
    const QByteArray data = next.toData();
    // The loader refuses a file over the bound, so such a file is never written.
    const FileResult saved =
        data.size() > maximumFileBytes
            ? FileResult::failed(
                  QStringLiteral("the list would be larger than %1 bytes").arg(maximumFileBytes))
            : JsonFile::write(m_filePath, data);
    if (!saved) {
        qCWarning(lcTodos, "save failed: %s", qUtf8Printable(saved.error()));
        setNotice(
            QStringLiteral("This change wasn't saved (%1), so the list stays as it was.").arg(saved.error()));
        return false;
    }
    m_document = std::move(next);
    setNotice(QString());
    emit listsChanged();
    return true;
}

QDateTime TodosStore::now() const {
    return TodoItem::toFileResolution(m_clock());
}

void TodosStore::setNotice(const QString& notice) {
    if (m_notice == notice)
        return;
    m_notice = notice;
    emit noticeChanged();
}

QVariantList TodosStore::items() const {
    return describe(favoritesFirst(m_document.active));
}

QVariantList TodosStore::archivedItems() const {
    return describe(m_document.archived);
}

int TodosStore::openCount() const {
    return int(std::count_if(m_document.active.cbegin(), m_document.active.cend(),
                             [](const TodoItem& item) { return !item.done; }));
}

int TodosStore::doneCount() const {
    return int(m_document.active.size()) - openCount();
}

double TodosStore::autoArchiveHours() const {
    return m_defaults->doubleValue(autoArchiveHoursKey, defaultAutoArchiveHours);
}

void TodosStore::setAutoArchiveHours(double hours) {
    m_defaults->setValue(autoArchiveHoursKey, hours);
}

bool TodosStore::showArchived() const {
    return m_defaults->boolValue(showArchivedKey, false);
}

void TodosStore::setShowArchived(bool show) {
    m_defaults->setValue(showArchivedKey, show);
}

bool TodosStore::add(const QString& title) {
    const QString trimmed = title.trimmed();
    if (trimmed.isEmpty())
        return false;
    TodosDocument next = m_document;
    next.active.append(TodoItem{QUuid::createUuid(), trimmed, false, false, now(), std::nullopt});
    return commit(std::move(next));
}

bool TodosStore::toggleDone(const QString& id) {
    const qsizetype index = indexOf(m_document.active, id);
    if (index < 0)
        return false;
    TodosDocument next = m_document;
    TodoItem& item = next.active[index];
    item.done = !item.done;
    // Done again later starts the delay anew.
    item.completedAt = item.done ? std::optional(now()) : std::nullopt;
    return commit(std::move(next));
}

bool TodosStore::toggleFavorite(const QString& id) {
    const qsizetype index = indexOf(m_document.active, id);
    if (index < 0)
        return false;
    TodosDocument next = m_document;
    next.active[index].favorite = !next.active[index].favorite;
    return commit(std::move(next));
}

bool TodosStore::deleteItem(const QString& id) {
    const qsizetype index = indexOf(m_document.active, id);
    if (index < 0)
        return false;
    TodosDocument next = m_document;
    next.active.removeAt(index);
    return commit(std::move(next));
}

bool TodosStore::deleteArchived(const QString& id) {
    const qsizetype index = indexOf(m_document.archived, id);
    if (index < 0)
        return false;
    TodosDocument next = m_document;
    next.archived.removeAt(index);
    return commit(std::move(next));
}

bool TodosStore::restore(const QString& id) {
    const qsizetype index = indexOf(m_document.archived, id);
    if (index < 0)
        return false;
    TodosDocument next = m_document;
    TodoItem item = next.archived.takeAt(index);
    item.done = false;
    item.completedAt.reset();
    next.active.append(item);
    return commit(std::move(next));
}

bool TodosStore::clearArchive() {
    if (m_document.archived.isEmpty())
        return false;
    TodosDocument next = m_document;
    next.archived.clear();
    return commit(std::move(next));
}

bool TodosStore::archiveSweep(const QDateTime& now) {
    const double hours = autoArchiveHours();
    if (!(hours > 0))
        return false;
    const QDateTime cutoff = now.addMSecs(qint64(hours * -3600.0 * 1000.0));
    TodosDocument next = m_document;
    next.active.clear();
    for (const TodoItem& item : m_document.active) {
        if (item.done && item.completedAt && *item.completedAt <= cutoff)
            next.archived.append(item);
        else
            next.active.append(item);
    }
    // Nothing due, nothing written: the sweep runs every minute.
    if (next.active.size() == m_document.active.size())
        return false;
    return commit(std::move(next));
}

QList<TodoItem> TodosStore::favoritesFirst(const QList<TodoItem>& items) {
    QList<TodoItem> ordered = items;
    std::stable_partition(ordered.begin(), ordered.end(), [](const TodoItem& item) { return item.favorite; });
    return ordered;
}

} // namespace vell
