#pragma once

#include <QObject>
#include <QString>

#include <functional>

namespace vell {

// The desktop's notification service (org.freedesktop.Notifications on the session bus), as
// the running app uses it: one banner sent without waiting, and whether anyone answers. Every
// call is asynchronous; a late answer reaches its callback only while the context lives.
class DesktopNotification final {
public:
    DesktopNotification() = delete;

    static const QString service;

    // A banner that makes no sound of its own: the app plays its own sound with it. done, when
    // given, learns whether the service took it.
    static void send(const QString& title, const QString& body, QObject* context = nullptr,
                     std::function<void(bool delivered)> done = {});
    // Whether a notification service answers, starting one the bus knows how to start.
    static void probe(QObject* context, std::function<void(bool answers)> done);
};

} // namespace vell
