#include "OstaVell/Modules/Plugins/NativePluginIndex.h"
#include "VellHost/NativePluginBundle.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

#include "TestSupport.h"

using namespace vell;
using namespace vell::test;
using namespace Qt::StringLiterals;

namespace {

const QString folderA = u"7D3C2F4E-0A1B-4C5D-8E9F-0123456789AB"_s;
const QString folderB = u"6F9619FF-8B86-D011-B42D-00C04FC964FF"_s;

PluginManifest manifest(const QString& id, const QString& version = u"1.0.0"_s) {
    PluginManifest manifest;
    manifest.id = id;
    manifest.name = u"Plugin"_s;
    manifest.version = version;
    manifest.capabilities = {u"Shows things"_s};
    return manifest;
}

QString fingerprint(char digit) {
    return QString(64, QLatin1Char(digit));
}

NativePluginVersion version(const QString& id, char digit, double savedAt = 0) {
    return {manifest(id), folderB, fingerprint(digit), savedAt};
}

NativePluginRecord record(const QString& id, qsizetype savedVersions = 0) {
    NativePluginRecord record;
    record.manifest = manifest(id);
    record.folder = folderA;
    record.fingerprint = fingerprint('a');
    record.hiddenDisplayIDs = {u"DP-1"_s};
    if (savedVersions > 0) {
        record.previousVersions.emplace();
        for (qsizetype i = 0; i < savedVersions; ++i)
            record.previousVersions->append(version(id, char('0' + i)));
    }
    return record;
}

template <typename F> NativePluginRecord recordWith(const QString& id, F change) {
    NativePluginRecord changed = record(id);
    change(changed);
    return changed;
}

QList<NativePluginRecord> plugins(int count) {
    QList<NativePluginRecord> records;
    for (int i = 0; i < count; ++i)
        records.append(record(u"com.example.p"_s + QString::number(i)));
    return records;
}

QByteArray encoded(const QList<NativePluginRecord>& records) {
    QList<QByteArray> items;
    for (const NativePluginRecord& record : records)
        items.append(record.encoded());
    return JsonWriter::encodeArray(items);
}

// One record whose hidden display name makes the list exactly size bytes when encoded: the name
// takes the place of "DP-1".
QList<NativePluginRecord> sized(qsizetype size) {
    QList<NativePluginRecord> records = plugins(1);
    const qsizetype base = encoded(records).size();
    records.first().hiddenDisplayIDs = {QString(size - base + 4, u'x')};
    return records;
}

QByteArray read(const QString& path) {
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}

void write(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
}

mode_t modeOf(const QString& path) {
    struct stat info {};
    ::lstat(QFile::encodeName(path).constData(), &info);
    return info.st_mode & 07777;
}

} // namespace

