#include "OstaVell/Features/ShortcutsRunner/ShortcutsManager.h"

#include "OstaVell/Support/ShellContributions.h"
#include "OstaVell/Support/UserDefaults.h"
#include "VellHost/ChildProcess.h"
#include "VellHost/ShortcutsCommand.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJSEngine>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QPointer>
#include <QThreadPool>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vell {

Q_LOGGING_CATEGORY(lcShortcuts, "OstaVell Shortcuts", QtInfoMsg)

namespace {

// A wait status as one number: the exit code, or 128 and the signal, as shells tell it.
int exitCode(int status) {
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return -1;
}

// What the child wrote to its error pipe by the time it ended, up to the bound.
QByteArray drainErrors(int descriptor) {
    QByteArray errors;
    if (descriptor < 0)
        return errors;
    ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK);
    char chunk[4096];
    while (errors.size() < ShortcutsManager::maximumErrorBytes) {
        const ssize_t received = ::read(descriptor, chunk, sizeof chunk);
        if (received > 0)
            errors.append(chunk, received);
        else if (!(received < 0 && errno == EINTR))
            break;
    }
    return errors.left(ShortcutsManager::maximumErrorBytes);
}

// The owner is looked at there, on its own thread, never from the worker.
template <typename Function> void backToMainThread(Function&& function) {
    if (QCoreApplication* application = QCoreApplication::instance())
        QMetaObject::invokeMethod(application, std::forward<Function>(function), Qt::QueuedConnection);
}

QString fold(const QString& text, const QLocale& locale) {
    return locale.toLower(text.normalized(QString::NormalizationForm_C));
}

} // namespace

// What a `list` came back with.
struct ShortcutsManager::ListResult {
    enum class Ending { Exited, NotStarted, TimedOut, Overflowed, ReadFailed };
    Ending ending = Ending::Exited;
    int exitCode = 0;
    QByteArray output;
    QByteArray errors;
    QString startError;
};

ShortcutsManager* ShortcutsManager::instance() {
    static ShortcutsManager* p = new ShortcutsManager(ShortcutsCommand::defaultProgram());
    return p;
}

ShortcutsManager* ShortcutsManager::create(QQmlEngine*, QJSEngine*) {
    ShortcutsManager* manager = instance();
    QJSEngine::setObjectOwnership(manager, QJSEngine::CppOwnership);
    return manager;
}

void ShortcutsManager::offerViews(ShellContributions& shell) {
    const auto view = [](const char* file) {
        return QUrl(QStringLiteral("qrc:/qt/qml/OstaVell/ShortcutsRunner/qml/") + QLatin1String(file));
    };
    shell.offerTab(NotchTab::tools, QStringLiteral("Shortcuts"), view("ShortcutsView.qml"));
    shell.offerSettingsPane(QStringLiteral("Shortcuts"), view("ShortcutsSettingsPane.qml"));
}

ShortcutsManager::ShortcutsManager(const QString& program, UserDefaults* defaults, Clock clock,
                                   QObject* parent)
    : QObject(parent)
    , m_program(program)
    , m_defaults(defaults ? defaults : UserDefaults::instance())
    , m_clock(clock ? std::move(clock) : Clock([] { return std::chrono::steady_clock::now(); })) {
    connect(m_defaults, &UserDefaults::changed, this, [this](const QString& key) {
        if (key.isEmpty() || key == favoritesKey || key == hiddenKey) {
            emit listsChanged();
            emit widgetShortcutsChanged();
        }
    });
    connect(this, &ShortcutsManager::shortcutsChanged, this, &ShortcutsManager::widgetShortcutsChanged);
    connect(this, &ShortcutsManager::searchTextChanged, this, &ShortcutsManager::widgetShortcutsChanged);
    connect(this, &ShortcutsManager::loadStateChanged, this, &ShortcutsManager::widgetShortcutsChanged);
}

QString ShortcutsManager::loadStateName() const {
    switch (m_loadState) {
    case LoadState::idle:
        return QStringLiteral("idle");
    case LoadState::loading:
        return QStringLiteral("loading");
    case LoadState::loaded:
        return QStringLiteral("loaded");
    case LoadState::unavailable:
        return QStringLiteral("unavailable");
    case LoadState::failed:
        return QStringLiteral("failed");
    }
    return {};
}

QStringList ShortcutsManager::runningNames() const {
    QStringList names(m_running.cbegin(), m_running.cend());
    names.sort();
    return names;
}

QVariantMap ShortcutsManager::recentOutcomes() const {
    QVariantMap map;
    for (auto outcome = m_outcomes.cbegin(); outcome != m_outcomes.cend(); ++outcome)
        map.insert(outcome.key(), outcome.value() == Outcome::success ? QStringLiteral("success")
                                                                      : QStringLiteral("failure"));
    return map;
}

