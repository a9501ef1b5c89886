#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>

namespace vell {

// One shape of a diagram, in the diagram's own coordinates.
struct PluginDiagramElement {
    // A line runs from (x, y) to (x + w, y + h); the others fill that frame.
    enum class Kind { box, ellipse, line, text };

    static constexpr int maximumTextCharacters = 200;
    static constexpr double minimumFont = 8;
    static constexpr double maximumFont = 64;
    static constexpr double maximumRadius = 100;
    static constexpr double minimumWeight = 0.5;
    static constexpr double maximumWeight = 12;

    Kind kind = Kind::box;
    double x = 0;
    double y = 0;
    double w = 0;
    double h = 0;
    // "#RRGGBB" or "#RRGGBBAA".
    std::optional<QString> fill;
    std::optional<QString> stroke;
    std::optional<QString> text;
    std::optional<double> font;
    std::optional<double> radius;
    std::optional<double> weight;

    static PluginDiagramElement fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;
    // Within a canvas of width by height.
    void validate(double width, double height) const;

    friend bool operator==(const PluginDiagramElement&, const PluginDiagramElement&) = default;
};

// A static vector drawing described element by element, so that the host draws it with no
// image data and no code of the plugin's.
struct PluginDiagram {
    static constexpr int maximumTitleCharacters = 60;
    static constexpr double minimumWidth = 100;
    static constexpr double maximumWidth = 2400;
    static constexpr double minimumHeight = 100;
    static constexpr double maximumHeight = 1600;
    static constexpr int maximumSummaryCharacters = 4000;
    static constexpr int maximumElements = 300;

    QString id;
    QString title;
    double width = 0;
    double height = 0;
    // What a screen reader says for the drawing.
    QString summary;
    // Drawn in order: later elements lie on top.
    QList<PluginDiagramElement> elements;

    static PluginDiagram fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;
    // Its own limits, then every element in order.
    void validate() const;

    friend bool operator==(const PluginDiagram&, const PluginDiagram&) = default;
};

} // namespace vell
