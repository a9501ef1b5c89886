#include "VellPluginSDK/Presentation/PluginCollection.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>
#include <QSet>

#include <algorithm>
#include <cmath>

namespace vell {

namespace {

constexpr std::array<QStringView, 4> layoutNames{u"calendar", u"inbox", u"tasks", u"files"};

[[noreturn]] void fail(const char* message) {
    throw ModuleProblem(QString::fromLatin1(message));
}

bool atMost(const QString& text, int maximum) {
    return TextMetrics::characterCount(text) <= maximum;
}

bool itemWithinLimits(const PluginCollectionItem& item) {
    const int titleLength = TextMetrics::characterCount(item.title);
    return Identifiers::isKey(item.id) && titleLength > 0 &&
           titleLength <= PluginCollectionItem::maximumTitleCharacters &&
           atMost(item.subtitle, PluginCollectionItem::maximumSubtitleCharacters) &&
           atMost(item.detail, PluginCollectionItem::maximumDetailCharacters) &&
           atMost(item.category, PluginCollectionItem::maximumCategoryCharacters) &&
           (!item.symbol || atMost(*item.symbol, PluginCollectionItem::maximumSymbolCharacters)) &&
           (!item.action || item.action->hasValidContent());
}

bool validDays(const QList<PluginCalendarDay>& days) {
    QSet<double> dates;
    for (const PluginCalendarDay& day : days) {
        // A day's action goes back to the plugin like any other button, so it is held to the same
        // tests.
        if (!std::isfinite(day.date) || dates.contains(day.date) || !day.action.hasValidContent())
            return false;
        dates.insert(day.date);
    }
    return true;
}

} // namespace

PluginCollectionItem PluginCollectionItem::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginCollectionItem item;
    item.id = reader.string(u"id");
    item.title = reader.string(u"title");
    item.subtitle = reader.string(u"subtitle");
    item.detail = reader.string(u"detail");
    item.category = reader.string(u"category");
    item.symbol = reader.optionalString(u"symbol");
    item.date = reader.optionalNumber(u"date");
    item.unread = reader.boolean(u"unread");
    item.completed = reader.boolean(u"completed");
    item.action = reader.optionalRecord<PluginAction>(u"action");
    return item;
}

QByteArray PluginCollectionItem::encoded() const {
    return JsonWriter()
        .add(u"id", id)
        .add(u"title", title)
        .add(u"subtitle", subtitle)
        .add(u"detail", detail)
        .add(u"category", category)
        .addIfPresent(u"symbol", symbol)
        .addIfPresent(u"date", date)
        .add(u"unread", unread)
        .add(u"completed", completed)
        .addRecordIfPresent(u"action", action)
        .bytes();
}

QJsonObject PluginCollectionItem::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

PluginCalendarDay PluginCalendarDay::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.number(u"date"), reader.record<PluginAction>(u"action")};
}

QByteArray PluginCalendarDay::encoded() const {
    return JsonWriter().add(u"date", date).addRecord(u"action", action).bytes();
}

QJsonObject PluginCalendarDay::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

PluginCollection PluginCollection::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginCollection collection;
    collection.layout = reader.enumeration<Layout>(u"layout", layoutNames);
    collection.title = reader.string(u"title");
    collection.subtitle = reader.string(u"subtitle");
    collection.emptyText = reader.string(u"emptyText");
    collection.items = reader.records<PluginCollectionItem>(u"items");
    collection.selectedDate = reader.optionalNumber(u"selectedDate");
    collection.days = reader.optionalRecords<PluginCalendarDay>(u"days");
    collection.actions = reader.records<PluginAction>(u"actions");
    return collection;
}

QByteArray PluginCollection::encoded() const {
    return JsonWriter()
        .add(u"layout", layoutNames[static_cast<int>(layout)].toString())
        .add(u"title", title)
        .add(u"subtitle", subtitle)
        .add(u"emptyText", emptyText)
        .addRecords(u"items", items)
        .addIfPresent(u"selectedDate", selectedDate)
        .addRecordsIfPresent(u"days", days)
        .addRecords(u"actions", actions)
        .bytes();
}

QJsonObject PluginCollection::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginCollection::validate() const {
    const int titleLength = TextMetrics::characterCount(title);
    const bool actionsValid = std::all_of(
        actions.begin(), actions.end(), [](const PluginAction& action) { return action.hasValidContent(); });
    if (titleLength == 0 || titleLength > maximumTitleCharacters ||
        !atMost(subtitle, maximumSubtitleCharacters) || !atMost(emptyText, maximumEmptyTextCharacters) ||
        items.size() > maximumItems || actions.size() > maximumActions || !actionsValid ||
        !Identifiers::distinct(items, &PluginCollectionItem::id))
        fail("Invalid collection size.");
    for (const PluginCollectionItem& item : items) {
        if (!itemWithinLimits(item))
            fail("Invalid collection item.");
    }
    for (const PluginCollectionItem& item : items) {
        if (item.date && !std::isfinite(*item.date))
            fail("Invalid collection item.");
    }
    if (layout == Layout::calendar) {
        if ((selectedDate && !std::isfinite(*selectedDate)) || (days && !validDays(*days)))
            fail("Invalid calendar collection.");
    } else if (selectedDate || days) {
        fail("Dates require a calendar collection.");
    }
}

std::optional<PluginAction> PluginCollection::enabledAction(const QString& id) const {
    const auto pressable = [&id](const PluginAction& action) { return action.id == id && action.enabled; };
    for (const PluginAction& action : actions)
        if (pressable(action))
            return action;
    for (const PluginCollectionItem& item : items)
        if (item.action && pressable(*item.action))
            return item.action;
    for (const PluginCalendarDay& day : days.value_or(QList<PluginCalendarDay>()))
        if (pressable(day.action))
            return day.action;
    return std::nullopt;
}

} // namespace vell
