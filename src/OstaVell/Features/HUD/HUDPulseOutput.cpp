#include "OstaVell/Features/HUD/HUDPulseOutput.h"

#include "OstaVell/Features/HUD/HUDLogging.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QMetaObject>

#include <algorithm>
#include <cmath>
#include <pulse/error.h>
#include <pulse/operation.h>

namespace vell {

namespace {

// An operation's answer comes through its callback; the handle itself is not needed.
void forget(pa_operation* operation) {
    if (operation)
        pa_operation_unref(operation);
}

float level(const pa_cvolume& channels) {
    return std::clamp(float(pa_cvolume_max(&channels)) / float(PA_VOLUME_NORM), 0.0f, 1.0f);
}

} // namespace

HUDPulseOutput::HUDPulseOutput(QObject* parent)
    : HUDAudioOutput(parent) {}

HUDPulseOutput::~HUDPulseOutput() {
    dropContext();
    if (m_mainloop)
        pa_glib_mainloop_free(m_mainloop);
}

void HUDPulseOutput::start() {
    if (m_started)
        return;
    m_started = true;
    // libpulse's sources join GLib's default context, which only Qt's GLib dispatcher runs.
    QAbstractEventDispatcher* dispatcher =
        QCoreApplication::instance()
            ? QAbstractEventDispatcher::instance(QCoreApplication::instance()->thread())
            : nullptr;
    if (!dispatcher || !dispatcher->inherits("QEventDispatcherGlib")) {
        qCWarning(lcHUD) << "failed to observe default output device (the Qt event loop does not run GLib; "
                            "unset QT_NO_GLIB)";
        return;
    }
    m_mainloop = pa_glib_mainloop_new(nullptr);
    connectToServer();
}

void HUDPulseOutput::connectToServer() {
    pa_proplist* properties = pa_proplist_new();
    pa_proplist_sets(properties, PA_PROP_APPLICATION_NAME, "OstaVell");
    pa_proplist_sets(properties, PA_PROP_APPLICATION_ID, "app.ostavell.OstaVell");
    m_context = pa_context_new_with_proplist(pa_glib_mainloop_get_api(m_mainloop), "OstaVell", properties);
    pa_proplist_free(properties);
    if (!m_context) {
        qCWarning(lcHUD) << "failed to observe default output device (no sound server context)";
        return;
    }
    pa_context_set_state_callback(m_context, &HUDPulseOutput::onState, this);
    pa_context_set_subscribe_callback(m_context, &HUDPulseOutput::onEvent, this);
    // NOFAIL: with no server yet the context waits for one to appear on the bus instead of
    // failing; NOAUTOSPAWN: a desktop companion never starts a sound server itself.
    if (pa_context_connect(m_context, nullptr, pa_context_flags_t(PA_CONTEXT_NOFAIL | PA_CONTEXT_NOAUTOSPAWN),
                           nullptr) < 0) {
        qCWarning(lcHUD).nospace() << "failed to observe default output device ("
                                   << pa_strerror(pa_context_errno(m_context)) << ")";
        dropContext();
    }
}

void HUDPulseOutput::dropContext() {
    if (!m_context)
        return;
    pa_context_set_state_callback(m_context, nullptr, nullptr);
    pa_context_set_subscribe_callback(m_context, nullptr, nullptr);
    pa_context_disconnect(m_context);
    pa_context_unref(m_context);
    m_context = nullptr;
    m_ready = false;
    // A gone connection acknowledges nothing more.
    m_writesInFlight = 0;
}

void HUDPulseOutput::onState(pa_context* context, void* self) {
    static_cast<HUDPulseOutput*>(self)->stateChanged(pa_context_get_state(context));
}

void HUDPulseOutput::stateChanged(pa_context_state_t state) {
    if (state == PA_CONTEXT_READY) {
        m_ready = true;
        forget(pa_context_subscribe(
            m_context, pa_subscription_mask_t(PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SERVER),
            nullptr, nullptr));
        askServer();
        return;
    }
    if (state != PA_CONTEXT_FAILED && state != PA_CONTEXT_TERMINATED)
        return;
    const bool wasReady = m_ready;
    qCInfo(lcHUD).nospace() << "sound server connection ended (" << pa_strerror(pa_context_errno(m_context))
                            << ")";
    m_ready = false;
    m_sinkName.clear();
    m_sinkIndex = PA_INVALID_INDEX;
    publish({});
    // A context can't be used again, and may not be freed inside its own callback. A server that
    // went away is waited for on a new one; a connection that never came up (a server named in
    // the environment that refuses us) is not tried again in a loop.
    QMetaObject::invokeMethod(
        this,
        [this, wasReady] {
            dropContext();
            if (wasReady)
                connectToServer();
        },
        Qt::QueuedConnection);
}

void HUDPulseOutput::onEvent(pa_context*, pa_subscription_event_type_t event, uint32_t index, void* self) {
    auto* output = static_cast<HUDPulseOutput*>(self);
    const auto facility = event & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
    const auto kind = event & PA_SUBSCRIPTION_EVENT_TYPE_MASK;
    if (facility == PA_SUBSCRIPTION_EVENT_SERVER) {
        // The default sink may have changed.
        output->askServer();
    } else if (facility == PA_SUBSCRIPTION_EVENT_SINK && index == output->m_sinkIndex) {
        if (kind == PA_SUBSCRIPTION_EVENT_REMOVE)
            output->askServer();
        else
            forget(pa_context_get_sink_info_by_index(output->m_context, index, &HUDPulseOutput::onSinkInfo,
                                                     output));
    }
}

void HUDPulseOutput::askServer() {
    if (m_context)
        forget(pa_context_get_server_info(m_context, &HUDPulseOutput::onServerInfo, this));
}

void HUDPulseOutput::onServerInfo(pa_context* context, const pa_server_info* info, void* self) {
    auto* output = static_cast<HUDPulseOutput*>(self);
    const QString name =
        info && info->default_sink_name ? QString::fromUtf8(info->default_sink_name) : QString();
    output->m_sinkName = name;
    if (name.isEmpty()) {
        output->m_sinkIndex = PA_INVALID_INDEX;
        output->publish({});
        return;
    }
    forget(pa_context_get_sink_info_by_name(context, info->default_sink_name, &HUDPulseOutput::onSinkInfo,
                                            output));
}

void HUDPulseOutput::onSinkInfo(pa_context*, const pa_sink_info* info, int last, void* self) {
    auto* output = static_cast<HUDPulseOutput*>(self);
    if (info) {
        output->sinkDescribed(*info);
    } else if (last < 0) {
        // The sink went between the server's answer and ours; the server tells of the new default.
        qCInfo(lcHUD) << "default output" << output->m_sinkName << "went away";
        output->m_sinkIndex = PA_INVALID_INDEX;
        output->publish({});
    }
}

void HUDPulseOutput::sinkDescribed(const pa_sink_info& info) {
    const QString name = QString::fromUtf8(info.name);
    // An answer about a sink that is no longer the default is late, and one from before our
    // writes took effect is old: either way a newer one is coming.
    if (name != m_sinkName || (m_writesInFlight > 0 && info.index == m_sinkIndex))
        return;
    m_sinkIndex = info.index;
    m_channels = info.volume;
    HUDOutputReading reading;
    reading.present = true;
    reading.uid = name;
    reading.name = info.description && *info.description ? QString::fromUtf8(info.description) : name;
    // The server keeps a level and a mute for every sink, in software where the hardware has
    // none, so both can always be set while the sink has channels.
    reading.canSetVolume = info.volume.channels > 0;
    reading.canMute = true;
    if (reading.canSetVolume)
        reading.volume = level(info.volume);
    reading.muted = info.mute != 0;
    publish(reading);
}

void HUDPulseOutput::publish(const HUDOutputReading& reading) {
    // A reading the same as the last one is told again all the same: the level may have gone
    // elsewhere and back between two answers, and our listener may have moved in between with a
    // write of its own that this reading now contradicts.
    if (!reading.present && !m_reading.present)
        return;
    m_reading = reading;
    emit readingChanged();
}

void HUDPulseOutput::writeVolume(float volume) {
    if (!m_ready || m_sinkIndex == PA_INVALID_INDEX || m_channels.channels == 0 || !std::isfinite(volume))
        return;
    pa_cvolume channels = m_channels;
    pa_cvolume_scale(&channels, pa_volume_t(std::lround(std::clamp(volume, 0.0f, 1.0f) * PA_VOLUME_NORM)));
    // Kept at once, so that a second step before the server's answer starts from the first.
    m_channels = channels;
    if (pa_operation* write = pa_context_set_sink_volume_by_index(m_context, m_sinkIndex, &channels,
                                                                  &HUDPulseOutput::onWritten, this)) {
        ++m_writesInFlight;
        pa_operation_unref(write);
    }
}

void HUDPulseOutput::writeMuted(bool muted) {
    if (!m_ready || m_sinkIndex == PA_INVALID_INDEX)
        return;
    if (pa_operation* write = pa_context_set_sink_mute_by_index(m_context, m_sinkIndex, muted,
                                                                &HUDPulseOutput::onWritten, this)) {
        ++m_writesInFlight;
        pa_operation_unref(write);
    }
}

void HUDPulseOutput::onWritten(pa_context* context, int, void* self) {
    auto* output = static_cast<HUDPulseOutput*>(self);
    // The change our writes made is described once more, now that a description is new.
    if (output->m_writesInFlight > 0 && --output->m_writesInFlight == 0 &&
        output->m_sinkIndex != PA_INVALID_INDEX)
        forget(pa_context_get_sink_info_by_index(context, output->m_sinkIndex, &HUDPulseOutput::onSinkInfo,
                                                 output));
}

} // namespace vell
