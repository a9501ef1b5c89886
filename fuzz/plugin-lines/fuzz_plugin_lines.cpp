// Any bytes as a plugin's output, cut into chunks whose sizes come from the input itself. The
// framer either refuses the stream with a ModuleProblem or yields messages that survive their
// own encoding unchanged; it never holds more than its limit. Every line the framer would parse
// is also a differential case: our JSON tree and QJsonDocument accept and refuse the same lines,
// and for the same reason, since that reason is the message a plugin author sees.

#include "VellPluginSDK/Json/JsonTree.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Protocol/PluginLines.h"

#include <QJsonDocument>
#include <QJsonParseError>

#include <cstdint>
#include <cstdlib>

using namespace vell;

namespace {

void compareParsers(QByteArrayView input) {
    qsizetype start = 0;
    while (start < input.size()) {
        qsizetype end = input.indexOf('\n', start);
        if (end < 0)
            end = input.size();
        const QByteArrayView line = input.sliced(start, end - start);
        if (!line.isEmpty() && line.size() <= PluginLines::maximumLineBytes) {
            QJsonParseError ours;
            QJsonParseError theirs;
            const bool accepted = !JsonTree::parse(line, &ours).isUndefined();
            QJsonDocument::fromJson(line.toByteArray(), &theirs);
            if (accepted != (theirs.error == QJsonParseError::NoError) || ours.error != theirs.error)
                std::abort();
        }
        start = end + 1;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1)
        return 0;
    // The first byte chooses the chunk size: small chunks exercise lines cut anywhere.
    const qsizetype chunkSize = 1 + (data[0] % 64) * 37;
    const QByteArrayView input(reinterpret_cast<const char*>(data) + 1, static_cast<qsizetype>(size - 1));
    compareParsers(input);
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
