#include "OstaVell/Modules/Lightweight/ModuleStore.h"

#include "OstaVell/Modules/Lightweight/ModuleVariants.h"
#include "VellHost/ModuleRunnerSpares.h"
#include "VellPluginSDK/Json/JsonFile.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QFile>
#include <QFileInfo>
#include <QJSEngine>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QStandardPaths>

#include <algorithm>

Q_LOGGING_CATEGORY(lcModules, "OstaVell Modules", QtInfoMsg)

namespace vell {

namespace {

const QString feedPermission = QStringLiteral("local.mqtt.read");
const QString legacyActivity = QStringLiteral("Legacy module offline");

bool hasFeeds(const ModulePackage& package) {
    return package.feeds && !package.feeds->isEmpty();
}

} // namespace

ModuleStore::ModuleStore(QString filePath, QString runnerPath, QObject* parent)
    : QObject(parent)
    , m_filePath(std::move(filePath))
    , m_runnerPath(std::move(runnerPath)) {
    load();
    // The first press then finds a runner ready. Nothing runs: a spare holds no module.
    if (runnerUsable() && std::any_of(m_modules.cbegin(), m_modules.cend(),
                                      [](const InstalledModule& module) { return module.enabled; }))
        ModuleRunnerSpares::prepare(m_runnerPath);
}

ModuleStore::~ModuleStore() {
    killAll();
}

ModuleStore* ModuleStore::instance() {
    static ModuleStore* store = new ModuleStore(defaultFilePath(), ModuleExecution::defaultRunnerPath());
    return store;
}

ModuleStore* ModuleStore::create(QQmlEngine*, QJSEngine*) {
    ModuleStore* store = instance();
    QJSEngine::setObjectOwnership(store, QJSEngine::CppOwnership);
    return store;
}

QString ModuleStore::defaultFilePath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/OstaVell/modules-v1.json");
}

QUrl ModuleStore::settingsPaneView() {
    return QUrl(QStringLiteral("qrc:/qt/qml/OstaVell/Lightweight/qml/ModulesPane.qml"));
}

ModulePackage ModuleStore::readPackage(const QString& path) {
    return ModulePackage::read(path);
}

ModulePackage ModuleStore::example(const QString& name) {
    // The examples are resources of the app itself.
    QFile file(QStringLiteral(":/Modules/%1.ostavellmodule").arg(name));
    if (!file.open(QIODevice::ReadOnly))
        throw ModuleProblem(QStringLiteral("Example package is missing. Install the packaged OstaVell app."));
    return ModulePackage::decode(file.read(ModulePackage::maximumBytes + 1));
}

QVariantList ModuleStore::examples() {
    return {QVariantMap{{QStringLiteral("name"), QStringLiteral("HelloVell")},
                        {QStringLiteral("label"), QStringLiteral("Hello Vell")}}};
}

void ModuleStore::load() {
    const JsonContents contents = JsonFile::read(m_filePath, maximumFileBytes);
    if (contents.missing())
        return;
    QString reason;
    QList<InstalledModule> loaded;
    try {
        if (contents.status == JsonContents::Status::TooLarge)
            throw ModuleProblem(QStringLiteral("Saved modules exceed the storage limit."));
        if (contents.status == JsonContents::Status::Unusable)
            throw ModuleProblem(contents.error);
        const QJsonDocument& document = contents.document;
        if (!document.isArray())
            throw ModuleProblem(QStringLiteral("Invalid saved module index."));
        const QJsonArray entries = document.array();
        if (entries.size() > maximumModules)
            throw ModuleProblem(QStringLiteral("Invalid saved module index."));
        QSet<QString> ids;
        for (const QJsonValue& entry : entries) {
            InstalledModule module = InstalledModule::fromJson(entry);
            if (ids.contains(module.package.id))
                throw ModuleProblem(QStringLiteral("Invalid saved module index."));
            ids.insert(module.package.id);
            loaded.append(std::move(module));
        }
        for (const InstalledModule& module : std::as_const(loaded))
            validateStored(module);
    } catch (const ModuleProblem& problem) {
        reason = problem.message();
    }
    if (!reason.isEmpty()) {
        m_storageUnavailable = true;
        m_notice =
            QStringLiteral("Could not read saved modules. The original file has been kept: %1").arg(reason);
        qCWarning(lcModules).noquote() << "load failed:" << reason;
        return;
    }
    m_modules = std::move(loaded);
}

void ModuleStore::validateStored(const InstalledModule& module) {
    module.package.validate();
    ModulePackage::validateState(module.state);
    ModulePackage::validateState(module.configuration);
}

