#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QUuid>

#include <variant>

namespace vell {

// One change the host asks of a plugin's volume endpoint. On the wire a one-key object named
// after the case, its payload under "_0": {"setVolume":{"_0":0.5}}, {"toggleMute":{}}.
class PluginVolumeOperation final {
public:
    enum class Kind { setVolume, adjustVolume, setMuted, toggleMute };

    // The keys send steps of 1/16 and 1/64; a quarter is the most one press may move, so that
    // a forged or runaway step can't blast the speakers.
    static constexpr double maximumStep = 0.25;

    // A step of 0, which validate refuses: an operation nobody chose is never sent.
    PluginVolumeOperation() = default;

    static PluginVolumeOperation setVolume(double level) { return {std::in_place_index<0>, level}; }
    static PluginVolumeOperation adjustVolume(double step) { return {std::in_place_index<1>, step}; }
    static PluginVolumeOperation setMuted(bool muted) { return {std::in_place_index<2>, muted}; }
    static PluginVolumeOperation toggleMute() { return {std::in_place_index<3>, std::monostate()}; }

    Kind kind() const { return static_cast<Kind>(m_payload.index()); }
    // The payload of the matching kind; 0 or false for the others.
    double level() const;
    double step() const;
    bool muted() const;

    static QString kindName(Kind kind);

    static PluginVolumeOperation fromJson(const JsonNode& json);
    QByteArray encoded() const;
    QJsonObject toJson() const;
    // A level finite and within 0 to 1; a step finite, not 0, and at most maximumStep either way.
    bool isValid() const;
    void validate() const;

    friend bool operator==(const PluginVolumeOperation&, const PluginVolumeOperation&) = default;

private:
    template <std::size_t I, typename T>
    PluginVolumeOperation(std::in_place_index_t<I> index, T value)
        : m_payload(index, value) {}

    // Index order is the order of Kind.
    std::variant<double, double, bool, std::monostate> m_payload{std::in_place_index<1>, 0.0};
};

// A volume change on its way to a plugin. It expires soon after the key press: a gesture
// delivered late is dropped rather than applied to a level the user no longer sees.
struct PluginVolumeCommand {
    static constexpr double maximumLifetimeSeconds = 15;

    QUuid requestID;
    QString endpointID;
    PluginVolumeOperation operation;
    // Seconds since 1970, like the endpoint's observedAt: both sides compare it with their clocks.
    double expiresAt = 0;

    static PluginVolumeCommand fromJson(const JsonNode& json);
    // Declared field order.
    QByteArray encoded() const;
    QJsonObject toJson() const;
    // now in seconds since 1970.
    void validate(double now) const;

    friend bool operator==(const PluginVolumeCommand&, const PluginVolumeCommand&) = default;
};

} // namespace vell
