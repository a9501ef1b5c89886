#pragma once

#include <QDBusMessage>
#include <QString>
#include <QStringList>
#include <QVariantMap>

namespace vell {

// The one form of our banner on the desktop's notification service, whether the running app
// shows it or ostavell-notify does for a timer that ends after a quit. It makes no sound: the
// app plays its own when it sees the end. Only its users link Qt's D-Bus module.
inline const QString desktopNotifyService = QStringLiteral("org.freedesktop.Notifications");
inline const QString desktopNotifyPath = QStringLiteral("/org/freedesktop/Notifications");

inline QDBusMessage desktopNotifyCall(const QString& title, const QString& body) {
    QDBusMessage message = QDBusMessage::createMethodCall(desktopNotifyService, desktopNotifyPath,
                                                          desktopNotifyService, QStringLiteral("Notify"));
    message << QStringLiteral("OstaVell") << uint(0) << QStringLiteral("app.ostavell.OstaVell") << title
            << body << QStringList() << QVariantMap{{QStringLiteral("suppress-sound"), true}} << int(-1);
    return message;
}

} // namespace vell
