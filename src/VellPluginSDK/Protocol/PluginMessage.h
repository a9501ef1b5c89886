#pragma once

#include "VellPluginSDK/Actions/PluginBusMessage.h"
#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/Presentation/PluginSnapshot.h"
#include "VellPluginSDK/Presentation/PluginTransientCaption.h"
#include "VellPluginSDK/Presentation/PluginViewResources.h"
#include "VellPluginSDK/Protocol/PluginAgenda.h"
#include "VellPluginSDK/Protocol/PluginVolumeCommand.h"
#include "VellPluginSDK/Protocol/PluginVolumeResult.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>

namespace vell {

// One video frame of a plugin's media stream.
struct PluginFrame {
    QByteArray jpeg;

    static PluginFrame fromJson(const JsonNode& json);
    QByteArray encoded() const;

    friend bool operator==(const PluginFrame&, const PluginFrame&) = default;
};

// The envelope of everything the host and a plugin say to each other, one per line. The type
// decides which of the optional fields carry meaning; the receiver checks that, since decoding
// never validates.
struct PluginMessage {
    static constexpr qint64 interfaceVersion = 1;
    // One encoded message, newline not counted: no line longer than this is ever parsed.
    static constexpr qsizetype maximumEncodedBytes = 131072;

    qint64 apiVersion = interfaceVersion;
    QString type;
    QString pluginID;
    // Identity of this launch of the plugin.
    QUuid session;
    // 0 on every host message and on "ready"; strictly increasing on the plugin's others.
    quint64 sequence = 0;
    std::optional<QString> action;
    std::optional<PluginSnapshot> snapshot;
    std::optional<QStringList> features;
    std::optional<bool> visible;
    std::optional<PluginFrame> frame;
    std::optional<PluginBusMessage> bus;
    std::optional<PluginAgenda> agenda;
    // The day asked for, seconds since 2001.
    std::optional<double> agendaDate;
    std::optional<PluginViewEvent> viewEvent;
    std::optional<PluginVolumeCommand> volumeCommand;
    std::optional<PluginVolumeResult> volumeResult;
    std::optional<PluginViewResourceRequest> viewResource;
    std::optional<PluginViewResourceResult> viewResourceResult;
    std::optional<QUuid> viewResourceCancel;
    std::optional<PluginTransientCaption> caption;

    // A message with its identity filled in and nothing else.
    static PluginMessage make(QString type, QString pluginID, const QUuid& session, quint64 sequence = 0);

    static PluginMessage fromJson(const JsonNode& json);
    // One line's JSON, newline not included; a text that does not parse fails with the
    // parser's reason.
    static PluginMessage decode(const QByteArray& json);
    // The compact JSON and one newline byte; fails when the JSON passes its limit.
    QByteArray encoded() const;
    // The compact JSON alone, in declared field order, absent optionals left out.
    QByteArray json() const;

    friend bool operator==(const PluginMessage&, const PluginMessage&) = default;
};

} // namespace vell
