#pragma once

#include "VellPluginSDK/Protocol/PluginLines.h"
#include "VellPluginSDK/Protocol/PluginMessage.h"

#include <QList>
#include <QObject>

#include <atomic>

namespace vell {

// What both ways of talking to a plugin share, on the transport thread: the framing of what
// comes in, and a bound on what has been framed and not yet taken by the main thread. Without
// that bound a plugin writing small valid messages faster than the host handles them would
// grow the main thread's event queue without end; with it, reading pauses and the plugin
// blocks on its own full pipe or socket instead. The bound is also on the count, because the
// main thread handles every batch already posted in one go before its timers run again.
class PluginStream : public QObject {
    Q_OBJECT

public:
    // Bytes framed and not yet handled on the main thread before reading pauses.
    static constexpr qsizetype maximumUndeliveredBytes = 512 * 1024;
    static constexpr qsizetype maximumUndeliveredMessages = 256;

    // The main thread has handled a batch of framed(). Called on the main thread itself: the
    // counts are atomic, and the transport thread is woken only when its reading waits for this.
    void delivered(qsizetype bytes, qsizetype messages);

signals:
    // Messages in order, framed from bytes bytes of input.
    void framed(const QList<vell::PluginMessage>& messages, qsizetype bytes);
    // The stream held bad data or broke; nothing more is read.
    void failed(const QString& reason);
    // The plugin ended, or closed its side.
    void exited();

protected:
    using QObject::QObject;

    // Frames chunk and hands on its messages; false when it failed, failed() being emitted.
    bool take(QByteArrayView chunk);
    bool paused() const {
        return m_undeliveredBytes > maximumUndeliveredBytes ||
               m_undeliveredMessages > maximumUndeliveredMessages;
    }
    // True when reading must wait: the next delivered() that lifts the bound then calls resume().
    bool pauseReading();
    // Reading may go on again after a pause.
    virtual void resume() = 0;

private:
    PluginLines m_lines;
    std::atomic<qsizetype> m_undeliveredBytes = 0;
    std::atomic<qsizetype> m_undeliveredMessages = 0;
    // Set by the reading side as it stops; whoever clears it again owes a resume().
    std::atomic<bool> m_waiting = false;
    bool m_failed = false;
};

} // namespace vell
