#include "VellHost/NativePluginBundle.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <sys/stat.h>

using namespace vell;
using namespace Qt::StringLiterals;

namespace {

const QString signatureInvalid = u"The plugin's code signature is invalid."_s;
const QString notAnApp = u"Choose a plugin app bundle, not a symlink."_s;
const QString symlinks = u"This native plugin preview does not accept bundle symlinks."_s;
const QString identityMismatch = u"Plugin manifest and app identity do not match."_s;
const QString invalidExecutable = u"Invalid plugin executable."_s;
const QString executableMissing = u"Plugin executable is missing."_s;
const QString tooLarge = u"Plugin bundle exceeds its size limit."_s;

template <typename F> QString problemOf(F&& call) {
    try {
        call();
    } catch (const ModuleProblem& problem) {
        return problem.message();
    }
    return {};
}

// A helper program run to its end: ssh-keygen, cp, vellctl. Answers its standard output.
QByteArray run(const QString& program, const QStringList& arguments, const QByteArray& input = {}) {
    QProcess process;
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(60000) || process.exitCode() != 0)
        qFatal("%s failed: %s", qPrintable(program), process.readAllStandardError().constData());
    return process.readAllStandardOutput();
}

void write(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
}

QByteArray read(const QString& path) {
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}

void flipByte(const QString& path) {
    QByteArray bytes = read(path);
    bytes[bytes.size() / 2] = char(bytes.at(bytes.size() / 2) ^ 0x01);
    write(path, bytes);
}

// An Info.plist whose top dictionary holds these entries.
QByteArray plist(const QByteArray& entries) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n<dict>\n" +
           entries + "</dict>\n</plist>\n";
}

QByteArray entry(const QByteArray& key, const QByteArray& value) {
    return "<key>" + key + "</key><string>" + value + "</string>\n";
}

const QByteArray diceIdentity = entry("CFBundleIdentifier", "app.ostavell.example.dice");

QList<QString> regularFiles(const QString& root) {
    QList<QString> files;
    QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext())
        files.append(it.next());
    return files;
}

qint64 regularBytes(const QString& root) {
    qint64 total = 0;
    for (const QString& file : regularFiles(root))
        total += QFileInfo(file).size();
    return total;
}

// Small files until the bundle holds count regular files.
void fillTo(const QString& bundle, qsizetype count) {
    const qsizetype present = regularFiles(bundle).size();
    QDir().mkpath(bundle + u"/Contents/Resources/Fill"_s);
    for (qsizetype i = present; i < count; ++i)
        write(bundle + u"/Contents/Resources/Fill/"_s + QString::number(i), "x");
}

// A sparse file that brings the bundle's regular files to exactly bytes.
void sizeTo(const QString& bundle, qint64 bytes) {
    QFile file(bundle + u"/Contents/Resources/Padding"_s);
    const qint64 others = regularBytes(bundle) - (file.exists() ? file.size() : 0);
    if (!file.open(QIODevice::ReadWrite) || !file.resize(bytes - others))
        qFatal("cannot size the padding");
}

// Edits a copy of a bundle in place.
using Edit = std::function<void(const QString& bundle)>;

void unchanged(const QString&) {}

Edit manifestOf(qsizetype size) {
    return [size](const QString& bundle) {
        const QString path = bundle + u"/Contents/Resources/VellPlugin.json"_s;
        const QByteArray json = read(path).trimmed();
        write(path, json + QByteArray(size - json.size(), ' '));
    };
}

Edit infoPlistOf(const QByteArray& text) {
    return [text](const QString& bundle) { write(bundle + u"/Contents/Info.plist"_s, text); };
}

Edit executableNamed(const QByteArray& value) {
    return infoPlistOf(plist(diceIdentity + "<key>CFBundleExecutable</key>" + value + "\n"));
}

} // namespace

// Real bundles built from examples/, real signatures from ssh-keygen.
class TestNativePluginBundle final : public QObject {
    Q_OBJECT

