#include "VellPluginSDK/Protocol/PluginCredentials.h"

#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Protocol/PluginStorage.h"

#include <QEventLoop>
#include <QStringDecoder>
#include <QTimer>
#include <qt6keychain/keychain.h>

#include <chrono>

namespace vell {

namespace {

const QString unavailable =
    QStringLiteral("Plugin credential unavailable. Open Plugin Settings to reconnect.");
const QString couldNotUpdate = QStringLiteral("Could not update the plugin credential.");
const QString couldNotSave = QStringLiteral("Could not save the plugin credential.");
const QString couldNotRemove = QStringLiteral("Could not remove the plugin credential.");

// How long one call waits for the store. It may first ask the user to unlock the keyring, and a
// minute is time enough to type a password; a store that never answers must not hold the
// plugin's main thread for good.
constexpr std::chrono::seconds answerDeadline{60};

struct Answer {
    bool arrived = false;
    QKeychain::Error error = QKeychain::OtherError;
    QByteArray data;
};

// Runs job to its end on a local event loop. Nothing has arrived when the deadline came first;
// the job then still deletes itself once it finishes, since the keyring backends hold on to it
// until they answer.
Answer run(QKeychain::Job* job, const QString& account) {
    job->setKey(account);
    job->setAutoDelete(true);
    // Without a keyring QtKeychain could fall back to a plain settings file: never for secrets.
    job->setInsecureFallback(false);
    Answer answer;
    QEventLoop loop;
    QObject::connect(job, &QKeychain::Job::finished, &loop, [&answer, &loop](QKeychain::Job* done) {
        answer.arrived = true;
        answer.error = done->error();
        if (const auto* reading = qobject_cast<QKeychain::ReadPasswordJob*>(done))
            answer.data = reading->binaryData();
        loop.quit();
    });
    QTimer::singleShot(answerDeadline, &loop, &QEventLoop::quit);
    job->start(); // queued: nothing can finish before the loop runs
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    return answer;
}

bool succeeded(const Answer& answer) {
    return answer.arrived && answer.error == QKeychain::NoError;
}

} // namespace

PluginCredentials::PluginCredentials(const QString& pluginID) {
    PluginStorage::checkIdentity(pluginID);
    m_service = QStringLiteral("OstaVell.plugin.") + pluginID;
}

void PluginCredentials::save(const QString& value, const QString& account) const {
    const QByteArray secret = value.toUtf8();
    if (secret.size() > maximumSecretBytes)
        throw ModuleProblem(QStringLiteral("Credential exceeds its limit."));
    // The Secret Service is handed text secrets as C strings: a NUL would cut the secret short
    // without a word, so such a value can't be kept as it is.
    if (secret.contains('\0'))
        throw ModuleProblem(couldNotSave);
    auto* job = new QKeychain::WritePasswordJob(m_service);
    job->setTextData(value);
    const Answer answer = run(job, account);
    if (succeeded(answer))
        return;
    // One write replaces the item or adds it, so which half of update-then-add failed can't be
    // told apart. A store that refused access (locked, or its unlock declined) refused to touch
    // the slot at all: the failed update. Anything else, no store, no answer or a write it did
    // not complete, is the failed save.
    const bool refused = answer.arrived && (answer.error == QKeychain::AccessDenied ||
                                            answer.error == QKeychain::AccessDeniedByUser);
    throw ModuleProblem(refused ? couldNotUpdate : couldNotSave);
}

QString PluginCredentials::read(const QString& account) const {
    const Answer answer = run(new QKeychain::ReadPasswordJob(m_service), account);
    // Another program may have written the item: its size and encoding are checked here.
    if (!succeeded(answer) || answer.data.size() > maximumSecretBytes)
        throw ModuleProblem(unavailable);
    // A leading byte-order mark is part of the secret, not a marker to drop.
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom);
    QString text = utf8.decode(answer.data);
    if (utf8.hasError())
        throw ModuleProblem(unavailable);
    return text;
}

void PluginCredentials::remove(const QString& account) const {
    const Answer answer = run(new QKeychain::DeletePasswordJob(m_service), account);
    if (succeeded(answer) || (answer.arrived && answer.error == QKeychain::EntryNotFound))
        return;
    throw ModuleProblem(couldNotRemove);
}

} // namespace vell
