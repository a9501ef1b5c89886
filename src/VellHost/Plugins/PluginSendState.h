#pragma once

#include <QtGlobal>

#include <mutex>

namespace vell {

// What the main thread and the transport thread share about a plugin's input: the bytes
// encoded and not yet written, and whether writing has ended. The main thread refuses a
// message that would pass the limit before anything is queued.
struct PluginSendState {
    static constexpr qsizetype maximumQueuedBytes = 8388608;

    std::mutex lock;
    qsizetype queuedBytes = 0;
    bool stopped = false;

    // Reserves room for size more bytes; false when stopped or full, reserving nothing.
    bool reserve(qsizetype size) {
        std::lock_guard guard(lock);
        if (stopped || queuedBytes + size > maximumQueuedBytes)
            return false;
        queuedBytes += size;
        return true;
    }
    void release(qsizetype size) {
        std::lock_guard guard(lock);
        queuedBytes -= size;
    }
    void stop() {
        std::lock_guard guard(lock);
        stopped = true;
    }
};

} // namespace vell
