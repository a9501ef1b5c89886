#pragma once

#include <QHash>
#include <QLatin1StringView>
#include <QLocale>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUuid>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

#include <chrono>
#include <functional>
#include <optional>

class QJSEngine;
class QQmlEngine;

namespace vell {

class ShellContributions;
class UserDefaults;

// The user's shortcuts as the widget lists and runs them, through ostavell-shortcuts: `list` for
// the names, `run NAME` for one press. Both run as child processes off the main thread and report
// back to it. A name is its shortcut's identity: a second press while it runs does nothing, and
// different shortcuts run side by side. Favourites and hidden names are two JSON arrays in the
// user defaults, read whenever they are needed.
class ShortcutsManager final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_DISABLE_COPY_MOVE(ShortcutsManager)

    Q_PROPERTY(QStringList allShortcuts READ allShortcuts NOTIFY shortcutsChanged)
    // "idle", "loading", "loaded", "unavailable" or "failed".
    Q_PROPERTY(QString loadState READ loadStateName NOTIFY loadStateChanged)
    // The sentence that goes with "unavailable" and "failed".
    Q_PROPERTY(QString loadMessage READ loadMessage NOTIFY loadStateChanged)
    Q_PROPERTY(QStringList runningNames READ runningNames NOTIFY runningChanged)
    // Name to "success" or "failure", for a moment after a run ends.
    Q_PROPERTY(QVariantMap recentOutcomes READ recentOutcomes NOTIFY outcomesChanged)
    Q_PROPERTY(QString searchText READ searchText WRITE setSearchText NOTIFY searchTextChanged)
    Q_PROPERTY(QStringList favorites READ favorites NOTIFY listsChanged)
    Q_PROPERTY(QStringList hidden READ hidden NOTIFY listsChanged)
    // What the widget lists: not hidden, favourites first, matching the search.
    Q_PROPERTY(QStringList widgetShortcuts READ widgetShortcuts NOTIFY widgetShortcutsChanged)
    // What the widget shows instead of a list, {title, message}; empty while there is a list,
    // or a search that matched nothing.
    Q_PROPERTY(QVariantMap emptyState READ emptyState NOTIFY widgetShortcutsChanged)

public:
    enum class LoadState { idle, loading, loaded, unavailable, failed };
    enum class Outcome { success, failure };
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    struct Timing {
        // A widget opened again within this time lists nothing new.
        std::chrono::milliseconds refreshStaleness{20000};
        // How long a run's outcome shows on its chip.
        std::chrono::milliseconds flash{1600};
        // A `list` that takes longer is stopped.
        std::chrono::milliseconds listDeadline{30000};
    };

    static constexpr QLatin1StringView favoritesKey{"shortcuts.favorites"};
    static constexpr QLatin1StringView hiddenKey{"shortcuts.hidden"};
    // More than any number of names prints; a `list` that prints more is stopped.
    static constexpr qsizetype maximumListBytes = 1024 * 1024;
    // Of a failing `list`'s complaint, what is kept to show.
    static constexpr qsizetype maximumErrorBytes = 4096;

    static ShortcutsManager* instance();
    static ShortcutsManager* create(QQmlEngine*, QJSEngine*);
    static void offerViews(ShellContributions& shell);

    // `program` is the command; the defaults hold the two lists (the shared ones when null).
    explicit ShortcutsManager(const QString& program, UserDefaults* defaults = nullptr, Clock clock = {},
                              QObject* parent = nullptr);

    Timing timing;

    QString program() const { return m_program; }
    QStringList allShortcuts() const { return m_allShortcuts; }
    LoadState loadState() const { return m_loadState; }
    QString loadStateName() const;
    QString loadMessage() const { return m_loadMessage; }
    QStringList runningNames() const;
    bool isRunning(const QString& name) const { return m_running.contains(name); }
    QVariantMap recentOutcomes() const;
    std::optional<Outcome> recentOutcome(const QString& name) const;
    QString searchText() const { return m_searchText; }
    void setSearchText(const QString& text);
    QStringList favorites() const;
    QStringList hidden() const;
    QStringList widgetShortcuts() const;
    QVariantMap emptyState() const;

    // Lists again unless the last list is younger than the staleness.
    Q_INVOKABLE void refreshOnAppear();
    // Lists again now, unless a list is already under way.
    Q_INVOKABLE void refresh();
    Q_INVOKABLE void run(const QString& name);
    Q_INVOKABLE void toggleFavorite(const QString& name);
    Q_INVOKABLE void setHidden(const QString& name, bool hidden);
    Q_INVOKABLE bool isFavorite(const QString& name) const { return favorites().contains(name); }
    Q_INVOKABLE bool isHidden(const QString& name) const { return hidden().contains(name); }

    // The widget's list: `all` without the hidden names, favourites first (each group in the
    // order of `all`), then those that contain the search, ignoring case as the locale does.
    static QStringList widgetList(const QStringList& all, const QStringList& favorites,
                                  const QStringList& hidden, const QString& search,
                                  const QLocale& locale = QLocale());

signals:
    void shortcutsChanged();
    void loadStateChanged();
    void runningChanged();
    void outcomesChanged();
    void searchTextChanged();
    void listsChanged();
    void widgetShortcutsChanged();
    // A run ended; for observers and tests.
    void runFinished(const QString& name, bool succeeded);

private:
    struct ListResult;

    void setLoadState(LoadState state, const QString& message = {});
    void listFinished(const ListResult& result);
    void runEnded(const QString& name, bool succeeded);
    void flash(const QString& name, Outcome outcome);
    QStringList names(QLatin1StringView key) const;
    void writeNames(QLatin1StringView key, const QStringList& names);

    QString m_program;
    UserDefaults* m_defaults;
    Clock m_clock;
    QStringList m_allShortcuts;
    LoadState m_loadState = LoadState::idle;
    QString m_loadMessage;
    QSet<QString> m_running;
    QHash<QString, Outcome> m_outcomes;
    QHash<QString, QUuid> m_flashTokens;
    QString m_searchText;
    std::optional<std::chrono::steady_clock::time_point> m_lastRefresh;
};

} // namespace vell