class TestNativePluginIndex final : public QObject {
    Q_OBJECT

private slots:
    void load_data() {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<QString>("message");
        const QString invalidIndex = u"Invalid plugin index."_s;
        const QString manifest = u"Invalid plugin manifest."_s;
        const QString storagePath = u"Invalid plugin storage path."_s;
        const QString history = u"Invalid plugin version history."_s;
        const QString retained = u"Invalid retained plugin version."_s;
        const auto with = [](auto change) { return encoded({recordWith(u"com.example.a"_s, change)}); };
        const auto retainedWith = [](auto change) {
            NativePluginRecord changed = record(u"com.example.a"_s, 1);
            change(changed.previousVersions->first());
            return encoded({changed});
        };
        const QByteArray undecodable =
            "[" + record(u"com.example.a"_s).encoded().replace("\"enabled\":true", "\"enabled\":1") + "]";

        row("empty", QByteArray("[]"), QString());
        row("at the limit", encoded(sized(NativePluginIndex::maximumFileBytes)), QString());
        row("over the limit", encoded(sized(NativePluginIndex::maximumFileBytes + 1)),
            u"Plugin index exceeds its limit."_s);
        row("not JSON", QByteArray("["), u"unterminated array"_s);
        row("not UTF-8", QByteArray("[\"\xff\"]"), u"invalid UTF8 string"_s);
        row("not an array", record(u"com.example.a"_s).encoded(), invalidIndex);
        row("a record that does not decode", undecodable, u"\"[0].enabled\" must be true or false"_s);
        row("20 plugins", encoded(plugins(20)), QString());
        row("21 plugins", encoded(plugins(21)), invalidIndex);
        row("one id twice", encoded({record(u"com.example.a"_s), record(u"com.example.a"_s)}), invalidIndex);
        row("invalid manifest", with([](auto& r) { r.manifest.version = u"1"_s; }), manifest);
        row("folder lower-case", with([](auto& r) { r.folder = folderA.toLower(); }), QString());
        row("folder leaves the root", with([](auto& r) { r.folder = u"../"_s + folderA; }), storagePath);
        row("folder in braces", with([](auto& r) { r.folder = u'{' + folderA + u'}'; }), storagePath);
        row("5 saved versions", encoded({record(u"com.example.a"_s, 5)}), QString());
        row("6 saved versions", encoded({record(u"com.example.a"_s, 6)}), history);
        row("saved version of another id", retainedWith([](auto& v) { v.manifest.id = u"com.example.b"_s; }),
            retained);
        row("saved version with an invalid manifest", retainedWith([](auto& v) { v.manifest.name.clear(); }),
            retained);
        row("saved version outside the root", retainedWith([](auto& v) { v.folder = u".."_s; }), retained);
        row("saved fingerprint of 63 digits", retainedWith([](auto& v) { v.fingerprint.chop(1); }), retained);
        row("saved fingerprint not hexadecimal",
            retainedWith([](auto& v) { v.fingerprint = fingerprint('g'); }), retained);

        // Each check over the whole list before the next.
        QByteArray tooManyUndecodable = encoded(plugins(21));
        tooManyUndecodable.replace(tooManyUndecodable.lastIndexOf("\"folder\""), 8, "\"f\"");
        row("order: decoding before counting", tooManyUndecodable, u"\"[20].folder\" is missing"_s);
        row("order: ids before folders",
            encoded({recordWith(u"com.example.a"_s, [](auto& r) { r.folder = u"x"_s; }),
                     record(u"com.example.a"_s)}),
            invalidIndex);
        row("order: manifest before folder", with([](auto& r) {
                r.folder = u"x"_s;
                r.manifest.version = u"1"_s;
            }),
            manifest);
        row("order: every folder before any history",
            encoded({record(u"com.example.a"_s, 6),
                     recordWith(u"com.example.b"_s, [](auto& r) { r.folder = u"x"_s; })}),
            storagePath);
        row("order: every history length before any saved version",
            encoded({recordWith(u"com.example.a"_s,
                                [](auto& r) { r.previousVersions = {version(u"com.example.z"_s, '0')}; }),
                     record(u"com.example.b"_s, 6)}),
            history);
    }

    // A failed load leaves the file as it was.
    void load() {
        QFETCH(QByteArray, contents);
        QFETCH(QString, message);
        QTemporaryDir root;
        const NativePluginIndex index(root.path());
        write(index.path(), contents);
        QCOMPARE(problemOf([&] { index.load(); }), message);
        QCOMPARE(read(index.path()), contents);
    }

    void missingAndUnreadable() {
        QTemporaryDir root;
        const NativePluginIndex index(root.filePath(u"Plugins"_s));
        QCOMPARE(index.load(), QList<NativePluginRecord>());
        QVERIFY(QDir().mkpath(index.path()));
        QCOMPARE(problemOf([&] { index.load(); }), u"Not a regular file."_s);
        QVERIFY(QFileInfo(index.path()).isDir());
    }

    void persist() {
        QTemporaryDir root;
        const NativePluginIndex index(root.filePath(u"Plugins"_s));
        QList<NativePluginRecord> records = plugins(2);
        records[1] = record(u"com.example.b"_s, 5);
        index.persist(records);
        QCOMPARE(modeOf(index.directory()), mode_t(0700));
        QCOMPARE(index.load(), records);

        // The limit from both sides; a refused list leaves the file as it was.
        const QList<NativePluginRecord> largest = sized(NativePluginIndex::maximumFileBytes);
        index.persist(largest);
        QCOMPARE(QFileInfo(index.path()).size(), NativePluginIndex::maximumFileBytes);
        QCOMPARE(index.load(), largest);
        QCOMPARE(problemOf([&] { index.persist(sized(NativePluginIndex::maximumFileBytes + 1)); }),
                 u"Plugin version history exceeds the storage limit. The current installation was kept."_s);
        QCOMPARE(index.load(), largest);

        write(root.filePath(u"file"_s), "");
        const NativePluginIndex blocked(root.filePath(u"file/Plugins"_s));
        QVERIFY(problemOf([&] { blocked.persist(records); }).startsWith(u"Could not create the folder"_s));
    }

