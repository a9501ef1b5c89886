#include "VellHost/NativePluginBundle.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <sys/stat.h>

#include "TestSupport.h"

using namespace vell;
using vell::test::problemOf;
using namespace Qt::StringLiterals;

namespace {

const QString signatureInvalid = u"The plugin's code signature is invalid."_s;
const QString notAnApp = u"Choose a plugin app bundle, not a symlink."_s;
const QString symlinks = u"This native plugin preview does not accept bundle symlinks."_s;
const QString identityMismatch = u"Plugin manifest and app identity do not match."_s;
const QString invalidExecutable = u"Invalid plugin executable."_s;
const QString executableMissing = u"Plugin executable is missing."_s;
const QString tooLarge = u"Plugin bundle exceeds its size limit."_s;

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

// Edits a copy of a bundle in place; it may also change the path that is inspected.
using Edit = std::function<void(QString& bundle)>;
// When the test signs the copy: before the edit, after it, or never (its signature removed).
enum class Signed { before, after, never };

const Edit unchanged = [](QString&) {};

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

void row(const char* name, Signed when, const QString& message, const Edit& edit) {
    QTest::newRow(name) << when << edit << message;
}

} // namespace

// Real bundles built from examples/, real signatures from ssh-keygen.
class TestNativePluginBundle final : public QObject {
    Q_OBJECT

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
        row("signed", Signed::after, {}, unchanged);
        row("path with a trailing slash", Signed::before, {}, [](QString& bundle) { bundle += u'/'; });
        row("a folder above is a link", Signed::before, {}, [](QString& bundle) {
            const QString folder = QFileInfo(bundle).absolutePath();
            QFile::link(folder, folder + u"-link"_s);
            bundle = folder + u"-link/Dice.app"_s;
        });

        // The signature: present, made over these very contents, in our namespace.
        row("unsigned", Signed::never, signatureInvalid, unchanged);
        row("signature tampered", Signed::before, signatureInvalid, [](const QString& bundle) {
            const QString path = bundle + u'/' + NativePluginBundle::signatureFile.toString();
            QByteArray armored = read(path);
            const qsizetype at = armored.indexOf('\n') + 60;
            armored[at] = armored.at(at) == 'A' ? 'B' : 'A';
            write(path, armored);
        });
        row("signed in another namespace", Signed::never, signatureInvalid, [this](const QString& bundle) {
            write(bundle + u'/' + NativePluginBundle::signatureFile.toString(),
                  run(u"ssh-keygen"_s, {u"-Y"_s, u"sign"_s, u"-n"_s, u"file"_s, u"-f"_s, m_key},
                      NativePluginBundle::contentDigest(bundle).toLatin1()));
        });
        row("a byte changed after signing", Signed::before, signatureInvalid,
            [](const QString& bundle) { flipByte(bundle + u"/Contents/MacOS/dice"_s); });
        row("a file added after signing", Signed::before, signatureInvalid,
            [](const QString& bundle) { write(bundle + u"/Contents/Resources/extra"_s, ""); });

