#include "VellPluginSDK/Protocol/PluginAgenda.h"
#include "VellPluginSDK/Protocol/PluginStorage.h"
#include "VellPluginSDK/Protocol/PluginVolumeCommand.h"
#include "VellPluginSDK/Protocol/PluginVolumeResult.h"

#include <QDir>
#include <QFile>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "PresentationSupport.h"

using namespace vell;
using namespace vell::test;
using Op = PluginVolumeOperation;

namespace {

const QString gesture = "Volume gesture expired or has an invalid target.";
const QString badResult = "Invalid volume result.";
const QString badEntry = "Invalid agenda entry.";
const QString badLink = "Invalid agenda link.";
const QString badAgenda = "Invalid agenda contribution.";
const QString badIdentity = "Invalid plugin storage identity.";
const QString family = QStringLiteral("\U0001F468\u200D\U0001F469\u200D\U0001F467"); // one character
constexpr double now1970 = 1.8e9;
constexpr double now2001 = 8e8;
const QUuid request = QUuid::fromString(QStringLiteral("7d3c2f4e-0a1b-4c5d-8e9f-0123456789ab"));

template <typename Record>
void checkAt(const char* name, const Record& record, double now, const QString& message) {
    QTest::newRow(name) << Check([record, now] { record.validate(now); }) << message;
}

PluginVolumeCommand command(Op operation = Op::adjustVolume(0.0625), double ahead = 10,
                            QString id = "speakers") {
    return {request, id, operation, now1970 + ahead};
}

PluginVolumeResult result(QString id, std::optional<QString> stateID, std::optional<QString> error = {}) {
    std::optional<PluginVolumeEndpoint> state;
    if (stateID)
        state = PluginVolumeEndpoint{*stateID, "Monitor", true, 0.5, false, true, true, now1970};
    return {request, id, state, error};
}

PluginAgendaEntry entry() {
    return {"e1", "Stand-up", 0, 1800, false, "Work", "#a1B2c3", {}, {}, {}, {}, false};
}

PluginAgendaEntry linked(const QString& url) {
    return with(entry(), [&](PluginAgendaEntry& e) { e.url = url; });
}

PluginAgenda contribution(double ahead, qsizetype count = 1) {
    return {0, now2001, now2001 + ahead, QList<PluginAgendaEntry>(count, entry())};
}

// Root writes through permission bits; only the immutable attribute keeps it out of a folder.
bool setImmutable(const QString& path, bool on) {
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    int flags = 0;
    bool done = fd >= 0 && ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    flags = on ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
    done = done && ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    if (fd >= 0)
        ::close(fd);
    return done;
}

} // namespace

