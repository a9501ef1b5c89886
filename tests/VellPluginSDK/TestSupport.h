#pragma once

#include "VellPluginSDK/ModuleProblem.h"

#include <QJsonArray>
#include <QJsonDocument>

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

} // namespace vell::test
