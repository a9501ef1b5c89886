#pragma once

#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/Presentation/PluginAction.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>

namespace vell {

// One row or tile of a collection: an event, a message, a task or a file.
struct PluginCollectionItem {
    static constexpr int maximumTitleCharacters = 160;
    static constexpr int maximumSubtitleCharacters = 200;
    static constexpr int maximumDetailCharacters = 500;
    static constexpr int maximumCategoryCharacters = 80;
    static constexpr int maximumSymbolCharacters = 80;

    QString id;
    QString title;
    QString subtitle;
    QString detail;
    QString category;
    std::optional<QString> symbol;
    // Seconds since 2001.
    std::optional<double> date;
    bool unread = false;
    bool completed = false;
    std::optional<PluginAction> action;

    static PluginCollectionItem fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    friend bool operator==(const PluginCollectionItem&, const PluginCollectionItem&) = default;
};

// A day a calendar collection offers to select, and the action that loads its agenda.
struct PluginCalendarDay {
    // Seconds since 2001.
    double date = 0;
    PluginAction action;

    static PluginCalendarDay fromJson(const JsonNode& json);
    // Declared field order.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    friend bool operator==(const PluginCalendarDay&, const PluginCalendarDay&) = default;
};

// A bounded list the host draws in one of four layouts. The plugin sends data only: search,
// filters, selection and the grid are the host's, and only a pressed action reaches the plugin.
struct PluginCollection {
    enum class Layout { calendar, inbox, tasks, files };

    static constexpr int maximumTitleCharacters = 100;
    static constexpr int maximumSubtitleCharacters = 300;
    static constexpr int maximumEmptyTextCharacters = 500;
    // Small enough to filter anew on every keystroke, with no index.
    static constexpr int maximumItems = 96;
    static constexpr int maximumActions = 4;

    Layout layout = Layout::inbox;
    QString title;
    QString subtitle;
    // Shown when there are no items.
    QString emptyText;
    QList<PluginCollectionItem> items;
    // Calendar only, as are the days.
    std::optional<double> selectedDate;
    std::optional<QList<PluginCalendarDay>> days;
    // The toolbar's buttons.
    QList<PluginAction> actions;

    static PluginCollection fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;
    void validate() const;
    // The first enabled button of this id: the toolbar's, then the items', then the days'.
    std::optional<PluginAction> enabledAction(const QString& id) const;

    friend bool operator==(const PluginCollection&, const PluginCollection&) = default;
};

} // namespace vell
