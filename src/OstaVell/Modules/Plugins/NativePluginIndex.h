#pragma once

#include "VellPluginSDK/Protocol/NativePluginRecord.h"
#include "VellPluginSDK/Protocol/PluginManifest.h"

#include <QList>
#include <QString>

#include <optional>

namespace vell {

// The plugins root on disk: the index "installed-v1.json", a JSON array of the installed records,
// and one folder per installed or saved version, named by a fresh upper-case UUID and holding a
// private copy of the bundle as "Plugin.app". The store owns what is in memory; this class only
// reads, checks and writes. Folders of versions dropped from the history, and of removed plugins,
// stay on disk unreferenced: nothing but a failed install's own folder is ever deleted.
class NativePluginIndex final {
public:
    // Bounds the load at start and every save.
    static constexpr qint64 maximumFileBytes = 262144;
    static constexpr int maximumPlugins = 20;
    static constexpr int maximumSavedVersions = 5;
    static constexpr QStringView indexFile = u"installed-v1.json";
    static constexpr QStringView bundleFolder = u"Plugin.app";

    explicit NativePluginIndex(QString directory);

    const QString& directory() const { return m_directory; }
    QString path() const;

    // No file is an empty list. Any other failure throws the reason, and the file is left as it
    // is: a store that cannot use it starts empty and refuses to save over it.
    QList<NativePluginRecord> load() const;
    // Writes records atomically, creating the root (owner only) first. Throws, having written
    // nothing, when the encoded list is over the limit or the write fails.
    void persist(const QList<NativePluginRecord>& records) const;

    // The record an install makes: a fresh one when nothing is installed under the id, else one
    // that keeps the user's settings and puts the version it replaces at the head of the history.
    // An empty history is left absent.
    static NativePluginRecord installed(const std::optional<NativePluginRecord>& previous,
                                        const PluginManifest& manifest, const QString& folder,
                                        const QString& fingerprint, double now);

    // Copies the bundle at bundleRoot into a new folder as "Plugin.app", keeping the permission
    // bits of every file and directory. Symbolic links and anything but directories and regular
    // files are left out, never followed: the copy is inspected before it is trusted, and a
    // bundle that had them was refused already. Answers the folder's name; on failure removes
    // what it made and throws.
    QString copyBundle(const QString& bundleRoot) const;
    QString bundlePath(const QString& folder) const;
    // For a failed install's own folder; a name that is not a UUID is never touched.
    void removeFolder(const QString& folder) const;

    // The canonical 36-character form, in either case.
    static bool isFolderName(const QString& text);

private:
    QString m_directory;
};

} // namespace vell
