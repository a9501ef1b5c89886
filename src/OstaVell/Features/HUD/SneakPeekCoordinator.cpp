#include "OstaVell/Features/HUD/SneakPeekCoordinator.h"

#include <QJSEngine>

#include <algorithm>
#include <cmath>

namespace vell {

SneakPeekCoordinator::SneakPeekCoordinator(QObject* parent)
    : QObject(parent) {
    m_hideTask.setSingleShot(true);
    m_hideTask.setInterval(autoHideMilliseconds);
    connect(&m_hideTask, &QTimer::timeout, this, &SneakPeekCoordinator::hide);
}

SneakPeekCoordinator* SneakPeekCoordinator::instance() {
    static SneakPeekCoordinator* peek = new SneakPeekCoordinator(nullptr);
    return peek;
}

SneakPeekCoordinator* SneakPeekCoordinator::create(QQmlEngine*, QJSEngine*) {
    SneakPeekCoordinator* peek = instance();
    QJSEngine::setObjectOwnership(peek, QJSEngine::CppOwnership);
    return peek;
}

QString SneakPeekCoordinator::typeName() const {
    switch (m_type) {
    case SneakPeekType::brightness:
        return QStringLiteral("brightness");
    case SneakPeekType::mute:
        return QStringLiteral("mute");
    case SneakPeekType::volume:
        break;
    }
    return QStringLiteral("volume");
}

QString SneakPeekCoordinator::sourceName() const {
    return m_source == HUDEventSource::external ? QStringLiteral("external")
                                                : QStringLiteral("internalControl");
}

void SneakPeekCoordinator::setInteracting(bool interacting) {
    if (m_interacting == interacting)
        return;
    m_interacting = interacting;
    // The end of a drag starts the time again from there.
    if (m_visible)
        scheduleAutoHide();
    emit changed();
}

void SneakPeekCoordinator::show(SneakPeekType type, float value, HUDEventSource source) {
    m_type = type;
    m_value = std::isfinite(value) ? std::clamp(value, 0.0f, 1.0f) : 0.0f;
    m_source = source;
    m_visible = true;
    scheduleAutoHide();
    emit changed();
}

void SneakPeekCoordinator::showLevel(const QString& type, double value) {
    show(type == u"brightness" ? SneakPeekType::brightness
         : type == u"mute"     ? SneakPeekType::mute
                               : SneakPeekType::volume,
         float(value), HUDEventSource::internalControl);
}

void SneakPeekCoordinator::hide() {
    m_hideTask.stop();
    if (!m_visible)
        return;
    m_visible = false;
    emit changed();
}

void SneakPeekCoordinator::scheduleAutoHide() {
    m_hideTask.stop();
    if (!m_interacting)
        m_hideTask.start();
}

QString SneakPeekCoordinator::symbolName(SneakPeekType type, float value, bool muted) {
    if (type == SneakPeekType::brightness)
        return value < 0.35f ? QStringLiteral("sun.min.fill") : QStringLiteral("sun.max.fill");
    if (muted)
        return QStringLiteral("speaker.slash.fill");
    if (value < 0.01f)
        return QStringLiteral("speaker.fill");
    if (value < 0.34f)
        return QStringLiteral("speaker.wave.1.fill");
    if (value < 0.67f)
        return QStringLiteral("speaker.wave.2.fill");
    return QStringLiteral("speaker.wave.3.fill");
}

} // namespace vell
