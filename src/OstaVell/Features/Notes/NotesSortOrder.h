#pragma once

#include "OstaVell/Features/Notes/NotesItem.h"

#include <QList>
#include <QLocale>
#include <QString>
#include <QStringList>

#include <optional>

namespace vell {

// How the list beside the editor is ordered. The raw names are what "notes.sortOrder" holds.
class NotesSortOrder final {
public:
    enum class Order { recentlyEdited, recentlyCreated, alphabetical };

    NotesSortOrder() = delete;

    static constexpr Order defaultOrder = Order::recentlyEdited;

    static QString raw(Order order);
    static QString label(Order order);
    static std::optional<Order> fromRaw(const QString& raw);
    static QList<Order> all() { return {Order::recentlyEdited, Order::recentlyCreated, Order::alphabetical}; }

    // A stable sort: notes that compare equal keep the order they came in. Recently edited and
    // created put the later date first; the title order compares the first lines without regard
    // to case, as the locale orders words.
    static QList<NotesItem> sorted(QList<NotesItem> notes, Order order, const QLocale& locale = QLocale());
};

} // namespace vell
