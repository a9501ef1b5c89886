#include "OstaVell/AppDelegate.h"

#include "OstaVell/Features/Automations/AutomationStore.h"
#include "OstaVell/Features/HUD/HUDFeature.h"
#include "OstaVell/Features/HUD/HUDVolumeManager.h"
#include "OstaVell/Features/Media/MediaImageProvider.h"
#include "OstaVell/Features/Media/MusicManager.h"
#include "OstaVell/Features/Notes/NotesStore.h"
#include "OstaVell/Features/Shelf/DragDetector.h"
#include "OstaVell/Features/Shelf/ShelfStore.h"
#include "OstaVell/Features/ShortcutsRunner/ShortcutsManager.h"
#include "OstaVell/Features/Timers/TimerManager.h"
#include "OstaVell/Features/Todos/TodosStore.h"
#include "OstaVell/Migrations.h"
#include "OstaVell/Modules/Lightweight/ModuleStore.h"
#include "OstaVell/Modules/Plugins/NativePluginStore.h"
#include "OstaVell/Modules/Plugins/PluginFrameProvider.h"
#include "OstaVell/Modules/Workspace/ModuleStageStore.h"
#include "OstaVell/ShelfController.h"
#include "OstaVell/Support/Accessibility.h"
#include "OstaVell/Support/Logging.h"
#include "OstaVell/Support/SettingsStore.h"
#include "OstaVell/Support/ShellContributions.h"
#include "OstaVell/Support/UserDefaults.h"
#include "OstaVell/VellMenu.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QPointer>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>

