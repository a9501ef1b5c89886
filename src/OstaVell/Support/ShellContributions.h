#pragma once

#include "OstaVell/Support/NotchTab.h"

#include <QList>
#include <QObject>
#include <QStringList>
#include <QUrl>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

class QJSEngine;
class QQmlEngine;

namespace vell {

// What the features offer the shell's views: their tab content, their closed-notch wing and
// their settings pane, each as a QML view of the feature's own module. The shell's views ask
// here instead of naming any feature, so a feature joins without the shell being edited.
// Offers are made once at launch, before the first panel is built.
class ShellContributions final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_DISABLE_COPY_MOVE(ShellContributions)

    // [{title, view}] in the order offered.
    Q_PROPERTY(QVariantList settingsPanes READ settingsPanes NOTIFY changed)
    // [{id, view}] in the order offered.
    Q_PROPERTY(QVariantList wings READ wings NOTIFY changed)

public:
    struct View {
        NotchTab tab = NotchTab::home;
        QString key; // the tool within a tab, the wing's id, or the pane's title
        QUrl view;
    };

    // No default: QML would make its own instance from one instead of asking create().
    explicit ShellContributions(QObject* parent);

    static ShellContributions* instance();
    static ShellContributions* create(QQmlEngine*, QJSEngine*);

    // The content of a tab, or of one tool within it (tool empty for the whole tab). A later
    // offer for the same place replaces the earlier one.
    void offerTab(NotchTab tab, const QString& tool, const QUrl& view);
    void offerWing(const QString& id, const QUrl& view);
    void offerSettingsPane(const QString& title, const QUrl& view);
    // What the workspace stage shows for a built-in choice ("builtin:media") or for every
    // pinned workflow ("workflow"). A choice nobody offers shows its empty state.
    void offerStageView(const QString& choice, const QUrl& view);

    // The view offered for that place; empty when none, and the shell shows its own.
    Q_INVOKABLE QUrl tabView(const QString& tabRaw, const QString& tool = QString()) const;
    // The tools offered within a tab, in the order offered.
    Q_INVOKABLE QStringList tools(const QString& tabRaw) const;
    // The view of one closed-notch wing, by the id it was offered under; empty when none.
    Q_INVOKABLE QUrl wingView(const QString& id) const;
    Q_INVOKABLE QUrl stageView(const QString& choice) const;
    QVariantList settingsPanes() const;
    QVariantList wings() const;

signals:
    void changed();

private:
    static void offer(QList<View>& list, View view);
    static QUrl find(const QList<View>& list, const QString& key);
    static QVariantList describe(const QList<View>& list, const QString& keyName);

    QList<View> m_tabs;
    QList<View> m_wings;
    QList<View> m_panes;
    QList<View> m_stage;
};

} // namespace vell
