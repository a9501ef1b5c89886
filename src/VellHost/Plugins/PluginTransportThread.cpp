#include "VellHost/Plugins/PluginTransportThread.h"

#include <QThread>

#include <csignal>

namespace vell::PluginTransportThread {

namespace {

class TransportThread final : public QThread {
protected:
    void run() override {
        sigset_t brokenPipe;
        sigemptyset(&brokenPipe);
        sigaddset(&brokenPipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
        exec();
    }
};

} // namespace

QThread* instance() {
    static QThread* thread = [] {
        auto* created = new TransportThread;
        created->setObjectName(QStringLiteral("OstaVell.plugin.io"));
        created->start();
        return created;
    }();
    return thread;
}

} // namespace vell::PluginTransportThread
