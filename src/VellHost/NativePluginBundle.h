#pragma once

#include "VellPluginSDK/Protocol/PluginManifest.h"

#include <QString>
#include <QStringView>
#include <QtGlobal>

namespace vell {

// What a bundle that passed every check is: its manifest, the fingerprint of its exact bytes,
// the executable to start, and the bundle's root with every symbolic link of its path resolved.
struct NativePluginInspection {
    PluginManifest manifest;
    QString fingerprint;
    QString executable;
    QString root;
};

// Decides whether a plugin bundle is what it claims to be. A plugin runs its own code unconfined,
// so the bytes that were reviewed must be the bytes that run: the fingerprint covers the path and
// content of every regular file, and it is taken again at review, at install, on the private copy
// and at every launch. The signature, a detached SSH signature over the same walk without the
// signature file itself, says that someone signed these contents; any signer passes, so it
// establishes no publisher.
//
// Everything here blocks: it runs ssh-keygen, waits for it, and reads every file of the bundle.
// The limits below are what bound that.
class NativePluginBundle final {
public:
    NativePluginBundle() = delete;

    // Everything read for a fingerprint: the regular files of a bundle, in bytes and in number.
    static constexpr qint64 maximumBundleBytes = 134217728;
    static constexpr int maximumFiles = 4096;
    // Folders are walked too: as many as files at most, and no deeper than any real bundle goes.
    static constexpr int maximumDirectories = 4096;
    static constexpr int maximumDepth = 32;
    // Info.plist names two strings; a larger one is no property list a bundle needs.
    static constexpr qint64 maximumInfoPlistBytes = 65536;
    static constexpr QStringView signatureFile = u"Contents/_CodeSignature/VellPlugin.sig";
    static constexpr QStringView signatureNamespace = u"ostavell-plugin";
    static constexpr QStringView sshKeygen = u"/usr/bin/ssh-keygen";
    static constexpr QStringView manifestFile = u"Contents/Resources/VellPlugin.json";
    static constexpr QStringView infoPlistFile = u"Contents/Info.plist";
    static constexpr QStringView executableFolder = u"Contents/MacOS";
    // How long ssh-keygen may take to check a signature; one that takes longer is not valid.
    static constexpr int verificationSeconds = 10;
    // Signing may wait for a passphrase typed at the terminal.
    static constexpr int signingSeconds = 60;

    // Every check in order; the first that fails throws ModuleProblem with its sentence. The
    // signature covers the bundle's contents, so the walk and the reading of every file come with
    // it, after the manifest and before Info.plist: a link, an unreadable entry or a bundle over
    // its limits is refused at that point.
    static NativePluginInspection inspect(const QString& path);
    // The bundle's fingerprint without looking at its manifest or signature.
    static QString fingerprint(const QString& path);
    // The text that is signed: the same walk and digest over every regular file except the
    // signature file, as 64 lower-case hexadecimal digits.
    static QString contentDigest(const QString& path);
    // Signs contentDigest with the private key at keyPath and writes the signature file.
    static void sign(const QString& path, const QString& keyPath);
};

} // namespace vell
