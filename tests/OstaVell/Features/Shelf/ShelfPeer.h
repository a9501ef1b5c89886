#pragma once

// The test's side of ShelfDragPeer, the other X client of the drag and drop tests, and of the
// pointer that xdotool moves as a person would.

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRect>
#include <QStringList>
#include <QTemporaryDir>
#include <QTest>

namespace vell::test {

// xdotool with these arguments; true when it did it.
inline bool xdotool(const QStringList& arguments) {
    return QProcess::execute(QStringLiteral("xdotool"), arguments) == 0;
}

// xdotool places the pointer by warping it, which no input device reports: a watch of the
// devices, like the drag detector's, sees nothing of it. A one-pixel move there and back, made
// as the pointer device makes it (and too short for acceleration), is seen.
inline bool pointerTo(const QPoint& point) {
    return xdotool({QStringLiteral("mousemove"), QString::number(point.x()), QString::number(point.y())}) &&
           xdotool({QStringLiteral("mousemove_relative"), QStringLiteral("--"), QStringLiteral("1"),
                    QStringLiteral("0")}) &&
           xdotool({QStringLiteral("mousemove_relative"), QStringLiteral("--"), QStringLiteral("-1"),
                    QStringLiteral("0")});
}

// Moves the pointer in a few steps, as a hand does: a drag source and its targets see the way.
inline bool glide(const QPoint& from, const QPoint& to, int steps = 6) {
    for (int i = 1; i <= steps; ++i)
        if (!pointerTo(from + (to - from) * i / steps))
            return false;
    return true;
}

class DragPeer final {
public:
    DragPeer() = default;
    ~DragPeer() {
        m_process.kill();
        m_process.waitForFinished();
    }
    Q_DISABLE_COPY_MOVE(DragPeer)

    // Starts it and waits until its window shows; false when it never did.
    bool start(const QStringList& arguments) {
        m_log = m_dir.filePath(QStringLiteral("peer.log"));
        m_process.setProcessChannelMode(QProcess::ForwardedChannels);
        m_process.start(
            QDir(qEnvironmentVariable("VELL_BUILD_DIR")).filePath(QStringLiteral("tests/ShelfDragPeer")),
            QStringList{m_log} + arguments);
        if (!m_process.waitForStarted())
            return false;
        if (!QTest::qWaitFor([this] { return !line(QStringLiteral("ready ")).isEmpty(); }, 20000))
            return false;
        const QStringList ready = line(QStringLiteral("ready ")).split(u' ');
        m_rect = QRect(ready.at(1).toInt(), ready.at(2).toInt(), ready.at(3).toInt(), ready.at(4).toInt());
        return true;
    }

    QRect rect() const { return m_rect; }
    QPoint centre() const { return m_rect.center(); }

    // Everything it said, one line each. Any thread.
    QStringList lines() const {
        QFile file(m_log);
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
    }
    // The last line it said that starts so; empty when none.
    QString line(const QString& start) const {
        const QStringList all = lines();
        for (qsizetype i = all.size() - 1; i >= 0; --i)
            if (all.at(i).startsWith(start))
                return all.at(i);
        return {};
    }

private:
    QTemporaryDir m_dir;
    QString m_log;
    QProcess m_process;
    QRect m_rect;
};

} // namespace vell::test