std::optional<ShortcutsManager::Outcome> ShortcutsManager::recentOutcome(const QString& name) const {
    const auto found = m_outcomes.constFind(name);
    return found == m_outcomes.cend() ? std::nullopt : std::optional(*found);
}

void ShortcutsManager::setSearchText(const QString& text) {
    if (m_searchText == text)
        return;
    m_searchText = text;
    emit searchTextChanged();
}

QStringList ShortcutsManager::favorites() const {
    return names(favoritesKey);
}

QStringList ShortcutsManager::hidden() const {
    return names(hiddenKey);
}

QStringList ShortcutsManager::widgetShortcuts() const {
    return widgetList(m_allShortcuts, favorites(), hidden(), m_searchText);
}

QVariantMap ShortcutsManager::emptyState() const {
    const auto state = [](const QString& title, const QString& message) {
        return QVariantMap{{QStringLiteral("title"), title}, {QStringLiteral("message"), message}};
    };
    switch (m_loadState) {
    case LoadState::unavailable:
        return state(QStringLiteral("Shortcuts Unavailable"), m_loadMessage);
    case LoadState::failed:
        return state(QStringLiteral("Couldn't Load Shortcuts"), m_loadMessage);
    case LoadState::idle:
    case LoadState::loading:
        // A list already shown stays while it is listed again.
        if (m_allShortcuts.isEmpty())
            return state(QStringLiteral("Loading shortcuts\u2026"), QString());
        break;
    case LoadState::loaded:
        break;
    }
    if (m_allShortcuts.isEmpty())
        return state(QStringLiteral("No Shortcuts Yet"),
                     QStringLiteral("Create shortcuts in the Shortcuts app and they will show up here."));
    if (widgetList(m_allShortcuts, {}, hidden(), QString()).isEmpty())
        return state(QStringLiteral("All Shortcuts Hidden"),
                     QStringLiteral("Every shortcut is hidden. Show some again from OstaVell settings."));
    return {};
}

void ShortcutsManager::refreshOnAppear() {
    if (m_lastRefresh && m_clock() - *m_lastRefresh < timing.refreshStaleness)
        return;
    refresh();
}

void ShortcutsManager::refresh() {
    if (m_loadState == LoadState::loading)
        return;
    const QFileInfo command(m_program);
    if (!command.isFile() || !command.isExecutable()) {
        setLoadState(LoadState::unavailable,
                     QStringLiteral("The Shortcuts command-line tool was not found at %1.").arg(m_program));
        return;
    }
    setLoadState(LoadState::loading);
    const ChildProcessOptions options = ShortcutsCommand::listOptions(m_program);
    const auto deadline = ChildProcess::Clock::now() + timing.listDeadline;
    const QPointer<ShortcutsManager> owner(this);
    ChildProcess::blockingPool()->start([options, deadline, owner] {
        ListResult result;
        std::unique_ptr<ChildProcess> child = ChildProcess::start(options, &result.startError);
        if (!child) {
            result.ending = ListResult::Ending::NotStarted;
        } else {
            const ChildProcess::Exchange exchange = child->exchange({}, maximumListBytes, deadline);
            result.output = exchange.output;
            result.errors = drainErrors(child->errorDescriptor());
            switch (exchange.ending) {
            case ChildProcess::Exchange::Ending::Finished:
                result.exitCode = exitCode(child->wait());
                break;
            case ChildProcess::Exchange::Ending::TimedOut:
                result.ending = ListResult::Ending::TimedOut;
                break;
            case ChildProcess::Exchange::Ending::Overflowed:
                result.ending = ListResult::Ending::Overflowed;
                break;
            case ChildProcess::Exchange::Ending::ReadFailed:
                result.ending = ListResult::Ending::ReadFailed;
                break;
            }
        }
        backToMainThread([owner, result] {
            if (owner)
                owner->listFinished(result);
        });
    });
}

