#include "VellPluginSDK/Protocol/PluginVolumeCommand.h"

#include "VellPluginSDK/Actions/PluginBusMessage.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Protocol/PluginVolumeEndpoint.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>

#include <algorithm>
#include <array>
#include <cmath>

namespace vell {

namespace {

constexpr std::array<QStringView, 4> kindNames{u"setVolume", u"adjustVolume", u"setMuted", u"toggleMute"};

// The one payload member of a case with a value.
constexpr QStringView payloadKey = u"_0";

} // namespace

double PluginVolumeOperation::level() const {
    return kind() == Kind::setVolume ? std::get<0>(m_payload) : 0;
}

double PluginVolumeOperation::step() const {
    return kind() == Kind::adjustVolume ? std::get<1>(m_payload) : 0;
}

bool PluginVolumeOperation::muted() const {
    return kind() == Kind::setMuted && std::get<2>(m_payload);
}

QString PluginVolumeOperation::kindName(Kind kind) {
    return kindNames[static_cast<int>(kind)].toString();
}

PluginVolumeOperation PluginVolumeOperation::fromJson(const JsonNode& json) {
    const JsonReader outer(json); // refuses anything but an object
    const QList<JsonMember> members = json.members();
    if (members.size() != 1)
        throw ModuleProblem(QStringLiteral("Invalid number of keys found, expected one."));
    const QString& name = members.front().key;
    const auto known = std::find(kindNames.begin(), kindNames.end(), name);
    if (known == kindNames.end())
        throw ModuleProblem(QStringLiteral("has an unknown case"));
    try {
        const JsonReader payload(members.front().value);
        switch (static_cast<Kind>(known - kindNames.begin())) {
        case Kind::setVolume:
            return setVolume(payload.number(payloadKey));
        case Kind::adjustVolume:
            return adjustVolume(payload.number(payloadKey));
        case Kind::setMuted:
            return setMuted(payload.boolean(payloadKey));
        case Kind::toggleMute:
            break;
        }
        return toggleMute();
    } catch (const ModuleProblem& problem) {
        throw JsonReader::inside(problem, name);
    }
}

QByteArray PluginVolumeOperation::encoded() const {
    QJsonObject payload;
    switch (kind()) {
    case Kind::setVolume:
        payload.insert(payloadKey, level());
        break;
    case Kind::adjustVolume:
        payload.insert(payloadKey, step());
        break;
    case Kind::setMuted:
        payload.insert(payloadKey, muted());
        break;
    case Kind::toggleMute:
        break;
    }
    return JsonWriter().add(kindName(kind()), payload).bytes();
}

QJsonObject PluginVolumeOperation::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

bool PluginVolumeOperation::isValid() const {
    switch (kind()) {
    case Kind::setVolume:
        return std::isfinite(level()) && level() >= 0 && level() <= 1;
    case Kind::adjustVolume:
        return std::isfinite(step()) && step() != 0 && std::abs(step()) <= maximumStep;
    case Kind::setMuted:
    case Kind::toggleMute:
        break;
    }
    return true;
}

void PluginVolumeOperation::validate() const {
    if (isValid())
        return;
    throw ModuleProblem(kind() == Kind::setVolume ? QStringLiteral("Invalid volume.")
                                                  : QStringLiteral("Invalid volume step."));
}

PluginVolumeCommand PluginVolumeCommand::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginVolumeCommand command;
    command.requestID = reader.uuid(u"requestID");
    command.endpointID = reader.string(u"endpointID");
    command.operation = reader.record<PluginVolumeOperation>(u"operation");
    command.expiresAt = reader.number(u"expiresAt");
    return command;
}

QByteArray PluginVolumeCommand::encoded() const {
    return JsonWriter()
        .add(u"requestID", uuidText(requestID))
        .add(u"endpointID", endpointID)
        .addRecord(u"operation", operation)
        .add(u"expiresAt", expiresAt)
        .bytes();
}

QJsonObject PluginVolumeCommand::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginVolumeCommand::validate(double now) const {
    const qsizetype idBytes = TextMetrics::utf8Size(endpointID);
    // Written so that a clock reading that is not a number fails too.
    const bool timely =
        std::isfinite(expiresAt) && expiresAt > now && expiresAt <= now + maximumLifetimeSeconds;
    if (!operation.isValid() || idBytes < 1 || idBytes > PluginVolumeEndpoint::maximumIDBytes || !timely)
        throw ModuleProblem(QStringLiteral("Volume gesture expired or has an invalid target."));
}

} // namespace vell
