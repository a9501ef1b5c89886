#pragma once

#include "OstaVell/Modules/Plugins/NativePluginIndex.h"
#include "OstaVell/Modules/Plugins/PluginResourceUsage.h"
#include "VellHost/NativePluginBundle.h"
#include "VellHost/Plugins/NativePluginSessions.h"
#include "VellPluginSDK/Protocol/NativePluginRecord.h"

#include <QList>
#include <QObject>
#include <QUrl>
#include <QVariantList>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <optional>

class QJSEngine;
class QQmlEngine;

namespace vell {

// The single owner of installed native plugins: the index "OstaVell/Plugins/installed-v1.json"
// with the bundles it names, the running sessions, and the app's action router, which every
// plugin and built-in service meets on.
//
// What is installed is exactly what was reviewed: the fingerprint taken at review is checked
// at install, on the private copy and at every launch. Memory and disk never disagree: every
// change of the index is saved first and assigned only when the save succeeded, and an index
// that exists and can't be used is kept untouched and nothing is saved for the rest of the
// process. Main thread only.
class NativePluginStore final : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(NativePluginStore)
    QML_SINGLETON

    // Each installed plugin as a map: id, name, version, summary, capabilities (texts),
    // launchMode ("child" or "application"), icon ({symbol, color, badge}, absent when none),
    // fingerprint, enabled, compactActivity, hiddenDisplayIDs, status (the line, "" when none),
    // running (status is "Running"), previousVersions ([{folder, name, version, fingerprint,
    // savedAt}], savedAt in milliseconds since 1970 for Date).
    Q_PROPERTY(QVariantList plugins READ pluginsForViews NOTIFY pluginsChanged)
    // Plugin id to {cpuSeconds, residentBytes}: CPU time over the last minute and resident
    // memory of each plugin with a process of its own, refreshed every two seconds while one runs.
    Q_PROPERTY(QVariantMap usage READ usageForViews NOTIFY usageChanged)
    // The store-wide message for the settings screen; empty when there is none.
    Q_PROPERTY(QString notice READ notice NOTIFY noticeChanged)
    Q_PROPERTY(bool storageFailed READ storageFailed CONSTANT)
    // Plugin id to its current snapshot in its JSON form (binary data as base64 text).
    Q_PROPERTY(QVariantMap snapshots READ snapshotsForViews NOTIFY snapshotsChanged)
    // The bundle or saved version under review: id, name, version, summary, capabilities,
    // launchMode, icon, fingerprint, signature ("valid"), update (an installed id), restore (a
    // saved version), and the screen's sentences: warning, trust and, for a restore,
    // restoreWarning. Empty when nothing is under review.
    Q_PROPERTY(QVariantMap reviewed READ reviewed NOTIFY reviewedChanged)
    // Runs waiting for a person: id, caller, callerName, provider, providerName, title,
    // effect, arguments ([{name, value}] as text), expires (milliseconds since 1970).
    Q_PROPERTY(QVariantList reviews READ reviewsForViews NOTIFY routerChanged)
    // Runs under way between peers, oldest first: id, callerName, providerName, title, phase,
    // message, progress (absent when the provider gives none) and display ({title, step, detail,
    // completedSteps, totalSteps, needsReview}, absent when none).
    Q_PROPERTY(QVariantList activeRuns READ activeRunsForViews NOTIFY routerChanged)
    // Per connected caller, every action and channel another peer offers: caller, callerName,
    // provider, providerName, name, title, effect ("" for a channel), channel, allowed.
    Q_PROPERTY(QVariantList allowedActions READ allowedActionsForViews NOTIFY routerChanged)
    // Newest first: caller, callerName, provider, providerName, name, title, phase, date.
    Q_PROPERTY(QVariantList history READ historyForViews NOTIFY routerChanged)
    // The router's latch, where grants are managed; empty when grants and history are sound.
    Q_PROPERTY(QString actionsError READ actionsError NOTIFY routerChanged)
    // The runs started from forms while the router knows them, by run id: plugin, panel, form,
    // phase, message, title, effect, arguments ([{name, value}] as text) and expires
    // (milliseconds since 1970), so that a form can follow its own run, also when its view is
    // drawn anew.
    Q_PROPERTY(QVariantMap formRuns READ formRunsForViews NOTIFY routerChanged)
    // Changes with every video frame of any plugin; a view's frame address carries it.
    Q_PROPERTY(int frameRevision READ frameRevision NOTIFY framesChanged)
    // The plugins with a current video frame.
    Q_PROPERTY(QStringList framed READ framed NOTIFY framesChanged)

public:
    // Seconds a session is given to stop before the next launch of the same plugin.
    explicit NativePluginStore(QString directory, std::optional<QString> routerDirectory = std::nullopt,
                               QObject* parent = nullptr);
    ~NativePluginStore() override;
    Q_DISABLE_COPY_MOVE(NativePluginStore)

