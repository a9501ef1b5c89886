#include "OstaVell/Modules/Plugins/NativePluginStore.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QJsonArray>
#include <QJsonObject>

// What the views read of the store, as plain maps and lists, and the operations behind the
// review screen, the grants and the reviews of runs. Every text in these maps comes from a
// plugin and is drawn as plain text.

namespace vell {

namespace {
// Seconds since 2001 to milliseconds since 1970, what a QML Date takes.
double javaScriptTime(double instant) {
    return (instant + ReferenceTime::epoch) * 1000;
}

QVariantMap manifestMap(const PluginManifest& manifest) {
    QVariantMap map{
        {QStringLiteral("id"), manifest.id},
        {QStringLiteral("name"), manifest.name},
        {QStringLiteral("version"), manifest.version},
        {QStringLiteral("summary"), manifest.summary},
        {QStringLiteral("capabilities"), manifest.capabilities},
        {QStringLiteral("launchMode"),
         manifest.launchesAsApplication() ? QStringLiteral("application") : QStringLiteral("child")},
    };
    if (manifest.icon)
        map.insert(QStringLiteral("icon"), manifest.icon->toJson().toVariantMap());
    return map;
}

QString effectName(const PluginRegisteredAction& action) {
    return action.toJson().value(QStringLiteral("effect")).toString();
}
} // namespace

QString NativePluginStore::peerName(const QString& peer) const {
    if (const auto local = m_sessions->localNames().constFind(peer); local != m_sessions->localNames().cend())
        return *local;
    if (const auto record = plugin(peer))
        return record->manifest.name;
    return peer;
}

QVariantList NativePluginStore::pluginsForViews() const {
    QVariantList list;
    for (const NativePluginRecord& record : m_plugins) {
        QVariantMap map = manifestMap(record.manifest);
        const QString status = m_sessions->status().value(record.manifest.id);
        map.insert(QStringLiteral("fingerprint"), record.fingerprint);
        map.insert(QStringLiteral("enabled"), record.enabled);
        map.insert(QStringLiteral("compactActivity"), record.compactActivity);
        map.insert(QStringLiteral("hiddenDisplayIDs"), record.hiddenDisplayIDs);
        map.insert(QStringLiteral("status"), status);
        map.insert(QStringLiteral("running"), status == NativePluginSessions::runningStatus);
        QVariantList versions;
        for (const NativePluginVersion& version :
             record.previousVersions.value_or(QList<NativePluginVersion>()))
            versions.append(QVariantMap{
                {QStringLiteral("folder"), version.folder},
                {QStringLiteral("name"), version.manifest.name},
                {QStringLiteral("version"), version.manifest.version},
                {QStringLiteral("fingerprint"), version.fingerprint},
                {QStringLiteral("savedAt"), javaScriptTime(version.savedAt)},
            });
        map.insert(QStringLiteral("previousVersions"), versions);
        list.append(map);
    }
    return list;
}

QVariantMap NativePluginStore::usageForViews() const {
    QVariantMap usage;
    const QStringList running = m_sessions->running();
    for (const QString& id : running) {
        const qint64 pid = m_sessions->processID(id);
        const std::optional<double> cpu = pid ? m_usage.cpuSecondsLastMinute(pid_t(pid)) : std::nullopt;
        const std::optional<qint64> resident = pid ? m_usage.residentBytes(pid_t(pid)) : std::nullopt;
        if (cpu && resident)
            usage.insert(id, QVariantMap{{QStringLiteral("cpuSeconds"), *cpu},
                                         {QStringLiteral("residentBytes"), double(*resident)}});
    }
    return usage;
}

QVariantList NativePluginStore::visiblePlugins(const QString& displayID) const {
    QVariantList visible;
    const QVariantList all = pluginsForViews();
    for (const QVariant& entry : all) {
        const QVariantMap map = entry.toMap();
        if (map.value(QStringLiteral("enabled")).toBool() &&
            !map.value(QStringLiteral("hiddenDisplayIDs")).toStringList().contains(displayID))
            visible.append(map);
    }
    return visible;
}

QVariantList NativePluginStore::reviewsForViews() const {
    QVariantList reviews;
    for (const ActionRun& run : router().runs()) {
        if (run.phase() != PluginRunPhase::waitingReview)
            continue;
        QVariantList arguments;
        for (auto value = run.arguments.cbegin(); value != run.arguments.cend(); ++value)
            arguments.append(QVariantMap{{QStringLiteral("name"), value.key()},
                                         {QStringLiteral("value"), value->display()}});
        reviews.append(QVariantMap{
            {QStringLiteral("id"), uuidText(run.id)},
            // Reviewed on its form where the form is on screen.
            {QStringLiteral("form"), m_sessions->pendingForms().contains(run.id)},
            {QStringLiteral("caller"), run.caller},
            {QStringLiteral("callerName"), peerName(run.caller)},
            {QStringLiteral("provider"), run.address.plugin},
            {QStringLiteral("providerName"), peerName(run.address.plugin)},
            {QStringLiteral("title"), run.definition.title},
            {QStringLiteral("effect"), effectName(run.definition)},
            {QStringLiteral("arguments"), arguments},
            {QStringLiteral("expires"), javaScriptTime(run.deadline)},
        });
    }
    return reviews;
}

QVariantList NativePluginStore::activeRunsForViews() const {
    QVariantList runs;
    for (const ActionRun& run : router().runs()) {
        if (!run.isLive() || run.phase() == PluginRunPhase::waitingReview)
            continue;
        QVariantMap map{
            {QStringLiteral("id"), uuidText(run.id)},
            {QStringLiteral("caller"), run.caller},
            {QStringLiteral("callerName"), peerName(run.caller)},
            {QStringLiteral("provider"), run.address.plugin},
            {QStringLiteral("providerName"), peerName(run.address.plugin)},
            {QStringLiteral("title"), run.definition.title},
            {QStringLiteral("phase"), pluginRunPhaseName(run.phase())},
            {QStringLiteral("message"), run.update.message},
        };
        if (run.update.progress)
            map.insert(QStringLiteral("progress"), *run.update.progress);
        if (run.update.display)
            map.insert(QStringLiteral("display"), run.update.display->toJson().toVariantMap());
        runs.append(map);
    }
    return runs;
}

QVariantList NativePluginStore::allowedActionsForViews() const {
    QVariantList entries;
    const QList<PluginCatalogEntry> catalogue = router().exported();
    const QStringList callers = router().participants();
    for (const QString& caller : callers) {
        for (const PluginCatalogEntry& entry : catalogue) {
            if (entry.address.plugin == caller)
                continue;
            const bool channel = entry.channel.has_value();
            entries.append(QVariantMap{
                {QStringLiteral("caller"), caller},
                {QStringLiteral("callerName"), peerName(caller)},
                {QStringLiteral("provider"), entry.address.plugin},
                {QStringLiteral("providerName"), peerName(entry.address.plugin)},
                {QStringLiteral("name"), entry.address.name},
                {QStringLiteral("title"), channel ? entry.channel->title : entry.action->title},
                {QStringLiteral("effect"), channel ? QString() : effectName(*entry.action)},
                {QStringLiteral("channel"), channel},
                {QStringLiteral("allowed"), router().allowed(caller, entry)},
            });
        }
    }
    return entries;
}

QVariantList NativePluginStore::historyForViews() const {
    QVariantList history;
    for (const ActionRunSummary& summary : router().history())
        history.prepend(QVariantMap{
            {QStringLiteral("caller"), summary.caller},
            {QStringLiteral("callerName"), peerName(summary.caller)},
            {QStringLiteral("provider"), summary.address.plugin},
            {QStringLiteral("providerName"), peerName(summary.address.plugin)},
            {QStringLiteral("name"), summary.address.name},
            {QStringLiteral("title"), summary.title},
            {QStringLiteral("phase"), pluginRunPhaseName(summary.phase)},
            {QStringLiteral("date"), javaScriptTime(summary.date)},
        });
    return history;
}

QString NativePluginStore::actionsError() const {
    return router().persistenceError().value_or(QString());
}

QString NativePluginStore::approve(const QString& runID) {
    const QUuid run = QUuid::fromString(runID);
    try {
        // A form's run is approved from any review screen only while its form still stands.
        if (const auto pending = m_sessions->pendingForms().constFind(run);
            pending != m_sessions->pendingForms().cend()) {
            const NativePluginSessions::PendingForm form = *pending;
            m_sessions->approveForm(form.pluginID, form.form, run);
            return {};
        }
        router().approve(run, m_sessions->clock());
    } catch (const ModuleProblem& problem) {
        return problem.message();
    }
    return {};
}

QString NativePluginStore::decline(const QString& runID) {
    try {
        router().cancel(QUuid::fromString(runID), m_sessions->clock());
    } catch (const ModuleProblem& problem) {
        return problem.message();
    }
    return {};
}

QString NativePluginStore::setAllowed(const QString& caller, const QString& provider, const QString& name,
                                      bool channel, bool allowed) {
    // The entry is looked up afresh: a grant is given for what is offered at this moment.
    const QList<PluginCatalogEntry> catalogue = router().exported();
    const auto entry =
        std::find_if(catalogue.cbegin(), catalogue.cend(), [&](const PluginCatalogEntry& candidate) {
            return candidate.address.plugin == provider && candidate.address.name == name &&
                   candidate.channel.has_value() == channel;
        });
    if (entry == catalogue.cend())
        return QStringLiteral("The action is no longer available.");
    try {
        router().setAllowed(caller, *entry, allowed);
    } catch (const ModuleProblem& problem) {
        return problem.message();
    }
    return {};
}

void NativePluginStore::setReviewed(QVariantMap reviewed) {
    m_reviewed = std::move(reviewed);
    emit reviewedChanged();
}

QString NativePluginStore::review(const QUrl& bundle) {
    const QString source = bundle.isLocalFile() ? bundle.toLocalFile() : bundle.toString();
    NativePluginInspection inspection;
    try {
        inspection = NativePluginBundle::inspect(source);
    } catch (const ModuleProblem& problem) {
        return problem.message();
    }
    QVariantMap map = manifestMap(inspection.manifest);
    map.insert(QStringLiteral("fingerprint"), inspection.fingerprint);
    map.insert(QStringLiteral("signature"), QStringLiteral("valid"));
    map.insert(QStringLiteral("update"), indexOf(inspection.manifest.id) >= 0);
    map.insert(QStringLiteral("restore"), false);
    map.insert(
        QStringLiteral("warning"),
        QStringLiteral("This plugin runs its own application code on your computer. It is not confined "
                       "by the lightweight module sandbox. Its declared capabilities are:"));
    map.insert(
        QStringLiteral("trust"),
        QStringLiteral("The package signature and contents are checked. This preview does not establish "
                       "publisher trust or notarization; install plugins you trust."));
    m_review = Review{source, inspection.fingerprint, {}, {}, {}};
    setReviewed(map);
    return {};
}

QString NativePluginStore::reviewSaved(const QString& id, const QString& folder) {
    const std::optional<NativePluginRecord> current = plugin(id);
    NativePluginInspection inspection;
    try {
        inspection = reviewRestore(id, folder);
    } catch (const ModuleProblem& problem) {
        return problem.message();
    }
    QVariantMap map = manifestMap(inspection.manifest);
    map.insert(QStringLiteral("fingerprint"), inspection.fingerprint);
    map.insert(QStringLiteral("signature"), QStringLiteral("valid"));
    map.insert(QStringLiteral("update"), true);
    map.insert(QStringLiteral("restore"), true);
    map.insert(
        QStringLiteral("restoreWarning"),
        QStringLiteral("Restore this saved version? Your current plugin will stop. Settings and monitor "
                       "placement are kept, but plugin-owned data is not rewound. Older versions may not "
                       "understand newer settings. In-flight actions are not replayed."));
    m_review = Review{{}, inspection.fingerprint, id, folder, current ? current->fingerprint : QString()};
    setReviewed(map);
    return {};
}

QString NativePluginStore::installReviewed() {
    if (!m_review)
        return {};
    const Review review = *m_review;
    try {
        if (review.restoreID.isEmpty())
            install(review.source, review.fingerprint);
        else
            restore(review.restoreID, review.restoreFolder, review.fingerprint, review.currentFingerprint);
    } catch (const ModuleProblem& problem) {
        return problem.message();
    }
    cancelReview();
    return {};
}

void NativePluginStore::cancelReview() {
    m_review.reset();
    setReviewed({});
}

} // namespace vell
