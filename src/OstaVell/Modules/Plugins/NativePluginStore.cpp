#include "OstaVell/Modules/Plugins/NativePluginStore.h"

#include "VellPluginSDK/ModuleProblem.h"

#include <QDBusConnection>
#include <QDir>
#include <QJSEngine>
#include <QStandardPaths>

namespace vell {

namespace {
const QString kReservedPrefix = QStringLiteral("local.ostavell.");

QString dataHome() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
}

void logind(QObject* receiver, bool watch) {
    const auto bus = QDBusConnection::systemBus();
    const QString service = QStringLiteral("org.freedesktop.login1");
    const QString path = QStringLiteral("/org/freedesktop/login1");
    const QString interface = QStringLiteral("org.freedesktop.login1.Manager");
    const QString signal = QStringLiteral("PrepareForSleep");
    if (watch)
        QDBusConnection(bus).connect(service, path, interface, signal, receiver,
                                     SLOT(onPrepareForSleep(bool)));
    else
        QDBusConnection(bus).disconnect(service, path, interface, signal, receiver,
                                        SLOT(onPrepareForSleep(bool)));
}
} // namespace

NativePluginStore::NativePluginStore(QString directory, std::optional<QString> routerDirectory,
                                     QObject* parent)
    : QObject(parent)
    , m_index(std::move(directory))
    , m_sessions(new NativePluginSessions(std::move(routerDirectory), this)) {
    connect(m_sessions, &NativePluginSessions::statusChanged, this, &NativePluginStore::pluginsChanged);
    connect(m_sessions, &NativePluginSessions::snapshotsChanged, this, [this] {
        // Converted once per change, not at every read of a binding.
        m_snapshotViews.clear();
        for (auto snapshot = m_sessions->snapshots().cbegin(); snapshot != m_sessions->snapshots().cend();
             ++snapshot)
            m_snapshotViews.insert(snapshot.key(), snapshot->toJson().toVariantMap());
        emit snapshotsChanged();
    });
    connect(m_sessions, &NativePluginSessions::routerChanged, this, &NativePluginStore::onRouterChanged);
    connect(m_sessions, &NativePluginSessions::healthChecked, this, &NativePluginStore::sampleUsage);
    connect(m_sessions, &NativePluginSessions::framesChanged, this, [this] {
        if (m_frameSink) {
            QHash<QString, QByteArray> frames;
            for (auto frame = m_sessions->frames().cbegin(); frame != m_sessions->frames().cend(); ++frame)
                frames.insert(frame.key(), frame->jpeg);
            m_frameSink(frames);
        }
        ++m_frameRevision;
        emit framesChanged();
    });
    m_sessions->presentPlugin = [this](const QString& id) {
        if (const auto present = presentPlugin)
            present(id);
    };
    load();
}

NativePluginStore::~NativePluginStore() {
    stop();
}

NativePluginStore* NativePluginStore::instance() {
    static NativePluginStore* store = new NativePluginStore(defaultDirectory(), defaultRouterDirectory());
    return store;
}

NativePluginStore* NativePluginStore::create(QQmlEngine*, QJSEngine*) {
    NativePluginStore* store = instance();
    QJSEngine::setObjectOwnership(store, QJSEngine::CppOwnership);
    return store;
}

QString NativePluginStore::defaultDirectory() {
    return dataHome() + QStringLiteral("/OstaVell/Plugins");
}

QString NativePluginStore::defaultRouterDirectory() {
    return dataHome() + QStringLiteral("/OstaVell/Actions");
}

QUrl NativePluginStore::settingsPaneView() {
    return QUrl(QStringLiteral("qrc:/qt/qml/OstaVell/Plugins/qml/PluginsPane.qml"));
}

void NativePluginStore::load() {
    try {
        m_plugins = m_index.load();
    } catch (const ModuleProblem& problem) {
        qCWarning(lcPlugins).noquote() << "index unusable:" << problem.message();
        m_storageFailed = true;
        m_plugins.clear();
        m_notice = QStringLiteral("Plugin storage needs recovery. The original file was kept.");
    }
}

std::optional<NativePluginRecord> NativePluginStore::plugin(const QString& id) const {
    const qsizetype index = indexOf(id);
    return index < 0 ? std::nullopt : std::optional(m_plugins.at(index));
}

qsizetype NativePluginStore::indexOf(const QString& id) const {
    for (qsizetype i = 0; i < m_plugins.size(); ++i)
        if (m_plugins.at(i).manifest.id == id)
            return i;
    return -1;
}

void NativePluginStore::setNotice(const QString& notice) {
    if (m_notice == notice)
        return;
    m_notice = notice;
    emit noticeChanged();
}

