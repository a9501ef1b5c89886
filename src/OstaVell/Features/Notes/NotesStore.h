#pragma once

#include "OstaVell/Features/Notes/NotesItem.h"
#include "OstaVell/Features/Notes/NotesSortOrder.h"

#include <QDateTime>
#include <QLatin1StringView>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QUuid>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

#include <chrono>
#include <optional>

class QJSEngine;
class QQmlEngine;

namespace vell {

class ShellContributions;
class UserDefaults;

// The notes and their file. Edits change memory at once and reach the disk a moment after the
// last of a burst; whatever is still dirty at quit is written then. A save that fails keeps the
// notes dirty and says so in `notice`; the next change or the quit tries again.
//
// A file that can't be decoded is set aside as notes.json.corrupt and the list starts empty. A
// file that can't be read at all is never touched: the store starts empty, says so, and accepts
// no note, because nothing it took in could be saved without replacing that file.
class NotesStore final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_DISABLE_COPY_MOVE(NotesStore)
    Q_PROPERTY(QList<vell::NotesItem> notes READ notes NOTIFY notesChanged)
    // The list as shown, in the chosen order: [{id, preview, createdAt, updatedAt}].
    Q_PROPERTY(QVariantList sortedNotes READ sortedNotes NOTIFY sortedNotesChanged)
    Q_PROPERTY(bool dirty READ dirty NOTIFY dirtyChanged)
    Q_PROPERTY(QString filePath READ filePath CONSTANT)
    // Why the last save failed, or why nothing can be saved; empty otherwise.
    Q_PROPERTY(QString notice READ notice NOTIFY noticeChanged)
    Q_PROPERTY(bool storageUnavailable READ storageUnavailable CONSTANT)
    Q_PROPERTY(double fontSize READ fontSize WRITE setFontSize NOTIFY settingsChanged)
    Q_PROPERTY(QString sortOrder READ sortOrder WRITE setSortOrder NOTIFY settingsChanged)
    // [{raw, label}] of every order, for the picker.
    Q_PROPERTY(QVariantList sortOrders READ sortOrders CONSTANT)
    Q_PROPERTY(QString selectedNoteID READ selectedNoteID WRITE setSelectedNoteID NOTIFY settingsChanged)

public:
    static constexpr std::chrono::milliseconds defaultSaveDelay{500};
    // Far beyond what anyone types; a bound, so that a stray huge file is never read whole.
    static constexpr qint64 maximumFileBytes = 67108864;
    static constexpr QLatin1StringView fontSizeKey{"notes.fontSize"};
    static constexpr QLatin1StringView sortOrderKey{"notes.sortOrder"};
    static constexpr QLatin1StringView selectedNoteKey{"notes.selectedNoteID"};
    static constexpr double defaultFontSize = 13;

    static NotesStore* instance();
    static NotesStore* create(QQmlEngine*, QJSEngine*);
    static QString defaultFilePath();
    static void offerViews(ShellContributions& shell);

    // The defaults hold the three settings (the shared ones when null).
    explicit NotesStore(const QString& filePath, std::chrono::milliseconds saveDelay = defaultSaveDelay,
                        UserDefaults* defaults = nullptr, QObject* parent = nullptr);

    const QList<NotesItem>& notes() const { return m_notes; }
    QVariantList sortedNotes() const;
    bool dirty() const { return m_dirty; }
    QString filePath() const { return m_filePath; }
    QString notice() const { return m_notice; }
    bool storageUnavailable() const { return m_storageUnavailable; }
    double fontSize() const;
    void setFontSize(double size);
    QString sortOrder() const;
    void setSortOrder(const QString& raw);
    NotesSortOrder::Order order() const;
    QVariantList sortOrders() const;
    QString selectedNoteID() const;
    void setSelectedNoteID(const QString& id);

    std::optional<NotesItem> note(const std::optional<QUuid>& id) const;

    // Inserts at the top with a fresh id and both dates at `now`; the new id, or nothing when no
    // note can be kept.
    std::optional<QUuid> addNote(const QString& text = {},
                                 const QDateTime& now = QDateTime::currentDateTimeUtc());
    bool updateText(const QUuid& id, const QString& text);
    bool deleteNote(const QUuid& id);
    // The copy goes to the top; its id, or nothing when `id` is unknown.
    std::optional<QUuid> duplicateNote(const QUuid& id);

    // For the views, by the id's text; an empty answer or false when nothing changed.
    Q_INVOKABLE QString newNote();
    Q_INVOKABLE QString text(const QString& id) const;
    Q_INVOKABLE bool setText(const QString& id, const QString& text);
    Q_INVOKABLE QString duplicate(const QString& id);
    Q_INVOKABLE bool remove(const QString& id);
    Q_INVOKABLE void copyText(const QString& id) const;
    // Shows notes.json in the file manager.
    Q_INVOKABLE void revealInFileManager() const;

    void scheduleSave();
    void saveNow();

signals:
    void notesChanged();
    void sortedNotesChanged();
    void dirtyChanged();
    void noticeChanged();
    void settingsChanged();

private:
    void load();
    void refuseChanges(const QString& reason);
    qsizetype indexOf(const QUuid& id) const;
    void changed();
    void setDirty(bool dirty);
    void setNotice(const QString& notice);

    QString m_filePath;
    UserDefaults* m_defaults;
    QList<NotesItem> m_notes;
    bool m_dirty = false;
    bool m_storageUnavailable = false;
    QString m_notice;
    QTimer m_saveTimer;
};

} // namespace vell
