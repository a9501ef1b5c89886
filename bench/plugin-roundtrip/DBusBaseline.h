#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <memory>
#include <optional>
#include <vector>

namespace vell {

// The baseline of the round-trip bench: a synchronous D-Bus method call from this process to
// another one through a private bus daemon, the ordinary way two desktop processes ask each
// other something. The daemon and the server (see DBusEcho) live as long as this object.
class DBusBaseline final {
public:
    DBusBaseline() = default;
    ~DBusBaseline();
    DBusBaseline(const DBusBaseline&) = delete;
    DBusBaseline& operator=(const DBusBaseline&) = delete;

    // Starts the bus daemon and the server, program in its server mode, and connects to the
    // bus; false with the reason on standard error when any of it fails.
    bool start(const QString& program);
    // Calls Echo count times one after another, each timed in nanoseconds; nothing when a call
    // failed or did not come back with its text.
    std::optional<std::vector<qint64>> calls(int first, int count);

private:
    QTemporaryDir m_folder;
    std::unique_ptr<QProcess> m_daemon;
    std::unique_ptr<QProcess> m_server;
    QString m_connection;
};

} // namespace vell