void NativePluginStore::start() {
    if (m_started)
        return;
    m_started = true;
    for (const NativePluginRecord& record : std::as_const(m_plugins))
        if (record.enabled)
            launch(record);
    m_sessions->startHealthChecks();
    logind(this, true);
}

void NativePluginStore::stop() {
    if (!m_started)
        return;
    m_started = false;
    m_sessions->stopHealthChecks();
    logind(this, false);
    m_sessions->stopAll(NativePluginSessions::stoppedStatus);
}

void NativePluginStore::onPrepareForSleep(bool sleeping) {
    // Plugins do not run across a sleep; waking starts every enabled one afresh, also one that
    // had stopped before.
    if (sleeping) {
        m_sessions->stopAll(NativePluginSessions::sleepingStatus);
        return;
    }
    for (const NativePluginRecord& record : std::as_const(m_plugins))
        if (record.enabled)
            launch(record);
}

void NativePluginStore::launch(const NativePluginRecord& record) {
    m_sessions->launch(record, bundlePath(record.folder));
}

void NativePluginStore::restart(const QString& id) {
    m_sessions->stopWorker(id);
    if (const auto record = plugin(id); record && record->enabled)
        launch(*record);
}

void NativePluginStore::persist(const QList<NativePluginRecord>& records) {
    if (m_storageFailed)
        throw ModuleProblem(QStringLiteral("Plugin storage needs recovery."));
    m_index.persist(records);
}

void NativePluginStore::assign(QList<NativePluginRecord> records) {
    m_plugins = std::move(records);
    emit pluginsChanged();
}

void NativePluginStore::install(const QString& source, const QString& reviewedFingerprint) {
    if (m_storageFailed)
        throw ModuleProblem(QStringLiteral("Recover plugin storage before installing."));
    const NativePluginInspection fresh = NativePluginBundle::inspect(source);
    const QString id = fresh.manifest.id;
    if (id.startsWith(kReservedPrefix))
        throw ModuleProblem(QStringLiteral("This namespace is reserved for built-in services."));
    if (fresh.fingerprint != reviewedFingerprint)
        throw ModuleProblem(QStringLiteral("The plugin changed after review. Review the new package."));
    const qsizetype existing = indexOf(id);
    if (existing < 0 && m_plugins.size() >= NativePluginIndex::maximumPlugins)
        throw ModuleProblem(QStringLiteral("Up to 20 plugins can be installed."));

    const QString folder = m_index.copyBundle(fresh.root);
    QList<NativePluginRecord> records = m_plugins;
    NativePluginRecord record;
    try {
        const NativePluginInspection copy = NativePluginBundle::inspect(bundlePath(folder));
        if (copy.fingerprint != fresh.fingerprint || copy.manifest != fresh.manifest)
            throw ModuleProblem(QStringLiteral("Plugin copy failed verification."));
        const std::optional<NativePluginRecord> previous =
            existing < 0 ? std::nullopt : std::optional(m_plugins.at(existing));
        record = NativePluginIndex::installed(previous, fresh.manifest, folder, fresh.fingerprint,
                                              m_sessions->clock());
        if (existing < 0)
            records.append(record);
        else
            records[existing] = record;
        persist(records);
    } catch (const ModuleProblem&) {
        // The new folder is the only thing ever deleted, and only when nothing refers to it.
        m_index.removeFolder(folder);
        throw;
    }
    m_sessions->stopWorker(id);
    assign(std::move(records));
    if (record.enabled)
        launch(record);
    setNotice(existing < 0 ? QStringLiteral("Plugin installed.")
                           : QStringLiteral("Plugin updated. Its settings and monitor placement were kept."));
}

NativePluginInspection NativePluginStore::reviewRestore(const QString& id, const QString& folder) const {
    const auto unavailable = [] {
        throw ModuleProblem(QStringLiteral("This saved version is no longer available."));
    };
    const std::optional<NativePluginRecord> record = plugin(id);
    if (m_storageFailed || !record || !record->previousVersions)
        unavailable();
    const auto saved =
        std::find_if(record->previousVersions->cbegin(), record->previousVersions->cend(),
                     [&folder](const NativePluginVersion& version) { return version.folder == folder; });
    if (saved == record->previousVersions->cend())
        unavailable();
    const NativePluginInspection inspection = NativePluginBundle::inspect(bundlePath(folder));
    if (inspection.manifest.id != saved->manifest.id || inspection.fingerprint != saved->fingerprint)
        throw ModuleProblem(
            QStringLiteral("The saved package changed on disk. The current plugin was kept."));
    return inspection;
}