namespace vell {

namespace {
const QString kSettingsView = QStringLiteral("qrc:/qt/qml/OstaVell/qml/SettingsWindow.qml");
} // namespace

AppDelegate::AppDelegate(QObject* parent)
    : QObject(parent)
    , m_shelf(new ShelfController(SettingsStore::instance(), this)) {}

AppDelegate::~AppDelegate() {
    applicationWillTerminate();
    delete m_settingsWindow;
    delete m_menu;
}

void AppDelegate::applicationDidFinishLaunching() {
    if (m_launched)
        return;
    m_launched = true;

    Migrations::run(*UserDefaults::instance(), *NotesStore::instance(), QDateTime::currentDateTimeUtc());

    offerViews();

    m_engine = new QQmlEngine(this);
    // Where every module of the app keeps its views; Qt 6.4 does not look there by itself.
    m_engine->addImportPath(QStringLiteral("qrc:/qt/qml"));
    connect(m_engine, &QQmlEngine::quit, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    Accessibility::instance()->startWatchingDesktop();
    // Plugins' video frames, drawn by the plugin views; the engine owns the provider.
    auto* frames = new PluginFrameProvider;
    m_engine->addImageProvider(PluginFrameProvider::name.toString(), frames);
    NativePluginStore::instance()->setFrameSink(
        [frames](QHash<QString, QByteArray> latest) { frames->setFrames(std::move(latest)); });
    m_engine->addImageProvider(MediaImageProvider::name.toString(), new MediaImageProvider);

    // Launch order: plugins (and with them the action router), then automations, then the bus
    // services once they exist, then the panels, then media, calendar, power and HUD services,
    // then the drag watch. Services reach the shell only through these callbacks.
    NativePluginStore* plugins = NativePluginStore::instance();
    const QPointer<ShelfController> shelf(m_shelf);
    plugins->presentPlugin = [shelf](const QString& id) {
        if (shelf)
            shelf->presentPlugin(id);
    };
    plugins->presentReview = [shelf] {
        if (shelf)
            shelf->presentReview();
    };
    plugins->start();

    auto* automations = new AutomationStore(plugins->sessions(), std::nullopt, this);
    AutomationStore::setInstance(automations);
    // A run someone else started is shown where the pointer is, unless the notch is switched off.
    automations->presentRun = [shelf] {
        if (shelf && shelf->isEnabled())
            shelf->openAtPointer(QStringLiteral("Automations"), true);
    };
    automations->start();
    // The saved workflows are choices of every workspace.
    ModuleStageStore* stage = ModuleStageStore::instance();
    stage->setWorkflowSource([automations] {
        QList<ModuleStageStore::Workflow> workflows;
        for (const WorkflowDocument& document : automations->documents())
            workflows.append({document.id, document.title});
        return workflows;
    });
    connect(automations, &AutomationStore::documentsChanged, stage, &ModuleStageStore::workflowsChanged);

    m_shelf->setEngine(m_engine);
    m_shelf->showSettings = [this](const QString& pane) { showSettings(pane); };
    m_shelf->quit = [] { QCoreApplication::quit(); };
    m_shelf->start();

    // The media view's volume slider moves the system's output, and follows it.
    MusicManager* music = MusicManager::instance();
    HUDVolumeManager* output = HUDVolumeManager::instance();
    music->volumeWriter = [output](double level) {
        output->setVolume(float(level), HUDEventSource::internalControl);
    };
    connect(output, &HUDVolumeManager::changed, music,
            [music, output] { music->systemVolumeChangedOutside(output->volume()); });
    music->start();
    HUDFeature::start(plugins->sessions());
    // A countdown that completes opens the panel under the pointer at the timers.
    TimerManager* timers = TimerManager::instance();
    timers->onCountdownFinished = [shelf] {
        if (shelf)
            shelf->openAtPointer(QStringLiteral("Automations"), false, QStringLiteral("Timers"));
    };
    timers->start();

    // Last: a drag of content towards the notch opens the tray where the pointer is.
    DragDetector* drags = DragDetector::instance();
    drags->onDragNearNotch = [shelf] {
        if (shelf)
            shelf->openAtPointer(QStringLiteral("Tray"), false);
    };
    drags->start();

    m_menu = new VellMenu(m_shelf, [this] { showSettings(); });
}

void AppDelegate::offerViews() {
    // What each feature adds to the shell's views, one line a feature.
    ShellContributions* shell = ShellContributions::instance();
    shell->offerSettingsPane(QStringLiteral("Modules"), ModuleStore::settingsPaneView());
    shell->offerSettingsPane(QStringLiteral("Plugins"), NativePluginStore::settingsPaneView());
    ModuleStageStore::offerViews(*shell);
    AutomationStore::offerViews(*shell);
    MusicManager::offerViews(*shell);
    HUDFeature::offerViews(*shell);
    ShelfStore::offerViews(*shell);
    // The tools in the order of their row: after "Workflows", which the automations offer.
    NotesStore::offerViews(*shell);
    TodosStore::offerViews(*shell);
    ShortcutsManager::offerViews(*shell);
    TimerManager::offerViews(*shell);
}

void AppDelegate::applicationWillTerminate() {
    if (!m_launched || m_terminated)
        return;
    m_terminated = true;
    // Shutdown order, waiting for nothing: the automation run, plugins, module runners, unsaved
    // notes, the tray when it is to be cleared at quit, media, the panels.
    qCInfo(lcApp) << "shutdown: cancelling the workflow run";
    AutomationStore::instance()->cancel();
    qCInfo(lcApp) << "shutdown: stopping plugins";
    NativePluginStore::instance()->stop();
    NativePluginStore::instance()->setFrameSink({});
    qCInfo(lcApp) << "shutdown: killing module runners";
    ModuleStore::instance()->killAll();
    if (NotesStore::instance()->dirty()) {
        qCInfo(lcApp) << "shutdown: saving notes";
        NotesStore::instance()->saveNow();
    }
    if (UserDefaults::instance()->boolValue(QString(ShelfStore::clearOnQuitKey),
                                            ShelfStore::clearOnQuitDefault)) {
        qCInfo(lcApp) << "shutdown: clearing the tray";
        ShelfStore::instance()->clear();
    }
    qCInfo(lcApp) << "shutdown: stopping media";
    MusicManager::instance()->stop();
    qCInfo(lcApp) << "shutdown: stopping panels";
    m_shelf->stop();
}

void AppDelegate::showSettings(const QString& pane) {
    if (!m_engine)
        return;
    if (!m_settingsWindow) {
        QQmlComponent component(m_engine, QUrl(kSettingsView), QQmlComponent::PreferSynchronous);
        QObject* object =
            component.createWithInitialProperties({{QStringLiteral("shelf"), QVariant::fromValue(m_shelf)}});
        m_settingsWindow = qobject_cast<QQuickWindow*>(object);
        if (!m_settingsWindow) {
            qCWarning(lcApp) << "settings window failed:" << component.errorString();
            delete object;
            return;
        }
    }
    if (!pane.isEmpty())
        QMetaObject::invokeMethod(m_settingsWindow, "showPane", Q_ARG(QVariant, pane));
    m_settingsWindow->show();
    m_settingsWindow->raise();
    m_settingsWindow->requestActivate();
}

} // namespace vell