QString ModuleStore::persist(const QList<InstalledModule>& modules) const {
    if (m_storageUnavailable)
        return QStringLiteral("Saved module data needs recovery.");
    // What the next start would refuse is never written: it would lose every module.
    try {
        for (const InstalledModule& module : modules)
            validateStored(module);
    } catch (const ModuleProblem& problem) {
        return problem.message();
    }
    // Each record writes its own keys in their fixed order; the array only joins them.
    QByteArray data("[");
    for (qsizetype i = 0; i < modules.size(); ++i) {
        if (i > 0)
            data.append(',');
        data.append(modules.at(i).encoded());
    }
    data.append(']');
    if (data.size() > maximumFileBytes)
        return QStringLiteral("Module storage limit reached.");

    const FileResult saved = JsonFile::write(m_filePath, data);
    if (!saved) {
        qCWarning(lcModules).noquote() << "save failed:" << saved.error();
        return saved.error();
    }
    return {};
}

std::optional<InstalledModule> ModuleStore::module(const QString& id) const {
    const qsizetype index = indexOf(id);
    if (index < 0)
        return std::nullopt;
    return m_modules.at(index);
}

QList<InstalledModule> ModuleStore::visible(const QString& displayID) const {
    QList<InstalledModule> shown;
    for (const InstalledModule& module : m_modules) {
        if (module.isVisible(displayID))
            shown.append(module);
    }
    return shown;
}

void ModuleStore::install(const ModulePackage& package) {
    // Again: the review screen may have held the package for a long time.
    package.validate();
    if (m_storageUnavailable)
        throw ModuleProblem(
            QStringLiteral("Saved module data needs recovery before installing another module."));
    if (m_modules.size() >= maximumModules)
        throw ModuleProblem(QStringLiteral("This preview supports up to 20 modules."));
    if (indexOf(package.id) >= 0)
        throw ModuleProblem(QStringLiteral("This module is already installed. Remove it before installing a "
                                           "different version; updates arrive in the creator beta."));
    QList<InstalledModule> changed = m_modules;
    changed.append(InstalledModule(package));
    const QString failure = persist(changed);
    if (!failure.isEmpty())
        throw ModuleProblem(failure);
    m_modules = std::move(changed);
    emit modulesChanged();
    setNotice(QString());
    invoke(package.id);
}

void ModuleStore::remove(const QString& id) {
    cancel(id);
    if (indexOf(id) < 0)
        return;
    QList<InstalledModule> changed = m_modules;
    changed.removeAt(indexOf(id));
    const QString failure = persist(changed);
    if (!failure.isEmpty()) {
        setNotice(failure);
        return;
    }
    m_modules = std::move(changed);
    emit modulesChanged();
    clearError(id);
    if (m_onRemove)
        m_onRemove(id);
}

void ModuleStore::invoke(const QString& id, const std::optional<QString>& action,
                         const std::optional<ModuleFeedEvent>& event) {
    const qsizetype index = indexOf(id);
    if (index < 0 || !m_modules.at(index).enabled)
        return;
    // A second press during a run does nothing, and nothing is queued.
    if (m_jobs.contains(id))
        return;
    if (m_running.size() >= maximumRunning) {
        setError(id, QStringLiteral("Other modules are busy. Try again shortly."));
        return;
    }
    const InstalledModule& module = m_modules.at(index);
    if (action) {
        const bool declared =
            std::any_of(module.package.actions.cbegin(), module.package.actions.cend(),
                        [&](const ModuleAction& declared) { return declared.id == *action; });
        if (!declared) {
            setError(id, QStringLiteral("This action is not available."));
            return;
        }
    }
    if (!runnerUsable()) {
        setError(id, QStringLiteral("Install the packaged OstaVell app to run modules."));
        return;
    }

    // Taken before any signal goes out: a view reacting to one may change the list.
    const ModuleRequest request{module.package, module.state, module.configuration, action, event};
    const QUuid generation = QUuid::createUuid();
    auto execution = std::make_shared<ModuleExecution>(m_runnerPath, ModuleExecution::defaultTimeout,
                                                       ModuleExecution::Launch::Spare);
    m_generations.insert(id, generation);
    m_jobs.insert(id, execution);
    m_running.insert(id);
    execution->run(request, this,
                   [this, id, generation](const ModuleRunResult& result) { finish(id, generation, result); });
    emit runningChanged();
    clearError(id);
}

