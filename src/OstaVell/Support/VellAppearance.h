#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QString>
#include <QVariantMap>

#include <optional>

namespace vell {

// One complete look of an open panel. Values outside their range are kept as stored and
// corrected on each read by normalized(), so a saved width larger than a screen survives
// until a larger screen can use it.
struct VellAppearance final {
    QString backgroundStyle = QStringLiteral("black");
    QString startHex = QStringLiteral("#101018");
    QString endHex = QStringLiteral("#000000");
    QString accentHex = QStringLiteral("#C7EB87");
    double opacity = 1;
    bool fades = false;
    double startOpacity = 1;
    double endOpacity = 0;
    QString direction = QStringLiteral("vertical");
    bool borderGlow = false;
    double width = 760;
    double height = 400;
    double cornerRadius = 24;

    VellAppearance normalized() const;

    // Compact JSON with the keys in field order. Fails only for a number JSON can't hold.
    std::optional<QByteArray> encodedJson() const;
    // Every key is required and must have its JSON type; anything less decodes to nothing.
    static std::optional<VellAppearance> fromJson(const QJsonValue& json);

    // The same keys as the JSON, for the settings pane. Missing or unknown entries keep
    // their defaults.
    QVariantMap toVariantMap() const;
    static VellAppearance fromVariantMap(const QVariantMap& map);

    friend bool operator==(const VellAppearance&, const VellAppearance&) = default;
};

} // namespace vell
