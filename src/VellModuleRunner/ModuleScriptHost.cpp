#include "VellModuleRunner/ModuleScriptHost.h"

namespace vell {

namespace {

// Taken from the pristine realm before the script can replace Error, String or Object.
// The script's answer and its failures are read through these alone.
const char* const invokeSource = R"JS(
(function (ErrorType, toText) {
    return function (run, request) {
        try {
            return { ok: true, value: run(request) };
        } catch (thrown) {
            var message;
            try {
                message = thrown instanceof ErrorType ? toText(thrown.message) : toText(thrown);
            } catch (unprintable) {
                message = "The module script failed.";
            }
            return { ok: false, error: message };
        }
    };
})(Error, String)
)JS";

const char* const collectSource = R"JS(
(function (getPrototype, objectPrototype, ownKeys, createEmpty, toText) {
    return function (value) {
        if (value === null || typeof value !== "object")
            return { ok: false, error: "run must return the whole new state as an object." };
        var prototype = getPrototype(value);
        if (prototype !== objectPrototype && prototype !== null)
            return { ok: false, error: "run must return the whole new state as an object." };
        var keys = ownKeys(value);
        var state = createEmpty(null);
        for (var i = 0; i < keys.length; ++i) {
            var key = keys[i];
            var item = value[key];
            var kind = typeof item;
            if (kind === "string")
                state[key] = item;
            else if (kind === "number" || kind === "boolean")
                state[key] = toText(item);
            else
                return { ok: false, error: "State value \"" + key + "\" must be text, a number or a boolean." };
        }
        return { ok: true, state: state };
    };
})(Object.getPrototypeOf, Object.prototype, Object.keys, Object.create, String)
)JS";

} // namespace

ModuleScriptHost::ModuleScriptHost() = default;

void ModuleScriptHost::prepareRealm() {
    // Web additions of the engine; a module's realm holds ECMAScript's built-ins alone.
    QJSValue global = m_engine.globalObject();
    global.deleteProperty(QStringLiteral("URL"));
    global.deleteProperty(QStringLiteral("URLSearchParams"));

    m_invoke = m_engine.evaluate(QString::fromLatin1(invokeSource));
    m_collect = m_engine.evaluate(QString::fromLatin1(collectSource));

    // The C library reads the time zone file on the first local-time conversion; doing it
    // here keeps that one open() out of the confined part, where it would fail.
    m_engine.evaluate(QStringLiteral("new Date(0).toString(); new Date().getTimezoneOffset();"));
}

void ModuleScriptHost::prepare(const ModuleRequest& request) {
    m_script = request.package.script;
    m_request = m_engine.newObject();
    m_request.setProperty(QStringLiteral("state"), stateObject(request.state));
    m_request.setProperty(QStringLiteral("configuration"), stateObject(request.configuration));
    if (request.action)
        m_request.setProperty(QStringLiteral("action"), *request.action);
    if (request.event) {
        QJSValue event = m_engine.newObject();
        event.setProperty(QStringLiteral("feedID"), request.event->feedID);
        event.setProperty(QStringLiteral("json"), request.event->json);
        m_request.setProperty(QStringLiteral("event"), event);
    }
}

ModuleResponse ModuleScriptHost::execute() {
    // A stack trace is the engine's only sign that the script threw something that is not
    // an Error object.
    QStringList thrownTrace;
    const QJSValue evaluated = m_engine.evaluate(m_script, QStringLiteral("module.js"), 1, &thrownTrace);
    if (evaluated.isError())
        return failure(evaluated.property(QStringLiteral("message")).toString());
    if (!thrownTrace.isEmpty())
        return failure(evaluated.toString());

    const QJSValue run = m_engine.globalObject().property(QStringLiteral("run"));
    if (!run.isCallable())
        return failure(QStringLiteral("The module script defines no run function."));

    const QJSValue outcome = m_invoke.call({run, m_request});
    if (!outcome.property(QStringLiteral("ok")).toBool())
        return failure(outcome.property(QStringLiteral("error")).toString());

    const QJSValue collected = m_collect.call({outcome.property(QStringLiteral("value"))});
    if (collected.isError())
        return failure(collected.property(QStringLiteral("message")).toString());
    if (!collected.property(QStringLiteral("ok")).toBool())
        return failure(collected.property(QStringLiteral("error")).toString());

    ModuleState state;
    const QJSValue values = collected.property(QStringLiteral("state"));
    const QVariantMap map = values.toVariant().toMap();
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        state.insert(it.key(), it.value().toString());
    ModuleResponse response;
    response.state = std::move(state);
    return response;
}

QJSValue ModuleScriptHost::stateObject(const ModuleState& state) {
    QJSValue object = m_engine.newObject();
    for (auto it = state.cbegin(); it != state.cend(); ++it)
        object.setProperty(it.key(), it.value());
    return object;
}

ModuleResponse ModuleScriptHost::failure(const QString& message) {
    ModuleResponse response;
    response.error = message;
    return response;
}

} // namespace vell
