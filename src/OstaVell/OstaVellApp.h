#pragma once

#include <QObject>
#include <QStringList>

namespace vell {

class AppDelegate;
class AppBusService;

// The application object: one delegate, the claim on the session bus that keeps this the
// only instance, and a clean shutdown on SIGINT and SIGTERM.
class OstaVellApp final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(OstaVellApp)

public:
    enum class Request { None, Open, Toggle, Quit };

    OstaVellApp();
    ~OstaVellApp() override;

    // Parses the command line, forwards to a running instance when there is one, and
    // otherwise launches. Returns the exit status, or -1 when the event loop should run.
    int launch(const QStringList& arguments);

    AppDelegate* delegate() const { return m_delegate; }

private:
    void watchTerminationSignals();

    AppDelegate* m_delegate;
    AppBusService* m_bus = nullptr;
};

} // namespace vell
