// What the Automations tab reads and asks: plain maps of the library and the runs, and the
// operations by workflow id with their sentences as answers.

#include "OstaVell/Features/Automations/AutomationStore.h"
#include "VellPluginSDK/Json/JsonFile.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QDir>
#include <QVariant>

namespace vell {

namespace {

// Seconds since 2001 to milliseconds since 1970, what a QML Date takes.
QVariant javaScriptTime(const std::optional<double>& instant) {
    return instant ? QVariant((*instant + ReferenceTime::epoch) * 1000) : QVariant();
}

QVariantMap timelineMap(const WorkflowTimeline& timeline) {
    QVariantList steps;
    for (const WorkflowTimeline::Step& step : timeline.steps)
        steps.append(QVariantMap{{"node", step.node},
                                 {"title", step.title},
                                 {"phase", step.phase},
                                 {"detail", step.detail.value_or(QString())},
                                 {"progress", step.progress ? QVariant(*step.progress) : QVariant()}});
    return {{"id", uuidText(timeline.id)},
            {"workflowID", uuidText(timeline.workflowID)},
            {"title", timeline.title},
            {"phase", timeline.phase},
            {"statusText", timeline.statusText()},
            {"date", javaScriptTime(timeline.date)},
            {"endedAt", javaScriptTime(timeline.endedAt)},
            {"detail", timeline.detail.value_or(QString())},
            {"completedSteps", timeline.completedSteps()},
            {"steps", steps}};
}

QString problemOf(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const ModuleProblem& problem) {
        return problem.message();
    }
    return {};
}

} // namespace

QVariantList AutomationStore::documentsForViews() const {
    QVariantList documents;
    for (const WorkflowDocument& document : m_documents) {
        const bool event =
            std::any_of(document.nodes.cbegin(), document.nodes.cend(), [](const WorkflowNode& node) {
                return node.data.kind == WorkflowNode::Configuration::Kind::event;
            });
        documents.append(QVariantMap{{"id", uuidText(document.id)},
                                     {"title", document.title},
                                     {"start", event ? "event" : "manual"},
                                     {"armed", m_armed.contains(document.id)},
                                     {"steps", document.nodes.size()}});
    }
    return documents;
}

QVariantList AutomationStore::historyForViews() const {
    QVariantList runs;
    for (auto timeline = m_history.crbegin(); timeline != m_history.crend(); ++timeline)
        runs.append(timelineMap(*timeline));
    return runs;
}

QVariantMap AutomationStore::activeRunForViews() const {
    const std::optional<WorkflowTimeline> run = activeRun();
    return run ? timelineMap(*run) : QVariantMap();
}

QVariantMap AutomationStore::actionReviewForViews() const {
    const std::optional<ActionRun> run = actionReview();
    return run ? QVariantMap{{"id", uuidText(run->id)}, {"title", run->definition.title}} : QVariantMap();
}

QUrl AutomationStore::homeFolder() {
    return QUrl::fromLocalFile(QDir::homePath());
}

void AutomationStore::runWorkflow(const QString& id, bool simulate) {
    if (const std::optional<WorkflowDocument> found = document(id))
        run(*found, simulate, {}, false, {}, QUuid::createUuid());
}

QString AutomationStore::arm(const QString& id, bool armed) {
    const std::optional<WorkflowDocument> found = document(id);
    return found ? problemOf([&] { setArmed(*found, armed); }) : QString();
}

QString AutomationStore::removeWorkflow(const QString& id) {
    return problemOf([&] { remove(QUuid(id)); });
}

QString AutomationStore::importWorkflow(const QUrl& file) {
    return problemOf([&] {
        const FileContents contents =
            JsonFile::readBytes(file.toLocalFile(), WorkflowFiles::maximumFileBytes);
        if (contents.status == FileContents::Status::TooLarge)
            throw ModuleProblem(QStringLiteral("Workflow storage is too large."));
        if (!contents.read())
            throw ModuleProblem(contents.error);
        save(WorkflowDocument::fromJson(JsonReader::parse(contents.bytes)));
    });
}

QString AutomationStore::exportWorkflow(const QString& id, const QUrl& file) {
    return problemOf([&] {
        if (const std::optional<WorkflowDocument> found = document(id))
            if (const FileResult written = JsonFile::write(file.toLocalFile(), found->encoded()); !written)
                throw ModuleProblem(written.error());
    });
}

QString AutomationStore::exportScript(const QString& id, const QUrl& file) {
    return problemOf([&] {
        if (const std::optional<WorkflowDocument> found = document(id))
            if (const FileResult written = JsonFile::write(file.toLocalFile(), found->shellScript().toUtf8());
                !written)
                throw ModuleProblem(written.error());
    });
}

void AutomationStore::dismissNotice() {
    if (std::exchange(m_notice, std::nullopt))
        emit noticeChanged();
}

} // namespace vell
