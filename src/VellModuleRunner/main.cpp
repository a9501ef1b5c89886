#include "VellModuleRunner/ModuleConfinement.h"
#include "VellModuleRunner/ModuleScriptHost.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonParseError>

#include <cerrno>
#include <unistd.h>

using namespace vell;

namespace {

// The host never sends more than this; anything longer is not from the host.
constexpr qsizetype maximumRequestBytes = 458752;

QByteArray readRequest(bool* tooLarge) {
    QByteArray input;
    char chunk[16384];
    for (;;) {
        const ssize_t count = read(STDIN_FILENO, chunk, sizeof chunk);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        input.append(chunk, count);
        if (input.size() > maximumRequestBytes) {
            *tooLarge = true;
            break;
        }
    }
    return input;
}

[[noreturn]] void answer(const ModuleResponse& response) {
    const QByteArray bytes = response.encoded();
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t count = write(STDOUT_FILENO, bytes.constData() + written, bytes.size() - written);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        written += count;
    }
    // Nothing of the runner needs tearing down, and destructors would only be more code run
    // inside the confinement.
    _exit(0);
}

[[noreturn]] void answerError(const QString& message) {
    ModuleResponse response;
    response.error = message;
    answer(response);
}

[[noreturn]] void answerUnconfined(const QString& failure) {
    answerError(QStringLiteral("The module could not be confined, so it was not run (%1).").arg(failure));
}

} // namespace

int main(int argc, char** argv) {
    // The plain Unix event dispatcher starts faster than GLib's, and the runner never loops.
    qputenv("QT_NO_GLIB", "1");
    qputenv("QV4_FORCE_INTERPRETER", "1");
    // Before the engine exists, so that it never plans on code of its own making: scripts
    // and regular expressions alike are interpreted, and the filter can refuse every
    // executable mapping without the engine ever meeting the refusal.
    const QString executableMemory = ModuleConfinement::forbidExecutableMemory();
    if (!executableMemory.isEmpty())
        answerUnconfined(executableMemory);

    // The runner may be started ahead of need: it loads and builds its engine first, then
    // blocks reading its request, holding nothing of any module until it comes.
    QCoreApplication application(argc, argv);
    ModuleScriptHost host;
    host.prepareRealm();

    bool tooLarge = false;
    const QByteArray input = readRequest(&tooLarge);
    if (tooLarge)
        answerError(QStringLiteral("Module request is too large."));

    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(input, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        answerError(QStringLiteral("The module request is not valid JSON: %1").arg(parseError.errorString()));
    ModuleRequest request;
    try {
        request = ModuleRequest::fromJson(document.object());
    } catch (const ModuleProblem& problem) {
        answerError(problem.message());
    }
    host.prepare(request);

    const ModuleConfinement::Result confinement = ModuleConfinement::apply();
    if (!confinement.ok())
        answerUnconfined(confinement.failure);

    answer(host.execute());
}
