#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <optional>

namespace vell {

// A plugin's icon as the host draws it: a symbol name from the shared vocabulary, its colour,
// and an optional small badge symbol. Never an image: a symbol costs no decoding.
struct PluginIcon {
    static constexpr int maximumSymbolCharacters = 80;

    QString symbol;
    // Six hexadecimal digits, no hash sign.
    QString color;
    std::optional<QString> badge;

    static PluginIcon fromJson(const JsonNode& json);
    QByteArray encoded() const;
    QJsonObject toJson() const;
    void validate() const;

    // Not empty, at most 80 characters, lower-case words joined by dots ("music.note").
    static bool isSymbolName(QStringView text);

    friend bool operator==(const PluginIcon&, const PluginIcon&) = default;
};

} // namespace vell