    // $XDG_DATA_HOME/OstaVell/Plugins and the router's files in $XDG_DATA_HOME/OstaVell/Actions.
    static NativePluginStore* instance();
    static NativePluginStore* create(QQmlEngine*, QJSEngine*);
    static QString defaultDirectory();
    static QString defaultRouterDirectory();
    // The settings pane.
    static QUrl settingsPaneView();

    // Launches every enabled plugin and starts the health checks and the sleep watch; a
    // second call does nothing. stop() ends every session, at quit.
    void start();
    void stop();

    NativePluginSessions& sessions() { return *m_sessions; }
    ActionRouter& router() { return m_sessions->router(); }
    const ActionRouter& router() const { return m_sessions->router(); }
    const QList<NativePluginRecord>& plugins() const { return m_plugins; }
    std::optional<NativePluginRecord> plugin(const QString& id) const;
    QString notice() const { return m_notice; }
    bool storageFailed() const { return m_storageFailed; }
    // The folder of an installed or saved version's bundle.
    QString bundlePath(const QString& folder) const { return m_index.bundlePath(folder); }

    // Asks the shell to show a plugin's panel.
    std::function<void(const QString& id)> presentPlugin;
    // Asks the shell to open a panel where a person can review a waiting run.
    std::function<void()> presentReview;

    // Throw ModuleProblem with the sentence for the review or settings screen.
    void install(const QString& source, const QString& reviewedFingerprint);
    NativePluginInspection reviewRestore(const QString& id, const QString& folder) const;
    void restore(const QString& id, const QString& folder, const QString& reviewedFingerprint,
                 const QString& currentFingerprint);
    // These report failures in notice.
    Q_INVOKABLE void remove(const QString& id);
    Q_INVOKABLE void setEnabled(const QString& id, bool enabled);
    Q_INVOKABLE void setVisible(const QString& id, const QString& displayID, bool visible);
    Q_INVOKABLE void setCompact(const QString& id, bool compact);
    Q_INVOKABLE void restart(const QString& id);

    // The review screen: look at a chosen bundle or a saved version, then install or cancel.
    // Each answers the failure's sentence, or an empty text.
    Q_INVOKABLE QString review(const QUrl& bundle);
    Q_INVOKABLE QString reviewSaved(const QString& id, const QString& folder);
    Q_INVOKABLE QString installReviewed();
    Q_INVOKABLE void cancelReview();
    QVariantMap reviewed() const { return m_reviewed; }

    // For the panel: a button, the plugin's own settings, and which displays show a plugin.
    Q_INVOKABLE void press(const QString& id, const QString& action);
    Q_INVOKABLE void configure(const QString& id);
    Q_INVOKABLE void setPresented(const QString& id, const QString& displayID, bool visible);
    // Enabled plugins not hidden on that display, as maps like those of plugins.
    Q_INVOKABLE QVariantList visiblePlugins(const QString& displayID) const;
    int frameRevision() const { return m_frameRevision; }
    QStringList framed() const { return m_sessions->frames().keys(); }
    // Gets every frame as it comes, for the views' image provider.
    void setFrameSink(std::function<void(QHash<QString, QByteArray>)> sink) { m_frameSink = std::move(sink); }

