#pragma once

#include "VellHost/ModuleExecution.h"
#include "VellPluginSDK/Modules/InstalledModule.h"
#include "VellPluginSDK/Modules/ModuleFeedEvent.h"
#include "VellPluginSDK/Modules/ModulePackage.h"

#include <QHash>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QStringList>
#include <QUrl>
#include <QUuid>
#include <QVariantList>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <memory>
#include <optional>

class QJSEngine;
class QQmlEngine;

namespace vell {

// The single owner of installed lightweight modules: the file "OstaVell/modules-v1.json",
// the list on screen and the runs in flight. Everything here is on the main thread; only a
// run itself happens elsewhere, and its answer counts only while its generation is current.
//
// Memory and disk never disagree: every change is saved first and assigned only when the
// save succeeded. A file that exists and cannot be read is kept untouched and nothing is
// saved for the rest of the process.
class ModuleStore final : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(ModuleStore)
    QML_SINGLETON

    // Each module as a map: id, name, version, author, summary, enabled, compactActivity,
    // hiddenDisplayIDs, state, configuration, settings, actions, card, page, activity (absent
    // when none) and legacy (a module with a feed, which needs its separate plugin).
    Q_PROPERTY(QVariantList modules READ modulesForViews NOTIFY modulesChanged)
    // Module id to the last failure of that module.
    Q_PROPERTY(QVariantMap errors READ errorsForViews NOTIFY errorsChanged)
    // Ids of the modules with a run in flight, sorted.
    Q_PROPERTY(QStringList running READ runningForViews NOTIFY runningChanged)
    // The store-wide message for the settings screen; empty when there is none.
    Q_PROPERTY(QString notice READ notice NOTIFY noticeChanged)
    Q_PROPERTY(bool storageUnavailable READ storageUnavailable CONSTANT)
    // The package under review (see review()), as a map like a module's plus "access" and
    // "publisher", the two sentences of the review screen; empty when none.
    Q_PROPERTY(QVariantMap reviewed READ reviewed NOTIFY reviewedChanged)
    // The examples offered in the settings: maps of "name" (for reviewExample) and "label".
    Q_PROPERTY(QVariantList examples READ examples CONSTANT)

public:
    static constexpr int maximumModules = 20;
    static constexpr int maximumRunning = 4;
    static constexpr qsizetype maximumFileBytes = 8388608;
    static constexpr int maximumSettingCharacters = 200;
    static constexpr qsizetype maximumEventBytes = 65536;

    // runnerPath empty: modules cannot run, as in an app installed without its runner.
    ModuleStore(QString filePath, QString runnerPath, QObject* parent = nullptr);
    ~ModuleStore() override;
    Q_DISABLE_COPY_MOVE(ModuleStore)

    // $XDG_DATA_HOME/OstaVell/modules-v1.json and the runner beside the app.
    static ModuleStore* instance();
    static ModuleStore* create(QQmlEngine*, QJSEngine*);
    static QString defaultFilePath();
    // The settings pane with the list, the review screen and the cards.
    static QUrl settingsPaneView();

    // Both throw ModuleProblem.
    static ModulePackage readPackage(const QString& path);
    static ModulePackage example(const QString& name);

    const QList<InstalledModule>& modules() const { return m_modules; }
    const QMap<QString, QString>& errors() const { return m_errors; }
    const QSet<QString>& running() const { return m_running; }
    QString notice() const { return m_notice; }
    bool storageUnavailable() const { return m_storageUnavailable; }
    std::optional<InstalledModule> module(const QString& id) const;
    QList<InstalledModule> visible(const QString& displayID) const;

    // Throws ModuleProblem; the message belongs on the review screen.
    void install(const ModulePackage& package);
    Q_INVOKABLE void remove(const QString& id);
    void invoke(const QString& id, const std::optional<QString>& action = std::nullopt,
                const std::optional<ModuleFeedEvent>& event = std::nullopt);
    Q_INVOKABLE void cancel(const QString& id);
    Q_INVOKABLE void configure(const QString& id, const QString& key, const QString& value);
    Q_INVOKABLE void setEnabled(const QString& id, bool enabled);
    Q_INVOKABLE void setVisible(const QString& id, const QString& displayID, bool visible);
    Q_INVOKABLE void setCompact(const QString& id, bool compact);
    void receive(const QString& id, const ModuleFeedEvent& event);

    // At quit: every run's process and the runner's spare are killed at once, and nothing of
    // them is waited for.
    void killAll();

    // Told after a removal, with the removed module's id.
    void setOnRemove(std::function<void(const QString&)> onRemove) { m_onRemove = std::move(onRemove); }

    // For the views. press() is a button, retry() is "Try again".
    Q_INVOKABLE void press(const QString& id, const QString& action) { invoke(id, action); }
    Q_INVOKABLE void retry(const QString& id) { invoke(id); }
    Q_INVOKABLE QVariantList visibleModules(const QString& displayID) const;
    Q_INVOKABLE QString text(const QString& id, const QString& textTemplate) const;
    Q_INVOKABLE double progress(const QString& id, const QString& valueKey) const;
    // The closed-notch line: the activity template, or the legacy text for a module with a
    // feed; empty when the module shows none.
    Q_INVOKABLE QString activityText(const QString& id) const;

    // The review screen: read a chosen file or an example, look at it, then install or
    // cancel. Answers the failure's sentence, or an empty text.
    Q_INVOKABLE QString review(const QUrl& file);
    Q_INVOKABLE QString reviewExample(const QString& name);
    Q_INVOKABLE QString installReviewed();
    Q_INVOKABLE void cancelReview();
    QVariantMap reviewed() const;
    static QVariantList examples();

signals:
    void modulesChanged();
    void errorsChanged();
    void runningChanged();
    void noticeChanged();
    void reviewedChanged();

private:
    void load();
    // The loader's tests of one saved module; throws ModuleProblem.
    static void validateStored(const InstalledModule& module);
    // Empty on success, else the sentence for the user.
    QString persist(const QList<InstalledModule>& modules) const;
    void edit(const QString& id, const std::function<void(InstalledModule&)>& change);
    void finish(const QString& id, const QUuid& generation, const ModuleRunResult& result);
    void drain();
    void release(const QString& id);
    bool runnerUsable() const;
    qsizetype indexOf(const QString& id) const;
    void setError(const QString& id, const QString& message);
    void clearError(const QString& id);
    void setNotice(const QString& notice);
    void setReviewed(std::optional<ModulePackage> package);

    QVariantList modulesForViews() const;
    QVariantMap errorsForViews() const;
    QStringList runningForViews() const;

    const QString m_filePath;
    const QString m_runnerPath;
    std::function<void(const QString&)> m_onRemove;

    QList<InstalledModule> m_modules;
    QMap<QString, QString> m_errors;
    QSet<QString> m_running;
    QString m_notice;
    bool m_storageUnavailable = false;

    QMap<QString, std::shared_ptr<ModuleExecution>> m_jobs;
    QHash<QString, QUuid> m_generations;
    QMap<QString, ModuleFeedEvent> m_pendingEvents;
    std::optional<ModulePackage> m_reviewed;
};

} // namespace vell
