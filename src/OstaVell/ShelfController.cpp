#include "OstaVell/ShelfController.h"

#include "OstaVell/DisplayShelfController.h"
#include "OstaVell/Modules/Plugins/NativePluginStore.h"
#include "OstaVell/Modules/Workspace/ModuleStageStore.h"
#include "OstaVell/ShelfPanel.h"
#include "OstaVell/Support/DisplayIdentity.h"
#include "OstaVell/Support/GlobalHotKey.h"
#include "OstaVell/Support/Logging.h"
#include "OstaVell/Support/SettingsStore.h"

#include <QCursor>
#include <QDBusConnection>
#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QScreen>

#include <chrono>

namespace vell {

namespace {
const QString kPanelView = QStringLiteral("qrc:/qt/qml/OstaVell/qml/VellPanelView.qml");
} // namespace

ShelfController::ShelfController(SettingsStore* settings, QObject* parent)
    : QObject(parent)
    , m_settings(settings) {}

ShelfController::~ShelfController() {
    stop();
}

void ShelfController::setEngine(QQmlEngine* engine) {
    m_engine = engine;
}

QVariantList ShelfController::displayList() const {
    QVariantList list;
    for (const DisplayChoice& display : m_displays)
        list << QVariantMap{{QStringLiteral("id"), display.id},
                            {QStringLiteral("name"), display.name},
                            {QStringLiteral("appearanceID"), display.appearanceID}};
    return list;
}

bool ShelfController::anyExpanded() const {
    return std::any_of(m_panels.cbegin(), m_panels.cend(), [](auto* panel) { return panel->isExpanded(); });
}

void ShelfController::setEnabled(bool enabled) {
    if (m_isEnabled == enabled)
        return;
    m_isEnabled = enabled;
    emit isEnabledChanged();
    if (m_started)
        reconcile();
}

void ShelfController::start() {
    if (m_started)
        return;
    m_started = true;

    QPointer<ShelfController> self(this);
    if (QGuiApplication::platformName() == QLatin1String("xcb")) {
        m_hotKey = std::make_unique<GlobalHotKey>([self] {
            if (self)
                self->toggle();
        });
        m_shortcutAvailable = m_hotKey->registered();
        if (!m_shortcutAvailable)
            m_hotKey.reset();
    }
    emit shortcutAvailableChanged();

    m_screenObservers << connect(qApp, &QGuiApplication::screenAdded, this, [this](QScreen* screen) {
        watchScreen(screen);
        screenChanged();
    });
    m_screenObservers << connect(qApp, &QGuiApplication::screenRemoved, this,
                                 &ShelfController::screenChanged);
    m_screenObservers << connect(qApp, &QGuiApplication::primaryScreenChanged, this,
                                 &ShelfController::screenChanged);
    for (QScreen* screen : QGuiApplication::screens())
        watchScreen(screen);
    // Waking from sleep can bring back a different set of screens.
    QDBusConnection::systemBus().connect(
        QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
        QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"), this,
        SLOT(onPrepareForSleep(bool)));

    m_settingsSubscription =
        connect(m_settings, &SettingsStore::changed, this, &ShelfController::scheduleReconcile);
    reconcile();
}

void ShelfController::stop() {
    if (!m_started)
        return;
    m_started = false;
    if (m_hotKey) {
        m_hotKey->unregister();
        m_hotKey.reset();
    }
    const auto panels = std::exchange(m_panels, {});
    for (DisplayShelfController* panel : panels) {
        panel->stop();
        delete panel;
    }
    disconnect(m_settingsSubscription);
    for (const auto& observer : std::as_const(m_screenObservers))
        disconnect(observer);
    m_screenObservers.clear();
    QDBusConnection::systemBus().disconnect(
        QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
        QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"), this,
        SLOT(onPrepareForSleep(bool)));
    emit panelsChanged();
}

void ShelfController::watchScreen(QScreen* screen) {
    m_screenObservers << connect(screen, &QScreen::geometryChanged, this, &ShelfController::screenChanged);
    m_screenObservers << connect(screen, &QScreen::availableGeometryChanged, this,
                                 &ShelfController::screenChanged);
}

void ShelfController::screenChanged() {
    reconcile();
}

void ShelfController::onPrepareForSleep(bool sleeping) {
    if (!sleeping)
        reconcile();
}

void ShelfController::scheduleReconcile() {
    // A burst of settings writes becomes one reconcile on the next turn of the event loop.
    if (m_reconcilePending)
        return;
    m_reconcilePending = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_reconcilePending = false;
            if (m_started)
                reconcile();
        },
        Qt::QueuedConnection);
}

void ShelfController::reconcile() {
    const QList<QScreen*> screens = QGuiApplication::screens();
    QList<DisplayChoice> displays;
    for (QScreen* screen : screens)
        displays << DisplayChoice{DisplayIdentity::id(screen), DisplayIdentity::name(screen),
                                  DisplayIdentity::appearanceID(screen)};
    if (displays != m_displays) {
        m_displays = displays;
        emit displaysChanged();
    }

    // No Linux screen has a camera housing, so the primary is simply the first screen.
    QList<QScreen*> wanted;
    if (m_isEnabled && !screens.isEmpty())
        wanted = m_settings->showOnAllDisplays() ? screens : QList<QScreen*>{screens.first()};

    QStringList wantedIDs;
    for (QScreen* screen : wanted)
        wantedIDs << DisplayIdentity::id(screen);

    bool changed = false;
    for (auto it = m_panels.begin(); it != m_panels.end();) {
        if (wantedIDs.contains(it.key())) {
            ++it;
            continue;
        }
        DisplayShelfController* panel = it.value();
        it = m_panels.erase(it);
        panel->stop();
        panel->deleteLater();
        changed = true;
    }
    for (QScreen* screen : wanted) {
        const QString id = DisplayIdentity::id(screen);
        if (DisplayShelfController* panel = m_panels.value(id)) {
            panel->setScreen(screen);
            panel->reposition(false);
        } else {
            m_panels.insert(id, makePanel(screen));
            changed = true;
        }
    }
    if (changed) {
        emit panelsChanged();
        emit anyExpandedChanged();
    }
}

