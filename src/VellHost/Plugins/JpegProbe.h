#pragma once

#include <QByteArray>
#include <QSize>

#include <optional>

namespace vell::JpegProbe {

// The pixel size a JPEG stream declares in its frame header, found by walking its markers
// without decoding anything; nothing when the data is not a JPEG stream or has no frame
// header. Cheap enough for untrusted data on the main thread.
std::optional<QSize> size(const QByteArray& data);

} // namespace vell::JpegProbe
