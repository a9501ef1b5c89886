#pragma once

#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/Presentation/PluginAction.h"
#include "VellPluginSDK/Presentation/PluginPanel.h"
#include "VellPluginSDK/Presentation/PluginSection.h"
#include "VellPluginSDK/Protocol/PluginVolumeEndpoint.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>

namespace vell {

// A label and a value: a row of the plugin's tab, or a number of its dashboard.
struct PluginField {
    QString label;
    QString value;
    std::optional<QString> symbol;

    static PluginField fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    friend bool operator==(const PluginField&, const PluginField&) = default;
};

// The offer of a video stream; the frames come in messages of their own.
struct PluginMedia {
    QString label;
    QString status;

    static PluginMedia fromJson(const JsonNode& json);
    // Declared field order.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    friend bool operator==(const PluginMedia&, const PluginMedia&) = default;
};

// Everything a plugin wants shown, as one bounded description that replaces the last one whole.
// It comes from another process, so every list and text has a hard limit, and a snapshot that
// fails validation is not shown at all. The limits also bound the cost of one redraw: at most
// 6 panels, 192 cards, 192 collection items and 80 KiB of artwork.
struct PluginSnapshot {
    static constexpr int maximumVolumeEndpoints = 8;
    static constexpr int maximumCards = 192;
    static constexpr int maximumCollectionItems = 192;
    static constexpr qsizetype maximumArtworkBytes = 8192;
    static constexpr qsizetype maximumTotalArtworkBytes = 81920;
    static constexpr int maximumPanels = 6;
    static constexpr int maximumMetrics = 8;
    static constexpr int maximumMetricLabelCharacters = 80;
    static constexpr int maximumMetricValueCharacters = 200;
    static constexpr int maximumSymbolCharacters = 80;
    static constexpr int maximumSections = 8;
    static constexpr int maximumMediaLabelCharacters = 120;
    static constexpr int maximumMediaStatusCharacters = 300;
    static constexpr int maximumBadgeCharacters = 50;
    static constexpr int maximumTitleCharacters = 300;
    static constexpr int maximumStatusCharacters = 500;
    static constexpr int maximumActivityCharacters = 100;
    static constexpr int maximumFields = 24;
    static constexpr int maximumActions = 12;
    static constexpr int maximumFieldLabelCharacters = 80;
    static constexpr qsizetype maximumFieldValueBytes = 2048;

    // May be empty.
    QString title;
    QString status;
    // The short text of the closed notch.
    QString activity;
    // Percent.
    std::optional<double> progress;
    QList<PluginField> fields;
    QList<PluginAction> actions;
    std::optional<QList<PluginField>> metrics;
    std::optional<QList<PluginSection>> sections;
    std::optional<PluginMedia> media;
    std::optional<QString> badge;
    // Absent means no pages; an empty list is an error.
    std::optional<QList<PluginPanel>> panels;
    std::optional<QByteArray> iconPNG;
    std::optional<QList<PluginVolumeEndpoint>> volumeEndpoints;

    static PluginSnapshot fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out, images as base64.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    // The first failure in a fixed order of nine steps; nothing is shown of a snapshot that fails.
    void validate() const;

    // Every button of the snapshot: the top-level actions, then each panel's cards' actions in order.
    QList<PluginAction> displayActions() const;
    // The first enabled entry of displayActions with this id: whether a press may be passed on.
    std::optional<PluginAction> enabledDisplayAction(const QString& id) const;
    // The first enabled button of this id in any panel's collection. Collections are drawn by
    // the host, so their buttons are judged apart from the cards'.
    std::optional<PluginAction> enabledCollectionAction(const QString& id) const;

    friend bool operator==(const PluginSnapshot&, const PluginSnapshot&) = default;
};

} // namespace vell
