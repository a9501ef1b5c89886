#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>

namespace vell {

// One event a plugin contributes to the notch's calendar view. Instants are seconds since 2001.
struct PluginAgendaEntry {
    static constexpr qsizetype maximumIDBytes = 512;
    static constexpr int maximumTitleCharacters = 300;
    static constexpr int maximumSourceCharacters = 100;
    static constexpr int maximumLocationCharacters = 300;
    static constexpr int maximumExternalIDCharacters = 512;

    QString id;
    QString title;
    double start = 0;
    double end = 0;
    bool allDay = false;
    // The name shown as the entry's origin.
    QString source;
    // "#" and six hexadecimal digits.
    QString color;
    std::optional<QString> location;
    // Links the view opens: https only, so that a click never leaks credentials or leaves the
    // browser for another handler. Kept as the plugin wrote them; validate parses them.
    std::optional<QString> url;
    std::optional<QString> meetingURL;
    // The calendar's own identity of the event, which lets the view drop a plugin's copy of an
    // event the local calendar already shows.
    std::optional<QString> externalID;
    bool isTask = false;

    static PluginAgendaEntry fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;
    void validate() const;

    // An absolute https address with a host and no user name or password.
    static bool isSafeLink(const QString& location);

    friend bool operator==(const PluginAgendaEntry&, const PluginAgendaEntry&) = default;
};

// A plugin's answer to "agendaRequest": its events of one day, good until expiresAt. The host
// replaces a plugin's last contribution with it whole, or refuses it whole.
struct PluginAgenda {
    static constexpr int maximumEntries = 64;
    // A contribution is refreshed at least every ten minutes: stale events must not linger in
    // the view because a plugin asked for them to be kept.
    static constexpr double maximumValiditySeconds = 600;

    // The day asked for.
    double date = 0;
    double fetchedAt = 0;
    double expiresAt = 0;
    QList<PluginAgendaEntry> entries;

    static PluginAgenda fromJson(const JsonNode& json);
    // Declared field order.
    QByteArray encoded() const;
    QJsonObject toJson() const;
    // now in seconds since 2001.
    void validate(double now) const;

    friend bool operator==(const PluginAgenda&, const PluginAgenda&) = default;
};

} // namespace vell
