#pragma once

#include "OstaVell/Features/HUD/VolumeRoutes.h"
#include "VellPluginSDK/Protocol/PluginVolumeCommand.h"
#include "VellPluginSDK/Protocol/PluginVolumeEndpoint.h"
#include "VellPluginSDK/Protocol/PluginVolumeResult.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QTimer>
#include <QUuid>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <variant>

namespace vell {

// One endpoint a running plugin session offers.
struct RegisteredVolumeEndpoint {
    PluginVolumeTarget target;
    QUuid session;
    PluginVolumeEndpoint state;
};

// The volume controls plugins offer, and the changes sent to them. A change is sent once, to
// a control seen recently, at most one per plugin at a time, and waits for that plugin's
// confirmation. Whatever ends the wait (an answer, the time-out, the control or the session
// going) ends it once, and nothing is ever sent again: a step that may have been applied must
// not be applied twice. A late or forged answer finds nothing waiting and changes nothing.
// Main thread only.
class PluginVolumeRegistry final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(PluginVolumeRegistry)

public:
    using Outcome = std::variant<PluginVolumeEndpoint, QString>;
    using Completion = std::function<void(const Outcome&)>;

    static constexpr qsizetype maximumEndpoints = 8;
    // A plugin's reading counts while it is at most this old, or at most this far ahead of our
    // clock (the plugin's clock may run a little ahead).
    static constexpr double maximumAgeSeconds = 45;
    static constexpr double maximumLeadSeconds = 5;
    // A command expires soon after the key press that made it.
    static constexpr double commandLifetimeSeconds = 10;
    static constexpr std::chrono::milliseconds defaultTimeout{40000};

    static constexpr QStringView unavailableMessage =
        u"Selected volume control is unavailable. No change sent.";
    static constexpr QStringView transportMessage = u"Volume transport unavailable.";
    static constexpr QStringView timedOutMessage =
        u"Monitor confirmation timed out. It may have applied; nothing was retried.";
    static constexpr QStringView unconfirmedMessage = u"Volume change could not be confirmed.";
    static constexpr QStringView staleMessage =
        u"Volume confirmation was stale. Refresh before trying again.";
    static constexpr QStringView targetChangedMessage = u"Volume target changed. Nothing was retried.";
    static constexpr QStringView disconnectedMessage = u"Volume control disconnected. Nothing was retried.";
    static constexpr QStringView invalidEndpointsMessage = u"Invalid volume endpoints.";

    explicit PluginVolumeRegistry(std::chrono::milliseconds timeout = defaultTimeout,
                                  QObject* parent = nullptr);
    ~PluginVolumeRegistry() override;

    // Hands a command to the plugin's session; throws ModuleProblem when it can't.
    std::function<void(const QString& plugin, const QUuid& session, const PluginVolumeCommand& command)>
        deliver;
    // Seconds since 1970, the clock plugins' readings are in.
    std::function<double()> now;

    const QList<RegisteredVolumeEndpoint>& endpoints() const { return m_endpoints; }
    const QSet<QString>& busyPlugins() const { return m_busyPlugins; }
    std::optional<RegisteredVolumeEndpoint> endpoint(const PluginVolumeTarget& target) const;
    // Present, available and recently seen; a dead control is shown as unavailable.
    bool isLive(const PluginVolumeEndpoint& state) const;

    // The plugin's whole list, replacing what it offered before. Throws ModuleProblem for more
    // than eight, a repeated id or a bad entry, and then changes nothing.
    void update(const QString& plugin, const QUuid& session, const QList<PluginVolumeEndpoint>& endpoints);
    // The session ended: its controls go and its waits end.
    void disconnect(const QString& plugin, const QUuid& session);

    // Sends the change. Throws ModuleProblem for a bad operation, a control that can't take it
    // now, or no way to send; answers false, sending nothing, while the plugin is busy with the
    // last one. Otherwise true, and completion runs exactly once later (or at once when the
    // hand-over itself fails).
    bool request(const PluginVolumeTarget& target, const PluginVolumeOperation& operation,
                 Completion completion);
    // A plugin's answer, as its session received it. Throws ModuleProblem when it is invalid.
    void receive(const QString& plugin, const QUuid& session, const PluginVolumeResult& result);

signals:
    void changed();

private:
    struct Pending {
        PluginVolumeTarget target;
        QUuid session;
        Completion completion;
        // Ours, as a child: a wait that outlives nothing.
        QTimer* timeout = nullptr;
    };

    double clock() const;
    bool isFresh(double observedAt) const;
    void finish(const QUuid& requestID, const Outcome& outcome);
    // The ids of the waits that match, in no particular order.
    QList<QUuid> pendingWhere(const std::function<bool(const Pending&)>& matches) const;

    std::chrono::milliseconds m_timeout;
    QList<RegisteredVolumeEndpoint> m_endpoints;
    QSet<QString> m_busyPlugins;
    std::map<QUuid, Pending> m_pending;
};

} // namespace vell
