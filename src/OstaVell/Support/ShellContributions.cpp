#include "OstaVell/Support/ShellContributions.h"

#include <QJSEngine>

namespace vell {

ShellContributions::ShellContributions(QObject* parent)
    : QObject(parent) {}

ShellContributions* ShellContributions::instance() {
    static ShellContributions* contributions = new ShellContributions(nullptr);
    return contributions;
}

ShellContributions* ShellContributions::create(QQmlEngine*, QJSEngine*) {
    ShellContributions* contributions = instance();
    QJSEngine::setObjectOwnership(contributions, QJSEngine::CppOwnership);
    return contributions;
}

void ShellContributions::offer(QList<View>& list, View view) {
    for (View& existing : list) {
        if (existing.tab == view.tab && existing.key == view.key) {
            existing = std::move(view);
            return;
        }
    }
    list.append(std::move(view));
}

void ShellContributions::offerTab(NotchTab tab, const QString& tool, const QUrl& view) {
    offer(m_tabs, {tab, tool, view});
    emit changed();
}

void ShellContributions::offerWing(const QString& id, const QUrl& view) {
    offer(m_wings, {NotchTab::home, id, view});
    emit changed();
}

void ShellContributions::offerSettingsPane(const QString& title, const QUrl& view) {
    offer(m_panes, {NotchTab::home, title, view});
    emit changed();
}

void ShellContributions::offerStageView(const QString& choice, const QUrl& view) {
    offer(m_stage, {NotchTab::home, choice, view});
    emit changed();
}

QUrl ShellContributions::wingView(const QString& id) const {
    return find(m_wings, id);
}

QUrl ShellContributions::stageView(const QString& choice) const {
    return find(m_stage, choice);
}

QUrl ShellContributions::find(const QList<View>& list, const QString& key) {
    for (const View& view : list)
        if (view.key == key)
            return view.view;
    return {};
}

QUrl ShellContributions::tabView(const QString& tabRaw, const QString& tool) const {
    const NotchTab tab = notchTabFromSaved(tabRaw);
    for (const View& view : m_tabs) {
        if (view.tab == tab && view.key == tool)
            return view.view;
    }
    return {};
}

QStringList ShellContributions::tools(const QString& tabRaw) const {
    const NotchTab tab = notchTabFromSaved(tabRaw);
    QStringList tools;
    for (const View& view : m_tabs) {
        if (view.tab == tab && !view.key.isEmpty())
            tools.append(view.key);
    }
    return tools;
}

QVariantList ShellContributions::describe(const QList<View>& list, const QString& keyName) {
    QVariantList described;
    for (const View& view : list)
        described.append(QVariantMap{{keyName, view.key}, {QStringLiteral("view"), view.view}});
    return described;
}

QVariantList ShellContributions::settingsPanes() const {
    return describe(m_panes, QStringLiteral("title"));
}

QVariantList ShellContributions::wings() const {
    return describe(m_wings, QStringLiteral("id"));
}

} // namespace vell
