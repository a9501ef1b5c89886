#pragma once

#include <QObject>

namespace vell {

class ShelfController;

// The running instance on the session bus. A second launch finds the name taken and
// forwards its request here instead of starting a second set of panels.
class AppBusService final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "app.ostavell.OstaVell")
    Q_DISABLE_COPY_MOVE(AppBusService)

public:
    static constexpr const char* serviceName = "app.ostavell.OstaVell";
    static constexpr const char* objectPath = "/app/ostavell/OstaVell";

    explicit AppBusService(ShelfController* shelf, QObject* parent = nullptr);

    // Exports the object and takes the name; false when another instance holds it.
    bool claim();
    // Sends one of Open, OpenAll, Collapse, Toggle or Quit to the running instance.
    static bool forward(const QString& method, QString* error);

public slots:
    Q_SCRIPTABLE void Open();
    Q_SCRIPTABLE void OpenAll();
    Q_SCRIPTABLE void Collapse();
    Q_SCRIPTABLE void Toggle();
    Q_SCRIPTABLE void Quit();

private:
    ShelfController* m_shelf;
};

} // namespace vell
