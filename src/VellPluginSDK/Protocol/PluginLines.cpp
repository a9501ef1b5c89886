#include "VellPluginSDK/Protocol/PluginLines.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <cstring>

namespace vell {

QList<PluginMessage> PluginLines::append(QByteArrayView chunk) {
    if (m_buffer.size() + chunk.size() > maximumBufferedBytes)
        throw ModuleProblem(QStringLiteral("Plugin output exceeded its limit."));
    m_buffer.append(chunk);

    QList<PluginMessage> messages;
    qsizetype start = 0;
    qsizetype searchFrom = m_searched;
    // The framed lines leave the buffer together, also when a later line fails.
    const auto consume = [&] {
        m_buffer.remove(0, start);
        m_searched = m_buffer.size();
    };
    try {
        while (true) {
            const char* base = m_buffer.constData();
            const void* found =
                std::memchr(base + searchFrom, '\n', static_cast<size_t>(m_buffer.size() - searchFrom));
            if (!found)
                break;
            const qsizetype end = static_cast<const char*>(found) - base;
            const qsizetype length = end - start;
            if (length == 0 || length > maximumLineBytes)
                throw ModuleProblem(QStringLiteral("Invalid plugin message size."));
            PluginMessage message =
                PluginMessage::fromJson(JsonReader::parse(QByteArrayView(base + start, length)));
            if (message.apiVersion != PluginMessage::interfaceVersion)
                throw ModuleProblem(QStringLiteral("Incompatible plugin interface."));
            messages.append(std::move(message));
            start = end + 1;
            searchFrom = start;
        }
    } catch (...) {
        consume();
        throw;
    }
    consume();
    if (m_buffer.size() > maximumRestBytes)
        throw ModuleProblem(QStringLiteral("Unterminated plugin message exceeded its limit."));
    return messages;
}

} // namespace vell
