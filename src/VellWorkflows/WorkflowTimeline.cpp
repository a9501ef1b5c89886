#include "VellWorkflows/WorkflowTimeline.h"

#include "VellPluginSDK/Actions/PluginBusMessage.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"

#include <QJsonDocument>

#include <algorithm>

namespace vell {

bool WorkflowTimeline::Step::isActive() const {
    return phase == running || phase == waitingReview || phase == cancelling;
}

WorkflowTimeline::Step WorkflowTimeline::Step::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    Step step;
    step.node = reader.string(u"node");
    step.title = reader.string(u"title");
    step.phase = reader.string(u"phase");
    step.startedAt = reader.optionalNumber(u"startedAt");
    step.endedAt = reader.optionalNumber(u"endedAt");
    step.detail = reader.optionalString(u"detail");
    step.progress = reader.optionalNumber(u"progress");
    return step;
}

QByteArray WorkflowTimeline::Step::encoded() const {
    return JsonWriter()
        .add(u"node", node)
        .add(u"title", title)
        .add(u"phase", phase)
        .addIfPresent(u"startedAt", startedAt)
        .addIfPresent(u"endedAt", endedAt)
        .addIfPresent(u"detail", detail)
        .addIfPresent(u"progress", progress)
        .bytes();
}

QJsonObject WorkflowTimeline::Step::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

int WorkflowTimeline::completedSteps() const {
    return int(std::count_if(steps.cbegin(), steps.cend(), [](const Step& step) {
        return step.phase == completed || step.phase == simulated;
    }));
}

QString WorkflowTimeline::statusText() const {
    if (isActive() && !steps.isEmpty()) {
        const Step& last = steps.constLast();
        if (last.phase == waitingReview)
            return QStringLiteral("Needs review \u00B7 ") + last.title;
        if (last.phase == cancelling)
            return QStringLiteral("Stopping \u00B7 ") + last.title;
        return QStringLiteral("Running \u00B7 ") + last.title;
    }
    QString words = phase;
    if (!words.isEmpty())
        words[0] = words[0].toUpper();
    return words + QStringLiteral(" \u00B7 ") + title;
}

WorkflowTimeline WorkflowTimeline::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    WorkflowTimeline timeline;
    timeline.id = reader.uuid(u"id");
    timeline.workflowID = reader.uuid(u"workflowID");
    timeline.title = reader.string(u"title");
    timeline.phase = reader.string(u"phase");
    timeline.date = reader.number(u"date");
    timeline.steps = reader.records<Step>(u"steps");
    timeline.endedAt = reader.optionalNumber(u"endedAt");
    timeline.detail = reader.optionalString(u"detail");
    return timeline;
}

QByteArray WorkflowTimeline::encoded() const {
    return JsonWriter()
        .add(u"id", uuidText(id))
        .add(u"workflowID", uuidText(workflowID))
        .add(u"title", title)
        .add(u"phase", phase)
        .add(u"date", date)
        .addRecords(u"steps", steps)
        .addIfPresent(u"endedAt", endedAt)
        .addIfPresent(u"detail", detail)
        .bytes();
}

QJsonObject WorkflowTimeline::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

} // namespace vell
