#pragma once

#include "OstaVell/Features/HUD/HUDAudioOutput.h"

#include <pulse/context.h>
#include <pulse/glib-mainloop.h>
#include <pulse/introspect.h>
#include <pulse/subscribe.h>
#include <pulse/volume.h>

namespace vell {

// The default sink of a PulseAudio or PipeWire sound server: its name is the output's UID,
// its description the output's name. libpulse runs on the Qt main loop through its GLib main
// loop adapter, so every callback lands on the main thread, and the server's own change events
// are the only thing that wakes it. When the server goes, the output reads absent and a new
// connection waits, without polling, for a server to come back.
class HUDPulseOutput final : public HUDAudioOutput {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(HUDPulseOutput)

public:
    explicit HUDPulseOutput(QObject* parent = nullptr);
    ~HUDPulseOutput() override;

    void start() override;
    HUDOutputReading reading() const override { return m_reading; }
    void writeVolume(float volume) override;
    void writeMuted(bool muted) override;

    // A server is connected and its default sink has been asked for.
    bool connected() const { return m_ready; }

private:
    static void onState(pa_context* context, void* self);
    static void onEvent(pa_context* context, pa_subscription_event_type_t event, uint32_t index, void* self);
    static void onServerInfo(pa_context* context, const pa_server_info* info, void* self);
    static void onSinkInfo(pa_context* context, const pa_sink_info* info, int last, void* self);
    static void onWritten(pa_context* context, int success, void* self);

    void connectToServer();
    void dropContext();
    void stateChanged(pa_context_state_t state);
    void askServer();
    void sinkDescribed(const pa_sink_info& info);
    void publish(const HUDOutputReading& reading);

    pa_glib_mainloop* m_mainloop = nullptr;
    pa_context* m_context = nullptr;
    bool m_started = false;
    bool m_ready = false;
    QString m_sinkName;
    uint32_t m_sinkIndex = PA_INVALID_INDEX;
    // The channels as last read or written, so that a new level keeps their balance.
    pa_cvolume m_channels{};
    // Writes the server has not acknowledged yet. A description that comes before they are is
    // older than they are, and would take back a step just made.
    int m_writesInFlight = 0;
    HUDOutputReading m_reading;
};

} // namespace vell
