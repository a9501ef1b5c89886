#include "OstaVell/Features/Media/MediaAdapterTransport.h"

#include "VellHost/ChildProcess.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QPointer>
#include <QProcessEnvironment>
#include <QSocketNotifier>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcMedia, "OstaVell Media", QtInfoMsg)

namespace vell {

// Reads the stream's pipe on the reader thread: splits it into lines, however they arrive,
// and decodes each there. The previous artwork is kept so that the same bytes, sent again
// with every record, are decoded once.
class MediaAdapterReader final : public QObject {
    Q_OBJECT

public:
    std::function<void(quint64, const MediaAdapterRecord&)> deliver;
    std::function<void(quint64)> ended;

    void read(int descriptor, quint64 generation) {
        close();
        m_descriptor = descriptor;
        m_generation = generation;
        m_buffer.clear();
        m_skipping = false;
        ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK);
        m_notifier = new QSocketNotifier(descriptor, QSocketNotifier::Read, this);
        connect(m_notifier, &QSocketNotifier::activated, this, &MediaAdapterReader::drain);
    }

    void close() {
        delete m_notifier;
        m_notifier = nullptr;
        if (m_descriptor >= 0)
            ::close(m_descriptor);
        m_descriptor = -1;
    }

    ~MediaAdapterReader() override { close(); }

private:
    void drain() {
        char chunk[65536];
        for (;;) {
            const ssize_t count = ::read(m_descriptor, chunk, sizeof chunk);
            if (count > 0) {
                take(QByteArrayView(chunk, count));
                continue;
            }
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0 && errno == EAGAIN)
                return;
            // End of data, or an error that ends it the same way.
            const quint64 generation = m_generation;
            close();
            ended(generation);
            return;
        }
    }

    void take(QByteArrayView bytes) {
        while (!bytes.isEmpty()) {
            const qsizetype newline = bytes.indexOf('\n');
            const QByteArrayView part = newline < 0 ? bytes : bytes.first(newline);
            if (!m_skipping)
                m_buffer.append(part);
            if (m_buffer.size() > MediaAdapterTransport::maximumLineBytes) {
                m_buffer.clear();
                m_skipping = true;
            }
            if (newline < 0)
                return;
            if (!m_skipping)
                line(m_buffer);
            m_buffer.clear();
            m_skipping = false;
            bytes = bytes.sliced(newline + 1);
        }
    }

    void line(const QByteArray& bytes) {
        std::optional<MediaAdapterRecord> record =
            MediaAdapterRecord::decode(bytes, m_artworkData, m_artwork);
        if (!record)
            return;
        m_artworkData = record->artworkData;
        m_artwork = record->state ? record->state->artworkImage : QImage();
        deliver(m_generation, *record);
    }

    QSocketNotifier* m_notifier = nullptr;
    int m_descriptor = -1;
    quint64 m_generation = 0;
    QByteArray m_buffer;
    bool m_skipping = false;
    QByteArray m_artworkData;
    QImage m_artwork;
};

MediaAdapterTransport::MediaAdapterTransport(QString executable, QObject* parent)
    : QObject(parent)
    , m_executable(std::move(executable))
    , m_reader(new MediaAdapterReader) {
    m_commands.setMaxThreadCount(1);
    m_commands.setExpiryTimeout(-1);
    m_reader->moveToThread(&m_readerThread);
    connect(&m_readerThread, &QThread::finished, m_reader, &QObject::deleteLater);
    const QPointer<MediaAdapterTransport> self(this);
    m_reader->deliver = [self](quint64 generation, const MediaAdapterRecord& record) {
        QMetaObject::invokeMethod(
            self.get(),
            [self, generation, record] {
                if (self && self->m_running && generation == self->m_generation && self->onTrackInfo)
                    self->onTrackInfo(record);
            },
            Qt::QueuedConnection);
    };
    m_reader->ended = [self](quint64 generation) {
        QMetaObject::invokeMethod(
            self.get(),
            [self, generation] {
                if (self)
                    self->ended(generation);
            },
            Qt::QueuedConnection);
    };
    m_readerThread.setObjectName(QStringLiteral("media stream"));
    m_readerThread.start();
}

MediaAdapterTransport::~MediaAdapterTransport() {
    stop();
    m_readerThread.quit();
    m_readerThread.wait();
    m_commands.waitForDone();
}

