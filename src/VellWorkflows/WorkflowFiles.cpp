#include "VellWorkflows/WorkflowFiles.h"

#include "VellPluginSDK/Json/JsonFile.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QDir>
#include <QSet>

#include <algorithm>

namespace vell {

namespace {

const QString notAnArray = QStringLiteral("The file does not hold a JSON array.");

bool uniqueIDs(const QList<WorkflowDocument>& documents) {
    QSet<QUuid> ids;
    for (const WorkflowDocument& document : documents)
        ids.insert(document.id);
    return ids.size() == documents.size();
}

template <typename T> QByteArray encodeAll(const QList<T>& records) {
    QList<QByteArray> items;
    items.reserve(records.size());
    for (const T& record : records)
        items.append(record.encoded());
    return JsonWriter::encodeArray(items);
}

void repair(WorkflowTimeline& timeline, double now) {
    const QString detail = WorkflowFiles::interruptedDetail.toString();
    timeline.phase = WorkflowTimeline::interrupted.toString();
    timeline.endedAt = now;
    timeline.detail = detail;
    for (WorkflowTimeline::Step& step : timeline.steps) {
        if (!step.isActive())
            continue;
        step.phase = timeline.phase;
        step.detail = detail;
        step.endedAt = now;
    }
}

// The tests a stored document must pass; its graph may be unfinished, as the editor saves it.
bool storable(const WorkflowDocument& document) {
    return document.schemaVersion == WorkflowDocument::currentSchemaVersion &&
           TextMetrics::characterCount(document.title) <= WorkflowDocument::maximumTitleCharacters &&
           document.nodes.size() <= WorkflowDocument::maximumNodes &&
           document.edges.size() <= WorkflowDocument::maximumEdges;
}

} // namespace

WorkflowFiles::WorkflowFiles(QString directory)
    : m_directory(std::move(directory)) {}

QString WorkflowFiles::path(QStringView name) const {
    return QDir(m_directory).filePath(name.toString());
}

std::optional<QByteArray> WorkflowFiles::read(QStringView name, const char* tooLarge) const {
    const FileContents file = JsonFile::readBytes(path(name), maximumFileBytes);
    if (file.missing())
        return std::nullopt;
    if (file.status == FileContents::Status::TooLarge)
        throw ModuleProblem(QString::fromUtf8(tooLarge));
    if (file.status == FileContents::Status::Unusable)
        throw ModuleProblem(file.error);
    return file.bytes;
}

QList<WorkflowDocument> WorkflowFiles::load() const {
    const std::optional<QByteArray> bytes = read(libraryFile, "Workflow storage is too large.");
    if (!bytes)
        return {};
    const QList<WorkflowDocument> documents =
        JsonReader::recordArray<WorkflowDocument>(JsonReader::parse(*bytes), notAnArray);
    if (documents.size() > maximumDocuments || !uniqueIDs(documents))
        throw ModuleProblem(QStringLiteral("Invalid workflow library."));
    if (!std::all_of(documents.cbegin(), documents.cend(), storable))
        throw ModuleProblem(QStringLiteral("Invalid stored workflow."));
    return documents;
}

void WorkflowFiles::save(const QList<WorkflowDocument>& documents) const {
    if (documents.size() > maximumDocuments || !uniqueIDs(documents))
        throw ModuleProblem(QStringLiteral("The workflow library is full."));
    // What the next load would refuse is never written: it would lose the whole library.
    if (!std::all_of(documents.cbegin(), documents.cend(), storable))
        throw ModuleProblem(QStringLiteral("Invalid stored workflow."));
    const QByteArray bytes = encodeAll(documents);
    if (bytes.size() > maximumFileBytes)
        throw ModuleProblem(QStringLiteral("Workflow storage is too large."));
    write(bytes, libraryFile);
}

QList<WorkflowTimeline> WorkflowFiles::history(double now) const {
    const std::optional<QByteArray> bytes = read(historyFile, "History is too large.");
    if (!bytes)
        return {};
    QList<WorkflowTimeline> timelines =
        JsonReader::recordArray<WorkflowTimeline>(JsonReader::parse(*bytes), notAnArray);
    if (timelines.size() > maximumTimelines)
        timelines = timelines.mid(timelines.size() - maximumTimelines);
    for (WorkflowTimeline& timeline : timelines)
        if (timeline.isActive())
            repair(timeline, now);
    return timelines;
}

void WorkflowFiles::saveHistory(const QList<WorkflowTimeline>& timelines) const {
    write(encodeAll(timelines.mid(qMax<qsizetype>(0, timelines.size() - maximumTimelines))), historyFile);
}

void WorkflowFiles::write(const QByteArray& data, QStringView name) const {
    const FileResult written = JsonFile::write(path(name), data, JsonFile::privateFolder);
    if (!written)
        throw ModuleProblem(written.error());
}

} // namespace vell
