// Bus messages from random peers at random instants, interleaved with the owner's own calls
// (connect, disconnect, approve, cancel, grants, tick), into one router. A provider answers
// inside deliver, as built-in peers do. The router must never crash and never hold more than
// its 32 live runs.
//
// Each step starts with a selector byte. Steps whose selector has the high bit set carry a
// JSON bus message up to the next newline, decoded as a plugin's line would be; the others are
// built field by field from the following bytes, which reaches deep states far sooner.

#include "VellActionRouter/ActionRouter.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QJsonDocument>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

using namespace vell;

namespace {

const std::array<QString, 4> peers{QStringLiteral("cafe.alpha"), QStringLiteral("cafe.beta"),
                                   QStringLiteral("local.ostavell.automations"),
                                   QStringLiteral("Not A Peer")};
const std::array<QString, 4> names{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c"),
                                   QStringLiteral("9bad")};

class Bytes final {
public:
    Bytes(const uint8_t* data, size_t size)
        : m_data(data)
        , m_size(size) {}

    bool atEnd() const { return m_at >= m_size; }
    uint8_t next() { return atEnd() ? 0 : m_data[m_at++]; }
    template <typename T, std::size_t N> const T& pick(const std::array<T, N>& items) {
        return items[next() % N];
    }
    QByteArray line() {
        const size_t start = m_at;
        while (!atEnd() && m_data[m_at] != '\n')
            ++m_at;
        const QByteArray text(reinterpret_cast<const char*>(m_data + start), qsizetype(m_at - start));
        next();
        return text;
    }

private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_at = 0;
};

// A small pool of identities, so that runs, replays and cancels meet each other.
QUuid identity(Bytes& bytes) {
    return QUuid(0x1000u + bytes.next() % 48, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
}

double instant(Bytes& bytes, double& clock) {
    static constexpr std::array<double, 8> steps{0, 0, 0.01, 0.5, 1, 10, 119.5, 301};
    clock += steps[bytes.next() % steps.size()];
    return clock;
}

PluginValueMap values(Bytes& bytes) {
    PluginValueMap map;
    const int count = bytes.next() % 4;
    for (int i = 0; i < count; ++i) {
        const QString key = bytes.pick(
            std::array<QString, 3>{QStringLiteral("n"), QStringLiteral("t"), QStringLiteral("result")});
        switch (bytes.next() % 3) {
        case 0:
            map.insert(key, PluginValue::number(double(int8_t(bytes.next())) / 64));
            break;
        case 1:
            map.insert(key, PluginValue::string(QString(bytes.next() % 4, u'x')));
            break;
        default:
            map.insert(key, PluginValue::boolean(bytes.next() & 1));
        }
    }
    return map;
}

PluginRegistration registration(Bytes& bytes) {
    PluginRegistration registration;
    const int actions = bytes.next() % 4;
    for (int i = 0; i < actions; ++i) {
        PluginRegisteredAction action;
        action.id = bytes.pick(names);
        action.title = QStringLiteral("Action");
        action.effect = PluginRegisteredAction::Effect(bytes.next() % 3);
        action.cancellable = bytes.next() & 1;
        action.timeoutSeconds = 1 + bytes.next() % 20;
        if (bytes.next() & 1)
            action.completionTimeoutSeconds = action.timeoutSeconds + bytes.next() % 60;
        action.input.fields = {
            {QStringLiteral("n"), PluginParameter::Kind::number, bool(bytes.next() & 1), -1.0, 1.0}};
        action.output.fields = {{QStringLiteral("result"), PluginParameter::Kind::string, false, {}, {}}};
        registration.actions.append(action);
    }
    const int channels = bytes.next() % 3;
    for (int i = 0; i < channels; ++i) {
        registration.channels.append(
            {bytes.pick(names),
             QStringLiteral("Channel"),
             PluginChannel::Kind(bytes.next() & 1),
             {{{QStringLiteral("n"), PluginParameter::Kind::number, false, {}, {}}}}});
    }
    return registration;
}

PluginBusMessage built(Bytes& bytes) {
    PluginBusMessage message;
    message.operation = PluginBusMessage::Operation(bytes.next() % 12);
    message.requestID = identity(bytes);
    const uint8_t present = bytes.next();
    if (present & 1)
        message.address = PluginActionAddress{bytes.pick(peers), bytes.pick(names)};
    if (present & 2)
        message.registration = registration(bytes);
    if (present & 4)
        message.values = values(bytes);
    if (present & 8) {
        PluginRunUpdate update;
        update.phase = PluginRunPhase(bytes.next() % 7);
        if (bytes.next() & 1)
            update.progress = double(bytes.next()) / 200;
        update.values = values(bytes);
        message.update = update;
    }
    if (present & 16)
        message.lifetime = double(bytes.next()) * 2 - 10;
    return message;
}

std::optional<PluginBusMessage> decoded(const QByteArray& line) {
    const QJsonDocument document = QJsonDocument::fromJson(line);
    if (!document.isObject())
        return std::nullopt;
    try {
        return PluginBusMessage::fromJson(document.object());
    } catch (const ModuleProblem&) {
        return std::nullopt;
    }
}

// The owner's calls fail with a sentence; anything else escaping is a fault.
template <typename F> void owner(F&& call) {
    try {
        call();
    } catch (const ModuleProblem&) {
    }
}

void checkInvariants(const ActionRouter& router) {
    qsizetype live = 0;
    for (const ActionRun& run : router.runs())
        live += run.isLive() ? 1 : 0;
    if (live > ActionRouter::maximumLiveRuns) {
        std::fprintf(stderr, "router holds %lld live runs\n", static_cast<long long>(live));
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bytes bytes(data, size);
    ActionRouter router;
    double clock = 0;
    int depth = 0;
    router.setDeliver([&](const QString& to, const PluginBusMessage& message) {
        checkInvariants(router);
        // The automations peer answers execute at once, from inside deliver.
        if (to == peers[2] && message.operation == PluginBusMessage::Operation::execute && depth < 4) {
            ++depth;
            PluginBusMessage answer;
            answer.operation = PluginBusMessage::Operation::update;
            answer.requestID = message.requestID;
            answer.update = PluginRunUpdate{};
            answer.update->phase = PluginRunPhase::succeeded;
            router.receive(answer, to, clock);
            --depth;
        }
    });
    router.setChanged([&] { checkInvariants(router); });

    for (int steps = 0; !bytes.atEnd() && steps < 4096; ++steps) {
        const uint8_t selector = bytes.next();
        const QString& peer = peers[selector & 3];
        if (selector & 0x80) {
            const double now = instant(bytes, clock);
            if (const std::optional<PluginBusMessage> message = decoded(bytes.line()))
                router.receive(*message, peer, now);
            continue;
        }
        switch ((selector >> 2) % 8) {
        case 0:
            router.connect(peer, QStringLiteral("fingerprint-%1").arg(bytes.next() % 2), identity(bytes));
            break;
        case 1:
            router.disconnect(peer);
            break;
        case 2:
            owner([&] { router.approve(identity(bytes), instant(bytes, clock)); });
            break;
        case 3:
            owner([&] { router.cancel(identity(bytes), instant(bytes, clock)); });
            break;
        case 4:
            owner([&] {
                const QList<PluginCatalogEntry> entries = router.exported();
                if (!entries.isEmpty())
                    router.setAllowed(peer, entries[bytes.next() % entries.size()], bytes.next() & 1);
            });
            break;
        case 5:
            router.tick(instant(bytes, clock));
            break;
        default: {
            const double now = instant(bytes, clock);
            router.receive(built(bytes), peer, now);
        }
        }
        checkInvariants(router);
    }
    return 0;
}