QString MediaAdapterTransport::defaultExecutable() {
    // Through bin/ so that a test beside bin/ finds it as the app inside it does.
    return QDir::cleanPath(QCoreApplication::applicationDirPath() +
                           QStringLiteral("/../bin/ostavell-media-adapter"));
}

bool MediaAdapterTransport::isAvailable() const {
    const QFileInfo file(m_executable);
    return file.isFile() && file.isExecutable();
}

void MediaAdapterTransport::start() {
    if (m_running || !isAvailable())
        return;
    QStringList arguments{QStringLiteral("stream"), QStringLiteral("--no-diff"), QStringLiteral("--micros"),
                          QStringLiteral("--debounce=100")};
    if (!m_pin.isEmpty())
        arguments.append(QStringLiteral("--pin=") + m_pin);
    QString error;
    m_process = ChildProcess::start(
        {m_executable, arguments, QProcessEnvironment::systemEnvironment().toStringList()}, &error);
    m_running = true;
    const quint64 generation = ++m_generation;
    if (!m_process) {
        qCWarning(lcMedia).noquote() << QStringLiteral("Media stream: %1").arg(error);
        QMetaObject::invokeMethod(
            this, [this, generation] { ended(generation); }, Qt::QueuedConnection);
        return;
    }
    // The child's input stays open and unused for as long as we hold it: its end tells the
    // adapter that we are gone, however we went.
    const int descriptor = m_process->takeOutputDescriptor();
    QMetaObject::invokeMethod(
        m_reader, [reader = m_reader, descriptor, generation] { reader->read(descriptor, generation); });
}

void MediaAdapterTransport::stop() {
    if (!m_running)
        return;
    m_running = false;
    ++m_generation;
    QMetaObject::invokeMethod(m_reader, [reader = m_reader] { reader->close(); });
    if (m_process)
        ChildProcess::terminate(std::move(m_process), std::chrono::milliseconds(2000));
}

void MediaAdapterTransport::ended(quint64 generation) {
    if (!m_running || generation != m_generation)
        return;
    m_running = false;
    if (m_process)
        ChildProcess::terminate(std::move(m_process), std::chrono::milliseconds(2000));
    if (onTerminated)
        onTerminated();
}

QStringList MediaAdapterTransport::commandArguments(const QString& command) {
    const QStringList words = command.split(u' ', Qt::SkipEmptyParts);
    if (words.isEmpty() || words.size() > 2)
        return {};
    static const QStringList sends{
        QStringLiteral("play"), QStringLiteral("pause"),      QStringLiteral("toggle_play_pause"),
        QStringLiteral("stop"), QStringLiteral("next_track"), QStringLiteral("previous_track")};
    if (words.size() == 1) {
        const qsizetype index = sends.indexOf(words[0]);
        return index < 0 ? QStringList() : QStringList{QStringLiteral("send"), QString::number(index)};
    }
    bool ok = false;
    if (words[0] == u"set_time") {
        const double seconds = words[1].toDouble(&ok);
        if (!ok || !std::isfinite(seconds))
            return {};
        return {QStringLiteral("seek"), QString::number(qint64(seconds * 1'000'000))};
    }
    const int mode = words[1].toInt(&ok);
    if (!ok || mode < 0 || mode > 2)
        return {};
    // The adapter numbers the middle values differently for the two modes: its own numbering.
    if (words[0] == u"set_shuffle_mode")
        return {QStringLiteral("shuffle"), QString::number(std::array{1, 3, 2}[mode])};
    if (words[0] == u"set_repeat_mode")
        return {QStringLiteral("repeat"), QString::number(mode + 1)};
    return {};
}

void MediaAdapterTransport::send(const QString& command, const QString& player) {
    QStringList arguments = commandArguments(command);
    if (arguments.isEmpty() || !isAvailable())
        return;
    if (!player.isEmpty())
        arguments.prepend(QStringLiteral("--player=") + player);
    m_commands.start([executable = m_executable, arguments] {
        QString error;
        const std::unique_ptr<ChildProcess> child = ChildProcess::start(
            {executable, arguments, QProcessEnvironment::systemEnvironment().toStringList(), false, false},
            &error);
        if (!child) {
            qCWarning(lcMedia).noquote() << QStringLiteral("Media command: %1").arg(error);
            return;
        }
        child->wait();
    });
}

void MediaAdapterTransport::waitForCommands() {
    m_commands.waitForDone();
}

} // namespace vell

#include "MediaAdapterTransport.moc"
