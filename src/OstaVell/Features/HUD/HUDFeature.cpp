#include "OstaVell/Features/HUD/HUDFeature.h"

#include "OstaVell/Features/HUD/HUDBrightnessManager.h"
#include "OstaVell/Features/HUD/HUDLogging.h"
#include "OstaVell/Features/HUD/HUDVolumeManager.h"
#include "OstaVell/Features/HUD/MediaKeyInterceptor.h"
#include "OstaVell/Features/HUD/PluginVolumeRegistry.h"
#include "OstaVell/Features/HUD/VolumeTargetManager.h"
#include "OstaVell/Support/ShellContributions.h"
#include "VellHost/Plugins/NativePluginSessions.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QHash>

#include <memory>

Q_LOGGING_CATEGORY(lcHUD, "OstaVell HUD", QtInfoMsg)

namespace vell {

void HUDFeature::start(NativePluginSessions& sessions) {
    HUDVolumeManager::instance()->start();
    VolumeTargetManager* volume = VolumeTargetManager::instance();
    connectPlugins(volume->registry(), sessions);
    volume->start();
    HUDBrightnessManager::instance()->start();
    MediaKeyInterceptor::instance()->start();
}

void HUDFeature::offerViews(ShellContributions& shell) {
    const auto view = [](const char* file) {
        return QUrl(QStringLiteral("qrc:/qt/qml/OstaVell/HUD/qml/") + QLatin1String(file));
    };
    shell.offerWing(QStringLiteral("hud.left"), view("HUDWingLeft.qml"));
    shell.offerWing(QStringLiteral("hud.right"), view("HUDWingRight.qml"));
    shell.offerSettingsPane(QStringLiteral("Volume and brightness"), view("HUDSettingsPane.qml"));
}

void HUDFeature::connectPlugins(PluginVolumeRegistry& registry, NativePluginSessions& sessions) {
    registry.deliver = [&sessions](const QString& plugin, const QUuid& session,
                                   const PluginVolumeCommand& command) {
        // A command for a session that has ended is not handed to the next one.
        if (sessions.session(plugin) != session)
            throw ModuleProblem(QStringLiteral("Volume plugin is unavailable."));
        sessions.volumeCommand(plugin, command);
    };
    // The session each plugin's controls were registered under, to end them when it ends.
    auto known = std::make_shared<QHash<QString, QUuid>>();
    QObject::connect(&sessions, &NativePluginSessions::volumeEndpointsChanged, &registry,
                     [&registry, &sessions, known](const QString& plugin) {
                         const QUuid current = sessions.session(plugin);
                         const QUuid previous = known->value(plugin);
                         if (!previous.isNull() && previous != current)
                             registry.disconnect(plugin, previous);
                         if (current.isNull()) {
                             known->remove(plugin);
                             return;
                         }
                         known->insert(plugin, current);
                         const PluginSnapshot snapshot = sessions.snapshots().value(plugin);
                         try {
                             registry.update(
                                 plugin, current,
                                 snapshot.volumeEndpoints.value_or(QList<PluginVolumeEndpoint>()));
                         } catch (const ModuleProblem& problem) {
                             qCInfo(lcHUD).noquote() << plugin + QStringLiteral(": ") + problem.message();
                         }
                     });
    QObject::connect(
        &sessions, &NativePluginSessions::volumeResultReceived, &registry,
        [&registry](const QString& plugin, const QUuid& session, const PluginVolumeResult& result) {
            try {
                registry.receive(plugin, session, result);
            } catch (const ModuleProblem& problem) {
                // A malformed answer confirms nothing; the wait runs on to its end.
                qCInfo(lcHUD).noquote() << plugin + QStringLiteral(": ") + problem.message();
            }
        });
}

} // namespace vell
