#pragma once

#include "OstaVell/Support/NotchTab.h"

#include <QColor>
#include <QObject>
#include <QPointer>
#include <QRectF>
#include <QScreen>
#include <QTimer>
#include <QVariantAnimation>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

class QQuickItem;

namespace vell {

class ShelfPanel;
class SettingsStore;

// One display's panel: its window, whether it is open or pinned, which tab it shows, and
// the timers that turn a hover into an open panel and a departure into a closed one.
class DisplayShelfController final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("One is made per wanted display by the shelf controller")
    Q_PROPERTY(QString displayID READ displayID CONSTANT)
    Q_PROPERTY(QString displayName READ displayName NOTIFY screenChanged)
    Q_PROPERTY(QString appearanceID READ appearanceID NOTIFY screenChanged)
    Q_PROPERTY(bool isExpanded READ isExpanded NOTIFY isExpandedChanged)
    Q_PROPERTY(bool isPinned READ isPinned WRITE setPinned NOTIFY isPinnedChanged)
    Q_PROPERTY(QString tab READ tab WRITE setTab NOTIFY tabChanged)
    // The tool the Automations tab shows: "Workflows", "Notes", "To-dos", "Shortcuts", "Timers"...
    Q_PROPERTY(QString tool READ tool WRITE setTool NOTIFY toolChanged)
    Q_PROPERTY(double wingWidth READ wingWidth WRITE setWingWidth NOTIFY wingWidthChanged)
    Q_PROPERTY(double notchWidth READ notchWidth NOTIFY frameChanged)
    Q_PROPERTY(double contentTopInset READ contentTopInset NOTIFY contentTopInsetChanged)
    Q_PROPERTY(QRectF frame READ frame NOTIFY frameChanged)
    Q_PROPERTY(QRectF outline READ outline NOTIFY outlineChanged)
    Q_PROPERTY(double outlineRadius READ outlineRadius NOTIFY outlineChanged)
    Q_PROPERTY(QVariantMap appearance READ appearance NOTIFY appearanceChanged)
    Q_PROPERTY(QColor accentColor READ accentColor NOTIFY appearanceChanged)
    Q_DISABLE_COPY_MOVE(DisplayShelfController)

public:
    static constexpr double closeWaitSeconds = 0.65;
    static constexpr double minimumHoverDelay = 0.05;
    static constexpr int animationMilliseconds = 180;

    DisplayShelfController(QScreen* screen, SettingsStore* settings, QObject* parent = nullptr);
    ~DisplayShelfController() override;

    QScreen* screen() const { return m_screen; }
    void setScreen(QScreen* screen);
    QString displayID() const { return m_displayID; }
    QString displayName() const;
    QString appearanceID() const { return m_appearanceID; }
    bool isExpanded() const { return m_isExpanded; }
    bool isPinned() const { return m_isPinned; }
    void setPinned(bool pinned);
    // The tab by its raw value, as the views and the defaults know it.
    QString tab() const { return notchTabRaw(m_tab); }
    void setTab(const QString& raw) { setTab(notchTabFromSaved(raw)); }
    NotchTab currentTab() const { return m_tab; }
    void setTab(NotchTab tab);
    QString tool() const { return m_tool; }
    void setTool(const QString& tool);
    double wingWidth() const { return m_wingWidth; }
    // The wider of the two closed wings as measured; only a closed panel follows it.
    void setWingWidth(double width);
    // The gap between the wings: the notch of this screen, drawn or real.
    double notchWidth() const;
    double contentTopInset() const { return m_contentTopInset; }
    // The panel's frame on the desktop, in logical pixels: where the layout puts it.
    QRectF frame() const { return m_frame; }
    // The outline as drawn right now inside the window; it trails `frame` while animating.
    QRectF outline() const { return m_outline.translated(-m_windowRect.topLeft()); }
    double outlineRadius() const;
    QVariantMap appearance() const { return m_appearance; }
    QColor accentColor() const;
    ShelfPanel* panel() const { return m_panel; }
    // Where the open/close machine stands, for observers and tests.
    bool hoverTaskActive() const { return m_hoverTask.isActive(); }

    void setContent(QQuickItem* content);
    void stop();

    Q_INVOKABLE void expand(bool focus);
    Q_INVOKABLE void collapse();
    Q_INVOKABLE void requestSettings(const QString& pane) { emit settingsRequested(pane); }
    void reposition(bool animated);
    void hoverChanged(bool inside);
    void scheduleCollapse();
    bool pointerStillOverVell() const;

    // The first tab of a display, from its saved tab or the defaults.
    static NotchTab initialTab(const QString& savedRaw, bool hasWorkspace, const QString& defaultTabRaw);

signals:
    void screenChanged();
    void isExpandedChanged();
    void isPinnedChanged();
    void tabChanged();
    void toolChanged();
    void wingWidthChanged();
    void contentTopInsetChanged();
    void frameChanged();
    void outlineChanged();
    void appearanceChanged();
    void openHereRequested();
    // The settings window, at the pane of that title ("Modules") when one is named.
    void settingsRequested(const QString& pane);
    void quitRequested();

private:
    enum class HoverTask { None, Open, Close };

    void startHoverTask(HoverTask task, double seconds);
    void cancelHoverTask();
    void onHoverTaskFired();
    bool collapseConditionsHold(bool includePointer) const;
    void onScroll(double delta);
    void setExpanded(bool expanded);
    void applyOutline(const QRectF& outline);
    void setWindowRect(const QRectF& rect);
    void onAnimationFinished();
    bool hasWorkspace() const;

    QPointer<QScreen> m_screen;
    SettingsStore* m_settings;
    QString m_displayID;
    QString m_appearanceID;
    bool m_isExpanded = false;
    bool m_isPinned = false;
    NotchTab m_tab = NotchTab::home;
    QString m_tool;
    double m_wingWidth = 70;
    bool m_wingMeasured = false;
    double m_contentTopInset = 0;
    QRectF m_frame;
    QRectF m_outline;    // desktop coordinates
    QRectF m_windowRect; // desktop coordinates
    QVariantMap m_appearance;
    ShelfPanel* m_panel = nullptr;
    QPointer<QQuickItem> m_content;
    QTimer m_hoverTask;
    HoverTask m_hoverTaskKind = HoverTask::None;
    QVariantAnimation m_animation;
    bool m_pointerInside = false;
    bool m_trackingMenu = false;
    int m_trackingPopovers = 0;
    QList<QMetaObject::Connection> m_menuObservers;
};

} // namespace vell