class TestPluginPayloads final : public QObject {
    Q_OBJECT

private slots:
    void volume_data() {
        checkColumns();
        check("level 0", Op::setVolume(0), "");
        check("level 1", Op::setVolume(1), "");
        check("level below 0", Op::setVolume(-0.001), "Invalid volume.");
        check("level above 1", Op::setVolume(1.001), "Invalid volume.");
        check("level not a number", Op::setVolume(qQNaN()), "Invalid volume.");
        check("step of the keys", Op::adjustVolume(0.0625), "");
        check("step 0.25 down", Op::adjustVolume(-0.25), "");
        check("step 0", Op::adjustVolume(0), "Invalid volume step.");
        check("step 0.3 down", Op::adjustVolume(-0.3), "Invalid volume step.");
        check("step just over 0.25", Op::adjustVolume(std::nextafter(Op::maximumStep, 1.0)),
              "Invalid volume step.");
        check("step nobody chose", Op(), "Invalid volume step.");

        const QString euro(67, QChar(0x20AC)); // 201 bytes in 67 characters
        checkAt("expires in exactly 15 s", command(Op::setMuted(false), 15), now1970, "");
        checkAt("expires in 16 s", command(Op::setMuted(false), 16), now1970, gesture);
        checkAt("expires now", command(Op::toggleMute(), 0), now1970, gesture);
        checkAt("expiry not a number", command(Op::toggleMute(), qQNaN()), now1970, gesture);
        checkAt("clock not a number", command(), qQNaN(), gesture);
        checkAt("bad operation", command(Op::adjustVolume(0.3)), now1970, gesture);
        checkAt("no endpoint", command(Op::toggleMute(), 10, ""), now1970, gesture);
        checkAt("200-byte endpoint", command(Op::toggleMute(), 10, QString(100, QChar(0xE9))), now1970, "");
        checkAt("201-byte endpoint", command(Op::toggleMute(), 10, euro), now1970, gesture);

        check("error", result("speakers", {}, "Monitor is asleep."), "");
        check("state and error", result("speakers", "speakers", "x"), badResult);
        check("neither", result("speakers", {}), badResult);
        check("state of another endpoint", result("speakers", "woofer"), badResult);
        check("invalid state", with(result("s", "s"), [](auto& r) { r.state->name.clear(); }), badResult);
        check("empty error", result("speakers", {}, ""), badResult);
        check("500-character error", result("speakers", {}, family.repeated(500)), "");
        check("501-character error", result("speakers", {}, QString(501, 'e')), badResult);
        check("no endpoint id", result("", {}, "x"), badResult);
        check("200-byte endpoint id", result(QString(200, 'i'), QString(200, 'i')), "");
        check("201-byte endpoint id", result(euro, {}, "x"), badResult);
    }

    void volume() { runCheckRow(); }

