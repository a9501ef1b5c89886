#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

namespace vell {

// One event of a feed handed to the script. The body stays text: the host never parses it.
struct ModuleFeedEvent final {
    QString feedID;
    QString json;

    static ModuleFeedEvent fromJson(const QJsonValue& json);
    QByteArray encoded() const;
    QJsonObject toJson() const;

    bool operator==(const ModuleFeedEvent&) const = default;
};

} // namespace vell
