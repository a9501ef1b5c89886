#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace vell {

// How a multi-step run presents itself. The router carries it untouched but validated.
struct PluginRunDisplay {
    static constexpr int maximumTitleCharacters = 80;
    static constexpr int maximumDetailCharacters = 300;
    static constexpr qint64 maximumSteps = 64;

    QString title;
    QString step;
    QString detail;
    qint64 completedSteps = 0;
    qint64 totalSteps = 0;
    bool needsReview = false;

    static PluginRunDisplay fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;
    void validate() const;

    friend bool operator==(const PluginRunDisplay&, const PluginRunDisplay&) = default;
};

} // namespace vell