    // Prepares a fresh copy of the Dice bundle, the smallest, and answers the path to inspect.
    using Change = std::function<QString(const QString& bundle)>;

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        for (const QString& key : {m_key, m_otherKey})
            run(u"ssh-keygen"_s, {u"-t"_s, u"ed25519"_s, u"-N"_s, QString(), u"-q"_s, u"-f"_s, key});
    }

    // The path, the signature, and the order of the first checks: the manifest is read before the
    // signature, and the signature before Info.plist.
    void pathAndSignature_data() {
        columns();
        QTest::newRow("signed") << signedAfter(unchanged) << QString();
        QTest::newRow("path with a trailing slash") << Change([this](const QString& bundle) {
            sign(bundle);
            return bundle + u'/';
        }) << QString();
        QTest::newRow("a folder above is a link") << Change([this](const QString& bundle) {
            sign(bundle);
            const QString folder = QFileInfo(bundle).absolutePath();
            QFile::link(folder, folder + u"-link"_s);
            return folder + u"-link/Dice.app"_s;
        }) << QString();

        // The signature: present, made over these very contents, in our namespace.
        QTest::newRow("unsigned") << unsignedWith(unchanged) << signatureInvalid;
        QTest::newRow("signature tampered") << changedAfterSigning([](const QString& bundle) {
            const QString path = bundle + u'/' + NativePluginBundle::signatureFile.toString();
            QByteArray armored = read(path);
            const qsizetype at = armored.indexOf('\n') + 60;
            armored[at] = armored.at(at) == 'A' ? 'B' : 'A';
            write(path, armored);
        }) << signatureInvalid;
        QTest::newRow("signed in another namespace") << Change([this](const QString& bundle) {
            write(bundle + u'/' + NativePluginBundle::signatureFile.toString(),
                  run(u"ssh-keygen"_s, {u"-Y"_s, u"sign"_s, u"-n"_s, u"file"_s, u"-f"_s, m_key},
                      NativePluginBundle::contentDigest(bundle).toLatin1()));
            return bundle;
        }) << signatureInvalid;
        QTest::newRow("a byte changed after signing") << changedAfterSigning([](const QString& bundle) {
            flipByte(bundle + u"/Contents/MacOS/dice"_s);
        }) << signatureInvalid;
        QTest::newRow("a file added after signing") << changedAfterSigning([](const QString& bundle) {
            write(bundle + u"/Contents/Resources/extra"_s, "");
        }) << signatureInvalid;

        // Only an ".app" of its own; the manifest is read, and judged, before the signature.
        QTest::newRow("the path is a link") << Change([this](const QString& bundle) {
            sign(bundle);
            QFile::link(bundle, bundle + u"-link.app"_s);
            return bundle + u"-link.app"_s;
        }) << notAnApp;
        QTest::newRow("not an app") << Change([this](const QString& bundle) {
            sign(bundle);
            QDir().rename(bundle, bundle + u".bundle"_s);
            return bundle + u".bundle"_s;
        }) << notAnApp;
        QTest::newRow("manifest at its limit") << signedAfter(manifestOf(8192)) << QString();
        QTest::newRow("manifest over its limit, unsigned")
            << unsignedWith(manifestOf(8193)) << u"Plugin manifest exceeds its limit."_s;
        QTest::newRow("invalid manifest, unsigned") << unsignedWith([](const QString& bundle) {
            const QString path = bundle + u"/Contents/Resources/VellPlugin.json"_s;
            write(path, read(path).replace("1.0.0", "1.0"));
        }) << u"Invalid plugin manifest."_s;
        QTest::newRow("identity mismatch, unsigned")
            << unsignedWith(infoPlistOf(plist(entry("CFBundleIdentifier", "app.ostavell.example.clock"))))
            << signatureInvalid;
    }

    void pathAndSignature() { checkInspection(); }

    // Info.plist: the identity, then the executable's name and file.
    void infoPlist_data() {
        columns();
        QTest::newRow("identity mismatch")
            << signedAfter(infoPlistOf(plist(entry("CFBundleIdentifier", "app.ostavell.example.clock") +
                                             entry("CFBundleExecutable", "dice"))))
            << identityMismatch;
        QTest::newRow("Info.plist missing")
            << signedAfter([](const QString& bundle) { QFile::remove(bundle + u"/Contents/Info.plist"_s); })
            << identityMismatch;
        QTest::newRow("Info.plist not a property list")
            << signedAfter(infoPlistOf("CFBundleIdentifier = app.ostavell.example.dice")) << identityMismatch;
        QTest::newRow("Info.plist not well-formed")
            << signedAfter(infoPlistOf(plist(diceIdentity + entry("CFBundleExecutable", "dice")).chopped(3)))
            << identityMismatch;
        QTest::newRow("identifier not a string")
            << signedAfter(infoPlistOf(plist("<key>CFBundleIdentifier</key><array><string>"
                                             "app.ostavell.example.dice</string></array>\n" +
                                             entry("CFBundleExecutable", "dice"))))
            << identityMismatch;
        QTest::newRow("identifier named twice")
            << signedAfter(infoPlistOf(plist(diceIdentity + entry("CFBundleExecutable", "dice") +
                                             entry("CFBundleIdentifier", "app.ostavell.example.clock"))))
            << identityMismatch;
        const QByteArray dicePlist = plist(diceIdentity + entry("CFBundleExecutable", "dice"));
        const qsizetype plistLimit = NativePluginBundle::maximumInfoPlistBytes;
        QTest::newRow("Info.plist at its limit")
            << signedAfter(infoPlistOf(dicePlist + QByteArray(plistLimit - dicePlist.size(), '\n')))
            << QString();
        QTest::newRow("Info.plist over its limit")
            << signedAfter(infoPlistOf(dicePlist + QByteArray(plistLimit + 1 - dicePlist.size(), '\n')))
            << identityMismatch;
        QTest::newRow("executable not named")
            << signedAfter(infoPlistOf(plist(diceIdentity))) << invalidExecutable;
        QTest::newRow("executable name not a string")
            << signedAfter(executableNamed("<integer>1</integer>")) << invalidExecutable;
        for (const char* name : {"", "MacOS/dice", "..", "dice..", "../MacOS/dice"})
            QTest::addRow("executable named \"%s\"", name)
                << signedAfter(executableNamed("<string>" + QByteArray(name) + "</string>"))
                << invalidExecutable;
        QTest::newRow("executable absent")
            << signedAfter(executableNamed("<string>absent</string>")) << executableMissing;
        QTest::newRow("executable without an execute bit") << signedAfter([](const QString& bundle) {
            QFile::setPermissions(bundle + u"/Contents/MacOS/dice"_s, QFile::ReadOwner | QFile::WriteOwner);
        }) << executableMissing;
        QTest::newRow("executable is a folder") << signedAfter([](const QString& bundle) {
            QDir().mkpath(bundle + u"/Contents/MacOS/folder"_s);
            executableNamed("<string>folder</string>")(bundle);
        }) << executableMissing;
    }

    void infoPlist() { checkInspection(); }

    // The walk: links never followed, nothing but files and folders, and its limits.
    void walk_data() {
        columns();
        QTest::newRow("a link to a file inside") << changedAfterSigning([](const QString& bundle) {
            QFile::link(u"VellPlugin.json"_s, bundle + u"/Contents/Resources/Alias.json"_s);
        }) << symlinks;
        QTest::newRow("a link to a folder inside") << changedAfterSigning([](const QString& bundle) {
            QFile::link(u"Resources"_s, bundle + u"/Contents/Views"_s);
        }) << symlinks;
        QTest::newRow("a dangling link") << changedAfterSigning([](const QString& bundle) {
            QFile::link(u"/nonexistent"_s, bundle + u"/Contents/Resources/gone"_s);
        }) << symlinks;
        QTest::newRow("a named pipe") << changedAfterSigning([](const QString& bundle) {
            QVERIFY(::mkfifo(QFile::encodeName(bundle + u"/Contents/Resources/pipe"_s).constData(), 0600) ==
                    0);
        }) << u"Cannot read plugin bundle."_s;
        QTest::newRow("4096 files") << signedAfter([](const QString& bundle) { fillTo(bundle, 4096); })
                                    << QString();
        QTest::newRow("4097 files") << changedAfterSigning([](const QString& bundle) {
            fillTo(bundle, 4097);
        }) << tooLarge;
        // Sparse files: the walk adds up sizes, so the limit costs nothing to reach.
        QTest::newRow("134217728 bytes") << Change([this](const QString& bundle) {
            sizeTo(bundle, NativePluginBundle::maximumBundleBytes);
            sign(bundle);
            // An ed25519 signature has one size, so signing again kept the total.
            if (regularBytes(bundle) != NativePluginBundle::maximumBundleBytes)
                qFatal("the signature changed the bundle's size");
            return bundle;
        }) << QString();
        QTest::newRow("134217729 bytes") << changedAfterSigning([](const QString& bundle) {
            sizeTo(bundle, NativePluginBundle::maximumBundleBytes + 1);
        }) << tooLarge;
        // Empty folders hold no bytes, but cost the walk all the same.
        const auto folders = [](int count) {
            return [count](const QString& bundle) {
                for (int i = 0; i < count; ++i)
                    QDir().mkpath(bundle + u"/Contents/Resources/Empty/"_s + QString::number(i));
            };
        };
        // Contents, MacOS, Resources, _CodeSignature and Empty are there already.
        QTest::newRow("4096 folders") << signedAfter(folders(4096 - 5)) << QString();
        QTest::newRow("4097 folders") << changedAfterSigning(folders(4097 - 5)) << tooLarge;
        const auto nested = [](int depth) {
            return [depth](const QString& bundle) {
                QString path = bundle;
                for (int i = 0; i < depth; ++i)
                    path += u"/d"_s;
                QDir().mkpath(path);
            };
        };
        QTest::newRow("32 folders deep") << signedAfter(nested(32)) << QString();
        QTest::newRow("33 folders deep") << changedAfterSigning(nested(33)) << tooLarge;
        QTest::newRow("the manifest's folder a link") << Change([](const QString& bundle) {
            QDir(bundle + u"/Contents"_s).rename(u"Resources"_s, u"Real"_s);
            QFile::link(u"Real"_s, bundle + u"/Contents/Resources"_s);
            return bundle;
        }) << symlinks;
    }

    void walk() { checkInspection(); }

    // The build leaves signed bundles; what their inspection answers, and that vellctl computes
    // the same fingerprint.
    void examples() {
        for (const QString& name : {u"Clock"_s, u"Counter"_s, u"Dice"_s, u"Errands"_s}) {
            const QString bundle = QStringLiteral(VELL_EXAMPLE_PLUGINS) + u'/' + name + u".app"_s;
            const NativePluginInspection inspection = NativePluginBundle::inspect(bundle);
            QCOMPARE(inspection.root, QFileInfo(bundle).canonicalFilePath());
            QCOMPARE(inspection.executable, inspection.root + u"/Contents/MacOS/"_s + name.toLower());
            QCOMPARE(inspection.manifest.id, u"app.ostavell.example."_s + name.toLower());
            QCOMPARE(inspection.fingerprint, NativePluginBundle::fingerprint(bundle));
            const QByteArray printed = run(qEnvironmentVariable("VELL_BUILD_DIR") + u"/bin/vellctl"_s,
                                           {u"plugin"_s, u"fingerprint"_s, bundle});
            QCOMPARE(printed, inspection.fingerprint.toLatin1() + '\n');
        }
    }

    // The fingerprint is a stored contract: the same tree must always give the same digest.
    void fingerprintFormat() {
        const QString bundle = m_dir.filePath(u"Format.app"_s);
        write(bundle + u"/b"_s, "hello");
        write(bundle + u"/a/z"_s, "");
        write(bundle + u"/a/ü"_s, "x");
        QCOMPARE(NativePluginBundle::fingerprint(bundle),
                 u"469e9972e9092132defb68beed1fce864bba5bd137ba6a28ea601741277a4e96"_s);
    }

    void fingerprintCoversEveryByte() {
        const QString bundle = copy();
        sign(bundle);
        const QString original = NativePluginBundle::fingerprint(bundle);
        const QList<QString> files = regularFiles(bundle);
        QVERIFY(files.contains(bundle + u'/' + NativePluginBundle::signatureFile.toString()));
        for (const QString& file : files) {
            flipByte(file);
            QVERIFY2(NativePluginBundle::fingerprint(bundle) != original, qPrintable(file));
            flipByte(file);
        }
        QCOMPARE(NativePluginBundle::fingerprint(bundle), original);

        const QString manifest = bundle + u"/Contents/Resources/VellPlugin.json"_s;
        QVERIFY(QFile::rename(manifest, manifest + u'2'));
        QVERIFY(NativePluginBundle::fingerprint(bundle) != original);
        QVERIFY(QFile::rename(manifest + u'2', manifest));

        // Another signer: the signed text stays, the fingerprint moves with the signature file.
        const QString digest = NativePluginBundle::contentDigest(bundle);
        sign(bundle, m_otherKey);
        QCOMPARE(NativePluginBundle::contentDigest(bundle), digest);
        QVERIFY(NativePluginBundle::fingerprint(bundle) != original);
        QCOMPARE(NativePluginBundle::inspect(bundle).fingerprint, NativePluginBundle::fingerprint(bundle));
    }

    void signingFailure() {
        const QString bundle = copy();
        QVERIFY(problemOf([&] {
                    sign(bundle, m_dir.filePath(u"absent-key"_s));
                }).startsWith(u"Could not sign the plugin: "_s));
    }

