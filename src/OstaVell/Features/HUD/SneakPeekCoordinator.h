#pragma once

#include <QObject>
#include <QString>
#include <QTimer>
#include <QtQml/qqmlregistration.h>

class QJSEngine;
class QQmlEngine;

namespace vell {

// Who moved a level: one of our own controls (a key, the wing's slider), or something else
// (another program, the hardware).
enum class HUDEventSource { internalControl, external };
enum class SneakPeekType { volume, brightness, mute };

// The small state behind the HUD wings: whether they show, what, and at which level. A peek
// hides itself 1.5 seconds after the last event that showed it; each event renews the time,
// and a person dragging the wing's slider holds it open until they let go.
class SneakPeekCoordinator final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_DISABLE_COPY_MOVE(SneakPeekCoordinator)

    Q_PROPERTY(bool visible READ visible NOTIFY changed)
    // "volume", "brightness" or "mute".
    Q_PROPERTY(QString type READ typeName NOTIFY changed)
    Q_PROPERTY(double value READ value NOTIFY changed)
    // "internalControl" or "external".
    Q_PROPERTY(QString lastEventSource READ sourceName NOTIFY changed)
    Q_PROPERTY(bool isInteracting READ isInteracting WRITE setInteracting NOTIFY changed)

public:
    static constexpr int autoHideMilliseconds = 1500;

    // No default: QML would make its own instance from one instead of asking create().
    explicit SneakPeekCoordinator(QObject* parent);

    static SneakPeekCoordinator* instance();
    static SneakPeekCoordinator* create(QQmlEngine*, QJSEngine*);

    bool visible() const { return m_visible; }
    SneakPeekType type() const { return m_type; }
    QString typeName() const;
    float value() const { return m_value; }
    HUDEventSource lastEventSource() const { return m_source; }
    QString sourceName() const;
    bool isInteracting() const { return m_interacting; }
    void setInteracting(bool interacting);
    // How long until the peek hides by itself; -1 when it won't.
    int hidesIn() const { return m_hideTask.isActive() ? m_hideTask.remainingTime() : -1; }

    void show(SneakPeekType type, float value, HUDEventSource source);
    Q_INVOKABLE void hide();
    // A wing's own control moved the level: "volume", "brightness" or "mute".
    Q_INVOKABLE void showLevel(const QString& type, double value);

    // The symbol a wing shows for this peek: the sun by brightness, the speaker by level, or
    // struck through when muted.
    static QString symbolName(SneakPeekType type, float value, bool muted);
    Q_INVOKABLE QString symbol(bool muted) const { return symbolName(m_type, m_value, muted); }

signals:
    void changed();

private:
    void scheduleAutoHide();

    bool m_visible = false;
    SneakPeekType m_type = SneakPeekType::volume;
    float m_value = 0;
    HUDEventSource m_source = HUDEventSource::internalControl;
    bool m_interacting = false;
    QTimer m_hideTask;
};

} // namespace vell
