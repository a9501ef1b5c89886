#pragma once

#include "VellActionRouter/ActionRouter.h"
#include "VellPluginSDK/Presentation/PluginForm.h"
#include "VellPluginSDK/Presentation/PluginPresentationGate.h"
#include "VellPluginSDK/Presentation/PluginSnapshot.h"
#include "VellPluginSDK/Presentation/PluginTransientCaption.h"
#include "VellPluginSDK/Presentation/PluginViewResources.h"
#include "VellPluginSDK/Protocol/NativePluginRecord.h"
#include "VellPluginSDK/Protocol/PluginAgenda.h"
#include "VellPluginSDK/Protocol/PluginMessage.h"
#include "VellPluginSDK/Protocol/PluginVolumeCommand.h"
#include "VellPluginSDK/Protocol/PluginVolumeResult.h"
#include "VellPluginSDK/ReferenceTime.h"

#include <QHash>
#include <QLoggingCategory>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QSize>
#include <QString>
#include <QTimer>
#include <QUuid>

#include <functional>
#include <memory>
#include <optional>

namespace vell {

// "OstaVell Plugins": sessions, installation and the store.
Q_DECLARE_LOGGING_CATEGORY(lcPlugins)

class NativePluginProcess;

// Every running native plugin, from launch to the end of its session, and the action router
// they all meet on. One session is one launch: a message passes the gate of identity, session,
// handshake and sequence before anything looks at it, and any fault ends the session for good.
// Nothing is restarted by itself and nothing of an ended session is replayed.
//
// Main thread only. A worker's callbacks cross to it by a queued call and are dropped unless
// that worker is still the plugin's current one, so a late message of an old session does
// nothing.
class NativePluginSessions final : public QObject {
    Q_OBJECT

public:
    static constexpr int healthPeriodMilliseconds = 2000;
    static constexpr double silenceSeconds = 15;
    static constexpr double staleFrameSeconds = 5;
    static constexpr double frameIntervalSeconds = 0.12;
    static constexpr qsizetype maximumFrameBytes = 65536;
    static constexpr int maximumFrameWidth = 1280;
    static constexpr int maximumFrameHeight = 720;

    // The status lines that are not failures. Views take "Running" as the sign that a plugin
    // can take work.
    static constexpr QStringView startingStatus = u"Starting\u2026";
    static constexpr QStringView runningStatus = u"Running";
    static constexpr QStringView sleepingStatus = u"Sleeping";
    static constexpr QStringView disabledStatus = u"Disabled";
    static constexpr QStringView stoppedStatus = u"Stopped";

    // The newest accepted video frame, kept as the plugin sent it; views decode it.
    struct Frame {
        QByteArray jpeg;
        QSize size;
    };

    // A form run waiting in review, with the form as the user saw it.
    struct PendingForm {
        QString pluginID;
        PluginForm form;
    };

    // With a directory the router keeps its grants and history there; without one, in memory.
    explicit NativePluginSessions(std::optional<QString> routerDirectory, QObject* parent = nullptr);
    ~NativePluginSessions() override;
    Q_DISABLE_COPY_MOVE(NativePluginSessions)

    // 2001-01-01 00:00:00 UTC in seconds since 1970.
    static constexpr double referenceEpoch = ReferenceTime::epoch;
    // Seconds since 2001-01-01 00:00:00 UTC.
    static double currentTime();
    // Every instant here comes from this; tests hand in their own clock.
    std::function<double()> clock = &currentTime;

    // Callbacks to the shell.
    std::function<void(const QString& id)> presentPlugin;
    std::function<void(const QString& id, const PluginTransientCaption& caption)> presentCaption;
    std::function<void(const QString& id)> hideCaption;
    // Every message in both directions, for an author watching a session.
    std::function<void(const QString& id, bool fromPlugin, const PluginMessage& message)> trace;

    ActionRouter& router() { return *m_router; }
    const ActionRouter& router() const { return *m_router; }

    // The health check every two seconds, which also drives the router's deadlines.
    void startHealthChecks();
    void stopHealthChecks();
    void checkHealth();

    // Verifies the bundle again and starts the plugin in a new session. Failures end up in
    // status. Does nothing while the plugin runs.
    void launch(const NativePluginRecord& record, const QString& bundlePath);
    // The one way a session ends; it wipes everything the session had.
    void stopWorker(const QString& id);
    // Ends every session with this status line.
    void stopAll(QStringView status);
    void setStatus(const QString& id, const QString& line);
    void clearStatus(const QString& id);

    // What the rest of the program may ask of a plugin.
    void setPresented(const QString& id, const QString& display, bool visible);
    void action(const QString& id, const QString& action);
    std::optional<QString> viewRoot(const QString& id) const;
    // Both throw ModuleProblem.
    void viewEvent(const QString& id, const PluginViewEvent& event);
    void volumeCommand(const QString& id, const PluginVolumeCommand& command);
    void requestAgenda(double date);
    QList<PluginAgendaEntry> agenda(double date) const;
    // A host message as it stands, for an author's tools; false when the plugin has no
    // running session or its queue refused it.
    bool sendHostMessage(const QString& id, const PluginMessage& message);

    // Forms. A submit invokes the plugin's own action through the router, as the plugin
    // itself, under the same review as any caller; a run that waits for review remembers the
    // form as submitted, and its approval goes ahead only while that very form still stands.
    // Both throw ModuleProblem with the sentence for the form's error line.
    QUuid submitForm(const QString& id, const PluginForm& form, const PluginValueMap& values);
    void approveForm(const QString& id, const PluginForm& form, const QUuid& run);
    // The form of this id on this panel of the plugin's current snapshot.
    std::optional<PluginForm> currentForm(const QString& id, const QString& panelID,
                                          const QString& formID) const;

