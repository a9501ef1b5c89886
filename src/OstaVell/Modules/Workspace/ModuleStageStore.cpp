#include "OstaVell/Modules/Workspace/ModuleStageStore.h"

#include "OstaVell/Modules/Lightweight/ModuleStore.h"
#include "OstaVell/Modules/Plugins/NativePluginStore.h"
#include "OstaVell/Support/ShellContributions.h"
#include "OstaVell/Support/UserDefaults.h"
#include "VellPluginSDK/Actions/PluginBusMessage.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QQmlEngine>

namespace vell {

const QString ModuleStageStore::selectionsKey = QStringLiteral("modules.activeByDisplay.v1");
const QString ModuleStageStore::orderKey = QStringLiteral("workspace.order.v1");
const QString ModuleStageStore::hiddenKey = QStringLiteral("workspace.hidden.v1");
const QString ModuleStageStore::pinnedWorkflowsKey = QStringLiteral("workspace.workflows.v1");

const QString ModuleStageStore::nativePrefix = QStringLiteral("native:");
const QString ModuleStageStore::localPrefix = QStringLiteral("local:");
const QString ModuleStageStore::builtinPrefix = QStringLiteral("builtin:");
const QString ModuleStageStore::workflowPrefix = QStringLiteral("workflow:");

namespace {

QJsonObject readTable(UserDefaults* defaults, const QString& key) {
    const QJsonDocument document = QJsonDocument::fromJson(defaults->dataValue(key));
    return document.isObject() ? document.object() : QJsonObject();
}

// Entries of the wrong type are left out, one by one: what is readable is kept.
QMap<QString, QStringList> readLists(UserDefaults* defaults, const QString& key) {
    QMap<QString, QStringList> lists;
    const QJsonObject table = readTable(defaults, key);
    for (auto entry = table.begin(); entry != table.end(); ++entry) {
        if (!entry.value().isArray())
            continue;
        QStringList ids;
        for (const QJsonValue& id : entry.value().toArray())
            if (id.isString())
                ids.append(id.toString());
        lists.insert(entry.key(), ids);
    }
    return lists;
}

QStringList without(QStringList list, const QString& id) {
    list.removeAll(id);
    return list;
}

QStringList idsOf(const QList<ModuleStageStore::Choice>& choices) {
    QStringList ids;
    for (const ModuleStageStore::Choice& choice : choices)
        ids.append(choice.id);
    return ids;
}

} // namespace

QVariantMap ModuleStageStore::Choice::toVariantMap() const {
    QVariantMap map{
        {QStringLiteral("id"), id}, {QStringLiteral("name"), name}, {QStringLiteral("symbol"), symbol}};
    if (nativeID)
        map.insert(QStringLiteral("nativeID"), *nativeID);
    if (localID)
        map.insert(QStringLiteral("localID"), *localID);
    if (builtin)
        map.insert(QStringLiteral("builtin"), *builtin);
    if (workflow)
        map.insert(QStringLiteral("workflow"), uuidText(*workflow));
    return map;
}

ModuleStageStore::ModuleStageStore(UserDefaults* defaults, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults) {
    load();
}

ModuleStageStore* ModuleStageStore::instance() {
    static ModuleStageStore* store = [] {
        auto* shared = new ModuleStageStore(UserDefaults::instance());
        // What can be chosen changes with what is installed, and only then: a module saves its
        // state on every run, which changes nothing here and must not rebuild every rail.
        const auto installedChanged = [shared] {
            const QStringList installed = installedChoices();
            if (installed != std::exchange(shared->m_installed, installed))
                shared->announce();
        };
        shared->m_installed = installedChoices();
        connect(NativePluginStore::instance(), &NativePluginStore::pluginsChanged, shared, installedChanged);
        connect(ModuleStore::instance(), &ModuleStore::modulesChanged, shared, installedChanged);
        return shared;
    }();
    return store;
}

QStringList ModuleStageStore::installedChoices() {
    QStringList installed;
    const auto describe = [&installed](const QString& id, const QString& name, bool enabled,
                                       QStringList hidden) {
        hidden.sort();
        installed.append(
            QStringList{id, name, enabled ? u"on"_qs : u"off"_qs, hidden.join(u',')}.join(u'\n'));
    };
    for (const NativePluginRecord& plugin : NativePluginStore::instance()->plugins())
        describe(nativePrefix + plugin.manifest.id, plugin.manifest.name, plugin.enabled,
                 plugin.hiddenDisplayIDs);
    for (const InstalledModule& module : ModuleStore::instance()->modules())
        describe(localPrefix + module.package.id, module.package.name, module.enabled,
                 QStringList(module.hiddenDisplayIDs.cbegin(), module.hiddenDisplayIDs.cend()));
    return installed;
}

void ModuleStageStore::offerViews(ShellContributions& shell) {
    shell.offerTab(NotchTab::home, {},
                   QUrl(QStringLiteral("qrc:/qt/qml/OstaVell/Workspace/qml/ModulesDashboardView.qml")));
    shell.offerWing(QStringLiteral("module.activity"),
                    QUrl(QStringLiteral("qrc:/qt/qml/OstaVell/Workspace/qml/ModuleActivityView.qml")));
}

ModuleStageStore* ModuleStageStore::create(QQmlEngine*, QJSEngine*) {
    ModuleStageStore* store = instance();
    QQmlEngine::setObjectOwnership(store, QQmlEngine::CppOwnership);
    return store;
}

void ModuleStageStore::load() {
    const QJsonObject selections = readTable(m_defaults, selectionsKey);
    for (auto entry = selections.begin(); entry != selections.end(); ++entry)
        if (entry.value().isString())
            m_selections.insert(entry.key(), entry.value().toString());
    m_order = readLists(m_defaults, orderKey);
    m_hidden = readLists(m_defaults, hiddenKey);
    m_pinnedWorkflows = readLists(m_defaults, pinnedWorkflowsKey);
}

void ModuleStageStore::write(const QString& key) {
    QJsonObject table;
    if (key == selectionsKey) {
        for (auto entry = m_selections.cbegin(); entry != m_selections.cend(); ++entry)
            table.insert(entry.key(), entry.value());
    } else {
        const QMap<QString, QStringList>& lists = key == orderKey    ? m_order
                                                  : key == hiddenKey ? m_hidden
                                                                     : m_pinnedWorkflows;
        for (auto entry = lists.cbegin(); entry != lists.cend(); ++entry)
            table.insert(entry.key(), QJsonArray::fromStringList(entry.value()));
    }
    m_defaults->setValue(key, table);
    announce();
}

void ModuleStageStore::announce() {
    ++m_revision;
    emit changed();
}

ModuleStageStore::Choice ModuleStageStore::nativeChoice(const QString& pluginID, const QString& name) {
    return {nativePrefix + pluginID,
            name,
            QStringLiteral("app.connected.to.app.below.fill"),
            pluginID,
            {},
            {},
            {}};
}

ModuleStageStore::Choice ModuleStageStore::localChoice(const QString& moduleID, const QString& name) {
    return {localPrefix + moduleID, name, QStringLiteral("puzzlepiece.extension.fill"), {}, moduleID, {}, {}};
}

ModuleStageStore::Choice ModuleStageStore::workflowChoice(const Workflow& workflow) {
    return {workflowPrefix + uuidText(workflow.id),
            workflow.title,
            QStringLiteral("play.rectangle"),
            {},
            {},
            {},
            workflow.id};
}

QList<ModuleStageStore::Choice> ModuleStageStore::builtinChoices() {
    const auto builtin = [](const QString& name, const QString& title, const QString& symbol) {
        return Choice{builtinPrefix + name, title, symbol, {}, {}, name, {}};
    };
    return {builtin(QStringLiteral("home"), QStringLiteral("Overview"), QStringLiteral("square.grid.2x2")),
            builtin(QStringLiteral("media"), QStringLiteral("Now playing"), QStringLiteral("music.note")),
            builtin(QStringLiteral("calendar"), QStringLiteral("Calendar"), QStringLiteral("calendar")),
            builtin(QStringLiteral("automations"), QStringLiteral("Automations"),
                    QStringLiteral("point.3.connected.trianglepath.dotted"))};
}

std::optional<QString> ModuleStageStore::selected(const QString& display,
                                                  const QStringList& available) const {
    const auto stored = m_selections.constFind(display);
    if (stored != m_selections.cend() && available.contains(*stored))
        return *stored;
    if (!available.isEmpty())
        return available.first();
    return std::nullopt;
}

void ModuleStageStore::select(const QString& id, const QString& display) {
    if (m_selections.value(display) == id && m_selections.contains(display))
        return;
    m_selections.insert(display, id);
    write(selectionsKey);
}

void ModuleStageStore::reconcile(const QString& display, const QStringList& available) {
    if (!m_selections.contains(display) && !available.isEmpty())
        select(available.first(), display);
}

bool ModuleStageStore::isVisible(const QString& id, const QString& display) const {
    if (id.startsWith(workflowPrefix))
        return m_pinnedWorkflows.value(display).contains(id);
    return !m_hidden.value(display).contains(id);
}

void ModuleStageStore::setVisible(const QString& id, const QString& display, bool visible) {
    if (isVisible(id, display) == visible)
        return;
    const bool workflow = id.startsWith(workflowPrefix);
    QMap<QString, QStringList>& table = workflow ? m_pinnedWorkflows : m_hidden;
    // A pinned workflow is listed; any other hidden choice is listed.
    const bool listed = workflow ? visible : !visible;
    QStringList ids = without(table.value(display), id);
    if (listed)
        ids.append(id);
    table.insert(display, ids);
    write(workflow ? pinnedWorkflowsKey : hiddenKey);
}

QStringList ModuleStageStore::ordered(const QStringList& available, const QString& display) const {
    QStringList result;
    for (const QString& id : m_order.value(display))
        if (available.contains(id) && isVisible(id, display) && !result.contains(id))
            result.append(id);
    for (const QString& id : available)
        if (isVisible(id, display) && !result.contains(id))
            result.append(id);
    return result;
}

void ModuleStageStore::writeOrder(const QString& display, const QStringList& arranged) {
    // What is not available now keeps its place behind, for the day it comes back.
    QStringList order = arranged;
    for (const QString& id : m_order.value(display))
        if (!order.contains(id))
            order.append(id);
    if (m_order.value(display) == order && m_order.contains(display))
        return;
    m_order.insert(display, order);
    write(orderKey);
}

void ModuleStageStore::place(const QString& id, const std::optional<QString>& before, const QString& display,
                             const QStringList& available) {
    if (!available.contains(id))
        return;
    if (before && (*before == id || !ordered(available, display).contains(*before)))
        return;
    setVisible(id, display, true);
    QStringList arranged = without(ordered(available, display), id);
    if (before)
        arranged.insert(arranged.indexOf(*before), id);
    else
        arranged.append(id);
    writeOrder(display, arranged);
}

void ModuleStageStore::move(const QString& id, int by, const QString& display, const QStringList& available) {
    QStringList arranged = ordered(available, display);
    const qsizetype index = arranged.indexOf(id);
    const qsizetype neighbour = index + by;
    if (index < 0 || neighbour < 0 || neighbour >= arranged.size() || neighbour == index)
        return;
    arranged.swapItemsAt(index, neighbour);
    writeOrder(display, arranged);
}

void ModuleStageStore::setWorkflowSource(std::function<QList<Workflow>()> source) {
    m_workflows = std::move(source);
    announce();
}

QList<ModuleStageStore::Choice> ModuleStageStore::allChoices(const QString& display) const {
    QList<Choice> all;
    for (const NativePluginRecord& plugin : NativePluginStore::instance()->plugins())
        if (plugin.enabled && !plugin.hiddenDisplayIDs.contains(display))
            all.append(nativeChoice(plugin.manifest.id, plugin.manifest.name));
    for (const InstalledModule& module : ModuleStore::instance()->visible(display))
        all.append(localChoice(module.package.id, module.package.name));
    all.append(builtinChoices());
    if (m_workflows)
        for (const Workflow& workflow : m_workflows())
            all.append(workflowChoice(workflow));
    return all;
}

QStringList ModuleStageStore::allIDs(const QString& display) const {
    return idsOf(allChoices(display));
}

QList<ModuleStageStore::Choice> ModuleStageStore::choices(const QString& display) const {
    const QList<Choice> all = allChoices(display);
    QList<Choice> result;
    for (const QString& id : ordered(idsOf(all), display))
        result.append(*std::find_if(all.cbegin(), all.cend(), [&id](const Choice& c) { return c.id == id; }));
    return result;
}

std::optional<ModuleStageStore::Choice> ModuleStageStore::active(const QString& display) const {
    const QList<Choice> list = choices(display);
    const std::optional<QString> id = selected(display, idsOf(list));
    for (const Choice& choice : list)
        if (id && choice.id == *id)
            return choice;
    return std::nullopt;
}

QVariantList ModuleStageStore::choicesFor(const QString& display) const {
    QVariantList list;
    for (const Choice& choice : choices(display))
        list.append(choice.toVariantMap());
    return list;
}

QVariantList ModuleStageStore::addableFor(const QString& display) const {
    QVariantList list;
    for (const Choice& choice : allChoices(display))
        if (!isVisible(choice.id, display))
            list.append(choice.toVariantMap());
    return list;
}

QVariantMap ModuleStageStore::activeFor(const QString& display) const {
    const std::optional<Choice> choice = active(display);
    return choice ? choice->toVariantMap() : QVariantMap();
}

void ModuleStageStore::show(const QString& id, const QString& display, bool visible) {
    setVisible(id, display, visible);
}

void ModuleStageStore::placeBefore(const QString& id, const QString& before, const QString& display) {
    place(id, before.isEmpty() ? std::nullopt : std::optional<QString>(before), display, allIDs(display));
}

void ModuleStageStore::moveBy(const QString& id, int by, const QString& display) {
    move(id, by, display, allIDs(display));
}

void ModuleStageStore::reconcileDisplay(const QString& display) {
    reconcile(display, idsOf(choices(display)));
}

QString ModuleStageStore::statusLine(const QString& display) const {
    // What the stage shows: the chosen module while it is there, else the first choice.
    const std::optional<Choice> choice = active(display);
    if (choice && choice->localID) {
        if (!ModuleStore::instance()->module(*choice->localID))
            return QStringLiteral("Module unavailable");
        const QString activity = ModuleStore::instance()->activityText(*choice->localID);
        if (!activity.isEmpty())
            return activity;
    }
    return QStringLiteral("Choose your workspace");
}

std::optional<QString> ModuleStageStore::dropTarget(const QPointF& point,
                                                    const QMap<QString, QRectF>& frames) {
    const QRectF railViewport = frames.value(QStringLiteral("viewport:rail"));
    const QRectF tilesViewport = frames.value(QStringLiteral("viewport:tiles"));
    // QMap walks its keys in ascending order.
    for (auto zone = frames.cbegin(); zone != frames.cend(); ++zone) {
        if (zone.key().startsWith(QStringLiteral("viewport:")) || !zone.value().contains(point))
            continue;
        const QRectF& viewport =
            zone.key().startsWith(QStringLiteral("rail:")) ? railViewport : tilesViewport;
        if (viewport.contains(point))
            return zone.key();
    }
    return std::nullopt;
}

QString ModuleStageStore::dropTarget(const QPointF& point, const QVariantMap& frames) const {
    QMap<QString, QRectF> rects;
    for (auto frame = frames.cbegin(); frame != frames.cend(); ++frame)
        rects.insert(frame.key(), frame.value().toRectF());
    return dropTarget(point, rects).value_or(QString());
}

} // namespace vell
