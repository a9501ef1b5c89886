#pragma once

#include "VellPluginSDK/Presentation/PluginCollection.h"

#include <QList>
#include <QString>
#include <QTimeZone>

#include <optional>

namespace vell {

// What a collection view shows of its items: the host's own search, filter and order, with no
// message to the plugin. Pure, so that the same inputs always give the same rows: "today" is
// the day that `now` falls on in `zone`, never the machine's clock.
struct PluginCollectionFilter {
    // Matched against title, subtitle and detail, without regard to case; empty matches all.
    QString query;
    // "Unread", "Today" or "Overdue"; anything else keeps every item.
    QString filter;
    // Seconds since 2001.
    double now = 0;
    QTimeZone zone = QTimeZone::systemTimeZone();
    // Only items dated on the day of this instant, for a calendar's chosen day.
    std::optional<double> day;
    // By title, as a person reads names; otherwise the plugin's own order.
    bool sortByName = false;

    bool matches(const PluginCollectionItem& item) const;
    // The positions in items of the rows to show, in the order to show them.
    QList<qsizetype> select(const QList<PluginCollectionItem>& items) const;
    QList<PluginCollectionItem> apply(const QList<PluginCollectionItem>& items) const;

    // The start of the day that instant falls on in zone, and of the next one, in seconds since
    // 2001. A day is not always 24 hours long.
    static double startOfDay(double instant, const QTimeZone& zone);
    static double startOfNextDay(double instant, const QTimeZone& zone);
};

} // namespace vell