    // A built-in service joins the bus as a peer: its name for the settings, the callback that
    // hears its traffic, a fingerprint naming what it is, and its registration.
    void joinLocal(const QString& id, const QString& name, const QString& fingerprint,
                   std::function<void(const PluginBusMessage&)> consumer,
                   const PluginBusMessage& registration);

    const QMap<QString, QString>& status() const { return m_status; }
    const QMap<QString, PluginSnapshot>& snapshots() const { return m_snapshots; }
    const QMap<QString, Frame>& frames() const { return m_frames; }
    const QMap<QString, QString>& localNames() const { return m_localNames; }
    const QSet<QString>& ready() const { return m_ready; }
    QSet<QString> features(const QString& id) const { return m_pluginFeatures.value(id); }
    bool hasWorker(const QString& id) const { return m_workers.contains(id); }
    QStringList running() const { return m_workers.keys(); }
    // The plugin's process id once it was spawned, else 0.
    qint64 processID(const QString& id) const;
    // The running session's id; null when the plugin has none.
    QUuid session(const QString& id) const;
    const QMap<QString, QHash<double, PluginAgenda>>& agendas() const { return m_agendas; }
    double agendaDate() const { return m_agendaDate; }
    QSet<QString> visibleDisplays(const QString& id) const { return m_visibleDisplays.value(id); }
    QMap<QUuid, PendingForm>& pendingForms() { return m_pendingForms; }

signals:
    void statusChanged();
    void snapshotsChanged();
    void framesChanged();
    void agendasChanged();
    // The router's grants, runs, history or peers changed.
    void routerChanged();
    void healthChecked();
    // For the volume routes: what a plugin offers and what it answered.
    void volumeEndpointsChanged(const QString& id);
    void volumeResultReceived(const QString& id, const QUuid& session, const PluginVolumeResult& result);
    void viewResourceResultReceived(const QString& id, const QUuid& session,
                                    const PluginViewResourceResult& result);

private:
    // A handler answers false when the message was dropped before it counted, which leaves the
    // sequence and the silence watch where they were.
    using Handler = bool (NativePluginSessions::*)(const QString& id, const PluginMessage& message,
                                                   double now);

    struct Worker {
        std::shared_ptr<NativePluginProcess> process;
        QString fingerprint;
        QString bundlePath;
    };

    [[noreturn]] static void fail(const char* message);
    static const QHash<QString, Handler>& handlers();
    static double startOfDay(double instant);

    // Sessions.
    void wire(const QString& id, NativePluginProcess* process);
    void receive(const QString& id, NativePluginProcess* process, const PluginMessage& message);
    void handshake(const QString& id, const PluginMessage& message, double now);
    void endSession(const QString& id, const QString& line);
    bool isCurrent(const QString& id, const NativePluginProcess* process) const;
    bool negotiated(const QString& id, QStringView capability) const;
    // Sends with sequence 0 in the running session; throws the transport's reason.
    void send(const QString& id, PluginMessage message);

    // Dispatch.
    bool onHeartbeat(const QString& id, const PluginMessage& message, double now);
    bool onCaption(const QString& id, const PluginMessage& message, double now);
    bool onViewResourceResult(const QString& id, const PluginMessage& message, double now);
    bool onVolumeResult(const QString& id, const PluginMessage& message, double now);
    bool onPresent(const QString& id, const PluginMessage& message, double now);
    bool onBus(const QString& id, const PluginMessage& message, double now);
    bool onAgenda(const QString& id, const PluginMessage& message, double now);
    bool onSnapshot(const QString& id, const PluginMessage& message, double now);
    bool onFrame(const QString& id, const PluginMessage& message, double now);
    void checkSnapshotCapabilities(const QString& id, const PluginSnapshot& snapshot) const;
    void reconcilePendingForms(const QString& id, const PluginSnapshot& snapshot, double now);

    // Forms.
    static bool holdsForm(const PluginSnapshot& snapshot, const PluginForm& form);
    bool offersAction(const QString& id, const PluginRegisteredAction& action) const;
    const ActionRun* findRun(const QUuid& run) const;

    // Host services.
    void deliver(const QString& peer, const PluginBusMessage& message);
    void sendVisibility(const QString& id);
    void sendAgendaRequest(const QString& id);
    // The custom view of a running plugin's panel at this revision, or nothing.
    std::optional<PluginCustomView> customView(const QString& id, const QString& panelID,
                                               const QString& revision) const;

    std::unique_ptr<ActionRouter> m_router;
    QTimer m_healthTimer;
    PluginPresentationGate m_presentationGate;

    QMap<QString, Worker> m_workers;
    QMap<QString, QString> m_status;
    QMap<QString, PluginSnapshot> m_snapshots;
    QMap<QString, Frame> m_frames;
    QMap<QString, double> m_frameDates;
    QMap<QString, QSet<QString>> m_visibleDisplays;
    QMap<QString, QHash<double, PluginAgenda>> m_agendas;
    double m_agendaDate = 0;
    QMap<QString, std::function<void(const PluginBusMessage&)>> m_localConsumers;
    QMap<QString, QString> m_localNames;
    QMap<QString, double> m_lastMessages;
    QMap<QString, quint64> m_sequences;
    QSet<QString> m_ready;
    QMap<QString, QSet<QString>> m_pluginFeatures;
    QMap<QUuid, PendingForm> m_pendingForms;
};

} // namespace vell
