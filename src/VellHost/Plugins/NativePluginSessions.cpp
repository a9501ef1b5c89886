#include "VellHost/Plugins/NativePluginSessions.h"

#include "VellHost/NativePluginBundle.h"
#include "VellHost/Plugins/NativePluginProcess.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Protocol/PluginCapabilities.h"
#include "VellPluginSDK/ReferenceTime.h"

#include <QDateTime>
#include <QFileInfo>
#include <QLoggingCategory>

namespace vell {

Q_LOGGING_CATEGORY(lcPlugins, "OstaVell Plugins", QtInfoMsg)

namespace {

void deleteLaterProcess(NativePluginProcess* process) {
    // A worker may be ended from inside its own callback; it goes once that call has returned.
    if (process)
        process->deleteLater();
}

const QString& reservedPrefix() {
    static const QString prefix = QStringLiteral("local.ostavell.");
    return prefix;
}
} // namespace

NativePluginSessions::NativePluginSessions(std::optional<QString> routerDirectory, QObject* parent)
    : QObject(parent)
    , m_router(std::make_unique<ActionRouter>(std::move(routerDirectory)))
    , m_agendaDate(startOfDay(currentTime())) {
    m_router->setDeliver(
        [this](const QString& peer, const PluginBusMessage& message) { deliver(peer, message); });
    m_router->setChanged([this] { emit routerChanged(); });
    m_healthTimer.setInterval(healthPeriodMilliseconds);
    connect(&m_healthTimer, &QTimer::timeout, this, &NativePluginSessions::checkHealth);
}

NativePluginSessions::~NativePluginSessions() {
    for (Worker& worker : m_workers)
        worker.process->stop();
}

double NativePluginSessions::currentTime() {
    return ReferenceTime::now();
}

double NativePluginSessions::startOfDay(double instant) {
    const QDateTime moment = QDateTime::fromMSecsSinceEpoch(qint64((instant + referenceEpoch) * 1000));
    return double(moment.date().startOfDay().toMSecsSinceEpoch()) / 1000 - referenceEpoch;
}

void NativePluginSessions::fail(const char* message) {
    throw ModuleProblem(QString::fromUtf8(message));
}

void NativePluginSessions::startHealthChecks() {
    m_healthTimer.start();
}

void NativePluginSessions::stopHealthChecks() {
    m_healthTimer.stop();
}

qint64 NativePluginSessions::processID(const QString& id) const {
    const auto found = m_workers.constFind(id);
    return found == m_workers.cend() ? 0 : found->process->processID();
}

QUuid NativePluginSessions::session(const QString& id) const {
    const auto found = m_workers.constFind(id);
    return found == m_workers.cend() ? QUuid() : found->process->session();
}

void NativePluginSessions::setStatus(const QString& id, const QString& line) {
    if (m_status.value(id) == line && m_status.contains(id))
        return;
    m_status.insert(id, line);
    emit statusChanged();
}

void NativePluginSessions::clearStatus(const QString& id) {
    if (m_status.remove(id))
        emit statusChanged();
}

bool NativePluginSessions::isCurrent(const QString& id, const NativePluginProcess* process) const {
    const auto found = m_workers.constFind(id);
    return found != m_workers.cend() && found->process.get() == process;
}

bool NativePluginSessions::negotiated(const QString& id, QStringView capability) const {
    return m_pluginFeatures.value(id).contains(capability.toString());
}

void NativePluginSessions::launch(const NativePluginRecord& record, const QString& bundlePath) {
    const QString id = record.manifest.id;
    if (m_workers.contains(id))
        return;
    NativePluginInspection inspection;
    try {
        // The bytes that were reviewed are the bytes that run: verified again at every launch.
        inspection = NativePluginBundle::inspect(bundlePath);
    } catch (const ModuleProblem& problem) {
        endSession(id, problem.message());
        return;
    }
    if (id.startsWith(reservedPrefix())) {
        endSession(id, QStringLiteral("This namespace is reserved for built-in services."));
        return;
    }
    if (inspection.manifest != record.manifest || inspection.fingerprint != record.fingerprint) {
        endSession(id, QStringLiteral("Plugin changed on disk. Reinstall it to review the update."));
        return;
    }

    auto* process = new NativePluginProcess;
    m_workers.insert(id, Worker{std::shared_ptr<NativePluginProcess>(process, &deleteLaterProcess),
                                record.fingerprint, bundlePath});
    // The silence watch covers the handshake too.
    m_lastMessages.insert(id, clock());
    setStatus(id, startingStatus.toString());
    wire(id, process);
    try {
        const QString executable = inspection.executable;
        process->start(executable, id, QFileInfo(executable).absolutePath(),
                       record.manifest.launchesAsApplication() ? NativePluginProcess::LaunchMode::application
                                                               : NativePluginProcess::LaunchMode::child);
    } catch (const ModuleProblem& problem) {
        endSession(id, problem.message());
        return;
    }
    if (trace) {
        PluginMessage hello = PluginMessage::make(QStringLiteral("hello"), id, process->session());
        hello.features = PluginCapabilities::offered();
        trace(id, false, hello);
    }
}

void NativePluginSessions::wire(const QString& id, NativePluginProcess* process) {
    // Each callback acts only while this process is still the plugin's worker: a late message
    // of an ended session finds another worker, or none, and is dropped.
    const QPointer<NativePluginSessions> self(this);
    process->onMessage = [self, id, process](const PluginMessage& message) {
        if (!self || !self->isCurrent(id, process))
            return;
        if (self->trace)
            self->trace(id, true, message);
        try {
            self->receive(id, process, message);
        } catch (const ModuleProblem& problem) {
            if (self->isCurrent(id, process))
                self->endSession(id, problem.message());
        } catch (const std::exception& error) {
            // Nothing may escape into the event loop; a message that broke the host ends its
            // session like any fault.
            qCWarning(lcPlugins).noquote() << id << "message failed:" << error.what();
            if (self->isCurrent(id, process))
                self->endSession(id, QStringLiteral("Plugin sent invalid data."));
        }
    };
    process->onFailure = [self, id, process](const QString& reason) {
        if (!self || !self->isCurrent(id, process))
            return;
        qCInfo(lcPlugins).noquote() << id << "stream failed:" << reason;
        self->endSession(id, QStringLiteral("Plugin sent invalid data."));
    };
    process->onStartFailure = [self, id, process](const QString& reason) {
        if (self && self->isCurrent(id, process))
            self->endSession(id, reason);
    };
    process->onExit = [self, id, process] {
        if (!self || !self->isCurrent(id, process))
            return;
        self->endSession(id, QStringLiteral("Plugin stopped. Restart it when ready."));
    };
}

void NativePluginSessions::endSession(const QString& id, const QString& line) {
    stopWorker(id);
    setStatus(id, line);
}

void NativePluginSessions::stopWorker(const QString& id) {
    if (hideCaption)
        hideCaption(id);
    bool agendasTouched = m_agendas.remove(id) > 0;
    m_router->disconnect(id);
    if (auto found = m_workers.find(id); found != m_workers.end()) {
        found->process->stop();
        m_workers.erase(found);
    }
    m_ready.remove(id);
    const bool hadSnapshot = m_snapshots.remove(id) > 0;
    const bool hadFrame = m_frames.remove(id) > 0;
    m_frameDates.remove(id);
    m_pluginFeatures.remove(id);
    m_pendingForms.removeIf([&id](const auto& entry) { return entry.value().pluginID == id; });
    m_sequences.remove(id);
    m_lastMessages.remove(id);
    // The volume routes hear of the end through this too.
    emit volumeEndpointsChanged(id);
    if (hadSnapshot)
        emit snapshotsChanged();
    if (hadFrame)
        emit framesChanged();
    if (agendasTouched)
        emit agendasChanged();
    emit statusChanged();
}

void NativePluginSessions::stopAll(QStringView status) {
    const QStringList ids = m_workers.keys();
    for (const QString& id : ids)
        endSession(id, status.toString());
}

void NativePluginSessions::receive(const QString& id, NativePluginProcess* process,
                                   const PluginMessage& message) {
    if (message.pluginID != id || message.session != process->session() ||
        message.apiVersion != PluginMessage::interfaceVersion)
        fail("Plugin identity or session mismatch.");
    const double now = clock();
    if (!m_ready.contains(id)) {
        if (message.type != u"ready" || message.sequence != 0)
            fail("Plugin handshake failed.");
        handshake(id, message, now);
        return;
    }
    // Gaps are allowed; a repeat or a step back is not, so a second "ready" fails here too.
    if (message.sequence <= m_sequences.value(id))
        fail("Invalid or repeated plugin message.");
    const Handler handler = handlers().value(message.type);
    if (!handler)
        fail("Invalid or repeated plugin message.");
    if (!(this->*handler)(id, message, now))
        return;
    // Routing may have ended this very session (a failed send inside the router's delivery).
    if (!isCurrent(id, process))
        return;
    m_sequences.insert(id, message.sequence);
    m_lastMessages.insert(id, now);
}

void NativePluginSessions::handshake(const QString& id, const PluginMessage& message, double now) {
    m_ready.insert(id);
    m_sequences.insert(id, 0);
    m_pluginFeatures.insert(id, PluginCapabilities::negotiated(message.features.value_or(QStringList())));
    setStatus(id, runningStatus.toString());
    sendVisibility(id);
    sendAgendaRequest(id);
    if (negotiated(id, PluginCapabilities::actions))
        if (const auto found = m_workers.constFind(id); found != m_workers.cend())
            m_router->connect(id, found->fingerprint, found->process->session());
    m_lastMessages.insert(id, now);
}

void NativePluginSessions::checkHealth() {
    const double now = clock();
    bool agendasTouched = false;
    for (auto plugin = m_agendas.begin(); plugin != m_agendas.end(); ++plugin)
        agendasTouched |=
            plugin->removeIf([now](const auto& day) { return day.value().expiresAt <= now; }) > 0;
    if (agendasTouched)
        emit agendasChanged();

    // A stalled stream shows that it waits rather than a frozen picture.
    const QStringList framed = m_frameDates.keys();
    for (const QString& id : framed) {
        if (now - m_frameDates.value(id) > staleFrameSeconds) {
            m_frames.remove(id);
            m_frameDates.remove(id);
            emit framesChanged();
        }
    }

    const QStringList running = m_workers.keys();
    for (const QString& id : running) {
        const auto last = m_lastMessages.constFind(id);
        if (last == m_lastMessages.cend() || now - *last > silenceSeconds)
            endSession(id, QStringLiteral("Plugin stopped responding. Restart it when ready."));
    }
    m_router->tick(now);
    emit healthChecked();
}

void NativePluginSessions::send(const QString& id, PluginMessage message) {
    const auto found = m_workers.constFind(id);
    if (found == m_workers.cend())
        throw ModuleProblem(QStringLiteral("Plugin input queue is unavailable or full."));
    message.pluginID = id;
    message.session = found->process->session();
    message.sequence = 0;
    if (trace)
        trace(id, false, message);
    found->process->send(message);
}

} // namespace vell
