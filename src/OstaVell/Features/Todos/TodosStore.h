#pragma once

#include "OstaVell/Features/Todos/TodosDocument.h"

#include <QDateTime>
#include <QLatin1StringView>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QUuid>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

#include <functional>

class QJSEngine;
class QQmlEngine;

namespace vell {

class ShellContributions;
class UserDefaults;

// The to-do list and its archive, kept in one file. Every change is written before it is made:
// an operation builds the new lists, saves them, and only then shows them, so a failed save
// changes nothing and says why in `notice`. Done items stay in the list until the sweep, once a
// minute, moves those done longer than the delay into the archive.
//
// A file that can't be decoded is set aside as todos.json.corrupt and the list starts empty. A
// file that can't be read at all is never touched: the store starts empty, says so, and refuses
// every change, because a save would replace what it could not read.
class TodosStore final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_DISABLE_COPY_MOVE(TodosStore)

    // The list as the widget shows it: favourites first, each group in the list's own order.
    // [{id, title, done, favorite, createdAt, completedAt}]
    Q_PROPERTY(QVariantList items READ items NOTIFY listsChanged)
    Q_PROPERTY(QVariantList archivedItems READ archivedItems NOTIFY listsChanged)
    Q_PROPERTY(int openCount READ openCount NOTIFY listsChanged)
    Q_PROPERTY(int doneCount READ doneCount NOTIFY listsChanged)
    // Why the last change was not made, or why none can be; empty otherwise.
    Q_PROPERTY(QString notice READ notice NOTIFY noticeChanged)
    Q_PROPERTY(bool storageUnavailable READ storageUnavailable CONSTANT)
    Q_PROPERTY(QString filePath READ filePath CONSTANT)
    // Hours after which a done item is archived; 0 never.
    Q_PROPERTY(double autoArchiveHours READ autoArchiveHours WRITE setAutoArchiveHours NOTIFY settingsChanged)
    Q_PROPERTY(bool showArchived READ showArchived WRITE setShowArchived NOTIFY settingsChanged)

public:
    using Clock = std::function<QDateTime()>;

    static constexpr QLatin1StringView autoArchiveHoursKey{"todos.autoArchiveHours"};
    static constexpr QLatin1StringView showArchivedKey{"todos.showArchived"};
    static constexpr double defaultAutoArchiveHours = 24;
    // A coarse timer: the sweep may come a few seconds late, so the system can wake once for
    // several timers.
    static constexpr int sweepIntervalMs = 60000;
    // Far beyond any list a person keeps; a bound, so that a stray huge file is never read whole.
    static constexpr qint64 maximumFileBytes = 16 * 1024 * 1024;

    static TodosStore* instance();
    static TodosStore* create(QQmlEngine*, QJSEngine*);
    static QString defaultFilePath();
    static void offerViews(ShellContributions& shell);

    // Loads the file and starts the sweep. The clock gives "now" for new items, completions and
    // the sweep; the defaults hold the two settings (the shared ones when null).
    explicit TodosStore(const QString& filePath, Clock clock = {}, UserDefaults* defaults = nullptr,
                        QObject* parent = nullptr);

    const QList<TodoItem>& todos() const { return m_document.active; }
    const QList<TodoItem>& archived() const { return m_document.archived; }
    QVariantList items() const;
    QVariantList archivedItems() const;
    int openCount() const;
    int doneCount() const;
    QString notice() const { return m_notice; }
    bool storageUnavailable() const { return m_storageUnavailable; }
    QString filePath() const { return m_filePath; }
    double autoArchiveHours() const;
    void setAutoArchiveHours(double hours);
    bool showArchived() const;
    void setShowArchived(bool show);

    // Each answers whether the lists changed (and so were saved). Ids are the upper-case text
    // the views hold; an unknown id changes nothing.
    Q_INVOKABLE bool add(const QString& title);
    Q_INVOKABLE bool toggleDone(const QString& id);
    Q_INVOKABLE bool toggleFavorite(const QString& id);
    // Named so for QML, where "delete" is a word of the language.
    Q_INVOKABLE bool deleteItem(const QString& id);
    Q_INVOKABLE bool deleteArchived(const QString& id);
    Q_INVOKABLE bool restore(const QString& id);
    Q_INVOKABLE bool clearArchive();
    bool archiveSweep(const QDateTime& now);

    // The order the widget shows: favourites first, otherwise as listed. Stable.
    static QList<TodoItem> favoritesFirst(const QList<TodoItem>& items);

signals:
    void listsChanged();
    void noticeChanged();
    void settingsChanged();

private:
    void load();
    void refuseChanges(const QString& reason);
    bool commit(TodosDocument next);
    QDateTime now() const;
    void setNotice(const QString& notice);

    QString m_filePath;
    Clock m_clock;
    UserDefaults* m_defaults;
    TodosDocument m_document;
    QString m_notice;
    bool m_storageUnavailable = false;
    QTimer m_sweepTimer{this};
};

} // namespace vell
