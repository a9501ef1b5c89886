#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QHashFunctions>
#include <QJsonObject>
#include <QString>

#include <compare>

namespace vell {

// Where an action or channel lives: the peer that offers it and its identifier there.
struct PluginActionAddress {
    static constexpr int maximumPluginCharacters = 100;

    QString plugin;
    QString name;

    // plugin/name
    QString key() const { return plugin + u'/' + name; }

    static PluginActionAddress fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;
    void validate() const;

    friend bool operator==(const PluginActionAddress&, const PluginActionAddress&) = default;
    friend std::strong_ordering operator<=>(const PluginActionAddress& a, const PluginActionAddress& b) {
        if (const int byPlugin = QString::compare(a.plugin, b.plugin); byPlugin != 0)
            return byPlugin <=> 0;
        return QString::compare(a.name, b.name) <=> 0;
    }
};

inline size_t qHash(const PluginActionAddress& address, size_t seed = 0) noexcept {
    return qHashMulti(seed, address.plugin, address.name);
}

} // namespace vell
