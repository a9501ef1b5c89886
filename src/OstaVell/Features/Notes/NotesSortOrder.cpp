#include "OstaVell/Features/Notes/NotesSortOrder.h"

#include <QCollator>

#include <algorithm>
#include <utility>

namespace vell {

QString NotesSortOrder::raw(Order order) {
    switch (order) {
    case Order::recentlyEdited:
        return QStringLiteral("recentlyEdited");
    case Order::recentlyCreated:
        return QStringLiteral("recentlyCreated");
    case Order::alphabetical:
        return QStringLiteral("alphabetical");
    }
    return {};
}

QString NotesSortOrder::label(Order order) {
    switch (order) {
    case Order::recentlyEdited:
        return QStringLiteral("Recently Edited");
    case Order::recentlyCreated:
        return QStringLiteral("Recently Created");
    case Order::alphabetical:
        return QStringLiteral("Title (A\u2013Z)");
    }
    return {};
}

std::optional<NotesSortOrder::Order> NotesSortOrder::fromRaw(const QString& raw) {
    for (const Order order : all()) {
        if (NotesSortOrder::raw(order) == raw)
            return order;
    }
    return std::nullopt;
}

QList<NotesItem> NotesSortOrder::sorted(QList<NotesItem> notes, Order order, const QLocale& locale) {
    switch (order) {
    case Order::recentlyEdited:
        std::stable_sort(notes.begin(), notes.end(),
                         [](const NotesItem& a, const NotesItem& b) { return a.updatedAt > b.updatedAt; });
        return notes;
    case Order::recentlyCreated:
        std::stable_sort(notes.begin(), notes.end(),
                         [](const NotesItem& a, const NotesItem& b) { return a.createdAt > b.createdAt; });
        return notes;
    case Order::alphabetical:
        break;
    }
    QCollator collator(locale);
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    // Each title once, not once a comparison.
    QList<std::pair<QString, NotesItem>> keyed;
    keyed.reserve(notes.size());
    for (NotesItem& note : notes)
        keyed.append({note.firstLinePreview(), std::move(note)});
    std::stable_sort(keyed.begin(), keyed.end(), [&collator](const auto& a, const auto& b) {
        return collator.compare(a.first, b.first) < 0;
    });
    QList<NotesItem> result;
    result.reserve(keyed.size());
    for (auto& entry : keyed)
        result.append(std::move(entry.second));
    return result;
}

} // namespace vell
