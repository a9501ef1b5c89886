#include "OstaVell/Modules/Plugins/PluginStream.h"

#include "VellPluginSDK/ModuleProblem.h"

namespace vell {

void PluginStream::delivered(qsizetype bytes) {
    const bool wasPaused = paused();
    m_undelivered -= bytes;
    if (wasPaused && !paused() && !m_failed)
        resume();
}

bool PluginStream::take(QByteArrayView chunk) {
    if (m_failed)
        return false;
    QList<PluginMessage> messages;
    try {
        messages = m_lines.append(chunk);
    } catch (const ModuleProblem& problem) {
        m_failed = true;
        emit failed(problem.message());
        return false;
    }
    if (!messages.isEmpty()) {
        m_undelivered += chunk.size();
        emit framed(messages, chunk.size());
    }
    return true;
}

} // namespace vell
