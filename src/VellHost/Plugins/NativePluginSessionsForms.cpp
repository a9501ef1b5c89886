#include "VellHost/Plugins/NativePluginSessions.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Protocol/PluginCapabilities.h"

// Forms: a plugin's declared inputs that, on submit, invoke one of its own actions through the
// router. A form is no private channel: the run meets the same review as any other caller's,
// and what a person approves is the form they saw, with the values they saw.

namespace vell {

namespace Capability = PluginCapabilities;

bool NativePluginSessions::holdsForm(const PluginSnapshot& snapshot, const PluginForm& form) {
    for (const PluginPanel& panel : snapshot.panels.value_or(QList<PluginPanel>()))
        if (panel.forms && panel.forms->contains(form))
            return true;
    return false;
}

bool NativePluginSessions::offersAction(const QString& id, const PluginRegisteredAction& action) const {
    const QList<PluginCatalogEntry> catalogue = m_router->exported();
    for (const PluginCatalogEntry& entry : catalogue)
        if (entry.address.plugin == id && entry.address.name == action.id && entry.action)
            return *entry.action == action;
    return false;
}

const ActionRun* NativePluginSessions::findRun(const QUuid& run) const {
    for (const ActionRun& candidate : m_router->runs())
        if (candidate.id == run)
            return &candidate;
    return nullptr;
}

std::optional<PluginForm> NativePluginSessions::currentForm(const QString& id, const QString& panelID,
                                                            const QString& formID) const {
    const auto snapshot = m_snapshots.constFind(id);
    if (snapshot == m_snapshots.cend())
        return std::nullopt;
    for (const PluginPanel& panel : snapshot->panels.value_or(QList<PluginPanel>())) {
        if (panel.id != panelID || !panel.forms)
            continue;
        for (const PluginForm& form : *panel.forms)
            if (form.id == formID)
                return form;
    }
    return std::nullopt;
}

QUuid NativePluginSessions::submitForm(const QString& id, const PluginForm& form,
                                       const PluginValueMap& values) {
    // The form must be the one the plugin shows now, over the action it offers now: a form that
    // changed since the person looked, or an action registered anew, is not submitted at all.
    const auto snapshot = m_snapshots.constFind(id);
    if (!m_ready.contains(id) || m_status.value(id) != runningStatus || !negotiated(id, Capability::forms) ||
        !negotiated(id, Capability::actions) || !form.enabled || snapshot == m_snapshots.cend() ||
        !holdsForm(*snapshot, form) || !offersAction(id, form.action))
        fail("This form changed or is unavailable. Review the current values.");
    form.validate();
    form.validateValues(values);

    PluginBusMessage invoke;
    invoke.operation = PluginBusMessage::Operation::invoke;
    invoke.requestID = QUuid::createUuid();
    invoke.address = PluginActionAddress{id, form.action.id};
    invoke.values = values;
    // As the plugin itself: its own action needs no grant, and still waits for review.
    m_router->receive(invoke, id, clock());
    const ActionRun* run = findRun(invoke.requestID);
    if (!run)
        fail("The action could not be started.");
    const bool waiting = run->phase() == PluginRunPhase::waitingReview;

    m_pendingForms.removeIf([this](const auto& entry) {
        const ActionRun* pending = findRun(entry.key());
        return !pending || !pending->isLive();
    });
    if (waiting)
        m_pendingForms.insert(invoke.requestID, PendingForm{id, form});
    return invoke.requestID;
}

void NativePluginSessions::approveForm(const QString& id, const PluginForm& form, const QUuid& run) {
    const double now = clock();
    const auto pending = m_pendingForms.constFind(run);
    const auto snapshot = m_snapshots.constFind(id);
    bool stands = pending != m_pendingForms.cend() && pending->pluginID == id && pending->form == form &&
                  m_status.value(id) == runningStatus && snapshot != m_snapshots.cend() &&
                  holdsForm(*snapshot, form);
    if (stands) {
        const ActionRun* waiting = findRun(run);
        try {
            stands = waiting != nullptr;
            if (stands)
                form.validateValues(waiting->arguments);
        } catch (const ModuleProblem&) {
            stands = false;
        }
    }
    if (!stands) {
        // Whatever was reviewed is gone: the run ends here, never with other values.
        try {
            m_router->cancel(run, now);
        } catch (const ModuleProblem&) {
        }
        fail("This form changed. Review the current values before trying again.");
    }
    m_router->approve(run, now);
}

} // namespace vell
