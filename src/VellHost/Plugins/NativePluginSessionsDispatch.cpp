#include "VellHost/Plugins/JpegProbe.h"
#include "VellHost/Plugins/NativePluginSessions.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Protocol/PluginCapabilities.h"

// What the host does with each message of a ready plugin once it has passed the gate. A
// capability that was not negotiated, or a payload that fails its validation, ends the session;
// rate limits and messages that change nothing are dropped and the session goes on.

namespace vell {

namespace Capability = PluginCapabilities;

const QHash<QString, NativePluginSessions::Handler>& NativePluginSessions::handlers() {
    // Only what a plugin may send; the host's own kinds ("hello", "action", ...) from a plugin
    // are faults like any unknown word.
    static const QHash<QString, Handler> table{
        {QStringLiteral("snapshot"), &NativePluginSessions::onSnapshot},
        {QStringLiteral("heartbeat"), &NativePluginSessions::onHeartbeat},
        {QStringLiteral("frame"), &NativePluginSessions::onFrame},
        {QStringLiteral("bus"), &NativePluginSessions::onBus},
        {QStringLiteral("agenda"), &NativePluginSessions::onAgenda},
        {QStringLiteral("present"), &NativePluginSessions::onPresent},
        {QStringLiteral("caption"), &NativePluginSessions::onCaption},
        {QStringLiteral("volumeResult"), &NativePluginSessions::onVolumeResult},
        {QStringLiteral("viewResourceResult"), &NativePluginSessions::onViewResourceResult},
    };
    return table;
}

bool NativePluginSessions::onHeartbeat(const QString&, const PluginMessage&, double) {
    return true;
}

bool NativePluginSessions::onCaption(const QString& id, const PluginMessage& message, double) {
    if (!negotiated(id, Capability::transientCaption) || !message.caption)
        fail("Transient captions were not negotiated.");
    message.caption->validate();
    if (presentCaption)
        presentCaption(id, *message.caption);
    return true;
}

bool NativePluginSessions::onViewResourceResult(const QString& id, const PluginMessage& message, double) {
    if (!negotiated(id, Capability::viewResources) || !message.viewResourceResult)
        fail("View resources were not negotiated.");
    emit viewResourceResultReceived(id, message.session, *message.viewResourceResult);
    return true;
}

bool NativePluginSessions::onVolumeResult(const QString& id, const PluginMessage& message, double) {
    if (!negotiated(id, Capability::volume) || !message.volumeResult)
        fail("Volume capability was not negotiated.");
    message.volumeResult->validate();
    emit volumeResultReceived(id, message.session, *message.volumeResult);
    return true;
}

bool NativePluginSessions::onPresent(const QString& id, const PluginMessage& message, double now) {
    if (!negotiated(id, Capability::presentation))
        fail("Presentation capability was not negotiated.");
    if (!m_presentationGate.accept(id, now))
        return true;
    const auto current = m_snapshots.constFind(id);
    const bool hasCurrent = current != m_snapshots.cend();
    // Nothing new to show: the same picture, or none at all.
    if (message.snapshot.has_value() == hasCurrent && (!hasCurrent || *message.snapshot == *current))
        return true;
    if (presentPlugin)
        presentPlugin(id);
    return true;
}

bool NativePluginSessions::onBus(const QString& id, const PluginMessage& message, double now) {
    if (!negotiated(id, Capability::actions) || !message.bus)
        fail("Action capability was not negotiated.");
    if (const auto& registration = message.bus->registration; registration) {
        for (const PluginRegisteredAction& action : registration->actions)
            if (action.completionTimeoutSeconds && !negotiated(id, Capability::longRunningActions))
                fail("Long-running action capability was not negotiated.");
    }
    m_router->receive(*message.bus, id, now);
    return true;
}

bool NativePluginSessions::onAgenda(const QString& id, const PluginMessage& message, double now) {
    if (!negotiated(id, Capability::agenda) || !message.agenda)
        fail("Agenda capability was not negotiated.");
    message.agenda->validate(now);
    const double day = startOfDay(message.agenda->date);
    // An answer for a day nobody looks at any more is dropped, and does not count as speech.
    if (day != m_agendaDate && day != startOfDay(now))
        return false;
    m_agendas[id].insert(day, *message.agenda);
    emit agendasChanged();
    return true;
}

void NativePluginSessions::checkSnapshotCapabilities(const QString& id,
                                                     const PluginSnapshot& snapshot) const {
    if (snapshot.panels) {
        for (const PluginPanel& panel : *snapshot.panels) {
            if (panel.forms && !(negotiated(id, Capability::forms) && negotiated(id, Capability::actions)))
                fail("Form capability was not negotiated.");
            if (panel.collection && !negotiated(id, Capability::collections))
                fail("Collection capability was not negotiated.");
            if (!panel.customView)
                continue;
            const PluginCustomView& view = *panel.customView;
            if (!negotiated(id, Capability::customViews))
                fail("Custom view capability was not negotiated.");
            if (view.frames && !view.frames->isEmpty()) {
                if (!negotiated(id, Capability::isolatedFrames))
                    fail("Embedded documents were not negotiated.");
                for (const PluginViewFrame& frame : *view.frames)
                    if (!frame.url.startsWith(PluginViewFrame::surfaceAddress) &&
                        !negotiated(id, Capability::httpsFrames))
                        fail("HTTPS documents were not negotiated.");
            }
            if (view.resourceNamespaces && !view.resourceNamespaces->isEmpty() &&
                !negotiated(id, Capability::viewResources))
                fail("View resources were not negotiated.");
        }
    }
    if (snapshot.volumeEndpoints && !negotiated(id, Capability::volume))
        fail("Volume capability was not negotiated.");
}

bool NativePluginSessions::onSnapshot(const QString& id, const PluginMessage& message, double now) {
    if (!message.snapshot)
        fail("Plugin display data is missing.");
    const PluginSnapshot& snapshot = *message.snapshot;
    snapshot.validate();
    checkSnapshotCapabilities(id, snapshot);
    // The same picture again changes nothing, and redraws nothing.
    if (const auto current = m_snapshots.constFind(id); current != m_snapshots.cend() && *current == snapshot)
        return true;
    m_snapshots.insert(id, snapshot);
    emit volumeEndpointsChanged(id);
    reconcilePendingForms(id, snapshot, now);
    emit snapshotsChanged();
    return true;
}

void NativePluginSessions::reconcilePendingForms(const QString& id, const PluginSnapshot& snapshot,
                                                 double now) {
    const QList<QUuid> runs = m_pendingForms.keys();
    for (const QUuid& run : runs) {
        const auto pending = m_pendingForms.constFind(run);
        if (pending == m_pendingForms.cend() || pending->pluginID != id || holdsForm(snapshot, pending->form))
            continue;
        // The form changed under the person reviewing it: what they would approve is gone.
        for (const ActionRun& live : m_router->runs()) {
            if (live.id != run || live.phase() != PluginRunPhase::waitingReview)
                continue;
            try {
                m_router->cancel(run, now);
            } catch (const ModuleProblem&) {
            }
            break;
        }
    }
}

bool NativePluginSessions::onFrame(const QString& id, const PluginMessage& message, double now) {
    // The cheap refusals come first: size, then whether anybody looks, then time.
    if (!negotiated(id, Capability::inlineMedia) || !message.frame ||
        message.frame->jpeg.size() > maximumFrameBytes)
        fail("Invalid media frame.");
    if (m_visibleDisplays.value(id).isEmpty())
        return true;
    if (const auto last = m_frameDates.constFind(id);
        last != m_frameDates.cend() && now - *last < frameIntervalSeconds)
        return true;
    const std::optional<QSize> size = JpegProbe::size(message.frame->jpeg);
    if (!size || size->width() < 1 || size->width() > maximumFrameWidth || size->height() < 1 ||
        size->height() > maximumFrameHeight)
        fail("Invalid media image.");
    m_frames.insert(id, Frame{message.frame->jpeg, *size});
    m_frameDates.insert(id, now);
    emit framesChanged();
    return true;
}

} // namespace vell
