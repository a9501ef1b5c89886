#include "VellHost/Plugins/JpegProbe.h"

namespace vell::JpegProbe {

namespace {
quint8 byteAt(const QByteArray& data, qsizetype index) {
    return quint8(data.at(index));
}

quint16 wordAt(const QByteArray& data, qsizetype index) {
    return quint16(byteAt(data, index) << 8 | byteAt(data, index + 1));
}

// Start-of-frame markers: C0 to CF except C4 (Huffman tables), C8 (reserved) and CC
// (arithmetic coding conditions).
bool isFrameHeader(quint8 marker) {
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}
} // namespace

std::optional<QSize> size(const QByteArray& data) {
    if (data.size() < 4 || byteAt(data, 0) != 0xFF || byteAt(data, 1) != 0xD8)
        return std::nullopt;
    qsizetype at = 2;
    while (at + 4 <= data.size()) {
        if (byteAt(data, at) != 0xFF)
            return std::nullopt;
        const quint8 marker = byteAt(data, at + 1);
        if (marker == 0xFF) {
            ++at; // fill byte
            continue;
        }
        // Markers without a length: restart markers and the temporary marker.
        if ((marker >= 0xD0 && marker <= 0xD7) || marker == 0x01) {
            at += 2;
            continue;
        }
        if (marker == 0xD9 || marker == 0xDA)
            return std::nullopt; // image data or the end before any frame header
        const quint16 length = wordAt(data, at + 2);
        if (length < 2)
            return std::nullopt;
        if (isFrameHeader(marker)) {
            // Length, precision, height, width.
            if (length < 7 || at + 9 > data.size())
                return std::nullopt;
            return QSize(wordAt(data, at + 7), wordAt(data, at + 5));
        }
        at += 2 + length;
    }
    return std::nullopt;
}

} // namespace vell::JpegProbe
