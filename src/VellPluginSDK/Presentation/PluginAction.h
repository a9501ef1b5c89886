#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <optional>

namespace vell {

// A button a plugin shows: on a card, at the top of its tab, in a collection. Pressing it sends
// the id back to the plugin; the host never runs anything of its own for it.
struct PluginAction {
    static constexpr int maximumLabelCharacters = 80;
    static constexpr int maximumSymbolCharacters = 80;
    static constexpr int maximumConfirmationCharacters = 400;

    QString id;
    QString label;
    bool enabled = false;
    std::optional<QString> symbol;
    // Asked before the press counts, when present.
    std::optional<QString> confirmation;

    static PluginAction fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    // The tests every action passes wherever it stands: a key for an id, a caption that is
    // not empty, and bounded symbol and confirmation texts. Each holder has its own sentence.
    bool hasValidContent() const;

    friend bool operator==(const PluginAction&, const PluginAction&) = default;
};

} // namespace vell
