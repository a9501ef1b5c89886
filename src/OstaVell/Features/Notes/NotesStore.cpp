#include "OstaVell/Features/Notes/NotesStore.h"

#include "OstaVell/Features/Notes/NotesFile.h"
#include "OstaVell/Support/FileManagerReveal.h"
#include "OstaVell/Support/ShellContributions.h"
#include "OstaVell/Support/UserDefaults.h"
#include "VellPluginSDK/Json/JsonFile.h"

#include <QClipboard>
#include <QCoreApplication>
#include <QFileInfo>
#include <QGuiApplication>
#include <QJSEngine>
#include <QLoggingCategory>
#include <QStandardPaths>

namespace vell {

Q_LOGGING_CATEGORY(lcNotes, "OstaVell Notes", QtInfoMsg)

namespace {

std::optional<QUuid> uuidOf(const QString& text) {
    const QUuid id = QUuid::fromString(text);
    return id.isNull() ? std::nullopt : std::optional(id);
}

QString idText(const QUuid& id) {
    return id.toString(QUuid::WithoutBraces).toUpper();
}

} // namespace

NotesStore* NotesStore::instance() {
    static NotesStore* p = new NotesStore(defaultFilePath());
    return p;
}

NotesStore* NotesStore::create(QQmlEngine*, QJSEngine*) {
    NotesStore* store = instance();
    QJSEngine::setObjectOwnership(store, QJSEngine::CppOwnership);
    return store;
}

QString NotesStore::defaultFilePath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/OstaVell/notes.json");
}

void NotesStore::offerViews(ShellContributions& shell) {
    const auto view = [](const char* file) {
        return QUrl(QStringLiteral("qrc:/qt/qml/OstaVell/Notes/qml/") + QLatin1String(file));
    };
    shell.offerTab(NotchTab::tools, QStringLiteral("Notes"), view("NotesView.qml"));
    shell.offerSettingsPane(QStringLiteral("Notes"), view("NotesSettingsPane.qml"));
}

NotesStore::NotesStore(const QString& filePath, std::chrono::milliseconds saveDelay, UserDefaults* defaults,
                       QObject* parent)
    : QObject(parent)
    , m_filePath(filePath)
    , m_defaults(defaults ? defaults : UserDefaults::instance()) {
    m_saveTimer.setSingleShot(true);
    m_saveTimer.setInterval(saveDelay);
    connect(&m_saveTimer, &QTimer::timeout, this, &NotesStore::saveNow);
    if (QCoreApplication* app = QCoreApplication::instance())
        connect(app, &QCoreApplication::aboutToQuit, this, &NotesStore::saveNow);
    connect(m_defaults, &UserDefaults::changed, this, [this](const QString& key) {
        if (key.isEmpty() || key == fontSizeKey || key == sortOrderKey || key == selectedNoteKey)
            emit settingsChanged();
        if (key.isEmpty() || key == sortOrderKey)
            emit sortedNotesChanged();
    });
    load();
}

void NotesStore::load() {
    const FileContents file = JsonFile::readBytes(m_filePath, maximumFileBytes);
    switch (file.status) {
    case FileContents::Status::Missing:
        return;
    case FileContents::Status::TooLarge:
        return refuseChanges(QStringLiteral("it is larger than notes ever grow"));
    case FileContents::Status::Unusable:
        return refuseChanges(file.error);
    case FileContents::Status::Read:
        break;
    }
    QString error;
    if (std::optional<NotesFile> contents = NotesFile::fromData(file.bytes, &error)) {
        m_notes = contents->notes;
        return;
    }
    qCWarning(lcNotes, "load failed, keeping corrupt file aside: %s", qUtf8Printable(error));
    // The next save writes over the path, so a file that could not be put aside must stop it.
    if (const FileResult aside = JsonFile::moveAside(m_filePath, QStringLiteral(".corrupt")); !aside) {
        qCWarning(lcNotes, "could not set %s aside: %s", qUtf8Printable(m_filePath),
                  qUtf8Printable(aside.error()));
        refuseChanges(aside.error());
    }
}

void NotesStore::refuseChanges(const QString& reason) {
    m_storageUnavailable = true;
    m_notice = QStringLiteral("The notes file at %1 can't be read (%2). It is left as it is, and no note "
                              "can be saved until it can be read.")
                   .arg(m_filePath, reason);
}

QVariantList NotesStore::sortedNotes() const {
    QVariantList list;
    const QList<NotesItem> sorted = NotesSortOrder::sorted(m_notes, order());
    list.reserve(sorted.size());
    for (const NotesItem& note : sorted) {
        list.append(QVariantMap{
            {QStringLiteral("id"), idText(note.id)},
            {QStringLiteral("preview"), note.firstLinePreview()},
            {QStringLiteral("createdAt"), note.createdAt},
            {QStringLiteral("updatedAt"), note.updatedAt},
        });
    }
    return list;
}

double NotesStore::fontSize() const {
    return m_defaults->doubleValue(fontSizeKey, defaultFontSize);
}

void NotesStore::setFontSize(double size) {
    m_defaults->setValue(fontSizeKey, size);
}

QString NotesStore::sortOrder() const {
    return NotesSortOrder::raw(order());
}

void NotesStore::setSortOrder(const QString& raw) {
    if (NotesSortOrder::fromRaw(raw))
        m_defaults->setValue(sortOrderKey, raw);
}

