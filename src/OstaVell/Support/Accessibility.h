#pragma once

#include <QDBusMessage>
#include <QObject>
#include <QtQml/qqmlregistration.h>

class QQmlEngine;
class QJSEngine;

class QDBusPendingCallWatcher;

namespace vell {

class UserDefaults;

// Reduce Motion and Reduce Transparency. The desktop's own answer comes from the settings
// portal (GNOME's enable-animations; nothing reports a transparency preference there);
// our own keys "accessibility.reduceMotion" and "accessibility.reduceTransparency" win when set.
class Accessibility final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(bool reduceMotion READ reduceMotion NOTIFY changed)
    Q_PROPERTY(bool reduceTransparency READ reduceTransparency NOTIFY changed)
    Q_DISABLE_COPY_MOVE(Accessibility)

public:
    static Accessibility* instance();
    static Accessibility* create(QQmlEngine*, QJSEngine*);
    explicit Accessibility(UserDefaults* defaults, QObject* parent = nullptr);

    bool reduceMotion() const;
    bool reduceTransparency() const;

    // Asks the portal once and follows its changes; without a portal both stay false.
    void startWatchingDesktop();

signals:
    void changed();

private slots:
    void onPortalSettingChanged(const QDBusMessage& message);

private:
    void onPortalReply(QDBusPendingCallWatcher* watcher);
    void setDesktopAnimations(bool enabled);

    UserDefaults* m_defaults;
    bool m_desktopReducesMotion = false;
    bool m_watching = false;
};

} // namespace vell
