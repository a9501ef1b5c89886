// What the host pays to frame and decode a plugin's output: a realistic stream of snapshots
// (a dashboard with panels of control cards, fields and actions) and action bus messages, fed
// to one framer in pipe-sized chunks. The floor is the JSON parser alone over the same lines,
// already split, in the same run; the ratio is our throughput against it.

#include "VellPluginSDK/Protocol/PluginLines.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QUuid>

#include <algorithm>
#include <cstdio>

using namespace vell;

namespace {

constexpr int snapshots = 400;
constexpr int busMessages = 1600;
constexpr qsizetype chunkSize = 65536;
constexpr int rounds = 7;

QByteArray quoted(const QString& text) {
    return '"' + text.toUtf8() + '"';
}

QByteArray envelope(const char* type, quint64 sequence, const QByteArray& payloadKey,
                    const QByteArray& payload) {
    static const QByteArray session = quoted(QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper());
    return R"({"apiVersion":1,"type":")" + QByteArray(type) +
           R"(","pluginID":"com.example.home","session":)" + session + R"(,"sequence":)" +
           QByteArray::number(sequence) + ",\"" + payloadKey + "\":" + payload + "}\n";
}

QByteArray action(const QString& id, const QString& label) {
    return R"({"id":)" + quoted(id) + R"(,"label":)" + quoted(label) + R"(,"enabled":true,"symbol":"power"})";
}

// A home-automation dashboard: three rooms of eight lights each, a few readings and buttons.
QByteArray snapshot(int n) {
    QByteArrayList panels;
    for (int room = 0; room < 3; ++room) {
        QByteArrayList cards;
        for (int light = 0; light < 8; ++light) {
            const QString id = QStringLiteral("light%1_%2").arg(room).arg(light);
            cards.append(R"({"id":)" + quoted(id) + R"(,"title":"Ceiling light )" +
                         QByteArray::number(light) + R"(","subtitle":"Room )" + QByteArray::number(room) +
                         R"(","value":")" + QByteArray::number((n + light) % 100) +
                         R"(%","detail":"Dimmable, last changed a minute ago",)" +
                         R"("symbol":"lightbulb","highlighted":)" + ((n + light) % 2 ? "true" : "false") +
                         R"(,"actions":[)" + action("toggle_" + id, "Toggle") + "," +
                         action("off_" + id, "Off") + "]}");
        }
        panels.append(
            R"({"id":"room)" + QByteArray::number(room) + R"(","title":"Room )" + QByteArray::number(room) +
            R"(","usesMedia":false,"sections":[{"title":"Climate","detail":"21.5 °C, 40 % humidity"}],"cards":[)" +
            cards.join(',') + "]}");
    }
    QByteArrayList fields;
    for (int i = 0; i < 6; ++i)
        fields.append(R"({"label":"Sensor )" + QByteArray::number(i) + R"(","value":")" +
                      QByteArray::number(n * 7 % 31) + R"( °C","symbol":"thermometer"})");
    const QByteArray body = R"({"title":"Home","status":"All quiet","activity":"24 lights","progress":)" +
                            QByteArray::number(n % 101) + R"(,"fields":[)" + fields.join(',') +
                            R"(],"actions":[)" + action("allOff", "All off") + "," +
                            action("scene", "Evening") + R"(],"badge":"3","panels":[)" + panels.join(',') +
                            "]}";
    return body;
}

QByteArray busMessage(int n) {
    return R"({"operation":"update","requestID":")" +
           QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper().toLatin1() +
           R"(","update":{"phase":"running","progress":)" + QByteArray::number(n % 100) +
           R"(,"message":"Dimming the hallway lights","values":{"level":)" + QByteArray::number(n % 100) +
           R"(,"room":"hall","done":false}}})";
}

double megabytesPerSecond(qsizetype bytes, qint64 nanoseconds) {
    return double(bytes) / 1e6 / (double(nanoseconds) / 1e9);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QByteArray stream;
    QByteArrayList lines;
    quint64 sequence = 0;
    for (int i = 0; i < snapshots + busMessages; ++i) {
        const bool isSnapshot = i % ((snapshots + busMessages) / snapshots) == 0;
        const QByteArray line = isSnapshot ? envelope("snapshot", ++sequence, "snapshot", snapshot(i))
                                           : envelope("bus", ++sequence, "bus", busMessage(i));
        stream += line;
        lines.append(line.chopped(1));
    }

    std::vector<qint64> ours;
    std::vector<qint64> floor;
    qsizetype framed = 0;
    for (int round = 0; round < rounds; ++round) {
        QElapsedTimer timer;
        timer.start();
        PluginLines framer;
        framed = 0;
        for (qsizetype offset = 0; offset < stream.size(); offset += chunkSize)
            framed += framer
                          .append(QByteArrayView(stream).sliced(offset,
                                                                std::min(chunkSize, stream.size() - offset)))
                          .size();
        ours.push_back(timer.nsecsElapsed());

        timer.restart();
        qsizetype parsed = 0;
        for (const QByteArray& line : lines)
            parsed += QJsonDocument::fromJson(line).isObject() ? 1 : 0;
        floor.push_back(timer.nsecsElapsed());
        if (framed != lines.size() || parsed != lines.size()) {
            std::fprintf(stderr, "plugin-lines bench: framed %lld and parsed %lld of %lld lines\n",
                         qlonglong(framed), qlonglong(parsed), qlonglong(lines.size()));
            return 1;
        }
    }
    // The median of the rounds, each side on its own.
    std::sort(ours.begin(), ours.end());
    std::sort(floor.begin(), floor.end());
    const double oursRate = megabytesPerSecond(stream.size(), ours[rounds / 2]);
    const double floorRate = megabytesPerSecond(stream.size(), floor[rounds / 2]);
    std::printf("stream: %lld lines, %.1f MB (%d snapshots, %d bus messages)\n", qlonglong(lines.size()),
                double(stream.size()) / 1e6, snapshots, busMessages);
    std::printf("framing and decoding: %.1f MB/s\n", oursRate);
    std::printf("QJsonDocument::fromJson alone: %.1f MB/s\n", floorRate);
    std::printf("ratio: %.2f\n", oursRate / floorRate);
    return 0;
}
