#include "VellPluginSDK/Presentation/PluginSnapshot.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QHash>
#include <QJsonDocument>

#include <algorithm>
#include <cmath>

namespace vell {

namespace {

[[noreturn]] void fail(const char* message) {
    throw ModuleProblem(QString::fromLatin1(message));
}

bool atMost(const QString& text, int maximum) {
    return TextMetrics::characterCount(text) <= maximum;
}

bool optionalAtMost(const std::optional<QString>& text, int maximum) {
    return !text || atMost(*text, maximum);
}

template <typename T, typename Test> bool allOf(const QList<T>& list, Test test) {
    return std::all_of(list.begin(), list.end(), test);
}

QList<PluginPanel> panelsOf(const PluginSnapshot& snapshot) {
    return snapshot.panels.value_or(QList<PluginPanel>());
}

void validateVolumeEndpoints(const PluginSnapshot& snapshot) {
    if (!snapshot.volumeEndpoints)
        return;
    const QList<PluginVolumeEndpoint>& endpoints = *snapshot.volumeEndpoints;
    if (endpoints.size() > PluginSnapshot::maximumVolumeEndpoints ||
        !Identifiers::distinct(endpoints, &PluginVolumeEndpoint::id))
        fail("Invalid volume endpoint list.");
    for (const PluginVolumeEndpoint& endpoint : endpoints)
        endpoint.validate();
}

// One id may stand on several cards, so long as it means the same everywhere: the host judges a
// press by its id alone.
void validateDisplayActions(const PluginSnapshot& snapshot) {
    QHash<QString, PluginAction> seen;
    for (const PluginAction& action : snapshot.displayActions()) {
        const auto earlier = seen.constFind(action.id);
        if (!action.hasValidContent() || (earlier != seen.constEnd() && !(*earlier == action)))
            fail("Invalid or conflicting card action.");
        seen.insert(action.id, action);
    }
}

// The totals over all panels, before any panel is looked at on its own.
void validateTotals(const PluginSnapshot& snapshot) {
    qsizetype cards = 0;
    qsizetype items = 0;
    for (const PluginPanel& panel : panelsOf(snapshot)) {
        cards += panel.cards ? panel.cards->size() : 0;
        items += panel.collection ? panel.collection->items.size() : 0;
    }
    if (cards > PluginSnapshot::maximumCards)
        fail("Too many control cards.");
    if (items > PluginSnapshot::maximumCollectionItems)
        fail("Too many collection items.");
}

// Only sizes: the images are not decoded here, and one that doesn't decode is simply not drawn.
void validateArtwork(const PluginSnapshot& snapshot) {
    QList<QByteArray> images;
    if (snapshot.iconPNG)
        images.append(*snapshot.iconPNG);
    const auto addSections = [&](const QList<PluginSection>& sections) {
        for (const PluginSection& section : sections) {
            if (section.imagePNG)
                images.append(*section.imagePNG);
        }
    };
    addSections(snapshot.sections.value_or(QList<PluginSection>()));
    for (const PluginPanel& panel : panelsOf(snapshot))
        addSections(panel.sections);
    qsizetype total = 0;
    for (const QByteArray& image : images) {
        if (image.isEmpty() || image.size() > PluginSnapshot::maximumArtworkBytes)
            fail("Plugin artwork exceeded its limit.");
        total += image.size();
    }
    if (total > PluginSnapshot::maximumTotalArtworkBytes)
        fail("Plugin artwork exceeded its limit.");
}

void validatePanels(const QList<PluginPanel>& panels) {
    for (const PluginPanel& panel : panels)
        panel.validateDiagrams();
    if (panels.isEmpty() || panels.size() > PluginSnapshot::maximumPanels ||
        !Identifiers::distinct(panels, &PluginPanel::id))
        fail("Invalid dashboard panels.");
    for (const PluginPanel& panel : panels) {
        if (!panel.hasValidPage())
            fail("Invalid dashboard panels.");
    }
}

bool isMetricValid(const PluginField& metric) {
    return atMost(metric.label, PluginSnapshot::maximumMetricLabelCharacters) &&
           atMost(metric.value, PluginSnapshot::maximumMetricValueCharacters) &&
           optionalAtMost(metric.symbol, PluginSnapshot::maximumSymbolCharacters);
}

void validateDashboard(const PluginSnapshot& snapshot) {
    const bool metricsValid =
        !snapshot.metrics || (snapshot.metrics->size() <= PluginSnapshot::maximumMetrics &&
                              allOf(*snapshot.metrics, isMetricValid));
    const bool sectionsValid =
        !snapshot.sections ||
        (snapshot.sections->size() <= PluginSnapshot::maximumSections &&
         allOf(*snapshot.sections, [](const PluginSection& s) { return s.hasValidText(); }));
    const bool mediaValid =
        !snapshot.media || (atMost(snapshot.media->label, PluginSnapshot::maximumMediaLabelCharacters) &&
                            atMost(snapshot.media->status, PluginSnapshot::maximumMediaStatusCharacters));
    if (!metricsValid || !sectionsValid || !mediaValid)
        fail("Invalid dashboard data.");
}

bool isFieldValid(const PluginField& field) {
    return atMost(field.label, PluginSnapshot::maximumFieldLabelCharacters) &&
           TextMetrics::utf8Size(field.value) <= PluginSnapshot::maximumFieldValueBytes &&
           optionalAtMost(field.symbol, PluginSnapshot::maximumSymbolCharacters);
}

// The top-level actions' content was already tested with all the others; here they must also be
// distinct, since the top level is one row of buttons.
void validateTopLevel(const PluginSnapshot& snapshot) {
    const std::optional<double>& progress = snapshot.progress;
    const bool valid =
        optionalAtMost(snapshot.badge, PluginSnapshot::maximumBadgeCharacters) &&
        atMost(snapshot.title, PluginSnapshot::maximumTitleCharacters) &&
        atMost(snapshot.status, PluginSnapshot::maximumStatusCharacters) &&
        atMost(snapshot.activity, PluginSnapshot::maximumActivityCharacters) &&
        snapshot.fields.size() <= PluginSnapshot::maximumFields &&
        snapshot.actions.size() <= PluginSnapshot::maximumActions && allOf(snapshot.fields, isFieldValid) &&
        allOf(snapshot.actions, [](const PluginAction& action) { return action.hasValidContent(); }) &&
        Identifiers::distinct(snapshot.actions, &PluginAction::id) &&
        (!progress || (std::isfinite(*progress) && *progress >= 0 && *progress <= 100));
    if (!valid)
        fail("Invalid plugin display data.");
}

} // namespace

PluginField PluginField::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.string(u"label"), reader.string(u"value"), reader.optionalString(u"symbol")};
}

