#pragma once

#include "VellPluginSDK/Actions/PluginValueSchema.h"
#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace vell {

// One action that a peer offers, as it registers it.
struct PluginRegisteredAction {
    // Decides review: anything but readOnly waits for a person every time.
    enum class Effect { readOnly, localChange, externalChange };

    static constexpr int maximumTitleCharacters = 80;
    static constexpr double minimumTimeoutSeconds = 1;
    static constexpr double maximumTimeoutSeconds = 300;
    static constexpr double maximumCompletionTimeoutSeconds = 86400;

    QString id;
    QString title;
    PluginValueSchema input;
    PluginValueSchema output;
    Effect effect = Effect::readOnly;
    bool cancellable = false;
    // Longest silence allowed between signs of progress.
    double timeoutSeconds = 0;
    // Outer limit of the whole run.
    std::optional<double> completionTimeoutSeconds;

    static PluginRegisteredAction fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;
    void validate() const;

    friend bool operator==(const PluginRegisteredAction&, const PluginRegisteredAction&) = default;
};

} // namespace vell
