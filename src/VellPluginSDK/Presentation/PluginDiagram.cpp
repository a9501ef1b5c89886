#include "VellPluginSDK/Presentation/PluginDiagram.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>
#include <QRegularExpression>

#include <cmath>

namespace vell {

namespace {

constexpr std::array<QStringView, 4> kindNames{u"box", u"ellipse", u"line", u"text"};

// Written so that a NaN fails too.
bool within(double value, double low, double high) {
    return value >= low && value <= high;
}

bool optionalWithin(const std::optional<double>& value, double low, double high) {
    return !value || within(*value, low, high);
}

bool isColor(const std::optional<QString>& color) {
    static const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(QStringLiteral("#[0-9A-Fa-f]{6}([0-9A-Fa-f]{2})?")));
    return !color || pattern.match(*color).hasMatch();
}

} // namespace

PluginDiagramElement PluginDiagramElement::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginDiagramElement element;
    element.kind = reader.enumeration<Kind>(u"kind", kindNames);
    element.x = reader.number(u"x");
    element.y = reader.number(u"y");
    element.w = reader.number(u"w");
    element.h = reader.number(u"h");
    element.fill = reader.optionalString(u"fill");
    element.stroke = reader.optionalString(u"stroke");
    element.text = reader.optionalString(u"text");
    element.font = reader.optionalNumber(u"font");
    element.radius = reader.optionalNumber(u"radius");
    element.weight = reader.optionalNumber(u"weight");
    return element;
}

QByteArray PluginDiagramElement::encoded() const {
    return JsonWriter()
        .add(u"kind", kindNames[static_cast<int>(kind)].toString())
        .add(u"x", x)
        .add(u"y", y)
        .add(u"w", w)
        .add(u"h", h)
        .addIfPresent(u"fill", fill)
        .addIfPresent(u"stroke", stroke)
        .addIfPresent(u"text", text)
        .addIfPresent(u"font", font)
        .addIfPresent(u"radius", radius)
        .addIfPresent(u"weight", weight)
        .bytes();
}

QJsonObject PluginDiagramElement::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginDiagramElement::validate(double width, double height) const {
    // A line may run in any direction; every other shape has a frame of positive extent. Both
    // ends of the frame lie on the canvas, so nothing is drawn outside the diagram's space.
    const bool valid =
        std::isfinite(x) && std::isfinite(y) && std::isfinite(w) && std::isfinite(h) &&
        (kind == Kind::line || (w >= 0 && h >= 0)) && within(x, 0, width) && within(x + w, 0, width) &&
        within(y, 0, height) && within(y + h, 0, height) && isColor(fill) && isColor(stroke) &&
        (!text || TextMetrics::characterCount(*text) <= maximumTextCharacters) &&
        optionalWithin(font, minimumFont, maximumFont) && optionalWithin(radius, 0, maximumRadius) &&
        optionalWithin(weight, minimumWeight, maximumWeight);
    if (!valid)
        throw ModuleProblem(QStringLiteral("Invalid module diagram element."));
}

PluginDiagram PluginDiagram::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginDiagram diagram;
    diagram.id = reader.string(u"id");
    diagram.title = reader.string(u"title");
    diagram.width = reader.number(u"width");
    diagram.height = reader.number(u"height");
    diagram.summary = reader.string(u"summary");
    diagram.elements = reader.records<PluginDiagramElement>(u"elements");
    return diagram;
}

QByteArray PluginDiagram::encoded() const {
    return JsonWriter()
        .add(u"id", id)
        .add(u"title", title)
        .add(u"width", width)
        .add(u"height", height)
        .add(u"summary", summary)
        .addRecords(u"elements", elements)
        .bytes();
}

QJsonObject PluginDiagram::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginDiagram::validate() const {
    const int titleLength = TextMetrics::characterCount(title);
    if (!Identifiers::isKey(id) || titleLength == 0 || titleLength > maximumTitleCharacters ||
        !within(width, minimumWidth, maximumWidth) || !within(height, minimumHeight, maximumHeight) ||
        TextMetrics::characterCount(summary) > maximumSummaryCharacters || elements.size() > maximumElements)
        throw ModuleProblem(QStringLiteral("Invalid module diagram."));
    for (const PluginDiagramElement& element : elements)
        element.validate(width, height);
}

} // namespace vell
