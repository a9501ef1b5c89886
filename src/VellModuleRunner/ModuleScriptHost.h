#pragma once

#include "VellPluginSDK/Modules/ModuleRequest.h"
#include "VellPluginSDK/Modules/ModuleResponse.h"

#include <QJSEngine>
#include <QJSValue>

namespace vell {

// The module's script inside the runner: a bare ECMAScript realm with nothing of the host in
// it. prepareRealm() and prepare() do every piece of work that may touch the system (building
// the engine's built-ins, the time zone, the request's values) so that execute() can run
// behind the confinement with nothing left to open.
class ModuleScriptHost final {
public:
    ModuleScriptHost();
    Q_DISABLE_COPY_MOVE(ModuleScriptHost)

    // Everything that needs no request, so that a runner started ahead of need has it done
    // before the request comes. Holds nothing of any module.
    void prepareRealm();
    // The request's values; after prepareRealm().
    void prepare(const ModuleRequest& request);

    // Evaluates the script as a classic script and calls its global run(request). The
    // answer is the whole new state, or the error that ended the script.
    ModuleResponse execute();

private:
    QJSValue stateObject(const ModuleState& state);
    static ModuleResponse failure(const QString& message);

    QJSEngine m_engine;
    QString m_script;
    QJSValue m_request;
    QJSValue m_invoke;
    QJSValue m_collect;
};

} // namespace vell
