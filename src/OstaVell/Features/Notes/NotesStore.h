#pragma once

#include "OstaVell/Features/Notes/NotesItem.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QUuid>
#include <QtQml/qqmlregistration.h>

#include <optional>

class QJSEngine;
class QQmlEngine;

namespace vell {

// The notes and their file. Edits change memory at once and reach the disk half a second
// after the last of a burst; whatever is still dirty at quit is written then.
class NotesStore final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_DISABLE_COPY_MOVE(NotesStore)
    Q_PROPERTY(QList<vell::NotesItem> notes READ notes NOTIFY notesChanged)
    Q_PROPERTY(bool dirty READ dirty NOTIFY dirtyChanged)
    Q_PROPERTY(QString filePath READ filePath CONSTANT)

public:
    static constexpr int saveDelayMs = 500;
    // Far beyond what anyone types; a bound, so that a stray huge file is never read whole.
    static constexpr qint64 maximumFileBytes = 67108864;

    static NotesStore* instance();
    static NotesStore* create(QQmlEngine*, QJSEngine*);
    static QString defaultFilePath();

    explicit NotesStore(const QString& filePath, QObject* parent = nullptr);

    const QList<NotesItem>& notes() const { return m_notes; }
    bool dirty() const { return m_dirty; }
    QString filePath() const { return m_filePath; }

    std::optional<NotesItem> note(const std::optional<QUuid>& id) const;

    // Inserts at the top with a fresh id and both dates at `now`; returns the new id.
    QUuid addNote(const QString& text = {}, const QDateTime& now = QDateTime::currentDateTimeUtc());
    void updateText(const QUuid& id, const QString& text);
    void deleteNote(const QUuid& id);
    // The copy goes to the top; returns its id, or nothing when `id` is unknown.
    std::optional<QUuid> duplicateNote(const QUuid& id);

    void scheduleSave();
    void saveNow();

signals:
    void notesChanged();
    void dirtyChanged();

private:
    void load();
    qsizetype indexOf(const QUuid& id) const;
    void setDirty(bool dirty);

    QString m_filePath;
    QList<NotesItem> m_notes;
    bool m_dirty = false;
    QTimer m_saveTimer;
};

} // namespace vell
