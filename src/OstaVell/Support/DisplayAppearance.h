#pragma once

#include "OstaVell/Support/VellAppearance.h"

#include <QByteArray>
#include <QJsonValue>
#include <QMap>
#include <QString>

#include <optional>

namespace vell {

// A display's own appearance, with the display's name as it was when saved so that a
// disconnected display can still be listed.
struct DisplayAppearance final {
    using Map = QMap<QString, DisplayAppearance>;

    QString name;
    VellAppearance appearance;

    std::optional<QByteArray> encodedJson() const;
    static std::optional<DisplayAppearance> fromJson(const QJsonValue& json);

    // The stored per-display map: one object keyed by display appearance id. One entry that
    // doesn't decode makes the whole map unreadable.
    static std::optional<QByteArray> encodeMap(const Map& map);
    static std::optional<Map> decodeMap(const QByteArray& json);

    friend bool operator==(const DisplayAppearance&, const DisplayAppearance&) = default;
};

} // namespace vell
