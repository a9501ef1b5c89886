#include "tools/vellctl/RouterCommands.h"

#include "VellActionRouter/ActionRouter.h"
#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTextStream>

#include <array>
#include <memory>

namespace vell {

namespace {

// One line of a replay script: the instant passed as now, and exactly one thing to do.
struct ReplayStep {
    enum class Kind { connect, disconnect, bus, approve, cancel, allow, tick, restart };

    Kind kind = Kind::tick;
    double at = 0;
    QString peer;
    QString fingerprint;
    QUuid id;
    PluginBusMessage bus;
    PluginCatalogEntry entry;
    bool allowed = false;

    static ReplayStep fromJson(const JsonNode& json) {
        const JsonReader reader(json);
        static constexpr std::array<QStringView, 8> keys{u"connect", u"disconnect", u"from", u"approve",
                                                         u"cancel",  u"allow",      u"tick", u"restart"};
        qsizetype found = -1;
        for (std::size_t i = 0; i < keys.size(); ++i) {
            if (!json.value(keys[i]).isUndefined()) {
                if (found != -1)
                    throw ModuleProblem(QStringLiteral("a step does exactly one thing"));
                found = qsizetype(i);
            }
        }
        if (found == -1)
            throw ModuleProblem(QStringLiteral("unknown step"));
        ReplayStep step;
        step.kind = Kind(found);
        step.at = reader.number(u"at");
        switch (step.kind) {
        case Kind::connect:
            step.peer = reader.string(u"connect");
            step.fingerprint = reader.string(u"fingerprint");
            step.id = reader.uuid(u"session");
            break;
        case Kind::disconnect:
            step.peer = reader.string(u"disconnect");
            break;
        case Kind::bus:
            step.peer = reader.string(u"from");
            step.bus = reader.record<PluginBusMessage>(u"bus");
            break;
        case Kind::approve:
        case Kind::cancel:
            step.id = reader.uuid(keys[found]);
            break;
        case Kind::allow: {
            const AllowJson allow = reader.record<AllowJson>(u"allow");
            step.peer = allow.caller;
            step.entry = allow.entry;
            step.allowed = allow.allowed;
            break;
        }
        case Kind::tick:
        case Kind::restart:
            if (!reader.boolean(keys[found]))
                throw ModuleProblem(u'"' + keys[found].toString() + QStringLiteral("\" must be true"));
            break;
        }
        return step;
    }

private:
    struct AllowJson {
        static AllowJson fromJson(const JsonNode& json) {
            const JsonReader reader(json);
            return {reader.string(u"caller"), reader.record<PluginCatalogEntry>(u"entry"),
                    reader.boolean(u"allowed")};
        }
        QString caller;
        PluginCatalogEntry entry;
        bool allowed;
    };
};

QByteArray compact(const QJsonValue& value) {
    // Through an array, so that a bare string is escaped exactly as inside an object.
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return array.mid(1, array.size() - 2);
}

// Applies the steps of a script in order, printing every delivered message and every refused
// operator action as one JSON line.
class Replay final {
public:
    Replay(std::optional<QString> directory, QTextStream& out)
        : m_directory(std::move(directory))
        , m_out(out) {
        restart();
    }

    void apply(const ReplayStep& step) {
        switch (step.kind) {
        case ReplayStep::Kind::connect:
            m_router->connect(step.peer, step.fingerprint, step.id);
            break;
        case ReplayStep::Kind::disconnect:
            m_router->disconnect(step.peer);
            break;
        case ReplayStep::Kind::bus:
            m_router->receive(step.bus, step.peer, step.at);
            break;
        case ReplayStep::Kind::approve:
            refused([&] { m_router->approve(step.id, step.at); });
            break;
        case ReplayStep::Kind::cancel:
            refused([&] { m_router->cancel(step.id, step.at); });
            break;
        case ReplayStep::Kind::allow:
            refused([&] { m_router->setAllowed(step.peer, step.entry, step.allowed); });
            break;
        case ReplayStep::Kind::tick:
            m_router->tick(step.at);
            break;
        case ReplayStep::Kind::restart:
            restart();
            break;
        }
        m_out.flush();
    }

private:
    // As the application would start again: the old router is gone with all its peers and
    // runs, and a new one reads what the old one left in the directory.
    void restart() {
        m_router.reset();
        m_router = std::make_unique<ActionRouter>(m_directory);
        m_router->setDeliver([this](const QString& peer, const PluginBusMessage& message) {
            m_out << "{\"to\":" << compact(peer) << ",\"bus\":" << message.encoded() << "}\n";
        });
    }

    template <typename F> void refused(F&& operation) {
        try {
            operation();
        } catch (const ModuleProblem& problem) {
            m_out << compact(QJsonObject{{"error", problem.message()}}) << '\n';
        }
    }

    std::optional<QString> m_directory;
    QTextStream& m_out;
    std::unique_ptr<ActionRouter> m_router;
};

// `router replay SCRIPT [--directory DIR]`: runs a script of JSON lines through a fresh router.
// Without a directory nothing is persisted. A line that is no valid step stops the replay.
CommandStatus replay(const QStringList& arguments) {
    std::optional<QString> directory;
    if (arguments.size() == 3 && arguments[1] == QLatin1String("--directory"))
        directory = arguments[2];
    else if (arguments.size() != 1)
        return CommandStatus::usage;
    QTextStream err(stderr);
    QFile file(arguments.first());
    if (!file.open(QIODevice::ReadOnly)) {
        err << "vellctl: " << file.fileName() << ": " << file.errorString() << '\n';
        return CommandStatus::failed;
    }
    QTextStream out(stdout);
    Replay replay(directory, out);
    for (qsizetype number = 1; !file.atEnd(); ++number) {
        const QByteArray line = file.readLine().trimmed();
        if (line.isEmpty())
            continue;
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(line, &error);
        QString problem = error.errorString();
        std::optional<ReplayStep> step;
        if (error.error == QJsonParseError::NoError && !document.isObject())
            problem = QStringLiteral("must be a JSON object");
        if (document.isObject()) {
            try {
                step = ReplayStep::fromJson(document.object());
            } catch (const ModuleProblem& failure) {
                problem = failure.message();
            }
        }
        if (!step) {
            err << "vellctl: " << file.fileName() << ':' << number << ": not a valid step: " << problem
                << '\n';
            return CommandStatus::usage;
        }
        replay.apply(*step);
    }
    return CommandStatus::ok;
}

const std::array subcommands{
    Subcommand{"replay", "SCRIPT [--directory DIR]", &replay},
};

} // namespace

CommandStatus RouterCommands::run(const QStringList& arguments) {
    return runSubcommand(subcommands, arguments);
}

QStringList RouterCommands::usage() {
    return subcommandUsage("router", subcommands);
}

} // namespace vell
