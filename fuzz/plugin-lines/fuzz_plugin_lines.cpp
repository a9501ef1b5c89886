// Any bytes as a plugin's output, cut into chunks whose sizes come from the input itself. The
// framer either refuses the stream with a ModuleProblem or yields messages that survive their
// own encoding unchanged; it never holds more than its limit.

#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Protocol/PluginLines.h"

#include <cstdint>
#include <cstdlib>

using namespace vell;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1)
        return 0;
    // The first byte chooses the chunk size: small chunks exercise lines cut anywhere.
    const qsizetype chunkSize = 1 + (data[0] % 64) * 37;
    const QByteArrayView input(reinterpret_cast<const char*>(data) + 1, static_cast<qsizetype>(size - 1));
    PluginLines framer;
    try {
        for (qsizetype offset = 0; offset < input.size(); offset += chunkSize) {
            const QList<PluginMessage> messages =
                framer.append(input.sliced(offset, std::min(chunkSize, input.size() - offset)));
            for (const PluginMessage& message : messages) {
                if (message.apiVersion != PluginMessage::interfaceVersion)
                    std::abort();
                const QByteArray again = message.json();
                if (!(PluginMessage::decode(again) == message))
                    std::abort();
            }
            if (framer.buffer().size() > PluginLines::maximumRestBytes)
                std::abort();
        }
    } catch (const ModuleProblem&) {
    }
    return 0;
}
