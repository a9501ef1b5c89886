#pragma once

#include "OstaVell/Features/Shelf/ShelfItem.h"

#include <QByteArray>
#include <QList>

#include <optional>

namespace vell {

// What shelf.json holds: the items in display order, newest first, as one JSON array,
// indented, each object's keys sorted.
class ShelfFile final {
public:
    ShelfFile() = delete;

    static QByteArray encode(const QList<ShelfItem>& items);
    // Nothing when the bytes are no list of items; error then says why.
    static std::optional<QList<ShelfItem>> decode(const QByteArray& bytes, QString* error = nullptr);
};

} // namespace vell
