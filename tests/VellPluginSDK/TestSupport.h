#pragma once

#include "VellPluginSDK/Actions/PluginRegisteredAction.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <functional>

namespace vell::test {

// The message of the first failure, or an empty text when the call passes.
template <typename F> QString problemOf(F&& call) {
    try {
        call();
    } catch (const ModuleProblem& problem) {
        return problem.message();
    }
    return {};
}

// Any JSON value, a bare scalar too, from its text.
inline QJsonValue parse(const QByteArray& json) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson("[" + json + "]", &error);
    if (error.error != QJsonParseError::NoError)
        qFatal("bad test JSON: %s", json.constData());
    return document.array().at(0);
}

// One row of the current table, its values in the order of the columns.
template <typename... Values> void row(const char* name, const Values&... values) {
    (QTest::newRow(name) << ... << values);
}

using Check = std::function<void()>;

// A row of a table of checks and their messages: the check validates the record.
template <typename Record> void check(const char* name, const Record& record, const QString& message) {
    QTest::newRow(name) << Check([record] { record.validate(); }) << message;
}

// The columns of a table of checks, and the test of its current row.
inline void checkColumns() {
    QTest::addColumn<Check>("check");
    QTest::addColumn<QString>("message");
}

inline void runCheckRow() {
    QFETCH(Check, check);
    QTEST(problemOf(check), "message");
}

inline PluginRegisteredAction action(const QString& id = "toggle", const QString& title = "Toggle",
                                     double timeout = 10, std::optional<double> completion = std::nullopt) {
    PluginRegisteredAction action;
    action.id = id;
    action.title = title;
    action.timeoutSeconds = timeout;
    action.completionTimeoutSeconds = completion;
    return action;
}

} // namespace vell::test
