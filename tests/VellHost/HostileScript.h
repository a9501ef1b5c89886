#pragma once

// The script a hostile plugin plays, line by line, and the plugin messages it writes, with
// the placeholders the plugin fills in. HostilePlugin.cpp tells what each step does.

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <algorithm>

namespace vell::hostile {

inline QByteArray step(const QJsonObject& object) {
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}
inline QByteArray send(const QByteArray& text, int copies = 1) {
    return step({{"send", QString::fromUtf8(text)}, {"copies", copies}});
}
inline QByteArray sendPadded(const QByteArray& text, int padTo, bool newline = true) {
    return step({{"send", QString::fromUtf8(text)}, {"padTo", padTo}, {"newline", newline}});
}
inline QByteArray waitFor(const char* type, const char* with = "") {
    return step({{"wait", type}, {"with", with}});
}
inline QByteArray waitVisible() {
    return waitFor("visibility", R"("visible":true)");
}
inline QByteArray exitWith(int status) {
    return step({{"exit", status}});
}
inline QByteArray note(const char* name) {
    return step({{"note", name}});
}
inline const QByteArray ignoreTerm = step({{"ignoreTerm", true}});
inline const QByteArray closeOutput = step({{"closeOutput", true}});
inline const QByteArray idle = step({{"idle", true}});

// A plugin message as the hostile plugin writes it; it fills in the placeholders.
inline QByteArray wire(const QByteArray& type, const QByteArray& fields = {},
                       const QByteArray& sequence = "$SEQ", const QByteArray& plugin = "$PLUGIN",
                       const QByteArray& session = "$SESSION") {
    QByteArray line = R"({"apiVersion":1,"type":")" + type + R"(","pluginID":")" + plugin +
                      R"(","session":")" + session + R"(","sequence":)" + sequence;
    return line + (fields.isEmpty() ? QByteArray() : ',' + fields) + '}';
}

inline QByteArray ready(const QStringList& features = {QStringLiteral("dashboard-v1")}) {
    return send(wire("ready",
                     R"("features":)" +
                         QJsonDocument(QJsonArray::fromStringList(features)).toJson(QJsonDocument::Compact),
                     "0"));
}

inline QByteArray displayData(const QByteArray& status, const QByteArray& extra = {},
                              const QByteArray& actions = "[]") {
    return R"({"title":"Hostile","status":")" + status + R"(","activity":"","fields":[],"actions":)" +
           actions + extra + '}';
}

inline QByteArray snapshot(const QByteArray& status, const QByteArray& extra = {},
                           const QByteArray& sequence = "$SEQ") {
    return send(wire("snapshot", R"("snapshot":)" + displayData(status, extra), sequence));
}

// One panel holding contents, as the extra part of a snapshot.
inline QByteArray panel(const QByteArray& contents, bool usesMedia = false) {
    return R"(,"panels":[{"id":"main","title":"Main","usesMedia":)" +
           QByteArray(usesMedia ? "true" : "false") + R"(,"sections":[],)" + contents + "}]";
}

inline const QByteArray forms =
    R"("forms":[{"id":"rename","title":"Rename","revision":"r1","action":{"id":"rename","title":"Rename",)"
    R"("input":{"fields":[{"name":"name","kind":"string","required":false}]},"output":{"fields":[]},)"
    R"("effect":"readOnly","cancellable":false,"timeoutSeconds":10},"inputs":[{"id":"name","label":"Name",)"
    R"("style":"text","value":"Desk"}],"enabled":true}])";
inline const QByteArray collection =
    R"("collection":{"layout":"inbox","title":"Messages","subtitle":"","emptyText":"Nothing here","items":)"
    R"([{"id":"i0","title":"Title","subtitle":"","detail":"","category":"","unread":false,"completed":false}],)"
    R"("actions":[]})";

inline QByteArray customView(const QByteArray& extra = {}) {
    return R"("customView":{"entry":"index.html","revision":"r1","state":{"level":3},"events":[{"id":"pick",)"
           R"("input":{"fields":[{"name":"choice","kind":"string","required":false}]}}])" +
           extra + '}';
}

inline const QByteArray volumeEndpoints =
    R"(,"volumeEndpoints":[{"id":"spk","name":"Speakers","available":true,"volume":0.5,"muted":false,)"
    R"("canSetVolume":true,"canMute":true,"observedAt":1700000000}])";
inline const QByteArray caption =
    R"("caption":{"phase":"active","title":"Hi","text":"t","detail":"","symbol":""})";
inline const QByteArray discover = R"("bus":{"operation":"discover","requestID":"$UUID"})";

inline QByteArray registration(bool longRunning) {
    return R"("bus":{"operation":"register","requestID":"$UUID","registration":{"actions":[{"id":"toggle",)"
           R"("title":"Toggle","input":{"fields":[]},"output":{"fields":[]},"effect":"readOnly",)"
           R"("cancellable":false,"timeoutSeconds":10)" +
           QByteArray(longRunning ? R"(,"completionTimeoutSeconds":30)" : "") + R"(}],"channels":[]}})";
}

inline QByteArray agenda(double day, double now, double validity = 300) {
    return R"("agenda":{"date":)" + QByteArray::number(day, 'f', 6) + R"(,"fetchedAt":)" +
           QByteArray::number(now, 'f', 6) + R"(,"expiresAt":)" + QByteArray::number(now + validity, 'f', 6) +
           R"(,"entries":[]})";
}

// The headers of a baseline JPEG of this size, which is all the host reads of one, padded with
// zeros to bytes.
inline QByteArray jpeg(int width, int height, qsizetype bytes = 0) {
    QByteArray data = QByteArray::fromHex("FFD8FFC0001108") + char(height >> 8) + char(height & 0xFF) +
                      char(width >> 8) + char(width & 0xFF) + QByteArray::fromHex("03012200021101031101FFD9");
    return data + QByteArray(std::max<qsizetype>(0, bytes - data.size()), '\0');
}

// A one-pixel PNG.
inline const QByteArray png = QByteArray::fromBase64(
    "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNkYPhfDwAChwGA60e6kgAAAABJRU5ErkJggg==");

inline QByteArray frame(const QByteArray& image) {
    return wire("frame", R"("frame":{"jpeg":")" + image.toBase64() + R"("})");
}

inline bool writeFile(const QString& path, const QByteArray& contents) {
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).absolutePath()) && file.open(QIODevice::WriteOnly) &&
           file.write(contents) == contents.size();
}

// A copy of the hostile plugin in root/Contents/MacOS, where it finds its script; answers the
// executable.
inline QString placeHostile(const QString& root, const QByteArrayList& script) {
    const QString executable = root + QStringLiteral("/Contents/MacOS/hostile");
    if (!writeFile(root + QStringLiteral("/Contents/Resources/script.jsonl"), script.join('\n') + '\n') ||
        !QDir().mkpath(QFileInfo(executable).absolutePath()) ||
        !QFile::copy(qEnvironmentVariable("VELL_BUILD_DIR") + QStringLiteral("/tests/HostilePlugin"),
                     executable))
        qFatal("cannot place the hostile plugin in %s", qPrintable(root));
    return executable;
}

} // namespace vell::hostile
