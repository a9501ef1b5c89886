#pragma once

#include "OstaVell/ClosedNotchLadder.h"
#include "OstaVell/DisplayShelfController.h"

#include <QObject>
#include <QPointer>
#include <QTimer>
#include <QtQml/qqmlregistration.h>

namespace vell {

// The closed wings of one panel: which rung holds on each side, decided again whenever one of
// the sources says it changed, and the short-lived events (a battery or Bluetooth event) with
// the task that takes them down. It lives with the closed view, so an event that comes while
// the panel is open is never shown afterwards.
// Not final: QML derives from the types it creates.
class ClosedNotchActivities : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_DISABLE_COPY_MOVE(ClosedNotchActivities)

    Q_PROPERTY(
        DisplayShelfController* controller READ controller WRITE setController NOTIFY controllerChanged)
    Q_PROPERTY(QString left READ left NOTIFY wingsChanged)
    Q_PROPERTY(QString right READ right NOTIFY wingsChanged)
    Q_PROPERTY(QStringList standing READ standing NOTIFY wingsChanged)
    // "battery", "bluetooth" or empty.
    Q_PROPERTY(QString transient READ transient NOTIFY wingsChanged)

public:
    // How long a short-lived event holds its wings.
    static constexpr int transientMilliseconds = 3000;

    explicit ClosedNotchActivities(QObject* parent = nullptr);

    DisplayShelfController* controller() const { return m_controller; }
    void setController(DisplayShelfController* controller);
    QString left() const { return m_left; }
    QString right() const { return m_right; }
    QStringList standing() const { return m_standing; }
    QString transient() const;

    // The last event wins and gets its full time; an earlier one is not brought back.
    void showTransient(WingState::Transient event);
    Q_INVOKABLE void showTransient(const QString& event);

    // The state as the sources tell it now.
    WingState state() const;

signals:
    void controllerChanged();
    void wingsChanged();

private:
    void update();

    QPointer<DisplayShelfController> m_controller;
    WingState::Transient m_transient = WingState::Transient::none;
    WingState::Transient m_shownTransient = WingState::Transient::none;
    QTimer m_transientTask;
    QString m_left;
    QString m_right;
    QStringList m_standing;
};

} // namespace vell
