#pragma once

#include <QString>
#include <QStringList>

namespace vell {

// "Send to device" through KDE Connect's command-line client: the first device it lists as
// reachable gets the files and links (--share) and the texts (--share-text). It runs on the
// child-process pool and touches no state of the tray; what fails is logged.
class ShelfDeviceSender final {
public:
    ShelfDeviceSender() = delete;

    static constexpr int listTimeoutMs = 10000;
    static constexpr qsizetype maximumListBytes = 65536;

    // The client found on PATH, or empty where KDE Connect isn't installed.
    static QString program();
    static void send(const QStringList& shares, const QStringList& texts);
};

} // namespace vell
