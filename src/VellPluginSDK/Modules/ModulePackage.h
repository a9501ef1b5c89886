#pragma once

#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/Modules/ModuleAction.h"
#include "VellPluginSDK/Modules/ModuleComponent.h"
#include "VellPluginSDK/Modules/ModuleFeed.h"
#include "VellPluginSDK/Modules/ModuleSetting.h"
#include "VellPluginSDK/Modules/ModuleState.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace vell {

// A lightweight module: one ".ostavellmodule" JSON file with metadata, declared settings and
// actions, two declarative views and a script that only the separate runner ever executes.
// Nothing from outside is trusted before validate() has passed.
struct ModulePackage final {
    // The largest package file read; the check comes before any parsing.
    static constexpr qsizetype maximumBytes = 262144;
    // One value of state or configuration, in UTF-8 bytes.
    static constexpr qsizetype maximumValueBytes = 2048;
    // Any text drawn from a template, in characters.
    static constexpr int maximumTextCharacters = 2048;

    qint64 schemaVersion = 1;
    qint64 hostAPIVersion = 1;
    QString id;
    QString name;
    QString version;
    QString author;
    QString summary;
    QStringList permissions; // a set: order and repeats carry no meaning
    ModuleState initialState;
    QList<ModuleSetting> settings;
    QList<ModuleAction> actions;
    QList<ModuleComponent> card;
    QList<ModuleComponent> page;
    std::optional<QString> activity;
    std::optional<QList<ModuleFeed>> feeds;
    QString script;

    // The only way a package enters from a file: size limit, parsing, then validate().
    static ModulePackage decode(const QByteArray& data);
    // decode() over a chosen file. Only a regular file is read, and never more of it than
    // decode() needs to see the limit passed.
    static ModulePackage read(const QString& path);

    static ModulePackage fromJson(const JsonNode& json);
    QByteArray encoded() const;
    QJsonObject toJson() const;

    // Throws the first failed test as a ModuleProblem.
    void validate() const;

    // Guards initialState, stored state and configuration, and every answer of the runner.
    static void validateState(const ModuleState& state);

    // "^[A-Za-z][A-Za-z0-9_]{0,63}$": state keys, setting, action, feed and component ids.
    static bool validKey(QStringView key);

    // Each setting's id to its defaultValue.
    ModuleState defaultSettings() const;

    // textTemplate with every {key} replaced by its value in state, else in configuration,
    // else "—"; cut to 2048 characters.
    static QString text(const QString& textTemplate, const ModuleState& state,
                        const ModuleState& configuration);

    bool operator==(const ModulePackage&) const = default;
};

} // namespace vell
