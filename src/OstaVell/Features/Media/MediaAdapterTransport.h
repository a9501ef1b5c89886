#pragma once

#include "OstaVell/Features/Media/MediaPlaybackState.h"

#include <QLoggingCategory>
#include <QObject>
#include <QThread>
#include <QThreadPool>

#include <functional>
#include <memory>

Q_DECLARE_LOGGING_CATEGORY(lcMedia)

namespace vell {

class ChildProcess;
class MediaAdapterReader;

// The media adapter's stream and its commands. The stream is one long-running process whose
// lines are read and decoded on a thread of their own, so a large artwork never stalls the
// interface; each record comes back to the main thread. Every command is a short process of
// its own, run one after another so that two can never overtake each other, and independent
// of the stream: a command sent while the stream is down still runs.
class MediaAdapterTransport final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MediaAdapterTransport)

public:
    // A line longer than this is dropped whole: no artwork the adapter sends comes near it.
    static constexpr qsizetype maximumLineBytes = 8 * 1024 * 1024;

    explicit MediaAdapterTransport(QString executable = defaultExecutable(), QObject* parent = nullptr);
    ~MediaAdapterTransport() override;

    static QString defaultExecutable();

    std::function<void(const MediaAdapterRecord&)> onTrackInfo;
    std::function<void()> onTerminated;

    bool isAvailable() const;
    bool isRunning() const { return m_running; }
    // The player the stream reports whatever the others do; empty for the usual choice.
    // Takes effect at the next start.
    void setPin(const QString& busName) { m_pin = busName; }
    QString pin() const { return m_pin; }

    void start();
    void stop();
    // "play", "pause", "toggle_play_pause", "stop", "next_track", "previous_track",
    // "set_time {seconds}", "set_shuffle_mode {n}", "set_repeat_mode {n}"; anything else is
    // ignored. With a player named, the command goes to that player alone.
    void send(const QString& command, const QString& player = QString());
    // Blocks until every command sent so far has run; for tests and shutdown.
    void waitForCommands();

    // The adapter's arguments for a command, empty when it isn't one.
    static QStringList commandArguments(const QString& command);

private:
    void ended(quint64 generation);

    QString m_executable;
    QString m_pin;
    QThread m_readerThread;
    MediaAdapterReader* m_reader = nullptr;
    std::unique_ptr<ChildProcess> m_process;
    bool m_running = false;
    quint64 m_generation = 0;
    QThreadPool m_commands;
};

} // namespace vell
