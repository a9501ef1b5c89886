#pragma once

#include <QObject>
#include <QString>

namespace vell {

// The server of the round-trip bench's baseline: one object on a bus with one method that
// answers with the text it was given. It runs in a process of its own, the bench program
// started in its server mode.
class DBusEcho final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "app.ostavell.bench.Echo")

public:
    static constexpr QStringView serverArgument = u"--dbus-echo-server";
    static constexpr QStringView service = u"app.ostavell.bench.Echo";
    static constexpr QStringView objectPath = u"/Echo";

    DBusEcho() = default;
    Q_DISABLE_COPY_MOVE(DBusEcho)

    // The server mode: exports the object on the bus at address and says "ready" on standard
    // output; it runs until it is stopped.
    static int serve(const QString& address);

public slots:
    QString Echo(const QString& text) { return text; }
};

} // namespace vell
