#include "VellHost/Plugins/PluginStream.h"

#include "VellPluginSDK/ModuleProblem.h"

namespace vell {

void PluginStream::delivered(qsizetype bytes, qsizetype messages) {
    m_undeliveredBytes -= bytes;
    m_undeliveredMessages -= messages;
    if (!paused() && m_waiting.exchange(false))
        QMetaObject::invokeMethod(this, [this] {
            if (!m_failed)
                resume();
        });
}

bool PluginStream::pauseReading() {
    if (!paused())
        return false;
    m_waiting = true;
    // A delivered() between the test and the flag saw no waiting reader: look again.
    return !(!paused() && m_waiting.exchange(false));
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
        m_undeliveredBytes += chunk.size();
        m_undeliveredMessages += messages.size();
        emit framed(messages, chunk.size());
    }
    return true;
}

} // namespace vell
