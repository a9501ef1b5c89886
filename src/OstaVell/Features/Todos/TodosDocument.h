#pragma once

#include "OstaVell/Features/Todos/TodoItem.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

namespace vell {

// What todos.json holds: the list and its archive.
struct TodosDocument final {
    QList<TodoItem> active;
    QList<TodoItem> archived;

    // Pretty printed, keys sorted, instants in ISO 8601: the form the tray's file has too.
    QByteArray toData() const;
    // Nothing, with the reason in error, when the bytes are not such a document.
    static std::optional<TodosDocument> fromData(const QByteArray& data, QString* error = nullptr);

    friend bool operator==(const TodosDocument&, const TodosDocument&) = default;
};

} // namespace vell
