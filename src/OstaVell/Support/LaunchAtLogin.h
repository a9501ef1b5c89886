#pragma once

#include <QString>

#include <optional>

namespace vell {

// Launch at login as an XDG autostart entry. The entry's presence is the state, so a user
// who deletes the file by hand has turned the option off.
class LaunchAtLogin final {
public:
    static QString defaultEntryPath();
    static QString currentExecutable();

    LaunchAtLogin(QString entryPath, QString executable);

    QString entryPath() const { return m_entryPath; }
    bool isEnabled() const;
    // Writes or removes the entry; the reason when that failed.
    std::optional<QString> setEnabled(bool enabled) const;

private:
    QString m_entryPath;
    QString m_executable;
};

} // namespace vell