void ModuleStore::finish(const QString& id, const QUuid& generation, const ModuleRunResult& result) {
    // A run that was cancelled, removed or reconfigured meanwhile changes nothing at all.
    if (m_generations.value(id) != generation)
        return;
    // Each spare serves one run; the next press gets a new one.
    ModuleRunnerSpares::prepare(m_runnerPath);
    if (result.outcome == ModuleRunResult::Outcome::Succeeded) {
        const qsizetype index = indexOf(id);
        if (index >= 0 && m_modules.at(index).enabled && m_modules.at(index).state != result.state)
            edit(id, [&](InstalledModule& module) { module.state = result.state; });
    } else if (result.outcome == ModuleRunResult::Outcome::Cancelled) {
        setError(id, QStringLiteral("Module stopped."));
    } else {
        setError(id, result.message);
    }
    if (m_generations.value(id) == generation) {
        release(id);
        drain();
    }
}

void ModuleStore::release(const QString& id) {
    m_jobs.remove(id);
    m_generations.remove(id);
    if (m_running.remove(id))
        emit runningChanged();
}

void ModuleStore::drain() {
    const QStringList waiting = m_pendingEvents.keys();
    for (const QString& id : waiting) {
        if (m_running.size() >= maximumRunning)
            break;
        if (m_jobs.contains(id))
            continue;
        receive(id, m_pendingEvents.take(id));
    }
}

void ModuleStore::receive(const QString& id, const ModuleFeedEvent& event) {
    const qsizetype index = indexOf(id);
    if (index < 0)
        return;
    const InstalledModule& module = m_modules.at(index);
    if (!module.enabled || !module.package.permissions.contains(feedPermission) || !module.package.feeds)
        return;
    const QList<ModuleFeed>& feeds = *module.package.feeds;
    if (std::none_of(feeds.cbegin(), feeds.cend(),
                     [&](const ModuleFeed& feed) { return feed.id == event.feedID; }))
        return;
    if (TextMetrics::utf8Size(event.json) > maximumEventBytes)
        return;
    // Only the latest event matters; an older one waiting is replaced.
    if (m_jobs.contains(id) || m_running.size() >= maximumRunning) {
        m_pendingEvents.insert(id, event);
        return;
    }
    invoke(id, std::nullopt, event);
}

void ModuleStore::cancel(const QString& id) {
    m_pendingEvents.remove(id);
    m_generations.remove(id);
    if (const std::shared_ptr<ModuleExecution> job = m_jobs.take(id))
        job->cancel();
    if (m_running.remove(id))
        emit runningChanged();
}

void ModuleStore::killAll() {
    const QStringList ids = m_jobs.keys();
    for (const QString& id : ids)
        cancel(id);
    ModuleRunnerSpares::discard(m_runnerPath);
}

void ModuleStore::configure(const QString& id, const QString& key, const QString& value) {
    const qsizetype index = indexOf(id);
    if (index < 0)
        return;
    const QList<ModuleSetting>& settings = m_modules.at(index).package.settings;
    if (std::none_of(settings.cbegin(), settings.cend(),
                     [&](const ModuleSetting& setting) { return setting.id == key; }))
        return;
    const QString stored = TextMetrics::leftCharacters(value, maximumSettingCharacters);
    ModuleState configuration = m_modules.at(index).configuration;
    configuration.insert(key, stored);
    try {
        ModulePackage::validateState(configuration);
    } catch (const ModuleProblem&) {
        // Refused before anything changes: the run in flight and the saved value stand.
        setError(id, QStringLiteral("This setting is too long to save."));
        return;
    }
    cancel(id);
    edit(id, [&](InstalledModule& module) { module.configuration.insert(key, stored); });
    invoke(id);
}

void ModuleStore::setEnabled(const QString& id, bool enabled) {
    if (!enabled)
        cancel(id);
    edit(id, [&](InstalledModule& module) { module.enabled = enabled; });
    if (enabled)
        invoke(id);
}

void ModuleStore::setVisible(const QString& id, const QString& displayID, bool visible) {
    edit(id, [&](InstalledModule& module) {
        if (visible)
            module.hiddenDisplayIDs.remove(displayID);
        else
            module.hiddenDisplayIDs.insert(displayID);
    });
}

void ModuleStore::setCompact(const QString& id, bool compact) {
    edit(id, [&](InstalledModule& module) { module.compactActivity = compact; });
}

void ModuleStore::edit(const QString& id, const std::function<void(InstalledModule&)>& change) {
    const qsizetype index = indexOf(id);
    if (index < 0)
        return;
    QList<InstalledModule> changed = m_modules;
    change(changed[index]);
    const QString failure = persist(changed);
    if (!failure.isEmpty()) {
        setNotice(failure);
        setError(id, failure);
        return;
    }
    m_modules = std::move(changed);
    emit modulesChanged();
}

