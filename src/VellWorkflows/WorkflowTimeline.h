#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

namespace vell {

// What one run did, step by step, as it is shown and saved. Phases are plain text: the file
// format does not restrict them, and a step's phase may be any of the timeline's plus the
// active ones of a router run.
struct WorkflowTimeline {
    static constexpr int maximumDetailCharacters = 300;

    static constexpr QStringView running = u"running";
    static constexpr QStringView completed = u"completed";
    static constexpr QStringView simulated = u"simulated";
    static constexpr QStringView failed = u"failed";
    static constexpr QStringView cancelled = u"cancelled";
    static constexpr QStringView interrupted = u"interrupted";
    static constexpr QStringView waitingReview = u"waitingReview";
    static constexpr QStringView cancelling = u"cancelling";

    struct Step {
        QString node;
        QString title;
        QString phase;
        std::optional<double> startedAt;
        std::optional<double> endedAt;
        std::optional<QString> detail;
        // 0 to 1.
        std::optional<double> progress;

        // running, waitingReview and cancelling: the step has not ended.
        bool isActive() const;

        static Step fromJson(const JsonNode& json);
        // Declared field order, absent optionals left out.
        QByteArray encoded() const;
        QJsonObject toJson() const;

        friend bool operator==(const Step&, const Step&) = default;
    };

    QUuid id;
    QUuid workflowID;
    QString title;
    QString phase;
    double date = 0;
    QList<Step> steps;
    std::optional<double> endedAt;
    std::optional<QString> detail;

    bool isActive() const { return phase == running; }
    // Steps that ended as completed or simulated.
    int completedSteps() const;
    // One line for the widget: the step under way while running, else the outcome.
    QString statusText() const;

    static WorkflowTimeline fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    friend bool operator==(const WorkflowTimeline&, const WorkflowTimeline&) = default;
};

} // namespace vell
