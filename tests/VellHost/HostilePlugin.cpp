// A plugin that plays a script of misbehaviour, for the session and transport tests. After the
// host's "hello" it runs the steps of a JSON-lines script, one object a line, and then idles
// until it is ended. The script lies in its own bundle (Contents/Resources/script.jsonl, signed
// with the rest).
//
// Steps:
//   {"send": text, "copies": n, "newline": false, "padTo": bytes}
//       writes text n times (default once), each followed by a newline unless told otherwise.
//       $PLUGIN and $SESSION become what "hello" said, each $SEQ the next sequence number
//       (1, 2, ...), each $UUID a fresh UUID, and $PAD as many "x" as make the line padTo
//       bytes long.
//   {"wait": type, "with": text}   reads host messages until one of that type holding text
//   {"ignoreTerm": true}           notes SIGTERM in a file and lives on
//   {"note": name}                 leaves the file $TMPDIR/ostavell-hostile-<name>-<pid>
//   {"closeOutput": true}          closes standard output and goes on running
//   {"exit": status}
//   {"idle": true}                 never says anything again
// Everything it writes is raw bytes: most of what it sends no well-made plugin would.

#include <QByteArray>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <unistd.h>

namespace {

QByteArray pending;

[[noreturn]] void idle() {
    while (true)
        pause();
}

void writeAll(const QByteArray& data) {
    qsizetype sent = 0;
    while (sent < data.size()) {
        const ssize_t count =
            ::write(STDOUT_FILENO, data.constData() + sent, static_cast<size_t>(data.size() - sent));
        if (count <= 0)
            idle(); // the host stopped reading; it ends this process when it is ready to
        sent += count;
    }
}

// One line from the host without its newline, or nothing once the host has gone.
std::optional<QByteArray> readLine() {
    while (!pending.contains('\n')) {
        char chunk[65536];
        const ssize_t count = ::read(STDIN_FILENO, chunk, sizeof chunk);
        if (count <= 0)
            return std::nullopt;
        pending.append(chunk, count);
    }
    const qsizetype end = pending.indexOf('\n');
    const QByteArray line = pending.left(end);
    pending.remove(0, end + 1);
    return line;
}

QByteArray notePath(const char* name) {
    return qgetenv("TMPDIR") + "/ostavell-hostile-" + name + '-' + QByteArray::number(getpid());
}

void note(const QByteArray& path) {
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd >= 0)
        ::close(fd);
}

QByteArray terminationNote;

void noteTermination(int) {
    note(terminationNote);
}

struct Player {
    QByteArray pluginID;
    QByteArray session;
    quint64 sequence = 0;

    QByteArray expand(QByteArray text, qsizetype padTo) {
        text.replace("$PLUGIN", pluginID).replace("$SESSION", session);
        for (qsizetype at = text.indexOf("$SEQ"); at >= 0; at = text.indexOf("$SEQ", at))
            text.replace(at, 4, QByteArray::number(++sequence));
        for (qsizetype at = text.indexOf("$UUID"); at >= 0; at = text.indexOf("$UUID", at))
            text.replace(at, 5, QUuid::createUuid().toByteArray(QUuid::WithoutBraces).toUpper());
        if (const qsizetype at = text.indexOf("$PAD"); at >= 0)
            text.replace(at, 4, QByteArray(std::max<qsizetype>(0, padTo - (text.size() - 4)), 'x'));
        return text;
    }

    void send(const QJsonObject& step) {
        const QByteArray text = step.value("send").toString().toUtf8();
        const bool newline = step.value("newline").toBool(true);
        const qsizetype padTo = step.value("padTo").toInteger();
        QByteArray burst;
        for (qint64 copy = step.value("copies").toInteger(1); copy > 0; --copy) {
            burst += expand(text, padTo);
            if (newline)
                burst += '\n';
            if (burst.size() >= 65536) {
                writeAll(burst);
                burst.clear();
            }
        }
        writeAll(burst);
    }

    void wait(const QJsonObject& step) {
        const QString type = step.value("wait").toString();
        const QByteArray with = step.value("with").toString().toUtf8();
        while (const std::optional<QByteArray> line = readLine()) {
            if (QJsonDocument::fromJson(*line).object().value("type").toString() == type &&
                line->contains(with))
                return;
        }
        idle();
    }

    void play(const QJsonObject& step) {
        if (step.contains("send"))
            send(step);
        else if (step.contains("wait"))
            wait(step);
        else if (step.contains("ignoreTerm"))
            std::signal(SIGTERM, noteTermination);
        else if (step.contains("note"))
            note(notePath(qPrintable(step.value("note").toString())));
        else if (step.contains("closeOutput"))
            ::close(STDOUT_FILENO);
        else if (step.contains("exit"))
            std::_Exit(static_cast<int>(step.value("exit").toInteger()));
        else
            idle();
    }
};

} // namespace

int main() {
    terminationNote = notePath("term");
    QFile file(QFileInfo(QFile::symLinkTarget(QStringLiteral("/proc/self/exe"))).absolutePath() +
               QStringLiteral("/../Resources/script.jsonl"));
    if (!file.open(QIODevice::ReadOnly))
        return 2;
    const QList<QByteArray> script = file.readAll().split('\n');

    const std::optional<QByteArray> greeting = readLine();
    if (!greeting)
        return 0;
    const QJsonObject hello = QJsonDocument::fromJson(*greeting).object();
    Player player{hello.value("pluginID").toString().toUtf8(), hello.value("session").toString().toUtf8()};
    for (const QByteArray& line : script) {
        if (!line.trimmed().isEmpty())
            player.play(QJsonDocument::fromJson(line).object());
    }
    idle();
}