void ShortcutsManager::listFinished(const ListResult& result) {
    const QString command = QStringLiteral("ostavell-shortcuts list");
    switch (result.ending) {
    case ListResult::Ending::NotStarted:
        return setLoadState(LoadState::failed,
                            QStringLiteral("%1 could not start: %2.").arg(command, result.startError));
    case ListResult::Ending::TimedOut:
        return setLoadState(LoadState::failed, QStringLiteral("%1 did not finish within %2 seconds.")
                                                   .arg(command)
                                                   .arg(timing.listDeadline.count() / 1000));
    case ListResult::Ending::Overflowed:
        return setLoadState(
            LoadState::failed,
            QStringLiteral("%1 printed more than %2 bytes.").arg(command).arg(maximumListBytes));
    case ListResult::Ending::ReadFailed:
        return setLoadState(LoadState::failed, QStringLiteral("%1 could not be read.").arg(command));
    case ListResult::Ending::Exited:
        break;
    }
    if (result.exitCode != 0) {
        const QString errors = QString::fromLocal8Bit(result.errors).trimmed();
        qCWarning(lcShortcuts, "list exited with code %d", result.exitCode);
        return setLoadState(LoadState::failed,
                            errors.isEmpty()
                                ? QStringLiteral("%1 exited with code %2.").arg(command).arg(result.exitCode)
                                : errors);
    }
    QStringList names;
    const QStringList lines = QString::fromLocal8Bit(result.output).split(u'\n');
    for (const QString& line : lines) {
        const QString name = line.trimmed();
        if (!name.isEmpty())
            names.append(name);
    }
    m_lastRefresh = m_clock();
    if (names != m_allShortcuts) {
        m_allShortcuts = names;
        emit shortcutsChanged();
    }
    setLoadState(LoadState::loaded);
}

void ShortcutsManager::setLoadState(LoadState state, const QString& message) {
    if (m_loadState == state && m_loadMessage == message)
        return;
    m_loadState = state;
    m_loadMessage = message;
    emit loadStateChanged();
}

void ShortcutsManager::run(const QString& name) {
    if (name.isEmpty() || m_running.contains(name))
        return;
    m_running.insert(name);
    emit runningChanged();
    const ChildProcessOptions options = ShortcutsCommand::runOptions(m_program, name);
    const QPointer<ShortcutsManager> owner(this);
    ChildProcess::blockingPool()->start([options, owner, name] {
        // One that can't start counts as a failed run.
        std::unique_ptr<ChildProcess> child = ChildProcess::start(options);
        const bool succeeded = child && exitCode(child->wait()) == 0;
        backToMainThread([owner, name, succeeded] {
            if (owner)
                owner->runEnded(name, succeeded);
        });
    });
}

void ShortcutsManager::runEnded(const QString& name, bool succeeded) {
    m_running.remove(name);
    emit runningChanged();
    flash(name, succeeded ? Outcome::success : Outcome::failure);
    emit runFinished(name, succeeded);
}

void ShortcutsManager::flash(const QString& name, Outcome outcome) {
    // A later run's outcome gets its whole moment: the earlier one's clearing finds another token.
    const QUuid token = QUuid::createUuid();
    m_flashTokens.insert(name, token);
    m_outcomes.insert(name, outcome);
    emit outcomesChanged();
    QTimer::singleShot(timing.flash, this, [this, name, token] {
        if (m_flashTokens.value(name) != token)
            return;
        m_flashTokens.remove(name);
        m_outcomes.remove(name);
        emit outcomesChanged();
    });
}

void ShortcutsManager::toggleFavorite(const QString& name) {
    QStringList list = favorites();
    if (!list.removeAll(name))
        list.append(name);
    writeNames(favoritesKey, list);
}

void ShortcutsManager::setHidden(const QString& name, bool hide) {
    QStringList list = hidden();
    if (hide == list.contains(name))
        return;
    if (hide)
        list.append(name);
    else
        list.removeAll(name);
    writeNames(hiddenKey, list);
}

QStringList ShortcutsManager::names(QLatin1StringView key) const {
    // Anything but an array of texts reads as the default, an empty list.
    const QJsonDocument document = QJsonDocument::fromJson(m_defaults->dataValue(key));
    QStringList list;
    const QJsonArray array = document.array();
    for (const QJsonValue& value : array) {
        if (value.isString())
            list.append(value.toString());
    }
    return list;
}

void ShortcutsManager::writeNames(QLatin1StringView key, const QStringList& list) {
    m_defaults->setValue(key, QJsonArray::fromStringList(list));
}

QStringList ShortcutsManager::widgetList(const QStringList& all, const QStringList& favorites,
                                         const QStringList& hidden, const QString& search,
                                         const QLocale& locale) {
    QStringList shown;
    for (const QString& name : all) {
        if (!hidden.contains(name))
            shown.append(name);
    }
    std::stable_partition(shown.begin(), shown.end(),
                          [&favorites](const QString& name) { return favorites.contains(name); });
    const QString query = search.trimmed();
    if (query.isEmpty())
        return shown;
    const QString folded = fold(query, locale);
    QStringList matching;
    for (const QString& name : std::as_const(shown)) {
        if (fold(name, locale).contains(folded))
            matching.append(name);
    }
    return matching;
}

} // namespace vell