NotesSortOrder::Order NotesStore::order() const {
    return NotesSortOrder::fromRaw(m_defaults->stringValue(sortOrderKey))
        .value_or(NotesSortOrder::defaultOrder);
}

QVariantList NotesStore::sortOrders() const {
    QVariantList list;
    for (const NotesSortOrder::Order order : NotesSortOrder::all())
        list.append(QVariantMap{{QStringLiteral("raw"), NotesSortOrder::raw(order)},
                                {QStringLiteral("label"), NotesSortOrder::label(order)}});
    return list;
}

QString NotesStore::selectedNoteID() const {
    const std::optional<QUuid> id = uuidOf(m_defaults->stringValue(selectedNoteKey));
    return id ? idText(*id) : QString();
}

void NotesStore::setSelectedNoteID(const QString& id) {
    const std::optional<QUuid> uuid = uuidOf(id);
    if (uuid)
        m_defaults->setValue(selectedNoteKey, idText(*uuid));
    else
        m_defaults->remove(selectedNoteKey);
}

std::optional<NotesItem> NotesStore::note(const std::optional<QUuid>& id) const {
    if (!id)
        return std::nullopt;
    const qsizetype index = indexOf(*id);
    if (index < 0)
        return std::nullopt;
    return m_notes.at(index);
}

std::optional<QUuid> NotesStore::addNote(const QString& text, const QDateTime& now) {
    if (m_storageUnavailable)
        return std::nullopt;
    const NotesItem item{QUuid::createUuid(), text, now.toUTC(), now.toUTC()};
    m_notes.prepend(item);
    changed();
    return item.id;
}

bool NotesStore::updateText(const QUuid& id, const QString& text) {
    const qsizetype index = indexOf(id);
    if (index < 0 || m_storageUnavailable || m_notes.at(index).text == text)
        return false;
    NotesItem& item = m_notes[index];
    item.text = text;
    item.updatedAt = QDateTime::currentDateTimeUtc();
    changed();
    return true;
}

bool NotesStore::deleteNote(const QUuid& id) {
    const qsizetype index = indexOf(id);
    if (index < 0 || m_storageUnavailable)
        return false;
    m_notes.removeAt(index);
    changed();
    return true;
}

std::optional<QUuid> NotesStore::duplicateNote(const QUuid& id) {
    const qsizetype index = indexOf(id);
    if (index < 0)
        return std::nullopt;
    return addNote(m_notes.at(index).text);
}

QString NotesStore::newNote() {
    const std::optional<QUuid> id = addNote();
    return id ? idText(*id) : QString();
}

QString NotesStore::text(const QString& id) const {
    const std::optional<NotesItem> found = note(uuidOf(id));
    return found ? found->text : QString();
}

bool NotesStore::setText(const QString& id, const QString& text) {
    const std::optional<QUuid> uuid = uuidOf(id);
    return uuid && updateText(*uuid, text);
}

QString NotesStore::duplicate(const QString& id) {
    const std::optional<QUuid> uuid = uuidOf(id);
    const std::optional<QUuid> copy = uuid ? duplicateNote(*uuid) : std::nullopt;
    return copy ? idText(*copy) : QString();
}

bool NotesStore::remove(const QString& id) {
    const std::optional<QUuid> uuid = uuidOf(id);
    return uuid && deleteNote(*uuid);
}

void NotesStore::copyText(const QString& id) const {
    const std::optional<NotesItem> found = note(uuidOf(id));
    if (found && qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        QGuiApplication::clipboard()->setText(found->text);
}

void NotesStore::revealInFileManager() const {
    FileManagerReveal::showItems({m_filePath}, [](const QString& error) {
        if (!error.isEmpty())
            qCWarning(lcNotes, "could not show the notes file: %s", qUtf8Printable(error));
    });
}

void NotesStore::changed() {
    emit notesChanged();
    emit sortedNotesChanged();
    scheduleSave();
}

void NotesStore::scheduleSave() {
    if (m_storageUnavailable)
        return;
    setDirty(true);
    // Restarting the one timer drops the wait of the previous edit.
    m_saveTimer.start();
}

void NotesStore::saveNow() {
    m_saveTimer.stop();
    if (!m_dirty || m_storageUnavailable)
        return;

    const QByteArray data = NotesFile{NotesFile::currentVersion, m_notes}.toData();
    // The loader refuses a file over the bound, so such a file is never written.
    const FileResult saved =
        data.size() > maximumFileBytes
            ? FileResult::failed(
                  QStringLiteral("the notes would be larger than %1 bytes").arg(maximumFileBytes))
            : JsonFile::write(m_filePath, data);
    if (!saved) {
        qCWarning(lcNotes, "save failed: %s", qUtf8Printable(saved.error()));
        setNotice(
            QStringLiteral("Your notes weren't saved (%1). They are kept here, and saving is tried again "
                           "with your next change and when OstaVell quits.")
                .arg(saved.error()));
        return;
    }
    setNotice(QString());
    setDirty(false);
}

qsizetype NotesStore::indexOf(const QUuid& id) const {
    for (qsizetype i = 0; i < m_notes.size(); ++i) {
        if (m_notes.at(i).id == id)
            return i;
    }
    return -1;
}

void NotesStore::setDirty(bool dirty) {
    if (m_dirty == dirty)
        return;
    m_dirty = dirty;
    emit dirtyChanged();
}

void NotesStore::setNotice(const QString& notice) {
    if (m_notice == notice)
        return;
    m_notice = notice;
    emit noticeChanged();
}

} // namespace vell
