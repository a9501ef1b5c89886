#include "VellHost/NativePluginBundle.h"

#include "VellHost/ChildProcess.h"
#include "VellHost/FileDescriptor.h"
#include "VellPluginSDK/Json/JsonFile.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QList>
#include <QXmlStreamReader>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vell {

namespace {

constexpr qint64 readChunkBytes = 65536;
// ssh-keygen says one line about a signature, and a signature of the largest RSA key is a few
// kilobytes.
constexpr qsizetype maximumKeygenOutputBytes = 65536;

[[noreturn]] void refuse(const char* sentence) {
    throw ModuleProblem(QString::fromLatin1(sentence));
}

[[noreturn]] void cannotRead() {
    refuse("Cannot read plugin bundle.");
}

[[noreturn]] void tooLarge() {
    refuse("Plugin bundle exceeds its size limit.");
}

struct DirectoryCloser {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

// A regular file of the bundle: its path below the root with the leading "/", as the bytes the
// file system holds, and the size the walk saw.
struct BundleFile {
    QByteArray path;
    qint64 size = 0;
};

// The regular files under root, refusing anything that is not a plain tree of directories and
// regular files. A symbolic link is refused where it stands, never followed, so that nothing
// outside the bundle is ever counted or read; anything else (a named pipe, a socket, a device) is
// refused without being opened, since opening it could block or reach outside. The counts are
// checked at every file, so an oversized bundle costs no more than the limit to refuse.
class BundleWalk final {
public:
    static QList<BundleFile> run(const QByteArray& root) {
        const int fd = ::open(root.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0)
            cannotRead();
        BundleWalk walk;
        walk.directory(fd, QByteArray());
        std::sort(walk.m_files.begin(), walk.m_files.end(),
                  [](const BundleFile& a, const BundleFile& b) { return a.path < b.path; });
        return walk.m_files;
    }

private:
    // Takes fd. Subdirectories are entered after the directory's own entries are read, so that
    // at most one directory handle per level of depth is open.
    void directory(int fd, const QByteArray& relative) {
        std::unique_ptr<DIR, DirectoryCloser> listing(::fdopendir(fd));
        if (!listing) {
            ::close(fd);
            cannotRead();
        }
        QList<QByteArray> subdirectories;
        for (;;) {
            errno = 0;
            const dirent* entry = ::readdir(listing.get());
            if (!entry)
                break;
            const QByteArray name(entry->d_name);
            if (name == "." || name == "..")
                continue;
            struct stat info {};
            if (::fstatat(::dirfd(listing.get()), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0)
                cannotRead();
            if (S_ISLNK(info.st_mode))
                refuse("This native plugin preview does not accept bundle symlinks.");
            if (S_ISDIR(info.st_mode)) {
                // Folders hold no fingerprinted bytes, but each costs a visit: they are bounded
                // like files, so a bundle of endless empty folders can't stall the host.
                if (++m_directories > NativePluginBundle::maximumDirectories)
                    tooLarge();
                subdirectories.append(name);
            } else if (S_ISREG(info.st_mode)) {
                m_bytes += info.st_size;
                m_files.append({relative + '/' + name, qint64(info.st_size)});
                if (m_files.size() > NativePluginBundle::maximumFiles ||
                    m_bytes > NativePluginBundle::maximumBundleBytes)
                    tooLarge();
            } else {
                cannotRead();
            }
        }
        if (errno != 0)
            cannotRead();
        if (!subdirectories.isEmpty() && depth(relative) >= NativePluginBundle::maximumDepth)
            tooLarge();
        for (const QByteArray& name : std::as_const(subdirectories)) {
            const int child = ::openat(::dirfd(listing.get()), name.constData(),
                                       O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (child < 0)
                cannotRead();
            directory(child, relative + '/' + name);
        }
    }

    static qsizetype depth(const QByteArray& relative) { return relative.count('/'); }

    QList<BundleFile> m_files;
    qint64 m_bytes = 0;
    int m_directories = 0;
};

// The SHA-256 of each file's content, read in chunks. Bytes are counted again as they are read,
// since a file may have grown after the walk measured it.
class BundleDigest final {
public:
    BundleDigest(const QByteArray& root, const QList<BundleFile>& files) {
        m_files.reserve(files.size());
        qint64 budget = NativePluginBundle::maximumBundleBytes;
        for (const BundleFile& file : files)
            m_files.append({file.path, contentHash(root, file.path, budget)});
    }

    // Path, a zero byte, the content's digest and a zero byte, for every file in path order.
    QString combined(bool withSignature) const {
        const QByteArray signaturePath = '/' + NativePluginBundle::signatureFile.toUtf8();
        QCryptographicHash outer(QCryptographicHash::Sha256);
        const char zero = 0;
        for (const auto& [path, digest] : m_files) {
            if (!withSignature && path == signaturePath)
                continue;
            outer.addData(path);
            outer.addData(QByteArrayView(&zero, 1));
            outer.addData(digest);
            outer.addData(QByteArrayView(&zero, 1));
        }
        return QString::fromLatin1(outer.result().toHex());
    }

private:
    static QByteArray contentHash(const QByteArray& root, const QByteArray& path, qint64& budget) {
        // A directory swapped for a link since the walk would lead elsewhere: the file is read
        // only where it was resolved, and only inside the root.
        std::unique_ptr<char, decltype(&std::free)> resolved(::realpath((root + path).constData(), nullptr),
                                                             &std::free);
        if (!resolved)
            cannotRead();
        const QByteArray real(resolved.get());
        if (!real.startsWith(root + '/'))
            refuse("Plugin file escaped its bundle.");
        const FileDescriptor fd(
            ::open(real.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
        struct stat info {};
        if (!fd.valid() || ::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode))
            cannotRead();
        QCryptographicHash hash(QCryptographicHash::Sha256);
        QByteArray chunk(readChunkBytes, Qt::Uninitialized);
        for (;;) {
            const ssize_t received = ::read(fd.get(), chunk.data(), chunk.size());
            if (received < 0 && errno == EINTR)
                continue;
            if (received < 0)
                cannotRead();
            if (received == 0)
                break;
            budget -= received;
            if (budget < 0)
                tooLarge();
            hash.addData(QByteArrayView(chunk.constData(), received));
        }
        return hash.result();
    }

    struct FileDigest {
        QByteArray path;
        QByteArray digest;
    };
    QList<FileDigest> m_files;
};

QString inBundle(const QString& root, QStringView relative) {
    return root + u'/' + relative.toString();
}

// The bundle's root: an ".app" that is not itself a symbolic link, with every link in the path
// above it resolved.
QByteArray resolvedRoot(const QString& path) {
    // Lexically, as a path typed or chosen: "a/b/../C.app" is "a/C.app", and a trailing slash goes,
    // so that the link test below looks at the bundle's own entry.
    const QString cleaned = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    const QString name = QFileInfo(cleaned).fileName();
    struct stat info {};
    const bool isLink = ::lstat(QFile::encodeName(cleaned).constData(), &info) == 0 && S_ISLNK(info.st_mode);
    if (name.size() <= 4 || !name.endsWith(u".app") || isLink)
        refuse("Choose a plugin app bundle, not a symlink.");
    const QString canonical = QFileInfo(cleaned).canonicalFilePath();
    // Something that does not exist keeps its path and fails at the first read.
    return QFile::encodeName(canonical.isEmpty() ? cleaned : canonical);
}

BundleDigest readContents(const QByteArray& root) {
    return BundleDigest(root, BundleWalk::run(root));
}

// The strings of the top dictionary of an XML property list, the other values as null strings;
// nothing when the text is not such a list or names a key twice, which would leave the identity
// ambiguous.
std::optional<QHash<QString, QString>> readTopDictionary(const QByteArray& text) {
    QXmlStreamReader xml(text);
    if (!xml.readNextStartElement() || xml.name() != u"plist" || !xml.readNextStartElement() ||
        xml.name() != u"dict")
        return std::nullopt;
    QHash<QString, QString> entries;
    while (xml.readNextStartElement()) {
        if (xml.name() != u"key")
            return std::nullopt;
        const QString key = xml.readElementText();
        if (xml.hasError() || entries.contains(key) || !xml.readNextStartElement())
            return std::nullopt;
        if (xml.name() == u"string") {
            entries.insert(key, xml.readElementText());
        } else {
            entries.insert(key, QString());
            xml.skipCurrentElement();
        }
    }
    if (xml.hasError() || xml.readNextStartElement())
        return std::nullopt;
    while (!xml.atEnd())
        xml.readNext();
    if (xml.hasError())
        return std::nullopt;
    return entries;
}

struct KeygenRun {
    bool succeeded = false;
    QByteArray output;
    QByteArray errors;
};

// One ssh-keygen, fed input on standard input, under a deadline. A failure to start is thrown
// as the system's words; a run that times out, says too much or exits non-zero did not succeed.
KeygenRun runKeygen(const QStringList& arguments, const QByteArray& input, int seconds, bool keepErrors) {
    ChildProcessOptions options;
    options.program = NativePluginBundle::sshKeygen.toString();
    options.arguments = arguments;
    options.keepStandardError = keepErrors;
    QString error;
    const std::unique_ptr<ChildProcess> child = ChildProcess::start(options, &error);
    if (!child)
        throw ModuleProblem(error);
    const ChildProcess::Exchange exchange = child->exchange(
        input, maximumKeygenOutputBytes, ChildProcess::Clock::now() + std::chrono::seconds(seconds));
    const int status = child->wait();
    KeygenRun run;
    run.succeeded = exchange.ending == ChildProcess::Exchange::Ending::Finished && WIFEXITED(status) &&
                    WEXITSTATUS(status) == 0;
    run.output = exchange.output;
    if (keepErrors && child->errorDescriptor() >= 0) {
        // The child has exited: what it said is all in the pipe, and nothing more will come.
        ::fcntl(child->errorDescriptor(), F_SETFL, O_NONBLOCK);
        QByteArray chunk(maximumKeygenOutputBytes, Qt::Uninitialized);
        const ssize_t received = ::read(child->errorDescriptor(), chunk.data(), chunk.size());
        if (received > 0)
            run.errors = chunk.left(received);
    }
    return run;
}

// The signature must be a valid one, by any signer, over the contents without itself. A check
// that does not finish in time counts as a failed one.
void verifySignature(const QByteArray& root, const BundleDigest& contents) {
    const QByteArray signature = root + '/' + NativePluginBundle::signatureFile.toUtf8();
    const QStringList arguments{QStringLiteral("-Y"), QStringLiteral("check-novalidate"),
                                QStringLiteral("-n"), NativePluginBundle::signatureNamespace.toString(),
                                QStringLiteral("-s"), QFile::decodeName(signature)};
    const KeygenRun run = runKeygen(arguments, contents.combined(false).toLatin1(),
                                    NativePluginBundle::verificationSeconds, false);
    if (!run.succeeded)
        refuse("The plugin's code signature is invalid.");
}

bool signaturePresent(const QByteArray& root) {
    struct stat info {};
    const QByteArray signature = root + '/' + NativePluginBundle::signatureFile.toUtf8();
    return ::lstat(signature.constData(), &info) == 0 && S_ISREG(info.st_mode);
}

// The executable that Info.plist names, once its identifier is the manifest's id.
QString checkedExecutable(const QByteArray& root, const PluginManifest& manifest) {
    const QString rootPath = QFile::decodeName(root);
    const FileContents plist = JsonFile::readBytes(inBundle(rootPath, NativePluginBundle::infoPlistFile),
                                                   NativePluginBundle::maximumInfoPlistBytes);
    // A property list that is missing or does not parse names no identity, so it cannot match.
    const std::optional<QHash<QString, QString>> info =
        plist.read() ? readTopDictionary(plist.bytes) : std::nullopt;
    if (!info || info->value(QStringLiteral("CFBundleIdentifier")) != manifest.id)
        refuse("Plugin manifest and app identity do not match.");

    const QString name = info->value(QStringLiteral("CFBundleExecutable"));
    if (name.isEmpty() || name.contains(u'/') || name.contains(u".."))
        refuse("Invalid plugin executable.");

    const QString executable = inBundle(rootPath, NativePluginBundle::executableFolder) + u'/' + name;
    struct stat file {};
    if (::lstat(QFile::encodeName(executable).constData(), &file) != 0 || !S_ISREG(file.st_mode) ||
        (file.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) == 0)
        refuse("Plugin executable is missing.");
    return executable;
}

// The manifest is read before the walk: no step of its path may be a link, or reading it could
// open anything on the system.
void refuseLinkedManifest(const QByteArray& root) {
    QByteArray path = root;
    for (const QByteArray& step : NativePluginBundle::manifestFile.toUtf8().split('/')) {
        path += '/' + step;
        struct stat info {};
        if (::lstat(path.constData(), &info) == 0 && S_ISLNK(info.st_mode))
            refuse("This native plugin preview does not accept bundle symlinks.");
    }
}

} // namespace

NativePluginInspection NativePluginBundle::inspect(const QString& path) {
    const QByteArray root = resolvedRoot(path);
    const QString rootPath = QFile::decodeName(root);
    refuseLinkedManifest(root);
    PluginManifest manifest = PluginManifest::read(inBundle(rootPath, manifestFile));

    // The signature covers the contents, so the walk and the digests are taken here, before the
    // signature can be checked, and their refusals come out at this point; the fingerprint at the
    // end is made from the same reading.
    if (!signaturePresent(root))
        refuse("The plugin's code signature is invalid.");
    const BundleDigest contents = readContents(root);
    verifySignature(root, contents);

    QString executable = checkedExecutable(root, manifest);
    return {std::move(manifest), contents.combined(true), std::move(executable), rootPath};
}

QString NativePluginBundle::fingerprint(const QString& path) {
    return readContents(resolvedRoot(path)).combined(true);
}

QString NativePluginBundle::contentDigest(const QString& path) {
    return readContents(resolvedRoot(path)).combined(false);
}

void NativePluginBundle::sign(const QString& path, const QString& keyPath) {
    const QByteArray root = resolvedRoot(path);
    const QString digest = readContents(root).combined(false);
    const QStringList arguments{QStringLiteral("-Y"),          QStringLiteral("sign"), QStringLiteral("-n"),
                                signatureNamespace.toString(), QStringLiteral("-f"),   keyPath};
    const KeygenRun run = runKeygen(arguments, digest.toLatin1(), signingSeconds, true);
    if (!run.succeeded || run.output.isEmpty()) {
        const QString reason = QString::fromLocal8Bit(run.errors).trimmed().section(u'\n', -1);
        throw ModuleProblem(QStringLiteral("Could not sign the plugin: %1")
                                .arg(reason.isEmpty() ? QStringLiteral("ssh-keygen failed.") : reason));
    }
    const FileResult written = JsonFile::write(inBundle(QFile::decodeName(root), signatureFile), run.output);
    if (!written)
        throw ModuleProblem(written.error());
}

} // namespace vell
