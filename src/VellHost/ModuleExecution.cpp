#include "VellHost/ModuleExecution.h"

#include "VellHost/ChildProcess.h"
#include "VellHost/ModuleRunnerSpares.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Modules/ModulePackage.h"
#include "VellPluginSDK/Modules/ModuleResponse.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QMetaObject>
#include <QPointer>
#include <QThreadPool>

#include <csignal>
#include <cstring>
#include <sys/wait.h>

namespace vell {

namespace {

const QString tooLargeMessage = QStringLiteral("Module request is too large.");
const QString cannotStartMessage =
    QStringLiteral("Module runner could not start. Reinstall the packaged OstaVell app.");
const QString outputLimitMessage = QStringLiteral("Module output exceeded its limit.");
const QString timedOutMessage =
    QStringLiteral("Module took too long and was stopped. Previous state was kept.");
const QString stoppedMessage = QStringLiteral("Module stopped unexpectedly. Previous state was kept.");
const QString unreadableMessage =
    QStringLiteral("Module returned an unreadable response. Previous state was kept.");
const QString noStateMessage = QStringLiteral("Module did not return state.");

} // namespace

ModuleExecution::ModuleExecution(QString executable, double timeout, Launch launch)
    : m_executable(std::move(executable))
    , m_timeout(timeout)
    , m_launch(launch) {}

ModuleExecution::~ModuleExecution() = default;

QString ModuleExecution::defaultRunnerPath() {
    return QDir::cleanPath(QCoreApplication::applicationDirPath() +
                           QStringLiteral("/../libexec/ostavell/VellModuleRunner"));
}

void ModuleExecution::run(const ModuleRequest& request, QObject* context,
                          std::function<void(const ModuleRunResult&)> done) {
    QPointer<QObject> owner(context);
    std::shared_ptr<ModuleExecution> self = shared_from_this();
    ChildProcess::blockingPool()->start([self, request, owner, done = std::move(done)] {
        const ModuleRunResult result = self->runBlocking(request);
        QCoreApplication* application = QCoreApplication::instance();
        if (!application)
            return;
        QMetaObject::invokeMethod(
            application,
            [owner, done, result] {
                if (owner)
                    done(result);
            },
            Qt::QueuedConnection);
    });
}

void ModuleExecution::cancel() {
    std::lock_guard guard(m_lock);
    m_cancelled = true;
    if (m_process)
        m_process->signal(SIGKILL);
}

ModuleRunResult ModuleExecution::runBlocking(const ModuleRequest& request) {
    const QByteArray input = request.encoded();
    if (input.size() > maximumRequestBytes)
        return ModuleRunResult::failed(tooLargeMessage);

    std::shared_ptr<ChildProcess> process;
    {
        std::lock_guard guard(m_lock);
        if (m_cancelled)
            return ModuleRunResult::cancelled();
        process = m_launch == Launch::Spare ? ModuleRunnerSpares::take(m_executable)
                                            : ModuleRunnerSpares::startFresh(m_executable);
        if (!process)
            return ModuleRunResult::failed(cannotStartMessage);
        m_process = process;
    }

    // From the hand-over: a spare that waited long still gets the whole time.
    using Clock = ChildProcess::Clock;
    const Clock::time_point deadline =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(m_timeout));
    const ChildProcess::Exchange exchange = process->exchange(input, maximumOutputBytes, deadline);
    const int status = process->wait();
    bool cancelled = false;
    {
        std::lock_guard guard(m_lock);
        cancelled = m_cancelled;
        m_process.reset();
    }

    using Ending = ChildProcess::Exchange::Ending;
    if (exchange.ending == Ending::Overflowed)
        return ModuleRunResult::failed(outputLimitMessage);
    if (exchange.ending == Ending::ReadFailed)
        return ModuleRunResult::failed(QString::fromLocal8Bit(std::strerror(exchange.readError)));
    if (cancelled)
        return ModuleRunResult::cancelled();
    if (exchange.ending == Ending::TimedOut)
        return ModuleRunResult::failed(timedOutMessage);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return ModuleRunResult::failed(stoppedMessage);

    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(exchange.output, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject())
        return ModuleRunResult::failed(unreadableMessage);
    ModuleResponse response;
    try {
        response = ModuleResponse::fromJson(document.object());
    } catch (const ModuleProblem&) {
        return ModuleRunResult::failed(unreadableMessage);
    }
    if (response.error)
        return ModuleRunResult::failed(*response.error);
    if (!response.state)
        return ModuleRunResult::failed(noStateMessage);
    try {
        ModulePackage::validateState(*response.state);
    } catch (const ModuleProblem& problem) {
        return ModuleRunResult::failed(problem.message());
    }
    return ModuleRunResult::succeeded(*response.state);
}

} // namespace vell