    // Reviews and grants. Each answers the failure's sentence, or an empty text.
    Q_INVOKABLE QString approve(const QString& runID);
    Q_INVOKABLE QString decline(const QString& runID);
    Q_INVOKABLE QString setAllowed(const QString& caller, const QString& provider, const QString& name,
                                   bool channel, bool allowed);

    // Forms. A submit hands over the form as the person saw it and the panel it stood on, and
    // answers {run} with the run's id, or {error} with the sentence for the form's error line.
    // Values are the view's map from input id to text, number or truth value.
    Q_INVOKABLE QVariantMap submitForm(const QString& id, const QString& panelID, const QVariantMap& form,
                                       const QVariantMap& values);
    // Each answers the failure's sentence, or an empty text.
    Q_INVOKABLE QString approveForm(const QString& id, const QString& panelID, const QString& formID,
                                    const QString& runID);
    Q_INVOKABLE QString cancelForm(const QString& runID);

    // A collection's rows as the view shows them: the items (maps as in a snapshot) that pass
    // the search and the filter, on the given day (seconds since 2001) when it is a number,
    // sorted by name when asked, else in the plugin's order. Today is the store's today.
    Q_INVOKABLE QVariantList collectionItems(const QVariantList& items, const QString& query,
                                             const QString& filter, bool sortByName,
                                             const QVariant& day = {}) const;

signals:
    void pluginsChanged();
    void noticeChanged();
    void snapshotsChanged();
    void reviewedChanged();
    void routerChanged();
    void usageChanged();
    void framesChanged();

private slots:
    void onPrepareForSleep(bool sleeping);

private:
    void load();
    // Saves first; throws ModuleProblem and changes nothing when the save fails.
    void persist(const QList<NativePluginRecord>& records);
    void assign(QList<NativePluginRecord> records);
    void launch(const NativePluginRecord& record);
    void edit(const QString& id, const std::function<void(NativePluginRecord&)>& change);
    qsizetype indexOf(const QString& id) const;
    void setNotice(const QString& notice);
    void setReviewed(QVariantMap reviewed);
    void sampleUsage();
    void onRouterChanged();
    QString peerName(const QString& peer) const;

    QVariantList pluginsForViews() const;
    QVariantMap snapshotsForViews() const { return m_snapshotViews; }
    QVariantList reviewsForViews() const;
    QVariantList activeRunsForViews() const;
    QVariantList allowedActionsForViews() const;
    QVariantList historyForViews() const;
    QString actionsError() const;
    QVariantMap usageForViews() const;
    QVariantMap formRunsForViews() const;

    NativePluginIndex m_index;
    NativePluginSessions* m_sessions;
    PluginResourceUsage m_usage;
    QList<NativePluginRecord> m_plugins;
    QString m_notice;
    bool m_storageFailed = false;
    bool m_started = false;

    // What the review screen shows, and what installReviewed() acts on.
    QVariantMap m_reviewed;
    struct Review {
        QString source;
        QString fingerprint;
        QString restoreID;
        QString restoreFolder;
        QString currentFingerprint;
    };
    std::optional<Review> m_review;
    QSet<QUuid> m_waitingReviews;
    // Runs started from forms, with the form each came from; forgotten once the router has let
    // them go.
    struct FormRun {
        QUuid run;
        QString pluginID;
        QString panelID;
        QString formID;
    };
    QList<FormRun> m_formRuns;
    PluginPresentationGate m_reviewGate;
    QVariantMap m_snapshotViews;
    QSet<qint64> m_sampled;
    int m_frameRevision = 0;
    std::function<void(QHash<QString, QByteArray>)> m_frameSink;
};

} // namespace vell
