#pragma once

#include <QHash>
#include <QMap>
#include <QObject>
#include <QRectF>
#include <QStringList>
#include <QUuid>
#include <QVariantList>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <optional>

class QJSEngine;
class QQmlEngine;

namespace vell {

class ShellContributions;
class UserDefaults;

// What each display's workspace holds: the one thing on its stage, the order of its rail, what
// the person took off it, and which saved workflows they pinned there. Four tables keyed by the
// display's stable id, each written to the defaults at once on every change. Nothing is ever
// purged: a plugin, module or workflow that goes away keeps its place for the day it returns,
// and every use filters by what is available now.
class ModuleStageStore final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_DISABLE_COPY_MOVE(ModuleStageStore)

    // For views: announced on any change of the tables or of what can be chosen.
    Q_PROPERTY(int revision READ revision NOTIFY changed)

public:
    static const QString selectionsKey;
    static const QString orderKey;
    static const QString hiddenKey;
    static const QString pinnedWorkflowsKey;

    static const QString nativePrefix;
    static const QString localPrefix;
    static const QString builtinPrefix;
    static const QString workflowPrefix;

    // One entry of a workspace: a plugin, a module, a built-in view or a pinned workflow.
    struct Choice {
        QString id;
        QString name;
        QString symbol;
        std::optional<QString> nativeID;
        std::optional<QString> localID;
        std::optional<QString> builtin;
        std::optional<QUuid> workflow;

        QVariantMap toVariantMap() const;
        friend bool operator==(const Choice&, const Choice&) = default;
    };

    // A saved workflow as the rail lists it.
    struct Workflow {
        QUuid id;
        QString title;
    };

    explicit ModuleStageStore(UserDefaults* defaults, QObject* parent = nullptr);

    static ModuleStageStore* instance();
    static ModuleStageStore* create(QQmlEngine*, QJSEngine*);
    // The workspace as the "Vell" tab, and the chosen module's line in the closed notch.
    static void offerViews(ShellContributions& shell);

    static Choice nativeChoice(const QString& pluginID, const QString& name);
    static Choice localChoice(const QString& moduleID, const QString& name);
    static Choice workflowChoice(const Workflow& workflow);
    // "builtin:home", "builtin:media", "builtin:calendar", "builtin:automations", in that order.
    static QList<Choice> builtinChoices();

    int revision() const { return m_revision; }
    QMap<QString, QString> selections() const { return m_selections; }
    QMap<QString, QStringList> order() const { return m_order; }
    QMap<QString, QStringList> hidden() const { return m_hidden; }
    QMap<QString, QStringList> pinnedWorkflows() const { return m_pinnedWorkflows; }

    // The stored selection while it is available, else the first available, else none.
    std::optional<QString> selected(const QString& display, const QStringList& available) const;
    void select(const QString& id, const QString& display);
    // A display with nothing stored gets the first available.
    void reconcile(const QString& display, const QStringList& available);
    // A workflow is off until pinned; everything else is on until hidden.
    bool isVisible(const QString& id, const QString& display) const;
    void setVisible(const QString& id, const QString& display, bool visible);
    // The visible ids of `available`: first in the stored order, then the rest as they come.
    QStringList ordered(const QStringList& available, const QString& display) const;
    void place(const QString& id, const std::optional<QString>& before, const QString& display,
               const QStringList& available);
    void move(const QString& id, int by, const QString& display, const QStringList& available);

    // Where the choices come from. The plugins and modules are read from their stores; the
    // workflows from whoever owns them, which also says when they changed.
    void setWorkflowSource(std::function<QList<Workflow>()> source);
    void workflowsChanged() { announce(); }

    // Everything that could stand in this display's workspace, in the rail's natural order.
    QList<Choice> allChoices(const QString& display) const;
    // The visible ones, in this display's order.
    QList<Choice> choices(const QString& display) const;
    std::optional<Choice> active(const QString& display) const;

    // The same for views, choices as maps of their fields.
    Q_INVOKABLE QVariantList choicesFor(const QString& display) const;
    // Those that are not on this display now, in their natural order.
    Q_INVOKABLE QVariantList addableFor(const QString& display) const;
    Q_INVOKABLE QVariantMap activeFor(const QString& display) const;
    Q_INVOKABLE QString selectionFor(const QString& display) const { return m_selections.value(display); }
    Q_INVOKABLE void choose(const QString& id, const QString& display) { select(id, display); }
    Q_INVOKABLE void show(const QString& id, const QString& display, bool visible);
    Q_INVOKABLE void placeBefore(const QString& id, const QString& before, const QString& display);
    Q_INVOKABLE void moveBy(const QString& id, int by, const QString& display);
    Q_INVOKABLE void reconcileDisplay(const QString& display);
    // The status strip: the active module's activity, or why there is none.
    Q_INVOKABLE QString statusLine(const QString& display) const;
    // The drop zone under a point, from the frames the editor's zones report by key.
    Q_INVOKABLE QString dropTarget(const QPointF& point, const QVariantMap& frames) const;
    static std::optional<QString> dropTarget(const QPointF& point, const QMap<QString, QRectF>& frames);

signals:
    void changed();

private:
    QStringList allIDs(const QString& display) const;
    // What is installed, as far as choices go: ids, names, switched on, hidden where.
    static QStringList installedChoices();
    void writeOrder(const QString& display, const QStringList& arranged);
    void write(const QString& key);
    void announce();
    void load();

    UserDefaults* m_defaults;
    QMap<QString, QString> m_selections;
    QMap<QString, QStringList> m_order;
    QMap<QString, QStringList> m_hidden;
    QMap<QString, QStringList> m_pinnedWorkflows;
    std::function<QList<Workflow>()> m_workflows;
    QStringList m_installed;
    int m_revision = 0;
};

} // namespace vell
