#include "OstaVell/Features/Notes/NotesStore.h"

#include "OstaVell/Features/Notes/NotesFile.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QSaveFile>
#include <QStandardPaths>

namespace vell {

Q_LOGGING_CATEGORY(lcNotes, "OstaVell Notes", QtInfoMsg)

NotesStore* NotesStore::instance() {
    static NotesStore* p = new NotesStore(defaultFilePath());
    return p;
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

    QString error;
    QDir().mkpath(QFileInfo(m_filePath).absolutePath());
    QSaveFile file(m_filePath);
    file.setDirectWriteFallback(false);
    if (!file.open(QIODevice::WriteOnly)) {
        error = file.errorString();
    } else {
        file.write(NotesFile{NotesFile::currentVersion, m_notes}.toData());
        if (!file.commit())
            error = file.errorString();
    }
    if (!error.isEmpty()) {
        qCWarning(lcNotes, "save failed: %s", qUtf8Printable(error));
        return;
    }
    setDirty(false);
}

void NotesStore::load() {
    QFile file(m_filePath);
    if (!file.exists())
        return;

    QString error;
    std::optional<NotesFile> contents;
    if (file.open(QIODevice::ReadOnly))
        contents = NotesFile::fromData(file.readAll(), &error);
    else
        error = file.errorString();
    file.close();

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
