#include "OstaVell/Features/HUD/VolumeTargetManager.h"

#include "OstaVell/Features/HUD/HUDSettings.h"
#include "OstaVell/Features/HUD/HUDVolumeManager.h"
#include "OstaVell/Support/UserDefaults.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QJSEngine>
#include <QPointer>

#include <algorithm>
#include <memory>
#include <tuple>

namespace vell {

namespace {

bool isMuteOperation(const PluginVolumeOperation& operation) {
    return operation.kind() == PluginVolumeOperation::Kind::setMuted ||
           operation.kind() == PluginVolumeOperation::Kind::toggleMute;
}

} // namespace

VolumeTargetManager::VolumeTargetManager(HUDVolumeManager* hardware, PluginVolumeRegistry* registry,
                                         UserDefaults* defaults, HUDSettings* settings,
                                         SneakPeekCoordinator* peek, QObject* parent)
    : QObject(parent)
    , m_hardware(hardware)
    , m_registry(registry)
    , m_defaults(defaults)
    , m_settings(settings)
    , m_peek(peek) {
    m_registry->setParent(this);
    m_timer.setInterval(syncMilliseconds);
    // The routes as stored, read again only when the stored value changes; connected before
    // anything that syncs on the same change.
    m_routes = VolumeRoutes::load(*m_defaults);
    connect(m_defaults, &UserDefaults::changed, this, [this](const QString& key) {
        if (key.isEmpty() || key == VolumeRoutes::key)
            m_routes = VolumeRoutes::load(*m_defaults);
    });
    // A routed output's own level is not what is heard: the hardware shows no HUD for it.
    m_hardware->isRouted = [this](const QString& output) { return m_routes.target(output).has_value(); };
}

VolumeTargetManager* VolumeTargetManager::instance() {
    static VolumeTargetManager* manager = new VolumeTargetManager(
        HUDVolumeManager::instance(), new PluginVolumeRegistry, UserDefaults::instance(),
        HUDSettings::instance(), SneakPeekCoordinator::instance());
    return manager;
}

VolumeTargetManager* VolumeTargetManager::create(QQmlEngine*, QJSEngine*) {
    VolumeTargetManager* manager = instance();
    QJSEngine::setObjectOwnership(manager, QJSEngine::CppOwnership);
    return manager;
}

void VolumeTargetManager::start() {
    if (m_started)
        return;
    m_started = true;
    connect(m_hardware, &HUDVolumeManager::changed, this, &VolumeTargetManager::sync);
    connect(m_registry, &PluginVolumeRegistry::changed, this, &VolumeTargetManager::sync);
    connect(m_defaults, &UserDefaults::changed, this, [this](const QString& key) {
        if (key.isEmpty() || key == VolumeRoutes::key)
            sync();
    });
    connect(&m_timer, &QTimer::timeout, this, &VolumeTargetManager::sync);
    sync();
}

std::optional<PluginVolumeTarget> VolumeTargetManager::route() const {
    return m_routes.target(m_hardware->outputUID());
}

void VolumeTargetManager::sync() {
    const auto before = std::make_tuple(m_volume, m_isMuted, m_available, m_canMute, m_busy, m_showsMuted,
                                        m_status, m_targetName, m_selectionID, m_outputName, m_choices);
    const std::optional<PluginVolumeTarget> target = route();
    m_outputName = m_hardware->outputName();
    if (target) {
        syncRoute(*target);
    } else {
        m_volume = m_hardware->volume();
        m_isMuted = m_hardware->isMuted();
        m_available = m_hardware->hasOutputDevice();
        m_canMute = m_hardware->canMute();
        m_busy = false;
        m_targetName = m_outputName.isEmpty() ? systemOutputName.toString() : m_outputName;
        m_selectionID = systemSelection.toString();
        m_status.clear();
        m_previousEndpoint.reset();
    }
    // While a plugin confirms, the HUD keeps the state it was asked for.
    if (!m_busy)
        m_showsMuted = m_isMuted;
    peekForRoute(target);
    // Only a live control behind a route can go stale while nothing happens; one that is gone
    // or stale comes back only with a plugin's message, which syncs by itself.
    const bool canExpire = target && m_available;
    if (canExpire && !m_timer.isActive())
        m_timer.start();
    else if (!canExpire)
        m_timer.stop();
    m_choices = listChoices(target);
    if (before != std::make_tuple(m_volume, m_isMuted, m_available, m_canMute, m_busy, m_showsMuted, m_status,
                                  m_targetName, m_selectionID, m_outputName, m_choices))
        emit changed();
}

void VolumeTargetManager::syncRoute(const PluginVolumeTarget& target) {
    m_selectionID = target.selectionID();
    m_busy = m_registry->busyPlugins().contains(target.pluginID);
    const std::optional<RegisteredVolumeEndpoint> endpoint = m_registry->endpoint(target);
    if (!endpoint || !m_registry->isLive(endpoint->state)) {
        m_available = false;
        m_canMute = false;
        m_targetName = savedControlName.toString();
        m_status = unavailableStatus.toString();
        return;
    }
    const PluginVolumeEndpoint& state = endpoint->state;
    m_volume = float(state.volume.value_or(m_volume));
    m_isMuted = state.muted.value_or(false);
    m_available = true;
    m_canMute = state.canMute;
    m_targetName = state.name;
    // Back in reach: what was said about it being out of reach no longer holds.
    if (m_status == unavailableStatus || m_status == PluginVolumeRegistry::unavailableMessage)
        m_status.clear();
}

void VolumeTargetManager::peekForRoute(const std::optional<PluginVolumeTarget>& target) {
    const QString output = m_hardware->outputUID();
    const bool live = target && m_available;
    const std::optional<Shown> reading = live ? std::optional(Shown{m_volume, m_isMuted}) : std::nullopt;
    if (output != m_previousOutput || target != m_previousTarget) {
        // What the peek showed belonged to the other output or control.
        if (m_peek->visible() && m_peek->type() != SneakPeekType::brightness)
            m_peek->hide();
    } else if (reading && m_previousEndpoint && !m_busy && m_settings->showOnExternalChange()) {
        // The control changed by other means (its own buttons, another program).
        const bool muteChanged = reading->muted != m_previousEndpoint->muted;
        if (muteChanged || reading->volume != m_previousEndpoint->volume)
            m_peek->show(muteChanged ? SneakPeekType::mute : SneakPeekType::volume, reading->volume,
                         HUDEventSource::external);
    }
    m_previousOutput = output;
    m_previousTarget = target;
    m_previousEndpoint = reading;
}

QString VolumeTargetManager::hudLabel() const {
    const QString plain = m_showsMuted ? QStringLiteral("Muted") : QStringLiteral("Volume");
    if (!routed())
        return plain;
    if (!m_available)
        return QStringLiteral("Unavailable");
    if (!m_status.isEmpty() && !m_status.startsWith(u"Confirmed") && m_status != waitingStatus)
        return QStringLiteral("Check volume");
    return plain;
}

QVariantList VolumeTargetManager::listChoices(const std::optional<PluginVolumeTarget>& saved) const {
    QVariantList choices{
        QVariantMap{{"id", systemSelection.toString()}, {"name", systemOutputName.toString()}}};
    bool savedListed = false;
    for (const RegisteredVolumeEndpoint& endpoint : m_registry->endpoints()) {
        choices.append(QVariantMap{{"id", endpoint.target.selectionID()}, {"name", endpoint.state.name}});
        savedListed = savedListed || (saved && *saved == endpoint.target);
    }
    if (saved && !savedListed)
        choices.append(QVariantMap{{"id", saved->selectionID()}, {"name", savedControlName.toString()}});
    return choices;
}

void VolumeTargetManager::select(const QString& id) {
    VolumeRoutes routes = m_routes;
    if (id == systemSelection) {
        routes.set(m_hardware->outputUID(), std::nullopt);
    } else {
        const std::optional<PluginVolumeTarget> target = PluginVolumeTarget::fromSelectionID(id);
        if (!target || (!m_registry->endpoint(*target) && route() != target))
            return;
        routes.set(m_hardware->outputUID(), target);
    }
    // A person's choice replaces whatever was saved, readable or not. The stored change brings
    // the routes held here and the sync with it.
    routes.save(*m_defaults);
}

void VolumeTargetManager::setStatus(const QString& status) {
    if (m_status == status)
        return;
    m_status = status;
    emit changed();
}

bool VolumeTargetManager::perform(const PluginVolumeOperation& operation) {
    if (const std::optional<PluginVolumeTarget> target = route())
        return performRouted(*target, operation);
    performOnHardware(operation);
    return false;
}

void VolumeTargetManager::performOnHardware(const PluginVolumeOperation& operation) {
    if (!operation.isValid())
        return;
    const auto source = HUDEventSource::internalControl;
    switch (operation.kind()) {
    case PluginVolumeOperation::Kind::setVolume:
        if (operation.level() > 0 && m_hardware->isMuted())
            m_hardware->setMuted(false, source);
        m_hardware->setVolume(float(operation.level()), source);
        break;
    case PluginVolumeOperation::Kind::adjustVolume:
        m_hardware->stepVolume(float(operation.step()), source);
        break;
    case PluginVolumeOperation::Kind::setMuted:
        m_hardware->setMuted(operation.muted(), source);
        break;
    case PluginVolumeOperation::Kind::toggleMute:
        m_hardware->setMuted(!m_hardware->isMuted(), source);
        break;
    }
    sync();
    m_peek->show(isMuteOperation(operation) ? SneakPeekType::mute : SneakPeekType::volume,
                 m_hardware->volume(), source);
}

VolumeTargetManager::Shown VolumeTargetManager::intended(const PluginVolumeOperation& operation) const {
    switch (operation.kind()) {
    case PluginVolumeOperation::Kind::setVolume:
        return {float(operation.level()), m_isMuted && operation.level() <= 0};
    case PluginVolumeOperation::Kind::adjustVolume:
        return {std::clamp(m_volume + float(operation.step()), 0.0f, 1.0f),
                m_isMuted && operation.step() < 0};
    case PluginVolumeOperation::Kind::setMuted:
        return {m_volume, operation.muted()};
    case PluginVolumeOperation::Kind::toggleMute:
        break;
    }
    return {m_volume, !m_isMuted};
}

bool VolumeTargetManager::performRouted(const PluginVolumeTarget& target,
                                        const PluginVolumeOperation& operation) {
    const QString output = m_hardware->outputUID();
    const SneakPeekType type = isMuteOperation(operation) ? SneakPeekType::mute : SneakPeekType::volume;
    // The hand-over can fail at once, which finishes the request inside request().
    auto finished = std::make_shared<bool>(false);
    const QPointer<VolumeTargetManager> self(this);
    bool sent = false;
    try {
        sent = m_registry->request(
            target, operation,
            [self, target, output, type, finished](const PluginVolumeRegistry::Outcome& outcome) {
                *finished = true;
                if (self)
                    self->finishRouted(target, output, type, outcome);
            });
    } catch (const ModuleProblem& problem) {
        setStatus(problem.message());
        return true;
    }
    // Busy with the last one: this press is dropped, not queued.
    if (!sent || *finished)
        return true;
    const Shown shown = intended(operation);
    m_showsMuted = shown.muted;
    m_status = waitingStatus.toString();
    emit changed();
    m_peek->show(type, shown.volume, HUDEventSource::internalControl);
    return true;
}

void VolumeTargetManager::finishRouted(const PluginVolumeTarget& target, const QString& output,
                                       SneakPeekType type, const PluginVolumeRegistry::Outcome& outcome) {
    // The output or its route changed meanwhile: the answer is about something no longer shown.
    if (m_hardware->outputUID() != output || route() != target)
        return;
    sync();
    if (const auto* state = std::get_if<PluginVolumeEndpoint>(&outcome)) {
        setStatus(QStringLiteral("Confirmed by ") + state->name);
        m_peek->show(type, float(state->volume.value_or(m_volume)), HUDEventSource::internalControl);
    } else {
        setStatus(std::get<QString>(outcome));
        if (m_peek->visible() && m_peek->type() != SneakPeekType::brightness)
            m_peek->show(type, m_volume, HUDEventSource::internalControl);
    }
}

} // namespace vell