private:
    void columns() {
        QTest::addColumn<Change>("change");
        QTest::addColumn<QString>("message");
    }

    void checkInspection() {
        QFETCH(Change, change);
        QFETCH(QString, message);
        const QString path = change(copy());
        QCOMPARE(problemOf([&] { NativePluginBundle::inspect(path); }), message);
    }

    Change signedAfter(Edit edit) {
        return [this, edit](const QString& bundle) {
            edit(bundle);
            sign(bundle);
            return bundle;
        };
    }

    Change changedAfterSigning(Edit edit) {
        return [this, edit](const QString& bundle) {
            sign(bundle);
            edit(bundle);
            return bundle;
        };
    }

    static Change unsignedWith(Edit edit) {
        return [edit](const QString& bundle) {
            QFile::remove(bundle + u'/' + NativePluginBundle::signatureFile.toString());
            edit(bundle);
            return bundle;
        };
    }

    // A fresh copy of a built example bundle, in a folder of its own, with the build's signature.
    QString copy(const QString& name = u"Dice"_s) {
        const QString folder = m_dir.filePath(QString::number(++m_copies));
        QDir().mkpath(folder);
        run(u"cp"_s, {u"-a"_s, QStringLiteral(VELL_EXAMPLE_PLUGINS) + u'/' + name + u".app"_s, folder});
        return folder + u'/' + name + u".app"_s;
    }

    void sign(const QString& bundle) { NativePluginBundle::sign(bundle, m_key); }
    void sign(const QString& bundle, const QString& key) { NativePluginBundle::sign(bundle, key); }

    QTemporaryDir m_dir;
    const QString m_key = m_dir.filePath(u"key"_s);
    const QString m_otherKey = m_dir.filePath(u"other-key"_s);
    int m_copies = 0;
};

QTEST_GUILESS_MAIN(TestNativePluginBundle)
#include "tst_NativePluginBundle.moc"