void NativePluginStore::restore(const QString& id, const QString& folder, const QString& reviewedFingerprint,
                                const QString& currentFingerprint) {
    const std::optional<NativePluginRecord> current = plugin(id);
    if (!current || current->fingerprint != currentFingerprint)
        throw ModuleProblem(
            QStringLiteral("The installed plugin changed during review. Review the restore again."));
    const NativePluginInspection saved = reviewRestore(id, folder);
    if (saved.fingerprint != reviewedFingerprint)
        throw ModuleProblem(
            QStringLiteral("The saved package changed during review. The current plugin was kept."));
    // A restore is an install of the saved copy, so the version that ran goes to the history.
    install(bundlePath(folder), reviewedFingerprint);
    setNotice(QStringLiteral("Restored %1 %2. Current settings and monitor placement were kept.")
                  .arg(saved.manifest.name, saved.manifest.version));
}

void NativePluginStore::remove(const QString& id) {
    const qsizetype index = indexOf(id);
    if (index < 0)
        return;
    QList<NativePluginRecord> records = m_plugins;
    records.removeAt(index);
    try {
        persist(records);
    } catch (const ModuleProblem& problem) {
        setNotice(problem.message());
        return;
    }
    m_sessions->stopWorker(id);
    assign(std::move(records));
    m_sessions->clearStatus(id);
}

void NativePluginStore::edit(const QString& id, const std::function<void(NativePluginRecord&)>& change) {
    const qsizetype index = indexOf(id);
    if (index < 0)
        return;
    QList<NativePluginRecord> records = m_plugins;
    change(records[index]);
    try {
        persist(records);
    } catch (const ModuleProblem& problem) {
        setNotice(problem.message());
        throw;
    }
    assign(std::move(records));
}

void NativePluginStore::setEnabled(const QString& id, bool enabled) {
    try {
        edit(id, [enabled](NativePluginRecord& record) { record.enabled = enabled; });
    } catch (const ModuleProblem&) {
        return;
    }
    if (!enabled) {
        m_sessions->stopWorker(id);
        m_sessions->setStatus(id, NativePluginSessions::disabledStatus.toString());
    } else if (const auto record = plugin(id)) {
        launch(*record);
    }
}

void NativePluginStore::setVisible(const QString& id, const QString& displayID, bool visible) {
    try {
        edit(id, [&](NativePluginRecord& record) {
            record.hiddenDisplayIDs.removeAll(displayID);
            if (!visible) {
                record.hiddenDisplayIDs.append(displayID);
                record.hiddenDisplayIDs.sort();
            }
        });
    } catch (const ModuleProblem&) {
    }
}

void NativePluginStore::setCompact(const QString& id, bool compact) {
    try {
        edit(id, [compact](NativePluginRecord& record) { record.compactActivity = compact; });
    } catch (const ModuleProblem&) {
    }
}

void NativePluginStore::press(const QString& id, const QString& action) {
    m_sessions->action(id, action);
}

void NativePluginStore::configure(const QString& id) {
    m_sessions->action(id, QStringLiteral("configure"));
}

void NativePluginStore::setPresented(const QString& id, const QString& displayID, bool visible) {
    m_sessions->setPresented(id, displayID, visible);
}

void NativePluginStore::onRouterChanged() {
    // A run that newly waits for a person brings a panel forward where it can be reviewed;
    // it waits a limited time, and nobody reviews what nobody sees.
    QSet<QUuid> waiting;
    for (const ActionRun& run : router().runs())
        if (run.phase() == PluginRunPhase::waitingReview)
            waiting.insert(run.id);
    // Only the first waiting run opens a panel, and not more than once a second: a peer that
    // asks again and again must not take the keyboard away each time.
    const bool fresh = m_waitingReviews.isEmpty() && !waiting.isEmpty();
    m_waitingReviews = waiting;
    emit routerChanged();
    if (fresh && presentReview && m_reviewGate.accept(QStringLiteral("review"), m_sessions->clock()))
        presentReview();
}

void NativePluginStore::sampleUsage() {
    // Only while a plugin has a process to measure: an idle store stays silent.
    QSet<qint64> processes;
    const QStringList running = m_sessions->running();
    for (const QString& id : running)
        if (const qint64 pid = m_sessions->processID(id))
            processes.insert(pid);
    for (const qint64 pid : m_sampled - processes)
        m_usage.forget(pid_t(pid));
    if (processes.isEmpty() && m_sampled.isEmpty())
        return;
    for (const qint64 pid : std::as_const(processes))
        m_usage.sample(pid_t(pid));
    m_sampled = processes;
    emit usageChanged();
}

} // namespace vell