DisplayShelfController* ShelfController::makePanel(QScreen* screen) {
    auto* panel = new DisplayShelfController(screen, m_settings, this);
    // Start-up is measured to the first frame a panel puts on screen. The line carries the
    // monotonic clock, so that whoever reads it can tell when it was written from when it came.
    static bool firstFrameReported = false;
    if (!firstFrameReported) {
        connect(
            panel->panel(), &QQuickWindow::frameSwapped, this,
            [] {
                if (!std::exchange(firstFrameReported, true)) {
                    const auto now = std::chrono::steady_clock::now().time_since_epoch();
                    qCDebug(lcShelf, "first frame at %lld us on the monotonic clock",
                            qlonglong(std::chrono::duration_cast<std::chrono::microseconds>(now).count()));
                }
            },
            Qt::SingleShotConnection);
    }
    connect(panel, &DisplayShelfController::isExpandedChanged, this, &ShelfController::anyExpandedChanged);
    connect(panel, &DisplayShelfController::openHereRequested, this, [this] { openAtPointer({}, true); });
    connect(panel, &DisplayShelfController::settingsRequested, this, &ShelfController::requestSettings);
    connect(panel, &DisplayShelfController::quitRequested, this, [this] {
        if (quit)
            quit();
    });
    if (m_engine) {
        if (!m_panelComponent)
            m_panelComponent =
                new QQmlComponent(m_engine, QUrl(kPanelView), QQmlComponent::PreferSynchronous, this);
        if (!m_panelComponent->isReady()) {
            qCWarning(lcShelf) << "panel view failed:" << m_panelComponent->errorString();
            return panel;
        }
        QObject* object = m_panelComponent->createWithInitialProperties(
            {{QStringLiteral("controller"), QVariant::fromValue(panel)},
             {QStringLiteral("shelf"), QVariant::fromValue(this)}});
        if (auto* item = qobject_cast<QQuickItem*>(object)) {
            item->setParent(panel);
            panel->setContent(item);
        } else {
            qCWarning(lcShelf) << "panel view failed:" << m_panelComponent->errorString();
            delete object;
        }
    }
    return panel;
}

void ShelfController::open(const QString& displayID) {
    setEnabled(true);
    reconcile();
    if (DisplayShelfController* panel = m_panels.value(displayID))
        panel->expand(true);
}

void ShelfController::presentPlugin(const QString& id) {
    if (!m_isEnabled)
        return;
    const std::optional<NativePluginRecord> record = NativePluginStore::instance()->plugin(id);
    if (!record || !record->enabled)
        return;
    // Among the panels whose workspace shows this plugin, the one under the pointer, else the
    // first by id.
    ModuleStageStore* stage = ModuleStageStore::instance();
    const QString choice = ModuleStageStore::nativePrefix + id;
    const QPoint pointer = QCursor::pos();
    QList<DisplayShelfController*> kept;
    for (DisplayShelfController* panel : std::as_const(m_panels))
        if (!record->hiddenDisplayIDs.contains(panel->appearanceID()) &&
            stage->isVisible(choice, panel->appearanceID()))
            kept.append(panel);
    if (kept.isEmpty())
        return;
    auto target = std::find_if(kept.cbegin(), kept.cend(), [&pointer](DisplayShelfController* panel) {
        return panel->screen() && panel->screen()->geometry().contains(pointer);
    });
    DisplayShelfController* chosen =
        target != kept.cend() ? *target : *std::min_element(kept.cbegin(), kept.cend(), [](auto* a, auto* b) {
            return a->displayID() < b->displayID();
        });
    stage->select(choice, chosen->appearanceID());
    chosen->setTab(NotchTab::home);
    chosen->expand(true);
}

void ShelfController::presentReview() {
    // A run waits for a person for a limited time; with the panels switched off the settings
    // pane is where it is found.
    if (m_isEnabled)
        openAtPointer(notchTabRaw(NotchTab::home), true);
}

void ShelfController::openAtPointer(const QString& tab, bool focus, const QString& tool) {
    setEnabled(true);
    reconcile();
    if (m_panels.isEmpty())
        return;
    const QPoint pointer = QCursor::pos();
    DisplayShelfController* target = m_panels.first();
    for (DisplayShelfController* panel : std::as_const(m_panels)) {
        if (panel->screen() && panel->screen()->geometry().contains(pointer)) {
            target = panel;
            break;
        }
    }
    if (!tab.isEmpty())
        target->setTab(tab);
    if (!tool.isEmpty())
        target->setTool(tool);
    target->expand(focus);
}

void ShelfController::openAll() {
    setEnabled(true);
    reconcile();
    for (DisplayShelfController* panel : std::as_const(m_panels))
        panel->expand(false);
}

void ShelfController::collapse() {
    for (DisplayShelfController* panel : std::as_const(m_panels))
        panel->collapse();
}

void ShelfController::toggle() {
    if (anyExpanded())
        collapse();
    else
        openAtPointer({}, true);
}

void ShelfController::requestSettings(const QString& pane) {
    if (showSettings)
        showSettings(pane);
}

} // namespace vell