        // Only an ".app" of its own; the manifest is read, and judged, before the signature.
        row("the path is a link", Signed::before, notAnApp, [](QString& bundle) {
            QFile::link(bundle, bundle + u"-link.app"_s);
            bundle += u"-link.app"_s;
        });
        row("not an app", Signed::before, notAnApp, [](QString& bundle) {
            QDir().rename(bundle, bundle + u".bundle"_s);
            bundle += u".bundle"_s;
        });
        row("manifest at its limit", Signed::after, {}, manifestOf(8192));
        row("manifest over its limit, unsigned", Signed::never, u"Plugin manifest exceeds its limit."_s,
            manifestOf(8193));
        row("invalid manifest, unsigned", Signed::never, u"Invalid plugin manifest."_s,
            [](const QString& bundle) {
                const QString path = bundle + u"/Contents/Resources/VellPlugin.json"_s;
                write(path, read(path).replace("1.0.0", "1.0"));
            });
        row("identity mismatch, unsigned", Signed::never, signatureInvalid,
            infoPlistOf(plist(entry("CFBundleIdentifier", "app.ostavell.example.clock"))));
    }

    void pathAndSignature() { checkInspection(); }

    // Info.plist: the identity, then the executable's name and file.
    void infoPlist_data() {
        columns();
        const Signed after = Signed::after;
        row("identity mismatch", after, identityMismatch,
            infoPlistOf(plist(entry("CFBundleIdentifier", "app.ostavell.example.clock") +
                              entry("CFBundleExecutable", "dice"))));
        row("Info.plist missing", after, identityMismatch,
            [](const QString& bundle) { QFile::remove(bundle + u"/Contents/Info.plist"_s); });
        row("Info.plist not a property list", after, identityMismatch,
            infoPlistOf("CFBundleIdentifier = app.ostavell.example.dice"));
        row("Info.plist not well-formed", after, identityMismatch,
            infoPlistOf(plist(diceIdentity + entry("CFBundleExecutable", "dice")).chopped(3)));
        row("identifier not a string", after, identityMismatch,
            infoPlistOf(plist("<key>CFBundleIdentifier</key><array><string>app.ostavell.example.dice</string>"
                              "</array>\n" +
                              entry("CFBundleExecutable", "dice"))));
        row("identifier named twice", after, identityMismatch,
            infoPlistOf(plist(diceIdentity + entry("CFBundleExecutable", "dice") +
                              entry("CFBundleIdentifier", "app.ostavell.example.clock"))));
        const QByteArray dicePlist = plist(diceIdentity + entry("CFBundleExecutable", "dice"));
        const qsizetype plistLimit = NativePluginBundle::maximumInfoPlistBytes;
        row("Info.plist at its limit", after, {},
            infoPlistOf(dicePlist + QByteArray(plistLimit - dicePlist.size(), '\n')));
        row("Info.plist over its limit", after, identityMismatch,
            infoPlistOf(dicePlist + QByteArray(plistLimit + 1 - dicePlist.size(), '\n')));
        row("executable not named", after, invalidExecutable, infoPlistOf(plist(diceIdentity)));
        row("executable name not a string", after, invalidExecutable,
            executableNamed("<integer>1</integer>"));
        for (const char* name : {"", "MacOS/dice", "..", "dice..", "../MacOS/dice"})
            row(qPrintable(u"executable named \"%1\""_s.arg(QLatin1String(name))), after, invalidExecutable,
                executableNamed("<string>" + QByteArray(name) + "</string>"));
        row("executable absent", after, executableMissing, executableNamed("<string>absent</string>"));
        row("executable without an execute bit", after, executableMissing, [](const QString& bundle) {
            QFile::setPermissions(bundle + u"/Contents/MacOS/dice"_s, QFile::ReadOwner | QFile::WriteOwner);
        });
        row("executable is a folder", after, executableMissing, [](QString& bundle) {
            QDir().mkpath(bundle + u"/Contents/MacOS/folder"_s);
            executableNamed("<string>folder</string>")(bundle);
        });
    }

    void infoPlist() { checkInspection(); }

    // The walk: links never followed, nothing but files and folders, and its limits.
    void walk_data() {
        columns();
        const Signed before = Signed::before;
        const Signed after = Signed::after;
        row("a link to a file inside", before, symlinks, [](const QString& bundle) {
            QFile::link(u"VellPlugin.json"_s, bundle + u"/Contents/Resources/Alias.json"_s);
        });
        row("a named pipe", before, u"Cannot read plugin bundle."_s, [](const QString& bundle) {
            QVERIFY(::mkfifo(QFile::encodeName(bundle + u"/Contents/Resources/pipe"_s).constData(), 0600) ==
                    0);
        });
        row("4096 files", after, {}, [](const QString& bundle) { fillTo(bundle, 4096); });
        row("4097 files", before, tooLarge, [](const QString& bundle) { fillTo(bundle, 4097); });
        // Sparse files: the walk adds up sizes, so the limit costs nothing to reach. An ed25519
        // signature has one size, so signing again keeps the total.
        row("134217728 bytes", before, {}, [this](const QString& bundle) {
            sizeTo(bundle, NativePluginBundle::maximumBundleBytes);
            sign(bundle);
            if (regularBytes(bundle) != NativePluginBundle::maximumBundleBytes)
                qFatal("the signature changed the bundle's size");
        });
        row("134217729 bytes", before, tooLarge,
            [](const QString& bundle) { sizeTo(bundle, NativePluginBundle::maximumBundleBytes + 1); });
        // Empty folders hold no bytes, but cost the walk all the same.
        const auto folders = [](int count) {
            return [count](const QString& bundle) {
                for (int i = 0; i < count; ++i)
                    QDir().mkpath(bundle + u"/Contents/Resources/Empty/"_s + QString::number(i));
            };
        };
        // Contents, MacOS, Resources, _CodeSignature and Empty are there already.
        row("4096 folders", after, {}, folders(4096 - 5));
        row("4097 folders", before, tooLarge, folders(4097 - 5));
        const auto nested = [](int depth) {
            return [depth](const QString& bundle) { QDir().mkpath(bundle + u"/d"_s.repeated(depth)); };
        };
        row("32 folders deep", after, {}, nested(32));
        row("33 folders deep", before, tooLarge, nested(33));
        row("the manifest's folder a link", Signed::never, symlinks, [](const QString& bundle) {
            QDir(bundle + u"/Contents"_s).rename(u"Resources"_s, u"Real"_s);
            QFile::link(u"Real"_s, bundle + u"/Contents/Resources"_s);
        });
    }

    void walk() { checkInspection(); }

    // What the build's signed bundles answer.
    void examples() {
        for (const QString& name : {u"Clock"_s, u"Counter"_s, u"Dice"_s, u"Errands"_s}) {
            const QString bundle = QStringLiteral(VELL_EXAMPLE_PLUGINS) + u'/' + name + u".app"_s;
            const NativePluginInspection inspection = NativePluginBundle::inspect(bundle);
            QCOMPARE(inspection.root, QFileInfo(bundle).canonicalFilePath());
            QCOMPARE(inspection.executable, inspection.root + u"/Contents/MacOS/"_s + name.toLower());
            QCOMPARE(inspection.manifest.id, u"app.ostavell.example."_s + name.toLower());
            QCOMPARE(inspection.fingerprint, NativePluginBundle::fingerprint(bundle));
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
        NativePluginBundle::sign(bundle, m_otherKey);
        QCOMPARE(NativePluginBundle::contentDigest(bundle), digest);
        QVERIFY(NativePluginBundle::fingerprint(bundle) != original);
        QCOMPARE(NativePluginBundle::inspect(bundle).fingerprint, NativePluginBundle::fingerprint(bundle));
    }

private:
    static void columns() {
        QTest::addColumn<Signed>("when");
        QTest::addColumn<Edit>("edit");
        QTest::addColumn<QString>("message");
    }

    void checkInspection() {
        QFETCH(Signed, when);
        QFETCH(Edit, edit);
        QFETCH(QString, message);
        QString path = copy();
        if (when == Signed::before)
            sign(path);
        if (when == Signed::never)
            QFile::remove(path + u'/' + NativePluginBundle::signatureFile.toString());
        edit(path);
        if (when == Signed::after)
            sign(path);
        QCOMPARE(problemOf([&] { NativePluginBundle::inspect(path); }), message);
    }

    // A fresh copy of the built Dice bundle, in a folder of its own, with the build's signature.
    QString copy() {
        const QString folder = m_dir.filePath(QString::number(++m_copies));
        QDir().mkpath(folder);
        run(u"cp"_s, {u"-a"_s, QStringLiteral(VELL_EXAMPLE_PLUGINS) + u"/Dice.app"_s, folder});
        return folder + u"/Dice.app"_s;
    }

    void sign(const QString& bundle) { NativePluginBundle::sign(bundle, m_key); }

    QTemporaryDir m_dir;
    const QString m_key = m_dir.filePath(u"key"_s);
    const QString m_otherKey = m_dir.filePath(u"other-key"_s);
    int m_copies = 0;
};

QTEST_GUILESS_MAIN(TestNativePluginBundle)
#include "tst_NativePluginBundle.moc"
