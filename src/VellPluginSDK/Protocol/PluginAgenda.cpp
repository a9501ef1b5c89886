#include "VellPluginSDK/Protocol/PluginAgenda.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>
#include <QRegularExpression>
#include <QUrl>

#include <cmath>

namespace vell {

namespace {

bool atMost(const std::optional<QString>& text, int characters) {
    return !text || TextMetrics::characterCount(*text) <= characters;
}

} // namespace

PluginAgendaEntry PluginAgendaEntry::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginAgendaEntry entry;
    entry.id = reader.string(u"id");
    entry.title = reader.string(u"title");
    entry.start = reader.number(u"start");
    entry.end = reader.number(u"end");
    entry.allDay = reader.boolean(u"allDay");
    entry.source = reader.string(u"source");
    entry.color = reader.string(u"color");
    entry.location = reader.optionalString(u"location");
    entry.url = reader.optionalString(u"url");
    entry.meetingURL = reader.optionalString(u"meetingURL");
    entry.externalID = reader.optionalString(u"externalID");
    entry.isTask = reader.boolean(u"isTask");
    return entry;
}

QByteArray PluginAgendaEntry::encoded() const {
    return JsonWriter()
        .add(u"id", id)
        .add(u"title", title)
        .add(u"start", start)
        .add(u"end", end)
        .add(u"allDay", allDay)
        .add(u"source", source)
        .add(u"color", color)
        .addIfPresent(u"location", location)
        .addIfPresent(u"url", url)
        .addIfPresent(u"meetingURL", meetingURL)
        .addIfPresent(u"externalID", externalID)
        .add(u"isTask", isTask)
        .bytes();
}

QJsonObject PluginAgendaEntry::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

bool PluginAgendaEntry::isSafeLink(const QString& location) {
    const QUrl url(location, QUrl::StrictMode);
    // "https://@host" has an empty user name but still an authority with user info: refused too.
    return url.isValid() && url.scheme() == u"https" && !url.host().isEmpty() &&
           !url.authority().contains(u'@');
}

void PluginAgendaEntry::validate() const {
    static const QRegularExpression hexColor(
        QRegularExpression::anchoredPattern(QStringLiteral("#[0-9A-Fa-f]{6}")));
    const qsizetype idBytes = TextMetrics::utf8Size(id);
    if (idBytes < 1 || idBytes > maximumIDBytes || !atMost(title, maximumTitleCharacters) ||
        !atMost(source, maximumSourceCharacters) || !atMost(location, maximumLocationCharacters) ||
        !atMost(externalID, maximumExternalIDCharacters) || !std::isfinite(start) || !std::isfinite(end) ||
        !hexColor.match(color).hasMatch())
        throw ModuleProblem(QStringLiteral("Invalid agenda entry."));
    if ((url && !isSafeLink(*url)) || (meetingURL && !isSafeLink(*meetingURL)))
        throw ModuleProblem(QStringLiteral("Invalid agenda link."));
}

PluginAgenda PluginAgenda::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginAgenda agenda;
    agenda.date = reader.number(u"date");
    agenda.fetchedAt = reader.number(u"fetchedAt");
    agenda.expiresAt = reader.number(u"expiresAt");
    agenda.entries = reader.records<PluginAgendaEntry>(u"entries");
    return agenda;
}

QByteArray PluginAgenda::encoded() const {
    return JsonWriter()
        .add(u"date", date)
        .add(u"fetchedAt", fetchedAt)
        .add(u"expiresAt", expiresAt)
        .addRecords(u"entries", entries)
        .bytes();
}

QJsonObject PluginAgenda::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginAgenda::validate(double now) const {
    // Written so that a clock reading that is not a number fails too.
    const bool fresh = expiresAt <= now + maximumValiditySeconds;
    if (!std::isfinite(date) || !std::isfinite(fetchedAt) || !std::isfinite(expiresAt) || !fresh ||
        entries.size() > maximumEntries)
        throw ModuleProblem(QStringLiteral("Invalid agenda contribution."));
    for (const PluginAgendaEntry& entry : entries)
        entry.validate();
}

} // namespace vell
