#pragma once

#include "VellPluginSDK/Protocol/PluginMessage.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>

namespace vell {

// Cuts a plugin's byte stream into messages, one per newline-terminated line. The limits are
// what a misbehaving plugin can cost the host: no line over 128 KiB is ever parsed and no more
// than 256 KiB is ever held. Any failure ends the connection, so the framer is not meant to
// be used again after one. One instance per connection, used from one thread at a time.
class PluginLines final {
public:
    static constexpr qsizetype maximumLineBytes = PluginMessage::maximumEncodedBytes;
    // What is held plus a new chunk.
    static constexpr qsizetype maximumBufferedBytes = 262144;
    // A line still waiting for its newline.
    static constexpr qsizetype maximumRestBytes = 131072;

    // The messages completed by chunk, in order. Throws at the first bad line, losing the
    // messages already framed from this chunk; a chunk that would pass the buffer limit is
    // refused whole.
    QList<PluginMessage> append(QByteArrayView chunk);

    // The bytes received and not yet framed.
    const QByteArray& buffer() const { return m_buffer; }

private:
    QByteArray m_buffer;
    // How far m_buffer is known to hold no newline, so that a long line fed in small pieces is
    // searched once, not once per piece.
    qsizetype m_searched = 0;
};

} // namespace vell
