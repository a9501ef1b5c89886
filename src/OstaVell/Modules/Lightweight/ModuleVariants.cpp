#include "OstaVell/Modules/Lightweight/ModuleVariants.h"

#include <QStringList>
#include <QVariantList>

#include <algorithm>

namespace vell::ModuleVariants {

namespace {

QString kindName(ModuleComponent::Kind kind) {
    switch (kind) {
    case ModuleComponent::Kind::text:
        return QStringLiteral("text");
    case ModuleComponent::Kind::heading:
        return QStringLiteral("heading");
    case ModuleComponent::Kind::badge:
        return QStringLiteral("badge");
    case ModuleComponent::Kind::progress:
        return QStringLiteral("progress");
    case ModuleComponent::Kind::button:
        return QStringLiteral("button");
    }
    return QStringLiteral("text");
}

QVariantList components(const QList<ModuleComponent>& components) {
    QVariantList list;
    for (const ModuleComponent& component : components) {
        QVariantMap item{{QStringLiteral("id"), component.id},
                         {QStringLiteral("kind"), kindName(component.kind)},
                         {QStringLiteral("text"), component.text}};
        if (component.valueKey)
            item.insert(QStringLiteral("valueKey"), *component.valueKey);
        if (component.action)
            item.insert(QStringLiteral("action"), *component.action);
        list.append(item);
    }
    return list;
}

} // namespace

QVariantMap state(const ModuleState& state) {
    QVariantMap map;
    for (auto it = state.cbegin(); it != state.cend(); ++it)
        map.insert(it.key(), it.value());
    return map;
}

QVariantMap package(const ModulePackage& package) {
    QVariantList settings;
    for (const ModuleSetting& setting : package.settings)
        settings.append(QVariantMap{{QStringLiteral("id"), setting.id},
                                    {QStringLiteral("label"), setting.label},
                                    {QStringLiteral("defaultValue"), setting.defaultValue}});
    QVariantList actions;
    for (const ModuleAction& action : package.actions)
        actions.append(
            QVariantMap{{QStringLiteral("id"), action.id}, {QStringLiteral("label"), action.label}});

    QVariantMap map{{QStringLiteral("id"), package.id},
                    {QStringLiteral("name"), package.name},
                    {QStringLiteral("version"), package.version},
                    {QStringLiteral("author"), package.author},
                    {QStringLiteral("summary"), package.summary},
                    {QStringLiteral("settings"), settings},
                    {QStringLiteral("actions"), actions},
                    {QStringLiteral("card"), components(package.card)},
                    {QStringLiteral("page"), components(package.page)},
                    {QStringLiteral("legacy"), package.feeds && !package.feeds->isEmpty()}};
    if (package.activity)
        map.insert(QStringLiteral("activity"), *package.activity);
    return map;
}

QVariantMap installed(const InstalledModule& module) {
    QVariantMap map = package(module.package);
    QStringList hidden(module.hiddenDisplayIDs.cbegin(), module.hiddenDisplayIDs.cend());
    std::sort(hidden.begin(), hidden.end());
    map.insert(QStringLiteral("state"), state(module.state));
    map.insert(QStringLiteral("configuration"), state(module.configuration));
    map.insert(QStringLiteral("enabled"), module.enabled);
    map.insert(QStringLiteral("hiddenDisplayIDs"), hidden);
    map.insert(QStringLiteral("compactActivity"), module.compactActivity);
    return map;
}

} // namespace vell::ModuleVariants