    // Each case as written, and the reader's words for what is not an operation.
    void operationJson_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<Op>("operation");
        QTest::addColumn<QString>("message");
        const QString oneKey = "Invalid number of keys found, expected one.";
        const auto add = [](const char* name, const QByteArray& json, Op operation, const QString& message) {
            QTest::newRow(name) << json << operation << message;
        };
        add("setVolume", R"({"setVolume":{"_0":0.5}})", Op::setVolume(0.5), "");
        add("adjustVolume", R"({"adjustVolume":{"_0":-0.0625}})", Op::adjustVolume(-0.0625), "");
        add("setMuted", R"({"setMuted":{"_0":true}})", Op::setMuted(true), "");
        add("toggleMute", R"({"toggleMute":{}})", Op::toggleMute(), "");
        add("no key", "{}", Op(), oneKey);
        add("two keys", R"({"toggleMute":{},"setMuted":{"_0":true}})", Op(), oneKey);
        add("unknown case", R"({"mute":{}})", Op(), "has an unknown case");
        add("no level", R"({"setVolume":{}})", Op(), "\"setVolume._0\" is missing");
        add("level as text", R"({"setVolume":{"_0":"1"}})", Op(), "\"setVolume._0\" must be a number");
        add("mute as number", R"({"setMuted":{"_0":1}})", Op(), "\"setMuted._0\" must be true or false");
        add("payload not an object", R"({"toggleMute":true})", Op(), "\"toggleMute\" must be a JSON object");
        add("not an object", "[]", Op(), "must be a JSON object");
    }

    void operationJson() {
        QFETCH(QByteArray, json);
        QFETCH(Op, operation);
        QFETCH(QString, message);
        Op decoded;
        QCOMPARE(problemOf([&] { decoded = Op::fromJson(parse(json)); }), message);
        QCOMPARE(decoded, operation);
        if (message.isEmpty())
            QCOMPARE(operation.encoded(), json);
    }

    void volumeRecordsJson() {
        const PluginVolumeCommand sent = command();
        QCOMPARE(sent.encoded(), QByteArray(R"({"requestID":"7D3C2F4E-0A1B-4C5D-8E9F-0123456789AB",)"
                                            R"("endpointID":"speakers","operation":{"adjustVolume":)"
                                            R"({"_0":0.0625}},"expiresAt":1800000010})"));
        QCOMPARE(PluginVolumeCommand::fromJson(sent.toJson()), sent);
        const QByteArray lacking = R"({"requestID":"7d3c2f4e-0a1b-4c5d-8e9f-0123456789ab","endpointID":"s",)"
                                   R"("operation":{},"expiresAt":1})";
        QCOMPARE(problemOf([&] { PluginVolumeCommand::fromJson(parse(lacking)); }),
                 "\"operation\" Invalid number of keys found, expected one.");

        const PluginVolumeResult confirmed = result("speakers", "speakers");
        QCOMPARE(PluginVolumeResult::fromJson(confirmed.toJson()), confirmed);
        const QByteArray refused = R"({"requestID":"7D3C2F4E-0A1B-4C5D-8E9F-0123456789AB","endpointID":"s",)"
                                   R"("error":"No."})";
        QCOMPARE(result("s", {}, "No.").encoded(), refused);
        QCOMPARE(PluginVolumeResult::fromJson(parse(refused.chopped(1) + R"(,"state":null})")),
                 result("s", {}, "No."));
    }

    void agenda_data() {
        checkColumns();
        const auto change = [](auto edit) { return with(entry(), edit); };
        check("no id", change([](auto& e) { e.id.clear(); }), badEntry);
        check("512-byte id", change([](auto& e) { e.id = QString(256, QChar(0xE9)); }), "");
        check("513-byte id", change([](auto& e) { e.id = QString(513, 'i'); }), badEntry);
        check("empty title", change([](auto& e) { e.title.clear(); }), "");
        bothSides("title", 300, badEntry,
                  [&](int n) { return change([&](auto& e) { e.title = family.repeated(n); }); });
        bothSides("source", 100, badEntry,
                  [&](int n) { return change([&](auto& e) { e.source = text(n); }); });
        bothSides("location", 300, badEntry,
                  [&](int n) { return change([&](auto& e) { e.location = text(n); }); });
        bothSides("external id", 512, badEntry,
                  [&](int n) { return change([&](auto& e) { e.externalID = family.repeated(n); }); });
        check("start not a number", change([](auto& e) { e.start = qQNaN(); }), badEntry);
        check("end infinite", change([](auto& e) { e.end = qInf(); }), badEntry);
        check("colour without hash", change([](auto& e) { e.color = "a1b2c3"; }), badEntry);
        check("colour of five digits", change([](auto& e) { e.color = "#a1b2c"; }), badEntry);
        check("colour and a newline", change([](auto& e) { e.color = "#a1b2c3\n"; }), badEntry);

        check("https link", linked("https://example.com/meet?id=1#x"), "");
        check("http link", linked("http://example.com"), badLink);
        check("user in link", linked("https://me@example.com"), badLink);
        check("empty user info", linked("https://@example.com"), badLink);
        check("no host", linked("https:///path"), badLink);
        check("space in link", linked("https://exa mple.com"), badLink);
        check("bad meeting link", change([](auto& e) { e.meetingURL = "zoommtg://x"; }), badLink);
        check("entry before link", with(linked("http://x"), [](auto& e) { e.color.clear(); }), badEntry);

        checkAt("valid for 600 s", contribution(600, 64), now2001, "");
        checkAt("valid for 601 s", contribution(601), now2001, badAgenda);
        checkAt("already expired", contribution(-1), now2001, "");
        checkAt("65 entries", contribution(60, 65), now2001, badAgenda);
        checkAt("date not a number", with(contribution(60), [](auto& a) { a.date = qQNaN(); }), now2001,
                badAgenda);
        checkAt("fetched at infinity", with(contribution(60), [](auto& a) { a.fetchedAt = qInf(); }), now2001,
                badAgenda);
        checkAt("expiry not a number", contribution(qQNaN()), now2001, badAgenda);
        checkAt("clock not a number", contribution(60), qQNaN(), badAgenda);
        checkAt("bad link in an entry",
                with(contribution(60, 2), [](auto& a) { a.entries[1].url = "http://x"; }), now2001, badLink);
        checkAt("contribution before entries",
                with(contribution(60, 65), [](auto& a) { a.entries[0].id.clear(); }), now2001, badAgenda);
    }

    void agenda() { runCheckRow(); }

    void agendaJson() {
        const PluginAgendaEntry full{"e",           "T",           0,   60,  true, "S", "#000000", "L",
                                     "https://a.b", "https://m.b", "X", true};
        const QByteArray fullJson = R"({"id":"e","title":"T","start":0,"end":60,"allDay":true,"source":"S",)"
                                    R"("color":"#000000","location":"L","url":"https://a.b",)"
                                    R"("meetingURL":"https://m.b","externalID":"X","isTask":true})";
        QCOMPARE(full.encoded(), fullJson);
        const QByteArray plainEntry = R"({"id":"e1","title":"Stand-up","start":0,"end":1800,"allDay":false,)"
                                      R"("source":"Work","color":"#a1B2c3","isTask":false})";
        const PluginAgenda plain = contribution(60);
        QCOMPARE(plain.encoded(),
                 R"({"date":0,"fetchedAt":800000000,"expiresAt":800000060,"entries":[)" + plainEntry + "]}");
        QCOMPARE(PluginAgenda::fromJson(plain.toJson()), plain);
        const QByteArray nulls = plainEntry.chopped(1) + R"(,"url":null,"location":null})";
        QCOMPARE(PluginAgendaEntry::fromJson(parse(nulls)), entry());
        const QByteArray untitled = R"({"date":0,"fetchedAt":0,"expiresAt":0,"entries":[{"id":"e"}]})";
        QCOMPARE(problemOf([&] { PluginAgenda::fromJson(parse(untitled)); }),
                 "\"entries[0].title\" is missing");
    }

    void storageIdentity_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("message");
        row("100 characters", "a." + QString(98, 'b'), QString());
        row("101 characters", "a." + QString(99, 'b'), badIdentity);
        row("climbing out", QString("../x"), badIdentity);
    }

    void storageIdentity() {
        QFETCH(QString, id);
        QFETCH(QString, message);
        const QTemporaryDir home;
        const QString data = home.filePath("data"); // missing: made with the folder
        qputenv("XDG_DATA_HOME", QFile::encodeName(data));
        QString folder;
        QCOMPARE(problemOf([&] { folder = PluginStorage::directory(id); }), message);
        if (!message.isEmpty()) {
            QVERIFY(!QFile::exists(data)); // refused before anything was touched
            return;
        }
        QCOMPARE(folder, data + "/OstaVellPlugins/" + id);
        struct stat info {};
        QCOMPARE(::stat(QFile::encodeName(folder).constData(), &info), 0);
        QVERIFY(S_ISDIR(info.st_mode));
        QCOMPARE(info.st_mode & 07777, mode_t(0700));
        QCOMPARE(PluginStorage::directory(id), folder); // an existing folder is no error
    }

    void storageCreationFailure_data() {
        QTest::addColumn<bool>("parentIsFile");
        row("parent is a regular file", true);
        row("parent is read-only", false);
    }

    void storageCreationFailure() {
        QFETCH(bool, parentIsFile);
        const QTemporaryDir data;
        qputenv("XDG_DATA_HOME", QFile::encodeName(data.path()));
        const QString parent = data.filePath("OstaVellPlugins");
        QVERIFY(parentIsFile ? QFile(parent).open(QIODevice::WriteOnly) : QDir().mkdir(parent));
        const bool immutable = !parentIsFile && ::geteuid() == 0;
        if (!parentIsFile)
            QFile::setPermissions(parent, QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        if (immutable && !setImmutable(parent, true))
            QSKIP("Root writes anywhere here: the file system has no immutable attribute.");
        const auto restore = qScopeGuard([&] {
            if (immutable)
                setImmutable(parent, false);
        });
        QCOMPARE(problemOf([] { PluginStorage::directory("a.b"); }),
                 "Could not create the folder " + parent + "/a.b.");
    }
};

QTEST_GUILESS_MAIN(TestPluginPayloads)
#include "tst_PluginPayloads.moc"
