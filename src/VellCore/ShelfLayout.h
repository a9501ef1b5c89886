#pragma once

#include <QRectF>

namespace vell {

// Where one panel stands and how much of its top its content must leave free.
struct ShelfLayout final {
    QRectF frame;
    double contentTopInset = 0;

    friend bool operator==(const ShelfLayout&, const ShelfLayout&) = default;
};

} // namespace vell