    void updateHistory() {
        const QString id = u"com.example.a"_s;
        NativePluginRecord current = recordWith(id, [](auto& r) {
            r.enabled = false;
            r.compactActivity = true;
        });
        // Six updates: the settings stay, five versions are kept, the newest first.
        for (int i = 1; i <= 6; ++i)
            current = NativePluginIndex::installed(current, manifest(id, u"1.0.%1"_s.arg(i)), folderB,
                                                   fingerprint(char('0' + i)), i);
        QVERIFY(!current.enabled);
        QVERIFY(current.compactActivity);
        QCOMPARE(current.hiddenDisplayIDs, QStringList{u"DP-1"_s});
        QList<QString> saved;
        for (const NativePluginVersion& version : *current.previousVersions)
            saved.append(version.fingerprint.left(1) + u'@' + QString::number(version.savedAt));
        QCOMPARE(saved, QList<QString>({u"5@6"_s, u"4@5"_s, u"3@4"_s, u"2@3"_s, u"1@2"_s}));
        QCOMPARE(current.previousVersions->first().manifest.version, u"1.0.5"_s);

        // The same bytes again: nothing is saved under the fingerprint that is now current.
        const NativePluginRecord single = record(id);
        QVERIFY(!NativePluginIndex::installed(single, single.manifest, folderB, single.fingerprint, 1)
                     .previousVersions);
        const NativePluginRecord again =
            NativePluginIndex::installed(current, current.manifest, folderB, current.fingerprint, 7);
        QCOMPARE(again.previousVersions, current.previousVersions);

        // A repeated saved fingerprint keeps its earlier, newer entry.
        NativePluginRecord repeated = record(id);
        repeated.previousVersions = {version(id, 'b', 3), version(id, 'c', 2), version(id, 'b', 1)};
        const NativePluginRecord deduplicated =
            NativePluginIndex::installed(repeated, manifest(id), folderB, fingerprint('d'), 4);
        QList<double> dates;
        for (const NativePluginVersion& version : *deduplicated.previousVersions)
            dates.append(version.savedAt);
        QCOMPARE(dates, QList<double>({4, 3, 2}));
    }

    // The copy holds every directory and regular file with its mode, and nothing else.
    void copyBundle() {
        QTemporaryDir root;
        const QString source = root.filePath(u"Source.app"_s);
        QProcess::execute(u"cp"_s, {u"-a"_s, QStringLiteral(VELL_EXAMPLE_PLUGINS) + u"/Dice.app"_s, source});
        write(source + u"/Contents/Resources/.hidden"_s, "h");
        write(source + u"/Contents/Resources/ünïcode"_s, "u");
        write(source + u"/Contents/Resources/Private/secret"_s, "s");
        QFile::setPermissions(source + u"/Contents/Resources/Private/secret"_s, QFile::ReadOwner);
        QFile::setPermissions(source + u"/Contents/Resources/Private"_s, QFile::ReadOwner | QFile::ExeOwner);
        QVERIFY(QDir().mkpath(source + u"/Contents/Empty"_s));
        const QString sourceFingerprint = NativePluginBundle::fingerprint(source);
        QVERIFY(QFile::link(u"dice"_s, source + u"/Contents/MacOS/link"_s));
        QCOMPARE(::mkfifo(QFile::encodeName(source + u"/Contents/pipe"_s).constData(), 0600), 0);

        const NativePluginIndex index(root.filePath(u"Plugins"_s));
        const QString folder = index.copyBundle(source);
        QVERIFY(NativePluginIndex::isFolderName(folder));
        QCOMPARE(folder, folder.toUpper());
        QCOMPARE(modeOf(index.directory() + u'/' + folder), mode_t(0700));
        const QString copy = index.bundlePath(folder);
        QCOMPARE(NativePluginBundle::fingerprint(copy), sourceFingerprint);
        QVERIFY(!QFileInfo::exists(copy + u"/Contents/MacOS/link"_s));
        QVERIFY(!QFileInfo::exists(copy + u"/Contents/pipe"_s));
        QDirIterator it(copy, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        int entries = 0;
        while (it.hasNext()) {
            const QString path = it.next();
            ++entries;
            QCOMPARE(modeOf(path), modeOf(source + path.mid(copy.size())));
        }
        QVERIFY(entries >= 10);
        QCOMPARE(modeOf(copy + u"/Contents/MacOS/dice"_s), mode_t(0755));
        QFile::setPermissions(source + u"/Contents/Resources/Private"_s,
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QFile::setPermissions(copy + u"/Contents/Resources/Private"_s,
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    void copyFailureLeavesNothing() {
        QTemporaryDir root;
        const NativePluginIndex index(root.path());
        QVERIFY(problemOf([&] {
                    index.copyBundle(root.filePath(u"Absent.app"_s));
                }).startsWith(u"Could not copy the plugin: "_s));
        QCOMPARE(QDir(root.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());

        // Only a UUID names a folder the index may remove.
        QVERIFY(QDir().mkpath(root.filePath(u"kept"_s)));
        index.removeFolder(u"kept"_s);
        QVERIFY(QFileInfo(root.filePath(u"kept"_s)).isDir());
    }
};

QTEST_GUILESS_MAIN(TestNativePluginIndex)
#include "tst_NativePluginIndex.moc"