QByteArray PluginField::encoded() const {
    return JsonWriter().add(u"label", label).add(u"value", value).addIfPresent(u"symbol", symbol).bytes();
}

QJsonObject PluginField::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

PluginMedia PluginMedia::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.string(u"label"), reader.string(u"status")};
}

QByteArray PluginMedia::encoded() const {
    return JsonWriter().add(u"label", label).add(u"status", status).bytes();
}

QJsonObject PluginMedia::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

PluginSnapshot PluginSnapshot::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginSnapshot snapshot;
    snapshot.title = reader.string(u"title");
    snapshot.status = reader.string(u"status");
    snapshot.activity = reader.string(u"activity");
    snapshot.progress = reader.optionalNumber(u"progress");
    snapshot.fields = reader.records<PluginField>(u"fields");
    snapshot.actions = reader.records<PluginAction>(u"actions");
    snapshot.metrics = reader.optionalRecords<PluginField>(u"metrics");
    snapshot.sections = reader.optionalRecords<PluginSection>(u"sections");
    snapshot.media = reader.optionalRecord<PluginMedia>(u"media");
    snapshot.badge = reader.optionalString(u"badge");
    snapshot.panels = reader.optionalRecords<PluginPanel>(u"panels");
    snapshot.iconPNG = reader.optionalBase64(u"iconPNG");
    snapshot.volumeEndpoints = reader.optionalRecords<PluginVolumeEndpoint>(u"volumeEndpoints");
    return snapshot;
}

QByteArray PluginSnapshot::encoded() const {
    JsonWriter writer;
    writer.add(u"title", title)
        .add(u"status", status)
        .add(u"activity", activity)
        .addIfPresent(u"progress", progress)
        .addRecords(u"fields", fields)
        .addRecords(u"actions", actions)
        .addRecordsIfPresent(u"metrics", metrics)
        .addRecordsIfPresent(u"sections", sections)
        .addRecordIfPresent(u"media", media)
        .addIfPresent(u"badge", badge)
        .addRecordsIfPresent(u"panels", panels);
    if (iconPNG)
        writer.add(u"iconPNG", QString::fromLatin1(iconPNG->toBase64()));
    return writer.addRecordsIfPresent(u"volumeEndpoints", volumeEndpoints).bytes();
}

QJsonObject PluginSnapshot::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginSnapshot::validate() const {
    validateVolumeEndpoints(*this);
    validateDisplayActions(*this);
    validateTotals(*this);
    for (const PluginPanel& panel : panelsOf(*this))
        panel.validateContents();
    validateArtwork(*this);
    if (panels)
        validatePanels(*panels);
    validateDashboard(*this);
    validateTopLevel(*this);
}

QList<PluginAction> PluginSnapshot::displayActions() const {
    QList<PluginAction> result = actions;
    for (const PluginPanel& panel : panelsOf(*this)) {
        for (const PluginControlCard& card : panel.cards.value_or(QList<PluginControlCard>()))
            result.append(card.actions);
    }
    return result;
}

std::optional<PluginAction> PluginSnapshot::enabledDisplayAction(const QString& id) const {
    for (const PluginAction& action : displayActions()) {
        if (action.id == id && action.enabled)
            return action;
    }
    return std::nullopt;
}

std::optional<PluginAction> PluginSnapshot::enabledCollectionAction(const QString& id) const {
    for (const PluginPanel& panel : panelsOf(*this))
        if (panel.collection)
            if (auto action = panel.collection->enabledAction(id))
                return action;
    return std::nullopt;
}

} // namespace vell
