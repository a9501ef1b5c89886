#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <optional>

namespace vell {

// A brief text a plugin shows at the top of a screen, outside its panel (a dictation result,
// say). The host decides where and for how long.
struct PluginTransientCaption {
    // active and result stay for a while, dismiss takes the plugin's own caption away.
    enum class Phase { active, result, dismiss };

    static constexpr int maximumTitleCharacters = 80;
    static constexpr qsizetype maximumTextBytes = 1200;
    static constexpr int maximumDetailCharacters = 160;
    static constexpr int maximumSymbolCharacters = 50;

    Phase phase = Phase::active;
    // Empty only for dismiss.
    QString title;
    QString text;
    QString detail;
    QString symbol;
    // The screen wanted; another is used when it is not connected. Never 0.
    std::optional<quint32> displayNumber;

    static PluginTransientCaption fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;
    void validate() const;

    friend bool operator==(const PluginTransientCaption&, const PluginTransientCaption&) = default;
};

} // namespace vell
