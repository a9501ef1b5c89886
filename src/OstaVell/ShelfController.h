#pragma once

#include <QMap>
#include <QObject>
#include <QPointer>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <memory>

class QScreen;
class QQmlEngine;
class QQmlComponent;

namespace vell {

class DisplayShelfController;
class GlobalHotKey;
class SettingsStore;

// What the menus list for one attached screen.
struct DisplayChoice final {
    QString id;
    QString name;
    QString appearanceID;
    friend bool operator==(const DisplayChoice&, const DisplayChoice&) = default;
};

// Keeps one panel per wanted screen and is the one place that opens and closes them as a
// group. Screens, settings and wake-ups all end in `reconcile`, which must stay cheap.
class ShelfController final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Owned by the application")
    Q_PROPERTY(QVariantList displays READ displayList NOTIFY displaysChanged)
    Q_PROPERTY(bool shortcutAvailable READ shortcutAvailable NOTIFY shortcutAvailableChanged)
    Q_PROPERTY(bool isEnabled READ isEnabled WRITE setEnabled NOTIFY isEnabledChanged)
    Q_PROPERTY(bool anyExpanded READ anyExpanded NOTIFY anyExpandedChanged)
    Q_DISABLE_COPY_MOVE(ShelfController)

public:
    ShelfController(SettingsStore* settings, QObject* parent = nullptr);
    ~ShelfController() override;

    // The engine that builds each panel's view; without one, panels are empty windows.
    void setEngine(QQmlEngine* engine);

    const QList<DisplayChoice>& displays() const { return m_displays; }
    QVariantList displayList() const;
    const QMap<QString, DisplayShelfController*>& panels() const { return m_panels; }
    bool shortcutAvailable() const { return m_shortcutAvailable; }
    bool isEnabled() const { return m_isEnabled; }
    void setEnabled(bool enabled);
    bool anyExpanded() const;

    void start();
    void stop();
    void reconcile();

    Q_INVOKABLE void open(const QString& displayID);
    Q_INVOKABLE void openAtPointer(const QString& tab, bool focus, const QString& tool = {});
    Q_INVOKABLE void openAll();
    // A plugin asks to be shown: its page opens, with focus, on a display that shows it.
    void presentPlugin(const QString& id);
    // A run waits for review: the panel under the pointer opens where the review is.
    void presentReview();
    Q_INVOKABLE void collapse();
    // The hot key's action: close everything if anything is open, otherwise open here.
    Q_INVOKABLE void toggle();
    // The settings window, at one of its panes by title when one is named.
    Q_INVOKABLE void requestSettings(const QString& pane = QString());

    // Asked of the application when a panel's settings button is pressed.
    std::function<void(const QString& pane)> showSettings;
    std::function<void()> quit;

signals:
    void displaysChanged();
    void shortcutAvailableChanged();
    void isEnabledChanged();
    void anyExpandedChanged();
    void panelsChanged();

private slots:
    void onPrepareForSleep(bool sleeping);

private:
    void screenChanged();
    void scheduleReconcile();
    void watchScreen(QScreen* screen);
    DisplayShelfController* makePanel(QScreen* screen);

    SettingsStore* m_settings;
    QList<DisplayChoice> m_displays;
    QMap<QString, DisplayShelfController*> m_panels;
    bool m_shortcutAvailable = false;
    std::unique_ptr<GlobalHotKey> m_hotKey;
    bool m_isEnabled = true;
    bool m_started = false;
    bool m_reconcilePending = false;
    QMetaObject::Connection m_settingsSubscription;
    QList<QMetaObject::Connection> m_screenObservers;
    QPointer<QQmlEngine> m_engine;
    QQmlComponent* m_panelComponent = nullptr;
};

} // namespace vell
