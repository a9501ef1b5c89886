#pragma once

#include <QString>

namespace vell {

// A plugin's private slot in the desktop's secret store (the Secret Service of GNOME Keyring,
// KWallet and their like): secrets kept under the service "OstaVell.plugin." plus the plugin's
// id and an account name of the plugin's choosing. Like the plugin's folder it lies outside the
// installed plugin, so it survives updates, restores and removal; the host never opens it.
//
// Each call blocks until the store answers, running a local event loop meanwhile: it is made
// for the plugin's main thread, under a QCoreApplication, and other events of that thread are
// delivered while it waits. Every failure throws ModuleProblem with a sentence for the user.
class PluginCredentials final {
public:
    // Secrets are short tokens and passwords; the limit counts their UTF-8 form.
    static constexpr qsizetype maximumSecretBytes = 8192;

    // A bad plugin id fails with "Invalid plugin storage identity.", as the plugin's folder does.
    explicit PluginCredentials(const QString& pluginID);

    const QString& service() const { return m_service; }

    // Stores value for account, replacing what was there. Over the limit it fails with
    // "Credential exceeds its limit." before the store is asked.
    void save(const QString& value, const QString& account) const;
    // The secret of account. A missing item, a store that fails or doesn't answer, and a
    // secret that is over the limit or not UTF-8 all fail with "Plugin credential unavailable.
    // Open Plugin Settings to reconnect."
    QString read(const QString& account) const;
    // Removing an item that isn't there is no error.
    void remove(const QString& account) const;

private:
    QString m_service;
};

} // namespace vell