bool ModuleStore::runnerUsable() const {
    const QFileInfo runner(m_runnerPath);
    return !m_runnerPath.isEmpty() && runner.isFile() && runner.isExecutable();
}

qsizetype ModuleStore::indexOf(const QString& id) const {
    for (qsizetype i = 0; i < m_modules.size(); ++i) {
        if (m_modules.at(i).package.id == id)
            return i;
    }
    return -1;
}

void ModuleStore::setError(const QString& id, const QString& message) {
    if (m_errors.contains(id) && m_errors.value(id) == message)
        return;
    m_errors.insert(id, message);
    emit errorsChanged();
}

void ModuleStore::clearError(const QString& id) {
    if (m_errors.remove(id) > 0)
        emit errorsChanged();
}

void ModuleStore::setNotice(const QString& notice) {
    if (m_notice == notice)
        return;
    m_notice = notice;
    emit noticeChanged();
}

QVariantList ModuleStore::visibleModules(const QString& displayID) const {
    QVariantList list;
    for (const InstalledModule& module : visible(displayID))
        list.append(ModuleVariants::installed(module));
    return list;
}

QString ModuleStore::text(const QString& id, const QString& textTemplate) const {
    const qsizetype index = indexOf(id);
    if (index < 0)
        return {};
    const InstalledModule& module = m_modules.at(index);
    return ModulePackage::text(textTemplate, module.state, module.configuration);
}

double ModuleStore::progress(const QString& id, const QString& valueKey) const {
    const qsizetype index = indexOf(id);
    if (index < 0)
        return 0;
    return ModuleComponent::progressValue(m_modules.at(index).state.value(valueKey, QStringLiteral("0")));
}

QString ModuleStore::activityText(const QString& id) const {
    const qsizetype index = indexOf(id);
    if (index < 0)
        return {};
    const InstalledModule& module = m_modules.at(index);
    if (hasFeeds(module.package))
        return legacyActivity;
    if (!module.package.activity)
        return {};
    return ModulePackage::text(*module.package.activity, module.state, module.configuration);
}

QString ModuleStore::review(const QUrl& file) {
    try {
        setReviewed(readPackage(file.isLocalFile() ? file.toLocalFile() : file.toString()));
    } catch (const ModuleProblem& problem) {
        setReviewed(std::nullopt);
        return problem.message();
    }
    return {};
}

QString ModuleStore::reviewExample(const QString& name) {
    try {
        setReviewed(example(name));
    } catch (const ModuleProblem& problem) {
        setReviewed(std::nullopt);
        return problem.message();
    }
    return {};
}

QString ModuleStore::installReviewed() {
    if (!m_reviewed)
        return {};
    try {
        install(*m_reviewed);
    } catch (const ModuleProblem& problem) {
        return problem.message();
    }
    setReviewed(std::nullopt);
    return {};
}

void ModuleStore::cancelReview() {
    setReviewed(std::nullopt);
}

void ModuleStore::setReviewed(std::optional<ModulePackage> package) {
    if (!m_reviewed && !package)
        return;
    m_reviewed = std::move(package);
    emit reviewedChanged();
}

QVariantMap ModuleStore::reviewed() const {
    if (!m_reviewed)
        return {};
    QVariantMap map = ModuleVariants::package(*m_reviewed);
    map.insert(QStringLiteral("publisher"),
               QStringLiteral("Publisher identity is not verified in this preview."));
    map.insert(
        QStringLiteral("access"),
        hasFeeds(*m_reviewed)
            ? QStringLiteral("Access: local state and an optional read-only device feed. You choose and "
                             "connect the device separately. No printer commands, files, or accounts.")
            : QStringLiteral("Access: its own local state and settings only. No network, printer, files, "
                             "accounts or system commands."));
    return map;
}

QVariantList ModuleStore::modulesForViews() const {
    QVariantList list;
    for (const InstalledModule& module : m_modules)
        list.append(ModuleVariants::installed(module));
    return list;
}

QVariantMap ModuleStore::errorsForViews() const {
    QVariantMap map;
    // Shown within the card's usual text limit, however long the module's error.
    for (auto it = m_errors.cbegin(); it != m_errors.cend(); ++it)
        map.insert(it.key(), TextMetrics::leftCharacters(it.value(), ModulePackage::maximumTextCharacters));
    return map;
}

QStringList ModuleStore::runningForViews() const {
    QStringList ids(m_running.cbegin(), m_running.cend());
    std::sort(ids.begin(), ids.end());
    return ids;
}

} // namespace vell
