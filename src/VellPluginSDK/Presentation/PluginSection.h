#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <optional>

namespace vell {

// A block of text with an optional small picture, on the dashboard or on a panel.
struct PluginSection {
    static constexpr int maximumTitleCharacters = 80;
    static constexpr int maximumDetailCharacters = 1200;

    QString title;
    QString detail;
    // PNG bytes, never decoded by validation: only their size is bounded, with the other artwork.
    std::optional<QByteArray> imagePNG;

    static PluginSection fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out, the image as base64.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    // The text limits, the same wherever a section stands; the title may be empty.
    bool hasValidText() const;

    friend bool operator==(const PluginSection&, const PluginSection&) = default;
};

} // namespace vell
