#include "VellHost/Plugins/NativePluginProcess.h"
#include "VellHost/Plugins/NativePluginSessions.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Protocol/PluginCapabilities.h"

#include <QDir>
#include <QFileInfo>
#include <QTimer>

// The host-to-plugin direction: what the rest of the program may ask of a plugin, and how
// built-in services take part on the action bus as if they were plugins. Everything leaves
// with sequence 0 in the running session.

namespace vell {

namespace Capability = PluginCapabilities;

void NativePluginSessions::setPresented(const QString& id, const QString& display, bool visible) {
    QSet<QString>& displays = m_visibleDisplays[id];
    if (visible)
        displays.insert(display);
    else
        displays.remove(display);
    sendVisibility(id);
    if (displays.isEmpty()) {
        m_frameDates.remove(id);
        if (m_frames.remove(id))
            emit framesChanged();
    }
}

void NativePluginSessions::sendVisibility(const QString& id) {
    // Only a plugin with something to draw live is ever told; the rest never hear of it.
    if (!m_ready.contains(id) || !m_workers.contains(id) ||
        !(negotiated(id, Capability::inlineMedia) || negotiated(id, Capability::customViews)))
        return;
    PluginMessage message = PluginMessage::make(QStringLiteral("visibility"), id, {});
    message.visible = !m_visibleDisplays.value(id).isEmpty();
    try {
        send(id, message);
    } catch (const ModuleProblem&) {
    }
}

void NativePluginSessions::action(const QString& id, const QString& action) {
    if (!m_ready.contains(id) || !m_workers.contains(id) || m_status.value(id) != runningStatus)
        return;
    // "configure" opens the plugin's own settings and is always there; anything else must be a
    // button the plugin shows enabled right now, on a card, at the top or in a collection.
    if (action != u"configure") {
        const auto snapshot = m_snapshots.constFind(id);
        if (snapshot == m_snapshots.cend() ||
            (!snapshot->enabledDisplayAction(action) && !snapshot->enabledCollectionAction(action)))
            return;
    }
    PluginMessage message = PluginMessage::make(QStringLiteral("action"), id, {});
    message.action = action;
    try {
        send(id, message);
    } catch (const ModuleProblem&) {
        endSession(id, QStringLiteral("Plugin connection ended. The action was not retried."));
    }
}

std::optional<QString> NativePluginSessions::viewRoot(const QString& id) const {
    const auto found = m_workers.constFind(id);
    if (found == m_workers.cend() || m_status.value(id) != runningStatus)
        return std::nullopt;
    return QDir(found->bundlePath).filePath(QStringLiteral("Contents/Resources/Views"));
}

std::optional<PluginCustomView> NativePluginSessions::customView(const QString& id, const QString& panelID,
                                                                 const QString& revision) const {
    const auto snapshot = m_snapshots.constFind(id);
    if (snapshot == m_snapshots.cend() || !snapshot->panels)
        return std::nullopt;
    for (const PluginPanel& panel : *snapshot->panels)
        if (panel.id == panelID && panel.customView && panel.customView->revision == revision)
            return panel.customView;
    return std::nullopt;
}

void NativePluginSessions::viewEvent(const QString& id, const PluginViewEvent& event) {
    const auto unavailable = [] { fail("Custom view is unavailable."); };
    if (m_status.value(id) != runningStatus || !negotiated(id, Capability::customViews))
        unavailable();
    const std::optional<PluginCustomView> view = customView(id, event.panelID, event.revision);
    if (!view)
        unavailable();
    try {
        view->validate(event);
    } catch (const ModuleProblem&) {
        unavailable();
    }
    PluginMessage message = PluginMessage::make(QStringLiteral("viewEvent"), id, {});
    message.viewEvent = event;
    try {
        send(id, message);
    } catch (const ModuleProblem&) {
        unavailable();
    }
}

void NativePluginSessions::volumeCommand(const QString& id, const PluginVolumeCommand& command) {
    const auto unavailable = [] { fail("Volume plugin is unavailable."); };
    if (!m_workers.contains(id) || !m_ready.contains(id) || !negotiated(id, Capability::volume))
        unavailable();
    try {
        // A command's expiry is written in seconds since 1970.
        command.validate(clock() + referenceEpoch);
    } catch (const ModuleProblem&) {
        unavailable();
    }
    PluginMessage message = PluginMessage::make(QStringLiteral("volumeCommand"), id, {});
    message.volumeCommand = command;
    send(id, message);
}

bool NativePluginSessions::sendHostMessage(const QString& id, const PluginMessage& message) {
    if (!m_ready.contains(id))
        return false;
    try {
        send(id, message);
    } catch (const ModuleProblem&) {
        return false;
    }
    return true;
}

void NativePluginSessions::sendAgendaRequest(const QString& id) {
    if (!negotiated(id, Capability::agenda) || !m_workers.contains(id))
        return;
    PluginMessage message = PluginMessage::make(QStringLiteral("agendaRequest"), id, {});
    message.agendaDate = m_agendaDate;
    try {
        send(id, message);
    } catch (const ModuleProblem&) {
    }
}

void NativePluginSessions::requestAgenda(double date) {
    const double day = startOfDay(date);
    if (day != m_agendaDate) {
        m_agendaDate = day;
        const double today = startOfDay(clock());
        for (auto plugin = m_agendas.begin(); plugin != m_agendas.end(); ++plugin)
            plugin->removeIf([&](const auto& entry) { return entry.key() != day && entry.key() != today; });
        emit agendasChanged();
    }
    const QSet<QString> ready = m_ready;
    for (const QString& id : ready)
        sendAgendaRequest(id);
}

QList<PluginAgendaEntry> NativePluginSessions::agenda(double date) const {
    const double day = startOfDay(date);
    const double now = clock();
    QList<PluginAgendaEntry> entries;
    for (const auto& days : m_agendas) {
        const auto found = days.constFind(day);
        if (found != days.cend() && found->expiresAt > now)
            entries += found->entries;
    }
    return entries;
}

void NativePluginSessions::deliver(const QString& peer, const PluginBusMessage& message) {
    if (const auto local = m_localConsumers.constFind(peer); local != m_localConsumers.cend()) {
        const auto consumer = *local;
        try {
            consumer(message);
        } catch (const std::exception& error) {
            // A built-in service's fault stays its own; the router's loop goes on.
            qCWarning(lcPlugins).noquote() << peer << "failed:" << error.what();
        }
        return;
    }
    if (!m_workers.contains(peer) || !m_ready.contains(peer))
        return;
    PluginMessage out = PluginMessage::make(QStringLiteral("bus"), peer, {});
    out.bus = message;
    try {
        send(peer, out);
    } catch (const ModuleProblem&) {
        // The router may be inside its own loop: the session ends on the next turn, and only
        // if it is still the one whose queue broke.
        const QUuid session = m_workers.constFind(peer)->process->session();
        QTimer::singleShot(0, this, [this, peer, session] {
            const auto found = m_workers.constFind(peer);
            if (found != m_workers.cend() && found->process->session() == session)
                endSession(peer, QStringLiteral("Action connection ended; nothing was retried."));
        });
    }
}

void NativePluginSessions::joinLocal(const QString& id, const QString& name, const QString& fingerprint,
                                     std::function<void(const PluginBusMessage&)> consumer,
                                     const PluginBusMessage& registration) {
    m_localNames.insert(id, name);
    m_localConsumers.insert(id, std::move(consumer));
    m_router->connect(id, fingerprint, QUuid::createUuid());
    m_router->receive(registration, id, clock());
}

} // namespace vell
