#pragma once

#include <QDBusConnection>
#include <QDateTime>
#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

#include <optional>

class QJSEngine;
class QQmlEngine;

namespace vell {

// The brightness of the built-in screen: read from the kernel's backlight device, written
// through logind, which lets the user of the session set it without any other privilege.
// Available when there is a backlight device and logind knows our session; otherwise the
// brightness keys stay with the system. Main thread only.
class HUDBrightnessManager final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_DISABLE_COPY_MOVE(HUDBrightnessManager)

    Q_PROPERTY(double brightness READ brightness NOTIFY changed)
    Q_PROPERTY(bool isAvailable READ isAvailable NOTIFY changed)
    // The backlight device's name, empty when there is none.
    Q_PROPERTY(QString device READ device NOTIFY changed)

public:
    static constexpr QLatin1StringView systemFolder{"/sys/class/backlight"};

    // folder holds one folder per backlight device, as the kernel's class folder does.
    HUDBrightnessManager(const QString& folder, const QDBusConnection& systemBus, const QString& sessionPath,
                         QObject* parent = nullptr);

    static HUDBrightnessManager* instance();
    static HUDBrightnessManager* create(QQmlEngine*, QJSEngine*);
    // Our logind session: the one XDG_SESSION_ID names, else the one logind finds for us.
    static QString sessionPath();

    // Picks the device and asks logind for the session; once.
    void start();

    float brightness() const { return m_brightness; }
    std::optional<QDateTime> lastChangedAt() const { return m_lastChangedAt; }
    bool isAvailable() const { return m_device.has_value() && m_sessionFound; }
    // Started, and whether brightness is available is known: logind has answered, or there
    // was nothing to ask it about.
    bool settled() const { return m_started && (!m_device || m_sessionAnswered); }
    QString device() const { return m_device ? m_device->name : QString(); }

    // Reads the level again, unless a write of ours is still on its way.
    void refresh();
    Q_INVOKABLE void setBrightness(double value);
    // The new level, or nothing when brightness is unavailable.
    std::optional<float> stepBrightness(float by);

signals:
    void changed();

private:
    struct Device {
        QString name;
        QString folder;
        int maximum = 0;
    };

    std::optional<Device> findDevice() const;
    std::optional<int> readLevel() const;
    void write(int level);
    void publish(float brightness, bool changedByUs);

    QString m_folder;
    QDBusConnection m_bus;
    QString m_sessionPath;
    bool m_started = false;
    std::optional<Device> m_device;
    bool m_sessionFound = false;
    bool m_sessionAnswered = false;
    int m_level = 0;
    int m_writesInFlight = 0;
    float m_brightness = 0;
    std::optional<QDateTime> m_lastChangedAt;
};

} // namespace vell
