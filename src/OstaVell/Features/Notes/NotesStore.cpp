#include "OstaVell/Features/Notes/NotesStore.h"

#include "OstaVell/Features/Notes/NotesFile.h"
#include "VellPluginSDK/Json/JsonFile.h"

#include <QCoreApplication>
#include <QFile>
#include <QJSEngine>
#include <QLoggingCategory>
#include <QStandardPaths>

namespace vell {

Q_LOGGING_CATEGORY(lcNotes, "OstaVell Notes", QtInfoMsg)

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

NotesStore::NotesStore(const QString& filePath, QObject* parent)
    : QObject(parent)
    , m_filePath(filePath) {
    m_saveTimer.setSingleShot(true);
    m_saveTimer.setInterval(saveDelayMs);
    connect(&m_saveTimer, &QTimer::timeout, this, &NotesStore::saveNow);
    if (QCoreApplication* app = QCoreApplication::instance())
        connect(app, &QCoreApplication::aboutToQuit, this, &NotesStore::saveNow);
    load();
}

std::optional<NotesItem> NotesStore::note(const std::optional<QUuid>& id) const {
    if (!id)
        return std::nullopt;
    const qsizetype index = indexOf(*id);
    if (index < 0)
        return std::nullopt;
    return m_notes.at(index);
}

QUuid NotesStore::addNote(const QString& text, const QDateTime& now) {
    const NotesItem item{QUuid::createUuid(), text, now.toUTC(), now.toUTC()};
    m_notes.prepend(item);
    emit notesChanged();
    scheduleSave();
    return item.id;
}

void NotesStore::updateText(const QUuid& id, const QString& text) {
    const qsizetype index = indexOf(id);
    if (index < 0)
        return;
    NotesItem& item = m_notes[index];
    item.text = text;
    item.updatedAt = QDateTime::currentDateTimeUtc();
    emit notesChanged();
    scheduleSave();
}

void NotesStore::deleteNote(const QUuid& id) {
    const qsizetype index = indexOf(id);
    if (index < 0)
        return;
    m_notes.removeAt(index);
    emit notesChanged();
    scheduleSave();
}

std::optional<QUuid> NotesStore::duplicateNote(const QUuid& id) {
    const qsizetype index = indexOf(id);
    if (index < 0)
        return std::nullopt;
    return addNote(m_notes.at(index).text);
}

void NotesStore::scheduleSave() {
    setDirty(true);
    // Restarting the one timer drops the wait of the previous edit.
    m_saveTimer.start();
}

void NotesStore::saveNow() {
    m_saveTimer.stop();
    if (!m_dirty)
        return;

    const FileResult saved =
        JsonFile::write(m_filePath, NotesFile{NotesFile::currentVersion, m_notes}.toData());
    if (!saved) {
        qCWarning(lcNotes, "save failed: %s", qUtf8Printable(saved.error()));
        return;
    }
    setDirty(false);
}

void NotesStore::load() {
    const FileContents file = JsonFile::readBytes(m_filePath, maximumFileBytes);
    if (file.missing())
        return;

    QString error = file.error;
    std::optional<NotesFile> contents;
    if (file.read())
        contents = NotesFile::fromData(file.bytes, &error);
    else if (file.status == FileContents::Status::TooLarge)
        error = QStringLiteral("the file is larger than notes ever grow");

    if (contents) {
        m_notes = contents->notes;
        return;
    }

    qCWarning(lcNotes, "load failed, keeping corrupt file aside: %s", qUtf8Printable(error));
    const QString asidePath = m_filePath + QStringLiteral(".corrupt");
    QFile::remove(asidePath);
    if (!QFile::rename(m_filePath, asidePath))
        qCWarning(lcNotes, "could not move %s aside", qUtf8Printable(m_filePath));
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

} // namespace vell
