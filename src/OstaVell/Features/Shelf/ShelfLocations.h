#pragma once

#include <QString>

namespace vell {

// Where the tray keeps its list and the files that belong to it: "OstaVell" in the user's data
// folder ($XDG_DATA_HOME), "shelf.json" and the folder "ShelfStorage" in it.
class ShelfLocations final {
public:
    // Under $XDG_DATA_HOME, or ~/.local/share without it.
    ShelfLocations();
    // Under any folder: tests keep their tray in a temporary one.
    explicit ShelfLocations(const QString& supportDirectory);

    QString supportDirectory() const { return m_support; }
    QString storageDirectory() const;
    QString storeFile() const;

private:
    QString m_support;
};

} // namespace vell
