#include "VellPluginSDK/Presentation/PluginCollectionFilter.h"

#include "VellPluginSDK/ReferenceTime.h"

#include <QDateTime>

#include <algorithm>
#include <cmath>

namespace vell {

namespace {

// A date is only required to be finite: one beyond any calendar (some 3000 years either way)
// names no day at all rather than overflowing the conversion.
QDateTime moment(double instant, const QTimeZone& zone) {
    constexpr double farthest = 1e11;
    if (!(std::abs(instant) < farthest))
        return {};
    return QDateTime::fromMSecsSinceEpoch(qint64((instant + ReferenceTime::epoch) * 1000), zone);
}

double instantOf(const QDateTime& moment) {
    return double(moment.toMSecsSinceEpoch()) / 1000 - ReferenceTime::epoch;
}

bool contains(const QString& text, const QString& folded) {
    return text.toCaseFolded().contains(folded);
}

// Names as a person reads them: without regard to case, and a run of digits by its number, so
// that "receipt 2" comes before "Receipt 10" in every locale, the C locale included.
int compareNames(const QString& a, const QString& b) {
    const QString left = a.toCaseFolded();
    const QString right = b.toCaseFolded();
    qsizetype i = 0;
    qsizetype j = 0;
    while (i < left.size() && j < right.size()) {
        if (left.at(i).isDigit() && right.at(j).isDigit()) {
            const qsizetype startLeft = i;
            const qsizetype startRight = j;
            while (i < left.size() && left.at(i).isDigit())
                ++i;
            while (j < right.size() && right.at(j).isDigit())
                ++j;
            // Leading zeros say nothing of the number; then the longer run is the larger number.
            QStringView numberLeft = QStringView(left).mid(startLeft, i - startLeft);
            QStringView numberRight = QStringView(right).mid(startRight, j - startRight);
            while (numberLeft.size() > 1 && numberLeft.front() == u'0')
                numberLeft = numberLeft.mid(1);
            while (numberRight.size() > 1 && numberRight.front() == u'0')
                numberRight = numberRight.mid(1);
            if (numberLeft.size() != numberRight.size())
                return numberLeft.size() < numberRight.size() ? -1 : 1;
            if (const int order = numberLeft.compare(numberRight); order != 0)
                return order;
            continue;
        }
        if (left.at(i) != right.at(j))
            return left.at(i) < right.at(j) ? -1 : 1;
        ++i;
        ++j;
    }
    if (i < left.size() || j < right.size())
        return i < left.size() ? 1 : -1;
    return 0;
}

bool onDay(const std::optional<double>& date, double day, const QTimeZone& zone) {
    return date && *date >= PluginCollectionFilter::startOfDay(day, zone) &&
           *date < PluginCollectionFilter::startOfNextDay(day, zone);
}

} // namespace

double PluginCollectionFilter::startOfDay(double instant, const QTimeZone& zone) {
    return instantOf(moment(instant, zone).date().startOfDay(zone));
}

double PluginCollectionFilter::startOfNextDay(double instant, const QTimeZone& zone) {
    return instantOf(moment(instant, zone).date().addDays(1).startOfDay(zone));
}

bool PluginCollectionFilter::matches(const PluginCollectionItem& item) const {
    if (day && !onDay(item.date, *day, zone))
        return false;
    // Unicode case folding: "Ä" finds "ä" and "Σ" finds "ς" whatever the machine's language.
    const QString folded = query.toCaseFolded();
    if (!folded.isEmpty() && !contains(item.title, folded) && !contains(item.subtitle, folded) &&
        !contains(item.detail, folded))
        return false;
    if (filter == u"Unread")
        return item.unread;
    // An item without a date is neither due today nor late.
    if (filter == u"Today")
        return onDay(item.date, now, zone);
    if (filter == u"Overdue")
        return !item.completed && item.date && *item.date < startOfDay(now, zone);
    return true;
}

QList<qsizetype> PluginCollectionFilter::select(const QList<PluginCollectionItem>& items) const {
    QList<qsizetype> shown;
    for (qsizetype i = 0; i < items.size(); ++i)
        if (matches(items.at(i)))
            shown.append(i);
    // Stable, so that equal names keep the plugin's order.
    if (sortByName)
        std::stable_sort(shown.begin(), shown.end(), [&items](qsizetype a, qsizetype b) {
            return compareNames(items.at(a).title, items.at(b).title) < 0;
        });
    return shown;
}

QList<PluginCollectionItem> PluginCollectionFilter::apply(const QList<PluginCollectionItem>& items) const {
    QList<PluginCollectionItem> shown;
    for (const qsizetype index : select(items))
        shown.append(items.at(index));
    return shown;
}

} // namespace vell
