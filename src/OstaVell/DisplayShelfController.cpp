#include "OstaVell/DisplayShelfController.h"

#include "OstaVell/Modules/Lightweight/ModuleStore.h"
#include "OstaVell/Modules/Plugins/NativePluginStore.h"
#include "OstaVell/Modules/Workspace/ModuleStageStore.h"
#include "OstaVell/ShelfPanel.h"
#include "OstaVell/Support/Accessibility.h"
#include "OstaVell/Support/ColorHex.h"
#include "OstaVell/Support/DisplayIdentity.h"
#include "OstaVell/Support/Logging.h"
#include "OstaVell/Support/MenuTracking.h"
#include "OstaVell/Support/SettingsStore.h"
#include "OstaVell/Support/UserDefaults.h"
#include "VellCore/ModuleStageGeometry.h"
#include "VellCore/NotchGeometry.h"
#include "VellCore/ShelfGeometry.h"

#include <QCursor>
#include <QQuickItem>
#include <QScreen>

namespace vell {

namespace {
const QString kLastTabPrefix = QStringLiteral("display.lastTab.");
const QString kLastToolPrefix = QStringLiteral("display.lastTool.");
const QString kDefaultTool = QStringLiteral("Workflows");
constexpr double kScrollThreshold = 12;
// The closed handle that still counts as "over the vell" is measured with these fixed sizes,
// whatever the display's own appearance.
constexpr double kHandleOpenWidth = 620;
constexpr double kHandleOpenHeight = 264;
constexpr double kMinimumWingWidth = 40;

bool isStageTab(NotchTab tab) {
    return tab == NotchTab::home || tab == NotchTab::modules;
}
} // namespace

DisplayShelfController::DisplayShelfController(QScreen* screen, SettingsStore* settings, QObject* parent)
    : QObject(parent)
    , m_screen(screen)
    , m_settings(settings)
    , m_displayID(DisplayIdentity::id(screen))
    , m_appearanceID(DisplayIdentity::appearanceID(screen)) {
    m_hoverTask.setSingleShot(true);
    connect(&m_hoverTask, &QTimer::timeout, this, &DisplayShelfController::onHoverTaskFired);
    m_animation.setDuration(animationMilliseconds);
    m_animation.setEasingCurve(QEasingCurve::OutCubic);
    connect(&m_animation, &QVariantAnimation::valueChanged, this,
            [this](const QVariant& value) { applyOutline(value.toRectF()); });
    connect(&m_animation, &QVariantAnimation::finished, this, &DisplayShelfController::onAnimationFinished);

    const QString saved = UserDefaults::instance()->stringValue(kLastTabPrefix + m_appearanceID);
    m_tab = initialTab(saved, hasWorkspace(), m_settings->defaultTabRaw());
    m_tool = UserDefaults::instance()->stringValue(kLastToolPrefix + m_appearanceID, kDefaultTool);
    // The old "Google" tab lives on as a choice of the stage.
    if (saved == u"Google")
        ModuleStageStore::instance()->select(QStringLiteral("builtin:google"), m_appearanceID);

    m_panel = new ShelfPanel(QStringLiteral("OstaVell — ") + displayName());
    connect(m_panel, &ShelfPanel::hoverChanged, this, &DisplayShelfController::hoverChanged);
    connect(m_panel, &ShelfPanel::scrolled, this, &DisplayShelfController::onScroll);
    connect(m_panel, &ShelfPanel::escapePressed, this, &DisplayShelfController::collapse);
    connect(m_panel, &ShelfPanel::openHereRequested, this, &DisplayShelfController::openHereRequested);
    connect(m_panel, &ShelfPanel::quitRequested, this, &DisplayShelfController::quitRequested);
    connect(m_panel, &QWindow::activeChanged, this, [this] {
        if (!m_panel->isActive())
            scheduleCollapse();
    });

    MenuTracking* tracking = MenuTracking::instance();
    m_menuObservers << connect(tracking, &MenuTracking::menuBegan, this, [this] {
        m_trackingMenu = true;
        cancelHoverTask();
    });
    m_menuObservers << connect(tracking, &MenuTracking::menuEnded, this, [this] {
        m_trackingMenu = false;
        scheduleCollapse();
    });
    m_menuObservers << connect(tracking, &MenuTracking::popoverShown, this, [this] {
        ++m_trackingPopovers;
        cancelHoverTask();
    });
    m_menuObservers << connect(tracking, &MenuTracking::popoverClosed, this, [this] {
        m_trackingPopovers = std::max(0, m_trackingPopovers - 1);
        scheduleCollapse();
    });

    reposition(false);
}

DisplayShelfController::~DisplayShelfController() {
    stop();
    delete m_panel;
}

NotchTab DisplayShelfController::initialTab(const QString& savedRaw, bool hasWorkspace,
                                            const QString& defaultTabRaw) {
    if (!savedRaw.isNull())
        return notchTabFromSaved(savedRaw);
    return hasWorkspace ? NotchTab::home : notchTabFromSaved(defaultTabRaw);
}

bool DisplayShelfController::hasWorkspace() const {
    for (const NativePluginRecord& plugin : NativePluginStore::instance()->plugins())
        if (plugin.enabled && !plugin.hiddenDisplayIDs.contains(m_appearanceID))
            return true;
    return !ModuleStore::instance()->visible(m_appearanceID).isEmpty();
}

void DisplayShelfController::setWingWidth(double width) {
    // The first measurement comes as the panel is built: it takes its size at once.
    const bool first = !std::exchange(m_wingMeasured, true);
    if (m_wingWidth == width)
        return;
    m_wingWidth = width;
    emit wingWidthChanged();
    if (!m_isExpanded)
        reposition(!first);
}

double DisplayShelfController::notchWidth() const {
    return m_screen ? NotchGeometry::forScreen(DisplayIdentity::reading(m_screen)).width : 0;
}

void DisplayShelfController::setScreen(QScreen* screen) {
    if (m_screen == screen)
        return;
    m_screen = screen;
    m_appearanceID = DisplayIdentity::appearanceID(screen);
    m_panel->setTitle(QStringLiteral("OstaVell — ") + displayName());
    emit screenChanged();
}

QString DisplayShelfController::displayName() const {
    return m_screen ? DisplayIdentity::name(m_screen) : m_displayID;
}

double DisplayShelfController::outlineRadius() const {
    const double corner = m_appearance.value(QStringLiteral("cornerRadius"), 24).toDouble();
    return std::max(0.0, std::min({corner, m_outline.height() / 2, m_outline.width() / 2}));
}

QColor DisplayShelfController::accentColor() const {
    return colorFromHex(m_appearance.value(QStringLiteral("accentHex")).toString());
}

void DisplayShelfController::setContent(QQuickItem* content) {
    m_content = content;
    content->setParentItem(m_panel->contentItem());
}

void DisplayShelfController::stop() {
    for (const auto& observer : std::as_const(m_menuObservers))
        disconnect(observer);
    m_menuObservers.clear();
    cancelHoverTask();
    m_animation.stop();
    // The view goes before the controller it binds to, or its bindings see a null controller.
    delete m_content;
    if (m_panel)
        m_panel->close();
}

void DisplayShelfController::setPinned(bool pinned) {
    if (m_isPinned != pinned) {
        m_isPinned = pinned;
        emit isPinnedChanged();
    }
    if (pinned)
        cancelHoverTask();
    else
        scheduleCollapse();
}

void DisplayShelfController::setTab(NotchTab tab) {
    UserDefaults::instance()->setValue(kLastTabPrefix + m_appearanceID, notchTabRaw(tab));
    if (m_tab != tab) {
        m_tab = tab;
        emit tabChanged();
    }
    if (m_isExpanded)
        reposition(true);
}

void DisplayShelfController::setTool(const QString& tool) {
    const QString chosen = tool.isEmpty() ? kDefaultTool : tool;
    if (m_tool == chosen)
        return;
    UserDefaults::instance()->setValue(kLastToolPrefix + m_appearanceID, chosen);
    m_tool = chosen;
    emit toolChanged();
}

void DisplayShelfController::setExpanded(bool expanded) {
    if (m_isExpanded == expanded)
        return;
    m_isExpanded = expanded;
    emit isExpandedChanged();
}

void DisplayShelfController::expand(bool focus) {
    qCDebug(lcShelf) << displayName() << "expand, focus" << focus;
    cancelHoverTask();
    // Haptic feedback has no counterpart on Linux desktops.
    setExpanded(true);
    reposition(true);
    m_panel->show();
    m_panel->raise();
    if (focus)
        m_panel->takeKey();
}

void DisplayShelfController::collapse() {
    qCDebug(lcShelf) << displayName() << "collapse";
    cancelHoverTask();
    setExpanded(false);
    if (m_isPinned) {
        m_isPinned = false;
        emit isPinnedChanged();
    }
    m_panel->resignKey();
    reposition(true);
}

void DisplayShelfController::hoverChanged(bool inside) {
    qCDebug(lcShelf) << displayName() << (inside ? "pointer entered" : "pointer left");
    m_pointerInside = inside;
    cancelHoverTask();
    if (!inside) {
        scheduleCollapse();
        return;
    }
    if (!m_settings->openOnHover() || m_isExpanded)
        return;
    startHoverTask(HoverTask::Open, std::max(m_settings->hoverDelay(), minimumHoverDelay));
}

void DisplayShelfController::onScroll(double delta) {
    if (delta < -kScrollThreshold)
        expand(false);
    else if (delta > kScrollThreshold)
        collapse();
}

bool DisplayShelfController::collapseConditionsHold(bool includePointer) const {
    return m_isExpanded && !(includePointer && m_pointerInside) && !m_isPinned && !m_panel->isActive() &&
           !m_trackingMenu && m_trackingPopovers == 0;
}

void DisplayShelfController::scheduleCollapse() {
    if (!collapseConditionsHold(true))
        return;
    startHoverTask(HoverTask::Close, closeWaitSeconds);
}

void DisplayShelfController::startHoverTask(HoverTask task, double seconds) {
    m_hoverTaskKind = task;
    m_hoverTask.start(qRound(seconds * 1000));
}

void DisplayShelfController::cancelHoverTask() {
    m_hoverTask.stop();
    m_hoverTaskKind = HoverTask::None;
}

void DisplayShelfController::onHoverTaskFired() {
    const HoverTask task = std::exchange(m_hoverTaskKind, HoverTask::None);
    switch (task) {
    case HoverTask::Open:
        if (!m_pointerInside)
            break;
        // A display with a chosen stage always opens on it.
        if (ModuleStageStore::instance()->selections().contains(m_appearanceID))
            setTab(NotchTab::home);
        expand(false);
        break;
    case HoverTask::Close:
        // Whoever lifts a failed condition calls scheduleCollapse again.
        if (!collapseConditionsHold(false))
            break;
        if (pointerStillOverVell())
            startHoverTask(HoverTask::Close, closeWaitSeconds);
        else
            collapse();
        break;
    case HoverTask::None:
        break;
    }
}

bool DisplayShelfController::pointerStillOverVell() const {
    if (!m_screen)
        return m_pointerInside;
    const NotchGeometry::ScreenReading reading = DisplayIdentity::reading(m_screen);
    const NotchGeometry notch = NotchGeometry::forScreen(reading);
    const ShelfLayout closed =
        ShelfGeometry::layout(reading.frame, reading.safeTop, notch.width, false, kHandleOpenWidth,
                              kHandleOpenHeight, std::max(m_wingWidth, kMinimumWingWidth), std::nullopt, 0);
    // The open frame itself, not the outline: while the opening animation runs the outline is
    // smaller than the panel it is becoming, and a pointer already inside that panel stays.
    return ShelfGeometry::keepsHoverOpen(m_pointerInside, QCursor::pos(m_screen), m_frame, closed.frame);
}

void DisplayShelfController::reposition(bool animated) {
    if (!m_screen)
        return;
    const VellAppearance appearance = m_settings->appearance(m_appearanceID);
    const QVariantMap appearanceMap = appearance.toVariantMap();
    if (appearanceMap != m_appearance) {
        m_appearance = appearanceMap;
        emit appearanceChanged();
    }

    const NotchGeometry::ScreenReading reading = DisplayIdentity::reading(m_screen);
    const double menuBar = DisplayIdentity::menuBarHeight(m_screen);
    const double inset =
        ShelfGeometry::expandedTopInset(reading.frame, reading.visibleFrame, reading.safeTop, menuBar);
    const QSizeF stage = ModuleStageGeometry::size(reading.frame.size(), inset, appearance.width);
    const QSizeF open = isStageTab(m_tab) ? stage : QSizeF(appearance.width, appearance.height);
    const NotchGeometry notch = NotchGeometry::forScreen(reading);
    const ShelfLayout layout = ShelfGeometry::layout(
        reading.frame, reading.safeTop, notch.width, m_isExpanded, open.width(), open.height(),
        std::max(m_wingWidth, kMinimumWingWidth), reading.visibleFrame, menuBar);

    if (m_contentTopInset != layout.contentTopInset) {
        m_contentTopInset = layout.contentTopInset;
        emit contentTopInsetChanged();
    }
    m_panel->setFloating(!m_isExpanded);
    if (m_frame != layout.frame) {
        m_frame = layout.frame;
        emit frameChanged();
    }

    const bool animate = animated && !Accessibility::instance()->reduceMotion() && m_panel->isVisible() &&
                         !m_outline.isEmpty() && m_outline != m_frame;
    if (animate) {
        // The window grows once to hold both outlines and the outline moves inside it, so
        // the window itself is never resized frame by frame.
        const QRectF from = m_outline;
        m_animation.stop();
        setWindowRect(m_windowRect.united(m_frame));
        m_animation.setStartValue(from);
        m_animation.setEndValue(m_frame);
        m_animation.start();
    } else {
        m_animation.stop();
        setWindowRect(m_frame);
        applyOutline(m_frame);
    }
    if (!m_panel->isVisible())
        m_panel->show();
}

void DisplayShelfController::onAnimationFinished() {
    setWindowRect(m_frame);
    applyOutline(m_frame);
}

void DisplayShelfController::setWindowRect(const QRectF& rect) {
    if (m_windowRect == rect)
        return;
    m_windowRect = rect;
    m_panel->setGeometry(rect.toAlignedRect());
    if (!m_outline.isEmpty())
        applyOutline(m_outline);
}

void DisplayShelfController::applyOutline(const QRectF& outline) {
    m_outline = outline;
    m_panel->setOutline(outline.translated(-m_windowRect.topLeft()), outlineRadius());
    emit outlineChanged();
}

} // namespace vell
